// The threads that serve connections, and the queue in which connections wait for their turn.
//
// A turn is short: one handshake, or one request and its answer. Then the connection goes to the end of the queue,
// unless nobody else waits. So all connections move on, however many there are and however few threads.
#ifndef SETTINGSD_WORKERS_H
#define SETTINGSD_WORKERS_H

#include <korvex_util.h>
#include <pthread.h>
#include <stdbool.h>
#include <stdint.h>

#include "options.h"
#include "store.h"

typedef struct Worker Worker;

typedef struct Workers {
    const Options *options;
    Store *store;
    Worker *each;     // options->workers of them
    int32_t started;  // how many of them have a thread

    pthread_mutex_t mutex;     // guards the queue and all below
    pthread_cond_t condition;  // the queue is no longer empty, or it is time to stop
    Link_Queue queue;
    int32_t connections;  // waiting or being served
    int32_t running;      // threads that have not ended
    bool stopping;
} Workers;

// Starts the threads. 0 or a negated errno, and nothing runs then.
int32_t workers_start(Workers *workers, const Options *options, Store *store);

// False when no more connections are wanted for now.
bool workers_have_room(Workers *workers);

// Takes an accepted socket, for which there must be room.
void workers_add(Workers *workers, int32_t socket, bool tls);

// Ends the turns of peers that take too long. To be called now and then.
void workers_watch(Workers *workers);

// Lets the answers that are under way go out, ends the threads, and closes every connection.
void workers_stop(Workers *workers);

#endif
