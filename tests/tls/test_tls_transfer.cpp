// Receiving and sending on both kinds of connections.
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string>
#include <thread>

#include "tls_world.h"

using namespace tls_test;

namespace {

class PlainTransfer : public TlsTest {
  protected:
    std::string receive(uint64_t size, uint32_t flags) {
        const int64_t length = SSL_Recv(&plain_, buffer_.data(), size, flags);
        return length < 0 ? "error " + std::to_string(errno) : std::string(buffer_.data(), static_cast<size_t>(length));
    }

    Wire wire_{Wire::tcp};
    SSL_Socket_Info plain_{wire_.ours, nullptr, nullptr, nullptr};
    std::array<char, 64> buffer_{};
};

class TlsTransfer : public SideTest {
  protected:
    int64_t receive(uint64_t size, uint32_t flags = 0) {
        return SSL_Recv(&connection_.session, buffer_.data(), size, flags);
    }
    std::string received(int64_t length) const {
        return length < 0 ? "error" : std::string(buffer_.data(), static_cast<size_t>(length));
    }

    Connection connection_{GetParam()};
    std::array<char, 64> buffer_{};
};
INSTANTIATE_BOTH_SIDES(TlsTransfer);

// A length, and what OpenSSL is asked for.
struct Length {
    uint64_t asked;
    int passed;
};
constexpr Length kLengths[] = {
    {0, 0},
    {5, 5},
    {INT_MAX, INT_MAX},
    {uint64_t{INT_MAX} + 1, INT_MAX},
    {uint64_t{UINT32_MAX}, INT_MAX},
    {uint64_t{1} << 32, INT_MAX},
    {(uint64_t{1} << 32) + 5, INT_MAX},
    {uint64_t{INT64_MAX} + 1, INT_MAX},
    {UINT64_MAX, INT_MAX},
};

std::string error_of(int number) {
    return "error " + std::to_string(number);
}

}  // namespace

TEST_F(PlainTransfer, receives_as_recv_does_flags_included) {
    EXPECT_EQ(receive(8, MSG_DONTWAIT), error_of(EAGAIN));
    EXPECT_EQ(send(wire_.theirs, "abcdef", 6, 0), 6);
    EXPECT_EQ(receive(3, MSG_PEEK), "abc");
    EXPECT_EQ(receive(2, 0), "ab");
    EXPECT_EQ(receive(2, MSG_WAITALL), "cd");

    buffer_.fill('#');  // what MSG_TRUNC throws away is not written
    EXPECT_EQ(receive(1, MSG_TRUNC), "#");
    EXPECT_EQ(receive(64, 0), "f");

    EXPECT_EQ(send(wire_.theirs, "!", 1, MSG_OOB), 1);
    EXPECT_EQ(receive(1, MSG_OOB), "!");
    EXPECT_EQ(receive(1, MSG_OOB), error_of(EINVAL));
    EXPECT_EQ(shutdown(wire_.theirs, SHUT_WR), 0);
    EXPECT_EQ(receive(1, 0), "");
}

TEST_F(PlainTransfer, sends_as_send_does_flags_included) {
    EXPECT_EQ(SSL_Send(&plain_, "abc", 3, 0), 3);
    EXPECT_EQ(SSL_Send(&plain_, "", 0, 0), 0);
    EXPECT_EQ(SSL_Send(&plain_, "!", 1, MSG_OOB), 1);
    EXPECT_EQ(recv(wire_.theirs, buffer_.data(), 64, 0), 3);
    EXPECT_EQ(std::string(buffer_.data(), 3), "abc");
    EXPECT_EQ(recv(wire_.theirs, buffer_.data(), 1, MSG_OOB), 1);
    EXPECT_EQ(buffer_[0], '!');

    const std::string block(1 << 20, 'b');
    int64_t sent = 0;
    while (sent >= 0)
        sent = SSL_Send(&plain_, block.data(), block.size(), MSG_DONTWAIT);
    EXPECT_EQ(sent, -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(PlainTransfer, reports_as_the_system_does) {
    SSL_Socket_Info none = kEmpty;
    EXPECT_EQ(SSL_Recv(&none, buffer_.data(), 1, 0), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(SSL_Send(&none, "x", 1, 0), -1);
    EXPECT_EQ(errno, EBADF);

    const FailCall failing(Call::recv, EIO);
    EXPECT_EQ(receive(1, 0), error_of(EIO));
    EXPECT_EQ(failing.failed(), 1);
}

TEST_F(PlainTransfer, raises_sigpipe_unless_told_not_to) {
    Wire wire;
    SSL_Socket_Info plain{wire.ours, nullptr, nullptr, nullptr};
    close(wire.give_theirs());
    const auto send = [&](uint32_t flags) {
        return in_child([&] {
            signal(SIGPIPE, SIG_DFL);
            return SSL_Send(&plain, "x", 1, flags) == -1 && errno == EPIPE ? 0 : 1;
        });
    };
    EXPECT_EQ(send(MSG_NOSIGNAL), 0);
    EXPECT_EQ(send(0), 128 + SIGPIPE);
}

// It is the context that tells the two kinds apart.
TEST_F(PlainTransfer, is_what_a_record_without_context_gets) {
    plain_.pSsl = untouched_record(0).pSsl;
    plain_.pBio = untouched_record(0).pBio;
    EXPECT_EQ(SSL_Send(&plain_, "abc", 3, 0), 3);
    EXPECT_EQ(recv(wire_.theirs, buffer_.data(), 64, 0), 3);
    EXPECT_EQ(send(wire_.theirs, "defg", 4, 0), 4);
    EXPECT_EQ(receive(4, MSG_PEEK), "defg");
    EXPECT_EQ(receive(4, 0), "defg");
}

TEST_P(TlsTransfer, passes_bytes_both_ways) {
    EXPECT_EQ(SSL_Send(&connection_.session, "question", 8, 0), 8);
    EXPECT_EQ(connection_.peer.read(8), "question");
    connection_.peer.write("answer");
    EXPECT_EQ(received(receive(3)), "ans");
    EXPECT_EQ(received(receive(64)), "wer");
}

TEST_P(TlsTransfer, peeks_where_the_flags_ask_for_it) {
    connection_.peer.write("abcdef");
    for (const int flags : {int{MSG_PEEK}, MSG_PEEK | MSG_DONTWAIT, MSG_PEEK | MSG_OOB | MSG_TRUNC, -1})
        EXPECT_EQ(received(receive(4, flags)), "abcd");
    EXPECT_EQ(received(receive(64)), "abcdef");
}

TEST_P(TlsTransfer, ignores_every_other_flag) {
    const uint32_t flags = ~static_cast<uint32_t>(MSG_PEEK);
    connection_.peer.write("abcdef");
    EXPECT_EQ(received(receive(3, MSG_OOB)), "abc");
    EXPECT_EQ(received(receive(1, MSG_TRUNC)), "d");
    EXPECT_EQ(received(receive(2, flags)), "ef");

    // The bytes come only once the session waits for them: MSG_DONTWAIT does not keep it from waiting.
    BeforeCall late(Call::read, 1, [&] { connection_.peer.write("late"); });
    EXPECT_EQ(received(receive(4, MSG_DONTWAIT)), "late");
    EXPECT_TRUE(late.ran());

    EXPECT_EQ(SSL_Send(&connection_.session, "abc", 3, flags), 3);
    EXPECT_EQ(connection_.peer.read(3), "abc");
}

TEST_P(TlsTransfer, asks_openssl_for_int_max_bytes_at_most) {
    for (const Length &length : kLengths) {
        SCOPED_TRACE(length.asked);
        int size = -1;
        const auto note = [&](SSL *ssl, const void *buffer, int passed) {
            EXPECT_EQ(ssl, connection_.session.pSsl);
            EXPECT_EQ(buffer, buffer_.data());
            size = passed;
            return 1;
        };
        Hook<SSL_read> reading(note);
        Hook<SSL_peek> peeking(note);
        Hook<SSL_write> writing(note);

        EXPECT_EQ(receive(length.asked), 1);
        EXPECT_EQ(size, length.passed);
        size = -1;
        EXPECT_EQ(receive(length.asked, MSG_PEEK), 1);
        EXPECT_EQ(size, length.passed);
        size = -1;
        EXPECT_EQ(SSL_Send(&connection_.session, buffer_.data(), length.asked, 0), 1);
        EXPECT_EQ(size, length.passed);
        EXPECT_EQ(reading.calls(), 1);
        EXPECT_EQ(peeking.calls(), 1);
        EXPECT_EQ(writing.calls(), 1);
    }
}

TEST_P(TlsTransfer, returns_what_openssl_returned) {
    for (const int result : {0, 1, 7, INT_MAX, -1, -2, INT_MIN}) {
        const auto answer = [&](SSL *, const void *, int) { return result; };
        Hook<SSL_read> reading(answer);
        Hook<SSL_peek> peeking(answer);
        Hook<SSL_write> writing(answer);
        EXPECT_EQ(receive(9), int64_t{result});
        EXPECT_EQ(receive(9, MSG_PEEK), int64_t{result});
        EXPECT_EQ(SSL_Send(&connection_.session, "x", 1, 0), int64_t{result});
    }
}

TEST_P(TlsTransfer, tells_a_peer_that_ends_and_can_still_send_to_it) {
    connection_.peer.write("last");
    connection_.peer.notify_close();
    EXPECT_EQ(received(receive(64)), "last");
    EXPECT_EQ(receive(64), 0);
    EXPECT_EQ(receive(64, MSG_PEEK), 0);
    EXPECT_EQ(SSL_Send(&connection_.session, "heard", 5, 0), 5);
    EXPECT_EQ(connection_.peer.read(5), "heard");
}

TEST_P(TlsTransfer, fails_when_no_bytes_come_in_time) {
    set_nonblocking(connection_.session.fdSocket);
    for (const int flags : {0, int{MSG_PEEK}}) {
        EXPECT_EQ(receive(1, flags), -1);
        EXPECT_EQ(errno, EAGAIN);
    }
    connection_.peer.write("then");
    EXPECT_EQ(received(receive(64)), "then");
}

TEST_P(TlsTransfer, fails_when_the_peer_has_vanished) {
    connection_.peer.write("last");
    connection_.peer.vanish();
    EXPECT_EQ(received(receive(64)), "last");
    EXPECT_LE(receive(64), 0);
    EXPECT_LT(SSL_Send(&connection_.session, "x", 1, 0), 0);
}

TEST_P(TlsTransfer, fails_on_bytes_that_the_session_s_peer_has_not_sent) {
    const std::string forged = std::string("\x17\x03\x03\x00\x20", 5) + std::string(32, 'f');
    EXPECT_EQ(write(connection_.peer.descriptor(), forged.data(), forged.size()), 37);
    EXPECT_LT(receive(64), 0);
    // And there is no way back.
    connection_.peer.write("in order");
    EXPECT_LT(receive(64), 0);
}

TEST_P(TlsTransfer, moves_more_than_the_socket_holds) {
    std::string sent(3 << 20, '\0');
    for (size_t i = 0; i < sent.size(); i++)
        sent[i] = static_cast<char>(i * 31 + i / 251);

    std::string there;
    std::thread echo([&] {
        there = connection_.peer.read(sent.size());
        connection_.peer.write(there);
    });
    EXPECT_EQ(Exactly_SSL_Send(&connection_.session, sent.data(), sent.size(), 0), static_cast<int64_t>(sent.size()));
    std::string back(sent.size(), '\0');
    EXPECT_EQ(Exactly_SSL_Recv(&connection_.session, back.data(), static_cast<int32_t>(back.size()), -1),
              static_cast<int32_t>(back.size()));
    echo.join();
    EXPECT_TRUE(there == sent);
    EXPECT_TRUE(back == sent);
}

TEST_P(TlsTransfer, reports_a_reset_connection) {
    Connection connection(side(), {}, Wire::tcp);
    connection.peer.reset();
    errno = 0;
    EXPECT_LT(SSL_Recv(&connection.session, buffer_.data(), 1, 0), 0);
    EXPECT_EQ(errno, ECONNRESET);
}
