#include "options.hpp"

#include <getopt.h>

#include <cstdlib>
#include <iostream>
#include <korvex/file.hpp>
#include <korvex/text.hpp>
#include <utility>
#include <vector>

namespace {

constexpr const char *usage =
    R"(usage: settingsd --socket PATH --conf FILE --log FILE [OPTION]...

Keeps settings in a configuration file, and serves them on a local socket and by TLS.

  --socket PATH         the local socket; everybody who can reach the path may use it
  --conf FILE           where the settings are kept
  --log FILE            the log, an absolute path
  --port N              serve TLS on this port, too; peers are not verified
  --host NAME           only at this address (every one)
  --cert PEM            certificate chain and key for TLS
  --ca PEM              trusted authorities (the file of --cert)
  --password-file FILE  pass phrase of the key
  --workers N           threads that serve, 1 to 64 (8)
  --timeout MS          how long a peer may be silent, or take over one message, 100 to 600000 (5000)
  --help                this text

It stays in the foreground, and stops on SIGTERM and SIGINT.
)";

[[noreturn]] void refuse(const std::string &why) {
    std::cerr << "settingsd: " << why << '\n';
    std::exit(2);
}

// What is wrong with an option's argument; it is caught where the option's name is known.
struct flaw {
    const char *why;
};

template <class Number>
Number number(const char *text, Number least, Number most, const char *why) {
    const std::optional<Number> value = korvex::to_number<Number>(text);
    if (!value || *value < least || *value > most)
        throw flaw{why};
    return *value;
}

std::string first_line(const char *path) try {
    const std::string text = korvex::read_file(path);
    return text.substr(0, text.find('\n'));
} catch (const korvex::error &) {
    throw flaw{"can't be read"};
}

struct known_option {
    const char *name;
    void (*take)(options &chosen, const char *argument);
};

constexpr known_option known_options[] = {
    {"socket", [](options &chosen, const char *path) { chosen.socket_path = path; }},
    {"conf", [](options &chosen, const char *path) { chosen.conf_path = path; }},
    {"log", [](options &chosen,
               const char *path) { chosen.log_path = path[0] == '/' ? path : throw flaw{"not an absolute path"}; }},
    {"port",
     [](options &chosen, const char *text) { chosen.port = number<std::uint16_t>(text, 1, 65535, "not a port"); }},
    {"host", [](options &chosen, const char *name) { chosen.host = name; }},
    {"cert", [](options &chosen, const char *path) { chosen.own.certificate_file = path; }},
    {"ca", [](options &chosen, const char *path) { chosen.own.authorities_file = path; }},
    {"password-file", [](options &chosen, const char *path) { chosen.own.pass_phrase = first_line(path); }},
    {"workers",
     [](options &chosen, const char *text) { chosen.workers = number(text, 1, 64, "not a number from 1 to 64"); }},
    {"timeout",
     [](options &chosen, const char *text) {
         chosen.timeout = std::chrono::milliseconds(number(text, 100, 600'000, "not a number from 100 to 600000"));
     }},
};

void take(options &chosen, const known_option &given, const char *argument) try {
    given.take(chosen, argument);
} catch (const flaw &found) {
    refuse("--" + std::string(given.name) + ": " + argument + ": " + found.why);
}

}  // namespace

options read_options(int argc, char **argv) {
    constexpr int takes_argument = 256;
    std::vector<option> known{{"help", no_argument, nullptr, 0}};
    for (const known_option &one : known_options)
        known.push_back({one.name, required_argument, nullptr, takes_argument});
    known.push_back({});

    options chosen;
    int index = 0;
    for (int found; (found = getopt_long(argc, argv, "", known.data(), &index)) != -1;) {
        if (found == '?')  // getopt_long has told what is wrong
            std::exit(2);
        if (found != takes_argument) {
            std::cout << usage;
            std::exit(0);
        }
        take(chosen, known_options[index - 1], optarg);
    }

    if (optind < argc)
        refuse("what is '" + std::string(argv[optind]) + "' for? See settingsd --help");
    if (chosen.own.authorities_file.empty())
        chosen.own.authorities_file = chosen.own.certificate_file;
    for (const auto &[name, is_missing] : {std::pair("--socket", chosen.socket_path.empty()),
                                           {"--conf", chosen.conf_path.empty()},
                                           {"--log", chosen.log_path.empty()},
                                           {"--cert", chosen.port != 0 && chosen.own.certificate_file.empty()}})
        if (is_missing)
            refuse(std::string(name) + " is missing. See settingsd --help");
    return chosen;
}
