#include "openssl_hooks.h"

using tls_test::Hook;

#define HOOKED(result, name, parameters, ...)          \
    result name parameters {                           \
        return Hook<name>::arrive(#name, __VA_ARGS__); \
    }

HOOKED(SSL_CTX *, SSL_CTX_new, (const SSL_METHOD *method), method)
HOOKED(int, SSL_CTX_use_certificate_chain_file, (SSL_CTX * context, const char *path), context, path)
HOOKED(void, SSL_CTX_set_default_passwd_cb, (SSL_CTX * context, pem_password_cb *callback), context, callback)
HOOKED(int, SSL_CTX_use_PrivateKey_file, (SSL_CTX * context, const char *path, int type), context, path, type)
HOOKED(int, SSL_CTX_load_verify_locations, (SSL_CTX * context, const char *file, const char *folder), context, file,
       folder)
HOOKED(void, SSL_CTX_free, (SSL_CTX * context), context)
HOOKED(SSL *, SSL_new, (SSL_CTX * context), context)
HOOKED(BIO *, BIO_new_socket, (int descriptor, int close), descriptor, close)
HOOKED(int, SSL_connect, (SSL * ssl), ssl)
HOOKED(int, SSL_accept, (SSL * ssl), ssl)
HOOKED(int, SSL_shutdown, (SSL * ssl), ssl)
HOOKED(void, SSL_free, (SSL * ssl), ssl)
HOOKED(int, SSL_read, (SSL * ssl, void *buffer, int size), ssl, buffer, size)
HOOKED(int, SSL_peek, (SSL * ssl, void *buffer, int size), ssl, buffer, size)
HOOKED(int, SSL_write, (SSL * ssl, const void *buffer, int size), ssl, buffer, size)
