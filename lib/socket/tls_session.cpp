// TLS sessions: opening them in either role, ending them, and the transfer calls that serve plain connections as well.
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>

#include "base/handles.h"
#include "base/message.h"
#include "openssl.h"
#include "socket.h"

namespace korvex::socket {
namespace {

// Which side of the handshake is taken, and for whom.
struct Role {
    int (*OpenSsl::*handshake)(SSL *);
    const char *verb;
    const char *function;  // in whose name failures are reported
};

// The files of a session's context.
struct Credentials {
    const char *certificates;
    const char *pass_phrase;
    const char *authorities;

    bool complete() const { return certificates != nullptr && pass_phrase != nullptr && authorities != nullptr; }
};

struct ContextFreer {
    void operator()(SSL_CTX *context) const { CTX_Destroy(context); }
};
using Context = std::unique_ptr<SSL_CTX, ContextFreer>;

struct SessionFreer {
    const OpenSsl *tls;
    void operator()(SSL *session) const {
        tls->SSL_shutdown(session);
        tls->SSL_free(session);
    }
};
using Session = std::unique_ptr<SSL, SessionFreer>;

int32_t shake_hands(const OpenSsl &tls, SSL *session, const Role &role) {
    errno = 0;
    const int done = (tls.*role.handshake)(session);
    if (done >= 1)
        return 0;

    const int32_t result = errno != 0 ? -errno : -EPROTO;
    LOG_ERROR_AS(role.function, "SSL %s error! (%d, %d)\n", role.verb, done, errno);
    return result;
}

// Fills the record when all went well, and leaves nothing behind otherwise. The socket is the caller's.
int32_t open_session(int32_t socket, const Credentials &credentials, const Role &role, SSL_Socket_Info &record) {
    SSL_CTX *made = nullptr;
    const int32_t result =
        CTX_Initialize(credentials.certificates, credentials.pass_phrase, credentials.authorities, &made);
    if (result != 0) {
        LOG_ERROR_AS(role.function, "Can't Initialize_CTX error! (%d, %d)\n", result, errno);
        return result;
    }

    Context context(made);
    const OpenSsl *tls = openssl(role.function);
    Session session(tls->SSL_new(context.get()), SessionFreer{tls});
    if (!session)
        return -ENOMEM;

    BIO *bio = tls->BIO_new_socket(socket, BIO_NOCLOSE);
    if (bio == nullptr)
        return -ENOMEM;

    tls->SSL_set_bio(session.get(), bio, bio);
    const int32_t handshake = shake_hands(*tls, session.get(), role);
    if (handshake != 0)
        return handshake;

    record = {.fdSocket = socket, .pBio = bio, .pSsl = session.release(), .pCtx = context.release()};
    return 0;
}

int clamp_to_int(uint64_t length) {
    return static_cast<int>(std::min<uint64_t>(length, INT_MAX));
}

// Calls OpenSSL for a transfer, so that a failure always leaves its reason in `errno`.
template <class Transfer>
int64_t transfer(const char *function, Transfer call) {
    const OpenSsl *tls = openssl(function);
    if (tls == nullptr) {
        errno = EOPNOTSUPP;
        return -EOPNOTSUPP;
    }

    errno = 0;
    const int64_t count = call(*tls);
    if (count < 0 && errno == 0)
        errno = EPROTO;
    return count;
}

}  // namespace
}  // namespace korvex::socket

using namespace korvex;
using namespace korvex::socket;

int32_t SSL_Connect_Socket(const char *pszCertFile, const char *pszPassword, const char *pszCAFile,
                           SSL_Socket_Info *pSock) {
    const Credentials credentials{pszCertFile, pszPassword, pszCAFile};
    if (!credentials.complete() || pSock == nullptr || pSock->fdSocket < 0)
        return -EINVAL;
    return open_session(pSock->fdSocket, credentials, {&OpenSsl::SSL_connect, "connect", __func__}, *pSock);
}

int32_t SSL_Accept_Socket(const char *pszCertFile, const char *pszPassword, const char *pszCAFile,
                          SSL_Socket_Info *pSock) {
    const Credentials credentials{pszCertFile, pszPassword, pszCAFile};
    if (!credentials.complete() || pSock == nullptr || pSock->fdSocket < 0)
        return -EINVAL;
    return open_session(pSock->fdSocket, credentials, {&OpenSsl::SSL_accept, "accept", __func__}, *pSock);
}

int32_t SSL_Socket_Connect(const char *pszHost, int32_t nPort, int32_t nTimeout, const char *pszCertFile,
                           const char *pszPassword, const char *pszCAFile, SSL_Socket_Info *pSock) {
    if (pSock == nullptr || pszHost == nullptr || nPort < 0)
        return -EINVAL;

    int32_t connected = -1;
    int32_t result = TCP_Socket_Connect(nullptr, pszHost, nPort, nTimeout, &connected);
    if (result != 0) {
        LOG_ERROR("Can't connect socket error! (%d)\n", result);
        return result;
    }

    UniqueFd socket(connected);
    const Credentials credentials{pszCertFile, pszPassword, pszCAFile};
    result = open_session(socket.get(), credentials, {&OpenSsl::SSL_connect, "connect", __func__}, *pSock);
    if (result == 0)
        (void)socket.release();  // the record has it
    return result;
}

void SSL_Socket_Destroy(SSL_Socket_Info *pSock, int32_t bNoShutdown) {
    if (pSock == nullptr)
        return;

    if (pSock->pSsl != nullptr) {
        if (const OpenSsl *tls = openssl(__func__); tls != nullptr) {
            if (bNoShutdown == 0)
                tls->SSL_shutdown(pSock->pSsl);
            tls->SSL_free(pSock->pSsl);
        }
    }
    CTX_Destroy(pSock->pCtx);
    const UniqueFd socket(pSock->fdSocket);
    *pSock = {.fdSocket = -1, .pBio = nullptr, .pSsl = nullptr, .pCtx = nullptr};
}

int64_t SSL_Recv(SSL_Socket_Info *pSock, void *pBuf, uint64_t cbLength, uint32_t uFlags) {
    if (pSock->pCtx == nullptr)
        return recv(pSock->fdSocket, pBuf, cbLength, static_cast<int>(uFlags));

    return transfer(__func__, [=](const OpenSsl &tls) -> int64_t {
        const auto receive = (uFlags & MSG_PEEK) != 0 ? tls.SSL_peek : tls.SSL_read;
        return receive(pSock->pSsl, pBuf, clamp_to_int(cbLength));
    });
}

int64_t SSL_Send(SSL_Socket_Info *pSock, const void *pBuf, uint64_t cbLength, uint32_t uFlags) {
    if (pSock->pCtx == nullptr)
        return send(pSock->fdSocket, pBuf, cbLength, static_cast<int>(uFlags));

    return transfer(__func__, [=](const OpenSsl &tls) -> int64_t {
        return tls.SSL_write(pSock->pSsl, pBuf, clamp_to_int(cbLength));
    });
}
