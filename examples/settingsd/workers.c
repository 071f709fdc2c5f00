#include "workers.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "requests.h"
#include "traced.h"

enum {
    kMaxConnections = 512,  // below the usual limit of 1024 descriptors a process
    kTurnMs = 5             // how long a worker waits for one peer while others may have something to say
};

typedef struct Connection {
    SSL_Socket_Info socket;
    bool handshake_due;
    uint64_t heard;  // tick at which the peer was last heard of
} Connection;

// A connection in the queue. Nodes that the queue still holds at its end it frees itself, so they come from malloc;
// what is traced hangs on them.
typedef struct Turn {
    Link_Node link;  // must be first
    Connection *connection;
} Turn;

struct Worker {
    pthread_t thread;
    Workers *all;
    // The peer that the worker is waiting for: its socket, which others may shut down but not close, and since when.
    // Guarded by the mutex; -1 when it waits for none.
    int32_t socket;
    uint64_t since;
};

static void close_connection(Workers *workers, Turn *turn) {
    SSL_Socket_Destroy(&turn->connection->socket, 0);
    TRACED_FREE(turn->connection);
    free(turn);

    pthread_mutex_lock(&workers->mutex);
    workers->connections--;
    pthread_mutex_unlock(&workers->mutex);
}

// From here to `end_waiting` the peer's time runs. False when it is time to stop, and no more should be asked of it.
static bool begin_waiting(Worker *worker, int32_t socket) {
    pthread_mutex_lock(&worker->all->mutex);
    const bool stopping = worker->all->stopping;
    worker->socket = socket;
    worker->since = Tick_Diff(0);
    pthread_mutex_unlock(&worker->all->mutex);
    return !stopping;
}

static void end_waiting(Worker *worker) {
    pthread_mutex_lock(&worker->all->mutex);
    worker->socket = -1;
    pthread_mutex_unlock(&worker->all->mutex);
}

static bool shake_hands(Worker *worker, Connection *connection) {
    const Options *options = worker->all->options;
    const bool done =
        begin_waiting(worker, connection->socket.fdSocket) &&
        SSL_Accept_Socket(options->certificate, options->password, options->authorities, &connection->socket) == 0;
    end_waiting(worker);
    connection->handshake_due = false;
    return done;
}

// A peer that has closed is ready to be read from, too. A look at the first byte tells, and an orderly end is no error
// in the log as it would be for the receive of a whole header.
static bool has_closed(SSL_Socket_Info *socket) {
    char byte;
    return SSL_Recv(socket, &byte, 1, MSG_PEEK) != 1;
}

static bool receive(Worker *worker, SSL_Socket_Info *socket, Request *request) {
    const bool received =
        begin_waiting(worker, socket->fdSocket) && !has_closed(socket) && receive_request(socket, request);
    end_waiting(worker);
    return received;
}

static bool send_answer(Worker *worker, SSL_Socket_Info *socket, const Answer *answer) {
    (void)begin_waiting(worker, socket->fdSocket);  // an answer goes out at a stop, too: what was done should be known
    const int32_t result = send_message(socket, (uint8_t)answer->status, answer->text, answer->length);
    end_waiting(worker);
    return result == 0;
}

// One request and its answer. False when there is no more to come.
static bool serve_request(Worker *worker, SSL_Socket_Info *socket) {
    Request request;
    if (!receive(worker, socket, &request))
        return false;

    Answer answer;
    find_answer(worker->all->store, &request, &answer);
    const bool sent = send_answer(worker, socket, &answer);
    release_answer(&answer);
    return sent && request.unreadable == kDone;
}

// True when the connection is to have more turns.
static bool take_turn(Worker *worker, Connection *connection) {
    const int32_t ready = Is_Socket_Ready_To_Recv(connection->socket.fdSocket, kTurnMs);
    if (ready == 0)
        return Tick_Diff(connection->heard) < (uint64_t)worker->all->options->timeout_ms;
    if (ready < 0)
        return false;

    const bool lasts =
        connection->handshake_due ? shake_hands(worker, connection) : serve_request(worker, &connection->socket);
    connection->heard = Tick_Diff(0);
    return lasts;
}

// Waits for the next connection in the queue. Null when it is time to stop.
static Turn *next_turn(Workers *workers) {
    for (;;) {
        pthread_mutex_lock(&workers->mutex);
        while (workers->queue.nNumber == 0 && !workers->stopping)
            pthread_cond_wait(&workers->condition, &workers->mutex);
        const bool stopping = workers->stopping;
        pthread_mutex_unlock(&workers->mutex);
        if (stopping)
            return NULL;

        // The queue takes the mutex itself; another worker may have been quicker.
        Link_Node *node = NULL;
        if (Link_Queue_Pop_Node(&workers->queue, &node) == 1)
            return (Turn *)node;
    }
}

static bool may_go_on(Workers *workers) {
    pthread_mutex_lock(&workers->mutex);
    const bool nobody_waits = workers->queue.nNumber == 0 && !workers->stopping;
    pthread_mutex_unlock(&workers->mutex);
    return nobody_waits;
}

static void *serve(void *argument) {
    Worker *worker = argument;
    Workers *all = worker->all;
    for (Turn *turn = next_turn(all); turn != NULL; turn = next_turn(all)) {
        bool lasts = take_turn(worker, turn->connection);
        while (lasts && may_go_on(all))
            lasts = take_turn(worker, turn->connection);

        // The push can't be refused: the queue has room for all the connections that there may be.
        if (lasts)
            Link_Queue_Push_Node(&all->queue, &turn->link);
        else
            close_connection(all, turn);
    }

    pthread_mutex_lock(&all->mutex);
    all->running--;
    pthread_mutex_unlock(&all->mutex);
    return NULL;
}

static int32_t start_worker(Workers *workers, Worker *worker) {
    *worker = (Worker){.all = workers, .socket = -1};
    const int error = pthread_create(&worker->thread, NULL, serve, worker);
    if (error != 0)
        return -error;

    pthread_mutex_lock(&workers->mutex);
    workers->running++;
    pthread_mutex_unlock(&workers->mutex);
    return 0;
}

int32_t workers_start(Workers *workers, const Options *options, Store *store) {
    *workers = (Workers){.options = options, .store = store};
    workers->each = calloc((size_t)options->workers, sizeof *workers->each);
    if (workers->each == NULL)
        return -ENOMEM;

    pthread_mutex_init(&workers->mutex, NULL);
    pthread_cond_init(&workers->condition, NULL);
    Link_Queue_Init(&workers->queue, kMaxConnections, &workers->mutex, &workers->condition);
    for (; workers->started < options->workers; workers->started++) {
        const int32_t result = start_worker(workers, &workers->each[workers->started]);
        if (result != 0) {
            workers_stop(workers);
            return result;
        }
    }
    return 0;
}

bool workers_have_room(Workers *workers) {
    pthread_mutex_lock(&workers->mutex);
    const bool room = workers->connections < kMaxConnections;
    pthread_mutex_unlock(&workers->mutex);
    return room;
}

static void set_time_outs(int32_t socket, int32_t timeout_ms) {
    const struct timeval limit = {.tv_sec = timeout_ms / 1000, .tv_usec = timeout_ms % 1000 * 1000};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

void workers_add(Workers *workers, int32_t socket, bool tls) {
    Turn *turn = malloc(sizeof *turn);
    Connection *connection = TRACED_ALLOC(sizeof *connection);
    if (turn == NULL || connection == NULL) {
        Simp_Log_Write(g_ptslLog, "no memory for a connection");
        free(turn);
        TRACED_FREE(connection);
        close(socket);
        return;
    }

    set_time_outs(socket, workers->options->timeout_ms);
    *connection = (Connection){.socket = {.fdSocket = socket}, .handshake_due = tls, .heard = Tick_Diff(0)};
    *turn = (Turn){.connection = connection};
    pthread_mutex_lock(&workers->mutex);
    workers->connections++;
    pthread_mutex_unlock(&workers->mutex);
    Link_Queue_Push_Node(&workers->queue, &turn->link);
}

void workers_watch(Workers *workers) {
    const uint64_t limit = (uint64_t)workers->options->timeout_ms;
    pthread_mutex_lock(&workers->mutex);
    for (int32_t i = 0; i < workers->started; i++) {
        Worker *worker = &workers->each[i];
        // A peer that sends a byte now and then never makes a receive time out. Shut down, its socket has nothing more
        // to give, and the worker goes on.
        if (worker->socket >= 0 && Tick_Diff(worker->since) > limit)
            shutdown(worker->socket, SHUT_RDWR);
    }
    pthread_mutex_unlock(&workers->mutex);
}

static void begin_stop(Workers *workers) {
    pthread_mutex_lock(&workers->mutex);
    workers->stopping = true;
    for (int32_t i = 0; i < workers->started; i++)
        if (workers->each[i].socket >= 0)
            shutdown(workers->each[i].socket, SHUT_RD);
    pthread_cond_broadcast(&workers->condition);
    pthread_mutex_unlock(&workers->mutex);
}

static bool any_runs(Workers *workers) {
    pthread_mutex_lock(&workers->mutex);
    const bool runs = workers->running > 0;
    pthread_mutex_unlock(&workers->mutex);
    return runs;
}

void workers_stop(Workers *workers) {
    begin_stop(workers);
    // Watched to the end: a peer that takes its answer slowly can't put it off for long.
    for (; any_runs(workers); Sleep_MSec(1))
        workers_watch(workers);
    for (int32_t i = 0; i < workers->started; i++)
        pthread_join(workers->each[i].thread, NULL);

    // The queue's own end would free the nodes, and lose the connections.
    Link_Node *node = NULL;
    while (Link_Queue_Pop_Node(&workers->queue, &node) == 1)
        close_connection(workers, (Turn *)node);
    Link_Queue_Destroy(&workers->queue);
    pthread_cond_destroy(&workers->condition);
    pthread_mutex_destroy(&workers->mutex);
    free(workers->each);
}
