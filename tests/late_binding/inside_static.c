/*
 * A host with the real OpenSSL inside: linked with the static libraries, and without -rdynamic. Its child is the peer of
 * a session of the library, and ends without a notice.
 * Usage: inside_static FILE, which holds a certificate and its key
 */
#include <errno.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inside.h"
#include "socket.h"

static int be_the_peer(int descriptor, const char *file) {
    SSL_CTX *context = SSL_CTX_new(TLS_server_method());
    if (SSL_CTX_use_certificate_chain_file(context, file) != 1 ||
        SSL_CTX_use_PrivateKey_file(context, file, SSL_FILETYPE_PEM) != 1)
        return 1;

    SSL *session = SSL_new(context);
    SSL_set_fd(session, descriptor);
    if (SSL_accept(session) != 1)
        return 2;
    return SSL_write(session, "abc", 3) == 3 ? 0 : 3;
}

static int expect(const char *what, long actual, long expected) {
    printf("%s: %s: %ld", actual == expected ? "ok" : "FAILED", what, actual);
    if (actual == expected)
        puts("");
    else
        printf(", expected %ld\n", expected);
    return actual != expected;
}

int main(int argc, char **argv) {
    int ends[2];
    if (argc != 2 || socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
        return 2;

    signal(SIGPIPE, SIG_IGN); /* the peer is gone when the session ends */
    const char *file = argv[1];
    const pid_t peer = fork();
    if (peer == 0) {
        close(ends[0]);
        _exit(be_the_peer(ends[1], file));
    }
    close(ends[1]);

    SSL_Socket_Info session = {ends[0], NULL, NULL, NULL};
    int failures = expect("SSL_Connect_Socket", SSL_Connect_Socket(file, "", file, &session), 0);
    failures += expect("another OpenSSL in the process", has_shared_openssl(), 0);
    if (failures != 0)
        return 1;

    /* The host's own OpenSSL takes the session for one of its own. */
    failures += expect("TLS 1.3 in the host's words", SSL_version(session.pSsl), TLS1_3_VERSION);
    char bytes[8] = "";
    int32_t count = -1;
    failures += expect("Exactly_SSL_Recv_Ex", Exactly_SSL_Recv_Ex(&session, bytes, 8, 20, &count), -ETIME);
    failures += expect("the count", count, 3);
    failures += expect("the bytes", memcmp(bytes, "abc", 3), 0);
    SSL_Socket_Destroy(&session, 0);

    int status = -1;
    waitpid(peer, &status, 0);
    failures += expect("the peer's status", status, 0);
    return failures != 0;
}
