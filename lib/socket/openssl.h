// OpenSSL, found when the first TLS call is made; the object itself is not linked to it.
#pragma once

#include <openssl/ssl.h>

namespace korvex::socket {

// What is used of OpenSSL. Each name is a pointer of the same name in the table.
#define KORVEX_OPENSSL_FUNCTIONS(X)       \
    X(BIO_new_socket)                     \
    X(SSL_CTX_free)                       \
    X(SSL_CTX_load_verify_locations)      \
    X(SSL_CTX_new)                        \
    X(SSL_CTX_set_default_passwd_cb)      \
    X(SSL_CTX_use_PrivateKey_file)        \
    X(SSL_CTX_use_certificate_chain_file) \
    X(SSL_accept)                         \
    X(SSL_connect)                        \
    X(SSL_free)                           \
    X(SSL_new)                            \
    X(SSL_peek)                           \
    X(SSL_read)                           \
    X(SSL_set_bio)                        \
    X(SSL_shutdown)                       \
    X(SSL_write)

struct OpenSsl {
#define KORVEX_OPENSSL_MEMBER(name) decltype(&::name) name;  // NOLINT(bugprone-macro-parentheses): a declaration
    KORVEX_OPENSSL_FUNCTIONS(KORVEX_OPENSSL_MEMBER)
#undef KORVEX_OPENSSL_MEMBER
    decltype(&::TLS_method) negotiating_method;  // TLS_method, or SSLv23_method as it was called before

    // Functions of later versions alone; null where the contexts come from an older one.
    decltype(&::SSL_CTX_set_options) set_options_of_3;
    decltype(&::SSL_CTX_set_num_tickets) set_tickets;
};

// The table, OpenSSL initialised; null where there is no OpenSSL to be found, which is reported in the name of `function`.
// Safe for threads; only the first call takes a lock.
[[nodiscard]] const OpenSsl *openssl(const char *function);

}  // namespace korvex::socket
