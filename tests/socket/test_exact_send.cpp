// Sending exact numbers of bytes.
#include <gmock/gmock.h>

#include <csignal>
#include <thread>
#include <vector>

#include "socket_world.h"
#include "stream_pair.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::string send_error(int error) {
    return "[error] Exactly_Send(#): Can't send error! (-" + std::to_string(error) + ")\n";
}

class ExactlySend : public SocketTest {
  protected:
    Stream stream_;
    LogCapture log_;
};

}  // namespace

TEST_F(ExactlySend, sends_all_and_returns_the_count) {
    EXPECT_EQ(Exactly_Send(stream_.in, "0123456789", 10, 0), 10);
    EXPECT_EQ(stream_.take(), "0123456789");
    EXPECT_EQ(Exactly_Send(stream_.in, "x", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(stream_.take(), "x");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlySend, nothing_is_sent_at_once) {
    const CountCalls calls(Call::send);
    EXPECT_EQ(Exactly_Send(stream_.in, "x", 0, 0), 0);
    EXPECT_EQ(Exactly_Send(kClosed, nullptr, 0, MSG_OOB), 0);
    EXPECT_EQ(calls.count(), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlySend, passes_the_rest_and_the_flags_on_and_returns_what_was_sent) {
    const char data[] = "0123456789";
    for (const uint32_t flags : {0u, 0x4000u, 0x4040u, 0x8001u, 0x7fffffffu, 0xffffffffu}) {
        SCOPED_TRACE(flags);
        std::vector<size_t> asked;
        const BeforeCall look(Call::send, 0, [&](const Arguments &arguments) {
            asked.push_back(arguments.at<size_t>(2));
            EXPECT_EQ(arguments.at<int>(0), stream_.in);
            EXPECT_EQ(arguments.at<const char *>(1), data + 10 - asked.back());
            EXPECT_EQ(arguments.at<uint32_t>(3), flags);
        });
        const AnswerCall three_each(Call::send, 3, 1, 4);
        EXPECT_EQ(Exactly_Send(stream_.in, data, 10, flags), 12);
        EXPECT_THAT(asked, ElementsAre(10, 7, 4, 1));
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlySend, flags_have_their_effect) {
    const Stream stream(Kind::tcp);
    EXPECT_EQ(Exactly_Send(stream.in, "normal", 6, 0), 6);
    EXPECT_EQ(Exactly_Send(stream.in, "u", 1, MSG_OOB), 1);
    EXPECT_EQ(stream.take(), "normal");
    char urgent = 0;
    EXPECT_EQ(recv(stream.out, &urgent, 1, MSG_OOB), 1);
    EXPECT_EQ(urgent, 'u');
}

TEST_F(ExactlySend, repeats_a_send_of_nothing) {
    const AnswerCall nothing(Call::send, 0, 1, 100);
    const CountCalls calls(Call::send);
    EXPECT_EQ(Exactly_Send(stream_.in, "0123456789", 10, 0), 10);
    EXPECT_EQ(calls.count(), 101);
    EXPECT_EQ(stream_.take(), "0123456789");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlySend, counts_beyond_32_bits) {
    constexpr uint64_t length = 5ull << 30;
    const Reservation reservation(length);
    std::vector<uint64_t> asked;
    const BeforeCall look(Call::send, 0, [&](const Arguments &arguments) {
        asked.push_back(arguments.at<uint64_t>(2));
        EXPECT_EQ(arguments.at<char *>(1), reservation.data() + length - asked.back());
    });
    const AnswerCall most(Call::send, INT32_MAX, 1, 3);
    EXPECT_EQ(Exactly_Send(stream_.in, reservation.data(), length, 0), 3ll * INT32_MAX);
    EXPECT_THAT(asked, ElementsAre(length, length - INT32_MAX, length - 2ull * INT32_MAX));
}

TEST_F(ExactlySend, waits_for_a_slow_receiver) {
    for (const Kind kind : {Kind::local, Kind::tcp}) {
        SCOPED_TRACE(name_of(kind));
        const Stream stream(kind);
        constexpr size_t size = 3'000'000;
        std::string sent(size, '\0');
        for (size_t i = 0; i < size; i++)
            sent[i] = static_cast<char>(i * 31 + i / 256);
        std::string received;
        std::thread receiver([&] {
            while (received.size() < size) {
                received += stream.take();
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        EXPECT_EQ(Exactly_Send(stream.in, sent.data(), size, 0), static_cast<int64_t>(size));
        receiver.join();
        EXPECT_TRUE(received == sent);
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(ExactlySend, a_full_socket_that_does_not_wait_ends_it) {
    const Connection connection;
    const std::string data(10'000'000, 'd');
    EXPECT_EQ(Exactly_Send(connection.in, data.data(), data.size(), 0), -11);
    EXPECT_GT(connection.take().size(), 0u);
    EXPECT_THAT(log_.messages(), ElementsAre(send_error(EAGAIN)));

    log_.clear();
    const std::string more(10'000'000, 'd');
    EXPECT_EQ(Exactly_Send(stream_.in, more.data(), more.size(), MSG_DONTWAIT), -11);
    EXPECT_THAT(log_.messages(), ElementsAre(send_error(EAGAIN)));
}

TEST_F(ExactlySend, the_time_out_of_the_socket_ends_it) {
    const timeval time{0, 60'000};
    ASSERT_EQ(setsockopt(stream_.in, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time), 0);
    const std::string data(10'000'000, 'd');
    EXPECT_GE(time_of([&] { EXPECT_EQ(Exactly_Send(stream_.in, data.data(), data.size(), 0), -11); }).count(), 59);
    EXPECT_THAT(log_.messages(), ElementsAre(send_error(EAGAIN)));
}

TEST_F(ExactlySend, a_signal_ends_it) {
    fill(stream_.in);
    {
        const Interruptions interruptions;
        EXPECT_EQ(Exactly_Send(stream_.in, "x", 1, 0), -4);
    }
    EXPECT_THAT(log_.messages(), ElementsAre(send_error(EINTR)));
}

TEST_F(ExactlySend, any_error_ends_it_and_leaves_what_was_sent) {
    for (const int error : {EAGAIN, EINTR, EIO, ENOBUFS}) {
        SCOPED_TRACE(error);
        const FailCall fault(Call::send, error, 2);
        const AnswerCall a_part(Call::send, 4);
        EXPECT_EQ(Exactly_Send(stream_.in, "0123456789", 10, 0), -error);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_THAT(log_.messages(), ElementsAre(send_error(error)));
        log_.clear();
    }
}

TEST_F(ExactlySend, gives_the_errors_of_real_sockets) {
    const Pipe pipe;
    const Descriptor unconnected(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    stream_.out.reset();
    const struct {
        int socket;
        int error;
    } table[] = {{stream_.in, EPIPE}, {unconnected, EPIPE}, {kClosed, EBADF}, {-1, EBADF}, {pipe.in, ENOTSOCK}};

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.socket << ", " << row.error);
        EXPECT_EQ(Exactly_Send(row.socket, "x", 1, MSG_NOSIGNAL), -row.error);
        EXPECT_THAT(log_.messages(), ElementsAre(send_error(row.error)));
        log_.clear();
    }
}

TEST_F(ExactlySend, a_peer_that_is_gone_raises_the_signal_as_send_does) {
    stream_.out.reset();
    EXPECT_EQ(in_child([&] {
                  Exactly_Send(stream_.in, "x", 1, 0);
                  return 0;
              }),
              128 + SIGPIPE);
    EXPECT_EQ(in_child([&] {
                  std::signal(SIGPIPE, SIG_IGN);
                  return Exactly_Send(stream_.in, "x", 1, 0) == -32 ? 0 : 1;
              }),
              0);
}

TEST_F(ExactlySend, a_peer_that_closes_half_way_ends_it) {
    for (const Kind kind : {Kind::local, Kind::tcp}) {
        SCOPED_TRACE(name_of(kind));
        Stream stream(kind);
        std::thread receiver([&] {
            stream.take();
            stream.out.reset();
        });
        const std::string data(30'000'000, 'd');
        const int64_t result = Exactly_Send(stream.in, data.data(), data.size(), MSG_NOSIGNAL);
        receiver.join();
        EXPECT_TRUE(result == -EPIPE || result == -ECONNRESET) << result;
        EXPECT_THAT(log_.messages(), ElementsAre(send_error(static_cast<int>(-result))));
        log_.clear();
    }
}

TEST_F(ExactlySend, logs_errors_from_level_1) {
    for (const int32_t level : {0, 1, 2}) {
        LogCapture log(level);
        EXPECT_EQ(Exactly_Send(kClosed, "x", 1, 0), -EBADF);
        EXPECT_THAT(log.messages(), SizeIs(level == 0 ? 0 : 1));
    }
}
