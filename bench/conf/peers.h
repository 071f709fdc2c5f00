// Who takes part in conf_bench and conf_growth. Each peer stands in a source of its own, which is built where its library is installed.
#pragma once

#include <optional>
#include <string>

namespace bench {

struct Peer {
    const char *name;
    bool stores;  // keeps what it reads, so that a program can ask for it afterwards

    // Reads the file on disk whole, and lets go of it again.
    void (*parse)(const char *path);
    // Reads one value of the file on disk, from nothing to the text; null where the peer has no way of its own.
    std::optional<std::string> (*get)(const char *path, const char *section, const char *key);
    // Changes one value of the file on disk by a new file and a rename; null where the peer can't write.
    bool (*set)(const char *path, const char *section, const char *key, const char *value);

    Peer *next = nullptr;
};

// The first of those that take part.
const Peer *peers();
// The library's own.
const Peer &korvex_peer();

// Takes part from the start of the program: `const bool added = add_peer(peer);`
bool add_peer(Peer &peer) noexcept;

}  // namespace bench
