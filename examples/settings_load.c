// settings_load: many clients that change settings at once, and do not mind when the daemon dies.
//
// Each client is a thread with a connection of its own, half of them by TLS where a port is given. It sets its own keys
// one after the other. A change that was not acknowledged is made again, on a new connection if need be: so the daemon
// may be killed and started again while they are at it. In the end every acknowledged change must be there, as the
// daemon's answer to a get and in the file.
//
// Exit status: 0 all acknowledged and there; 1 not so; 2 bad usage.
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "settings_client.h"
#include "settingsd/arguments.h"

enum {
    kUsageExit = 2,
    kTimeoutMs = 30000,   // for one answer
    kPatienceMs = 60000,  // for one change, however often it is tried
    kPauseMs = 10         // before another connection is tried
};

static const char kUsage[] =
    "usage: settings_load --socket PATH --conf FILE [OPTION]...\n"
    "\n" ADDRESS_USAGE
    "  --conf FILE           the daemon's file\n"
    "  --clients N           how many (64)\n"
    "  --sets N              changes that each makes (200)\n";

typedef struct Load {
    Address address;
    const char *conf_path;
    int32_t clients;
    int32_t sets;
} Load;

typedef struct Client {
    const Load *load;
    pthread_t thread;
    int32_t number;
    bool tls;
    SSL_Socket_Info socket;
    bool connected;
    int32_t connections;   // made so far
    int32_t acknowledged;  // changes: the first ones, since a client that gives one up ends
    int32_t seen;          // of these, by get
} Client;

enum { kTextSize = 64 };

static void key_of(const Client *client, int32_t set, char *key) {
    snprintf(key, kTextSize, "client %d key %d", client->number, set);
}

static void value_of(const Client *client, int32_t set, char *value) {
    snprintf(value, kTextSize, "value %d of client %d", set, client->number);
}

static void disconnect(Client *client) {
    if (client->connected)
        SSL_Socket_Destroy(&client->socket, 0);
    client->connected = false;
}

static bool connect_anew(Client *client) {
    client->connected = settings_connect(&client->load->address, client->tls, kTimeoutMs, &client->socket) == 0;
    client->connections += client->connected;
    return client->connected;
}

// Asks until there is an answer, or no more patience. The answer's status, or -ETIME.
static int32_t ask_patiently(Client *client, uint8_t command, const char *text, char *answer, uint32_t room) {
    const uint64_t start = Tick_Diff(0);
    while (Tick_Diff(start) < kPatienceMs) {
        if (!client->connected && !connect_anew(client)) {
            Sleep_MSec(kPauseMs);
            continue;
        }

        const int32_t status = settings_ask(&client->socket, command, text, answer, room);
        if (status >= 0 && status != kBusy)
            return status;
        if (status < 0)
            disconnect(client);
    }
    return -ETIME;
}

static void *set_all(void *argument) {
    Client *client = argument;
    char key[kTextSize];
    char value[kTextSize];
    char text[2 * kTextSize];
    char answer[kMaxKey];
    for (int32_t set = 0; set < client->load->sets; set++) {
        key_of(client, set, key);
        value_of(client, set, value);
        snprintf(text, sizeof text, "%s=%s", key, value);
        const int32_t status = ask_patiently(client, kSet, text, answer, sizeof answer);
        if (status != kDone) {
            fprintf(stderr, "settings_load: client %d: set %s: %s\n", client->number, key,
                    status < 0 ? strerror(-status) : answer);
            break;
        }
        client->acknowledged++;
    }
    return NULL;
}

static void *get_all(void *argument) {
    Client *client = argument;
    char key[kTextSize];
    char value[kTextSize];
    char answer[kMaxKey];
    for (int32_t set = 0; set < client->acknowledged; set++) {
        key_of(client, set, key);
        value_of(client, set, value);
        const int32_t status = ask_patiently(client, kGet, key, answer, sizeof answer);
        if (status == kDone && strcmp(answer, value) == 0)
            client->seen++;
        else
            fprintf(stderr, "settings_load: client %d: get %s: %s\n", client->number, key,
                    status < 0 ? strerror(-status) : answer);
    }
    disconnect(client);
    return NULL;
}

static void run_all(Client *clients, int32_t number, void *(*work)(void *)) {
    for (int32_t i = 0; i < number; i++) {
        const int error = pthread_create(&clients[i].thread, NULL, work, &clients[i]);
        if (error != 0) {
            fprintf(stderr, "settings_load: can't start a thread: %s\n", strerror(error));
            exit(EXIT_FAILURE);
        }
    }
    for (int32_t i = 0; i < number; i++)
        pthread_join(clients[i].thread, NULL);
}

// How many of a client's acknowledged changes the file holds.
static int32_t count_in_file(const Client *client, const Sect_Node *conf) {
    int32_t count = 0;
    char key[kTextSize];
    char value[kTextSize];
    for (int32_t set = 0; set < client->acknowledged; set++) {
        char *found = NULL;
        key_of(client, set, key);
        value_of(client, set, value);
        if (Get_Conf_String_Pointer(conf, "settings", key, &found) == 0 && strcmp(found, value) == 0)
            count++;
        else
            fprintf(stderr, "settings_load: client %d: %s is not in the file\n", client->number, key);
    }
    return count;
}

// Prints what became of the changes. True when all were acknowledged and are there.
static bool report(const Load *load, const Client *clients) {
    Sect_Node *conf = NULL;
    if (Read_Conf_File(load->conf_path, &conf) < 1) {
        fprintf(stderr, "settings_load: can't read %s\n", load->conf_path);
        return false;
    }

    int32_t acknowledged[2] = {0, 0};
    int32_t connections[2] = {0, 0};
    int32_t wanted[2] = {0, 0};
    int32_t seen = 0;
    int32_t in_file = 0;
    for (int32_t i = 0; i < load->clients; i++) {
        const Client *client = &clients[i];
        wanted[client->tls] += load->sets;
        acknowledged[client->tls] += client->acknowledged;
        connections[client->tls] += client->connections;
        seen += client->seen;
        in_file += count_in_file(client, conf);
    }
    Free_Sect_Node(conf);

    printf("local: %d of %d changes acknowledged, %d connections\n", acknowledged[0], wanted[0], connections[0]);
    printf("TLS: %d of %d changes acknowledged, %d connections\n", acknowledged[1], wanted[1], connections[1]);
    const int32_t all = acknowledged[0] + acknowledged[1];
    printf("get: %d of %d acknowledged changes are there\n", seen, all);
    printf("file: %d of %d acknowledged changes are there\n", in_file, all);
    return all == wanted[0] + wanted[1] && seen == all && in_file == all;
}

static bool read_load(int argc, char **argv, Load *load) {
    static const struct option kOptions[] = {ADDRESS_OPTIONS,
                                             {"conf", required_argument, NULL, 'c'},
                                             {"clients", required_argument, NULL, 'n'},
                                             {"sets", required_argument, NULL, 'm'},
                                             {NULL, 0, NULL, 0}};

    *load = (Load){.clients = 64, .sets = 200};
    for (int option; (option = getopt_long(argc, argv, "", kOptions, NULL)) != -1;) {
        bool taken = true;
        if (option == 'c')
            load->conf_path = optarg;
        else if (option == 'n')
            taken = read_number(optarg, 1, 1000, &load->clients);
        else if (option == 'm')
            taken = read_number(optarg, 1, 1000000, &load->sets);
        else
            taken = take_address_option(&load->address, option, optarg);
        if (!taken)
            return false;
    }
    return optind == argc && load->conf_path != NULL && complete_address(&load->address) &&
           load->address.socket_path != NULL;
}

int main(int argc, char **argv) {
    Load load;
    if (!read_load(argc, argv, &load)) {
        fputs(kUsage, stderr);
        return kUsageExit;
    }

    signal(SIGPIPE, SIG_IGN);
    Client *clients = calloc((size_t)load.clients, sizeof *clients);
    if (clients == NULL)
        return EXIT_FAILURE;

    for (int32_t i = 0; i < load.clients; i++)
        clients[i] = (Client){.load = &load, .number = i, .tls = load.address.port != 0 && i % 2 == 1};

    printf("%d clients make %d changes each\n", load.clients, load.sets);
    fflush(stdout);
    run_all(clients, load.clients, set_all);
    run_all(clients, load.clients, get_all);
    const bool all_there = report(&load, clients);
    free(clients);
    return all_there ? EXIT_SUCCESS : EXIT_FAILURE;
}
