// What the tests of settingsd share: the daemon in a folder and a network of its own, its clients, and a peer that
// sends what it likes.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "program.h"
#include "sandbox.h"

// One answer of the daemon.
struct Reply {
    int status = 0;
    std::string text = {};

    bool operator==(const Reply &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const Reply &reply);

// The protocol, written out anew: a test must not agree with the daemon by sharing its code.
enum Status { kDone = 0, kNoKey = 1, kBadRequest = 2, kTooLong = 3, kBusy = 4, kFailed = 5 };
std::string header(char command, uint32_t length);
std::string request(char command, const std::string &text);

// What the daemon in C says, and the one in C++, where the two differ.
#ifdef SETTINGSD_CPP
inline std::string told(const std::string & /*in_c*/, const std::string &in_cpp) {
    return in_cpp;
}
#else
inline std::string told(const std::string &in_c, const std::string & /*in_cpp*/) {
    return in_c;
}
#endif

// One plain connection.
class Peer {
  public:
    static Peer local(const std::string &path);
    static Peer tcp(int port);
    ~Peer();
    Peer(Peer &&other) noexcept : socket_(std::exchange(other.socket_, -1)) {}
    Peer &operator=(Peer &&) = delete;

    // False when the daemon has closed.
    bool send(std::string_view bytes) const;
    // Waits until the daemon has read everything, on a local connection.
    void wait_until_read() const;
    // Waits until there is something to receive; false when the daemon closes instead.
    bool is_answered() const;
    // Nothing when the daemon closes before its answer is complete.
    std::optional<Reply> reply() const;
    std::optional<Reply> ask(const std::string &bytes) const { return send(bytes) ? reply() : std::nullopt; }
    // Waits until the daemon closes; what it sent before.
    std::string rest() const;

  private:
    explicit Peer(int socket) : socket_(socket) {}
    int socket_;
};

// A test's own folder, with everything of one daemon in it, and a network of which there is the loopback interface
// alone.
class SettingsdTest : public testing::Test {
  protected:
    static constexpr int kPort = 4711;

    SettingsdTest();

    // The arguments for a daemon on `socket`, or one with TLS as well; and what names the port and a certificate. The
    // time-out is longer than a slow machine may need.
    Words local_words() const;
    Words tls_words() const;
    static Words tls_address();

    // Starts a daemon and waits until it serves.
    std::unique_ptr<Program> start(const Words &words) const;
    std::unique_ptr<Program> start() const { return start(local_words()); }
    // Ends a daemon as it should end: quietly, and with nothing left behind.
    void expect_clean_stop(Program &daemon, int signal = SIGTERM) const;

    // Runs a client to its end.
    Outcome settings(const Words &words) const;
    Outcome tls_settings(const Words &words) const;
    Peer peer() const { return Peer::local(folder.path("socket")); }

    // A certificate with its key in one file, made anew; the key has the pass phrase in the file `pass`.
    void make_certificate() const;

    std::string log() const { return support::read_file(folder.path("log")); }
    std::string conf() const { return support::read_file(folder.path("conf")); }
    // Each line of the log is whole.
    void expect_whole_log() const;

    support::TempFolder folder;
};
