// The queue of the C++ layer: between threads, at its bounds, and in the values that it owns.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <latch>
#include <memory>
#include <numeric>
#include <stop_token>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "failure_of.h"
#include "faults.h"
#include "korvex/queue.hpp"

namespace {

using namespace std::chrono_literals;
using korvex::queue;
using support::failure_of;

static_assert(!std::is_copy_constructible_v<queue<int>> && !std::is_move_constructible_v<queue<int>>);
static_assert(!std::is_copy_constructible_v<queue<int>::batch> &&
              std::is_nothrow_move_constructible_v<queue<int>::batch>);

// Counts those that live, so that a value that is lost or destroyed twice shows.
class counted {
  public:
    explicit counted(int number) : number_(std::make_unique<int>(number)) { ++living; }
    counted(counted &&other) noexcept : number_(std::move(other.number_)) { ++living; }
    counted &operator=(counted &&) noexcept = default;
    ~counted() { --living; }

    bool has_value() const { return number_ != nullptr; }
    int number() const { return *number_; }

    static inline std::atomic<int> living = 0;

  private:
    std::unique_ptr<int> number_;
};

TEST(Queue, gives_values_in_the_order_of_the_pushes) {
    queue<std::string> texts;
    texts.push("one", 3);
    texts.push("two", 4);
    EXPECT_EQ(texts.size(), 2U);
    EXPECT_EQ(texts.weight(), 7U);
    EXPECT_EQ(texts.pop(), "one");
    EXPECT_EQ(texts.weight(), 4U);
    EXPECT_EQ(texts.try_pop(), "two");
    EXPECT_TRUE(texts.empty());
    EXPECT_EQ(texts.try_pop(), std::nullopt);
}

TEST(Queue, takes_memory_for_its_nodes_alone) {
    queue<int> numbers;
    std::stop_source stop;
    const support::CountCalls allocations(support::Call::malloc);
    numbers.push(1);
    numbers.push(2, 5);
    int third = 3;
    EXPECT_TRUE(numbers.try_push(third));
    EXPECT_EQ(allocations.count(), 3);
    EXPECT_EQ(numbers.pop(), 1);
    EXPECT_EQ(numbers.pop_for(1s, stop.get_token()), 2);
    EXPECT_EQ(numbers.pop_all().size(), 1U);
    EXPECT_EQ(numbers.pop_for(1ms), std::nullopt);
    EXPECT_EQ(numbers.try_pop(), std::nullopt);
    EXPECT_EQ(allocations.count(), 3);
}

TEST(Queue, refuses_a_capacity_below_one) {
    for (const int capacity : {0, -1})
        EXPECT_EQ(failure_of([&] { const queue<int> none(capacity); }).code(), std::errc::invalid_argument);
}

TEST(Queue, that_is_full_refuses_one_value_and_goes_on) {
    queue<counted> values(2);
    values.push(counted(1));
    values.push(counted(2));
    counted third(3);
    EXPECT_FALSE(values.try_push(third));
    EXPECT_TRUE(third.has_value());
    EXPECT_EQ(failure_of([&] { values.push(counted(4)); }).code(), korvex::errc::queue_stopped);

    EXPECT_EQ(values.pop()->number(), 1);
    EXPECT_TRUE(values.try_push(third));
    EXPECT_FALSE(third.has_value());
    EXPECT_EQ(values.pop()->number(), 2);
    EXPECT_EQ(values.pop()->number(), 3);
}

TEST(Queue, that_is_stopped_gives_what_it_has_and_takes_nothing) {
    queue<int> values;
    values.push(1);
    values.stop();
    EXPECT_TRUE(values.stopped());
    EXPECT_EQ(failure_of([&] { values.push(2); }).code(), korvex::errc::queue_stopped);
    EXPECT_EQ(values.pop(), 1);
    EXPECT_EQ(values.pop(), std::nullopt);
    EXPECT_EQ(values.pop_for(korvex::forever), std::nullopt);
}

TEST(Queue, hands_all_values_out_at_once) {
    queue<counted> values;
    for (int i = 0; i < 100; i++)
        values.push(counted(i));
    {
        auto batch = values.pop_all();
        EXPECT_TRUE(values.empty());
        ASSERT_EQ(batch.size(), 100U);
        int expected = 0;
        for (const counted &value : batch)
            EXPECT_EQ(value.number(), expected++);
        values.push(counted(100));
        auto moved = std::move(batch);
        EXPECT_EQ(moved.size(), 100U);
        EXPECT_TRUE(batch.empty());  // NOLINT(bugprone-use-after-move): what a moved-from batch is
        moved = values.pop_all();
        EXPECT_EQ(moved.begin()->number(), 100);
        EXPECT_EQ(counted::living, 1);
        EXPECT_TRUE(values.pop_all().empty());
    }
    EXPECT_EQ(counted::living, 0);
}

TEST(Queue, destroys_each_value_once_however_it_leaves) {
    {
        queue<counted> values(3);
        for (int i = 0; i < 3; i++)
            values.push(counted(i));
        EXPECT_THROW(values.push(counted(3)), korvex::error);
        EXPECT_EQ(counted::living, 3);
        {
            const auto taken = values.pop();
            EXPECT_EQ(counted::living, 3);
        }
        EXPECT_EQ(counted::living, 2);
        values.stop();
        EXPECT_THROW(values.push(counted(4)), korvex::error);
        EXPECT_EQ(counted::living, 2);
    }
    EXPECT_EQ(counted::living, 0);
}

TEST(Queue, waits_no_longer_than_it_is_told) {
    queue<int> values;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(values.pop_for(20ms), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
    EXPECT_EQ(values.pop_for(0ns), std::nullopt);
}

TEST(Queue, with_the_longest_time_of_all_still_gives_what_comes) {
    queue<int> values;
    std::jthread producer([&] { values.push(7); });
    EXPECT_EQ(values.pop_for(std::chrono::nanoseconds::max()), 7);
}

TEST(Queue, ends_a_wait_whose_token_is_stopped) {
    queue<int> values;
    std::stop_source source;
    std::latch began(1);
    std::jthread stopper([&] {
        began.wait();
        source.request_stop();
    });
    began.count_down();
    EXPECT_EQ(failure_of([&] { values.pop(source.get_token()); }).code(), std::errc::operation_canceled);
    // From the start, too; but a value that is there is not withheld.
    EXPECT_EQ(failure_of([&] { values.pop_for(1h, source.get_token()); }).code(), std::errc::operation_canceled);
    values.push(1);
    EXPECT_EQ(values.pop(source.get_token()), 1);
    EXPECT_FALSE(values.stopped());
}

TEST(Queue, that_is_stopped_wakes_all_who_wait) {
    queue<int> values;
    constexpr int waiters = 8;
    std::latch began(waiters);
    std::atomic<int> ended = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < waiters; i++)
            threads.emplace_back([&, i] {
                began.count_down();
                const std::stop_source never;
                const auto got = i % 2 == 0 ? values.pop() : values.pop_for(1h, never.get_token());
                ended += got ? 0 : 1;
            });
        began.wait();
        values.stop();
    }
    EXPECT_EQ(ended, waiters);
}

// Each value arrives once, and those of one producer in their order.
TEST(Queue, loses_and_doubles_nothing_between_many_threads) {
    constexpr int producers = 4;
    constexpr int consumers = 3;
    constexpr int each = 2'000;
    queue<counted> values(50);
    std::array<std::vector<int>, consumers> taken;
    {
        std::vector<std::jthread> takers;
        for (auto &mine : taken)
            takers.emplace_back([&] {
                while (const auto value = values.pop())
                    mine.push_back(value->number());
            });
        {
            std::vector<std::jthread> makers;
            for (int maker = 0; maker < producers; maker++)
                makers.emplace_back([&, maker] {
                    for (int i = 0; i < each; i++)
                        for (counted value(maker * each + i); !values.try_push(value);)
                            std::this_thread::yield();
                });
        }
        values.stop();
    }
    std::vector<int> all;
    for (const auto &mine : taken) {
        std::array<int, producers> last;
        last.fill(-1);
        for (const int number : mine) {
            EXPECT_LT(last[number / each], number);
            last[number / each] = number;
        }
        all.insert(all.end(), mine.begin(), mine.end());
    }
    std::sort(all.begin(), all.end());
    std::vector<int> expected(producers * each);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(all, expected);
    EXPECT_EQ(counted::living, 0);
}

}  // namespace
