// settings: asks settingsd one thing.
//
//     settings --socket /run/settings/socket set "netbios name" ATTIC
//     settings --port 4711 --host nas.local --cert me.pem --ca ours.pem get "netbios name"
//
// Exit status: 0 done; 1 no such key; 2 bad usage; 3 anything else.
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "settings_client.h"

enum { kNoKeyExit = 1, kUsageExit = 2, kFailureExit = 3, kTimeoutMs = 30000 };

static const char kUsage[] =
    "usage: settings WHERE get KEY\n"
    "       settings WHERE set KEY VALUE\n"
    "       settings WHERE unset KEY\n"
    "       settings WHERE list\n"
    "\n" ADDRESS_USAGE;

typedef struct Verb {
    const char *name;
    uint8_t command;
    int arguments;
} Verb;

static const Verb kVerbs[] = {{"get", kGet, 1}, {"set", kSet, 2}, {"unset", kUnset, 1}, {"list", kList, 0}};

static const Verb *find_verb(const char *name, int arguments) {
    for (size_t i = 0; i < sizeof kVerbs / sizeof *kVerbs; i++)
        if (strcmp(kVerbs[i].name, name) == 0 && kVerbs[i].arguments == arguments)
            return &kVerbs[i];
    return NULL;
}

static bool read_address(int argc, char **argv, Address *address) {
    static const struct option kOptions[] = {ADDRESS_OPTIONS, {NULL, 0, NULL, 0}};

    *address = (Address){0};
    for (int option; (option = getopt_long(argc, argv, "+", kOptions, NULL)) != -1;)
        if (!take_address_option(address, option, optarg)) {
            if (option != '?')  // of which getopt_long has told
                fprintf(stderr, "settings: can't take '%s'\n", optarg);
            return false;
        }
    return complete_address(address);
}

static int ask(const Address *address, uint8_t command, const char *text) {
    static char answer[kMaxAnswer + 1];
    SSL_Socket_Info socket;
    int32_t result = settings_connect(address, address->port != 0, kTimeoutMs, &socket);
    if (result == 0) {
        result = settings_ask(&socket, command, text, answer, sizeof answer);
        SSL_Socket_Destroy(&socket, 0);
    }
    if (result < 0) {
        fprintf(stderr, "settings: no answer: %s\n", strerror(-result));
        return kFailureExit;
    }
    if (result != kDone) {
        fprintf(stderr, "settings: %s\n", answer);
        return result == kNoKey ? kNoKeyExit : kFailureExit;
    }

    fputs(answer, stdout);
    if (command == kGet)
        putchar('\n');
    return 0;
}

int main(int argc, char **argv) {
    Address address;
    if (!read_address(argc, argv, &address) || optind == argc) {
        fputs(kUsage, stderr);
        return kUsageExit;
    }

    char **words = argv + optind;
    const Verb *verb = find_verb(words[0], argc - optind - 1);
    if (verb == NULL) {
        fputs(kUsage, stderr);
        return kUsageExit;
    }

    char text[kMaxRequest + 2];
    const int length = verb->command == kSet ? snprintf(text, sizeof text, "%s=%s", words[1], words[2])
                                             : snprintf(text, sizeof text, "%s", verb->arguments > 0 ? words[1] : "");
    if (length > kMaxRequest) {
        fprintf(stderr, "settings: too long\n");
        return kUsageExit;
    }

    signal(SIGPIPE, SIG_IGN);
    return ask(&address, verb->command, text);
}
