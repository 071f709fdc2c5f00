// Traced blocks: how they are made, listed, counted and freed.
#include <gmock/gmock.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "heap.h"
#include "traced.h"

using namespace tracer_test;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(offsetof(Trace_Mem_Node, pNext) == 0 && offsetof(Trace_Mem_Node, pPrev) == 8 &&
              offsetof(Trace_Mem_Node, uMagic) == 16 && offsetof(Trace_Mem_Node, szName) == 20 &&
              offsetof(Trace_Mem_Node, nLine) == 36 && offsetof(Trace_Mem_Node, nSize) == 40 &&
              offsetof(Trace_Mem_Node, szPrefix) == 44);

namespace {

constexpr uint32_t kMagic = 0x5A8888A5;
constexpr unsigned char kFill = 0xab;

// The state in which a program finds the tracer.
struct AtStart {
    Trace_Mem_Node head = g_tmnHead;
    int32_t allocated = g_cnAlloc;
    int32_t freed = g_cnFree;
};
const AtStart g_at_start;

using MemoryTracer = TracerTest;

}  // namespace

TEST(MemoryTracerAtStart, is_empty) {
    EXPECT_EQ(g_at_start.head.pNext, &g_tmnHead);
    EXPECT_EQ(g_at_start.head.pPrev, &g_tmnHead);
    EXPECT_EQ(g_at_start.head.uMagic, kMagic);
    EXPECT_EQ(bytes_of(g_at_start.head.szName, 16), std::string(16, '\0'));
    EXPECT_EQ(g_at_start.head.nLine, 0);
    EXPECT_EQ(g_at_start.head.nSize, 0u);
    EXPECT_EQ(bytes_of(g_at_start.head.szPrefix, 16), std::string(16, '\0'));
    EXPECT_EQ(g_at_start.allocated, 0);
    EXPECT_EQ(g_at_start.freed, 0);
    EXPECT_EQ(bytes_of(g_stPreface, sizeof g_stPreface), kGuard);
}

TEST_F(MemoryTracer, begins_with_a_mutex_that_is_free_and_not_recursive) {
    ASSERT_EQ(pthread_mutex_trylock(&g_mtxMem), 0);
    EXPECT_EQ(pthread_mutex_trylock(&g_mtxMem), EBUSY);
    EXPECT_EQ(pthread_mutex_unlock(&g_mtxMem), 0);
}

TEST_F(MemoryTracer, block_is_laid_out_byte_for_byte) {
    for (const size_t size : {0, 1, 3, 15, 16, 100, 4096, 100'000}) {
        SCOPED_TRACE(size);
        const Trace_Mem_Node *const newest = g_tmnHead.pPrev;
        HeapWatch watch(kFill);
        char *const bytes = allocate(size, "someone", 4711);
        watch.stop();

        EXPECT_THAT(watch.asked(), ElementsAre(size + 80));
        EXPECT_THAT(watch.freed(), IsEmpty());
        const Trace_Mem_Node *const node = node_of(bytes);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(node) % alignof(std::max_align_t), 0u) << "not a heap block's start";
        EXPECT_EQ(node->pNext, &g_tmnHead);
        EXPECT_EQ(node->pPrev, newest);
        EXPECT_EQ(node->uMagic, kMagic);
        EXPECT_EQ(bytes_of(node->szName, 16), std::string("someone\0\0\0\0\0\0\0\0\0", 16));
        EXPECT_EQ(node->nLine, 4711);
        EXPECT_EQ(node->nSize, size);
        EXPECT_EQ(bytes_of(bytes - 16, 16), kGuard);
        EXPECT_EQ(bytes_of(bytes, size), std::string(size, static_cast<char>(kFill)));
        EXPECT_EQ(bytes_of(bytes + size, 16), kGuard);
        EXPECT_EQ(bytes_of(bytes + size + 16, 4), std::string(4, static_cast<char>(kFill)));
    }
}

TEST_F(MemoryTracer, name_is_kept_in_15_characters_and_filled_with_zeros) {
    const struct {
        const char *name;
        std::string kept;
    } table[] = {{"", ""},
                 {nullptr, ""},
                 {"a", "a"},
                 {"a\0b", "a"},
                 {"14 characters-", "14 characters-"},
                 {"15 characters--", "15 characters--"},
                 {"16 characters--x", "16 characters--"},
                 {"20 characters--xxxxx", "20 characters--"},
                 {"%s%n\n\xff", "%s%n\n\xff"}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.kept);
        HeapWatch watch(kFill);
        const char *const bytes = allocate(10, row.name);
        watch.stop();
        EXPECT_EQ(bytes_of(bytes - 40, 16), row.kept + std::string(16 - row.kept.size(), '\0'));
    }
}

TEST_F(MemoryTracer, any_line_is_kept) {
    for (const int32_t line : {0, 1, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(node_of(allocate(10, "x", line))->nLine, line);
}

TEST_F(MemoryTracer, reserved_argument_is_ignored) {
    char reserved[] = "untouched";
    const std::vector<void *> values{nullptr, reserved, reinterpret_cast<void *>(1),
                                     reinterpret_cast<void *>(UINTPTR_MAX)};
    for (void *const value : values)
        EXPECT_NE(Trace_Mem_Alloc(10, value, "x", 1), nullptr);
    EXPECT_STREQ(reserved, "untouched");
    EXPECT_EQ(listed().size(), values.size());
}

TEST_F(MemoryTracer, block_that_cannot_be_had_is_null_and_not_counted) {
    const char *const before = allocate(10);
    LogCapture log;
    {
        const FailCall fault(Call::allocation, ENOMEM);
        EXPECT_EQ(Trace_Mem_Alloc(10, nullptr, "x", 1), nullptr);
        EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_THAT(listed(), ElementsAre(before - kNodeSize));
    EXPECT_EQ(g_cnAlloc, 1);
    EXPECT_EQ(g_cnFree, 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(MemoryTracer, size_that_wraps_is_refused) {
    for (const size_t size : {SIZE_MAX, SIZE_MAX - 1, SIZE_MAX - 63, SIZE_MAX - 79}) {
        SCOPED_TRACE(size);
        LogCapture log;
        const CountCalls allocations(Call::allocation);
        EXPECT_EQ(Trace_Mem_Alloc(size, nullptr, "x", 1), nullptr);
        EXPECT_EQ(allocations.count(), 0);
        EXPECT_THAT(log.messages(), IsEmpty());
    }
    // The largest that does not: the system is asked for it, and has not got it.
    const FailCall fault(Call::allocation, ENOMEM);
    EXPECT_EQ(Trace_Mem_Alloc(SIZE_MAX - 80, nullptr, "x", 1), nullptr);
    EXPECT_EQ(fault.failed(), 1);
    EXPECT_EQ(g_cnAlloc, 0);
    EXPECT_THAT(listed(), IsEmpty());
}

// The record has room for 32 bits of the size; the guard stands behind all of the bytes.
TEST_F(MemoryTracer, guard_of_a_huge_block_stands_at_its_end) {
    constexpr size_t size = (size_t{4} << 30) + 21;
    char *const bytes = allocate(size);
    EXPECT_EQ(node_of(bytes)->nSize, 21u);
    EXPECT_EQ(bytes_of(bytes + size, 16), kGuard);
    EXPECT_NE(bytes_of(bytes + 21, 16), kGuard);
}

TEST_F(MemoryTracer, blocks_are_listed_in_order_and_counted) {
    std::vector<const void *> nodes;
    for (int32_t i = 1; i <= 20; i++) {
        nodes.push_back(node_of(allocate(static_cast<size_t>(i))));
        EXPECT_EQ(listed(), nodes);
        EXPECT_EQ(g_cnAlloc, i);
        EXPECT_EQ(g_cnFree, 0);
    }
}

TEST_F(MemoryTracer, freed_blocks_leave_the_list) {
    for (const size_t first_gone : {0, 1, 2}) {
        SCOPED_TRACE(first_gone);
        std::vector<char *> blocks{allocate(10), allocate(0), allocate(30)};
        LogCapture log;
        int32_t freed = g_cnFree;
        while (!blocks.empty()) {
            const size_t place = std::min(first_gone, blocks.size() - 1);
            void *const node = node_of(blocks[place]);
            HeapWatch watch;
            Trace_Mem_Free(judged(blocks[place]), "test", 1);
            watch.stop();
            EXPECT_THAT(watch.freed(), ElementsAre(node));
            EXPECT_THAT(watch.asked(), IsEmpty());

            blocks.erase(blocks.begin() + static_cast<ptrdiff_t>(place));
            std::vector<const void *> nodes;
            for (char *const block : blocks)
                nodes.push_back(node_of(block));
            EXPECT_EQ(listed(), nodes);
            EXPECT_EQ(g_cnFree, ++freed);
        }
        EXPECT_THAT(log.messages(), IsEmpty());
    }
    EXPECT_EQ(g_cnAlloc, 9);
}

// Such a pointer is judged by the place 4 bytes behind the node's start: kept as it is.
TEST_F(MemoryTracer, pointer_as_it_was_returned_is_not_freed) {
    char *const bytes = allocate(10);
    const std::string block = bytes_of(node_of(bytes), 90);
    const CountCalls locks(Call::pthread_mutex_lock);
    HeapWatch watch;
    Trace_Mem_Free(bytes, "test", 1);
    watch.stop();

    EXPECT_THAT(watch.freed(), IsEmpty());
    EXPECT_EQ(locks.count(), 0);
    EXPECT_EQ(bytes_of(node_of(bytes), 90), block);
    EXPECT_THAT(listed(), ElementsAre(node_of(bytes)));
    EXPECT_EQ(g_cnFree, 0);
}

TEST_F(MemoryTracer, mutex_is_held_while_the_list_and_the_counters_change) {
    char *bytes = nullptr;
    {
        const BeforeCall locking(Call::pthread_mutex_lock, 1, [] {
            EXPECT_EQ(g_cnAlloc, 0);
            EXPECT_THAT(listed(), IsEmpty());
        });
        const BeforeCall unlocking(Call::pthread_mutex_unlock, 1, [] {
            EXPECT_EQ(g_cnAlloc, 1);
            EXPECT_EQ(listed().size(), 1u);
        });
        bytes = allocate(10);
        EXPECT_TRUE(locking.ran());
        EXPECT_TRUE(unlocking.ran());
    }
    const BeforeCall locking(Call::pthread_mutex_lock, 1, [] {
        EXPECT_EQ(g_cnFree, 0);
        EXPECT_EQ(listed().size(), 1u);
    });
    const BeforeCall unlocking(Call::pthread_mutex_unlock, 1, [] {
        EXPECT_EQ(g_cnFree, 1);
        EXPECT_THAT(listed(), IsEmpty());
    });
    Trace_Mem_Free(judged(bytes), "test", 1);
    EXPECT_TRUE(locking.ran());
    EXPECT_TRUE(unlocking.ran());
}

TEST_F(MemoryTracer, mutex_is_free_while_the_heap_and_the_log_work) {
    const auto expect_free_mutex = [] {
        EXPECT_EQ(pthread_mutex_trylock(&g_mtxMem), 0);
        pthread_mutex_unlock(&g_mtxMem);
    };
    const LogCapture log;
    char *bytes = nullptr;
    {
        const BeforeCall allocation(Call::malloc, 0, expect_free_mutex);
        bytes = allocate(10);
        EXPECT_TRUE(allocation.ran());
    }
    bytes[-1] = 'x';
    bytes[10] = 'x';
    const BeforeCall freeing(Call::free, 0, expect_free_mutex);
    const BeforeCall writing(Call::fwrite, 0, expect_free_mutex);
    Trace_Mem_Free(judged(bytes), "test", 1);
    EXPECT_TRUE(freeing.ran());
    EXPECT_TRUE(writing.ran());
}

TEST_F(MemoryTracer, mutex_is_taken_by_allocating_and_freeing_alone) {
    void *place = nullptr;
    const struct {
        const char *name;
        void (*work)(void *&place);
        int64_t locks;
    } table[] = {
        {"allocate", [](void *&block) { block = judged(allocate(10)); }, 1},
        {"check", [](void *&block) { Trace_Mem_Check(block); }, 0},
        {"check nothing", [](void *&) { Trace_Mem_Check(nullptr); }, 0},
        {"usage", [](void *&) { Trace_Mem_Usage(); }, 0},
        {"free nothing", [](void *&) { Trace_Mem_Free(nullptr, "x", 1); }, 0},
        {"free", [](void *&block) { Trace_Mem_Free(block, "x", 1); }, 1},
        {"destroy", [](void *&) { EXPECT_EQ(Trace_Mem_Destroy(), 0); }, 0},
        {"init", [](void *&) { EXPECT_EQ(Trace_Mem_Init(), 0); }, 0},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        const CountCalls locks(Call::pthread_mutex_lock);
        const CountCalls unlocks(Call::pthread_mutex_unlock);
        row.work(place);
        EXPECT_EQ(locks.count(), row.locks);
        EXPECT_EQ(unlocks.count(), row.locks);
    }
}

TEST_F(MemoryTracer, results_of_the_mutex_are_handed_on) {
    EXPECT_EQ(Trace_Mem_Destroy(), 0);
    {
        const FailCall fault(Call::pthread_mutex_init, EAGAIN);
        EXPECT_EQ(Trace_Mem_Init(), EAGAIN);
        EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_EQ(Trace_Mem_Init(), 0);
    const FailCall fault(Call::pthread_mutex_destroy, EBUSY);
    EXPECT_EQ(Trace_Mem_Destroy(), EBUSY);
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(MemoryTracer, destroy_drops_the_blocks_and_init_begins_anew) {
    std::vector<void *> nodes;
    for (int i = 0; i < 3; i++)
        nodes.push_back(node_of(allocate(10)));
    Trace_Mem_Free(judged(allocate(10)), "test", 1);

    const CountCalls ends(Call::pthread_mutex_destroy);
    HeapWatch watch;
    EXPECT_EQ(Trace_Mem_Destroy(), 0);
    watch.stop();
    EXPECT_THAT(watch.freed(), ElementsAre(nodes[2], nodes[1], nodes[0]));
    EXPECT_EQ(ends.count(), 1);
    EXPECT_THAT(listed(), IsEmpty());
    EXPECT_EQ(g_cnAlloc, 4);
    EXPECT_EQ(g_cnFree, 4);

    EXPECT_EQ(Trace_Mem_Init(), 0);
    EXPECT_EQ(g_cnAlloc, 4);
    Trace_Mem_Free(judged(allocate(10)), "test", 1);
    EXPECT_EQ(g_cnAlloc, 5);
    EXPECT_EQ(g_cnFree, 5);
    EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(MemoryTracer, loses_no_memory) {
    EXPECT_FALSE(loses_memory([] {
        char *const bytes = allocate(100);
        bytes[100] = 'x';
        Trace_Mem_Free(judged(bytes), "test", 1);
        allocate(50);
        Trace_Mem_Destroy();
        Trace_Mem_Init();
    }));
}
