// The bridge from a stop token to the library's stop flag.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <stop_token>
#include <thread>

#include "fileio.h"
#include "korvex/detail/call.hpp"

namespace {

using korvex::detail::stop_flag;

TEST(StopFlag, is_set_when_a_stop_is_requested) {
    std::stop_source source;
    stop_flag flag(source.get_token());
    EXPECT_FALSE(flag.is_set());
    source.request_stop();
    EXPECT_TRUE(flag.is_set());
    EXPECT_EQ(*flag.get(), -ECANCELED);
}

TEST(StopFlag, is_set_at_once_where_the_stop_came_before) {
    std::stop_source source;
    source.request_stop();
    const stop_flag flag(source.get_token());
    EXPECT_TRUE(flag.is_set());
}

TEST(StopFlag, stays_clear_without_a_source) {
    stop_flag flag{std::stop_token()};
    EXPECT_FALSE(flag.is_set());
    EXPECT_EQ(*flag.get(), 0);
}

// The pipe stays empty, so the splice would wait for ever: it ends because the other thread asks for it.
TEST(StopFlag, ends_a_call_that_waits_in_the_library) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    std::stop_source source;
    stop_flag flag(source.get_token());
    std::jthread stopper([&] { source.request_stop(); });
    const int target = open("/tmp", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_GE(target, 0);
    const int32_t result = Splice_Ext(ends[0], nullptr, target, nullptr, 1, 0, -1, flag.get());
    EXPECT_EQ(result, -ECANCELED);
    EXPECT_THROW(korvex::detail::check(result, "can't receive into", "x"), korvex::error);
    close(target);
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
