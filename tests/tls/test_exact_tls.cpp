// Receiving exact numbers of bytes on plain and on TLS connections: what lies in the buffer, the count, and the ends.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "exact_stream.h"

using namespace tls_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int32_t kStale = 99;

struct Receiver {
    const char *name;
    int32_t (*receive)(SSL_Socket_Info *record, void *buffer, int32_t length, int32_t timeout, int32_t *count);
    bool counts;  // tells the count

    std::string timed_out(int wanted, int got, int error, int64_t elapsed) const {
        return "[error] " + std::string(name) + "(#): " + name + "() timeout! Want " + std::to_string(wanted) +
               " bytes, got " + std::to_string(got) + " bytes! (" + std::to_string(error) + ", " +
               std::to_string(elapsed) + ")\n";
    }
    std::string failed(int error) const {
        return "[error] " + std::string(name) + "(#): Can't receive error (" + std::to_string(-error) + ", " +
               std::to_string(error) + ")!\n";
    }

    friend std::ostream &operator<<(std::ostream &out, const Receiver &receiver) { return out << receiver.name; }
};

constexpr Receiver kReceivers[] = {
    {"Exactly_SSL_Recv",
     [](SSL_Socket_Info *record, void *buffer, int32_t length, int32_t timeout, int32_t *) {
         return Exactly_SSL_Recv(record, buffer, length, timeout);
     },
     false},
    {"Exactly_SSL_Recv_Ex", Exactly_SSL_Recv_Ex, true},
};

class ExactReceive : public TlsTest, public testing::WithParamInterface<std::tuple<Receiver, Kind>> {
  protected:
    const Receiver &receiver() const { return std::get<Receiver>(GetParam()); }
    Kind kind() const { return std::get<Kind>(GetParam()); }

    int32_t receive(int32_t length, int32_t timeout) {
        return receiver().receive(stream_.record(), buffer_.data(), length, timeout, &count_);
    }
    void expect_count(int32_t expected) const { EXPECT_EQ(count_, receiver().counts ? expected : kStale); }
    std::string begin_of_buffer(size_t size) const { return buffer_.text().substr(0, size); }

    Stream stream_{kind()};
    FencedBuffer buffer_{64};
    int32_t count_ = kStale;
};

std::string name_of_both(const testing::TestParamInfo<std::tuple<Receiver, Kind>> &info) {
    const bool tls = std::get<Kind>(info.param) == Kind::tls;
    return std::string(std::get<Receiver>(info.param).name) + (tls ? "_on_tls" : "_on_plain");
}

INSTANTIATE_TEST_SUITE_P(All, ExactReceive,
                         testing::Combine(testing::ValuesIn(kReceivers), testing::Values(Kind::plain, Kind::tls)),
                         name_of_both);

using ExactTls = TlsTest;

class ExactCount : public TlsTest, public testing::WithParamInterface<Kind> {};
INSTANTIATE_BOTH_KINDS(ExactCount);

}  // namespace

TEST_P(ExactReceive, collects_the_bytes_however_they_come) {
    const Script scripts[] = {{"abcdefgh"}, {"abcdefghij"}, {"abc", "defgh"}, {"a", "b", "c", "d", "e", "f", "g", "h"}};
    for (const Script &script : scripts) {
        LogCapture log;
        const Play play(stream_, script);
        EXPECT_EQ(receive(8, 0), 8);
        EXPECT_EQ(begin_of_buffer(9), "abcdefgh#");
        EXPECT_EQ(static_cast<size_t>(play.receives()), script.size());
        expect_count(8);
        EXPECT_EQ(stream_.rest(), script.front().size() > 8 ? "ij" : "");
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST_P(ExactReceive, receives_nothing_for_a_length_below_1) {
    stream_.feed("abc");
    for (const int32_t length : {0, -1, INT_MIN}) {
        const BeforeReceive before(stream_, [] {});
        LogCapture log;
        count_ = kStale;
        EXPECT_EQ(receive(length, 10), 0);
        expect_count(0);
        EXPECT_EQ(before.receives(), 0);
        EXPECT_THAT(log.messages(), IsEmpty());
    }
    EXPECT_EQ(begin_of_buffer(3), "###");
    EXPECT_EQ(stream_.rest(), "abc");
}

// A receive that ends with EAGAIN lowers the count by one, and the next one lands a byte earlier. What would lie before
// the buffer is dropped.
TEST_P(ExactReceive, falls_back_a_byte_with_each_receive_that_finds_nothing) {
    const struct {
        Script script;
        const char *buffer;
        const char *rest;
    } rows[] = {
        {{"ab", "", "cdef"}, "acde", "f"},
        {{"abc", "", "", "defg"}, "adef", "g"},
        {{"abc", "", "", "", "defgh"}, "defg", "h"},
        {{"a", "", "bcdef"}, "bcde", "f"},
        {{"", "abcdef"}, "bcde", "f"},
        {{"", "", "abcdefg"}, "cdef", "g"},
        {{"", "a", "bcdef"}, "bcde", "f"},
        {{"", "abc", "def"}, "bcde", "f"},
        {{"", "", "a", "", "bcdefgh"}, "defg", "h"},
        {{"a", "", "", "bcdefg"}, "cdef", "g"},
        {{"", "", "", "a", "b", "c", "d", "efgh"}, "defg", "h"},
        {{"", "a", "b", "", "", "cdefg"}, "defg", ""},
    };

    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.script));
        FencedBuffer buffer(4);
        Play play(stream_, row.script);
        EXPECT_EQ(receiver().receive(stream_.record(), buffer.data(), 4, 1000, &count_), 4);
        EXPECT_EQ(buffer.text(), row.buffer);
        EXPECT_EQ(stream_.rest(), row.rest);
        expect_count(4);
    }
}

TEST_P(ExactReceive, can_fall_back_far_before_the_buffer) {
    constexpr int empty_receives = 10'000;
    Script script(empty_receives);
    script.push_back(std::string(5000, 'x') + std::string(5000, 'y') + "abcdefgh" + "rest");
    Play play(stream_, script);
    EXPECT_EQ(receive(8, -1), 8);
    EXPECT_EQ(begin_of_buffer(9), "abcdefgh#");
    expect_count(8);
    EXPECT_EQ(stream_.rest(), "rest");
}

using ExactRecords = TlsTest;

// What reaches from before the buffer into it is one record, which a receive of its part would cut.
TEST_F(ExactRecords, are_whole_where_the_count_fell_below_zero) {
    const struct {
        int empty_receives;
        std::string record;
        const char *buffer;
    } rows[] = {{1, "abcde", "bcde"},
                {2, "abcdef", "cdef"},
                {100, std::string(100, 'x') + "abcd", "abcd"},
                {10'000, std::string(10'000, 'x') + "abcd", "abcd"}};

    for (const auto &row : rows) {
        SCOPED_TRACE(row.empty_receives);
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()), 0);
        SSL_Socket_Info record{ends[0], nullptr, nullptr, nullptr};
        const BeforeCall feeding(Call::recv, row.empty_receives + 1, [&] {
            EXPECT_EQ(send(ends[1], row.record.data(), row.record.size(), 0), static_cast<ssize_t>(row.record.size()));
        });
        FencedBuffer buffer(4);
        int32_t count = kStale;
        EXPECT_EQ(Exactly_SSL_Recv_Ex(&record, buffer.data(), 4, 20'000, &count), 4);
        EXPECT_EQ(buffer.text(), row.buffer);
        EXPECT_EQ(count, 4);
        SSL_Socket_Destroy(&record, 0);
        close(ends[1]);
    }
}

TEST_P(ExactCount, is_told_while_the_call_runs) {
    Stream stream(GetParam());
    Play play(stream, {"abc", "", "", "", "", "d", "efghijkl"});
    int32_t count = kStale;
    std::vector<int32_t> seen;
    play.also = [&] { seen.push_back(count); };
    FencedBuffer buffer(6);
    EXPECT_EQ(Exactly_SSL_Recv_Ex(stream.record(), buffer.data(), 6, 1000, &count), 6);
    ASSERT_GE(seen.size(), 7U);
    EXPECT_THAT(std::vector(seen.begin(), seen.begin() + 7), ElementsAre(0, 3, 2, 1, 0, -1, 0));
    EXPECT_EQ(buffer.text(), "efghij");
}

TEST_P(ExactReceive, ends_in_time_when_the_peer_has_closed) {
    stream_.feed("abc");
    stream_.end();
    LogCapture log(1);
    errno = 0;
    Play play(stream_, {});
    EXPECT_EQ(receive(8, 10), -ETIME);
    EXPECT_EQ(errno, ETIME);
    expect_count(3);
    EXPECT_EQ(begin_of_buffer(4), "abc#");
    // The bytes, and then once a millisecond until more than 10 have passed.
    EXPECT_EQ(play.receives(), 11);
    EXPECT_THAT(log.messages(), ElementsAre(receiver().timed_out(8, 3, 0, 11)));
}

TEST_P(ExactReceive, ends_in_time_when_nothing_comes) {
    const struct {
        int32_t timeout;
        int32_t count;
    } rows[] = {{0, 3}, {1, 3}, {2, 2}, {5, -1}, {10, -6}};

    for (const auto &row : rows) {
        SCOPED_TRACE(row.timeout);
        LogCapture log(1);
        Play play(stream_, {"abc"});
        EXPECT_EQ(receive(8, row.timeout), -ETIME);
        EXPECT_EQ(errno, ETIME);
        // The first receive brings bytes, so the time is first looked at after the second.
        const int receives = std::max(2, row.timeout + 1);
        EXPECT_EQ(play.receives(), receives);
        expect_count(row.count);
        EXPECT_THAT(log.messages(), ElementsAre(receiver().timed_out(8, row.count, EAGAIN, receives)));
    }
}

TEST_P(ExactReceive, does_not_look_at_the_time_while_bytes_come) {
    Play play(stream_, {"a", "b", "c", "d"});
    play.milliseconds_a_receive = 1'000'000;
    EXPECT_EQ(receive(4, 1), 4);
    EXPECT_EQ(begin_of_buffer(4), "abcd");
}

TEST_P(ExactReceive, waits_for_ever_with_a_negative_time_out) {
    for (const int32_t timeout : {-1, -1000, INT_MIN}) {
        SCOPED_TRACE(timeout);
        LogCapture log;
        Script script(20);
        script.push_back(std::string(20, 'x') + "abcd");
        Play play(stream_, script);
        play.milliseconds_a_receive = 40'000'000'000;  // more than a year
        EXPECT_EQ(receive(4, timeout), 4);
        EXPECT_EQ(begin_of_buffer(4), "abcd");
        EXPECT_GE(play.receives(), 21);
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST_P(ExactReceive, takes_a_clock_that_is_set_back_for_the_end_of_its_time) {
    LogCapture log(1);
    Play play(stream_, {});
    play.milliseconds_a_receive = -5000;
    EXPECT_EQ(receive(4, INT_MAX), -ETIME);
    EXPECT_THAT(log.messages(), ElementsAre(receiver().timed_out(4, 0, EAGAIN, -5000)));
    EXPECT_EQ(play.receives(), 1);
}

TEST_P(ExactReceive, tells_an_elapsed_time_of_more_than_32_bits) {
    LogCapture log(1);
    Play play(stream_, {});
    play.milliseconds_a_receive = 10'000'000'000;
    EXPECT_EQ(receive(4, 5), -ETIME);
    EXPECT_THAT(log.messages(), ElementsAre(receiver().timed_out(4, 0, EAGAIN, 10'000'000'000)));
}

TEST_P(ExactReceive, lets_the_socket_s_own_time_out_pass) {
    const int descriptor = stream_.record()->fdSocket;
    ASSERT_EQ(fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK), 0);
    set_receive_timeout(descriptor, 30);
    LogCapture log(1);
    stream_.feed("abc");
    EXPECT_EQ(receive(8, 1), -ETIME);
    expect_count(3);
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_THAT(log.messages()[0], testing::HasSubstr("Want 8 bytes, got 3 bytes! (11, "));
}

TEST_P(ExactReceive, ends_with_the_error_of_a_receive) {
    for (const int error : {EIO, EINTR, ECONNRESET, ENOTCONN}) {
        LogCapture log(1);
        stream_.feed("abc");
        const FailCall failing(Call::recv, error, 2);
        int reads = 0;
        Hook<SSL_read> answer([&](SSL *ssl, void *buffer, int size) {
            if (++reads == 1)
                return SSL_read(ssl, buffer, size);
            errno = error;
            return -1;
        });
        EXPECT_EQ(receive(8, 1000), -error);
        expect_count(3);
        EXPECT_EQ(begin_of_buffer(4), "abc#");
        EXPECT_THAT(log.messages(), ElementsAre(receiver().failed(error)));
    }
}

TEST_P(ExactReceive, ends_with_a_reset_of_the_connection) {
    Stream stream(kind(), Wire::tcp);
    stream.reset();
    LogCapture log(1);
    EXPECT_EQ(receiver().receive(stream.record(), buffer_.data(), 8, -1, &count_), -ECONNRESET);
    expect_count(0);
    EXPECT_THAT(log.messages(), ElementsAre(receiver().failed(ECONNRESET)));
}

// OpenSSL fails without a system error where the peer breaks the rules, and a failure is never told as success.
TEST_F(ExactTls, ends_with_a_protocol_error_where_the_peer_breaks_the_rules) {
    Connection connection(kServer);
    const int theirs = connection.peer.descriptor();
    connection.peer.write("abc");
    const std::string forged = std::string("\x17\x03\x03\x00\x20", 5) + std::string(32, 'f');
    ASSERT_EQ(write(theirs, forged.data(), forged.size()), 37);

    LogCapture log(1);
    FencedBuffer buffer(8);
    int32_t count = kStale;
    errno = EAGAIN;  // of before: it is not taken for this call's
    EXPECT_EQ(Exactly_SSL_Recv_Ex(&connection.session, buffer.data(), 8, -1, &count), -EPROTO);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(buffer.text(), "abc#####");
    EXPECT_THAT(log.messages(), ElementsAre("[error] Exactly_SSL_Recv_Ex(#): Can't receive error (-71, 71)!\n"));
    log.clear();
    errno = EAGAIN;
    EXPECT_EQ(Exactly_SSL_Recv(&connection.session, buffer.data(), 8, -1), -EPROTO);
    EXPECT_THAT(log.messages(), ElementsAre("[error] Exactly_SSL_Recv(#): Can't receive error (-71, 71)!\n"));
}
