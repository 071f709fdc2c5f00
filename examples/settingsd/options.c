#include "options.h"

#include <getopt.h>
#include <stdio.h>

#include "arguments.h"

enum { kUsageError = 2 };

static const char kUsage[] =
    "usage: settingsd --socket PATH --conf FILE --log FILE [OPTION]...\n"
    "\n"
    "Keeps settings in a configuration file, and serves them on a local socket and by TLS.\n"
    "\n"
    "  --socket PATH         the local socket; everybody who can reach the path may use it\n"
    "  --conf FILE           where the settings are kept\n"
    "  --log FILE            the log, an absolute path\n"
    "  --port N              serve TLS on this port, too; peers are not verified\n"
    "  --host NAME           only at this address (every one)\n"
    "  --cert PEM            certificate chain and key for TLS\n"
    "  --ca PEM              trusted authorities (the file of --cert)\n"
    "  --password-file FILE  pass phrase of the key\n"
    "  --workers N           threads that serve, 1 to 64 (8)\n"
    "  --timeout MS          how long a peer may be silent, or take over one message, 100 to 600000 (5000)\n"
    "  --help                this text\n"
    "\n"
    "It stays in the foreground, and stops on SIGTERM and SIGINT.\n";

// False, and `why` says more, when the option's argument is none that it can take.
static bool take_option(int option, char *argument, Options *options, const char **why) {
    switch (option) {
        case 's':
            options->socket_path = argument;
            return true;
        case 'c':
            options->conf_path = argument;
            return true;
        case 'l':
            options->log_path = argument;
            *why = "not an absolute path";
            return argument[0] == '/';
        case 'p':
            *why = "not a port";
            return read_number(argument, 1, 65535, &options->port);
        case 'h':
            options->host = argument;
            return true;
        case 'e':
            options->certificate = argument;
            return true;
        case 'a':
            options->authorities = argument;
            return true;
        case 'f':
            *why = "can't be read";
            return read_password(argument, options->password, sizeof options->password);
        case 'w':
            *why = "not a number from 1 to 64";
            return read_number(argument, 1, 64, &options->workers);
        default:
            *why = "not a number from 100 to 600000";
            return read_number(argument, 100, 600000, &options->timeout_ms);
    }
}

// What the options together lack, or null.
static const char *missing_option(const Options *options) {
    if (options->socket_path == NULL)
        return "--socket";
    if (options->conf_path == NULL)
        return "--conf";
    if (options->log_path == NULL)
        return "--log";
    return options->port != 0 && options->certificate == NULL ? "--cert" : NULL;
}

bool read_options(int argc, char **argv, Options *options, int *exit_status) {
    static const struct option kOptions[] = {
        {"socket", required_argument, NULL, 's'},  {"conf", required_argument, NULL, 'c'},
        {"log", required_argument, NULL, 'l'},     {"port", required_argument, NULL, 'p'},
        {"host", required_argument, NULL, 'h'},    {"cert", required_argument, NULL, 'e'},
        {"ca", required_argument, NULL, 'a'},      {"password-file", required_argument, NULL, 'f'},
        {"workers", required_argument, NULL, 'w'}, {"timeout", required_argument, NULL, 't'},
        {"help", no_argument, NULL, '?' + 256},    {NULL, 0, NULL, 0}};

    *options = (Options){.workers = 8, .timeout_ms = 5000};
    *exit_status = kUsageError;
    int index = 0;
    for (int option; (option = getopt_long(argc, argv, "", kOptions, &index)) != -1;) {
        if (option == '?')  // getopt_long has told what is wrong
            return false;
        if (option == '?' + 256) {
            fputs(kUsage, stdout);
            *exit_status = 0;
            return false;
        }

        const char *why = "";
        if (!take_option(option, optarg, options, &why)) {
            fprintf(stderr, "settingsd: --%s: %s: %s\n", kOptions[index].name, optarg, why);
            return false;
        }
    }

    if (optind < argc) {
        fprintf(stderr, "settingsd: what is '%s' for? See settingsd --help\n", argv[optind]);
        return false;
    }
    const char *missing = missing_option(options);
    if (missing != NULL) {
        fprintf(stderr, "settingsd: %s is missing. See settingsd --help\n", missing);
        return false;
    }
    if (options->authorities == NULL)
        options->authorities = options->certificate;
    return true;
}
