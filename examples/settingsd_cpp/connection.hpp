// One peer, and the messages that it and the daemon send each other.
//
// ../settingsd/protocol.h describes them. A message is a header of eight bytes ("KS", the version 1, a command or status,
// the length of the text in big-endian) and a text.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <korvex/tls.hpp>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>

#include "options.hpp"

inline constexpr std::size_t longest_request = 4096;    // bytes of its text
inline constexpr std::size_t longest_answer = 1 << 21;  // likewise

enum class status : char { done = 0, no_key = 1, bad_request = 2, too_long = 3, busy = 4, failed = 5 };

// What a peer asks. One that could not be made out has its answer already, and is the last one.
struct request {
    char command = 0;
    std::string text{};
    status unreadable = status::done;
};

struct answer {
    status result = status::done;
    std::string text{};
};

// Thrown when a peer has closed between two messages, or says nothing for too long: an end like any other.
struct peer_gone {};

// The local socket, or a TLS session. One thread at a time; a failure throws, and then the connection is of no more use.
class connection {
  public:
    connection(const options &chosen, korvex::socket link, bool speaks_tls)
        : chosen_(chosen), link_(std::move(link)), is_handshake_due_(speaks_tls) {}

    // Waits for a request: for its beginning not longer than `turn`. Nothing when none has come.
    std::optional<request> receive(std::chrono::milliseconds turn, const std::stop_token &stop);
    void send(const answer &given);

  private:
    void shake_hands(const std::stop_token &stop);
    std::optional<std::size_t> receive_some(std::span<std::byte> bytes, std::chrono::milliseconds limit,
                                            const std::stop_token &stop);
    void receive_exactly(std::span<std::byte> bytes, std::chrono::milliseconds limit, const std::stop_token &stop);

    const options &chosen_;
    std::variant<korvex::socket, korvex::tls::session> link_;
    bool is_handshake_due_;
    std::chrono::steady_clock::time_point heard_ = std::chrono::steady_clock::now();  // when something came last
};
