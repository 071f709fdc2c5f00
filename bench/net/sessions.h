// Connected sockets and TLS sessions for the benchmarks, made without the library or, where they say so, with it.
#pragma once

#include <openssl/ssl.h>

#include <string>

#include "socket.h"

namespace bench {

// Two connected sockets with room for 64 KiB that nobody reads yet, closed at the end.
class Link {
  public:
    static Link tcp();
    static Link local();
    Link(Link &&other) noexcept;
    Link &operator=(Link &&) = delete;
    ~Link();

    int near() const { return near_; }
    int far() const { return far_; }

  private:
    Link(int near, int far);

    int near_;
    int far_;
};

// Writes a certificate that is its own authority, and its encrypted key, into one file.
void write_certificate(const std::string &path, const std::string &password);

// A TLS session over a Link of its own, whose ends are the library's.
class LibrarySession {
  public:
    LibrarySession(const std::string &certificate, const std::string &password);
    ~LibrarySession();
    LibrarySession(const LibrarySession &) = delete;
    LibrarySession &operator=(const LibrarySession &) = delete;

    SSL_Socket_Info *client() { return &client_; }
    SSL_Socket_Info *server() { return &server_; }

  private:
    SSL_Socket_Info client_{};
    SSL_Socket_Info server_{};
};

// The same by OpenSSL's own calls alone.
class BareSession {
  public:
    BareSession(const std::string &certificate, const std::string &password);
    ~BareSession();
    BareSession(const BareSession &) = delete;
    BareSession &operator=(const BareSession &) = delete;

    SSL *client() const { return client_; }
    SSL *server() const { return server_; }

  private:
    Link link_ = Link::tcp();
    SSL_CTX *context_;
    SSL *client_;
    SSL *server_;
};

// Protocol and cipher of a session, to see that two are alike.
std::string kind_of(const SSL *session);

}  // namespace bench
