#include "settings_client.h"

#include <string.h>

#include "settingsd/arguments.h"

bool take_address_option(Address *address, int option, const char *argument) {
    switch (option) {
        case 'S':
            address->socket_path = argument;
            return true;
        case 'P':
            return read_number(argument, 1, 65535, &address->port);
        case 'H':
            address->host = argument;
            return true;
        case 'E':
            address->certificate = argument;
            return true;
        case 'A':
            address->authorities = argument;
            return true;
        case 'F':
            return read_password(argument, address->password, sizeof address->password);
        default:
            return false;
    }
}

bool complete_address(Address *address) {
    if (address->host == NULL)
        address->host = "localhost";
    if (address->authorities == NULL)
        address->authorities = address->certificate;
    return address->port != 0 ? address->certificate != NULL : address->socket_path != NULL;
}

int32_t settings_connect(const Address *address, bool tls, int32_t timeout_ms, SSL_Socket_Info *socket) {
    *socket = (SSL_Socket_Info){.fdSocket = -1};
    if (tls)
        return SSL_Socket_Connect(address->host, address->port, timeout_ms, address->certificate, address->password,
                                  address->authorities, socket);
    return Domain_Socket_Connect(address->socket_path, &socket->fdSocket, timeout_ms);
}

int32_t settings_ask(SSL_Socket_Info *socket, uint8_t command, const char *text, char *answer, uint32_t room) {
    const int32_t sent = send_message(socket, command, text, (uint32_t)strlen(text));
    if (sent != 0)
        return sent;

    uint8_t status = kFailed;
    const int32_t length = receive_message(socket, &status, answer, room);
    return length < 0 ? length : status;
}
