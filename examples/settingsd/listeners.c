#include "listeners.h"

#include <errno.h>
#include <korvex_util.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

enum {
    kStop = 0,
    kLocal = 1,
    kFirstTcp = 2,
    kBacklog = 128,
    kTickMs = 100  // between two looks at the workers and at the socket's file
};

static int32_t listen_tcp(Listeners *listeners, const Options *options) {
    if (options->port == 0)
        return 0;

    int32_t *sockets = listeners->sockets + kFirstTcp;
    const int32_t result = TCP_Socket_Listen(options->host, options->port, kBacklog, sockets, kMaxTcp);
    if (result != 0)
        return result;

    for (; listeners->sockets[listeners->number] != -1; listeners->number++)
        // A peer that is gone again before it was accepted must not make the accept wait.
        Domain_Sock_Set_Nonblocking(listeners->sockets[listeners->number]);
    return 0;
}

static int32_t listen_local(Listeners *listeners, const Options *options) {
    // The socket of an earlier daemon is removed by the call; anything else has come here by mistake.
    struct stat status;
    if (lstat(options->socket_path, &status) == 0 && !S_ISSOCK(status.st_mode))
        return -ENOTSOCK;

    const int32_t result = Domain_Socket_Listen(options->socket_path, &listeners->sockets[kLocal], 1);
    if (result != 0)
        return result;

    if (lstat(options->socket_path, &status) != 0)
        return -errno;

    listeners->path = options->socket_path;
    listeners->device = status.st_dev;
    listeners->inode = status.st_ino;
    return 0;
}

// While this daemon holds the socket, its file's number is not given to another.
static bool path_is_ours(const Listeners *listeners) {
    struct stat status;
    return listeners->path != NULL && lstat(listeners->path, &status) == 0 && status.st_dev == listeners->device &&
           status.st_ino == listeners->inode;
}

bool listeners_open(Listeners *listeners, const Options *options, int32_t stop_signals) {
    *listeners = (Listeners){.number = kFirstTcp};
    memset(listeners->sockets, -1, sizeof listeners->sockets);
    listeners->sockets[kStop] = stop_signals;

    // A port that is in use ends the start before the path is taken from the daemon that uses both.
    int32_t result = listen_tcp(listeners, options);
    if (result != 0) {
        fprintf(stderr, "settingsd: can't listen on port %d: %s\n", options->port, strerror(-result));
        listeners_close(listeners);
        return false;
    }

    result = listen_local(listeners, options);
    if (result != 0) {
        fprintf(stderr, "settingsd: can't listen on %s: %s\n", options->socket_path, strerror(-result));
        listeners_close(listeners);
        return false;
    }
    return true;
}

static void accept_one(Listeners *listeners, int32_t index, Workers *workers) {
    const int32_t socket = accept4(listeners->sockets[index], NULL, NULL, SOCK_CLOEXEC);
    if (socket >= 0) {
        workers_add(workers, socket, index >= kFirstTcp);
        return;
    }

    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        Simp_Log_Write(g_ptslLog, "can't accept a connection! (%d)", -errno);
        Sleep_MSec(kTickMs);  // the peer still waits, and would be accepted in vain again at once
    }
}

void accept_connections(Listeners *listeners, Workers *workers) {
    for (;;) {
        // Where there is no room, peers wait in the kernel's backlog.
        const int32_t number = workers_have_room(workers) ? listeners->number : kLocal;
        int32_t socket = -1;
        int32_t index = -1;
        const int32_t ready = Is_Any_Socket_Ready(listeners->sockets, number, kTickMs, &socket, &index);
        if (ready < 0 && ready != -EINTR) {
            Simp_Log_Write(g_ptslLog, "stopping: can't wait for connections! (%d)", ready);
            return;
        }
        if (index == kStop) {
            Simp_Log_Write(g_ptslLog, "stopping");
            return;
        }
        if (!path_is_ours(listeners)) {
            Simp_Log_Write(g_ptslLog, "stopping: %s is no longer this daemon's", listeners->path);
            return;
        }

        workers_watch(workers);
        // The first listener that is ready is the one that is told: each has its turn, or a busy one would keep the others out.
        for (int32_t i = kLocal; ready == 1 && i < listeners->number && workers_have_room(workers); i++)
            accept_one(listeners, i, workers);
    }
}

void listeners_close(Listeners *listeners) {
    if (path_is_ours(listeners))
        unlink(listeners->path);
    for (int32_t i = kLocal; i < listeners->number; i++)
        if (listeners->sockets[i] >= 0)
            close(listeners->sockets[i]);
}
