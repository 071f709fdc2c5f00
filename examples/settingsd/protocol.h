// The settings protocol: what settingsd and its clients say to each other, over a local socket or TLS.
//
// A client asks, and waits for the answer before it asks again. Both are messages of one form, a header of eight bytes
// and a text:
//
//     offset  size    content
//     0       2       "KS"
//     2       1       the version, 1
//     3       1       a request's command, an answer's status
//     4       4       bytes of text that follow, big-endian
//     8       0 to n  the text, without a NUL
//
//     command  text         answer when it is done
//     'G' get  KEY          the value
//     'S' set  KEY=VALUE    nothing; it comes after the file was replaced
//     'U' unset  KEY        nothing; it comes after the file was replaced
//     'L' list  nothing     "KEY=VALUE" lines, each with its line feed, in the order of the file
//
// The answer's status is one of `Status`; with every one but "done" the text is a message for people.
//
// A key has 1 to 255 bytes: no control characters, no "=", no blank at either end, and no "[", ";" or "#" at the start.
// A value has no NUL, no line feed, and no blank or tab at either end. So each pair is one line of the file.
//
// A request that is none of this protocol, or longer than `kMaxRequest`, is answered and the connection closed, since
// what follows it can't be made out. An unknown command or a bad text is answered, and the connection goes on.
#ifndef SETTINGSD_PROTOCOL_H
#define SETTINGSD_PROTOCOL_H

#include <korvex_util.h>
#include <stdint.h>

enum {
    kHeaderSize = 8,
    kMaxKey = 255,
    kMaxRequest = 4096,   // bytes of a request's text
    kMaxAnswer = 1 << 21  // bytes of an answer's text
};

enum Command { kGet = 'G', kSet = 'S', kUnset = 'U', kList = 'L' };

enum Status {
    kDone = 0,
    kNoKey = 1,       // get, unset: there is no such key
    kBadRequest = 2,  // an unknown command, a bad key or value, or no request at all
    kTooLong = 3,     // the request, or what would be the answer
    kBusy = 4,        // somebody else holds the file: ask again
    kFailed = 5       // the daemon's log tells why
};

// Sends one message on a connection of either kind. 0 or a negated errno.
int32_t send_message(SSL_Socket_Info *socket, uint8_t code, const char *text, uint32_t length);

// Receives one message; the text gets a NUL behind it, and may hold others.
//
// Returns the length of the text; -EPROTO for what is no message; -EMSGSIZE for a text that does not fit into `room`
// bytes with its NUL; -ECONNRESET for a peer that went away, or fell silent, before its message was complete; else what
// the receive reported. How long a silent peer is waited for is the socket's own time-out.
int32_t receive_message(SSL_Socket_Info *socket, uint8_t *code, char *text, uint32_t room);

#endif
