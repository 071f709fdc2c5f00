// The report of the live blocks, which looks at them 4 bytes early: kept as it is.
#include <gmock/gmock.h>

#include <climits>

#include "traced.h"

using namespace tracer_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using TracerUsage = TracerTest;

constexpr int32_t kSize = 100;
const char *const kCheck = "Trace_Mem_Check";

std::string live(int32_t blocks, int32_t allocated, int32_t freed) {
    return "[debug] Trace_Mem_Usage(#): Mem Usage: " + std::to_string(blocks) +
           " memory block allocated now! (Alloc: " + std::to_string(allocated) +
           " times, Free: " + std::to_string(freed) + " times)\n";
}

std::string balanced(int32_t count) {
    return "[debug] Trace_Mem_Usage(#): Mem Usage: No memory block allocated now! (Alloc: " + std::to_string(count) +
           " times, Free: " + std::to_string(count) + " times)\n";
}

// The name begins with the bytes of the magic number, the line number is the end of the name, and the size the line.
std::string early(const std::string &name, int32_t line) {
    int32_t end_of_name = 0;
    if (name.size() > 12)
        std::memcpy(&end_of_name, name.data() + 12, name.size() - 12);
    return whose("\xa5\x88\x88\x5a" + name, end_of_name, line);
}

// The size and all but the last 4 bytes of the guard.
std::string early_prefix(int32_t size) {
    return bytes_of(&size, 4) + std::string(12, 'Z');
}

// A block whose bytes count up from 'a'.
char *counting_block(int32_t line) {
    char *const bytes = allocate(kSize, "someone", line);
    for (int i = 0; i < kSize; i++)
        bytes[i] = static_cast<char>('a' + i % 24);  // no "Z" among them
    return bytes;
}

}  // namespace

TEST_F(TracerUsage, of_no_blocks_is_a_balance) {
    LogCapture log;
    Trace_Mem_Usage();
    Trace_Mem_Free(judged(allocate(10)), "x", 1);
    Trace_Mem_Free(judged(allocate(10)), "x", 1);
    Trace_Mem_Usage();
    EXPECT_THAT(log.messages(), ElementsAre(balanced(0), balanced(2)));
}

TEST_F(TracerUsage, is_a_matter_of_the_counters) {
    LogCapture log;
    allocate(10);
    g_cnFree = 1;
    Trace_Mem_Usage();
    EXPECT_THAT(log.messages(), ElementsAre(balanced(1)));

    log.clear();
    Trace_Mem_Destroy();
    Trace_Mem_Init();
    log.clear();
    Trace_Mem_Usage();
    EXPECT_THAT(log.messages(), ElementsAre(live(-1, 1, 2)));
}

TEST_F(TracerUsage, tells_a_whole_block_as_one_with_a_damaged_prefix) {
    // The line number leads the early look to the true place of the guard behind the bytes.
    allocate(kSize, "someone", kSize + 4);
    LogCapture log;
    Trace_Mem_Usage();
    EXPECT_EQ(log.messages(), std::vector<std::string>{live(1, 1, 0)} +
                                  damage(kCheck, early("someone", kSize + 4), "prefix", 0, early_prefix(kSize)));
}

TEST_F(TracerUsage, tells_the_newest_block_first) {
    allocate(10, "oldest", 14);
    allocate(20, "middle", 24);
    Trace_Mem_Free(judged(allocate(5)), "x", 1);
    allocate(30, "newest", 34);
    LogCapture log;
    Trace_Mem_Usage();
    EXPECT_EQ(log.messages(), std::vector<std::string>{live(3, 4, 1)} +
                                  damage(kCheck, early("newest", 34), "prefix", 0, early_prefix(30)) +
                                  damage(kCheck, early("middle", 24), "prefix", 0, early_prefix(20)) +
                                  damage(kCheck, early("oldest", 14), "prefix", 0, early_prefix(10)));
}

TEST_F(TracerUsage, reads_the_end_of_a_long_name_as_the_line) {
    for (const char *name : {"", "a", "12 letters--", "13 letters--x", "15 letters--xyz"}) {
        SCOPED_TRACE(name);
        Trace_Mem_Destroy();
        Trace_Mem_Init();
        g_cnAlloc = g_cnFree = 0;
        allocate(kSize, name, kSize + 4);
        LogCapture log;
        Trace_Mem_Usage();
        EXPECT_EQ(log.messages(), std::vector<std::string>{live(1, 1, 0)} +
                                      damage(kCheck, early(name, kSize + 4), "prefix", 0, early_prefix(kSize)));
    }
}

TEST_F(TracerUsage, finds_the_prefix_damaged_where_the_size_is_no_guard) {
    const struct {
        int32_t size;
        size_t index;
    } table[] = {{0, 0}, {0x5b, 0}, {0x5a, 1}, {0x5a5a, 2}, {0x5a5a5a, 3}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.size);
        Trace_Mem_Destroy();
        Trace_Mem_Init();
        g_cnAlloc = g_cnFree = 0;
        allocate(static_cast<size_t>(row.size), "someone", row.size + 4);
        LogCapture log;
        Trace_Mem_Usage();
        EXPECT_EQ(log.messages(),
                  std::vector<std::string>{live(1, 1, 0)} +
                      damage(kCheck, early("someone", row.size + 4), "prefix", row.index, early_prefix(row.size)));
    }
}

TEST_F(TracerUsage, looks_for_the_postfix_where_the_line_tells) {
    const std::string letters = "abcdefghijklmnopqrstuvwx";
    const struct {
        int32_t line;
        size_t index;
        std::string bytes;
    } table[] = {
        {4, 0, letters.substr(0, 16)},
        {10, 0, letters.substr(6, 16)},
        {0, 4, "ZZZZ" + letters.substr(0, 12)},
        {1, 3, "ZZZ" + letters.substr(0, 13)},
        {kSize, 0, "abcd" + std::string(12, 'Z')},
        {kSize - 4, 0, "uvwxabcd" + std::string(8, 'Z')},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.line);
        Trace_Mem_Destroy();
        Trace_Mem_Init();
        g_cnAlloc = g_cnFree = 0;
        counting_block(row.line);
        LogCapture log;
        Trace_Mem_Usage();
        EXPECT_EQ(log.messages(), std::vector<std::string>{live(1, 1, 0)} +
                                      damage(kCheck, early("someone", row.line), "prefix", 0, early_prefix(kSize)) +
                                      damage(kCheck, early("someone", row.line), "postfix", row.index, row.bytes));
    }
}

TEST_F(TracerUsage, takes_a_guard_among_the_bytes_for_its_own) {
    char *const bytes = counting_block(30);
    std::memset(bytes + 26, 'Z', 16);
    LogCapture log;
    Trace_Mem_Usage();
    EXPECT_EQ(log.messages(), std::vector<std::string>{live(1, 1, 0)} +
                                  damage(kCheck, early("someone", 30), "prefix", 0, early_prefix(kSize)));
    log.clear();
    bytes[26 + 5] = '!';
    Trace_Mem_Usage();
    EXPECT_EQ(log.messages(), std::vector<std::string>{live(1, 1, 0)} +
                                  damage(kCheck, early("someone", 30), "prefix", 0, early_prefix(kSize)) +
                                  damage(kCheck, early("someone", 30), "postfix", 5, "ZZZZZ!ZZZZZZZZZZ"));
}

// Nothing is read that does not belong to the block.
TEST_F(TracerUsage, reads_zeros_where_the_line_leads_out_of_the_block) {
    const std::string spare(4, '\xab');
    const std::string zeros(16, '\0');
    const struct {
        int32_t line;
        size_t index;
        std::string bytes;
    } table[] = {
        {kSize + 8, 12, std::string(12, 'Z') + spare},
        {kSize + 12, 8, std::string(8, 'Z') + spare + zeros.substr(0, 4)},
        {kSize + 20, 0, spare + zeros.substr(0, 12)},
        {kSize + 24, 0, zeros},
        {1'000'000, 0, zeros},
        {INT_MAX, 0, zeros},
        {INT_MIN, 0, zeros},
        {-1, 0, zeros},
        {-100, 0, zeros},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.line);
        Trace_Mem_Destroy();
        Trace_Mem_Init();
        g_cnAlloc = g_cnFree = 0;
        HeapWatch watch(0xab);
        counting_block(row.line);
        watch.stop();
        LogCapture log;
        Trace_Mem_Usage();
        EXPECT_EQ(log.messages(), std::vector<std::string>{live(1, 1, 0)} +
                                      damage(kCheck, early("someone", row.line), "prefix", 0, early_prefix(kSize)) +
                                      damage(kCheck, early("someone", row.line), "postfix", row.index, row.bytes));
    }
}

// The one size whose own bytes are a guard, and a line that leads to another: both looks are content.
TEST_F(TracerUsage, tells_a_block_by_its_own_record_where_both_guards_seem_whole) {
    constexpr size_t size = 0x5a5a5a5a;
    char *const bytes = allocate(size, "someone", 24);
    std::memset(bytes + 20, 'Z', 16);
    LogCapture log;
    Trace_Mem_Usage();
    EXPECT_THAT(
        log.messages(),
        ElementsAre(live(1, 1, 0), "[error] Trace_Mem_Usage(#): someone (24) allocate 1515870810 byte buffer.\n"));
}

TEST_F(TracerUsage, is_what_a_check_by_the_returned_pointer_says) {
    char *const bytes = counting_block(10);
    LogCapture log;
    Trace_Mem_Usage();
    std::vector<std::string> messages = log.messages();
    messages.erase(messages.begin());
    log.clear();
    EXPECT_EQ(Trace_Mem_Check(bytes), 1);
    EXPECT_EQ(log.messages(), messages);
}

TEST_F(TracerUsage, changes_nothing) {
    char *const first = counting_block(4);
    char *const second = counting_block(1'000'000);
    const std::string blocks = bytes_of(node_of(first), kSize + 76) + bytes_of(node_of(second), kSize + 76);
    HeapWatch watch;
    Trace_Mem_Usage();
    watch.stop();
    EXPECT_THAT(watch.freed(), IsEmpty());
    EXPECT_EQ(bytes_of(node_of(first), kSize + 76) + bytes_of(node_of(second), kSize + 76), blocks);
    EXPECT_THAT(listed(), ElementsAre(node_of(first), node_of(second)));
    EXPECT_EQ(g_cnAlloc, 2);
    EXPECT_EQ(g_cnFree, 0);
}
