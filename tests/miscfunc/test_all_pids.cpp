// The processes of a name or of a program: what matches.
#include <gmock/gmock.h>

#include <algorithm>

#include "process_world.h"

using namespace process_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string digits(int count) {
    std::string text;
    for (int i = 0; i < count; i++)
        text += static_cast<char>('0' + i % 10);
    return text;
}

// The entries of /proc in the order in which the system lists them.
std::vector<std::string> listed() {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator("/proc"))
        names.push_back(entry.path().filename().string());
    return names;
}

}  // namespace

TEST(AllPids, of_a_name_are_those_of_exactly_that_name) {
    as_first_process([] {
        set_name("init of tests");
        const Process tool = named("tool");
        const Process other = named("toolx");
        const Process again = named("tool");

        EXPECT_THAT(pids_of("tool"), ElementsAre(tool.pid(), again.pid()));
        EXPECT_THAT(pids_of("toolx"), ElementsAre(other.pid()));
        EXPECT_THAT(pids_of("init of tests"), ElementsAre(1));
        for (const char *name : {"too", "ool", "Tool", "tool ", " tool", "tool\n", "toolxx", "t", "\n"})
            EXPECT_THAT(pids_of(name), IsEmpty()) << name;
    });
}

TEST(AllPids, of_a_name_are_found_by_what_stands_before_its_first_slash_or_newline) {
    const struct {
        const char *comm;
        const char *found_by;  // nothing finds the empty name
        std::vector<const char *> not_by;
    } table[] = {
        {"a/b", "a", {"a/b", "b", "a/"}},
        {"kworker/0:1", "kworker", {"kworker/0:1"}},
        {"a/b/c", "a", {"a/b"}},
        {"a b", "a b", {"a", "b"}},
        {"a ", "a ", {"a"}},
        {" a", " a", {"a"}},
        {" ", " ", {}},
        {"(x)", "(x)", {"x"}},
        {"[x]", "[x]", {"x"}},
        {"a)b", "a)b", {"a"}},
        {"a\nb", "a", {"a\nb", "b", "a\n"}},
        {"a\nb/c", "a", {"a\nb", "b", "a\n"}},
        {"a/b\nc", "a", {"a/b", "a/b\nc"}},
        {"%s%n", "%s%n", {}},
        {"\xff\x80", "\xff\x80", {}},
        {"123456789012345", "123456789012345", {"12345678901234"}},
        // The system keeps 15 characters.
        {"1234567890123456", "123456789012345", {"1234567890123456"}},
        {"/b", nullptr, {"b", "/b"}},
        {"\nb", nullptr, {"b", "\n"}},
        {"", nullptr, {"\n", "()"}},
    };
    as_first_process([&] {
        set_name("init of tests");
        for (const auto &row : table) {
            SCOPED_TRACE(row.comm);
            const Process process = named(row.comm);
            if (row.found_by != nullptr) {
                EXPECT_THAT(pids_of(row.found_by), ElementsAre(process.pid()));
            }
            for (const char *name : row.not_by)
                EXPECT_THAT(pids_of(name), IsEmpty()) << name;
        }
    });
}

TEST(AllPids, of_a_path_are_those_whose_command_line_begins_with_it) {
    const TempFolder folder;
    const std::string tool = program_file(folder, "tool");
    const std::string longer = program_file(folder, "toolx");
    as_first_process([&] {
        const Program first(tool, {tool});
        const Program second(longer, {longer});
        const Program dashed(tool, {tool, "-"});
        const Program renamed(tool, {"tool"});
        const Program relative(tool, {"." + tool});
        const Program titled(longer, {tool + ": worker"});

        EXPECT_THAT(pids_of(tool), ElementsAre(first.pid(), second.pid(), dashed.pid(), titled.pid()));
        EXPECT_THAT(pids_of(longer), ElementsAre(second.pid()));
        EXPECT_THAT(pids_of(tool + ":"), ElementsAre(titled.pid()));
        EXPECT_THAT(pids_of(tool + ": worker"), ElementsAre(titled.pid()));
        // A folder of programs is a prefix as well, and so is the root.
        EXPECT_THAT(pids_of(folder.path() + "/"), ElementsAre(first.pid(), second.pid(), dashed.pid(), titled.pid()));
        // The first argument ends where the next one begins.
        for (const std::string &path : {tool + " -", tool + "-", tool + "/", "/" + tool, folder.path("ool"),
                                        folder.path("tool.sh"), std::string("/tool")})
            EXPECT_THAT(pids_of(path), IsEmpty()) << path;
        // By name they are what their files are called, whatever their arguments say.
        EXPECT_THAT(pids_of("tool"), ElementsAre(first.pid(), dashed.pid(), renamed.pid(), relative.pid()));
        EXPECT_THAT(pids_of("toolx"), ElementsAre(second.pid(), titled.pid()));
    });
}

TEST(AllPids, of_a_script_are_those_of_its_name_or_of_its_interpreter) {
    const TempFolder folder;
    const std::string interpreter = program_file(folder, "reader");
    const std::string script = folder.file("script of many words", "#!" + interpreter + " -\n");
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    as_first_process([&] {
        const Program running(script, {script});
        EXPECT_THAT(pids_of("script of many "), ElementsAre(running.pid()));
        EXPECT_THAT(pids_of("reader"), IsEmpty());
        EXPECT_THAT(pids_of(interpreter), ElementsAre(running.pid()));
        EXPECT_THAT(pids_of(script), IsEmpty());
    });
}

TEST(AllPids, of_a_path_are_found_by_4095_characters_at_most) {
    const TempFolder folder;
    const std::string tool = program_file(folder, "tool");
    const std::string title = "/" + std::string(5000, 't');
    as_first_process([&] {
        const Program program(tool, {title});
        EXPECT_THAT(pids_of(title.substr(0, 4094)), ElementsAre(program.pid()));
        EXPECT_THAT(pids_of(title.substr(0, 4095)), ElementsAre(program.pid()));
        EXPECT_THAT(pids_of(title.substr(0, 4096)), IsEmpty());
        EXPECT_THAT(pids_of(title), IsEmpty());
    });
}

TEST(AllPids, of_a_path_are_found_by_the_first_line_alone) {
    const TempFolder folder;
    const std::string tool = program_file(folder, "tool");
    as_first_process([&] {
        const Program program(tool, {"/first\nsecond"});
        EXPECT_THAT(pids_of("/first"), ElementsAre(program.pid()));
        EXPECT_THAT(pids_of("/first\n"), ElementsAre(program.pid()));
        EXPECT_THAT(pids_of("/first\ns"), IsEmpty());
        EXPECT_THAT(pids_of("/first\nsecond"), IsEmpty());
    });
}

// As of a kernel thread, nothing is left of a zombie but its name.
TEST(AllPids, of_what_has_no_command_line_are_found_by_name_alone) {
    const TempFolder folder;
    const std::string tool = program_file(folder, "tool");
    as_first_process([&] {
        const Program program(tool, {tool});
        program.become_zombie();
        EXPECT_THAT(pids_of("tool"), ElementsAre(program.pid()));
        EXPECT_THAT(pids_of(tool), IsEmpty());
        EXPECT_THAT(pids_of("/"), testing::Not(testing::Contains(program.pid())));
    });
    with_proc({{.name = "2", .comm = "kthreadd\n", .cmdline = ""}}, [] {
        EXPECT_THAT(pids_of("kthreadd"), ElementsAre(2));
        EXPECT_THAT(pids_of("/"), IsEmpty());
    });
}

TEST(AllPids, are_those_of_folders_whose_names_are_digits) {
    std::vector<ProcEntry> entries;
    for (const char *name : {"12", "007", "a12", "12a", "-5", "+5", " 5", "5 ", "0x5", "1.5", "self", "..."})
        entries.push_back({.name = name, .comm = "tool\n", .cmdline = "/tool"});
    with_proc(entries, [] {
        write_file("/proc/34", "tool\n");
        must(symlink("12", "/proc/56") == 0, "symlink");
        const auto ids = testing::UnorderedElementsAre(12, 7);
        LogCapture log;
        EXPECT_THAT(pids_of("tool"), ids);
        EXPECT_THAT(pids_of("/tool"), ids);
        EXPECT_EQ(log.messages().size(), 4u);  // the matches: what is skipped is no warning
    });
}

TEST(AllPids, are_in_the_order_of_the_folder) {
    std::vector<ProcEntry> entries;
    for (const char *name : {"50", "7", "300", "12", "4", "1000", "33"})
        entries.push_back({.name = name, .comm = "tool\n", .cmdline = "/tool"});
    with_proc(entries, [] {
        std::vector<int32_t> order;
        for (const std::string &name : listed())
            order.push_back(std::stoi(name));
        ASSERT_FALSE(std::is_sorted(order.begin(), order.end())) << "says nothing about the order";
        EXPECT_EQ(pids_of("tool"), order);
        EXPECT_EQ(pids_of("/tool"), order);
    });
}

TEST(AllPids, of_odd_first_lines) {
    const struct {
        std::string comm;
        const char *found_by;
        bool found;
    } table[] = {
        {"tool", "tool", true},
        {"tool\n", "tool", true},
        {"tool\nmore\n", "tool", true},
        {"tool/more\n", "tool", true},
        {"tool\n/more", "tool", true},
        {"tool\r\n", "tool", false},
        {std::string("tool\0more\n", 10), "tool", true},
        {"", "tool", false},
        {"\n", "tool", false},
        {std::string(5000, 't'), "t", false},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.comm);
        with_proc({{.name = "5", .comm = row.comm}},
                  [&] { EXPECT_EQ(pids_of(row.found_by).size(), row.found ? 1u : 0u); });
    }

    const std::string long_line = digits(5000);
    with_proc({{.name = "5", .comm = long_line}}, [&] {
        EXPECT_THAT(pids_of(long_line.substr(0, 4095)), ElementsAre(5));
        EXPECT_THAT(pids_of(long_line.substr(0, 4094)), IsEmpty());
        EXPECT_THAT(pids_of(long_line.substr(0, 4096)), IsEmpty());
    });
}

TEST(AllPids, each_match_is_told) {
    const TempFolder folder;
    const std::string tool = program_file(folder, "tool-a");
    as_first_process([&] {
        const Process first = named("idle");
        const Program program(tool, {tool});
        const Process second = named("idle");
        {
            LogCapture log;
            EXPECT_EQ(pids_of("idle").size(), 2u);
            EXPECT_THAT(log.messages(),
                        ElementsAre(match_message(first.pid(), "idle"), match_message(second.pid(), "idle")));
            log.clear();
            EXPECT_EQ(pids_of(folder.path("too")).size(), 1u);
            EXPECT_THAT(log.messages(), ElementsAre(match_message(program.pid(), folder.path("too"))));
            log.clear();
            EXPECT_THAT(pids_of("nothing"), IsEmpty());
            EXPECT_THAT(log.messages(), IsEmpty());
        }
        LogCapture errors(2);
        EXPECT_EQ(pids_of("idle").size(), 2u);
        EXPECT_THAT(errors.messages(), IsEmpty());
    });
}
