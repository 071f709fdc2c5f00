// What 'korvex send' and 'korvex recv' are told about the other side and the way to it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"

namespace korvex::cli {

struct PeerArguments {
    bool is_sender = false;  // who checks the other side's certificate
    std::string unix_path;
    bool tls = false;
    bool no_verify = false;
    std::string cert;
    std::string ca;
    std::string password_file;
    int32_t given_timeout = 0;  // milliseconds; 0 for none given

    int32_t timeout() const { return given_timeout > 0 ? given_timeout : 120'000; }
};

void add_peer_options(CLI::App &command, PeerArguments &arguments);

// A word that is known by its place among those without a dash.
struct PositionalWord {
    const char *name;  // as the help calls it
    const std::string &word;
};
// The words that were given for the expected ones, the last of which is FILE. With --unix it alone is given, and the others
// are empty. Throws where one is missing.
std::vector<std::string> positional_words(const PeerArguments &arguments, const std::vector<PositionalWord> &expected);

int32_t port_of(const std::string &text);

// The first address of a host. Throws where there is none: the codes of listening and connecting don't tell
// that from other failures.
std::string address_of(const std::string &host);

// What a TLS session needs. The library is handed pointers into it.
struct TlsFiles {
    std::string cert;
    std::string ca;
    std::string password;
};
// The files of --tls, after a test that they can be used. Nothing without --tls.
std::optional<TlsFiles> tls_files(const PeerArguments &arguments);

}  // namespace korvex::cli
