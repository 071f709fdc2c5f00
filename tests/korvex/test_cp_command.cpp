// korvex cp: what is copied and where to, the progress line, and the clean stop.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "fileio.h"
#include "terminal_process.h"
#include "transaction_world.h"

namespace {

using support::exists;
using support::read_file;
using testing::EndsWith;
using testing::HasSubstr;
namespace world = transaction_world;

// Keeps nothing of holes.
class RamDisk {
  public:
    RamDisk() {
        if (mount("none", folder_.path().c_str(), "ramfs", 0, nullptr) != 0)
            throw std::system_error(errno, std::generic_category(), "ramfs");
    }
    ~RamDisk() { umount2(folder_.path().c_str(), MNT_DETACH); }
    RamDisk(const RamDisk &) = delete;
    RamDisk &operator=(const RamDisk &) = delete;

    std::string path(const std::string &name) const { return folder_.path(name); }

  private:
    support::TempFolder folder_;
};

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

    // A file that takes hours to copy, and no space: it is a hole, on a file system that can't tell where its holes are.
    std::string endless(const std::string &name) const {
        support::write_file(slow.path(name), "");
        EXPECT_EQ(truncate(slow.path(name).c_str(), off_t{1} << 40), 0);
        return slow.path(name);
    }
    // Waits until the copy of a file has begun. Until it is complete it has a temporary name.
    void wait_for_copy_in(const std::string &name) const {
        const auto has_begun = [&] {
            if (!exists(path(name)))
                return false;
            for (const auto &entry : std::filesystem::directory_iterator(path(name)))
                if (Check_Temp_Filename(entry.path().c_str()) == 0)
                    return true;
            return false;
        };
        while (!has_begun())
            usleep(1000);
    }
    const RamDisk slow;

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

TEST_F(CpCommand, what_is_left_out_of_a_tree_is_named) {
    make_tree();
    ASSERT_EQ(mkfifo(path("src/pipe").c_str(), 0600), 0);
    ASSERT_EQ(mknod(path("src/deep/device").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
    EXPECT_EQ(korvex({"cp", "src", "dst"}), Outcome(1, "",
                                                    "korvex: cp: src/pipe: not copied: it is a pipe\n"
                                                    "korvex: cp: src/deep/device: not copied: it is a device\n"));
    expect_copy_at("dst");
    EXPECT_FALSE(exists(path("dst/pipe")));
}

TEST_F(CpCommand, what_may_not_be_read_in_a_tree_is_named_and_the_rest_copied) {
    ASSERT_TRUE(support::can_be_nobody()) << "run this as root";
    chmod(folder.path().c_str(), 0777);
    const int exit_status = support::in_child_as_nobody([&] {
        make_tree();
        folder.file("src/closed", "");
        chmod(path("src/closed").c_str(), 0);
        chmod(path("src/deep").c_str(), 0);
        const Outcome outcome = korvex({"cp", "src", "dst"});
        support::write_file(path("error"), outcome.err);
        return outcome.exit_status;
    });
    EXPECT_EQ(exit_status, 1);
    const std::string error = read_file(path("error"));
    EXPECT_THAT(error, HasSubstr("korvex: cp: src/closed: not copied: permission denied\n"));
    EXPECT_THAT(error, HasSubstr("korvex: cp: src/deep: not copied: permission denied\n"));
    EXPECT_EQ(read_file(path("dst/a")), "12345");
}

TEST_F(CpCommand, holes_stay_holes) {
    const support::SmallDisk disk(1 << 20);
    support::write_file(disk.path("sparse"), "begin");
    ASSERT_EQ(truncate(disk.path("sparse").c_str(), off_t{1} << 40), 0);
    EXPECT_EQ(korvex({"cp", disk.path("sparse"), disk.path("copy")}), Outcome());
    struct stat copy {};
    ASSERT_EQ(stat(disk.path("copy").c_str(), &copy), 0);
    EXPECT_EQ(copy.st_size, off_t{1} << 40);
    EXPECT_LT(copy.st_blocks, 100);
}

// A file with an access list, an attribute and a privilege, and one of two names.
class CpSpecial : public CpCommand {
  protected:
    CpSpecial() {
        mkdir(disk.path("src").c_str(), 0755);
        world::make_special(disk.file("src/special", "text"));
        chmod(disk.path("src/special").c_str(), 04750);
        disk.file("src/one", "text");
        (void)!link(disk.path("src/one").c_str(), disk.path("src/two").c_str());
    }
    support::SmallDisk disk{1 << 20};
};

TEST_F(CpSpecial, one_line_says_what_was_not_carried) {
    EXPECT_EQ(korvex({"cp", disk.path("src"), disk.path("dst")}),
              Outcome(0, "",
                      "korvex: cp: not carried over (--preserve=all does): access lists: 1, extended attributes: 1, "
                      "set-id bits: 1, hard links: 1\n"));
    EXPECT_EQ(korvex({"cp", disk.path("src/special"), disk.path("copy")}),
              Outcome(0, "",
                      "korvex: cp: not carried over (--preserve=all does): access lists: 1, extended attributes: 1, "
                      "set-id bits: 1\n"));
    EXPECT_EQ(korvex({"cp", disk.path("src/one"), disk.path("copy")}), Outcome());
}

TEST_F(CpSpecial, preserve_all_carries_everything) {
    EXPECT_EQ(korvex({"cp", "--preserve=all", disk.path("src"), disk.path("dst")}), Outcome());
    EXPECT_EQ(world::attributes_of(disk.path("dst/special")), world::attributes_of(disk.path("src/special")));
    EXPECT_TRUE(std::filesystem::equivalent(disk.path("dst/one"), disk.path("dst/two")));
    EXPECT_EQ(korvex({"cp", "--preserve", "all", disk.path("src/special"), disk.path("copy")}), Outcome());
    EXPECT_EQ(world::attributes_of(disk.path("copy")), world::attributes_of(disk.path("src/special")));
    EXPECT_EQ(korvex({"cp", "--preserve=mode", "a", "b"}).exit_status, 2);
}

TEST_F(CpCommand, a_full_disk_leaves_the_old_file) {
    const support::SmallDisk disk(256 << 10);
    const std::string old = disk.file("old", "old");
    disk.fill_up_to(16 << 10);
    const auto names = disk.names();
    const std::string large = folder.file("large", std::string(200'000, 'x'));
    EXPECT_EQ(korvex({"cp", "large", old}),
              Outcome(3, "", "korvex: cp: can't copy 'large': no space left on device\n"));
    EXPECT_EQ(read_file(old), "old");
    EXPECT_EQ(disk.names(), names);
}

TEST_F(CpCommand, a_read_only_file_system_leaves_the_old_file) {
    const support::SmallDisk disk(256 << 10);
    const std::string old = disk.file("old", "old");
    folder.file("a", "a");
    const std::string top = old.substr(0, old.rfind('/'));
    ASSERT_EQ(mount(nullptr, top.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(korvex({"cp", "a", old}),
              Outcome(3, "", "korvex: cp: can't make a file beside '" + old + "': read-only file system\n"));
    EXPECT_EQ(read_file(old), "old");
}

TEST_F(CpCommand, a_missing_right_leaves_the_old_file) {
    ASSERT_TRUE(support::can_be_nobody()) << "run this as root";
    folder.file("old", "old");
    folder.file("a", "a");
    chmod(path("old").c_str(), 0666);
    chmod(folder.path().c_str(), 0755);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  return korvex({"cp", "a", "old"}) == Outcome(3, "",
                                                               "korvex: cp: can't make a file beside '" + path("old") +
                                                                   "': permission denied\n")
                             ? 0
                             : 1;
              }),
              0);
    EXPECT_EQ(read_file(path("old")), "old");
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
        {{"cp", "a", "none/x"}, {3, "", "korvex: cp: can't open the folder of 'none/x': no such file or folder\n"}},
        {{"cp", "l", "m"}, {3, "", "korvex: cp: m: file exists\n"}},
        {{"cp", "src", "a"}, {3, "", "korvex: cp: can't copy to 'a': not a directory\n"}},
        {{"cp", "pipe", "x"}, {3, "", "korvex: cp: pipe: neither a file nor a link nor a folder\n"}},
        {{"cp", "a", "./a"}, {3, "", "korvex: cp: can't copy 'a': source and destination are the same file\n"}},
        {{"cp", "src", "src"}, {3, "", "korvex: cp: can't copy 'src': the destination lies inside the source\n"}},
        {{"cp", "src", "src/deep/x"},
         {3, "", "korvex: cp: can't copy 'src': the destination lies inside the source\n"}},
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
        EXPECT_THAT(read_file(path("error")), EndsWith(source + "': permission denied\n"));
        EXPECT_FALSE(exists(path("copy")));
    }
}

TEST_F(CpCommand, a_folder_that_exists_inside_the_copy_is_in_the_way_and_nothing_is_copied) {
    make_tree();
    make_folder("d");
    make_folder("d/src");
    make_folder("d/src/deep");
    EXPECT_EQ(korvex({"cp", "src", "d"}),
              Outcome(3, "", "korvex: cp: can't copy 'src/deep': d/src/deep is in the way\n"));
    EXPECT_FALSE(exists(path("d/src/a")));
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
    mkdir(slow.path("top").c_str(), 0755);
    endless("top/big");
    for (const std::string source : {"top/big", "top"}) {
        SCOPED_TRACE(source);
        TerminalProcess process({"cp", slow.path(source), "copy"}, folder.path());
        EXPECT_TRUE(process.shows("\r0 byte of 1024.00 GB, 0%, 0 byte/s"));
        EXPECT_TRUE(process.shows("B of 1024.00 GB, "));
        process.type("\x03");
        const Outcome outcome = process.wait();
        EXPECT_EQ(outcome.exit_status, 130);
        EXPECT_THAT(outcome.out, HasSubstr("\r\nkorvex: cp: stopped: "));
        EXPECT_FALSE(exists(path("copy/big")));
        EXPECT_EQ(exists(path("copy")), source == "top");
        EXPECT_LE(folder.names().size(), 1U);
        rmdir(path("copy").c_str());
    }
}

TEST_F(CpCommand, a_stopped_tree_keeps_what_was_copied_and_says_how_much) {
    mkdir(slow.path("src").c_str(), 0755);
    mkdir(slow.path("src/deep").c_str(), 0755);
    support::write_file(slow.path("src/a"), "12345");
    endless("src/deep/big");
    KorvexProcess process({"cp", slow.path("src"), "dst"}, folder.path());
    wait_for_copy_in("dst/deep");
    process.send(SIGINT);
    EXPECT_EQ(process.wait(), Outcome(130, "", "korvex: cp: stopped: 1 files and 2 folders copied (5 bytes)\n"));
    EXPECT_EQ(read_file(path("dst/a")), "12345");
    EXPECT_TRUE(std::filesystem::is_empty(path("dst/deep")));
}

TEST_F(CpCommand, each_ending_signal_stops_a_file_and_leaves_what_was_there) {
    const std::string big = endless("big");
    for (const bool is_there : {false, true})
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            make_folder("to");
            if (is_there)
                folder.file("to/copy", "old");
            KorvexProcess process({"cp", big, "to/copy"}, folder.path());
            wait_for_copy_in("to");
            process.send(signal);
            EXPECT_EQ(process.wait(),
                      Outcome(128 + signal, "", "korvex: cp: stopped: 0 files and 0 folders copied (0 bytes)\n"));
            EXPECT_EQ(exists(path("to/copy")) ? read_file(path("to/copy")) : "none", is_there ? "old" : "none");
            EXPECT_EQ(std::filesystem::remove_all(path("to")), is_there ? 2U : 1U);
        }
}

}  // namespace
