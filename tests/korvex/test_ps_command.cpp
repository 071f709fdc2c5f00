// korvex ps.
#include <nlohmann/json.hpp>

#include "process_world.h"
#include "run_korvex.h"

namespace {

using process_test::as_first_process;
using process_test::start_line_of;

class PsCommand : public KorvexTest {
  protected:
    void expect_pid(const Words &words, pid_t pid) const {
        EXPECT_EQ(korvex(words), Outcome(0, std::to_string(pid) + "\n")) << testing::PrintToString(words);
    }
};

TEST_F(PsCommand, the_processes_of_a_name_stand_one_a_line) {
    as_first_process([this] {
        const std::vector<pid_t> line = start_line_of({"service", "tool", "tool"});
        EXPECT_EQ(korvex({"ps", "tool"}), Outcome(0, std::to_string(line[1]) + "\n" + std::to_string(line[2]) + "\n"));
        expect_pid({"ps", "service"}, line[0]);
    });
}

TEST_F(PsCommand, the_processes_of_a_program_are_found_by_its_path) {
    const std::string file = process_test::program_file(folder, "tool");
    as_first_process([&] {
        const process_test::Program program(file, {file});
        expect_pid({"ps", file}, program.pid());
        expect_pid({"ps", "--ancestor", file}, program.pid());
    });
}

TEST_F(PsCommand, the_parent_and_the_ancestor_are_printed) {
    as_first_process([this] {
        const std::vector<pid_t> line = start_line_of({"service", "shell", "tool"});
        expect_pid({"ps", "--parent", std::to_string(line[2])}, line[1]);
        expect_pid({"ps", "--parent", std::to_string(line[0])}, 1);
        expect_pid({"ps", "--parent", "1"}, 0);
        expect_pid({"ps", "--ancestor", "tool"}, line[0]);
        expect_pid({"ps", "--ancestor", "service"}, line[0]);
    });
}

TEST_F(PsCommand, what_cannot_be_told_is_no_number) {
    as_first_process([this] {
        const std::vector<pid_t> line = start_line_of({"my service", "tool"});
        const std::string first = std::to_string(line[0]);
        process_test::set_name("first");
        expect({
            {{"ps", "--parent", first}, {3, "", "korvex: ps: " + first + ": can't tell its parent\n"}},
            {{"ps", "--ancestor", "tool"}, {3, "", "korvex: ps: tool: can't tell its ancestor\n"}},
            {{"ps", "--ancestor", "first"}, {3, "", "korvex: ps: first: can't tell its ancestor\n"}},
        });
    });
}

TEST_F(PsCommand, a_process_that_is_not_there_is_not_found) {
    as_first_process([this] {
        expect({
            {{"ps", "nobody\n"}, {1, "", "korvex: ps: nobody\\n: no such process\n"}},
            {{"ps", "korvex"}, {1, "", "korvex: ps: korvex: no such process\n"}},
            {{"ps", KORVEX_PROGRAM}, {1, "", "korvex: ps: " KORVEX_PROGRAM ": no such process\n"}},
            {{"ps", "--ancestor", "nobody"}, {1, "", "korvex: ps: nobody: no such process\n"}},
            {{"ps", "--parent", "2147483647"}, {1, "", "korvex: ps: 2147483647: no such process\n"}},
        });
    });
}

TEST_F(PsCommand, names_and_more_are_printed_on_request) {
    as_first_process([this] {
        const std::vector<pid_t> line = start_line_of({"service", "tool", "tool\033"});
        const std::string first = std::to_string(line[0]);
        EXPECT_EQ(korvex({"ps", "--names", "tool"}), Outcome(0, std::to_string(line[1]) + " tool\n"));
        EXPECT_EQ(korvex({"ps", "--names", "tool\033"}), Outcome(0, std::to_string(line[2]) + " tool\\x1b\n"));
        EXPECT_EQ(korvex({"ps", "--names", "--ancestor", "tool"}), Outcome(0, first + " service\n"));

        const auto list = nlohmann::json::parse(korvex({"ps", "--json", "tool"}).out);
        ASSERT_EQ(list.size(), 1U);
        EXPECT_EQ(list[0]["pid"], line[1]);
        EXPECT_EQ(list[0]["name"], "tool");
        EXPECT_EQ(list[0]["parent"], line[0]);
        EXPECT_TRUE(list[0].contains("command"));
        EXPECT_EQ(nlohmann::json::parse(korvex({"ps", "--json", "--parent", std::to_string(line[1])}).out)[0]["pid"],
                  line[0]);
        const Outcome none = korvex({"ps", "--json", "nobody"});
        EXPECT_EQ(none, Outcome(1, "", "korvex: ps: nobody: no such process\n"));
    });
}

TEST_F(PsCommand, the_command_line_stands_with_blanks) {
    const std::string file = process_test::program_file(folder, "tool");
    as_first_process([&] {
        const process_test::Program program(file, {file, "-u", "-"});
        EXPECT_EQ(nlohmann::json::parse(korvex({"ps", "--json", file}).out)[0]["command"], file + " -u -");
    });
}

TEST_F(PsCommand, wrong_words_are_refused) {
    const std::string help = " (see 'korvex ps --help')\n";
    const std::string choice = "korvex: ps: exactly one of NAME, --parent and --ancestor is required" + help;
    expect({
        {{"ps"}, {2, "", choice}},
        {{"ps", "a", "--parent", "1"}, {2, "", choice}},
        {{"ps", "--ancestor", "a", "--parent", "1"}, {2, "", choice}},
        {{"ps", ""}, {2, "", "korvex: ps: NAME: an empty name" + help}},
    });
    for (const std::string text : {"0", "x", "1x", "2147483648", "1 "})
        EXPECT_EQ(korvex({"ps", "--parent", text}),
                  Outcome(2, "", "korvex: ps: --parent: '" + text + "' is not a process id" + help));
}

}  // namespace
