#include "protocol.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>

static const uint8_t kMagic[3] = {'K', 'S', 1};

static void put_length(uint8_t *bytes, uint32_t length) {
    bytes[0] = (uint8_t)(length >> 24);
    bytes[1] = (uint8_t)(length >> 16);
    bytes[2] = (uint8_t)(length >> 8);
    bytes[3] = (uint8_t)length;
}

static uint32_t get_length(const uint8_t *bytes) {
    return (uint32_t)bytes[0] << 24 | (uint32_t)bytes[1] << 16 | (uint32_t)bytes[2] << 8 | bytes[3];
}

int32_t send_message(SSL_Socket_Info *socket, uint8_t code, const char *text, uint32_t length) {
    uint8_t header[kHeaderSize];
    memcpy(header, kMagic, sizeof kMagic);
    header[3] = code;
    put_length(header + 4, length);

    // MSG_MORE: a plain connection may send the header together with the text. A TLS session ignores flags.
    const uint32_t more = length > 0 ? MSG_MORE : 0;
    const int64_t sent = Exactly_SSL_Send(socket, header, sizeof header, MSG_NOSIGNAL | more);
    if (sent < 0)
        return (int32_t)sent;

    const int64_t text_sent = Exactly_SSL_Send(socket, text, length, MSG_NOSIGNAL);
    return text_sent < 0 ? (int32_t)text_sent : 0;
}

static int32_t receive_all(SSL_Socket_Info *socket, void *bytes, uint32_t length) {
    // The call's time-out is for a peer that has closed, of which it asks again and again until then: none. A silent
    // peer is given the time-out of the socket.
    int32_t received = 0;
    const int32_t result = Exactly_SSL_Recv_Ex(socket, bytes, (int32_t)length, 0, &received);
    return result == -ETIME ? -ECONNRESET : result;
}

int32_t receive_message(SSL_Socket_Info *socket, uint8_t *code, char *text, uint32_t room) {
    uint8_t header[kHeaderSize];
    int32_t result = receive_all(socket, header, sizeof header);
    if (result < 0)
        return result;

    if (memcmp(header, kMagic, sizeof kMagic) != 0)
        return -EPROTO;

    // Judged before anything is done with it: the four bytes can say anything.
    const uint32_t length = get_length(header + 4);
    if (length >= room)
        return -EMSGSIZE;

    result = receive_all(socket, text, length);
    if (result < 0)
        return result;

    text[length] = '\0';
    *code = header[3];
    return (int32_t)length;
}
