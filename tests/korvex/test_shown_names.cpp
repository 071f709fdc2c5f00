// Names that would steer a terminal or forge a line, wherever the tool shows them.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>

#include "run_korvex.h"
#include "terminal_process.h"

namespace {

using support::read_file;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// An escape sequence, a line that looks like another message, C1 in UTF-8 and as a byte, and marks of direction.
const std::string kName =
    "a\x1b[31m\n[error] forged\r\t\x7f\xc2\x9b"
    "2J\x9b"
    "3J\xe2\x80\xae\xe2\x81\xa6\xe2\x80\xa8z";
const std::string kShown = R"(a\x1b[31m\n[error] forged\r\t\x7f\u009b2J\x9b3J\u202e\u2066\u2028z)";

// Nothing but text: what a terminal acts on is a line feed alone.
bool is_plain(const std::string &text) {
    const auto acts = [](char byte) {
        const auto code = static_cast<unsigned char>(byte);
        return (code < 0x20 && byte != '\n') || code == 0x7f;
    };
    return std::none_of(text.begin(), text.end(), acts) &&
           !std::regex_search(text, std::regex("\xc2[\x80-\x9f]|\xe2\x80[\xa8-\xae]|\xe2\x81[\xa6-\xa9]"));
}

class ShownNames : public KorvexTest {};

TEST_F(ShownNames, tables_show_them_escaped) {
    folder.file(kName, "12345");
    const Outcome outcome = korvex({"du", kName});
    EXPECT_THAT(outcome.out, EndsWith("  " + kShown + "\n"));
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 2);
}

TEST_F(ShownNames, reports_and_errors_show_them_escaped) {
    folder.file(kName, "bad \x1b]0;\x07 line\n");
    expect({
        {{"conf", "check", kName},
         {1, kShown + R"(:1: no '=' after the key: bad \x1b]0;\x07 line)"
                      "\n"}},
        {{"conf", "get", "none" + kName, "k"}, {1, "", "korvex: conf get: none" + kShown + ": no such file\n"}},
        {{"du", "none" + kName}, {1, "", "korvex: du: none" + kShown + ": No such file or directory\n"}},
        {{kName}, {2, "", "korvex: no such command: " + kShown + " (see 'korvex --help')\n"}},
    });
}

TEST_F(ShownNames, questions_show_them_escaped) {
    mkdir(folder.path(kName).c_str(), 0755);
    TerminalProcess process({"rm", kName}, folder.path());
    EXPECT_TRUE(process.shows("Remove the folder " + kShown + " with "));
    process.type("n\n");
    process.wait();
}

TEST_F(ShownNames, names_in_any_writing_stay) {
    for (const std::string name : {"übergröße", "文件", "😀 x", "\xe4\xf6 in Latin-1", R"(a\nb)", "e\xcc\x81"})
        EXPECT_EQ(korvex({"du", name}), Outcome(1, "", "korvex: du: " + name + ": No such file or directory\n"));
}

TEST_F(ShownNames, what_a_terminal_might_take_for_utf_8_is_escaped_byte_by_byte) {
    const struct {
        std::string name;
        std::string shown;
    } rows[] = {
        {"\xc1\x9b", "\xc1\\x9b"},                    // longer than needed
        {"\xe0\x82\x9b", "\xe0\\x82\\x9b"},           // the same of three bytes
        {"\xf0\x80\x82\x9b", "\xf0\\x80\\x82\\x9b"},  // and of four
        {"\xed\xa0\x80", "\xed\xa0\\x80"},            // half of a pair
        {"\xf4\x90\x80\x80", "\xf4\\x90\\x80\\x80"},  // beyond the last character
        {"\xe2\x80", "\xe2\\x80"},                    // cut off
        {"\xe2\x80"
         "x\xc2\x85",
         "\xe2\\x80x\\u0085"},  // and what follows it
    };
    for (const auto &[name, shown] : rows)
        EXPECT_EQ(korvex({"du", name}), Outcome(1, "", "korvex: du: " + shown + ": No such file or directory\n"));
}

TEST_F(ShownNames, json_has_escapes_of_its_own) {
    const std::string name = std::regex_replace(kName,
                                                std::regex("\x9b"
                                                           "3J"),
                                                "");
    folder.file(name, "12345");
    folder.file("conf", "[s]\nk = " + std::regex_replace(name, std::regex("[\n\r\t]"), "") + "\n");
    for (const Words &words : {Words{"du", name, "--json"}, Words{"conf", "list", "conf", "--json"}}) {
        const Outcome outcome = korvex(words);
        EXPECT_THAT(outcome.out, HasSubstr(R"(\u007f\u009b2J\u202e\u2066\u2028z)"));
        EXPECT_TRUE(is_plain(outcome.out)) << outcome.out;
    }
    EXPECT_EQ(nlohmann::json::parse(korvex({"du", name, "--json"}).out)[0]["path"], name);
}

TEST_F(ShownNames, verbose_shows_the_librarys_messages_escaped) {
    const Outcome outcome = korvex({"conf", "get", kName, "k", "--verbose"});
    EXPECT_THAT(outcome.err, HasSubstr("\"" + kShown + "\""));
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 2) << outcome.err;
    EXPECT_TRUE(is_plain(outcome.err)) << outcome.err;
}

TEST_F(ShownNames, none_of_them_forges_a_line_of_the_log_file) {
    EXPECT_EQ(korvex({"conf", "get", kName, "k", "--log-file", "log"}).exit_status, 1);
    EXPECT_EQ(korvex({"conf", "get", kName, "k", "--log-file", "log"}).exit_status, 1);
    const std::string log = read_file(folder.path("log"));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log;
    EXPECT_TRUE(std::regex_match(log, std::regex(R"((\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] \[\w+\] [^\n]*\n){2})")))
        << log;
    EXPECT_TRUE(is_plain(log)) << log;
}

TEST_F(ShownNames, messages_do_without_standard_error) {
    const int exit_status = support::in_child([&] {
        close(STDERR_FILENO);
        execl(KORVEX_PROGRAM, "korvex", "--verbose", "conf", "get", "none", "k", "--default", "x", nullptr);
        return 99;
    });
    EXPECT_EQ(exit_status, 0);
}

TEST_F(ShownNames, temporary_files_are_listed_escaped_and_with_zero_as_they_are) {
    const std::string inside = kName + "/$$@#!$$7";
    const std::string other = kName + "/$$@#!$$8\x1b";
    mkdir(folder.path(kName).c_str(), 0755);
    folder.file(inside, "");
    const std::string line = kShown + "/$$@#!$$7\n";
    const std::string exact = inside + '\0';
    expect({
        {{"temp", "--list", kName}, {0, line}},
        {{"temp", "--list", kName, "-0"}, {0, exact}},
        {{"temp", "--list", kName, "--null"}, {0, exact}},
        {{"temp", "--clean", kName, "-0"}, {0, exact}},
        {{"temp", "--list", kName}, {}},
    });
}

TEST_F(ShownNames, a_new_temporary_file_is_named_exactly_to_a_script_and_escaped_to_a_terminal) {
    mkdir(folder.path(kName).c_str(), 0755);
    expect({
        {{"temp", kName + "/"}, {0, kName + "/$$@#!$$000000\n"}},
        {{"temp", kName + "/", "-0"}, {0, kName + "/$$@#!$$000001" + '\0'}},
    });
    EXPECT_EQ(TerminalProcess({"temp", kName + "/"}, folder.path()).wait().out, kShown + "/$$@#!$$000002\r\n");
}

}  // namespace
