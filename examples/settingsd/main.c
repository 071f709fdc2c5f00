// settingsd: keeps an appliance's settings in a configuration file and serves them to its programs.
//
// An example of a whole host of the library: a daemon with a log, local and TLS sockets, threads fed by a queue, a
// configuration that others edit as well, and traced memory. Each part is a file:
//
//     protocol   the messages, described in protocol.h
//     options    the command line
//     listeners  the sockets; the main thread accepts
//     workers    the threads that serve, and the queue between
//     requests   what is done for a request
//     store      the settings, in their file
//     traced     memory that reports its leaks
//
// A change is acknowledged when the new file is in place, so that what was acknowledged survives a kill at any moment
// (but not a power failure: nothing is synced). A killed daemon may leave the file's lock and its own socket behind:
// the library takes the lock of a dead process over, and the next daemon replaces the socket.
//
// Who may change settings is a matter of who gets here: the local socket takes everybody who can reach its path, and
// TLS keeps what is said private without asking who says it. So give the socket a folder of its own, and the port an
// address (--host) that only the right ones reach.
#include <errno.h>
#include <fcntl.h>
#include <korvex_util.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "listeners.h"
#include "options.h"
#include "store.h"
#include "traced.h"
#include "workers.h"

enum { kFailure = 1, kLongestLine = 16464 };

// The stop signals arrive at a descriptor, like connections. Blocked before there are threads, they are so in all.
static int32_t open_stop_signals(void) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, NULL);
    signal(SIGPIPE, SIG_IGN);  // a peer that is gone is a result, not the end
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

// A line is one write. But the kernel may end a write early, between two pages of the file, when the process is killed;
// so a daemon that was killed can have left half a line at the log's end. It goes.
static void drop_half_line(const char *path) {
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return;

    char tail[kLongestLine];
    const off_t size = lseek(fd, 0, SEEK_END);
    const off_t start = size > kLongestLine ? size - kLongestLine : 0;
    const ssize_t count = pread(fd, tail, sizeof tail, start);
    const char *line_feed = count > 0 ? memrchr(tail, '\n', (size_t)count) : NULL;
    if (line_feed != NULL && ftruncate(fd, start + (line_feed - tail) + 1) != 0)
        perror("settingsd: can't mend the log");
    close(fd);
}

// Our own lines and the library's go to one log.
static bool open_log(const char *path) {
    Simp_Log *log = NULL;
    int32_t result = Simp_Log_Create(path, &log, 24, 3, 0);
    if (result == 0) {
        drop_half_line(path);
        result = Simp_Log_Open(log, 0);
    }
    if (result != 0) {
        fprintf(stderr, "settingsd: can't open the log %s: %s\n", path, strerror(-result));
        Simp_Log_Release(log);
        return false;
    }

    g_ptslLog = log;
    return true;
}

static void close_log(void) {
    Simp_Log_Release(g_ptslLog);
    g_ptslLog = NULL;
}

// Every session has a context of its own, made by the worker that accepts it. One is made here and now, because a wrong
// certificate should end the start, and because the first context of a process is to be made by one thread alone.
static bool can_serve_tls(const Options *options) {
    if (options->port == 0)
        return true;

    SSL_CTX *context = NULL;
    const int32_t result = CTX_Initialize(options->certificate, options->password, options->authorities, &context);
    if (result != 0) {
        fprintf(stderr, "settingsd: can't use the certificate %s: %s. See the log\n", options->certificate,
                strerror(-result));
        return false;
    }
    CTX_Destroy(context);
    return true;
}

// From the first connection to the last answer. False when it did not begin, or did not end as it should.
static bool serve(const Options *options, Listeners *listeners, Store *store) {
    Workers workers;
    const int32_t result = workers_start(&workers, options, store);
    if (result != 0) {
        fprintf(stderr, "settingsd: can't start %d workers: %s\n", options->workers, strerror(-result));
        listeners_close(listeners);
        return false;
    }

    Simp_Log_Write(g_ptslLog, "process %d serves %s", (int)getpid(), options->conf_path);
    const bool told_to_stop = accept_connections(listeners, &workers);
    listeners_close(listeners);
    workers_stop(&workers);
    return told_to_stop;
}

static bool run(const Options *options, int32_t stop_signals) {
    Listeners listeners;
    if (!can_serve_tls(options) || !listeners_open(&listeners, options, stop_signals))
        return false;

    Store store;
    store_open(&store, options->conf_path);
    const bool served = serve(options, &listeners, &store);
    store_close(&store);
    return served;
}

int main(int argc, char **argv) {
    Options options;
    int exit_status = 0;
    if (!read_options(argc, argv, &options, &exit_status))
        return exit_status;

    const int32_t stop_signals = open_stop_signals();
    if (stop_signals < 0) {
        perror("settingsd: signals");
        return kFailure;
    }
    if (!open_log(options.log_path))
        return kFailure;

    traced_begin();
    const bool served = run(&options, stop_signals);
    traced_end();
    close_log();
    close(stop_signals);
    return served ? 0 : kFailure;
}
