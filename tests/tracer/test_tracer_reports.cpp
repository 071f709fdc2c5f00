// What is said of blocks that are checked, freed and left over.
#include <gmock/gmock.h>

#include "traced.h"

using namespace tracer_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using TracerReports = TracerTest;

// A block with the byte at `place`, from its first one, replaced.
char *damaged(int32_t size, ptrdiff_t place, char byte) {
    char *const bytes = allocate(static_cast<size_t>(size), "culprit", 77);
    bytes[place] = byte;
    return bytes;
}

std::string guard_with(size_t index, char byte) {
    std::string guard = kGuard;
    guard[index] = byte;
    return guard;
}

std::string pointer_text(const void *pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

// What does the judging, under its name in the messages.
const struct Judge {
    const char *name;
    void (*judge)(void *block);
} kJudges[] = {{"Trace_Mem_Check", [](void *block) { EXPECT_EQ(Trace_Mem_Check(block), 1); }},
               {"Trace_Mem_Free", [](void *block) { Trace_Mem_Free(block, "freer", 5); }}};

}  // namespace

TEST_F(TracerReports, whole_blocks_are_fine) {
    LogCapture log;
    for (const size_t size : {0, 1, 16, 1000}) {
        char *const bytes = allocate(size);
        std::memset(bytes, 'x', size);
        EXPECT_EQ(Trace_Mem_Check(judged(bytes)), 0);
        EXPECT_EQ(Trace_Mem_Check(judged(bytes)), 0);
        Trace_Mem_Free(judged(bytes), "freer", 5);
    }
    EXPECT_EQ(Trace_Mem_Check(nullptr), 0);
    EXPECT_EQ(g_cnFree, 4);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TracerReports, damage_is_told_with_its_place_and_the_bytes) {
    for (const auto &[name, judge] : kJudges)
        for (size_t index = 0; index < kGuardSize; index++) {
            SCOPED_TRACE(name + std::to_string(index));
            LogCapture log;
            judge(judged(damaged(10, static_cast<ptrdiff_t>(index) - 16, 'x')));
            EXPECT_EQ(log.messages(), damage(name, whose("culprit", 77, 10), "prefix", index, guard_with(index, 'x')));
            log.clear();
            judge(judged(damaged(10, 10 + static_cast<ptrdiff_t>(index), 'y')));
            EXPECT_EQ(log.messages(), damage(name, whose("culprit", 77, 10), "postfix", index, guard_with(index, 'y')));
        }
}

TEST_F(TracerReports, byte_is_told_as_a_signed_number_and_a_character) {
    const struct {
        char byte;
        std::string line;
    } table[] = {
        {'x', "78, x, \n"}, {' ', "20,  , \n"},       {'\x01', " 1, \x01, \n"},       {'\n', " A, \n, \n"},
        {'%', "25, %, \n"}, {'\x7f', "7F, \x7f, \n"}, {'\x80', "FFFFFF80, \x80, \n"}, {'\xff', "FFFFFFFF, \xff, \n"},
        {'\0', " 0, \n"}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.line);
        LogCapture log;
        EXPECT_EQ(Trace_Mem_Check(judged(damaged(10, 10, row.byte))), 1);
        const std::vector<std::string> messages = log.messages();
        ASSERT_EQ(messages.size(), 18u);
        EXPECT_EQ(messages[0],
                  "[error] Trace_Mem_Check(#): culprit (77) allocate 10 byte buffer is corrupted! (postfix:0)\n");
        EXPECT_EQ(messages[1], "[error] Trace_Mem_Check(#): " + row.line);
        EXPECT_EQ(messages[2], "[error] Trace_Mem_Check(#): 5A, Z, \n");
        EXPECT_EQ(messages[17], "[error] Trace_Mem_Check(#): \n");
    }
}

TEST_F(TracerReports, first_damage_of_each_guard_is_told_the_one_in_front_first) {
    for (const auto &[name, judge] : kJudges) {
        char *const bytes = allocate(10, "culprit", 77);
        std::memcpy(bytes - 16, "ZZZab ZZZZZZZZcd", 16);
        std::memcpy(bytes + 10, "Zefghijklmnopqrs", 16);
        LogCapture log;
        judge(judged(bytes));
        EXPECT_EQ(log.messages(), damage(name, whose("culprit", 77, 10), "prefix", 3, "ZZZab ZZZZZZZZcd") +
                                      damage(name, whose("culprit", 77, 10), "postfix", 1, "Zefghijklmnopqrs"));
    }
}

TEST_F(TracerReports, neighbours_of_the_guards_are_not_looked_at) {
    LogCapture log;
    char *const bytes = allocate(10);
    std::memset(bytes, 'x', 10);
    bytes[10 + 16] = 'x';  // the spare bytes
    EXPECT_EQ(Trace_Mem_Check(judged(bytes)), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TracerReports, damaged_blocks_are_freed_nevertheless) {
    for (const ptrdiff_t place : {-16, -1, 10, 25}) {
        SCOPED_TRACE(place);
        char *const bytes = damaged(10, place, 'x');
        void *const node = node_of(bytes);
        const int32_t freed = g_cnFree;
        HeapWatch watch;
        Trace_Mem_Free(judged(bytes), "freer", 5);
        watch.stop();
        EXPECT_THAT(watch.freed(), ElementsAre(node));
        EXPECT_THAT(listed(), IsEmpty());
        EXPECT_EQ(g_cnFree, freed + 1);
    }
}

TEST_F(TracerReports, checks_leave_the_block) {
    char *const bytes = damaged(10, 10, 'x');
    const std::string block = bytes_of(node_of(bytes), 90);
    EXPECT_EQ(Trace_Mem_Check(judged(bytes)), 1);
    EXPECT_EQ(bytes_of(node_of(bytes), 90), block);
    EXPECT_THAT(listed(), ElementsAre(node_of(bytes)));
    EXPECT_EQ(g_cnFree, 0);
}

TEST_F(TracerReports, freeing_nothing_is_an_error) {
    LogCapture log;
    Trace_Mem_Free(nullptr, "freer", 5);
    EXPECT_THAT(log.messages(), ElementsAre("[error] Trace_Mem_Free(#): freer (5) free a NULL buffer!\n"));
    EXPECT_EQ(g_cnFree, 0);
}

TEST_F(TracerReports, freeing_what_has_no_magic_is_an_error) {
    char *const bytes = allocate(10, "owner", 77);
    const auto message = [](const void *block) {
        return "[error] Trace_Mem_Free(#): freer (5) free an invalid or a corrcupted buffer " + pointer_text(block) +
               "!\n";
    };
    LogCapture log;
    Trace_Mem_Free(bytes, "freer", 5);
    EXPECT_THAT(log.messages(), ElementsAre(message(bytes)));

    for (const uint32_t magic : {0u, 0x5A8888A4u, 0xDA8888A5u, 0xA588885Au}) {
        SCOPED_TRACE(magic);
        log.clear();
        node_of(bytes)->uMagic = magic;
        bytes[10] = 'x';
        HeapWatch watch;
        Trace_Mem_Free(judged(bytes), "freer", 5);
        watch.stop();
        EXPECT_THAT(log.messages(), ElementsAre(message(judged(bytes))));
        EXPECT_THAT(watch.freed(), testing::Not(testing::Contains(node_of(bytes))));
        EXPECT_THAT(listed(), ElementsAre(node_of(bytes)));
        EXPECT_EQ(g_cnFree, 0);
    }

    node_of(bytes)->uMagic = 0x5A8888A5;
    Trace_Mem_Free(judged(bytes), "freer", 5);
    EXPECT_EQ(g_cnFree, 1);
}

TEST_F(TracerReports, good_balance_is_told_at_the_end) {
    for (int i = 0; i < 3; i++)
        Trace_Mem_Free(judged(allocate(10)), "freer", 5);
    LogCapture log;
    EXPECT_EQ(Trace_Mem_Destroy(), 0);
    EXPECT_THAT(log.messages(),
                ElementsAre("[debug] Trace_Mem_Destroy(#): Mem Usage: GOOD, Alloc: 3 times, Free: 3 times\n"));
}

TEST_F(TracerReports, blocks_that_are_left_are_told_at_the_end_the_newest_first) {
    allocate(10, "oldest", 1);
    Trace_Mem_Free(judged(allocate(15)), "freer", 5);
    damaged(20, -16, 'x');
    damaged(30, -1, '\0');
    damaged(40, 40, 'x');
    allocate(0, nullptr, -7);
    allocate(50, "a name that is cut", INT32_MAX);

    LogCapture log;
    EXPECT_EQ(Trace_Mem_Destroy(), 0);
    const std::string start = "[error] Trace_Mem_Destroy(#): ";
    EXPECT_THAT(log.messages(), ElementsAre(start + "Mem Usage:  BAD, Alloc: 7 times, Free: 1 times\n",
                                            start + "a name that is  (2147483647) allocate 50 byte but not freed!\n",
                                            start + " (-7) allocate 0 byte but not freed!\n",
                                            start + "culprit (77) allocate 40 byte but not freed!\n",
                                            start + "culprit (77) allocate 30 byte but not freed and is corrupted !\n",
                                            start + "culprit (77) allocate 20 byte but not freed and is corrupted !\n",
                                            start + "oldest (1) allocate 10 byte but not freed!\n"));
    EXPECT_EQ(g_cnAlloc, 7);
    EXPECT_EQ(g_cnFree, 7);
    EXPECT_THAT(listed(), IsEmpty());
}

// The balance is the counters' alone; what is left is what is listed.
TEST_F(TracerReports, counters_and_list_are_told_as_they_are) {
    allocate(10, "left", 1);
    g_cnFree = 1;
    LogCapture log;
    EXPECT_EQ(Trace_Mem_Destroy(), 0);
    EXPECT_THAT(log.messages(),
                ElementsAre("[debug] Trace_Mem_Destroy(#): Mem Usage: GOOD, Alloc: 1 times, Free: 1 times\n",
                            "[error] Trace_Mem_Destroy(#): left (1) allocate 10 byte but not freed!\n"));
    EXPECT_EQ(g_cnFree, 2);

    log.clear();
    EXPECT_EQ(Trace_Mem_Init(), 0);
    EXPECT_EQ(Trace_Mem_Destroy(), 0);
    EXPECT_THAT(log.messages(),
                ElementsAre("[error] Trace_Mem_Destroy(#): Mem Usage:  BAD, Alloc: 1 times, Free: 2 times\n"));
}

TEST_F(TracerReports, follow_the_level_of_the_log) {
    const struct {
        int32_t level;
        size_t errors;
        size_t debug;
    } table[] = {{0, 0, 0}, {1, 1, 0}, {2, 1, 0}, {3, 1, 1}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.level);
        LogCapture log(row.level);
        EXPECT_EQ(Trace_Mem_Check(judged(damaged(10, -16, 'x'))), 1);
        EXPECT_EQ(log.messages().size(), row.errors * 18);
        log.clear();
        Trace_Mem_Free(judged(damaged(10, 10, 'x')), "freer", 5);
        EXPECT_EQ(log.messages().size(), row.errors * 18);
        log.clear();
        Trace_Mem_Free(nullptr, "freer", 5);
        EXPECT_EQ(log.messages().size(), row.errors);
        log.clear();
        EXPECT_EQ(Trace_Mem_Destroy(), 0);
        EXPECT_EQ(log.messages().size(), row.errors * 2);
        log.clear();
        EXPECT_EQ(Trace_Mem_Init(), 0);
        Trace_Mem_Usage();
        EXPECT_EQ(log.messages().size(), row.debug);
        log.clear();
        EXPECT_EQ(Trace_Mem_Destroy(), 0);
        EXPECT_EQ(log.messages().size(), row.debug);
        EXPECT_EQ(Trace_Mem_Init(), 0);
    }
}
