// korvex conf check, by itself and against the parser's own messages.
#include <sstream>

#include "conffile.h"
#include "log_capture.h"
#include "run_korvex.h"

namespace {

class ConfCheck : public KorvexTest {};

TEST_F(ConfCheck, a_good_file_is_silent) {
    folder.file("f", "# c\n;\n\n  \t \nk=v\n[s] tail\n[]\n  k\t= # = v\nempty =\n\t#x = 1");
    EXPECT_EQ(korvex({"conf", "check", "f"}), Outcome());
    folder.file("empty", "");
    EXPECT_EQ(korvex({"conf", "check", "empty"}), Outcome());
}

TEST_F(ConfCheck, bad_lines_are_reported_with_their_numbers) {
    folder.file("f", "k = v\n[s\n\n  # c\n = 1\r\nplain\tword\n\t[s]\n\r\nk = v\n\x1b[31m");
    EXPECT_EQ(korvex({"conf", "check", "f"}), Outcome(1,
                                                      "f:2: section header without ']': [s\n"
                                                      "f:4: no '=' after the key:   # c\n"
                                                      "f:5: no key before '=':  = 1\\r\n"
                                                      "f:6: no '=' after the key: plain\\tword\n"
                                                      "f:7: no '=' after the key: \\t[s]\n"
                                                      "f:8: no '=' after the key: \\r\n"
                                                      "f:10: no '=' after the key: \\x1b[31m\n"));
}

TEST_F(ConfCheck, a_nul_byte_is_reported_once) {
    folder.file("f", std::string("k = v\na = \0b\nbad\n", 17));
    EXPECT_EQ(korvex({"conf", "check", "f"}), Outcome(1, "f:2: NUL byte, nothing from here on is read: a = \\x00b\n"));
}

TEST_F(ConfCheck, a_file_that_cannot_be_read_is_a_failure) {
    EXPECT_EQ(korvex({"conf", "check", "none"}), Outcome(1, "", "korvex: conf check: none: no such file\n"));
    EXPECT_EQ(korvex({"conf", "check", "."}), Outcome(3, "", "korvex: conf check: .: not a regular file\n"));
}

// The lines that the library's parser complains of, in its own words' order.
std::vector<std::string> lines_the_parser_reports(const std::string &file) {
    support::LogCapture log;
    Sect_Node *sections = nullptr;
    Read_Conf_File(file.c_str(), &sections);
    Free_Sect_Node(sections);

    std::vector<std::string> lines;
    for (const std::string &message : log.messages()) {
        const size_t begin = message.find('"') + 1;
        lines.push_back(message.substr(begin, message.rfind('"') - begin));
    }
    return lines;
}

// The lines of a file that the tool's report names.
std::vector<std::string> lines_the_tool_reports(const std::string &text, const std::string &report) {
    std::vector<std::string> all;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        all.push_back(line);

    std::vector<std::string> lines;
    std::istringstream rows(report);
    for (std::string row; std::getline(rows, row);)
        lines.push_back(all.at(std::stoul(row.substr(row.find(':') + 1)) - 1));
    return lines;
}

TEST_F(ConfCheck, it_agrees_with_the_parser) {
    // Every line of up to four bytes out of those that mean something to the grammar.
    const std::string alphabet = "a= \t[]#;\r";
    std::vector<std::string> texts = {""};
    std::string everything;
    for (size_t length = 0, begin = 0; length < 4; ++length) {
        const size_t end = texts.size();
        for (; begin < end; ++begin)
            for (const char byte : alphabet)
                texts.push_back(texts[begin] + byte);
    }
    for (const std::string &text : texts)
        everything += text + "\n";

    const std::string file = folder.file("f", everything);
    const std::vector<std::string> reported = lines_the_parser_reports(file);
    ASSERT_GT(reported.size(), 1000U);
    EXPECT_EQ(lines_the_tool_reports(everything, korvex({"conf", "check", "f"}).out), reported);
}

}  // namespace
