// TLS contexts.
#include <cerrno>
#include <cstring>
#include <memory>

#include "base/message.h"
#include "openssl.h"
#include "socket.h"

namespace korvex::socket {
namespace {

constexpr const char *kInitialize = "CTX_Initialize";

// One for the whole process, by contract: that of the latest `CTX_Initialize`. Keys that a host loads into a finished
// context are opened with it.
const char *g_psPswd = nullptr;

// Set while `CTX_Initialize` loads the key in this thread. Meanwhile another thread may have set the process's pass
// phrase, and even freed it.
[[gnu::tls_model("initial-exec")]] constinit thread_local const char *t_own_pass_phrase = nullptr;

// OpenSSL asks for the pass phrase of a key.
int Password_CB(char *pBuf, int nSize, int /*nWriting*/, void * /*pUser*/) {
    const char *pass_phrase =
        t_own_pass_phrase != nullptr ? t_own_pass_phrase : __atomic_load_n(&g_psPswd, __ATOMIC_RELAXED);
    const size_t length = std::strlen(pass_phrase);
    if (static_cast<uint64_t>(int64_t{nSize}) < length + 1)
        return 0;

    std::memcpy(pBuf, pass_phrase, length + 1);
    return static_cast<int>(length);
}

struct ContextFreer {
    void operator()(SSL_CTX *context) const { CTX_Destroy(context); }
};
using Context = std::unique_ptr<SSL_CTX, ContextFreer>;

// What later versions do by default and 1.0 did not.
void behave_as_ever(const OpenSsl &tls, SSL_CTX *context) {
    // A peer that ends without a notice has ended, as on a plain socket.
    if (tls.set_options_of_3 != nullptr)
        tls.set_options_of_3(context, SSL_OP_IGNORE_UNEXPECTED_EOF);
    // No tickets behind the handshake: the next session has another context, so they would be of no use, and a peer that
    // closes without having read them resets the connection.
    if (tls.set_tickets != nullptr)
        tls.set_tickets(context, 0);
}

// 0, or the code of what can't be loaded.
int32_t load_files(const OpenSsl &tls, SSL_CTX *context, const char *certificates, const char *pass_phrase,
                   const char *authorities) {
    // Only a system error counts: what OpenSSL itself finds wrong is left to the key and the handshake.
    errno = 0;
    if (tls.SSL_CTX_use_certificate_chain_file(context, certificates) != 1 && errno != 0) {
        const int32_t result = -errno;
        LOG_ERROR_AS(kInitialize, "Can't read certificate file! (%d)\n", result);
        return result;
    }

    __atomic_store_n(&g_psPswd, pass_phrase, __ATOMIC_RELAXED);
    tls.SSL_CTX_set_default_passwd_cb(context, Password_CB);
    t_own_pass_phrase = pass_phrase;
    const bool loaded = tls.SSL_CTX_use_PrivateKey_file(context, certificates, SSL_FILETYPE_PEM) == 1;
    t_own_pass_phrase = nullptr;
    if (!loaded) {
        LOG_ERROR_AS(kInitialize, "Can't read key file!\n");
        return -ENOENT;
    }

    if (tls.SSL_CTX_load_verify_locations(context, authorities, nullptr) != 1) {
        LOG_ERROR_AS(kInitialize, "Can't read CA list!\n");
        return -ENOENT;
    }
    return 0;
}

}  // namespace
}  // namespace korvex::socket

using namespace korvex::socket;

int32_t CTX_Initialize(const char *pszCertFile, const char *pszPassword, const char *pszCAFile, SSL_CTX **ppCtx) {
    if (pszCertFile == nullptr || pszPassword == nullptr || pszCAFile == nullptr || ppCtx == nullptr)
        return -EINVAL;

    *ppCtx = nullptr;
    const OpenSsl *tls = openssl(__func__);
    if (tls == nullptr)
        return -EOPNOTSUPP;

    Context context(tls->SSL_CTX_new(tls->negotiating_method()));
    if (!context)
        return -ENOMEM;

    behave_as_ever(*tls, context.get());
    const int32_t result = load_files(*tls, context.get(), pszCertFile, pszPassword, pszCAFile);
    if (result == 0)
        *ppCtx = context.release();
    return result;
}

void CTX_Destroy(SSL_CTX *pCtx) {
    if (pCtx == nullptr)
        return;

    if (const OpenSsl *tls = openssl(__func__); tls != nullptr)
        tls->SSL_CTX_free(pCtx);
}
