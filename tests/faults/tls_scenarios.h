// Connections of either kind for the scenarios of TLS.
#pragma once

#include <memory>
#include <string>

#include "tls_world.h"

namespace faults {

// The library's end is a session or a plain connection; it waits for what comes.
class Conversation {
  public:
    explicit Conversation(bool tls);
    ~Conversation() { SSL_Socket_Destroy(session_, 0); }
    Conversation(const Conversation &) = delete;
    Conversation &operator=(const Conversation &) = delete;

    SSL_Socket_Info *session() { return session_; }
    // Sends what the library is to receive.
    void feed(const std::string &bytes) const;
    // Takes what the library has sent, which must be there.
    std::string take(size_t size) const;
    // Sends no more.
    void end() const;

  private:
    std::unique_ptr<tls_test::Connection> tls_;
    std::unique_ptr<tls_test::Wire> wire_;
    SSL_Socket_Info plain_ = tls_test::kEmpty;
    SSL_Socket_Info *session_ = &plain_;
};

}  // namespace faults
