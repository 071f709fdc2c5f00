// What holds for every command: help, wrong usage, and standard output that does not take the result.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "run_korvex.h"

namespace {

class Usage : public KorvexTest {};

const Words kCommands[] = {
    {},
    {"conf"},
    {"conf", "get"},
    {"conf", "set"},
    {"conf", "unset"},
    {"conf", "list"},
    {"conf", "sections"},
    {"conf", "keys"},
    {"conf", "diff"},
    {"conf", "section"},
    {"conf", "section", "show"},
    {"conf", "section", "replace"},
    {"conf", "section", "merge"},
    {"conf", "section", "remove"},
    {"conf", "check"},
    {"lock"},
    {"log"},
    {"cp"},
    {"du"},
    {"rm"},
    {"temp"},
    {"net"},
    {"net", "interfaces"},
    {"net", "resolve"},
    {"net", "local"},
    {"net", "scope"},
    {"send"},
    {"recv"},
    {"mounts"},
    {"shares"},
    {"volume"},
    {"blocks"},
    {"doctor"},
    {"snapshot"},
    {"snapshot", "diff"},
    {"ps"},
    {"units"},
    {"units", "size"},
    {"units", "time"},
};

std::string joined(const Words &words) {
    std::string text = "korvex";
    for (const std::string &word : words)
        text += " " + word;
    return text;
}

TEST_F(Usage, help_of_each_command_has_an_example_of_it) {
    for (Words words : kCommands) {
        const std::string name = joined(words);
        SCOPED_TRACE(name);
        words.push_back("--help");
        const std::string help = output_of(words);
        EXPECT_NE(help.find("Usage: " + name + " "), std::string::npos) << help;
        const size_t example = help.find("Example:\n");
        ASSERT_NE(example, std::string::npos) << help;
        EXPECT_NE(help.find(name + " ", example), std::string::npos) << help;
    }
}

TEST_F(Usage, an_option_that_no_command_has_is_refused_in_one_line) {
    for (Words words : kCommands) {
        const std::string name = joined(words);
        SCOPED_TRACE(name);
        words.insert(words.end(), {"--bogus\n"});
        const Outcome outcome = korvex(words);
        EXPECT_EQ(outcome.exit_status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
        EXPECT_TRUE(outcome.err.ends_with(" (see '" + name + " --help')\n")) << outcome.err;
    }
}

TEST_F(Usage, what_is_missing_or_too_much_is_named) {
    expect({
        {{}, {2, "", "korvex: a command is required (see 'korvex --help')\n"}},
        {{"conf"}, {2, "", "korvex: conf: a command is required (see 'korvex conf --help')\n"}},
        {{"cnf"}, {2, "", "korvex: no such command: cnf (see 'korvex --help')\n"}},
        {{"conf", "[x]"}, {2, "", "korvex: conf: no such command: [x] (see 'korvex conf --help')\n"}},
        {{"--bogus"}, {2, "", "korvex: no such option: --bogus (see 'korvex --help')\n"}},
        {{"conf", "get"}, {2, "", "korvex: conf get: FILE is required (see 'korvex conf get --help')\n"}},
        {{"conf", "get", "f"}, {2, "", "korvex: conf get: KEY is required (see 'korvex conf get --help')\n"}},
        {{"conf", "get", "f", "k", "[z"},
         {2, "", "korvex: conf get: the following argument was not expected: [z (see 'korvex conf get --help')\n"}},
        {{"log", "f", "--clock", "13", "x"},
         {2, "", "korvex: log: --clock: 13 not in {12,24} (see 'korvex log --help')\n"}},
    });
    for (const Words &words :
         {Words{"log", "f", "--date", "0", "x"}, Words{"log", "f", "--date", "10", "x"},
          Words{"conf", "get", "f", "k", "--type", "float"}, Words{"conf", "get", "f", "k", "-s", "a", "-s", "b"}})
        EXPECT_EQ(korvex(words).exit_status, 2) << testing::PrintToString(words);
    EXPECT_EQ(folder.names(), Words());
}

TEST_F(Usage, a_word_that_is_also_a_commands_name_changes_no_other_command) {
    folder.file("lock", "cp = rm\n");
    expect({
        {{"conf", "get", "lock", "cp"}, {0, "rm\n", ""}},
        {{"--log-file", "du", "conf", "get", "lock", "cp"}, {0, "rm\n", ""}},
        {{"cnf", "x"}, {2, "", "korvex: no such command: cnf (see 'korvex --help')\n"}},
        {{"get", "conf"}, {2, "", "korvex: conf: no such command: get (see 'korvex conf --help')\n"}},
    });
    EXPECT_EQ(korvex({"--help", "lock"}), korvex({"lock", "--help"}));
}

TEST_F(Usage, the_version_is_printed) {
    const Outcome outcome = korvex({"--version"});
    EXPECT_EQ(outcome, Outcome(0, "korvex " KORVEX_VERSION "\n"));
}

TEST_F(Usage, a_result_that_cannot_be_written_is_a_failure) {
    folder.file("f", "k = v\n");
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    const Words lines[] = {{"conf", "list", "f"}, {"units", "size", "1"}, {"doctor"}, {"--complete", "units", ""}};
    for (const Words &words : lines) {
        SCOPED_TRACE(joined(words));
        const Outcome outcome = KorvexProcess(words, folder.path(), "", full).wait();
        EXPECT_EQ(outcome.exit_status, 3);
        EXPECT_TRUE(outcome.err.ends_with(": standard output: No space left on device\n")) << outcome.err;
    }
    close(full);
}

TEST_F(Usage, a_reader_that_went_away_ends_the_tool_quietly) {
    folder.file("f", "k = v\n");
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    EXPECT_EQ(KorvexProcess({"conf", "list", "f"}, folder.path(), "", ends[1]).wait(), Outcome(128 + SIGPIPE));
    close(ends[1]);
}

TEST_F(Usage, a_short_option_of_other_programs_is_answered_with_the_right_one) {
    const struct {
        Words words;
        std::string text;
    } rows[] = {
        {{"cp", "-r", "a", "b"}, "cp: no such option: -r; cp copies a folder with all that is in it by default"},
        {{"cp", "-a", "a", "b"}, "cp: no such option: -a; use --preserve=all"},
        {{"rm", "-f", "a"}, "rm: no such option: -f; use -y to remove without a question"},
        {{"rm", "-rf", "a"},
         "rm: no such option: -rf; rm removes a folder with all that is in it by default; use -y to remove without a "
         "question"},
        {{"lock", "-n", "f", "true"}, "lock: no such option: -n; use --wait 0"},
        {{"ps", "-ef"}, "ps: no such option: -ef; name a program; use --names or --json for more than its ids"},
        {{"mounts", "-j"}, "mounts: no such option: -j; use --json"},
    };
    for (const auto &[words, text] : rows)
        EXPECT_EQ(korvex(words), Outcome(2, "", "korvex: " + text + " (see 'korvex " + words[0] + " --help')\n"));
}

}  // namespace
