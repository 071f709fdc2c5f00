// korvex conf section.
#include <sys/stat.h>
#include <unistd.h>

#include <list>
#include <sstream>

#include "run_korvex.h"

namespace {

using support::read_file;

mode_t mode_of(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode;
}

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
        {"a", "n = 1\n", "# head\ng=1\n[a]\nn = 1\n[b]\nz = 3\n"},
        {"a", "# c\n\n  n=a = b\t\n \nn = 2", "# head\ng=1\n[a]\nn = a = b\nn = 2\n[b]\nz = 3\n"},
        {"a", "n = 1\r\nm = 2\r\n", "# head\ng=1\n[a]\nn = 1\nm = 2\n[b]\nz = 3\n"},
        {"a", "", "# head\ng=1\n[a]\n[b]\nz = 3\n"},
        {"c", "n = 1\n", "# head\ng=1\n[a]\nx=1\ny = 2\n[b]\nz = 3\n\n[c]\nn = 1\n"},
        {"", "n = 1\n", "# head\nn = 1\n[a]\nx=1\ny = 2\n[b]\nz = 3\n"},
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
    EXPECT_EQ(read_file(folder.path("new")), "[a]\nx = 1\n");
    EXPECT_EQ(korvex({"conf", "section", "replace", "global", ""}, "x = 1\n"), Outcome());
    EXPECT_EQ(read_file(folder.path("global")), "x = 1\n");
    EXPECT_EQ(korvex({"conf", "section", "replace", "none/f", "a"}, "x = 1\n"),
              Outcome(3, "", "korvex: conf section replace: none/f: no such folder: 'none'\n"));
}

TEST_F(ConfSection, replace_does_not_append_a_global_section) {
    folder.file("f", "[a]\nx = 1\n");
    EXPECT_EQ(section("replace", "", "g = 1\n"),
              Outcome(1, "", "korvex: conf section replace: f: no pairs before the first section\n"));
    EXPECT_EQ(read_file(file), "[a]\nx = 1\n");
}

TEST_F(ConfSection, merge_sets_pairs_and_keeps_the_others) {
    EXPECT_EQ(section("merge", "a", "y = 5\nn = 1\n"), Outcome());
    EXPECT_EQ(read_file(file), "# head\ng=1\n[a]\nx=1\ny = 5\nn = 1\n\n[b]\nz = 3\n");
    EXPECT_EQ(section("merge", "c", "y = 5\n"), Outcome(1, "", "korvex: conf section merge: f: no section 'c'\n"));
    EXPECT_EQ(korvex({"conf", "section", "merge", "none", "a"}, "y = 5\n"),
              Outcome(1, "", "korvex: conf section merge: none: no such file\n"));
}

TEST_F(ConfSection, remove_takes_the_section_out) {
    EXPECT_EQ(section("remove", "a"), Outcome());
    EXPECT_EQ(read_file(file), "# head\ng=1\n[b]\nz = 3\n");
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

// What stands around a section, comment by comment, and what of it is the section's own.
TEST_F(ConfSection, other_sections_keep_their_comments_and_layout) {
    const std::string before = "# head\n\n# about g\n g=1\n\n# about a\n\n; more about a\n";
    const std::string own = "[a] tail\n# first\n  x=1\n\n; between\ny\t= 2\nnonsense\n# y = old\n";
    const std::string after = "\n# about all\n\n# about b\n[b]\n  # z\nz = 3";
    const struct {
        const char *what;
        const char *input;
        std::string expected;
    } rows[] = {
        {"replace", "n = 1\n", before + "[a] tail\nn = 1\n" + after},
        {"replace", "", before + "[a] tail\n" + after},
        {"remove", "", before + after},
        {"merge", "y = 5\nx = 1\n",
         before + "[a] tail\n# first\n  x=1\n\n; between\ny = 5\nnonsense\n# y = old\n" + after},
    };
    for (const auto &[what, input, expected] : rows) {
        SCOPED_TRACE(what);
        folder.file("f", before + own + after);
        EXPECT_EQ(section(what, "a", input), Outcome());
        EXPECT_EQ(read_file(file), expected);
    }
}

TEST_F(ConfSection, a_section_ends_where_a_reader_would_say) {
    const struct {
        const char *name;
        const char *text;
        const char *without;
    } rows[] = {
        {"a", "[a]\nx = 1\n# about b\n[b]\n", "# about b\n[b]\n"},
        {"a", "[a]\nx = 1\n# y = 2\n\n[b]\n", "\n[b]\n"},
        {"a", "g = 1\n\n[a]\nx = 1\n\n[b]\n", "g = 1\n\n[b]\n"},
        {"a", "g = 1\n\n[a]\nx = 1\n", "g = 1\n"},
        {"a", "g = 1\n\n[a]\nx = 1\n# y = 2", "g = 1"},
        {"a", "[a]\n\n# about b\n\n[b]\n", "\n# about b\n\n[b]\n"},
        {"a", "[a]\nx = 1\n[a]\ny = 2\n", "[a]\ny = 2\n"},
        {"a", "[a]\nx = 1\n\n; vim: ft=ini\n", "\n; vim: ft=ini\n"},
        {"a", "[a]", ""},
        {"", "# head\ng = 1\n# about a\n[a]\n", "# head\n# about a\n[a]\n"},
        {"", "# head\n\ng = 1\nh = 2\n", "# head\n"},
    };
    for (const auto &[name, before, without] : rows) {
        SCOPED_TRACE(before);
        folder.file("f", before);
        EXPECT_EQ(section("remove", name), Outcome());
        EXPECT_EQ(read_file(file), without);
    }
}

TEST_F(ConfSection, a_new_section_goes_to_the_end) {
    const struct {
        const char *before;
        const char *after;
    } rows[] = {
        {"", "[n]\nx = 1\n"},
        {"g = 1\n", "g = 1\n\n[n]\nx = 1\n"},
        {"g = 1\n\n", "g = 1\n\n[n]\nx = 1\n"},
        {"# only a comment\n", "# only a comment\n\n[n]\nx = 1\n"},
        {"g = 1", "g = 1\n\n[n]\nx = 1"},
        {"\xEF\xBB\xBFg = 1\r\n", "\xEF\xBB\xBFg = 1\r\n\r\n[n]\r\nx = 1\r\n"},
    };
    for (const auto &[before, after] : rows) {
        SCOPED_TRACE(before);
        folder.file("f", before);
        EXPECT_EQ(section("replace", "n", "x = 1\n"), Outcome());
        EXPECT_EQ(read_file(file), after);
    }
}

// Each adds a key to what it reads: one that read before another had written would take that one's key away again.
TEST_F(ConfSection, changes_at_the_same_time_wait_for_each_other) {
    const support::SmallDisk disk(1 << 20);
    const std::string shared = disk.file("f", "[a]\n");
    std::list<KorvexProcess> writers;
    std::vector<std::string> lines;
    for (int i = 10; i < 22; i++) {
        lines.push_back("k" + std::to_string(i) + " = v");
        writers.emplace_back(Words{"conf", "section", "merge", shared, "a"}, folder.path(), lines.back());
    }
    for (KorvexProcess &writer : writers)
        EXPECT_EQ(writer.wait(), Outcome());

    std::vector<std::string> found;
    std::istringstream shown(korvex({"conf", "section", "show", shared, "a"}).out);
    for (std::string line; std::getline(shown, line);)
        found.push_back(line);
    EXPECT_THAT(found, testing::UnorderedElementsAreArray(lines));
    EXPECT_FALSE(support::exists("/var/lock/_f.lck"));
}

// What a change meets on a small disk, of which so many bytes are left free.
class ConfSectionDisk : public KorvexTest {
  protected:
    void expect_refusal(const std::string &what, const std::string &text, int64_t room,
                        const std::string &input) const {
        SCOPED_TRACE(what + " with room for " + std::to_string(room));
        const support::SmallDisk disk(1 << 20);
        const std::string file = disk.file("f", text);
        ASSERT_EQ(chmod(file.c_str(), 0640), 0);
        disk.fill_up_to(room);
        EXPECT_EQ(korvex({"conf", "section", what, file, "a"}, input),
                  Outcome(3, "", "korvex: conf section " + what + ": " + file + ": No space left on device\n"));
        EXPECT_EQ(read_file(file), text);
        EXPECT_EQ(mode_of(file), mode_t{S_IFREG | 0640});
        EXPECT_EQ(disk.names(), (Words{"f", "filler"}));
        EXPECT_FALSE(support::exists("/var/lock/_f.lck"));
    }

    const std::string small = "# head\n[a]\nx = 1\n[b]\nz = 3\n";
    const std::string large = small + "w = " + std::string(100'000, 'w') + "\n";
};

TEST_F(ConfSectionDisk, a_full_one_leaves_the_file_as_it_was) {
    for (const std::string what : {"replace", "merge", "remove"}) {
        expect_refusal(what, small, 0, "x = 2\n");
        for (const int64_t room : {0, 4096, 98'304})
            expect_refusal(what, large, room, "x = 2\n");
    }
    for (const std::string what : {"replace", "merge"})
        expect_refusal(what, small, 8192, "x = " + std::string(20'000, 'x') + "\n");
}

TEST_F(ConfSectionDisk, a_full_one_gets_no_new_file) {
    const support::SmallDisk disk(64 << 10);
    disk.fill_up_to(0);
    const std::string file = disk.path("f");
    EXPECT_EQ(korvex({"conf", "section", "replace", file, "a"}, "x = 1\n"),
              Outcome(3, "", "korvex: conf section replace: " + file + ": No space left on device\n"));
    EXPECT_EQ(disk.names(), Words{"filler"});
}

TEST_F(ConfSectionDisk, a_section_goes_where_the_rest_has_room) {
    const support::SmallDisk disk(1 << 20);
    const std::string file = disk.file("f", large);
    disk.fill_up_to(4096);
    EXPECT_EQ(korvex({"conf", "section", "remove", file, "b"}), Outcome());
    EXPECT_EQ(read_file(file), "# head\n[a]\nx = 1\n");
    EXPECT_EQ(disk.names(), (Words{"f", "filler"}));
}

}  // namespace
