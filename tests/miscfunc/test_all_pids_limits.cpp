// The processes of a name or of a program: arguments, many matches, failures, and processes that end meanwhile.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <optional>

#include "heap.h"
#include "heap_watch.h"
#include "process_world.h"

using namespace process_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string growth_message(int32_t from, int32_t to) {
    return "[debug] Get_All_Pids(#): Array is not big enough, it will be re-allocated. (" + std::to_string(from) +
           "=>" + std::to_string(to) + ")\n";
}

std::string memory_message(int32_t bytes) {
    return "[error] Get_All_Pids(#): Can't allocate memory of " + std::to_string(bytes) + " bytes!\n";
}

std::string no_folder(int code) {
    return "[error] Get_All_Pids(#): Can't open the folder \"/proc\"! (" + std::to_string(code) + ")\n";
}

std::string no_descriptor(int code) {
    return "[error] Get_All_Pids(#): Can't get the fd of \"/proc\" folder. (" + std::to_string(code) + ")\n";
}

std::string cannot_stat(int32_t pid, int code) {
    return "[debug] Get_All_Pids(#): WARNING: Can't stat the file \"/proc/" + std::to_string(pid) + "\". (" +
           std::to_string(code) + ")\n";
}

std::string cannot_open(int32_t pid, int code) {
    return "[debug] Get_All_Pids(#): WARNING: Can't open the file \"/proc/" + std::to_string(pid) +
           "/comm\" for reading. (" + std::to_string(code) + ")\n";
}

std::vector<ProcEntry> many(int count) {
    std::vector<ProcEntry> entries;
    for (int i = 1; i <= count; i++)
        entries.push_back({.name = std::to_string(i), .comm = "tool\n"});
    return entries;
}

void expect_nothing_found(const Found &found, int32_t result) {
    EXPECT_EQ(found.result, result);
    EXPECT_TRUE(found.null);
    EXPECT_EQ(found.count, 0);
}

}  // namespace

TEST(AllPids, bad_arguments_look_and_store_nothing) {
    int32_t count = 99;
    int32_t *const untouched = &count;
    int32_t *pids = untouched;
    LogCapture log;
    const CountCalls openings(Call::opendir);
    const CountCalls allocations(Call::allocation);

    EXPECT_EQ(Get_All_Pids(nullptr, &pids, &count), -EINVAL);
    EXPECT_EQ(Get_All_Pids("", &pids, &count), -EINVAL);
    EXPECT_EQ(Get_All_Pids("x", nullptr, &count), -EINVAL);
    EXPECT_EQ(Get_All_Pids("x", &pids, nullptr), -EINVAL);
    EXPECT_EQ(Get_All_Pids("/x", nullptr, nullptr), -EINVAL);

    EXPECT_EQ(openings.count(), 0);
    EXPECT_EQ(allocations.count(), 0);
    EXPECT_EQ(pids, untouched);
    EXPECT_EQ(count, 99);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(AllPids, of_a_name_that_no_process_has_are_none) {
    as_first_process([] {
        const auto before = open_descriptors();
        LogCapture log;
        expect_nothing_found(Found("no process"), -ENODATA);
        expect_nothing_found(Found("/no/such/program"), -ENODATA);
        EXPECT_THAT(log.messages(), IsEmpty());
        EXPECT_EQ(open_descriptors(), before);
    });
}

TEST(AllPids, array_doubles_when_it_is_full) {
    const struct {
        int processes;
        std::vector<std::pair<int, int>> growths;
        std::vector<size_t> allocations;
    } table[] = {
        {1, {}, {256}},
        {64, {}, {256}},
        {65, {{64, 128}}, {256, 512}},
        {128, {{64, 128}}, {256, 512}},
        {129, {{64, 128}, {128, 256}}, {256, 512, 1024}},
        {257, {{64, 128}, {128, 256}, {256, 512}}, {256, 512, 1024, 2048}},
        {600, {{64, 128}, {128, 256}, {256, 512}, {512, 1024}}, {256, 512, 1024, 2048, 4096}},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.processes);
        const auto look = [&] {
            LogCapture log;
            const std::vector<int32_t> pids = pids_of("tool");
            ASSERT_EQ(pids.size(), static_cast<size_t>(row.processes));

            // The array grows just before the match that has no room in it.
            std::vector<std::string> messages;
            for (size_t i = 0; i < pids.size(); i++) {
                for (const auto &[from, to] : row.growths)
                    if (static_cast<size_t>(from) == i)
                        messages.push_back(growth_message(from, to));
                messages.push_back(match_message(pids[i], "tool"));
            }
            EXPECT_EQ(log.messages(), messages);
        };
        const auto weigh = [&] {
            HeapWatch watch;
            int32_t *pids = nullptr;
            int32_t count = 0;
            EXPECT_EQ(Get_All_Pids("tool", &pids, &count), 0);
            std::free(pids);
            watch.stop();

            std::vector<size_t> arrays;
            for (const size_t size : watch.asked())
                if (size <= row.allocations.back())  // a folder that is read takes more
                    arrays.push_back(size);
            EXPECT_EQ(arrays, row.allocations);
        };
        with_proc(many(row.processes), [&] {
            look();
            weigh();
        });
    }
}

TEST(AllPids, of_many_real_processes) {
    as_first_process([] {
        std::vector<int32_t> expected;
        std::vector<Process> processes;
        for (int i = 0; i < 130; i++) {
            processes.push_back(named("one of many"));
            expected.push_back(processes.back().pid());
        }
        LogCapture log;
        EXPECT_EQ(pids_of("one of many"), expected);
        const std::vector<std::string> messages = log.messages();
        ASSERT_EQ(messages.size(), 132u);
        EXPECT_EQ(messages[64], growth_message(64, 128));
        EXPECT_EQ(messages[129], growth_message(128, 256));
    });
}

TEST(AllPids, cost_one_look_one_opening_and_one_read_a_process) {
    as_first_process([] {
        std::vector<Process> processes;
        for (int i = 0; i < 9; i++)
            processes.push_back(named(i % 2 == 0 ? "tool" : "other"));
        for (const char *name : {"tool", "nothing", "/nothing"}) {
            SCOPED_TRACE(name);
            const CountCalls looks(Call::fstatat);
            const CountCalls openings(Call::open);
            const CountCalls reads(Call::read);
            (void)Found(name);
            EXPECT_EQ(looks.count(), 10);
            EXPECT_EQ(openings.count(), 10);
            EXPECT_EQ(reads.count(), 10);
        }
    });
}

TEST(AllPids, need_the_folder_and_its_descriptor) {
    const struct {
        Call call;
        std::string (*message)(int code);
    } table[] = {{Call::opendir, no_folder}, {Call::dirfd, no_descriptor}};
    const auto before = open_descriptors();

    for (const auto &row : table)
        for (const int error : {EACCES, EMFILE, ENOENT}) {
            SCOPED_TRACE(row.message(-error));
            LogCapture log;
            const FailCall fault(row.call, error);
            expect_nothing_found(Found("x"), -error);
            EXPECT_EQ(fault.failed(), 1);
            EXPECT_THAT(log.messages(), ElementsAre(row.message(-error)));
        }
    EXPECT_EQ(open_descriptors(), before);

    EXPECT_FALSE(loses_memory([] {
        const FailCall fault(Call::dirfd, EBADF);
        (void)Found("x");
    }));
}

// The nth allocation fails, from the first one of the array to the last.
TEST(AllPids, need_memory) {
    with_proc(many(129), [] {
        const int folder = open("/proc", O_RDONLY | O_DIRECTORY);
        const std::vector<std::string> expected[] = {
            {memory_message(256)}, {no_folder(-ENOMEM)}, {memory_message(512)}, {memory_message(1024)}};
        int nth = 1;
        for (const auto &messages : expected) {
            SCOPED_TRACE(nth);
            {
                LogCapture log(1);
                const FailCall fault(Call::allocation, ENOMEM, nth);
                expect_nothing_found(Found("tool"), -ENOMEM);
                EXPECT_EQ(fault.failed(), 1);
                EXPECT_EQ(log.messages(), messages);
            }
            EXPECT_FALSE(loses_memory([&] {
                const FailCall fault(Call::allocation, ENOMEM, nth);
                (void)Found("tool");
            }));
            nth++;
        }
        close(folder);
        EXPECT_EQ(open("/proc", O_RDONLY), folder) << "a descriptor is left";
        EXPECT_EQ(pids_of("tool").size(), 129u);
    });
}

TEST(AllPids, growth_that_fails_is_announced_first) {
    with_proc(many(65), [] {
        // The log takes memory as well, some of it only once, so it is looked up which of the allocations is the array's.
        {
            const LogCapture log;
            EXPECT_EQ(pids_of("tool").size(), 65u);
        }
        ptrdiff_t nth = 0;
        {
            const LogCapture log;
            HeapWatch watch;
            EXPECT_EQ(pids_of("tool").size(), 65u);
            watch.stop();
            nth = std::find(watch.asked().begin(), watch.asked().end(), 512u) - watch.asked().begin() + 1;
        }
        LogCapture log;
        const FailCall fault(Call::malloc, ENOMEM, static_cast<int>(nth));
        expect_nothing_found(Found("tool"), -ENOMEM);
        const std::vector<std::string> messages = log.messages();
        ASSERT_EQ(messages.size(), 66u);
        EXPECT_EQ(messages[64], growth_message(64, 128));
        EXPECT_EQ(messages[65], memory_message(512));
    });
}

TEST(AllPids, skip_what_cannot_be_looked_at) {
    as_first_process([] {
        const Process first = named("tool");
        const Process second = named("tool");
        const Process third = named("tool");
        const struct {
            Call call;
            std::string (*message)(int32_t pid, int code);
        } table[] = {{Call::fstatat, cannot_stat}, {Call::open, cannot_open}};

        for (const auto &row : table)
            for (const int error : {EACCES, EMFILE}) {
                const std::string message = row.message(second.pid(), -error);
                SCOPED_TRACE(message);
                LogCapture log(1);
                std::vector<int32_t> found;
                {
                    // Process 1, the first, the second; loud from here, since the log makes calls as well.
                    const FailCall fault(row.call, error, 3);
                    const BeforeCall loud(row.call, 3, [] { g_idLogLevel = 3; });
                    found = pids_of("tool");
                }
                EXPECT_THAT(found, ElementsAre(first.pid(), third.pid()));
                EXPECT_THAT(log.messages(), ElementsAre(message, match_message(third.pid(), "tool")));
            }
    });
}

TEST(AllPids, skip_the_process_that_ends_meanwhile) {
    const struct {
        Call call;
        std::string (*message)(int32_t pid, int code);
    } table[] = {{Call::fstatat, cannot_stat}, {Call::open, cannot_open}, {Call::read, nullptr}};
    for (const auto &row : table) {
        SCOPED_TRACE(static_cast<int>(row.call));
        as_first_process([&] {
            std::optional<Process> victim = named("tool");
            const Process survivor = named("tool");
            const pid_t gone = victim->pid();
            LogCapture log;
            std::vector<int32_t> found;
            {
                const BeforeCall ending(row.call, 2, [&] { victim.reset(); });
                found = pids_of("tool");
                EXPECT_TRUE(ending.ran());
            }
            EXPECT_THAT(found, ElementsAre(survivor.pid()));

            std::vector<std::string> messages{match_message(survivor.pid(), "tool")};
            if (row.message != nullptr)
                messages.insert(messages.begin(), row.message(gone, -ENOENT));
            EXPECT_EQ(log.messages(), messages);
        });
    }
}

TEST(AllPids, of_a_path_that_cannot_be_read_are_told_with_its_file) {
    with_proc({{.name = "5", .comm = "tool\n"}, {.name = "6", .comm = "tool\n", .cmdline = "/tool"}}, [] {
        LogCapture log;
        EXPECT_THAT(pids_of("/tool"), ElementsAre(6));
        EXPECT_THAT(log.messages(),
                    testing::UnorderedElementsAre("[debug] Get_All_Pids(#): WARNING: Can't open the file "
                                                  "\"/proc/5/cmdline\" for reading. (-2)\n",
                                                  match_message(6, "/tool")));
    });
}

TEST(AllPids, of_whom_none_is_left_are_none) {
    as_first_process([] {
        std::optional<Process> victim = named("tool");
        const BeforeCall ending(Call::open, 2, [&] { victim.reset(); });
        expect_nothing_found(Found("tool"), -ENODATA);
        EXPECT_TRUE(ending.ran());
    });
}

TEST(AllPids, leak_nothing) {
    as_first_process([] {
        const Process here = named("tool");
        const auto before = open_descriptors();
        EXPECT_FALSE(loses_memory([] {
            (void)Found("tool");
            (void)Found("no process");
        }));
        EXPECT_EQ(open_descriptors(), before);
    });
}
