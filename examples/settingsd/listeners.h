// Where the daemon is called: the local socket, the TLS port, and the descriptor of its stop signals.
#ifndef SETTINGSD_LISTENERS_H
#define SETTINGSD_LISTENERS_H

#include <stdbool.h>
#include <stdint.h>
#include <sys/types.h>

#include "options.h"
#include "workers.h"

enum { kMaxTcp = 8 };

typedef struct Listeners {
    // [0] the stop signals; [1] the local socket; then the TCP sockets, and a -1 behind them.
    int32_t sockets[2 + kMaxTcp + 1];
    int32_t number;
    const char *path;  // of the local socket's file, and which file that is
    dev_t device;
    ino_t inode;
} Listeners;

// Begins to listen. False, with everything closed and the reason on standard error, when that is not possible.
bool listeners_open(Listeners *listeners, const Options *options, int32_t stop_signals);

// Hands connections to the workers until a stop signal comes, or another daemon takes the local socket's path over.
// False when it ends for another reason.
bool accept_connections(Listeners *listeners, Workers *workers);

// Closes all but the stop signals, and removes the socket's file if it still is this daemon's.
void listeners_close(Listeners *listeners);

#endif
