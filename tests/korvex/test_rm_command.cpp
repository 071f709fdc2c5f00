// korvex rm: what is removed, and the question before it.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "terminal_process.h"

namespace {

using support::exists;

class RmCommand : public KorvexTest {
  protected:
    // A file, a tree of a file and a folder, and a link to the tree.
    RmCommand() {
        folder.file("f", "f");
        mkdir(folder.path("t").c_str(), 0755);
        mkdir(folder.path("t/d").c_str(), 0755);
        folder.file("t/d/a", "a");
        (void)!symlink("t", folder.path("l").c_str());
    }
};

TEST_F(RmCommand, files_links_and_trees_go_without_a_question_where_there_is_no_terminal) {
    EXPECT_EQ(korvex({"rm", "f", "l", "t"}), Outcome());
    EXPECT_EQ(folder.names(), Words());
}

TEST_F(RmCommand, a_link_to_a_folder_goes_alone_even_with_a_slash) {
    EXPECT_EQ(korvex({"rm", "-y", "l/"}), Outcome());
    EXPECT_EQ(folder.names(), (Words{"f", "t"}));
    EXPECT_TRUE(exists(folder.path("t/d/a")));
}

TEST_F(RmCommand, on_a_terminal_only_a_clear_yes_removes_a_tree) {
    const std::string question = "Remove the folder t with 1 files and 1 folders? [y/N] ";
    for (const char *keys : {"\n", "n\n", "x\n", "yy\n", "\x04"}) {
        TerminalProcess process({"rm", "t"}, folder.path());
        EXPECT_TRUE(process.shows(question));
        process.type(keys);
        EXPECT_EQ(process.wait().exit_status, 0);
        EXPECT_TRUE(exists(folder.path("t/d/a"))) << testing::PrintToString(keys);
    }
    TerminalProcess process({"rm", "t"}, folder.path());
    EXPECT_TRUE(process.shows(question));
    process.type("y\n");
    EXPECT_EQ(process.wait().exit_status, 0);
    EXPECT_FALSE(exists(folder.path("t")));
}

TEST_F(RmCommand, on_a_terminal_files_and_y_need_no_answer) {
    for (const Words &words : {Words{"rm", "f", "l"}, Words{"rm", "-y", "t"}})
        EXPECT_EQ(TerminalProcess(words, folder.path()).wait(), Outcome()) << testing::PrintToString(words);
    EXPECT_EQ(folder.names(), Words());
}

TEST_F(RmCommand, it_goes_on_after_a_failure_and_exits_with_the_highest_status) {
    EXPECT_EQ(korvex({"rm", "none", "f"}), Outcome(1, "", "korvex: rm: none: No such file or directory\n"));
    EXPECT_EQ(korvex({"rm", "/proc/self/comm", "none", "t"}),
              Outcome(3, "",
                      "korvex: rm: can't remove '/proc/self/comm': operation not permitted\n"
                      "korvex: rm: none: No such file or directory\n"));
    EXPECT_EQ(folder.names(), (Words{"l"}));
}

TEST_F(RmCommand, what_has_no_name_of_its_own_is_not_removed) {
    for (const char *path : {"/", "//", ".", "t/.", "t/..", "t/../"})
        EXPECT_EQ(korvex({"rm", "-y", path}),
                  Outcome(3, "", std::string("korvex: rm: refusing to remove ") + path + "\n"));
    EXPECT_EQ(folder.names(), (Words{"f", "l", "t"}));
}

TEST_F(RmCommand, what_may_not_be_removed_is_named_and_the_rest_goes) {
    ASSERT_TRUE(support::can_be_nobody()) << "run this as root";
    chmod(folder.path().c_str(), 0777);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  mkdir(folder.path("own").c_str(), 0755);
                  mkdir(folder.path("own/fixed").c_str(), 0755);
                  folder.file("own/fixed/file", "");
                  folder.file("own/file", "");
                  chmod(folder.path("own/fixed").c_str(), 0500);
                  const Outcome outcome = korvex({"rm", "own"});
                  EXPECT_EQ(outcome, Outcome(3, "", "korvex: rm: own/fixed/file: not removed: permission denied\n"));
                  EXPECT_FALSE(exists(folder.path("own/file")));
                  return HasFailure() ? 1 : 0;
              }),
              0);
}

TEST_F(RmCommand, on_a_read_only_file_system_each_thing_is_named) {
    const support::SmallDisk disk(1 << 16);
    const std::string tree = disk.path("t");
    mkdir(tree.c_str(), 0755);
    disk.file("t/a", "");
    ASSERT_EQ(mount(nullptr, tree.substr(0, tree.rfind('/')).c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(korvex({"rm", tree}), Outcome(3, "", "korvex: rm: " + tree + "/a: not removed: read-only file system\n"));
}

TEST_F(RmCommand, a_signal_at_the_question_removes_nothing) {
    TerminalProcess process({"rm", "t"}, folder.path());
    EXPECT_TRUE(process.shows("[y/N] "));
    process.type("\x03");
    EXPECT_EQ(process.wait().exit_status, 130);
    EXPECT_TRUE(exists(folder.path("t/d/a")));
}

}  // namespace
