// Threads that allocate and free at the same time.
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>

#include "sandbox.h"
#include "traced.h"

using namespace tracer_test;
using testing::IsEmpty;

namespace {

using TracerThreads = TracerTest;

constexpr int kThreads = 8;
constexpr int kRounds = 3000;

struct Held {
    char *bytes;
    size_t size;
};

// One thread's life: allocates and frees at random, and leaves what it holds at the end.
std::vector<Held> work(int number) {
    std::mt19937 random(static_cast<uint32_t>(number));
    const std::string name = "thread " + std::to_string(number);
    std::vector<Held> held;
    for (int round = 0; round < kRounds; round++) {
        if (held.empty() || random() % 5 < 3) {
            const size_t size = random() % 200;
            held.push_back({allocate(size, name.c_str(), round), size});
            std::memset(held.back().bytes, number, size);
            continue;
        }
        const size_t place = random() % held.size();
        Trace_Mem_Free(judged(held[place].bytes), name.c_str(), round);
        held[place] = held.back();
        held.pop_back();
    }
    return held;
}

template <typename Body>
void in_threads(const Body &body) {
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; number++)
        threads.emplace_back(body, number);
    for (std::thread &thread : threads)
        thread.join();
}

}  // namespace

TEST_F(TracerThreads, keep_the_list_and_the_counters) {
    std::vector<std::vector<Held>> held(kThreads);
    LogCapture log;
    in_threads([&](int number) { held[static_cast<size_t>(number)] = work(number); });

    std::vector<const void *> expected;
    for (size_t number = 0; number < held.size(); number++)
        for (const auto &[bytes, size] : held[number]) {
            expected.push_back(node_of(bytes));
            EXPECT_EQ(bytes_of(bytes, size), std::string(size, static_cast<char>(number)));
            EXPECT_EQ(Trace_Mem_Check(judged(bytes)), 0);
        }
    std::vector<const void *> nodes = listed();
    std::sort(nodes.begin(), nodes.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(nodes, expected);
    EXPECT_EQ(g_cnAlloc + g_cnFree, kThreads * kRounds);
    EXPECT_EQ(g_cnAlloc - g_cnFree, static_cast<int32_t>(expected.size()));

    in_threads([&](int number) {
        for (const Held &block : held[static_cast<size_t>(number)])
            Trace_Mem_Free(judged(block.bytes), "end", 1);
    });
    EXPECT_THAT(listed(), IsEmpty());
    EXPECT_EQ(g_cnAlloc, g_cnFree);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TracerThreads, may_free_each_others_blocks) {
    std::vector<std::vector<Held>> held(kThreads);
    in_threads([&](int number) { held[static_cast<size_t>(number)] = work(number); });
    in_threads([&](int number) {
        for (const Held &block : held[static_cast<size_t>((number + 1) % kThreads)])
            Trace_Mem_Free(judged(block.bytes), "other", 1);
    });
    EXPECT_THAT(listed(), IsEmpty());
    EXPECT_EQ(g_cnAlloc, g_cnFree);
}

// Each thread's blocks lie among the others', and are checked and freed while those are.
TEST_F(TracerThreads, may_free_damaged_blocks) {
    std::vector<std::vector<Held>> held(kThreads);
    in_threads([&](int number) {
        held[static_cast<size_t>(number)] = work(number);
        for (const auto &[bytes, size] : held[static_cast<size_t>(number)]) {
            bytes[size + 15] = 'x';
            EXPECT_EQ(Trace_Mem_Check(judged(bytes)), 1);
            Trace_Mem_Free(judged(bytes), "freer", 1);
        }
    });
    EXPECT_THAT(listed(), IsEmpty());
    EXPECT_EQ(g_cnAlloc, g_cnFree);
}

// The child has a mutex that a thread holds which it does not have.
TEST_F(TracerThreads, a_child_that_makes_the_mutex_anew_does_not_wait_for_a_thread_of_its_parent) {
    char *const before = allocate(10, "parent", 1);
    std::thread holder;
    std::atomic<bool> holds{false};
    std::atomic<bool> forked{false};
    holder = std::thread([&] {
        pthread_mutex_lock(&g_mtxMem);
        holds = true;
        while (!forked)
            std::this_thread::yield();
        pthread_mutex_unlock(&g_mtxMem);
    });
    while (!holds)
        std::this_thread::yield();

    const int status = in_child([&] {
        alarm(20);  // one that waits is ended
        const int32_t allocations = g_cnAlloc;
        if (Trace_Mem_Init() != 0)
            return 1;
        char *const after = allocate(10, "child", 2);
        Trace_Mem_Free(judged(after), "child", 3);
        Trace_Mem_Free(judged(before), "child", 4);
        return g_cnAlloc == allocations + 1 && g_tmnHead.pPrev == &g_tmnHead ? 0 : 2;
    });
    forked = true;
    holder.join();
    EXPECT_EQ(status, 0);
    Trace_Mem_Free(judged(before), "parent", 5);
}
