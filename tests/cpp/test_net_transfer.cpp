// Exact transfer: peers that close early, are silent, or take nothing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "failure_of.h"
#include "faults.h"
#include "korvex/net.hpp"
#include "network.h"
#include "sandbox.h"

namespace {

using namespace std::chrono_literals;
using korvex::bytes_of;
using korvex::errc;
using korvex::transfer_error;
using support::failure_of;

// The failure of a transfer, and how far it came.
template <class Action>
transfer_error transfer_failure_of(const Action &action) {
    try {
        action();
    } catch (const transfer_error &failure) {
        return failure;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {0, "nothing", "thrown", 0, 0};
}

class Transfer : public testing::Test {
  protected:
    Transfer() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        near_ = korvex::socket(ends[0]);
        far_ = korvex::socket(ends[1]);
    }
    void end_far() { far_ = korvex::socket(); }
    std::string text() const { return {reinterpret_cast<const char *>(buffer_.data()), buffer_.size()}; }

    korvex::socket near_;
    korvex::socket far_;
    std::array<std::byte, 10> buffer_{};
};

TEST_F(Transfer, moves_all_in_any_pieces) {
    const std::string large(3'000'000, 'x');
    std::vector<std::byte> received(large.size());
    std::jthread sender([&] { korvex::send_all(far_, bytes_of(large)); });
    korvex::receive_exactly(near_, received, 60s);
    EXPECT_EQ(std::string_view(reinterpret_cast<const char *>(received.data()), received.size()), large);
}

TEST_F(Transfer, of_nothing_is_done_at_once) {
    EXPECT_EQ(korvex::receive_some(near_, {}), 0U);
    korvex::receive_exactly(near_, {}, 0ms);
    korvex::send_all(near_, {}, 0ms);
    EXPECT_EQ(korvex::receive_some(near_, buffer_, 0ms), std::nullopt);
}

TEST_F(Transfer, from_a_peer_that_closes_early_ends_at_once_and_tells_how_far_it_came) {
    korvex::send_all(far_, bytes_of("12345"));
    end_far();
    const transfer_error failure = transfer_failure_of([&] { korvex::receive_exactly(near_, buffer_); });
    EXPECT_EQ(failure.code(), errc::peer_closed);
    EXPECT_EQ(failure.code(), std::errc::connection_reset);
    EXPECT_EQ(failure.moved(), 5U);
    EXPECT_STREQ(failure.what(), "can't receive from 'peer': the peer closed the connection after 5 of 10 bytes");
    EXPECT_EQ(text().substr(0, 5), "12345");
    EXPECT_EQ(korvex::receive_some(near_, buffer_), 0U);
}

TEST_F(Transfer, from_a_silent_peer_ends_in_time) {
    korvex::send_all(far_, bytes_of("123"));
    const auto begin = std::chrono::steady_clock::now();
    const transfer_error failure = transfer_failure_of([&] { korvex::receive_exactly(near_, buffer_, 20ms); });
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
    EXPECT_EQ(failure.code(), errc::time_is_over);
    EXPECT_EQ(failure.code(), std::errc::timed_out);
    EXPECT_EQ(failure.moved(), 3U);
}

// A byte now and then does not keep a transfer alive beyond its limit.
TEST_F(Transfer, has_one_limit_for_all_of_it) {
    std::atomic<bool> ended = false;
    std::jthread dripping([&] {
        while (!ended) {
            korvex::send_all(far_, bytes_of("."));
            std::this_thread::sleep_for(1ms);
        }
    });
    std::vector<std::byte> endless(10'000'000);
    EXPECT_EQ(failure_of([&] { korvex::receive_exactly(near_, endless, 50ms); }).code(), errc::time_is_over);
    ended = true;
}

TEST_F(Transfer, to_a_peer_that_is_gone_fails_without_a_signal) {
    end_far();
    EXPECT_EQ(failure_of([&] { korvex::send_all(near_, bytes_of("text")); }).code(), std::errc::broken_pipe);
}

TEST_F(Transfer, to_a_peer_that_takes_nothing_ends_in_time_and_on_request) {
    const std::string large(10'000'000, 'x');
    const transfer_error failure = transfer_failure_of([&] { korvex::send_all(near_, bytes_of(large), 20ms); });
    EXPECT_EQ(failure.code(), errc::time_is_over);
    EXPECT_GT(failure.moved(), 0U);
    EXPECT_LT(failure.moved(), large.size());

    std::stop_source source;
    const support::BeforeCall stopping(support::Call::poll, 1, [&] { source.request_stop(); });
    EXPECT_EQ(failure_of([&] { korvex::send_all(near_, bytes_of(large), 1h, source.get_token()); }).code(),
              std::errc::operation_canceled);
}

TEST_F(Transfer, stops_while_it_waits_and_while_it_does_not) {
    std::stop_source source;
    {
        const support::BeforeCall stopping(support::Call::poll, 1, [&] { source.request_stop(); });
        EXPECT_EQ(failure_of([&] { korvex::receive_exactly(near_, buffer_, 1h, source.get_token()); }).code(),
                  std::errc::operation_canceled);
    }
    korvex::send_all(far_, bytes_of("0123456789"));
    EXPECT_EQ(failure_of([&] { korvex::receive_exactly(near_, buffer_, 1h, source.get_token()); }).code(),
              std::errc::operation_canceled);
}

TEST_F(Transfer, goes_on_after_a_signal) {
    korvex::send_all(far_, bytes_of("0123456789"));
    const support::FailCall interrupted(support::Call::recv, EINTR, 1, 2);
    korvex::receive_exactly(near_, buffer_, 1h);
    EXPECT_EQ(text(), "0123456789");
    EXPECT_EQ(interrupted.failed(), 2);
}

class FileTransfer : public Transfer {
  protected:
    FileTransfer() : file_(open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)) {}

    support::TempFolder folder_;
    const std::string path_ = folder_.path("file");
    const korvex::detail::descriptor file_;
};

TEST_F(FileTransfer, receives_all_and_leaves_the_rest) {
    const std::string large(2'000'000, 'x');
    std::jthread sender([&] {
        korvex::send_all(far_, bytes_of(large));
        korvex::send_all(far_, bytes_of("rest......"));
    });
    std::atomic<std::int64_t> progress = 1;
    korvex::receive_into_file(near_, file_.get(), large.size(), {.silence = 60s, .stop = {}, .progress = &progress});
    EXPECT_EQ(support::read_file(path_), large);
    EXPECT_EQ(progress, 2'000'001);
    korvex::receive_exactly(near_, buffer_, 60s);
    EXPECT_EQ(text(), "rest......");
}

TEST_F(FileTransfer, from_a_peer_that_closes_early_ends_at_once) {
    korvex::send_all(far_, bytes_of("12345"));
    end_far();
    const transfer_error failure =
        transfer_failure_of([&] { korvex::receive_into_file(near_, file_.get(), 1'000'000'000'000); });
    EXPECT_EQ(failure.code(), errc::peer_closed);
    EXPECT_EQ(failure.moved(), 5U);
    EXPECT_EQ(support::read_file(path_), "12345");
}

TEST_F(FileTransfer, ends_in_silence_and_on_request) {
    korvex::send_all(far_, bytes_of("12345"));
    const transfer_error failure =
        transfer_failure_of([&] { korvex::receive_into_file(near_, file_.get(), 10, {.silence = 10ms}); });
    EXPECT_EQ(failure.code(), errc::time_is_over);
    EXPECT_EQ(failure.moved(), 5U);
    std::stop_source source;
    const support::BeforeCall stopping(support::Call::poll, 1, [&] { source.request_stop(); });
    EXPECT_EQ(failure_of([&] {
                  korvex::receive_into_file(near_, file_.get(), 10, {.silence = 1h, .stop = source.get_token()});
              }).code(),
              std::errc::operation_canceled);
}

TEST_F(FileTransfer, to_a_full_disk_says_so) {
    const support::SmallDisk disk(64 << 10);
    const korvex::detail::descriptor small(open(disk.path("file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string large(500'000, 'x');
    std::jthread sender([&] {
        try {
            korvex::send_all(far_, bytes_of(large), 60s);
        } catch (const korvex::error &) {  // the receiver has given up
        }
    });
    EXPECT_EQ(failure_of([&] { korvex::receive_into_file(near_, small.get(), large.size(), {.silence = 60s}); }).code(),
              std::errc::no_space_on_device);
    near_ = korvex::socket();
}

// The C call waits for ever behind a byte that was sent as urgent.
TEST_F(FileTransfer, gets_past_an_urgent_byte) {
    support::enter_network();
    const auto listeners = korvex::listen("127.0.0.1", 4000);
    const korvex::socket sender = korvex::connect("127.0.0.1", 4000, 5s);
    const auto receiver = korvex::accept(listeners[0], 5s);
    ASSERT_TRUE(receiver);
    korvex::send_all(sender, bytes_of("123"));
    ASSERT_EQ(send(sender.native_handle(), "!", 1, MSG_OOB), 1);
    korvex::send_all(sender, bytes_of("456"));
    korvex::receive_into_file(*receiver, file_.get(), 6, {.silence = 10s});
    EXPECT_EQ(support::read_file(path_), "123456");
}

}  // namespace
