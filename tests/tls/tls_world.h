// What the tests of TLS share: the library's two ways to open a session in one form, a peer that speaks OpenSSL's own
// language, and the two connected.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <thread>
#include <utility>

#include "certificates.h"
#include "faults.h"
#include "log_capture.h"
#include "openssl_hooks.h"
#include "sandbox.h"
#include "socket.h"

namespace tls_test {

using namespace support;

// One of the two functions that open a session on a socket.
struct Side {
    const char *name;
    int32_t (*open)(const char *certificate, const char *pass_phrase, const char *authority, SSL_Socket_Info *session);
    bool server;
    const char *failure;  // how the message of a failed handshake begins

    // The message of a handshake that ended with `result` and `error` in errno.
    std::string failed(int result, int error) const;
    // The message about a context that could not be made.
    std::string no_context(int code, int error) const;

    friend std::ostream &operator<<(std::ostream &out, const Side &side) { return out << side.name; }
};

extern const Side kClient;
extern const Side kServer;

// Two connected stream sockets, of which the test closes what is left. Neither waits for more than 20 seconds, so that a
// test which would hang fails.
class Wire {
  public:
    enum Kind { local, tcp };
    explicit Wire(Kind kind = local);
    ~Wire();
    Wire(const Wire &) = delete;
    Wire &operator=(const Wire &) = delete;

    int ours = -1;
    int theirs = -1;

    // From here on somebody else closes it.
    int give_ours() { return std::exchange(ours, -1); }
    int give_theirs() { return std::exchange(theirs, -1); }
};

void set_receive_timeout(int descriptor, int milliseconds);
void set_send_timeout(int descriptor, int milliseconds);
void set_nonblocking(int descriptor);
// Ends the connection with a reset rather than in order (TCP).
void reset_connection(int descriptor);

struct PeerSetup {
    int version = 0;  // the only one that it speaks; 0: all
    bool asks_for_certificate = false;
    std::string certificate = certificates().host;
};

// Made with OpenSSL's own calls.
SSL_CTX *peer_context(const PeerSetup &setup);

// The other end of a session, made with OpenSSL itself. The handshake runs in a thread of its own; everything else is done
// by the test's.
class Peer {
  public:
    // Takes the socket over.
    Peer(int descriptor, bool server, const PeerSetup &setup = {});
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    void begin_handshake();
    // Its result: 1 is success.
    int end_handshake();

    SSL *ssl() const { return ssl_; }
    int descriptor() const { return descriptor_; }
    void write(const std::string &bytes) const;
    // Reads until `size` bytes are there or no more come.
    std::string read(size_t size) const;
    // From here on somebody else closes it.
    int give_descriptor() { return std::exchange(descriptor_, -1); }
    // Says that nothing more comes.
    void notify_close() const { SSL_shutdown(ssl_); }
    // Closes the socket without a word.
    void vanish();
    // Resets the connection (TCP).
    void reset();

  private:
    int descriptor_;
    SSL_CTX *context_;
    SSL *ssl_;
    bool server_;
    std::thread handshake_;
    int result_ = 0;
};

// A session of the library with its peer, closed at the end if the test has not done so.
class Connection {
  public:
    explicit Connection(const Side &side, const PeerSetup &setup = {}, Wire::Kind kind = Wire::local);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

  private:
    Wire wire_;

  public:
    Peer peer;
    SSL_Socket_Info session;
};

constexpr SSL_Socket_Info kEmpty{-1, nullptr, nullptr, nullptr};

// A record with pointers that lead nowhere: what is given to a function that must leave it alone.
SSL_Socket_Info untouched_record(int descriptor);
void expect_equal(const SSL_Socket_Info &actual, const SSL_Socket_Info &expected);

// That bytes still pass from one end to the other in the clear.
void expect_usable(int from, int to);
// That the other end of the connection has been closed.
void expect_closed_by_peer(int descriptor);

// Opens a session with the host's certificate.
inline int32_t open_session(const Side &side, SSL_Socket_Info &session) {
    return side.open(certificates().host.c_str(), "", certificates().authority.c_str(), &session);
}

// A test ends with the descriptors that it began with, and none is ended by a peer that has gone.
class TlsTest : public testing::Test {
  protected:
    TlsTest();
    ~TlsTest() override;

  private:
    std::map<int, std::string> before_;
};

class SideTest : public TlsTest, public testing::WithParamInterface<Side> {
  protected:
    const Side &side() const { return GetParam(); }
};

std::string name_of(const testing::TestParamInfo<Side> &info);

#define INSTANTIATE_BOTH_SIDES(suite) INSTANTIATE_TEST_SUITE_P(Both, suite, testing::Values(kClient, kServer), name_of)

}  // namespace tls_test
