// Receiving exact numbers of bytes.
#include <gmock/gmock.h>

#include <thread>
#include <vector>

#include "socket_world.h"
#include "stream_pair.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// In tests where the time-out plays no part.
constexpr int32_t kForever = -1;

std::string receive_error(int error) {
    const std::string text = std::to_string(error);
    return "[error] Exactly_Recv(#): Can't receive error (-" + text + ", " + text + ")!\n";
}

std::string timed_out(int32_t wanted, int32_t got, int error) {
    return "[error] Exactly_Recv(#): Exactly_SSL_Recv() timeout! Want " + std::to_string(wanted) + " bytes, got " +
           std::to_string(got) + " bytes! (" + std::to_string(error) + ")\n";
}

class ExactlyRecv : public SocketTest {
  protected:
    int32_t receive(int32_t length, int32_t timeout = kForever) {
        buffer_.assign(64, '.');
        return Exactly_Recv(stream_.out, buffer_.data(), length, timeout);
    }
    // What was received: the buffer up to where it is as it was.
    std::string text() const {
        EXPECT_EQ(buffer_.find_last_not_of('.'), buffer_.find('.') - 1);
        return buffer_.substr(0, buffer_.find('.'));
    }

    Stream stream_;
    LogCapture log_;
    std::string buffer_;
};

}  // namespace

TEST_F(ExactlyRecv, takes_as_many_as_it_is_told_and_leaves_the_rest) {
    stream_.put("0123456789");
    EXPECT_EQ(receive(4), 4);
    EXPECT_EQ(text(), "0123");
    EXPECT_EQ(receive(1), 1);
    EXPECT_EQ(text(), "4");
    EXPECT_EQ(stream_.take(), "56789");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlyRecv, receives_nothing_for_a_length_below_1) {
    stream_.put("x");
    const CountCalls calls(Call::recv);
    for (const int32_t length : {0, -1, INT32_MIN})
        for (const int32_t timeout : {0, 100, -1}) {
            EXPECT_EQ(receive(length, timeout), 0);
            EXPECT_EQ(text(), "");
            EXPECT_EQ(Exactly_Recv(kClosed, nullptr, length, timeout), 0);
        }
    EXPECT_EQ(calls.count(), 0);
    EXPECT_EQ(stream_.take(), "x");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlyRecv, asks_for_the_rest_each_time) {
    std::vector<size_t> asked;
    const BeforeCall look(Call::recv, 0, [&](const Arguments &arguments) {
        EXPECT_EQ(arguments.at<int>(0), stream_.out);
        EXPECT_EQ(arguments.at<char *>(1), buffer_.data() + 20 - arguments.at<size_t>(2));
        EXPECT_EQ(arguments.at<int>(3), 0);
        asked.push_back(arguments.at<size_t>(2));
        stream_.put(std::string(asked.size(), static_cast<char>('0' + asked.size())));
    });
    EXPECT_EQ(receive(20), 20);
    EXPECT_THAT(asked, ElementsAre(20, 19, 17, 14, 10, 5));
    EXPECT_EQ(text(), "12233344445555566666");
    EXPECT_EQ(stream_.take(), "6");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlyRecv, waits_for_a_slow_sender_of_single_bytes) {
    for (const Kind kind : {Kind::local, Kind::tcp}) {
        SCOPED_TRACE(name_of(kind));
        const std::string sent = "a slow sender's text, a byte at a time";
        const Stream stream(kind);
        std::thread sender([&] {
            for (const char byte : sent) {
                stream.put(std::string(1, byte));
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        std::string received(sent.size(), '.');
        EXPECT_EQ(Exactly_Recv(stream.out, received.data(), static_cast<int32_t>(sent.size()), 0),
                  static_cast<int32_t>(sent.size()));
        sender.join();
        EXPECT_EQ(received, sent);
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlyRecv, gives_up_on_a_closed_peer_once_more_than_the_time_has_passed) {
    const struct {
        int32_t timeout;
        int receives;
    } table[] = {{0, 2}, {19, 2}, {20, 3}, {29, 3}, {30, 4}, {100, 11}, {10'000, 1001}};

    for (const auto &row : table)
        for (const int error : {0, EXDEV}) {
            SCOPED_TRACE(testing::Message() << row.timeout << ", error " << error);
            Stream stream;
            stream.put("01234");
            stream.in.reset();
            char buffer[11] = "..........";
            FakeClock clock(kNow);
            const CountCalls receives(Call::recv);
            const BeforeCall tick(Call::recv, 0, [&] { clock.advance(10); });

            errno = error;
            EXPECT_EQ(Exactly_Recv(stream.out, buffer, 10, row.timeout), -62);
            EXPECT_EQ(errno, ETIME);
            EXPECT_EQ(receives.count(), row.receives);
            EXPECT_STREQ(buffer, "01234.....");
            EXPECT_EQ(clock.sleeps(), 0);
            EXPECT_THAT(log_.messages(), ElementsAre(timed_out(10, 5, error)));
            log_.clear();
        }
}

TEST_F(ExactlyRecv, gives_up_on_a_closed_peer_in_real_time) {
    for (const Kind kind : {Kind::local, Kind::tcp}) {
        Stream stream(kind);
        stream.put("01234");
        stream.in.reset();
        char buffer[10];
        errno = 0;
        EXPECT_GE(time_of([&] { EXPECT_EQ(Exactly_Recv(stream.out, buffer, 10, 60), -62); }).count(), 60);
        EXPECT_THAT(log_.messages(), ElementsAre(timed_out(10, 5, 0)));
        log_.clear();
    }
}

TEST_F(ExactlyRecv, looks_at_the_time_only_after_receiving_nothing) {
    FakeClock clock(kNow);
    const BeforeCall trickle(Call::recv, 0, [&] {
        clock.advance(1'000'000);
        stream_.put("x");
    });
    EXPECT_EQ(receive(5, 0), 5);
    EXPECT_EQ(text(), "xxxxx");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlyRecv, goes_on_after_receiving_nothing_for_a_while) {
    FakeClock clock(kNow);
    stream_.put("0123");
    const BeforeCall tick(Call::recv, 0, [&] {
        clock.advance(10);
        stream_.put("x");
    });
    const AnswerCall nothing(Call::recv, 0, 2, 4);
    const CountCalls receives(Call::recv);
    EXPECT_EQ(receive(10, 50), 10);
    EXPECT_EQ(receives.count(), 6);
    EXPECT_EQ(text(), "0123xxxxxx");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlyRecv, a_negative_time_never_ends) {
    stream_.put("x");
    stream_.in.reset();
    for (const int32_t timeout : {-1, -50, INT32_MIN}) {
        SCOPED_TRACE(timeout);
        constexpr int64_t year = 365ll * 24 * 60 * 60 * 1000;
        FakeClock clock(kNow);
        const BeforeCall each(Call::recv, 0, [&] { clock.advance(year); });
        const FailCall end(Call::recv, EIO, 31);
        EXPECT_EQ(receive(10, timeout), -EIO);
        EXPECT_EQ(end.failed(), 1);
        EXPECT_THAT(log_.messages(), ElementsAre(receive_error(EIO)));
        log_.clear();
    }
}

TEST_F(ExactlyRecv, a_clock_that_is_set_back_is_a_time_out) {
    stream_.in.reset();
    FakeClock clock(kNow);
    const BeforeCall set_back(Call::recv, 2, [&] { clock.advance(-1000); });
    const CountCalls receives(Call::recv);
    errno = 0;
    EXPECT_EQ(receive(10, INT32_MAX), -62);
    EXPECT_EQ(receives.count(), 2);
    EXPECT_THAT(log_.messages(), ElementsAre(timed_out(10, 0, 0)));
}

TEST_F(ExactlyRecv, the_largest_length_is_asked_for_at_once) {
    const Reservation reservation(INT32_MAX);
    stream_.put("01234");
    stream_.in.reset();
    std::vector<size_t> asked;
    FakeClock clock(kNow);
    const BeforeCall look(Call::recv, 0, [&](const Arguments &arguments) {
        clock.advance(1);
        asked.push_back(arguments.at<size_t>(2));
    });
    errno = 0;
    EXPECT_EQ(Exactly_Recv(stream_.out, reservation.data(), INT32_MAX, 2), -62);
    EXPECT_THAT(asked, ElementsAre(INT32_MAX, INT32_MAX - 5, INT32_MAX - 5));
    EXPECT_EQ(std::string(reservation.data()), "01234");
    EXPECT_THAT(log_.messages(), ElementsAre(timed_out(INT32_MAX, 5, 0)));
}

TEST_F(ExactlyRecv, any_error_ends_it_at_once_and_leaves_what_had_come) {
    for (const int error : {EAGAIN, EINTR, EIO, ECONNRESET}) {
        SCOPED_TRACE(error);
        stream_.put("01234");
        FakeClock clock(kNow);
        const BeforeCall tick(Call::recv, 0, [&] { clock.advance(1000); });
        const FailCall fault(Call::recv, error, 2);
        EXPECT_EQ(receive(10, 0), -error);
        EXPECT_EQ(text(), "01234");
        EXPECT_THAT(log_.messages(), ElementsAre(receive_error(error)));
        log_.clear();
    }
}

TEST_F(ExactlyRecv, gives_the_errors_of_real_sockets) {
    const Pipe pipe;
    char buffer[10];
    Stream reset(Kind::tcp);
    const linger at_once{1, 0};
    ASSERT_EQ(setsockopt(reset.in, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once), 0);
    reset.in.reset();
    const Connection empty;
    const struct {
        int socket;
        int error;
    } table[] = {{empty.out, EAGAIN}, {reset.out, ECONNRESET}, {kClosed, EBADF}, {-1, EBADF}, {pipe.out, ENOTSOCK}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.error);
        EXPECT_EQ(Exactly_Recv(row.socket, buffer, 10, 60'000), -row.error);
        EXPECT_THAT(log_.messages(), ElementsAre(receive_error(row.error)));
        log_.clear();
    }
}

TEST_F(ExactlyRecv, the_time_out_of_the_socket_ends_it) {
    stream_.put("01234");
    const timeval time{0, 60'000};
    ASSERT_EQ(setsockopt(stream_.out, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time), 0);
    EXPECT_GE(time_of([&] { EXPECT_EQ(receive(10, 60'000), -11); }).count(), 59);
    EXPECT_EQ(text(), "01234");
    EXPECT_THAT(log_.messages(), ElementsAre(receive_error(EAGAIN)));
}

TEST_F(ExactlyRecv, a_signal_ends_it) {
    stream_.put("01234");
    {
        const Interruptions interruptions;
        EXPECT_EQ(receive(10), -4);
    }
    EXPECT_EQ(text(), "01234");
    EXPECT_THAT(log_.messages(), ElementsAre(receive_error(EINTR)));
}

TEST_F(ExactlyRecv, logs_errors_from_level_1) {
    stream_.in.reset();
    for (const int32_t level : {0, 1, 2}) {
        LogCapture log(level);
        EXPECT_EQ(receive(10, 0), -62);
        EXPECT_EQ(Exactly_Recv(kClosed, buffer_.data(), 10, 0), -EBADF);
        EXPECT_THAT(log.messages(), SizeIs(level == 0 ? 0 : 2));
    }
}
