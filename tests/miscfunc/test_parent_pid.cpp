// The parent of a process.
#include <gmock/gmock.h>

#include <climits>

#include "heap.h"
#include "process_world.h"

using namespace process_test;
using testing::IsEmpty;

namespace {

constexpr int32_t kUntouched = 4711;

struct Parent {
    explicit Parent(int32_t pid) { result = Get_Parent_Pid(pid, &parent); }

    int32_t parent = kUntouched;
    int32_t result;
};

}  // namespace

TEST(ParentPid, is_that_of_the_caller_and_of_its_children) {
    EXPECT_EQ(Parent(getpid()).result, 0);
    EXPECT_EQ(Parent(getpid()).parent, getppid());

    const Process child = named("korvex-child");
    EXPECT_EQ(Parent(child.pid()).result, 0);
    EXPECT_EQ(Parent(child.pid()).parent, getpid());
}

TEST(ParentPid, bad_arguments_store_nothing) {
    LogCapture log;
    for (const int32_t pid : {-1, -getpid(), INT_MIN}) {
        EXPECT_EQ(Parent(pid).result, -EINVAL) << pid;
        EXPECT_EQ(Parent(pid).parent, kUntouched) << pid;
    }
    EXPECT_EQ(Get_Parent_Pid(getpid(), nullptr), -EINVAL);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(ParentPid, of_no_process_cannot_be_told) {
    LogCapture log;
    for (const int32_t pid : {dead_process(), 0, INT_MAX}) {
        EXPECT_EQ(Parent(pid).result, -ESRCH) << pid;
        EXPECT_EQ(Parent(pid).parent, -1) << pid;
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(ParentPid, that_may_not_be_read_cannot_be_told) {
    for (const int error : {EACCES, EMFILE, ENOMEM}) {
        const FailCall fault(Call::fopen, error);
        const FailCall other_fault(Call::open, error);
        const Parent parent(getpid());
        EXPECT_EQ(fault.failed() + other_fault.failed(), 1);
        EXPECT_EQ(parent.result, -ESRCH);
        EXPECT_EQ(parent.parent, -1);
    }
}

TEST(ParentPid, of_a_process_that_nobody_has_waited_for_is_known) {
    const Process child = named("korvex-zombie");
    child.become_zombie();
    EXPECT_EQ(Parent(child.pid()).result, 0);
    EXPECT_EQ(Parent(child.pid()).parent, getpid());
}

TEST(ParentPid, changes_when_the_parent_dies) {
    as_first_process([] {
        const std::vector<pid_t> line = start_line_of({"parent", "orphan"});
        EXPECT_EQ(Parent(line[1]).parent, line[0]);
        Process(line[0]).end();
        EXPECT_EQ(Parent(line[1]).result, 0);
        EXPECT_EQ(Parent(line[1]).parent, 1);
    });
}

TEST(ParentPid, of_the_first_process_of_a_namespace_is_0) {
    as_first_process([] {
        EXPECT_EQ(Parent(1).result, 0);
        EXPECT_EQ(Parent(1).parent, 0);
    });
}

TEST(ParentPid, is_found_behind_names_without_blanks) {
    for (const char *name : {"a", "", "15-characters-x", "a/b", "a)b", ")", "((", "(x)", "a)S", "%d", "\\"}) {
        SCOPED_TRACE(name);
        const Process child = named(name);
        const Parent parent(child.pid());
        EXPECT_EQ(parent.result, 0);
        EXPECT_EQ(parent.parent, getpid());
    }
}

// The name's second word is taken for the state, and what follows is no number.
TEST(ParentPid, is_not_found_behind_a_name_with_a_blank) {
    for (const char *name :
         {"a b", " a", "a ", " ", "a  b", "a bcd", "a\tb", "a\vb", "a b c", "(a) S", "a b)", "a (b"}) {
        SCOPED_TRACE(name);
        const Process child = named(name);
        const Parent parent(child.pid());
        EXPECT_EQ(parent.result, 0);
        EXPECT_EQ(parent.parent, -1);
    }
}

// The pattern is as blind to names that look like the rest of the line: kept as it is.
TEST(ParentPid, is_misread_behind_a_name_that_looks_like_one) {
    const Process child = named("a b 42");
    EXPECT_EQ(Parent(child.pid()).result, 0);
    EXPECT_EQ(Parent(child.pid()).parent, 42);
}

TEST(ParentPid, is_read_by_a_pattern) {
    const struct {
        const char *stat;
        int32_t result;
        int32_t parent;
    } table[] = {
        {"7 (name) S 5 7 7 0 -1", 0, 5},
        {"7 (name) S 5", 0, 5},
        {"7 (name) S 0 0", 0, 0},
        {"7 (name) S -1 0", 0, -1},
        {"7 (name) R 2147483647 0", 0, INT_MAX},
        {"  7   (name)\nZ\t5", 0, 5},
        {"7 name S5", 0, 5},
        {"7 (name) S ", 0, -1},
        {"7 (name)", 0, -1},
        {"7", 0, -1},
        {"8 (name) S 5", 0, 5},
        {"", -ESRCH, -1},
        {"x", -ESRCH, -1},
        {"(name) S 5", -ESRCH, -1},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.stat);
        with_proc({{.name = "7", .stat = row.stat}}, [&] {
            const Parent parent(7);
            EXPECT_EQ(parent.result, row.result);
            EXPECT_EQ(parent.parent, row.parent);
        });
    }
}

TEST(ParentPid, leaks_nothing) {
    const Process odd = named("a b");
    const pid_t pids[] = {getpid(), odd.pid(), dead_process(), 0, -1};
    const auto before = open_descriptors();
    EXPECT_FALSE(loses_memory([&] {
        for (const pid_t pid : pids)
            (void)Parent(pid);
    }));
    EXPECT_EQ(open_descriptors(), before);
}
