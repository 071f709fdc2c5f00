// korvex temp: making temporary files, finding and removing those left behind.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "run_korvex.h"

namespace {

using support::exists;

class TempCommand : public KorvexTest {
  protected:
    TempCommand() { mkdir(folder.path("d").c_str(), 0755); }

    // Makes one and returns its name.
    std::string made(const Words &words) const {
        const std::string output = output_of(words);
        return output.substr(0, output.find('\n'));
    }
    mode_t mode(const std::string &name) const {
        struct stat status {};
        EXPECT_EQ(stat(folder.path(name).c_str(), &status), 0) << name;
        return status.st_mode;
    }
};

TEST_F(TempCommand, a_file_is_made_beside_the_path_and_its_name_printed) {
    umask(022);
    EXPECT_EQ(made({"temp", "d/report"}), "d/$$@#!$$000000");
    EXPECT_EQ(made({"temp", "d/"}), "d/$$@#!$$000001");
    EXPECT_EQ(made({"temp", "report", "--mode", "0666"}), "$$@#!$$000000");
    EXPECT_EQ(mode("d/$$@#!$$000000"), mode_t{S_IFREG | 0600});
    EXPECT_EQ(mode("$$@#!$$000000"), mode_t{S_IFREG | 0644});
}

TEST_F(TempCommand, leftovers_are_listed_and_removed_and_nothing_else) {
    folder.file("d/other", "");
    folder.file("d/$$@#!$$007", "");
    mkdir(folder.path("d/$$@#!$$008").c_str(), 0755);
    made({"temp", "d/report"});
    const std::string both = "d/$$@#!$$000000\nd/$$@#!$$007\n";
    expect({
        {{"temp", "--list", "d"}, {0, both}},
        {{"temp", "--clean", "d/"}, {0, both}},
        {{"temp", "--list", "d"}, {}},
    });
    EXPECT_TRUE(exists(folder.path("d/other")));
    EXPECT_TRUE(exists(folder.path("d/$$@#!$$008")));
}

TEST_F(TempCommand, what_cannot_be_done_is_one_line) {
    const std::string one = "korvex: temp: exactly one of PATH, --list and --clean is required";
    const std::string help = " (see 'korvex temp --help')\n";
    expect({
        {{"temp", "none/x"}, {1, "", "korvex: temp: none/x: No such file or directory\n"}},
        {{"temp", "--list", "none"}, {1, "", "korvex: temp: none: No such file or directory\n"}},
        {{"temp", "--clean", "none"}, {1, "", "korvex: temp: none: No such file or directory\n"}},
        {{"temp"}, {2, "", one + help}},
        {{"temp", "x", "--list", "d"}, {2, "", one + help}},
        {{"temp", "--clean", "d", "--list", "d"}, {2, "", one + help}},
        {{"temp", "--list", "d", "--mode", "600"}, {2, "", "korvex: temp: --mode is for a PATH" + help}},
    });
    for (const char *mode : {"8", "1000", "-1", "0x1", "rw"})
        EXPECT_EQ(korvex({"temp", "x", "--mode", mode}), Outcome(2, "",
                                                                 std::string("korvex: temp: --mode: '") + mode +
                                                                     "' is not an octal number from 0 to 777" + help));
    EXPECT_EQ(folder.names(), (Words{"d"}));
}

TEST_F(TempCommand, a_read_only_disk_and_a_missing_right_are_told) {
    ASSERT_TRUE(support::can_be_nobody()) << "run this as root";
    const support::SmallDisk disk(64 << 10);
    const std::string left = disk.file("$$@#!$$007", "");
    const std::string place = disk.path("");
    ASSERT_EQ(mount(nullptr, place.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    expect({
        {{"temp", place}, {3, "", "korvex: temp: " + place + ": Read-only file system\n"}},
        {{"temp", "--clean", place}, {3, "", "korvex: temp: " + left + ": Read-only file system\n"}},
    });
    chmod(folder.path().c_str(), 0755);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  return korvex({"temp", "x"}) == Outcome(3, "", "korvex: temp: x: Permission denied\n") ? 0 : 1;
              }),
              0);
}

}  // namespace
