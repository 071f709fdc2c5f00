/*
 * A host with an OpenSSL 1.0 of its own inside: this program defines the names itself, and is linked without -rdynamic.
 * It counts what the library calls, and looks that no other OpenSSL comes into the process.
 * Usage: inside_stand_in [beside], where another one is in the process from the start
 */
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include "inside.h"
#include "socket.h"

static int g_failures;
static char g_object; /* what every pointer that is handed out leads to */

/* FUNCTION(result, name, parameters, ending): counts its calls, and ends as it is told. */
#define FUNCTION(result, name, parameters, ending) \
    static int g_##name;                           \
    result name parameters;                        \
    result name parameters {                       \
        g_##name++;                                \
        ending;                                    \
    }
#define PROCEDURE(name, parameters) FUNCTION(void, name, parameters, return )

#pragma GCC diagnostic ignored "-Wunused-parameter"
FUNCTION(int, SSL_library_init, (void), return 1)
PROCEDURE(SSL_load_error_strings, (void))
FUNCTION(const void *, SSLv23_method, (void), return &g_object)
FUNCTION(SSL_CTX *, SSL_CTX_new, (const void *method), return (SSL_CTX *)&g_object)
PROCEDURE(SSL_CTX_free, (SSL_CTX * context))
FUNCTION(int, SSL_CTX_use_certificate_chain_file, (SSL_CTX * context, const char *path), return 1)
FUNCTION(int, SSL_CTX_use_PrivateKey_file, (SSL_CTX * context, const char *path, int type), return 1)
FUNCTION(int, SSL_CTX_load_verify_locations, (SSL_CTX * context, const char *file, const char *folder), return 1)
PROCEDURE(SSL_CTX_set_default_passwd_cb, (SSL_CTX * context, int (*callback)(char *, int, int, void *)))
FUNCTION(SSL *, SSL_new, (SSL_CTX * context), return (SSL *)&g_object)
PROCEDURE(SSL_free, (SSL * session))
FUNCTION(BIO *, BIO_new_socket, (int descriptor, int close), return (BIO *)&g_object)
PROCEDURE(SSL_set_bio, (SSL * session, BIO *in, BIO *out))
FUNCTION(int, SSL_connect, (SSL * session), return 1)
FUNCTION(int, SSL_accept, (SSL * session), return 1)
FUNCTION(int, SSL_shutdown, (SSL * session), return 0)
FUNCTION(int, SSL_read, (SSL * session, void *buffer, int size), return size)
FUNCTION(int, SSL_peek, (SSL * session, void *buffer, int size), return size)
FUNCTION(int, SSL_write, (SSL * session, const void *buffer, int size), return size)

static void expect(const char *what, long actual, long expected) {
    if (actual == expected) {
        printf("ok: %s: %ld\n", what, actual);
        return;
    }
    printf("FAILED: %s: %ld, expected %ld\n", what, actual, expected);
    g_failures++;
}

#define EXPECT(expression, expected) expect(#expression, (long)(expression), expected)
#define EXPECT_CALLS(name, count) expect("calls of " #name, g_##name, count)

int main(int argc, char **argv) {
    const int beside = argc == 2 && strcmp(argv[1], "beside") == 0;
    int ends[2];
    char bytes[8] = "";
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
        return 1;

    SSL_Socket_Info session = {ends[0], NULL, NULL, NULL};
    EXPECT(SSL_Connect_Socket("certificate", "secret", "authority", &session), 0);
    EXPECT(SSL_Send(&session, "abc", 3, 0), 3);
    EXPECT(SSL_Recv(&session, bytes, 5, 0), 5);
    EXPECT(SSL_Recv(&session, bytes, 4, MSG_PEEK), 4);
    SSL_Socket_Destroy(&session, 0);
    session.fdSocket = ends[1];
    EXPECT(SSL_Accept_Socket("certificate", "secret", "authority", &session), 0);
    SSL_Socket_Destroy(&session, 1);

    EXPECT_CALLS(SSL_library_init, 1);
    EXPECT_CALLS(SSL_load_error_strings, 1);
    EXPECT_CALLS(SSLv23_method, beside ? 0 : 2); /* the new name comes first */
    EXPECT_CALLS(SSL_CTX_new, 2);
    EXPECT_CALLS(SSL_CTX_use_certificate_chain_file, 2);
    EXPECT_CALLS(SSL_CTX_set_default_passwd_cb, 2);
    EXPECT_CALLS(SSL_CTX_use_PrivateKey_file, 2);
    EXPECT_CALLS(SSL_CTX_load_verify_locations, 2);
    EXPECT_CALLS(SSL_new, 2);
    EXPECT_CALLS(BIO_new_socket, 2);
    EXPECT_CALLS(SSL_set_bio, 2);
    EXPECT_CALLS(SSL_connect, 1);
    EXPECT_CALLS(SSL_accept, 1);
    EXPECT_CALLS(SSL_write, 1);
    EXPECT_CALLS(SSL_read, 1);
    EXPECT_CALLS(SSL_peek, 1);
    EXPECT_CALLS(SSL_shutdown, 1);
    EXPECT_CALLS(SSL_free, 2);
    EXPECT_CALLS(SSL_CTX_free, 2);
    EXPECT(has_shared_openssl(), beside);
    return g_failures != 0;
}
