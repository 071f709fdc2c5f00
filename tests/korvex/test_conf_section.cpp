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

TEST_F(ConfSection, a_change_keeps_the_permission_bits_and_replaces_a_link) {
    const mode_t mask_before = umask(0027);
    const Words changes[] = {{"replace", "x = 2\n"}, {"merge", "x = 2\n"}, {"remove", ""}};
    for (const Words &change : changes) {
        SCOPED_TRACE(change[0]);
        folder.file("f", text);
        ASSERT_EQ(chmod(file.c_str(), 0606), 0);
        EXPECT_EQ(section(change[0], "a", change[1]), Outcome());
        EXPECT_EQ(mode_of(file), mode_t{S_IFREG | 0606});

        unlink(file.c_str());
        const std::string target = folder.file("target", text);
        ASSERT_EQ(symlink("target", file.c_str()), 0);
        EXPECT_EQ(section(change[0], "a", change[1]), Outcome());
        EXPECT_EQ(mode_of(file), mode_t{S_IFREG | 0640});
        EXPECT_EQ(read_file(target), text);
        EXPECT_EQ(folder.names(), (Words{"f", "target"}));
    }
    umask(mask_before);
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
    EXPECT_EQ(read_file(file), "[a]\nx = 1\n\n");
    EXPECT_EQ(disk.names(), (Words{"f", "filler"}));
}

}  // namespace
