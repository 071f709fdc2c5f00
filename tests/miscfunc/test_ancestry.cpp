// Who started a program: the ancestor just below process 1.
#include <gmock/gmock.h>

#include "heap.h"
#include "process_world.h"

using namespace process_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int32_t kUntouched = 4711;

struct Ancestor {
    explicit Ancestor(const std::string &name) { result = Get_Ancestry_Pid(name.c_str(), &pid); }

    int32_t pid = kUntouched;
    int32_t result;
};

void expect_ancestor(const std::string &name, int32_t pid) {
    const Ancestor ancestor(name);
    EXPECT_EQ(ancestor.result, 0) << name;
    EXPECT_EQ(ancestor.pid, pid) << name;
}

// For a walk that might not end: a signal ends it then. (Process 1 of a namespace would not get that.)
void expect_ancestor_soon(const std::string &name, int32_t pid) {
    const int status = in_child([&] {
        alarm(30);
        expect_ancestor(name, pid);
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(status, 0) << "the walk went wrong, or on and on";
}

std::string status(const std::string &pid, const std::string &parent) {
    return pid + " (x) S " + parent + " 0 0 0\n";
}

}  // namespace

TEST(Ancestry, ends_just_below_process_1) {
    as_first_process([] {
        const std::vector<pid_t> line = start_line_of({"service", "shell", "script", "tool"});
        const std::vector<pid_t> other = start_line_of({"other", "far", "near"});
        for (const char *name : {"service", "shell", "script", "tool"})
            expect_ancestor(name, line[0]);
        for (const char *name : {"other", "far", "near"})
            expect_ancestor(name, other[0]);
    });
}

TEST(Ancestry, of_a_program_path) {
    const TempFolder folder;
    const std::string tool = program_file(folder, "tool");
    as_first_process([&] {
        const Program program(tool, {tool});
        expect_ancestor(tool, program.pid());
        expect_ancestor(folder.path("to"), program.pid());
    });
}

TEST(Ancestry, is_that_of_the_first_match) {
    as_first_process([] {
        const std::vector<pid_t> first = start_line_of({"first", "tool"});
        const std::vector<pid_t> second = start_line_of({"second", "tool"});
        expect_ancestor("tool", first[0]);
        Process(first[0]).end();  // process 1 is its child's parent from now on
        expect_ancestor("tool", first[1]);
        ::kill(first[1], SIGKILL);
        wait_for(first[1]);
        expect_ancestor("tool", second[0]);
    });
}

TEST(Ancestry, takes_the_order_of_the_folder) {
    std::vector<ProcEntry> entries;
    for (const char *name : {"50", "7", "300", "12", "4"})
        entries.push_back({.name = name, .comm = "tool\n", .stat = status(name, "1")});
    with_proc(entries, [] {
        const std::vector<int32_t> pids = pids_of("tool");
        ASSERT_EQ(pids.size(), 5u);
        expect_ancestor("tool", pids[0]);
    });
}

TEST(Ancestry, stops_where_a_parent_cannot_be_told) {
    with_proc({{.name = "200", .comm = "alone\n"},
               {.name = "300", .comm = "child\n", .stat = status("300", "250")},
               {.name = "400", .comm = "far\n", .stat = status("400", "300")},
               {.name = "500", .comm = "cut\n", .stat = status("500", "501")},
               {.name = "501", .comm = "x\n", .stat = ""}},
              [] {
                  expect_ancestor("alone", 200);
                  expect_ancestor("child", 250);
                  expect_ancestor("far", 250);
                  expect_ancestor("cut", 501);
              });
}

// A blank in a name hides the parent: -1 is what is known of it, and the walk ends there.
TEST(Ancestry, behind_a_name_with_a_blank_is_unknown) {
    as_first_process([] {
        start_line_of({"service", "my shell", "tool"});
        const std::vector<pid_t> line = start_line_of({"a service", "script"});
        expect_ancestor("my shell", -1);
        expect_ancestor("tool", -1);
        expect_ancestor("script", -1);
        expect_ancestor("a service", -1);
        EXPECT_EQ(line.size(), 2u);
    });
}

// Whoever names his process like the rest of the line could choose its parent: itself, so that the walk never ends, or
// somebody else's service.
TEST(Ancestry, is_not_chosen_by_the_name_of_a_process) {
    constexpr pid_t kService = 2;
    constexpr pid_t kItself = 3;
    for (const pid_t parent : {kItself, kService, 4'194'304})
        for (const char *beginning : {"a S ", "a\nS\n", "(a) S ", "a) S "}) {
            SCOPED_TRACE(beginning + std::to_string(parent));
            as_first_process([&] {
                ASSERT_EQ(start_line_of({"service"})[0], kService);
                ASSERT_EQ(start_line_of({beginning + std::to_string(parent), "tool"})[0], kItself);
                expect_ancestor_soon("tool", -1);
            });
        }
}

TEST(Ancestry, is_found_behind_names_with_brackets) {
    as_first_process([] {
        const std::vector<pid_t> line = start_line_of({")(", "a)S", "(a)", "))", "tool"});
        expect_ancestor("tool", line[0]);
    });
}

// No kernel shows that; but a chain that changes meanwhile may look so.
TEST(Ancestry, ends_where_processes_are_met_again) {
    const std::vector<std::vector<std::string>> rings = {
        {"20"}, {"20", "30"}, {"20", "30", "40", "50", "60", "70", "80"}};
    for (const std::vector<std::string> &ring : rings) {
        std::vector<ProcEntry> entries = {{.name = "10", .comm = "tool\n", .stat = status("10", "20")}};
        for (size_t i = 0; i < ring.size(); i++)
            entries.push_back({.name = ring[i], .stat = status(ring[i], ring[(i + 1) % ring.size()])});
        with_proc(entries, [&] {
            alarm(30);
            const Ancestor ancestor("tool");
            EXPECT_EQ(ancestor.result, 0);
            EXPECT_THAT(ring, testing::Contains(std::to_string(ancestor.pid)));
        });
    }
}

TEST(Ancestry, of_process_1_itself_is_0) {
    as_first_process([] {
        set_name("first");
        expect_ancestor("first", 0);
    });
}

// A process that was put into a pid namespace from outside has a parent that is not seen in there.
TEST(Ancestry, of_a_process_from_outside_is_0) {
    const int status = in_child([] {
        const Pipe entered;
        const Pipe seen;
        must(unshare(CLONE_NEWPID | CLONE_NEWNS) == 0, "unshare");
        const pid_t first = start_child([&] {
            must(mount("proc", "/proc", "proc", 0, nullptr) == 0, "mount /proc");
            (void)entered.take<char>();
            EXPECT_EQ(pids_of("guest").size(), 1u);
            expect_ancestor("guest", 0);
            seen.put('s');
            return testing::Test::HasFailure() ? 1 : 0;
        });
        {
            const Process guest = named("guest");  // in the namespace, with this process as its parent
            entered.put('e');
            (void)seen.take<char>();
        }
        return wait_for(first);
    });
    EXPECT_EQ(status, 0);
}

TEST(Ancestry, bad_arguments_are_not_looked_for) {
    int32_t pid = kUntouched;
    LogCapture log;
    const CountCalls openings(Call::opendir);
    EXPECT_EQ(Get_Ancestry_Pid(nullptr, &pid), -EINVAL);
    EXPECT_EQ(pid, kUntouched);
    EXPECT_EQ(Get_Ancestry_Pid("x", nullptr), -EINVAL);
    EXPECT_EQ(Get_Ancestry_Pid(nullptr, nullptr), -EINVAL);
    EXPECT_EQ(Ancestor("").result, -EINVAL);
    EXPECT_EQ(Ancestor("").pid, -1);  // it is the search that refuses this one
    EXPECT_EQ(openings.count(), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(Ancestry, failure_of_the_search_is_the_result) {
    EXPECT_EQ(Ancestor("no process").result, -ENODATA);
    EXPECT_EQ(Ancestor("no process").pid, -1);
    EXPECT_EQ(Ancestor("/no/such/program").result, -ENODATA);

    LogCapture log;
    {
        const FailCall fault(Call::allocation, ENOMEM);
        const Ancestor ancestor("x");
        EXPECT_EQ(ancestor.result, -ENOMEM);
        EXPECT_EQ(ancestor.pid, -1);
    }
    {
        const FailCall fault(Call::opendir, EACCES);
        const Ancestor ancestor("x");
        EXPECT_EQ(ancestor.result, -EACCES);
        EXPECT_EQ(ancestor.pid, -1);
    }
    EXPECT_THAT(log.messages(), ElementsAre("[error] Get_All_Pids(#): Can't allocate memory of 256 bytes!\n",
                                            "[error] Get_All_Pids(#): Can't open the folder \"/proc\"! (-13)\n"));
}

TEST(Ancestry, tells_the_matches_and_leaks_nothing) {
    as_first_process([] {
        const Process child = named("tool");
        const Process other = named("tool");
        {
            LogCapture log;
            expect_ancestor("tool", child.pid());
            EXPECT_THAT(log.messages(),
                        ElementsAre(match_message(child.pid(), "tool"), match_message(other.pid(), "tool")));
        }
        const auto before = open_descriptors();
        EXPECT_FALSE(loses_memory([] { (void)Ancestor("tool"); }));
        EXPECT_EQ(open_descriptors(), before);
    });
}
