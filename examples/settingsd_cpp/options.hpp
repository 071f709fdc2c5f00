// The command line.
#pragma once

#include <chrono>
#include <cstdint>
#include <korvex/tls.hpp>
#include <string>

struct options {
    std::string socket_path;
    std::string conf_path;
    std::string log_path;
    std::string host;        // empty: every address of this machine
    std::uint16_t port = 0;  // 0: no TLS
    korvex::tls::credentials own;
    int workers = 8;
    std::chrono::milliseconds timeout{5000};
};

// Ends the program where the arguments are no command line, or ask for help.
options read_options(int argc, char **argv);
