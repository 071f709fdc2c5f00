#include "sessions.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "freer.h"

namespace bench {
namespace {

void require(bool done, const char *what) {
    if (!done)
        throw std::system_error(errno, std::generic_category(), what);
}

using Key = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freer<X509_free>>;
using File = std::unique_ptr<FILE, Freer<std::fclose>>;

Certificate self_signed(EVP_PKEY *key) {
    Certificate certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 24L * 3600);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME *name = X509_get_subject_name(certificate.get());
    const auto *host = reinterpret_cast<const unsigned char *>("localhost");
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, host, -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    require(X509_sign(certificate.get(), key, EVP_sha256()) > 0, "sign the certificate");
    return certificate;
}

int give_password(char *buffer, int size, int, void *password) {
    const auto *text = static_cast<const std::string *>(password);
    return static_cast<int>(text->copy(buffer, static_cast<size_t>(size)));
}

SSL_CTX *make_context(const std::string &certificate, std::string password) {
    SSL_CTX *context = SSL_CTX_new(TLS_method());
    require(context != nullptr, "make a TLS context");
    SSL_CTX_set_default_passwd_cb(context, give_password);
    SSL_CTX_set_default_passwd_cb_userdata(context, &password);
    require(SSL_CTX_use_certificate_chain_file(context, certificate.c_str()) == 1 &&
                SSL_CTX_use_PrivateKey_file(context, certificate.c_str(), SSL_FILETYPE_PEM) == 1,
            "load the certificate");
    return context;
}

SSL *make_session(SSL_CTX *context, int socket) {
    SSL *session = SSL_new(context);
    require(session != nullptr && SSL_set_fd(session, socket) == 1, "make a TLS session");
    return session;
}

}  // namespace

Link::Link(int near, int far) : near_(near), far_(far) {
    constexpr int kRoom = 1 << 20;
    for (const int socket : {near, far})
        for (const int option : {SO_SNDBUF, SO_RCVBUF})
            require(setsockopt(socket, SOL_SOCKET, option, &kRoom, sizeof kRoom) == 0, "set a socket's room");
}

Link::Link(Link &&other) noexcept : near_(std::exchange(other.near_, -1)), far_(std::exchange(other.far_, -1)) {}

Link::~Link() {
    for (const int socket : {near_, far_})
        if (socket >= 0)
            close(socket);
}

Link Link::tcp() {
    sockaddr_in place{};
    socklen_t size = sizeof place;
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto *address = reinterpret_cast<sockaddr *>(&place);

    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(
        bind(listener, address, size) == 0 && listen(listener, 1) == 0 && getsockname(listener, address, &size) == 0,
        "listen");
    const int near = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(connect(near, address, size) == 0, "connect");
    const int far = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    require(far >= 0, "accept");
    close(listener);

    const int on = 1;
    for (const int socket : {near, far})
        require(setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0, "set TCP_NODELAY");
    return {near, far};
}

Link Link::local() {
    int sockets[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) == 0, "make a pair of local sockets");
    return {sockets[0], sockets[1]};
}

void write_certificate(const std::string &path, const std::string &password) {
    const Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "make a key");
    const Certificate certificate = self_signed(key.get());
    const File file(std::fopen(path.c_str(), "we"));
    require(file != nullptr && PEM_write_X509(file.get(), certificate.get()) == 1 &&
                PEM_write_PrivateKey(file.get(), key.get(), EVP_aes_128_cbc(),
                                     reinterpret_cast<const unsigned char *>(password.data()),
                                     static_cast<int>(password.size()), nullptr, nullptr) == 1,
            "write the certificate");
}

LibrarySession::LibrarySession(const std::string &certificate, const std::string &password) {
    const Link link = Link::tcp();
    client_.fdSocket = dup(link.near());
    server_.fdSocket = dup(link.far());
    int32_t accepted = 0;
    const char *pem = certificate.c_str();
    std::thread server([&] { accepted = SSL_Accept_Socket(pem, password.c_str(), pem, &server_); });
    const int32_t connected = SSL_Connect_Socket(pem, password.c_str(), pem, &client_);
    server.join();
    if (connected != 0 || accepted != 0)
        throw std::runtime_error("no TLS session: " + std::to_string(connected) + ", " + std::to_string(accepted));
}

LibrarySession::~LibrarySession() {
    SSL_Socket_Destroy(&client_, 0);
    SSL_Socket_Destroy(&server_, 0);
}

BareSession::BareSession(const std::string &certificate, const std::string &password)
    : context_(make_context(certificate, password)),
      client_(make_session(context_, link_.near())),
      server_(make_session(context_, link_.far())) {
    int accepted = 0;
    std::thread server([&] { accepted = SSL_accept(server_); });
    const int connected = SSL_connect(client_);
    server.join();
    require(connected == 1 && accepted == 1, "open a TLS session");
}

BareSession::~BareSession() {
    SSL_free(client_);
    SSL_free(server_);
    SSL_CTX_free(context_);
}

std::string kind_of(const SSL *session) {
    return std::string(SSL_get_version(session)) + " " + SSL_get_cipher_name(session);
}

}  // namespace bench
