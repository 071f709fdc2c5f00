// Connecting to a host and opening a session in one call.
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <thread>

#include "heap.h"
#include "port.h"
#include "tls_world.h"

using namespace tls_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *kHere = "127.0.0.1";

class TlsConnect : public TlsTest {
  protected:
    int32_t connect(int32_t port, int32_t timeout, const std::string &certificate = certificates().host) {
        return SSL_Socket_Connect(kHere, port, timeout, certificate.c_str(), "", certificates().authority.c_str(),
                                  &session_);
    }

    // The call failed after it had connected: nothing is left of the connection, and the record is as it was.
    void expect_nothing_left(const Port &port) {
        expect_equal(session_, untouched_record(-7));
        const int accepted = port.accept_one();
        std::string bytes(4096, '\0');
        while (recv(accepted, bytes.data(), bytes.size(), 0) > 0) {}
        expect_closed_by_peer(accepted);
        close(accepted);
    }

    SSL_Socket_Info session_ = untouched_record(-7);
};

}  // namespace

TEST_F(TlsConnect, refuses_bad_arguments_and_connects_nowhere) {
    const char *file = certificates().host.c_str();
    const Port port(Port::listening);
    LogCapture log;
    EXPECT_EQ(SSL_Socket_Connect(nullptr, 1, 100, file, "", file, &session_), -EINVAL);
    EXPECT_EQ(SSL_Socket_Connect(kHere, -1, 100, file, "", file, &session_), -EINVAL);
    EXPECT_EQ(SSL_Socket_Connect(kHere, INT_MIN, 100, file, "", file, &session_), -EINVAL);
    EXPECT_EQ(SSL_Socket_Connect(kHere, port.number(), 100, file, "", file, nullptr), -EINVAL);
    expect_equal(session_, untouched_record(-7));
    EXPECT_FALSE(port.has_caller());
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TlsConnect, opens_a_session_with_a_server) {
    const Port port(Port::listening);
    std::thread server([&] {
        Peer peer(port.accept_one(), true);
        peer.begin_handshake();
        EXPECT_EQ(peer.end_handshake(), 1);
        peer.write(peer.read(4) + " came");
    });
    LogCapture log(1);
    ASSERT_EQ(connect(port.number(), 12'500), 0);
    EXPECT_EQ(SSL_Send(&session_, "this", 4, 0), 4);
    std::string answer(9, '\0');
    EXPECT_EQ(Exactly_SSL_Recv(&session_, answer.data(), 9, -1), 9);
    EXPECT_EQ(answer, "this came");
    server.join();
    EXPECT_THAT(log.messages(), IsEmpty());

    EXPECT_EQ(SSL_get_SSL_CTX(session_.pSsl), session_.pCtx);
    EXPECT_EQ(SSL_get_rbio(session_.pSsl), session_.pBio);
    EXPECT_EQ(BIO_get_fd(session_.pBio, nullptr), session_.fdSocket);
    EXPECT_FALSE(SSL_is_server(session_.pSsl));
    SSL_Socket_Destroy(&session_, 0);
    expect_equal(session_, kEmpty);
}

TEST_F(TlsConnect, gives_the_socket_the_time_out) {
    const Port port(Port::listening);
    Hook<SSL_connect> answer([](SSL *) { return 1; });
    ASSERT_EQ(connect(port.number(), 2500), 0);
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        timeval time{};
        socklen_t size = sizeof time;
        EXPECT_EQ(getsockopt(session_.fdSocket, SOL_SOCKET, option, &time, &size), 0);
        EXPECT_EQ(time.tv_sec, 2);
        EXPECT_EQ(time.tv_usec, 500'000);
    }
    SSL_Socket_Destroy(&session_, 1);
}

TEST_F(TlsConnect, reports_a_host_that_refuses) {
    const Port port(Port::refusing);
    LogCapture log(1);
    EXPECT_EQ(connect(port.number(), 2000), -ECONNREFUSED);
    EXPECT_THAT(log.messages(), ElementsAre("[error] SSL_Socket_Connect(#): Can't connect socket error! (-111)\n"));
    expect_equal(session_, untouched_record(-7));
}

TEST_F(TlsConnect, leaves_port_0_to_the_connection) {
    LogCapture log(1);
    EXPECT_EQ(connect(0, 2000), -EINVAL);
    EXPECT_THAT(log.messages(), ElementsAre("[error] SSL_Socket_Connect(#): Can't connect socket error! (-22)\n"));
    expect_equal(session_, untouched_record(-7));
}

// They are looked at when the context is made, and by then the connection stands.
TEST_F(TlsConnect, connects_before_it_refuses_null_texts) {
    const char *file = certificates().host.c_str();
    const struct {
        const char *certificate;
        const char *pass_phrase;
        const char *authority;
    } rows[] = {{nullptr, "", file}, {file, nullptr, file}, {file, "", nullptr}};

    for (const auto &row : rows) {
        const Port port(Port::listening);
        LogCapture log(1);
        EXPECT_EQ(
            SSL_Socket_Connect(kHere, port.number(), 2000, row.certificate, row.pass_phrase, row.authority, &session_),
            -EINVAL);
        EXPECT_THAT(
            log.messages(),
            ElementsAre(testing::StartsWith("[error] SSL_Socket_Connect(#): Can't Initialize_CTX error! (-22, ")));
        expect_nothing_left(port);
    }
}

TEST_F(TlsConnect, closes_its_socket_when_the_context_cannot_be_made) {
    const Port port(Port::listening);
    LogCapture log(1);
    EXPECT_EQ(connect(port.number(), 2000, certificates().missing), -ENOENT);
    EXPECT_THAT(log.messages(), ElementsAre("[error] CTX_Initialize(#): Can't read certificate file! (-2)\n",
                                            "[error] SSL_Socket_Connect(#): Can't Initialize_CTX error! (-2, 2)\n"));
    expect_nothing_left(port);
}

TEST_F(TlsConnect, closes_its_socket_when_the_session_cannot_be_made) {
    {
        const Port port(Port::listening);
        Hook<SSL_new> none([](SSL_CTX *) -> SSL * { return nullptr; });
        EXPECT_EQ(connect(port.number(), 2000), -ENOMEM);
        expect_nothing_left(port);
    }
    const Port port(Port::listening);
    Hook<BIO_new_socket> none([](int, int) -> BIO * { return nullptr; });
    EXPECT_EQ(connect(port.number(), 2000), -ENOMEM);
    expect_nothing_left(port);
}

TEST_F(TlsConnect, closes_its_socket_when_the_handshake_fails) {
    const struct {
        int result;
        int error;
        int32_t code;
    } rows[] = {{-1, 0, -EPROTO}, {0, ECONNRESET, -ECONNRESET}, {-1, EAGAIN, -EAGAIN}};

    for (const auto &row : rows) {
        const Port port(Port::listening);
        Hook<SSL_connect> answer([&](SSL *) {
            errno = row.error;
            return row.result;
        });
        LogCapture log(1);
        EXPECT_EQ(connect(port.number(), 2000), row.code);
        EXPECT_THAT(log.messages(), ElementsAre("[error] SSL_Socket_Connect(#): SSL connect error! (" +
                                                std::to_string(row.result) + ", " + std::to_string(row.error) + ")\n"));
        expect_nothing_left(port);
    }
}

TEST_F(TlsConnect, waits_for_a_silent_server_until_the_time_is_over) {
    const Port port(Port::listening);
    LogCapture log(1);
    EXPECT_EQ(connect(port.number(), 50), -EAGAIN);
    EXPECT_THAT(log.messages(), ElementsAre("[error] SSL_Socket_Connect(#): SSL connect error! (-1, 11)\n"));
    expect_nothing_left(port);
}

TEST_F(TlsConnect, loses_no_memory_and_no_socket_in_failures) {
    const Port refusing(Port::refusing);
    EXPECT_FALSE(loses_memory_in_thread([&] {
        EXPECT_EQ(connect(refusing.number(), 2000), -ECONNREFUSED);
        const Port port(Port::listening);
        Hook<SSL_connect> answer([](SSL *) { return -1; });
        EXPECT_EQ(connect(port.number(), 2000), -EPROTO);
    }));
}
