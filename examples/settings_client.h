// What the clients of settingsd share: where to find it, and asking it.
#ifndef SETTINGS_CLIENT_H
#define SETTINGS_CLIENT_H

#include <getopt.h>
#include <korvex_util.h>
#include <stdbool.h>
#include <stdint.h>

#include "settingsd/protocol.h"

typedef struct Address {
    const char *socket_path;  // of the local socket
    const char *host;         // of the TLS port
    int32_t port;             // 0: none
    const char *certificate;  // the client's own: chain and key
    const char *authorities;
    char password[256];
} Address;

// The options that say where, and who. Their letters are capitals, to stay clear of a program's own.
// clang-format off
#define ADDRESS_OPTIONS                            \
    {"socket", required_argument, NULL, 'S'},      \
    {"port", required_argument, NULL, 'P'},        \
    {"host", required_argument, NULL, 'H'},        \
    {"cert", required_argument, NULL, 'E'},        \
    {"ca", required_argument, NULL, 'A'},          \
    {"password-file", required_argument, NULL, 'F'}
// clang-format on

#define ADDRESS_USAGE                                                    \
    "  --socket PATH         the daemon's local socket\n"                \
    "  --port N              its TLS port\n"                             \
    "  --host NAME           its host, for TLS (localhost)\n"            \
    "  --cert PEM            this client's certificate chain and key\n"  \
    "  --ca PEM              trusted authorities (the file of --cert)\n" \
    "  --password-file FILE  pass phrase of the key\n"

// Takes one of those options. False when its argument can't be taken, or when it is none of them.
bool take_address_option(Address *address, int option, const char *argument);

// False when the options together name no place to go to.
bool complete_address(Address *address);

// Connects by TLS or to the local socket. 0 or a negated errno.
int32_t settings_connect(const Address *address, bool tls, int32_t timeout_ms, SSL_Socket_Info *socket);

// Asks, and waits for the answer's text. Its `Status`, or a negated errno, after which the connection is of no more
// use.
int32_t settings_ask(SSL_Socket_Info *socket, uint8_t command, const char *text, char *answer, uint32_t room);

#endif
