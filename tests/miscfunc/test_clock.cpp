// The millisecond clock, and sleeping through signals.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "faults.h"
#include "miscfunc.h"

using support::Call;
using support::FailCall;
using support::FakeClock;

namespace {

constexpr uint64_t kNow = 1'700'000'000'123;

uint64_t wall_clock() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

int64_t monotonic_microseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000 + now.tv_nsec / 1000;
}

// Interrupts this process every few milliseconds, with a handler that does not restart the interrupted call.
class IntervalSignals {
  public:
    explicit IntervalSignals(int milliseconds) {
        struct sigaction action {};
        action.sa_handler = [](int) { s_signals++; };
        sigaction(SIGALRM, &action, &outer_);
        const itimerval interval{{0, milliseconds * 1000}, {0, milliseconds * 1000}};
        setitimer(ITIMER_REAL, &interval, nullptr);
    }
    ~IntervalSignals() {
        const itimerval off{};
        setitimer(ITIMER_REAL, &off, nullptr);
        sigaction(SIGALRM, &outer_, nullptr);
    }
    int signals() const { return s_signals; }

  private:
    static inline std::atomic<int> s_signals = 0;
    struct sigaction outer_ {};
};

}  // namespace

TEST(Clock, ticks_are_milliseconds_of_the_wall_clock) {
    const uint64_t before = wall_clock();
    const uint64_t tick = Rough_Tick();
    const uint64_t after = wall_clock();

    EXPECT_LE(before, tick);
    EXPECT_LE(tick, after);
}

TEST(Clock, parts_of_a_millisecond_are_cut_off) {
    FakeClock clock(kNow);

    clock.slept(999'999);
    EXPECT_EQ(Rough_Tick(), kNow);
    clock.slept(1);
    EXPECT_EQ(Rough_Tick(), kNow + 1);
}

TEST(Clock, the_tick_has_more_than_32_bits) {
    FakeClock clock(uint64_t{1} << 42);
    EXPECT_EQ(Rough_Tick(), uint64_t{1} << 42);
}

TEST(Clock, differences_are_taken_modulo_64_bits) {
    const struct {
        uint64_t start;
        uint64_t expected;
    } table[] = {
        {kNow, 0},
        {kNow - 1, 1},
        {0, kNow},
        {kNow + 1, UINT64_MAX},
        {kNow + 5000, UINT64_MAX - 4999},
        {UINT64_MAX, kNow + 1},
        {uint64_t{1} << 63, kNow + (uint64_t{1} << 63)},
    };
    FakeClock clock(kNow);

    for (const auto &row : table) {
        SCOPED_TRACE(row.start);
        EXPECT_EQ(Tick_Diff(row.start), row.expected);
        EXPECT_EQ(Rough_Tick_Diff(row.start), row.expected);
    }
}

TEST(Clock, a_clock_that_is_set_back_wraps_the_difference) {
    FakeClock clock(kNow);
    const uint64_t start = Rough_Tick();

    clock.advance(-3);

    EXPECT_EQ(Tick_Diff(start), UINT64_MAX - 2);
    EXPECT_EQ(Rough_Tick_Diff(start), UINT64_MAX - 2);
}

TEST(Sleep, asks_the_system_once_for_the_whole_time) {
    const uint32_t table[] = {0, 1, 999, 1000, 1001, 1500, 86'400'000, UINT32_MAX};

    for (const uint32_t milliseconds : table) {
        SCOPED_TRACE(milliseconds);
        FakeClock clock(kNow);
        Sleep_MSec(milliseconds);
        EXPECT_EQ(clock.now(), kNow + milliseconds);
        EXPECT_EQ(clock.sleeps(), 1);
    }
}

// The stopped clock above takes any request; the real one refuses a request whose nanoseconds make up a second.
TEST(Sleep, whole_seconds_and_the_rest_are_split) {
    const int64_t start = monotonic_microseconds();
    Sleep_MSec(1001);
    EXPECT_GE(monotonic_microseconds() - start, 1'001'000);
}

TEST(Sleep, goes_on_for_the_time_that_remains_after_each_signal) {
    const IntervalSignals timer(5);

    const int64_t start = monotonic_microseconds();
    Sleep_MSec(1050);

    EXPECT_GE(monotonic_microseconds() - start, 1'050'000);
    EXPECT_GT(timer.signals(), 1);
}

TEST(Sleep, ends_at_once_when_the_system_fails_for_another_reason_than_a_signal) {
    for (const int error : {EINVAL, EFAULT, ENOSYS}) {
        SCOPED_TRACE(error);
        FakeClock clock(kNow);
        const FailCall fault(Call::nanosleep, error);
        Sleep_MSec(60'000);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_EQ(clock.sleeps(), 0);
    }
}
