// Waiting for any of some sockets.
#include <gmock/gmock.h>
#include <poll.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include "socket_world.h"
#include "stream_pair.h"

using namespace socket_test;
using testing::IsEmpty;

namespace {

constexpr int32_t kLongTime = 100'000;

class AnySocketReady : public SocketTest {
  protected:
    // Several streams, of which some get something to read.
    explicit AnySocketReady(size_t count = 16) {
        for (size_t i = 0; i < count; i++) {
            streams_.push_back(std::make_unique<Stream>());
            list_.push_back(streams_.back()->out);
        }
    }
    int32_t ask(int32_t count, int32_t timeout = 0) {
        return Is_Any_Socket_Ready(list_.data(), count, timeout, &ready_, &index_);
    }

    std::vector<std::unique_ptr<Stream>> streams_;
    std::vector<int32_t> list_;
    int32_t ready_ = kUntouched;
    int32_t index_ = kUntouched;
};

}  // namespace

TEST_F(AnySocketReady, reports_the_first_one_in_the_order_of_the_list) {
    streams_[1]->put("x");
    streams_[2]->put("x");
    EXPECT_EQ(ask(3), 1);
    EXPECT_EQ(ready_, list_[1]);
    EXPECT_EQ(index_, 1);

    std::reverse(list_.begin(), list_.begin() + 3);
    EXPECT_EQ(ask(3), 1);
    EXPECT_EQ(ready_, list_[0]);
    EXPECT_EQ(index_, 0);
}

TEST_F(AnySocketReady, looks_at_each_of_up_to_16) {
    for (int32_t i = 15; i >= 0; i--) {
        SCOPED_TRACE(i);
        streams_[i]->put("x");
        EXPECT_EQ(ask(16, kLongTime), 1);
        EXPECT_EQ(ready_, list_[i]);
        EXPECT_EQ(index_, i);
        EXPECT_EQ(ask(i + 1), 1);

        ready_ = index_ = kUntouched;
        if (i > 0) {
            EXPECT_EQ(ask(i), 0);
        }
        EXPECT_EQ(ready_, kUntouched);
        EXPECT_EQ(index_, kUntouched);
    }
}

TEST_F(AnySocketReady, asks_for_what_can_be_read_and_passes_the_time) {
    for (const int32_t timeout : {0, 1, 2500, INT32_MAX, -1, -2500, INT32_MIN})
        for (const size_t count : {1u, 2u, 16u}) {
            SCOPED_TRACE(testing::Message() << count << " sockets, " << timeout);
            const BeforeCall look(Call::poll, 1, [&](const Arguments &arguments) {
                ASSERT_EQ(arguments.at<nfds_t>(1), count);
                EXPECT_EQ(arguments.at<int>(2), timeout);
                for (size_t i = 0; i < count; i++) {
                    EXPECT_EQ(arguments.at<const pollfd *>(0)[i].fd, list_[i]);
                    EXPECT_EQ(arguments.at<const pollfd *>(0)[i].events, 0x41);
                }
            });
            const AnswerCall nothing_ready(Call::poll, 0);
            EXPECT_EQ(ask(static_cast<int32_t>(count), timeout), 0);
            EXPECT_TRUE(look.ran());
        }
    EXPECT_EQ(ready_, kUntouched);
    EXPECT_EQ(index_, kUntouched);
}

TEST_F(AnySocketReady, reports_any_event) {
    Pipe hung_up;
    hung_up.in.reset();
    Pipe unread;
    unread.out.reset();
    Stream closed;
    closed.in.reset();

    for (const int descriptor : {+hung_up.out, +unread.in, +closed.out, kClosed}) {
        SCOPED_TRACE(descriptor);
        list_[2] = descriptor;
        EXPECT_EQ(ask(4, kLongTime), 1);
        EXPECT_EQ(ready_, descriptor);
        EXPECT_EQ(index_, 2);
    }
}

TEST_F(AnySocketReady, passes_over_negative_descriptors) {
    list_[0] = -1;
    list_[1] = INT32_MIN;
    EXPECT_EQ(ask(2), 0);
    streams_[3]->put("x");
    EXPECT_EQ(ask(4, -1), 1);
    EXPECT_EQ(index_, 3);
}

TEST_F(AnySocketReady, needs_no_index_and_takes_any_number) {
    const Descriptor high(as_high_number(list_[1]));
    streams_[1]->put("x");
    list_[1] = high;
    EXPECT_EQ(Is_Any_Socket_Ready(list_.data(), 2, 0, &ready_, nullptr), 1);
    EXPECT_EQ(ready_, high);
}

TEST_F(AnySocketReady, waits_for_as_long_as_it_is_told_or_until_something_comes) {
    EXPECT_GE(time_of([&] { EXPECT_EQ(ask(16, 60), 0); }).count(), 59);
    std::thread peer([&] { streams_[5]->put("x"); });
    EXPECT_EQ(ask(16, -1), 1);
    peer.join();
    EXPECT_EQ(index_, 5);
}

TEST_F(AnySocketReady, bad_arguments_are_refused) {
    list_.push_back(list_[0]);
    streams_[0]->put("x");
    const CountCalls calls(Call::poll);
    for (const int32_t count : {0, 17, -1, INT32_MIN, INT32_MAX})
        EXPECT_EQ(ask(count), -22) << count;
    EXPECT_EQ(Is_Any_Socket_Ready(nullptr, 1, 0, &ready_, &index_), -22);
    EXPECT_EQ(Is_Any_Socket_Ready(list_.data(), 1, 0, nullptr, &index_), -22);
    EXPECT_EQ(calls.count(), 0);
    EXPECT_EQ(ready_, kUntouched);
    EXPECT_EQ(index_, kUntouched);
}

TEST_F(AnySocketReady, gives_the_error_of_poll_without_a_message) {
    LogCapture log;
    streams_[0]->put("x");
    const FailCall fault(Call::poll, ENOMEM);
    EXPECT_EQ(ask(2), -12);
    EXPECT_EQ(fault.failed(), 1);
    EXPECT_EQ(ready_, kUntouched);
    EXPECT_EQ(index_, kUntouched);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(AnySocketReady, finds_none_where_poll_counts_one_and_marks_none) {
    const AnswerCall answer(Call::poll, 1);
    EXPECT_EQ(ask(2), 0);
    EXPECT_EQ(ready_, kUntouched);
    EXPECT_EQ(index_, kUntouched);
}

TEST_F(AnySocketReady, a_signal_ends_the_wait) {
    const Interruptions interruptions;
    EXPECT_EQ(ask(16, -1), -4);
    EXPECT_EQ(ask(1, kLongTime), -4);
    EXPECT_EQ(ready_, kUntouched);
    EXPECT_EQ(index_, kUntouched);
}

TEST_F(AnySocketReady, threads_wait_on_sockets_of_their_own_at_once) {
    std::vector<std::thread> threads;
    for (int32_t i = 0; i < 16; i += 2)
        threads.emplace_back([this, i] {
            int32_t ready = kUntouched;
            int32_t index = kUntouched;
            EXPECT_EQ(Is_Any_Socket_Ready(&list_[i], 2, kLongTime, &ready, &index), 1);
            EXPECT_EQ(ready, list_[i + 1]);
            EXPECT_EQ(index, 1);
        });
    for (size_t i = streams_.size(); i > 0; i -= 2)
        streams_[i - 1]->put("x");
    for (std::thread &thread : threads)
        thread.join();
}
