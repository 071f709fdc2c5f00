// Opening a session on a connected socket, as the client and as the server: the record, the checks, the handshake, and
// what each failure leaves.
#include <openssl/bio.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "heap.h"
#include "tls_world.h"

using namespace tls_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class TlsSession : public SideTest {
  protected:
    // Opens a session that must fail with `code`, leave the record alone and the socket open.
    void expect_failure(int32_t code, const std::string &certificate = certificates().host) {
        SSL_Socket_Info session = untouched_record(wire_.ours);
        EXPECT_EQ(side().open(certificate.c_str(), "", certificates().authority.c_str(), &session), code);
        expect_equal(session, untouched_record(wire_.ours));
        expect_usable(wire_.theirs, wire_.ours);
    }

    Wire wire_;
};
INSTANTIATE_BOTH_SIDES(TlsSession);

// Puts an answer in the place of the handshake.
class HandshakeAnswer {
  public:
    HandshakeAnswer(int result, int error)
        : connect_([=, this](SSL *) { return answer(result, error); }),
          accept_([=, this](SSL *) { return answer(result, error); }) {}

    int at_entry() const { return at_entry_; }
    int connects() const { return connect_.calls(); }
    int accepts() const { return accept_.calls(); }

  private:
    int answer(int result, int error) {
        at_entry_ = errno;
        errno = error;
        return result;
    }

    int at_entry_ = -1;
    Hook<SSL_connect> connect_;
    Hook<SSL_accept> accept_;
};

std::string subject_of(X509 *certificate) {
    std::string name(64, '\0');
    const int length = X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, name.data(), 64);
    name.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return name;
}

}  // namespace

TEST_P(TlsSession, refuses_bad_arguments_and_makes_nothing) {
    const char *file = certificates().host.c_str();
    Hook<SSL_CTX_new> made(SSL_CTX_new);
    LogCapture log;
    SSL_Socket_Info session = untouched_record(wire_.ours);

    EXPECT_EQ(side().open(nullptr, "", file, &session), -EINVAL);
    EXPECT_EQ(side().open(file, nullptr, file, &session), -EINVAL);
    EXPECT_EQ(side().open(file, "", nullptr, &session), -EINVAL);
    EXPECT_EQ(side().open(file, "", file, nullptr), -EINVAL);
    expect_equal(session, untouched_record(wire_.ours));
    for (const int32_t descriptor : {-1, -2, INT_MIN}) {
        session = untouched_record(descriptor);
        EXPECT_EQ(side().open(file, "", file, &session), -EINVAL);
        expect_equal(session, untouched_record(descriptor));
    }
    EXPECT_EQ(made.calls(), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_P(TlsSession, fills_the_record_on_success) {
    LogCapture log;
    Connection connection(side());
    const SSL_Socket_Info &session = connection.session;

    EXPECT_GE(session.fdSocket, 0);
    ASSERT_NE(session.pSsl, nullptr);
    EXPECT_EQ(SSL_get_SSL_CTX(session.pSsl), session.pCtx);
    EXPECT_EQ(SSL_get_rbio(session.pSsl), session.pBio);
    EXPECT_EQ(SSL_get_wbio(session.pSsl), session.pBio);
    EXPECT_EQ(SSL_is_server(session.pSsl), side().server);
    ASSERT_NE(session.pBio, nullptr);
    EXPECT_EQ(BIO_get_fd(session.pBio, nullptr), session.fdSocket);
    EXPECT_EQ(BIO_get_close(session.pBio), BIO_NOCLOSE);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_P(TlsSession, overwrites_what_the_record_held) {
    Peer peer(wire_.give_theirs(), !side().server);
    SSL_Socket_Info session = untouched_record(wire_.ours);
    peer.begin_handshake();
    ASSERT_EQ(open_session(side(), session), 0);
    EXPECT_EQ(peer.end_handshake(), 1);
    EXPECT_EQ(session.fdSocket, wire_.give_ours());
    EXPECT_EQ(SSL_get_SSL_CTX(session.pSsl), session.pCtx);
    EXPECT_EQ(SSL_get_rbio(session.pSsl), session.pBio);
    SSL_Socket_Destroy(&session, 0);
}

TEST_P(TlsSession, gives_each_session_a_context_of_its_own) {
    Connection one(side());
    Connection other(side());
    EXPECT_NE(one.session.pCtx, other.session.pCtx);
}

TEST_P(TlsSession, speaks_every_version_that_the_peer_may_insist_on) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        SCOPED_TRACE(version);
        Connection connection(side(), {version});
        EXPECT_EQ(SSL_version(connection.session.pSsl), version);
        EXPECT_EQ(SSL_Send(&connection.session, "ours", 4, 0), 4);
        EXPECT_EQ(connection.peer.read(4), "ours");
        connection.peer.write("theirs");
        std::string answer(6, '\0');
        EXPECT_EQ(SSL_Recv(&connection.session, answer.data(), 6, 0), 6);
        EXPECT_EQ(answer, "theirs");
    }
    EXPECT_EQ(SSL_version(Connection(side()).session.pSsl), TLS1_3_VERSION);
}

TEST_P(TlsSession, presents_its_whole_chain) {
    Peer peer(wire_.give_theirs(), !side().server, {0, true});
    SSL_Socket_Info session{wire_.ours, nullptr, nullptr, nullptr};
    peer.begin_handshake();
    ASSERT_EQ(side().open(certificates().chain.c_str(), "", certificates().authority.c_str(), &session), 0);
    EXPECT_EQ(peer.end_handshake(), 1);
    wire_.give_ours();

    // A server is not told the client's own certificate again in this list.
    std::vector<std::string> names;
    STACK_OF(X509) *chain = SSL_get_peer_cert_chain(peer.ssl());
    for (int i = 0; i < sk_X509_num(chain); i++)
        names.push_back(subject_of(sk_X509_value(chain, i)));
    if (side().server)
        EXPECT_THAT(names, ElementsAre("nas.test", "korvex test intermediate", "korvex test root"));
    else
        EXPECT_THAT(names, ElementsAre("korvex test intermediate", "korvex test root"));
    SSL_Socket_Destroy(&session, 0);
}

TEST_P(TlsSession, accepts_any_certificate_of_the_peer) {
    const CertificateFiles &files = certificates();
    const struct {
        std::string theirs;
        std::string authority;
        long verdict;  // what OpenSSL would have said, had it been asked
    } rows[] = {
        {files.host, files.authority, X509_V_OK},
        {files.chain, files.authority, X509_V_OK},
        {files.expired, files.authority, X509_V_ERR_CERT_HAS_EXPIRED},
        {files.rsa(), files.authority, X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT},
        {files.host, files.other_authority, X509_V_ERR_CERT_SIGNATURE_FAILURE},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(row.theirs + " " + row.authority);
        Wire wire;
        Peer peer(wire.give_theirs(), !side().server, {0, false, row.theirs});
        SSL_Socket_Info session{wire.ours, nullptr, nullptr, nullptr};
        peer.begin_handshake();
        ASSERT_EQ(side().open(files.host.c_str(), "", row.authority.c_str(), &session), 0);
        EXPECT_EQ(peer.end_handshake(), 1);
        wire.give_ours();
        // A client shows its certificate only when it is asked, which the library does not do.
        if (side().server)
            EXPECT_EQ(SSL_get0_peer_certificate(session.pSsl), nullptr);
        else
            EXPECT_EQ(SSL_get_verify_result(session.pSsl), row.verdict);
        SSL_Socket_Destroy(&session, 0);
    }
}

TEST_P(TlsSession, works_with_an_expired_certificate_and_a_locked_key_of_its_own) {
    const struct {
        const std::string &file;
        const char *pass_phrase;
    } rows[] = {{certificates().expired, ""}, {certificates().locked, kPassPhrase}};

    for (const auto &row : rows) {
        Wire wire;
        Peer peer(wire.give_theirs(), !side().server);
        SSL_Socket_Info session{wire.ours, nullptr, nullptr, nullptr};
        peer.begin_handshake();
        ASSERT_EQ(side().open(row.file.c_str(), row.pass_phrase, certificates().authority.c_str(), &session), 0);
        EXPECT_EQ(peer.end_handshake(), 1);
        wire.give_ours();
        SSL_Socket_Destroy(&session, 0);
    }
}

TEST_P(TlsSession, reports_a_context_that_cannot_be_made) {
    LogCapture log(1);
    expect_failure(-ENOENT, certificates().missing);
    EXPECT_THAT(log.messages(), ElementsAre("[error] CTX_Initialize(#): Can't read certificate file! (-2)\n",
                                            side().no_context(-ENOENT, ENOENT)));
    log.clear();
    expect_failure(-EISDIR, certificates().folder);
    EXPECT_THAT(log.messages(), ElementsAre("[error] CTX_Initialize(#): Can't read certificate file! (-21)\n",
                                            side().no_context(-EISDIR, EISDIR)));
    log.clear();
    expect_failure(-ENOENT, certificates().no_key);
    const std::string begin = "[error] " + std::string(side().name) + "(#): Can't Initialize_CTX error! (-2, ";
    EXPECT_THAT(log.messages(),
                ElementsAre("[error] CTX_Initialize(#): Can't read key file!\n", testing::StartsWith(begin)));
}

TEST_P(TlsSession, reports_what_openssl_cannot_make) {
    LogCapture log(1);
    {
        Hook<SSL_CTX_new> none([](const SSL_METHOD *) -> SSL_CTX * { return nullptr; });
        expect_failure(-ENOMEM);
    }
    ASSERT_FALSE(log.messages().empty());
    EXPECT_THAT(log.messages().back(),
                testing::StartsWith("[error] " + std::string(side().name) + "(#): Can't Initialize_CTX error! (-12, "));
    {
        Hook<SSL_new> none([](SSL_CTX *) -> SSL * { return nullptr; });
        Hook<SSL_CTX_free> freeing(SSL_CTX_free);
        expect_failure(-ENOMEM);
        EXPECT_EQ(freeing.calls(), 1);
    }
    SSL *made = nullptr;
    SSL *freed = nullptr;
    Hook<BIO_new_socket> none([](int, int) -> BIO * { return nullptr; });
    Hook<SSL_new> making([&](SSL_CTX *context) { return made = SSL_new(context); });
    Hook<SSL_free> freeing([&](SSL *ssl) { SSL_free(freed = ssl); });
    expect_failure(-ENOMEM);
    EXPECT_NE(made, nullptr);
    EXPECT_EQ(freed, made);
}

TEST_P(TlsSession, wants_a_handshake_of_one_or_more) {
    for (const int result : {1, 2, INT_MAX})
        for (const int error : {0, EIO}) {
            const HandshakeAnswer answer(result, error);
            LogCapture log;
            SSL_Socket_Info session{wire_.ours, nullptr, nullptr, nullptr};
            errno = EBUSY;
            EXPECT_EQ(open_session(side(), session), 0);
            EXPECT_EQ(answer.at_entry(), 0);
            EXPECT_EQ(answer.connects(), side().server ? 0 : 1);
            EXPECT_EQ(answer.accepts(), side().server ? 1 : 0);
            EXPECT_THAT(log.messages(), IsEmpty());
            session.fdSocket = -1;
            SSL_Socket_Destroy(&session, 1);
        }
}

TEST_P(TlsSession, reports_a_failed_handshake_by_errno_or_as_a_protocol_error) {
    const struct {
        int result;
        int error;
        int32_t code;
    } rows[] = {
        {-1, 0, -EPROTO},      {0, 0, -EPROTO},    {INT_MIN, 0, -EPROTO}, {-1, ECONNRESET, -ECONNRESET},
        {-1, EAGAIN, -EAGAIN}, {0, EPIPE, -EPIPE}, {-5, EINTR, -EINTR},   {0, EPROTO, -EPROTO},
    };

    for (const auto &row : rows) {
        const HandshakeAnswer answer(row.result, row.error);
        LogCapture log(1);
        errno = EBUSY;
        expect_failure(row.code);
        EXPECT_EQ(answer.at_entry(), 0);
        EXPECT_THAT(log.messages(), ElementsAre(side().failed(row.result, row.error)));
    }
}

TEST_P(TlsSession, ends_and_frees_a_failed_session) {
    SSL *session = nullptr;
    SSL_CTX *context = nullptr;
    std::vector<std::string> steps;
    Hook<SSL_CTX_new> making_context([&](const SSL_METHOD *method) { return context = SSL_CTX_new(method); });
    Hook<SSL_new> making([&](SSL_CTX *from) { return session = SSL_new(from); });
    Hook<SSL_shutdown> ending([&](SSL *ssl) {
        steps.push_back(ssl == session ? "shutdown" : "shutdown of another");
        return SSL_shutdown(ssl);
    });
    bool freeing_session = false;
    Hook<SSL_free> freeing([&](SSL *ssl) {
        steps.push_back(ssl == session ? "free session" : "free another session");
        freeing_session = true;
        SSL_free(ssl);
        freeing_session = false;
    });
    Hook<SSL_CTX_free> freeing_context([&](SSL_CTX *pointer) {
        if (!freeing_session)  // a session gives its share of the context back itself
            steps.push_back(pointer == context ? "free context" : "free another context");
        SSL_CTX_free(pointer);
    });

    const HandshakeAnswer answer(-1, 0);
    expect_failure(-EPROTO);
    EXPECT_THAT(steps, ElementsAre("shutdown", "free session", "free context"));
}

TEST_P(TlsSession, makes_its_bio_on_the_caller_s_socket) {
    int descriptor = -1;
    int close = -1;
    Hook<BIO_new_socket> making([&](int fd, int flag) {
        descriptor = fd;
        close = flag;
        return BIO_new_socket(fd, flag);
    });
    const HandshakeAnswer answer(-1, 0);
    expect_failure(-EPROTO);
    EXPECT_EQ(descriptor, wire_.ours);
    EXPECT_EQ(close, BIO_NOCLOSE);
}

TEST_P(TlsSession, loses_no_memory_when_the_handshake_fails) {
    EXPECT_FALSE(loses_memory_in_thread([&] {
        const HandshakeAnswer answer(-1, 0);
        SSL_Socket_Info session{wire_.ours, nullptr, nullptr, nullptr};
        open_session(side(), session);
    }));
}
