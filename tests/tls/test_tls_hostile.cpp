// Peers that speak no TLS, or break it off, or break its rules: the handshake fails, and everything is as before.
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <string>

#include "heap.h"
#include "tampering_peer.h"
#include "tls_world.h"

using namespace tls_test;
using testing::AnyOf;
using testing::ElementsAre;

namespace {

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values)
        text += static_cast<char>(value);
    return text;
}

class TlsHostile : public SideTest {
  protected:
    // Opens a session with a peer that has sent `blob`, and then nothing more.
    int32_t open_after(const std::string &blob, bool ended) {
        Wire wire;
        EXPECT_EQ(send(wire.theirs, blob.data(), blob.size(), 0), static_cast<ssize_t>(blob.size()));
        if (ended)
            EXPECT_EQ(shutdown(wire.theirs, SHUT_WR), 0);
        else
            set_receive_timeout(wire.ours, 30);
        SSL_Socket_Info session = untouched_record(wire.ours);
        const int32_t result = open_session(side(), session);
        expect_equal(session, untouched_record(wire.ours));
        EXPECT_TRUE(open_descriptors().contains(wire.ours));
        return result;
    }

    // Opens a session with a peer whose bytes are tampered with.
    int32_t open_with(int version, const TamperingPeer::Tamper &tamper) {
        Wire wire;
        const TamperingPeer peer(wire.theirs, !side().server, version, tamper);
        SSL_Socket_Info session = untouched_record(wire.ours);
        const int32_t result = open_session(side(), session);
        if (result == 0) {
            wire.give_ours();
            SSL_Socket_Destroy(&session, 0);
        } else {
            expect_equal(session, untouched_record(wire.ours));
            EXPECT_EQ(shutdown(wire.ours, SHUT_RDWR), 0);
        }
        return result;
    }

    // How many bytes the peer sends in a handshake that succeeds.
    size_t handshake_size(int version) {
        size_t size = 0;
        EXPECT_EQ(open_with(version,
                            [&](std::string sent, size_t before) {
                                size = before + sent.size();
                                return sent;
                            }),
                  0);
        return size;
    }
};
INSTANTIATE_BOTH_SIDES(TlsHostile);

// What a server or a client would not send.
const struct {
    const char *what;
    std::string blob;
} kBlobs[] = {
    {"a request in the clear", "GET / HTTP/1.1\r\nHost: nas.test\r\n\r\n"},
    {"an answer in the clear", "HTTP/1.1 400 Bad Request\r\n\r\n"},
    {"a greeting in the clear", "220 nas.test ESMTP\r\n"},
    {"zeros", std::string(64, '\0')},
    {"ones", std::string(64, '\xff')},
    {"a line end", "\r\n\r\n\r\n\r\n"},
    {"an oversized record", bytes({0x16, 3, 3, 0xff, 0xff}) + std::string(70'000, 'x')},
    {"a record that is a little too long", bytes({0x16, 3, 3, 0x48, 0x01}) + std::string(0x4801, 'x')},
    {"a record of an unknown type", bytes({0x63, 3, 3, 0, 4, 1, 2, 3, 4})},
    {"a record of another protocol version", bytes({0x16, 9, 9, 0, 4, 1, 0, 0, 0})},
    {"application data before the handshake", bytes({0x17, 3, 3, 0, 4, 'a', 'b', 'c', 'd'})},
    {"a fatal alert", bytes({0x15, 3, 3, 0, 2, 2, 40})},
    {"an alert of no known level", bytes({0x15, 3, 3, 0, 2, 77, 40})},
    {"a handshake message of an unknown type", bytes({0x16, 3, 3, 0, 4, 99, 0, 0, 0})},
    {"a handshake message of 16 MiB", bytes({0x16, 3, 3, 0, 4, 1, 0xff, 0xff, 0xff})},
    {"an empty client hello", bytes({0x16, 3, 3, 0, 4, 1, 0, 0, 0})},
    {"an empty server hello", bytes({0x16, 3, 3, 0, 4, 2, 0, 0, 0})},
    {"an old client hello of no length", bytes({0x80, 3, 1, 0, 2})},
};

}  // namespace

TEST_P(TlsHostile, takes_nothing_but_tls) {
    for (const auto &row : kBlobs) {
        SCOPED_TRACE(row.what);
        LogCapture log(1);
        EXPECT_EQ(open_after(row.blob, true), -EPROTO);
        EXPECT_THAT(log.messages(), ElementsAre(side().failed(-1, 0)));
    }
}

TEST_P(TlsHostile, takes_no_part_for_the_whole) {
    const std::string begin = bytes({0x16, 3, 3, 0, 80}) + "only a part";
    for (size_t size = 0; size <= begin.size(); size++) {
        SCOPED_TRACE(size);
        LogCapture log(1);
        EXPECT_EQ(open_after(begin.substr(0, size), true), -EPROTO);
        EXPECT_THAT(log.messages(), ElementsAre(AnyOf(side().failed(-1, 0), side().failed(0, 0))));
    }
}

TEST_P(TlsHostile, waits_for_the_rest_until_the_socket_s_own_time_out) {
    for (const std::string &begin : {std::string(), bytes({0x16}), bytes({0x16, 3, 3, 0, 80}) + "only a part"}) {
        LogCapture log(1);
        EXPECT_EQ(open_after(begin, false), -EAGAIN);
        EXPECT_THAT(log.messages(), ElementsAre(side().failed(-1, EAGAIN)));
    }
}

TEST_P(TlsHostile, survives_random_bytes) {
    std::mt19937 random(20'240'611);  // the same bytes each time
    for (int round = 0; round < 200; round++) {
        SCOPED_TRACE(round);
        std::string blob(random() % 600, '\0');
        for (char &byte : blob)
            byte = static_cast<char>(random());
        if (round % 2 == 0)  // past the first look
            blob.insert(0, bytes({0x16, 3, 1 + round % 3, 0, 200, side().server ? 1 : 2, 0, 0, 196, 3, 3}));
        EXPECT_EQ(open_after(blob, true), -EPROTO);
    }
}

TEST_P(TlsHostile, reports_a_peer_that_has_gone_before_the_handshake) {
    Wire wire;
    close(wire.give_theirs());
    LogCapture log(1);
    SSL_Socket_Info session = untouched_record(wire.ours);
    // A client can't send its hello; a server finds the end, which is no error of the system.
    EXPECT_EQ(open_session(side(), session), side().server ? -EPROTO : -EPIPE);
    EXPECT_THAT(log.messages(), ElementsAre(side().failed(-1, side().server ? 0 : EPIPE)));
    expect_equal(session, untouched_record(wire.ours));
}

TEST_P(TlsHostile, reports_a_connection_that_is_reset_before_the_handshake) {
    Wire wire(Wire::tcp);
    reset_connection(wire.give_theirs());
    LogCapture log(1);
    SSL_Socket_Info session = untouched_record(wire.ours);
    const int error = side().server ? ECONNRESET : EPIPE;
    EXPECT_THAT(open_session(side(), session), AnyOf(-ECONNRESET, -error));
    expect_equal(session, untouched_record(wire.ours));
}

TEST_P(TlsHostile, reports_a_peer_that_vanishes_in_the_middle) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        const size_t size = handshake_size(version);
        ASSERT_GT(size, 100U);
        // The length of a signature varies by a few bytes, and so does that of the whole.
        const size_t cuts[] = {0, 1, 4, 5, 6, 9, 50, size / 4, size / 3, size / 2, size * 3 / 4, size - 20, size - 10};
        for (const size_t cut : cuts) {
            SCOPED_TRACE(std::to_string(version) + " " + std::to_string(cut));
            LogCapture log(1);
            EXPECT_EQ(
                open_with(version, [&](const std::string &sent,
                                       size_t before) { return sent.substr(0, cut > before ? cut - before : 0); }),
                -EPROTO);
            EXPECT_THAT(log.messages(), ElementsAre(AnyOf(side().failed(-1, 0), side().failed(0, 0))));
        }
    }
}

TEST_P(TlsHostile, takes_no_handshake_that_was_tampered_with) {
    constexpr size_t random_begin = 11;  // of a hello: behind the headers and the version
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION})
        for (size_t place = random_begin; place < random_begin + 20; place++) {
            SCOPED_TRACE(std::to_string(version) + " " + std::to_string(place));
            EXPECT_EQ(open_with(version,
                                [&](std::string sent, size_t before) {
                                    if (before <= place && place < before + sent.size())
                                        sent[place - before] ^= 0x10;
                                    return sent;
                                }),
                      -EPROTO);
        }
}

TEST_P(TlsHostile, cannot_talk_to_its_own_kind) {
    Wire wire;
    Peer peer(wire.give_theirs(), side().server);
    peer.begin_handshake();
    SSL_Socket_Info session = untouched_record(wire.ours);
    set_receive_timeout(wire.ours, 100);
    // Two servers wait for each other; two clients are at odds at once.
    EXPECT_EQ(open_session(side(), session), side().server ? -EAGAIN : -EPROTO);
    EXPECT_EQ(shutdown(wire.ours, SHUT_RDWR), 0);
    EXPECT_LT(peer.end_handshake(), 1);
}

TEST_P(TlsHostile, opens_the_next_session_after_a_failed_one) {
    for (const auto &row : kBlobs)
        open_after(row.blob, true);
    Connection connection(side());
    connection.peer.write("abc");
    std::string answer(3, '\0');
    EXPECT_EQ(Exactly_SSL_Recv(&connection.session, answer.data(), 3, 1000), 3);
    EXPECT_EQ(answer, "abc");
}

TEST_P(TlsHostile, refuses_an_oversized_record_in_a_session) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        Connection connection(side(), {version});
        const std::string record = bytes({0x17, 3, 3, 0xff, 0xff}) + std::string(70'000, 'x');
        ASSERT_EQ(send(connection.peer.descriptor(), record.data(), record.size(), 0), 70'005);
        std::string buffer(100'000, '#');
        EXPECT_EQ(Exactly_SSL_Recv(&connection.session, buffer.data(), 100'000, -1), -EPROTO);
        EXPECT_EQ(buffer, std::string(100'000, '#'));
    }
}

TEST_P(TlsHostile, loses_no_memory_in_failed_handshakes) {
    size_t next = 0;
    const auto round = [&] { open_after(kBlobs[next++ % std::size(kBlobs)].blob, true); };
    EXPECT_FALSE(loses_memory_in_thread(round));
}
