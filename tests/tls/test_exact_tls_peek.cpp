// Peeking for an exact number of bytes on plain and on TLS connections.
#include <cerrno>
#include <climits>
#include <string>

#include "exact_stream.h"

using namespace tls_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ExactPeek : public TlsTest, public testing::WithParamInterface<Kind> {
  protected:
    int32_t peek(int32_t length, int32_t timeout) {
        return Exactly_SSL_Peek(stream_.record(), buffer_.data(), length, timeout);
    }
    std::string begin_of_buffer(size_t size) const { return buffer_.text().substr(0, size); }

    static std::string timed_out(int wanted, int got) {
        return "[error] Exactly_SSL_Peek(#): Exactly_Peek() timeout! Want " + std::to_string(wanted) + " bytes, got " +
               std::to_string(got) + " bytes!\n";
    }

    Stream stream_{GetParam()};
    FencedBuffer buffer_{64};
};
INSTANTIATE_BOTH_KINDS(ExactPeek);

}  // namespace

TEST_P(ExactPeek, copies_bytes_and_leaves_them) {
    stream_.feed("abcdefghij");
    const Play play(stream_, {});
    LogCapture log;
    EXPECT_EQ(peek(10, 0), 10);
    EXPECT_EQ(begin_of_buffer(11), "abcdefghij#");
    EXPECT_EQ(peek(4, 0), 4);
    EXPECT_EQ(play.receives(), 2);
    EXPECT_EQ(stream_.rest(), "abcdefghij");
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_P(ExactPeek, ends_in_time_where_there_are_fewer_bytes) {
    stream_.feed("abcd");
    for (const int32_t timeout : {0, 1, 25}) {
        SCOPED_TRACE(timeout);
        LogCapture log(1);
        const Play play(stream_, {});
        EXPECT_EQ(peek(10, timeout), -ETIME);
        EXPECT_EQ(errno, ETIME);
        EXPECT_EQ(play.receives(), timeout + 1);  // until more than that has passed
        EXPECT_THAT(log.messages(), ElementsAre(timed_out(10, 4)));
    }
    EXPECT_EQ(stream_.rest(), "abcd");
}

TEST_P(ExactPeek, waits_for_bytes_that_come_later) {
    const Play play(stream_, {"", "", "", "abcdef"});
    EXPECT_EQ(peek(6, 100), 6);
    EXPECT_EQ(begin_of_buffer(7), "abcdef#");
    EXPECT_EQ(play.receives(), 4);
    EXPECT_EQ(stream_.rest(), "abcdef");
}

TEST_P(ExactPeek, goes_on_until_the_time_is_over_when_nothing_can_be_had) {
    LogCapture log(1);
    {
        const Play play(stream_, {});
        EXPECT_EQ(peek(4, 3), -ETIME);
        EXPECT_EQ(play.receives(), 4);
    }
    stream_.end();
    {
        const Play play(stream_, {});
        EXPECT_EQ(peek(4, 3), -ETIME);
        EXPECT_EQ(play.receives(), 4);
    }
    EXPECT_EQ(errno, ETIME);
    EXPECT_THAT(log.messages(), ElementsAre(timed_out(4, -1), timed_out(4, 0)));
}

TEST_P(ExactPeek, is_not_ended_by_a_receive_that_fails) {
    const Play play(stream_, {"abcd"});
    const FailCall failing(Call::recv, EIO, 1, 5);
    int peeks = 0;
    Hook<SSL_peek> answer([&](SSL *ssl, void *buffer, int size) {
        const int result = SSL_peek(ssl, buffer, size);
        return ++peeks > 5 ? result : -1;
    });
    LogCapture log(1);
    EXPECT_EQ(peek(4, 100), 4);
    EXPECT_EQ(begin_of_buffer(5), "abcd#");
    EXPECT_EQ(play.receives(), 6);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_P(ExactPeek, refuses_a_negative_length_without_receiving) {
    stream_.feed("abcd");
    for (const int32_t length : {-1, INT_MIN}) {
        const BeforeReceive before(stream_, [] {});
        LogCapture log(1);
        EXPECT_EQ(peek(length, 100), -EINVAL);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(before.receives(), 0);
        EXPECT_THAT(log.messages(), ElementsAre("[error] Exactly_SSL_Peek(#): Can't receive error (-22, 22)!\n"));
    }
    EXPECT_EQ(begin_of_buffer(4), "####");
}

TEST_P(ExactPeek, has_nothing_to_wait_for_with_a_length_of_0) {
    stream_.feed("abcd");
    EXPECT_EQ(peek(0, 100), 0);
    EXPECT_EQ(begin_of_buffer(4), "####");
    EXPECT_EQ(stream_.rest(), "abcd");
}

TEST_P(ExactPeek, waits_for_something_to_look_at_with_a_length_of_0) {
    LogCapture log(1);
    EXPECT_EQ(peek(0, 5), -ETIME);
    EXPECT_THAT(log.messages(), ElementsAre(timed_out(0, -1)));
    stream_.end();
    EXPECT_EQ(peek(0, 5), 0);
}

TEST_P(ExactPeek, waits_for_ever_with_a_negative_time_out) {
    for (const int32_t timeout : {-1, INT_MIN}) {
        Script script(50);
        script.push_back("abcd");
        Play play(stream_, script);
        play.milliseconds_a_receive = 40'000'000'000;  // more than a year
        EXPECT_EQ(peek(4, timeout), 4);
        EXPECT_EQ(play.receives(), 51);
        EXPECT_EQ(stream_.rest(), "abcd");
    }
}

TEST_P(ExactPeek, takes_a_clock_that_is_set_back_for_the_end_of_its_time) {
    Play play(stream_, {});
    play.milliseconds_a_receive = -1;
    EXPECT_EQ(peek(4, INT_MAX), -ETIME);
    EXPECT_EQ(play.receives(), 1);
}

using PlainPeek = TlsTest;

TEST_F(PlainPeek, sees_all_that_has_come) {
    Stream stream(Kind::plain);
    FencedBuffer buffer(10);
    const Play play(stream, {"abcd", "efghij"});
    EXPECT_EQ(Exactly_SSL_Peek(stream.record(), buffer.data(), 10, 100), 10);
    EXPECT_EQ(buffer.text(), "abcdefghij");
    EXPECT_EQ(play.receives(), 2);
}

using TlsPeek = TlsTest;

// OpenSSL shows no more than what the peer sent at once.
TEST_F(TlsPeek, sees_no_further_than_one_record) {
    Stream stream(Kind::tls);
    FencedBuffer buffer(10);
    const Play play(stream, {"abcd", "efghij"});
    EXPECT_EQ(Exactly_SSL_Peek(stream.record(), buffer.data(), 10, 100), -ETIME);
    EXPECT_EQ(Exactly_SSL_Recv(stream.record(), buffer.data(), 10, 100), 10);
    EXPECT_EQ(buffer.text(), "abcdefghij");
}
