// korvex doctor: mounts, shares, programs, the clock and the room for logs.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "run_korvex.h"
#include "sample_appliance.h"

namespace fs = std::filesystem;

namespace {

class DoctorMachine : public KorvexTest {
  protected:
    DoctorMachine() {
        setenv("TZ", "UTC0", 1);
        appliance_.mount_table_of_kernel();
        appliance_.share_options("[Public]\n");
        chmod("/etc/config/smb.conf", 0644);
        appliance_.tool_runs("exit 0");
    }
    ~DoctorMachine() override { unsetenv("TZ"); }

    Words lines(const Words &words = {"doctor"}) const {
        const Outcome outcome = korvex(words);
        EXPECT_EQ(outcome.err, "");
        Words all;
        std::istringstream stream(outcome.out);
        for (std::string line; std::getline(stream, line);)
            all.push_back(line);
        return all;
    }

    // The one line that begins so; empty without one.
    std::string line(const std::string &begin, const Words &words = {"doctor"}) const {
        std::string found;
        for (const std::string &one : lines(words))
            if (one.find(": " + begin) == one.find(": "))
                found += one;
        return found;
    }

    const sysinfo_test::Appliance appliance_;
};

TEST_F(DoctorMachine, a_mount_table_of_its_own_is_compared_with_the_kernels) {
    appliance_.volume("/share/MD0_DATA");
    const std::string remedy = ": ln -sf /proc/self/mounts /etc/mtab";
    const std::string table = support::read_file("/proc/self/mounts");
    fs::remove("/etc/mtab");
    appliance_.mount_table(table);
    EXPECT_EQ(line("/etc/mtab"), "ok: /etc/mtab is true to the kernel's table");

    appliance_.mount_table(table + "/dev/sdb1 /share/a ext4 rw 0 0\n/dev/sdb2 /share/b\\040b ext4 rw 0 0\n");
    EXPECT_EQ(line("/etc/mtab"), "warning: /etc/mtab lists what is not mounted: /share/a, /share/b b" + remedy);
    fs::remove("/etc/mtab");
    EXPECT_EQ(line("/etc/mtab"), "failure: /etc/mtab: no such file or folder" + remedy);
}

TEST_F(DoctorMachine, a_device_that_the_mount_table_leaves_out_is_named) {
    // A file system whose source is called as a device is.
    appliance_.folder("/share/USB");
    ASSERT_EQ(mount("/dev/sdz9", "/share/USB", "tmpfs", 0, "size=64k"), 0);
    std::istringstream kernel(support::read_file("/proc/self/mounts"));
    std::string table;
    for (std::string entry; std::getline(kernel, entry);)
        table += entry.starts_with("/dev/sdz9 ") ? "" : entry + "\n";
    fs::remove("/etc/mtab");
    appliance_.mount_table(table);
    EXPECT_EQ(line("/etc/mtab"),
              "warning: /etc/mtab does not list what is mounted: /share/USB: ln -sf /proc/self/mounts /etc/mtab");
}

TEST_F(DoctorMachine, shares_that_lead_nowhere_to_a_file_or_outside_are_told_apart) {
    appliance_.share("MD0_DATA/Public", "Public");
    appliance_.link("external/sdb1\033", "Gone");
    appliance_.link("Loop", "Loop");
    support::write_file("/share/file", "");
    appliance_.link("file", "File");
    appliance_.link("/etc", "Outside");
    Words found;
    for (const std::string &one : lines())
        if (one.find(": the share ") != std::string::npos)
            found.push_back(one);
    EXPECT_EQ(found,
              Words({"warning: the share /share/File leads to no folder: file: rm /share/File",
                     "failure: the share /share/Gone leads nowhere: external/sdb1\\x1b: mount its volume, or: rm "
                     "/share/Gone",
                     "failure: the share /share/Loop leads nowhere: Loop: mount its volume, or: rm /share/Loop",
                     "warning: the share /share/Outside leads out of /share, to /etc, so it is not listed: let it lead "
                     "to a folder below /share, or: rm /share/Outside"}));
    EXPECT_EQ(korvex({"doctor"}).exit_status, 1);
}

TEST_F(DoctorMachine, the_identification_command_must_be_a_program_of_roots) {
    const std::string path = "/usr/local/sbin/blkid";
    EXPECT_EQ(line(path), "ok: " + path + " is there");
    chmod(path.c_str(), 0757);
    EXPECT_EQ(line("others may change"),
              "failure: others may change " + path + ", which root runs: chown root " + path + "; chmod go-w " + path);
    chmod(path.c_str(), 0644);
    EXPECT_EQ(line(path), "failure: " + path + " is no program: chmod +x " + path);
    fs::remove(path);
    EXPECT_EQ(line(path), "warning: " + path +
                              ": No such file or directory, so no block device is identified: ln -s \"$(command -v "
                              "blkid)\" " +
                              path);
}

TEST_F(DoctorMachine, openssl_is_found_with_its_version) {
    EXPECT_THAT(line("OpenSSL"), testing::MatchesRegex("ok: OpenSSL [0-9].* is found, .*/libssl[.]so[.][0-9.]*"));
}

TEST_F(DoctorMachine, without_openssl_there_is_a_warning) {
    // An empty file in its place.
    std::string libssl = line("OpenSSL");
    libssl = libssl.substr(libssl.find(", /") + 2);
    const support::BindMount hidden(folder.file("libssl", ""), fs::canonical(libssl));
    EXPECT_EQ(line("no OpenSSL"),
              "warning: no OpenSSL is found, so there is no TLS: install it: apt-get install libssl3");
}

TEST_F(DoctorMachine, files_from_the_future_tell_of_a_clock_that_was_set_back) {
    const std::string path = "/etc/config/smb.conf";
    const timespec times[] = {{4'102'444'800, 0}, {4'102'444'800, 0}};  // 2100
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    const std::string text = line("the clock says ");
    EXPECT_TRUE(text.starts_with("warning: ")) << text;
    EXPECT_TRUE(text.ends_with(", but 1 file is dated later, such as " + path +
                               " (2100-01-01 00:00 UTC): set the clock, or, where it is right: touch the files"))
        << text;
}

TEST_F(DoctorMachine, a_time_zone_that_the_system_does_not_know_is_a_warning) {
    setenv("TZ", "Middle/Earth", 1);
    EXPECT_EQ(line("TZ is"),
              "warning: TZ is 'Middle/Earth', which is no time zone: times are in UTC: set it to a name below "
              "/usr/share/zoneinfo, or unset it");
    setenv("TZ", "CET-1", 1);
    EXPECT_EQ(line("times are"), "ok: times are in CET (+0100), by TZ");

    unsetenv("TZ");
    EXPECT_TRUE(line("/etc/localtime").starts_with("warning: /etc/localtime: No such file or directory, so times are"));
    support::write_file("/etc/localtime", "not a zone");
    EXPECT_TRUE(line("/etc/localtime").starts_with("warning: /etc/localtime can't be read as a time zone, so times"));
    fs::remove("/etc/localtime");
}

TEST_F(DoctorMachine, room_for_logs_is_judged_by_what_is_left) {
    const support::SmallDisk disk(80 << 20);
    const std::string logs = disk.path("");
    const Words words = {"doctor", "--logs", logs};
    EXPECT_EQ(line(logs, words), "ok: " + logs + " has 80.00 MB left");
    disk.fill_up_to(2 << 20);
    EXPECT_EQ(line(logs, words), "warning: " + logs + " has 2.00 MB left: make room soon: df -h " + logs);
    fs::remove(disk.path("filler"));
    disk.fill_up_to(0);
    EXPECT_EQ(line(logs, words), "failure: " + logs + " has 0 byte left: remove what nobody needs: df -h " + logs);
    EXPECT_EQ(line("/var/none", {"doctor", "--logs", "/var/none"}),
              "failure: /var/none: No such file or directory: make the folder, or mount what it is on");
}

TEST_F(DoctorMachine, wrong_usage_is_refused) {
    const std::string help = " (see 'korvex doctor --help')\n";
    expect({{{"doctor", "x"}, {2, "", "korvex: doctor: the following argument was not expected: x" + help}},
            {{"doctor", "--config", ""}, {2, "", "korvex: doctor: --config: an empty name" + help}},
            {{"doctor", "--logs"}, {2, "", "korvex: doctor: --logs: 1 required FOLDER missing" + help}}});
}

}  // namespace
