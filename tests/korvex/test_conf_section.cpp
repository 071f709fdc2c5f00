// korvex conf section.
#include "run_korvex.h"

namespace {

using support::read_file;

class ConfSection : public KorvexTest {
  protected:
    Outcome section(const std::string &what, const std::string &name, const std::string &input = "") const {
        return korvex({"conf", "section", what, "f", name}, input);
    }

    const std::string text = "# head\ng=1\n[a]\nx=1\ny = 2\n[b]\nz = 3\n";
    const std::string file = folder.file("f", text);
};

TEST_F(ConfSection, show_prints_the_pairs) {
    EXPECT_EQ(section("show", "a"), Outcome(0, "x = 1\ny = 2\n"));
    EXPECT_EQ(section("show", ""), Outcome(0, "g = 1\n"));
    EXPECT_EQ(section("show", "c"), Outcome(1, "", "korvex: conf section show: f: no section 'c'\n"));
}

TEST_F(ConfSection, replace_takes_the_pairs_of_standard_input) {
    const struct {
        const char *name;
        const char *input;
        const char *expected;
    } rows[] = {
        {"a", "n = 1\n", "g = 1\n\n[a]\nn = 1\n\n[b]\nz = 3\n\n"},
        {"a", "# c\n\n  n=a = b\t\n \nn = 2", "g = 1\n\n[a]\nn = a = b\nn = 2\n\n[b]\nz = 3\n\n"},
        {"a", "", "g = 1\n\n[a]\n\n[b]\nz = 3\n\n"},
        {"c", "n = 1\n", "g = 1\n\n[a]\nx = 1\ny = 2\n\n[b]\nz = 3\n\n[c]\nn = 1\n\n"},
        {"", "n = 1\n", "n = 1\n\n[a]\nx = 1\ny = 2\n\n[b]\nz = 3\n\n"},
    };
    for (const auto &[name, input, expected] : rows) {
        SCOPED_TRACE(std::string(name) + ": " + input);
        folder.file("f", text);
        EXPECT_EQ(section("replace", name, input), Outcome());
        EXPECT_EQ(read_file(file), expected);
    }
}

TEST_F(ConfSection, replace_makes_a_missing_file) {
    EXPECT_EQ(korvex({"conf", "section", "replace", "new", "a"}, "x = 1\n"), Outcome());
    EXPECT_EQ(read_file(folder.path("new")), "[a]\nx = 1\n\n");
    EXPECT_EQ(korvex({"conf", "section", "replace", "global", ""}, "x = 1\n"), Outcome());
    EXPECT_EQ(read_file(folder.path("global")), "x = 1\n\n");
    EXPECT_EQ(korvex({"conf", "section", "replace", "none/f", "a"}, "x = 1\n"),
              Outcome(3, "", "korvex: conf section replace: none/f: No such file or directory\n"));
}

TEST_F(ConfSection, replace_does_not_append_a_global_section) {
    folder.file("f", "[a]\nx = 1\n");
    EXPECT_EQ(section("replace", "", "g = 1\n"),
              Outcome(1, "", "korvex: conf section replace: f: no global section\n"));
    EXPECT_EQ(read_file(file), "[a]\nx = 1\n");
}

TEST_F(ConfSection, merge_sets_pairs_and_keeps_the_others) {
    EXPECT_EQ(section("merge", "a", "y = 5\nn = 1\n"), Outcome());
    EXPECT_EQ(read_file(file), "g = 1\n\n[a]\nx = 1\ny = 5\nn = 1\n\n[b]\nz = 3\n\n");
    EXPECT_EQ(section("merge", "c", "y = 5\n"), Outcome(1, "", "korvex: conf section merge: f: no section 'c'\n"));
    EXPECT_EQ(korvex({"conf", "section", "merge", "none", "a"}, "y = 5\n"),
              Outcome(1, "", "korvex: conf section merge: none: no such file\n"));
}

TEST_F(ConfSection, remove_takes_the_section_out) {
    EXPECT_EQ(section("remove", "a"), Outcome());
    EXPECT_EQ(read_file(file), "g = 1\n\n[b]\nz = 3\n\n");
    EXPECT_EQ(section("remove", "a"), Outcome(1, "", "korvex: conf section remove: f: no section 'a'\n"));
    EXPECT_EQ(korvex({"conf", "section", "remove", "none", "a"}),
              Outcome(1, "", "korvex: conf section remove: none: no such file\n"));
}

TEST_F(ConfSection, bad_input_changes_nothing) {
    const struct {
        std::string input;
        const char *error;
    } rows[] = {
        {"x = 1\nnonsense\n", "2: no '=' after the key: nonsense"},
        {"= 1\n", "1: no key before '=': = 1"},
        {"\n[a]\n", "2: a section header: [a]"},
        {"[a\n", "1: section header without ']': [a"},
        {std::string("x = \0y\n", 7), "1: NUL byte, nothing from here on is read: x = \\x00y"},
    };
    for (const auto &[input, error] : rows)
        for (const std::string what : {"replace", "merge"})
            EXPECT_EQ(section(what, "a", input),
                      Outcome(3, "", "korvex: conf section " + what + ": standard input:" + error + "\n"));
    EXPECT_EQ(read_file(file), text);
}

TEST_F(ConfSection, show_feeds_replace) {
    const Outcome shown = section("show", "a");
    EXPECT_EQ(section("replace", "copy", shown.out), Outcome());
    EXPECT_EQ(section("show", "copy"), shown);
}

}  // namespace
