// Ending connections of either kind, and the records that are left.
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "heap.h"
#include "tls_world.h"

using namespace tls_test;
using testing::ElementsAre;

namespace {

class TlsDestroy : public SideTest {};
INSTANTIATE_BOTH_SIDES(TlsDestroy);

class RecordDestroy : public TlsTest {};

bool is_open(int descriptor) {
    return open_descriptors().contains(descriptor);
}

}  // namespace

TEST_P(TlsDestroy, tells_the_peer_closes_the_socket_and_empties_the_record) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        Connection connection(side(), {version});
        const int32_t descriptor = connection.session.fdSocket;
        SSL_Socket_Destroy(&connection.session, 0);

        expect_equal(connection.session, kEmpty);
        EXPECT_FALSE(is_open(descriptor));
        EXPECT_EQ(connection.peer.read(1), "");
        EXPECT_EQ(SSL_get_shutdown(connection.peer.ssl()), SSL_RECEIVED_SHUTDOWN);
    }
}

TEST_P(TlsDestroy, leaves_the_peer_without_a_word_where_it_is_told_to) {
    for (const int32_t no_shutdown : {1, -1, INT_MIN, 0x100}) {
        SCOPED_TRACE(no_shutdown);
        Connection connection(side());
        Hook<SSL_shutdown> ending(SSL_shutdown);
        SSL_Socket_Destroy(&connection.session, no_shutdown);

        expect_equal(connection.session, kEmpty);
        EXPECT_EQ(ending.calls(), 0);
        EXPECT_EQ(connection.peer.read(1), "");
        EXPECT_EQ(SSL_get_shutdown(connection.peer.ssl()) & SSL_RECEIVED_SHUTDOWN, 0);
        expect_closed_by_peer(connection.peer.descriptor());
    }
}

TEST_P(TlsDestroy, works_twice_and_with_a_peer_that_has_gone) {
    Connection connection(side());
    connection.peer.vanish();
    SSL_Socket_Destroy(&connection.session, 0);
    expect_equal(connection.session, kEmpty);

    Hook<SSL_free> freeing(SSL_free);
    Hook<SSL_CTX_free> freeing_context(SSL_CTX_free);
    SSL_Socket_Destroy(&connection.session, 0);
    SSL_Socket_Destroy(&connection.session, 1);
    expect_equal(connection.session, kEmpty);
    EXPECT_EQ(freeing.calls() + freeing_context.calls(), 0);
}

TEST_P(TlsDestroy, ends_the_session_before_it_frees_it_and_closes_the_socket) {
    Connection connection(side());
    const SSL_Socket_Info session = connection.session;
    std::vector<std::string> steps;
    const auto step = [&](const char *name, bool known) {
        steps.push_back(std::string(name) + (known ? "" : " of another") +
                        (is_open(session.fdSocket) ? "" : ", closed"));
    };
    Hook<SSL_shutdown> ending([&](SSL *ssl) {
        step("shutdown", ssl == session.pSsl);
        return SSL_shutdown(ssl);
    });
    bool freeing_session = false;
    Hook<SSL_free> freeing([&](SSL *ssl) {
        step("free session", ssl == session.pSsl);
        freeing_session = true;
        SSL_free(ssl);
        freeing_session = false;
    });
    Hook<SSL_CTX_free> freeing_context([&](SSL_CTX *context) {
        if (!freeing_session)  // a session gives its share of the context back itself
            step("free context", context == session.pCtx);
        SSL_CTX_free(context);
    });

    SSL_Socket_Destroy(&connection.session, 0);
    EXPECT_THAT(steps, ElementsAre("shutdown", "free session", "free context"));
    EXPECT_FALSE(is_open(session.fdSocket));
}

TEST_P(TlsDestroy, gives_back_all_that_a_session_took) {
    EXPECT_FALSE(loses_memory_in_thread([&] {
        Connection connection(side());
        connection.peer.write("abc");
        std::string text(3, '\0');
        EXPECT_EQ(Exactly_SSL_Recv(&connection.session, text.data(), 3, 1000), 3);
        SSL_Socket_Destroy(&connection.session, 0);
    }));
}

TEST_F(RecordDestroy, ignores_null_and_an_empty_record) {
    SSL_Socket_Destroy(nullptr, 0);
    SSL_Socket_Destroy(nullptr, 1);
    SSL_Socket_Info empty = kEmpty;
    SSL_Socket_Destroy(&empty, 0);
    expect_equal(empty, kEmpty);
}

TEST_F(RecordDestroy, closes_the_socket_of_a_plain_connection) {
    for (const int32_t no_shutdown : {0, 1}) {
        Wire wire;
        SSL_Socket_Info plain{wire.give_ours(), nullptr, nullptr, nullptr};
        SSL_Socket_Destroy(&plain, no_shutdown);
        expect_equal(plain, kEmpty);
        expect_closed_by_peer(wire.theirs);
    }
}

TEST_F(RecordDestroy, gives_back_whatever_a_record_holds) {
    const std::string &host = certificates().host;
    const auto context = [&] {
        SSL_CTX *pointer = nullptr;
        EXPECT_EQ(CTX_Initialize(host.c_str(), "", certificates().authority.c_str(), &pointer), 0);
        return pointer;
    };
    EXPECT_FALSE(loses_memory_in_thread([&] {
        SSL_Socket_Info only_context{-1, nullptr, nullptr, context()};
        SSL_Socket_Destroy(&only_context, 0);
        expect_equal(only_context, kEmpty);

        SSL_CTX *const shared = context();
        SSL_Socket_Info only_session{-1, nullptr, SSL_new(shared), nullptr};
        SSL_Socket_Destroy(&only_session, 0);
        expect_equal(only_session, kEmpty);
        CTX_Destroy(shared);
    }));
}

// It belongs to the session; without one there is nobody to free it.
TEST_F(RecordDestroy, forgets_a_bio_without_a_session) {
    BIO *bio = BIO_new(BIO_s_mem());
    SSL_Socket_Info session{-1, bio, nullptr, nullptr};
    SSL_Socket_Destroy(&session, 0);
    expect_equal(session, kEmpty);
    EXPECT_EQ(BIO_free(bio), 1);
}
