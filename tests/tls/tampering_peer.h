// A peer that speaks TLS in earnest, but whose bytes pass through somebody's hands.
#pragma once

#include <openssl/ssl.h>

#include <functional>
#include <string>
#include <thread>

#include "tls_world.h"

namespace tls_test {

class TamperingPeer {
  public:
    // What is sent in the place of `bytes`, of which `before` have gone before them. Fewer bytes are the last ones: the
    // peer then ends what it sends.
    using Tamper = std::function<std::string(std::string bytes, size_t before)>;

    // Begins the handshake on a socket that stays the test's.
    TamperingPeer(int descriptor, bool server, int version, Tamper tamper);
    // Waits for the other end to be shut down.
    ~TamperingPeer();
    TamperingPeer(const TamperingPeer &) = delete;
    TamperingPeer &operator=(const TamperingPeer &) = delete;

  private:
    void run();
    bool send_outgoing();
    bool receive_incoming();

    const int descriptor_;
    const Tamper tamper_;
    SSL_CTX *context_;
    SSL *ssl_;
    size_t sent_ = 0;
    std::thread thread_;
};

}  // namespace tls_test
