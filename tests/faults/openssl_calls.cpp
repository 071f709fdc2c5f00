// The functions of OpenSSL that the library calls, as calls that can be made to fail. The library finds these definitions
// before OpenSSL's own. What OpenSSL does inside is its own affair: there nothing is counted and nothing fails.
#include <dlfcn.h>
#include <openssl/ssl.h>

#include <cstddef>

#include "faults.h"

namespace {

// As many bytes as a transfer may move.
int allowed(support::Call call, int size) {
    return static_cast<int>(support::allowed(call, static_cast<size_t>(size)));
}

}  // namespace

#define INSIDE(result, name, parameters, ...)                                     \
    using Function = result(*) parameters;                                        \
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, #name)); \
    const support::Undisturbed inside;                                            \
    return real(__VA_ARGS__)

#define CANNOT_FAIL(name, parameters, ...)           \
    void name parameters {                           \
        INSIDE(void, name, parameters, __VA_ARGS__); \
    }

#define CAN_FAIL(result, failed, name, parameters, ...) \
    result name parameters {                            \
        if (support::must_fail(support::Call::name))    \
            return failed;                              \
        INSIDE(result, name, parameters, __VA_ARGS__);  \
    }

#define TRANSFERS(name, buffer_type)                                       \
    int name(SSL *ssl, buffer_type *buffer, int size) {                    \
        if (support::must_fail(support::Call::name))                       \
            return -1;                                                     \
        const int part = allowed(support::Call::name, size);               \
        INSIDE(int, name, (SSL *, buffer_type *, int), ssl, buffer, part); \
    }

CAN_FAIL(SSL_CTX *, nullptr, SSL_CTX_new, (const SSL_METHOD *method), method)
CAN_FAIL(int, 0, SSL_CTX_use_certificate_chain_file, (SSL_CTX * context, const char *path), context, path)
CAN_FAIL(int, 0, SSL_CTX_use_PrivateKey_file, (SSL_CTX * context, const char *path, int type), context, path, type)
CAN_FAIL(int, 0, SSL_CTX_load_verify_locations, (SSL_CTX * context, const char *file, const char *folder), context,
         file, folder)
CAN_FAIL(SSL *, nullptr, SSL_new, (SSL_CTX * context), context)
CAN_FAIL(BIO *, nullptr, BIO_new_socket, (int descriptor, int close), descriptor, close)
CAN_FAIL(int, -1, SSL_connect, (SSL * ssl), ssl)
CAN_FAIL(int, -1, SSL_accept, (SSL * ssl), ssl)
CAN_FAIL(int, -1, SSL_shutdown, (SSL * ssl), ssl)
TRANSFERS(SSL_read, void)
TRANSFERS(SSL_peek, void)
TRANSFERS(SSL_write, const void)
CANNOT_FAIL(SSL_CTX_set_default_passwd_cb, (SSL_CTX * context, pem_password_cb *callback), context, callback)
CANNOT_FAIL(SSL_CTX_free, (SSL_CTX * context), context)
CANNOT_FAIL(SSL_set_bio, (SSL * ssl, BIO *in, BIO *out), ssl, in, out)
CANNOT_FAIL(SSL_free, (SSL * ssl), ssl)
