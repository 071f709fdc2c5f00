// What the daemon is told on its command line.
#ifndef SETTINGSD_OPTIONS_H
#define SETTINGSD_OPTIONS_H

#include <stdbool.h>
#include <stdint.h>

typedef struct Options {
    const char *socket_path;
    const char *conf_path;
    const char *log_path;
    const char *host;         // where TLS is listened for; null: every address
    int32_t port;             // 0: no TLS
    const char *certificate;  // PEM: the chain and the key
    const char *authorities;  // PEM; the certificate's own file where none is given
    char password[256];       // of the key
    int32_t workers;
    int32_t timeout_ms;
} Options;

// Fills the options. False when the program is to end with `*exit_status`: all that is to be said has been said then.
bool read_options(int argc, char **argv, Options *options, int *exit_status);

#endif
