// What the tests of 'korvex send' and 'korvex recv' share: a private network, the ways that a file can go, and a side of
// the conversation that the test itself plays.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "run_korvex.h"
#include "socket.h"

constexpr int kPort = 4000;
constexpr const char *kPortText = "4000";

// A way for a file: the words of each side without FILE.
struct Way {
    const char *name;
    Words send;
    Words recv;
};

// One end of a plain connection, played by the test.
class RawPeer {
  public:
    explicit RawPeer(int descriptor) : descriptor_(descriptor) {}
    ~RawPeer() { hang_up(); }
    RawPeer(RawPeer &&other) noexcept;
    RawPeer &operator=(RawPeer &&) = delete;

    int descriptor() const { return descriptor_; }
    void say(const std::string &bytes) const;
    // Exactly so many bytes, or those until the other side closed.
    std::string hear(size_t size) const;
    void hang_up();

  private:
    int descriptor_;
};

// For a session that the test itself opens.
inline SSL_Socket_Info session_on(int socket) {
    return {.fdSocket = socket, .pBio = nullptr, .pSsl = nullptr, .pCtx = nullptr};
}

std::string big_endian(uint64_t number, int bytes);
// What goes over the wire.
std::string header(uint64_t size);
std::string answer(uint32_t error = 0);

class TransferTest : public KorvexTest {
  protected:
    TransferTest();

    // Runs `attempt` with longer and longer time-outs, given in milliseconds, until it ends with `text`, a regular
    // expression in which "MS" stands for the time-out: on a slow machine a short one is over before its step is reached.
    // An attempt may throw what its connection does.
    static void expect_time_out(const std::string &text, const std::function<Outcome(const std::string &ms)> &attempt);

    static Words with(Words words, const Words &more);
    // Of any size, and never the same from one place to the next.
    static std::string content(size_t size);
    std::string path(const std::string &name) const { return folder.path(name); }

    // Starts 'korvex recv' and waits until it listens, or has ended.
    void start_receiver(std::optional<KorvexProcess> &process, const Words &words) const;
    RawPeer connect_to_receiver() const;
    RawPeer connect_to_receiver(const std::string &path) const;
    // A connection on which the header was said and taken.
    RawPeer begun(uint64_t size) const;
    // Waits for a sender that was started before.
    RawPeer accept_sender() const;

    // Makes a certificate with its key in one file, cert.pem, and the same with a pass phrase, locked.pem and pass.txt.
    void make_certificates() const;
    std::string safe_path(const std::string &name) const { return safe_.path(name); }

    // Listens for the sender as the test's own receiver.
    void listen();
    void stop_listening() { listener_.reset(); }

  private:
    const support::TempFolder safe_;
    std::optional<RawPeer> listener_;

  protected:
    const Words tls = {"--tls", "--cert", safe_path("cert.pem"), "--ca", safe_path("cert.pem")};
};
