// korvex cp: what is copied and where to, the progress line, and the clean stop.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <regex>

#include "terminal_process.h"

namespace {

using support::exists;
using support::read_file;
using testing::HasSubstr;

class CpCommand : public KorvexTest {
  protected:
    std::string path(const std::string &name) const { return folder.path(name); }
    void make_folder(const std::string &name) const { ASSERT_EQ(mkdir(path(name).c_str(), 0755), 0); }
    void make_link(const std::string &target, const std::string &name) const {
        ASSERT_EQ(symlink(target.c_str(), path(name).c_str()), 0);
    }
    std::string link_target(const std::string &name) const {
        char target[256];
        const ssize_t size = readlink(path(name).c_str(), target, sizeof target);
        return size < 0 ? "(no link)" : std::string(target, static_cast<size_t>(size));
    }
    struct stat status(const std::string &name) const {
        struct stat status {};
        EXPECT_EQ(lstat(path(name).c_str(), &status), 0) << name;
        return status;
    }

    // A file that takes hours to copy, and no space.
    void make_endless(const std::string &name) const {
        folder.file(name, "");
        ASSERT_EQ(truncate(path(name).c_str(), off_t{1} << 40), 0);
    }
    // src: two files, a link and a folder.
    void make_tree() const {
        make_folder("src");
        make_folder("src/deep");
        folder.file("src/a", "12345");
        folder.file("src/deep/b", "123");
        make_link("../nowhere", "src/deep/l");
    }
    void expect_copy_at(const std::string &name) const {
        EXPECT_EQ(read_file(path(name + "/a")), "12345");
        EXPECT_EQ(read_file(path(name + "/deep/b")), "123");
        EXPECT_EQ(link_target(name + "/deep/l"), "../nowhere");
    }
};

TEST_F(CpCommand, a_file_keeps_its_content_mode_and_time) {
    folder.file("a", "content");
    chmod(path("a").c_str(), 0451);
    const timespec times[2] = {{1000, 0}, {1234567890, 123456789}};
    utimensat(AT_FDCWD, path("a").c_str(), times, 0);

    EXPECT_EQ(korvex({"cp", "a", "b"}), Outcome());
    EXPECT_EQ(read_file(path("b")), "content");
    const struct stat copy = status("b");
    EXPECT_EQ(copy.st_mode, mode_t{S_IFREG | 0451});
    EXPECT_EQ(copy.st_mtim.tv_sec, 1234567890);
    EXPECT_EQ(copy.st_mtim.tv_nsec, 123456789);
}

TEST_F(CpCommand, a_folder_as_dest_gets_what_is_copied_under_its_own_name) {
    folder.file("a", "content");
    make_link("a", "l");
    make_folder("d");
    make_tree();
    expect({{{"cp", "a", "d"}, {}}, {{"cp", "l", "d/"}, {}}, {{"cp", "src/", "d"}, {}}});
    EXPECT_EQ(read_file(path("d/a")), "content");
    EXPECT_EQ(link_target("d/l"), "a");
    expect_copy_at("d/src");
}

TEST_F(CpCommand, a_link_is_copied_as_a_link_even_if_it_leads_nowhere) {
    make_link("nowhere", "l");
    EXPECT_EQ(korvex({"cp", "l", "m"}), Outcome());
    EXPECT_EQ(link_target("m"), "nowhere");
}

TEST_F(CpCommand, a_tree_is_copied_under_a_new_name_and_without_pipes) {
    make_tree();
    ASSERT_EQ(mkfifo(path("src/pipe").c_str(), 0600), 0);
    EXPECT_EQ(korvex({"cp", "src", "dst"}), Outcome());
    expect_copy_at("dst");
    EXPECT_FALSE(exists(path("dst/pipe")));
}

TEST_F(CpCommand, a_name_that_ends_in_dots_is_copied_as_dest_itself) {
    make_tree();
    make_folder("dst");
    EXPECT_EQ(korvex({"cp", "src/.", "dst"}), Outcome());
    expect_copy_at("dst");
}

TEST_F(CpCommand, what_cannot_be_copied_is_one_line) {
    folder.file("a", "a");
    folder.file("b", "b");
    make_link("a", "l");
    make_link("b", "m");
    make_tree();
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    expect({
        {{"cp", "none", "x"}, {1, "", "korvex: cp: none: No such file or directory\n"}},
        {{"cp", "a/none", "x"}, {1, "", "korvex: cp: a/none: Not a directory\n"}},
        {{"cp", "a", "none/x"}, {3, "", "korvex: cp: none/x: No such file or directory\n"}},
        {{"cp", "l", "m"}, {3, "", "korvex: cp: m: File exists\n"}},
        {{"cp", "src", "a"}, {3, "", "korvex: cp: a: Not a directory\n"}},
        {{"cp", "pipe", "x"}, {3, "", "korvex: cp: pipe: neither a file nor a link nor a folder\n"}},
        {{"cp", "a", "./a"}, {3, "", "korvex: cp: ./a: is the file to copy itself\n"}},
        {{"cp", "src", "src"}, {3, "", "korvex: cp: src/src: lies inside src\n"}},
        {{"cp", "src", "src/deep/x"}, {3, "", "korvex: cp: src/deep/x: lies inside src\n"}},
        {{"cp", "", "x"}, {2, "", "korvex: cp: SOURCE: an empty name (see 'korvex cp --help')\n"}},
    });
    EXPECT_EQ(folder.names(), (Words{"a", "b", "l", "m", "pipe", "src"}));
    EXPECT_EQ(read_file(path("a")), "a");
}

TEST_F(CpCommand, a_source_that_cannot_be_read_is_named) {
    if (!support::can_be_nobody())
        GTEST_SKIP() << "only a privileged program can become another user";
    make_tree();
    folder.file("a", "a");
    chmod(path("src").c_str(), 0700);
    chmod(path("a").c_str(), 0600);
    chmod(folder.path().c_str(), 0777);
    for (const std::string source : {"a", "src"}) {
        const int exit_status = support::in_child_as_nobody([&] {
            const Outcome outcome = korvex({"cp", source, "copy"});
            support::write_file(path("error"), outcome.err);
            return outcome.exit_status;
        });
        EXPECT_EQ(exit_status, 3);
        EXPECT_EQ(read_file(path("error")), "korvex: cp: " + source + ": Permission denied\n");
        EXPECT_FALSE(exists(path("copy")));
    }
}

TEST_F(CpCommand, a_folder_that_exists_inside_the_copy_ends_it_and_verbose_says_where) {
    make_tree();
    make_folder("d");
    make_folder("d/src");
    make_folder("d/src/deep");
    EXPECT_EQ(korvex({"cp", "src", "d"}), Outcome(3, "", "korvex: cp: d/src: File exists\n"));
    const Outcome verbose = korvex({"cp", "src", "d", "--verbose"});
    EXPECT_EQ(verbose.exit_status, 3);
    EXPECT_THAT(verbose.err, HasSubstr("src/deep"));
}

TEST_F(CpCommand, the_progress_ends_at_one_hundred_percent_on_a_terminal) {
    folder.file("a", std::string(3 << 20, 'x'));
    make_tree();
    folder.file("empty", "");
    const struct {
        const char *source;
        const char *first;
        const char *last;
    } rows[] = {
        {"a", "\r0 byte of 3.00 MB, 0%, 0 byte/s", "\r3.00 MB of 3.00 MB, 100%, "},
        {"src", "\r0 byte of 18 byte, 0%, 0 byte/s", "\r18 byte of 18 byte, 100%, "},
        {"empty", "\r0 byte of 0 byte, 100%, 0 byte/s", "\r0 byte of 0 byte, 100%, "},
    };
    for (const auto &[source, first, last] : rows) {
        SCOPED_TRACE(source);
        const Outcome outcome = TerminalProcess({"cp", source, std::string("copy of ") + source}, folder.path()).wait();
        EXPECT_EQ(outcome.exit_status, 0);
        EXPECT_TRUE(outcome.out.starts_with(first)) << outcome.out;
        EXPECT_THAT(outcome.out, HasSubstr(last));
        EXPECT_TRUE(outcome.out.ends_with("/s\x1b[K\r\n")) << outcome.out;
    }
}

TEST_F(CpCommand, the_progress_grows_while_bytes_are_copied) {
    make_endless("big");
    make_folder("top");
    make_endless("top/big");
    for (const char *source : {"big", "top"}) {
        SCOPED_TRACE(source);
        TerminalProcess process({"cp", source, "copy"}, folder.path());
        EXPECT_TRUE(process.shows("\r0 byte of 1024.00 GB, 0%, 0 byte/s"));
        EXPECT_TRUE(process.shows("B of 1024.00 GB, "));
        process.type("\x03");
        const Outcome outcome = process.wait();
        EXPECT_EQ(outcome.exit_status, 130);
        EXPECT_THAT(outcome.out, HasSubstr("\r\nkorvex: cp: stopped: "));
        EXPECT_FALSE(exists(path("copy/big")));
        EXPECT_EQ(exists(path("copy")), source == std::string("top"));
        rmdir(path("copy").c_str());
    }
}

TEST_F(CpCommand, a_stopped_tree_keeps_what_was_copied_and_says_how_much) {
    make_tree();
    make_endless("src/big");
    KorvexProcess process({"cp", "src", "dst"}, folder.path());
    while (!exists(path("dst/big")))
        usleep(1000);
    process.send(SIGINT);
    const Outcome outcome = process.wait();
    EXPECT_EQ(outcome.exit_status, 130);
    std::smatch match;
    const std::regex line("korvex: cp: stopped: (\\d) files and (\\d) folders copied \\((\\d+) bytes\\)\n");
    ASSERT_TRUE(std::regex_match(outcome.err, match, line)) << outcome.err;

    const bool has_a = exists(path("dst/a"));
    const bool has_deep = exists(path("dst/deep/b"));
    EXPECT_EQ(std::stoi(match[1]), has_a + 2 * has_deep);
    EXPECT_EQ(std::stoi(match[2]), 1 + exists(path("dst/deep")));
    EXPECT_EQ(std::stoi(match[3]), 5 * has_a + 13 * has_deep);
    EXPECT_FALSE(exists(path("dst/big")));
}

TEST_F(CpCommand, each_ending_signal_stops_a_file_and_removes_its_beginning) {
    make_endless("big");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        KorvexProcess process({"cp", "big", "copy"}, folder.path());
        while (!exists(path("copy")))
            usleep(1000);
        process.send(signal);
        EXPECT_EQ(process.wait(),
                  Outcome(128 + signal, "", "korvex: cp: stopped: 0 files and 0 folders copied (0 bytes)\n"));
        EXPECT_FALSE(exists(path("copy")));
    }
}

}  // namespace
