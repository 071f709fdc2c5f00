// Waiting for one socket.
#include <gmock/gmock.h>
#include <sys/select.h>

#include <cerrno>
#include <climits>
#include <optional>
#include <thread>
#include <vector>

#include "socket_world.h"
#include "stream_pair.h"

using namespace socket_test;
using testing::IsEmpty;

namespace {

using Wait = int32_t (*)(int32_t, int32_t);

constexpr int32_t kLongTime = 100'000;

// Tells whether a set of any size holds one descriptor and no other below `count`. Its layout is the kernel's.
bool holds_alone(const fd_set *set, int descriptor, int count) {
    constexpr int bits = sizeof(unsigned long) * CHAR_BIT;
    const auto *words = reinterpret_cast<const unsigned long *>(set);
    for (int i = 0; i < count; i++)
        if ((words[i / bits] >> (i % bits) & 1) != (i == descriptor))
            return false;
    return descriptor < count;
}

// What `select` was asked for.
struct Question {
    bool to_read;
    bool to_write;
    std::optional<Time> time;
};

Question question_of(Wait wait, int descriptor, int32_t timeout) {
    Question question{};
    const BeforeCall look(Call::select, 1, [&](const Arguments &arguments) {
        const auto holds = [&](size_t place) {
            const auto *set = arguments.at<const fd_set *>(place);
            return set != nullptr && holds_alone(set, descriptor, arguments.at<int>(0));
        };
        const auto *time = arguments.at<const timeval *>(4);
        question = {holds(1), holds(2), std::nullopt};
        if (time != nullptr)
            question.time.emplace(*time);
        EXPECT_EQ(arguments.at<void *>(question.to_read ? 2 : 1), nullptr);
        EXPECT_EQ(arguments.at<void *>(3), nullptr);
    });
    const AnswerCall nothing_ready(Call::select, 0);
    EXPECT_EQ(wait(descriptor, timeout), 0);
    EXPECT_TRUE(look.ran());
    return question;
}

using Readiness = SocketTest;

}  // namespace

TEST_F(Readiness, tells_what_can_be_received) {
    for (const Kind kind : {Kind::local, Kind::tcp}) {
        SCOPED_TRACE(name_of(kind));
        Stream stream(kind);
        EXPECT_EQ(Is_Socket_Ready_To_Recv(stream.out, 0), 0);
        EXPECT_EQ(Is_Socket_Ready_To_Recv(stream.out, 20), 0);

        stream.put("x");
        EXPECT_EQ(Is_Socket_Ready_To_Recv(stream.out, kLongTime), 1);
        EXPECT_EQ(Is_Socket_Ready_To_Recv(stream.out, 0), 1);
        EXPECT_EQ(stream.take(), "x");
        EXPECT_EQ(Is_Socket_Ready_To_Recv(stream.out, 0), 0);

        stream.in.reset();
        EXPECT_EQ(Is_Socket_Ready_To_Recv(stream.out, kLongTime), 1);
    }
}

TEST_F(Readiness, tells_what_takes_something_to_send) {
    for (const Kind kind : {Kind::local, Kind::tcp}) {
        SCOPED_TRACE(name_of(kind));
        Stream stream(kind);
        EXPECT_EQ(Is_Socket_Ready_To_Send(stream.in, 0), 1);
        EXPECT_EQ(Is_Socket_Ready_To_Send(stream.in, kLongTime), 1);

        size_t left = fill(stream.in);
        EXPECT_EQ(Is_Socket_Ready_To_Send(stream.in, 0), 0);
        EXPECT_EQ(Is_Socket_Ready_To_Send(stream.in, 20), 0);
        EXPECT_EQ(Is_Socket_Ready_To_Recv(stream.in, 0), 0);

        while (left > 0)
            left -= stream.take().size();
        EXPECT_EQ(Is_Socket_Ready_To_Send(stream.in, kLongTime), 1);
    }
}

TEST_F(Readiness, asks_for_its_descriptor_alone_and_splits_the_time) {
    const Stream stream;
    const struct {
        int32_t timeout;
        Time time;
    } table[] = {{0, {0, 0}},    {1, {0, 1000}},       {999, {0, 999'000}},
                 {1000, {1, 0}}, {2500, {2, 500'000}}, {INT32_MAX, {2'147'483, 647'000}}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.timeout);
        const Question received = question_of(Is_Socket_Ready_To_Recv, stream.out, row.timeout);
        EXPECT_TRUE(received.to_read && !received.to_write);
        EXPECT_EQ(received.time, row.time);

        const Question sent = question_of(Is_Socket_Ready_To_Send, stream.out, row.timeout);
        EXPECT_TRUE(sent.to_write && !sent.to_read);
        EXPECT_EQ(sent.time, row.time);
    }
}

TEST_F(Readiness, a_negative_time_is_no_limit_for_receiving_and_is_passed_for_sending) {
    const Stream stream;
    const struct {
        int32_t timeout;
        Time time;
    } table[] = {{-1, {0, -1000}}, {-1000, {-1, 0}}, {-2500, {-2, -500'000}}, {INT32_MIN, {-2'147'483, -648'000}}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.timeout);
        EXPECT_EQ(question_of(Is_Socket_Ready_To_Recv, stream.out, row.timeout).time, std::nullopt);
        EXPECT_EQ(question_of(Is_Socket_Ready_To_Send, stream.out, row.timeout).time, row.time);
        EXPECT_EQ(Is_Socket_Ready_To_Send(stream.in, row.timeout), -22);
    }
}

TEST_F(Readiness, waits_for_as_long_as_it_is_told) {
    const Stream stream;
    fill(stream.in);
    const Stream silent;
    EXPECT_GE(time_of([&] { EXPECT_EQ(Is_Socket_Ready_To_Recv(silent.out, 1'100), 0); }).count(), 1'099);
    EXPECT_GE(time_of([&] { EXPECT_EQ(Is_Socket_Ready_To_Send(stream.in, 60), 0); }).count(), 59);
}

TEST_F(Readiness, ends_the_wait_when_something_happens) {
    for (const int32_t timeout : {INT32_MAX, -1, INT32_MIN}) {
        SCOPED_TRACE(timeout);
        const Stream stream;
        std::thread peer([&] { stream.put("x"); });
        EXPECT_EQ(Is_Socket_Ready_To_Recv(stream.out, timeout), 1);
        peer.join();
    }

    const Stream stream;
    size_t left = fill(stream.in);
    std::thread peer([&] {
        while (left > 0)
            left -= stream.take().size();
    });
    EXPECT_EQ(Is_Socket_Ready_To_Send(stream.in, INT32_MAX), 1);
    peer.join();
}

TEST_F(Readiness, takes_a_descriptor_of_any_number) {
    const Stream stream;
    const Descriptor high_out(as_high_number(stream.out));
    const Descriptor high_in(as_high_number(stream.in));
    ASSERT_GE(high_out, 2000);

    EXPECT_TRUE(question_of(Is_Socket_Ready_To_Recv, high_out, 0).to_read);
    EXPECT_TRUE(question_of(Is_Socket_Ready_To_Send, high_in, 0).to_write);
    EXPECT_EQ(Is_Socket_Ready_To_Recv(high_out, 0), 0);
    EXPECT_EQ(Is_Socket_Ready_To_Send(high_in, 0), 1);
    stream.put("x");
    EXPECT_EQ(Is_Socket_Ready_To_Recv(high_out, 0), 1);
    fill(stream.in);
    EXPECT_EQ(Is_Socket_Ready_To_Send(high_in, 0), 0);
    EXPECT_EQ(Is_Socket_Ready_To_Recv(high_out - 1, 0), -EBADF);
    EXPECT_EQ(Is_Socket_Ready_To_Send(high_out - 1, 0), -EBADF);
}

TEST_F(Readiness, gives_the_error_of_select_without_a_message) {
    LogCapture log;
    const Stream stream;
    fill(stream.in);
    for (const Wait wait : {Is_Socket_Ready_To_Recv, Is_Socket_Ready_To_Send}) {
        for (const int descriptor : {kClosed, -1, -100, INT32_MIN})
            EXPECT_EQ(wait(descriptor, 0), -EBADF) << descriptor;
        const FailCall fault(Call::select, ENOMEM);
        EXPECT_EQ(wait(stream.in, 0), -ENOMEM);
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(Readiness, leaves_the_error_in_errno_and_refuses_a_negative_time_first) {
    for (const int descriptor : {-1, INT32_MIN, INT32_MAX, INT32_MAX - 1, 1 << 30}) {
        SCOPED_TRACE(descriptor);
        for (const Wait wait : {Is_Socket_Ready_To_Recv, Is_Socket_Ready_To_Send}) {
            errno = 0;
            EXPECT_EQ(wait(descriptor, 0), -EBADF);
            EXPECT_EQ(errno, EBADF);
        }
        errno = 0;
        EXPECT_EQ(Is_Socket_Ready_To_Recv(descriptor, -1), -EBADF);
        EXPECT_EQ(errno, EBADF);
    }
    for (const int descriptor : {-1, INT32_MIN}) {
        errno = 0;
        EXPECT_EQ(Is_Socket_Ready_To_Send(descriptor, -1), -EINVAL);
        EXPECT_EQ(Is_Socket_Ready_To_Send(descriptor, -1000), -EINVAL);
        EXPECT_EQ(errno, EINVAL);
    }
}

// A set for all numbers below it would take 256 MiB.
TEST_F(Readiness, asks_for_no_memory_where_a_large_number_is_no_descriptor) {
    const CountCalls allocations(Call::allocation);
    EXPECT_EQ(Is_Socket_Ready_To_Recv(INT32_MAX, 0), -EBADF);
    EXPECT_EQ(Is_Socket_Ready_To_Send(INT32_MAX, 0), -EBADF);
    EXPECT_EQ(allocations.count(), 0);
}

TEST_F(Readiness, a_signal_ends_the_wait) {
    const Stream stream;
    fill(stream.in);
    const Stream silent;

    const Interruptions interruptions;
    EXPECT_EQ(Is_Socket_Ready_To_Recv(silent.out, -1), -4);
    EXPECT_EQ(Is_Socket_Ready_To_Recv(silent.out, kLongTime), -4);
    EXPECT_EQ(Is_Socket_Ready_To_Send(stream.in, kLongTime), -4);
}

TEST_F(Readiness, threads_wait_on_sockets_of_their_own_at_once) {
    constexpr size_t count = 8;
    const Stream streams[count];
    std::vector<std::thread> threads;
    for (const Stream &stream : streams)
        threads.emplace_back([&stream] { EXPECT_EQ(Is_Socket_Ready_To_Recv(stream.out, kLongTime), 1); });
    for (size_t i = count; i > 0; i--)
        streams[i - 1].put("x");
    for (std::thread &thread : threads)
        thread.join();
}
