// The list of the shared folders: which links are shares, and what is told of each.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "faults.h"
#include "heap.h"
#include "log_capture.h"
#include "sample_appliance.h"
#include "sandbox.h"
#include "share_list.h"
#include "sysinfo.h"

using namespace sysinfo_test;
using support::Call;
using support::ChangeStatfs;
using support::FailCall;
using support::LogCapture;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

constexpr uint32_t kIso = 0x9660;
constexpr uint32_t kUdf = 0x15013346;
constexpr size_t kFixedFields = offsetof(Share_Info, szName);

// A volume with nothing in it, and options that hide nothing by themselves.
class ShareScan : public ApplianceTest {
  protected:
    ShareScan() {
        appliance_.volume("/share/MD0_DATA");
        appliance_.mount_table("/dev/md0 /share/MD0_DATA ext4 rw 0 0\n");
        appliance_.share_options("");
    }

    // A share on the volume, with a section for its options.
    void plain_share(const std::string &name, const std::string &options = "") {
        appliance_.share("MD0_DATA/" + name, name);
        all_options_ += "[" + name + "]\n" + options + "\n";
        appliance_.share_options(all_options_);
    }

  private:
    std::string all_options_;
};

// Runs the scan and gives its own messages, all levels.
std::vector<std::string> messages_of_scan() {
    LogCapture log;
    EXPECT_EQ(Shares().result(), 0);
    return messages_of(log, "Scan_Share_List");
}

}  // namespace

TEST_F(ShareScan, finds_nothing_in_an_empty_folder) {
    const Shares shares;
    EXPECT_EQ(shares.result(), 0);
    EXPECT_EQ(shares.list(), nullptr);
    EXPECT_EQ(shares.count(), 0);
}

TEST_F(ShareScan, lists_links_to_folders_below_the_share_folder) {
    appliance_.share("MD0_DATA/Public", "Public");
    appliance_.share("MD0_DATA/.qpkg/Deep er/still", "with blank");
    appliance_.link("/share/MD0_DATA/Public", "Absolute");
    appliance_.link("../share/./MD0_DATA/../MD0_DATA/Public/", "Winding");
    appliance_.link("Public", "ToLink");
    appliance_.link("/share/ToLink", "ToLinkToLink");
    appliance_.link("MD0_DATA", "Volume");

    appliance_.link("MD0_DATA/missing", "Missing");
    appliance_.link("Loop", "Loop");
    support::write_file("/share/MD0_DATA/file", "");
    appliance_.link("MD0_DATA/file", "File");
    support::write_file("/share/a_file", "");
    appliance_.folder("/share/a_folder");
    const support::TempFolder elsewhere;
    appliance_.link(elsewhere.path(), "Outside");

    const Shares shares;
    EXPECT_EQ(shares.result(), 0);
    EXPECT_THAT(shares.names(),
                ElementsAre("Absolute", "Public", "ToLink", "ToLinkToLink", "Volume", "Winding", "with blank"));
    EXPECT_EQ(shares.count(), 7);
}

TEST_F(ShareScan, leaves_the_reserved_name_out) {
    EXPECT_STREQ(g_rypszReservedShare[0], "TMBackup");
    for (const char *name : {"TMBackup", "TMBackup2", "TMBacku", "tmbackup", "TMBACKUP"})
        appliance_.share("MD0_DATA/x", name);
    EXPECT_THAT(Shares().names(), ElementsAre("TMBACKUP", "TMBacku", "TMBackup2", "tmbackup"));
}

TEST_F(ShareScan, sorts_by_the_bytes_of_the_names) {
    const std::string longest(255, 'n');
    for (const std::string &name :
         {std::string("b"), std::string("B"), std::string("a"), std::string("\xc3\xa9"), std::string("_"),
          std::string("aa"), std::string("10"), std::string("9"), std::string("Z"), std::string("a b"), longest,
          std::string("\x01"), std::string("z"), std::string("a-b"), std::string("\x7f")})
        appliance_.share("MD0_DATA/x", name);
    const Shares shares;
    EXPECT_THAT(shares.names(), ElementsAre("\x01", "10", "9", "B", "Z", "_", "a", "a b", "a-b", "aa", "b", longest,
                                            "z", "\x7f", "\xc3\xa9"));
    EXPECT_EQ(shares.count(), 15);
}

TEST_F(ShareScan, sorts_many) {
    std::set<std::string> expected;
    appliance_.folder("/share/MD0_DATA/x");
    for (int i = 0; i < 500; i++) {
        // In no order: 7919 is prime to 500.
        const std::string name = "share " + std::to_string(i * 7919 % 500);
        appliance_.link("MD0_DATA/x", name);
        expected.insert(name);
    }
    const Shares shares;
    EXPECT_EQ(shares.names(), std::vector<std::string>(expected.begin(), expected.end()));
    EXPECT_EQ(shares.count(), 500);
}

TEST_F(ShareScan, may_be_asked_for_no_count) {
    plain_share("a");
    Share_Info *list = nullptr;
    EXPECT_EQ(Scan_Share_List(&list, nullptr), 0);
    EXPECT_THAT(names_of(list), ElementsAre("a"));
    Release_Share_List(&list);
    EXPECT_EQ(list, nullptr);
    Release_Share_List(&list);
    Release_Share_List(nullptr);
}

TEST_F(ShareScan, refuses_a_null_list) {
    int32_t count = 0;
    LogCapture log(1);
    EXPECT_EQ(Scan_Share_List(nullptr, &count), -EINVAL);
    EXPECT_EQ(Scan_Share_List(nullptr, nullptr), -EINVAL);
    EXPECT_THAT(log.messages(), ElementsAre("[error] Scan_Share_List(#): Invalid input parameter.\n",
                                            "[error] Scan_Share_List(#): Invalid input parameter.\n"));
}

TEST_F(ShareScan, needs_the_share_folder) {
    plain_share("a");
    for (const Call call : {Call::opendir, Call::dirfd}) {
        LogCapture log(1);
        const FailCall fault(call, ENFILE);
        const Shares shares;
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_EQ(shares.result(), -ENFILE);
        EXPECT_EQ(shares.list(), nullptr);
        EXPECT_EQ(shares.count(), 0);
        EXPECT_THAT(log.messages(), ElementsAre("[error] Scan_Share_List(#): Failed to opendir(/share/)! (-23)\n"));
    }
}

TEST_F(ShareScan, tells_of_a_machine_without_shares) {
    ASSERT_EQ(umount2("/share", MNT_DETACH), 0);
    ASSERT_EQ(rmdir("/share"), 0);
    LogCapture log(1);
    const Shares shares;
    EXPECT_EQ(shares.result(), -ENOENT);
    EXPECT_EQ(shares.count(), 0);
    EXPECT_THAT(log.messages(), ElementsAre("[error] Scan_Share_List(#): Failed to opendir(/share/)! (-2)\n"));
    ASSERT_EQ(mkdir("/share", 0755), 0);
}

TEST_F(ShareScan, passes_over_what_cannot_be_looked_at) {
    for (const auto &[call, nth] : {std::pair{Call::fstatat, 1},
                                    {Call::realpath, 1},
                                    {Call::statfs, 1},
                                    {Call::fstatat, 3},
                                    {Call::realpath, 2},
                                    {Call::statfs, 3}}) {
        const Appliance appliance;
        for (const char *name : {"a", "b", "c"})
            appliance.share("MD0_DATA/x", name);
        LogCapture log;
        const FailCall fault(call, EIO, nth);
        const Shares shares;
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_EQ(shares.result(), 0);
        EXPECT_EQ(shares.count(), 2);
        EXPECT_EQ(shares.names().size(), 2U);
        EXPECT_THAT(messages_of(log, "Scan_Share_List"), IsEmpty());
    }
}

TEST_F(ShareScan, tells_of_shares_that_were_made_by_hand) {
    plain_share("Public");
    plain_share("Also");
    appliance_.share("plain/folder", "Plain");
    appliance_.link("plain", "Short");
    appliance_.link("MD0_DATA", "Volume");  // nothing follows "_DATA"
    appliance_.share("externals/sdb1", "NearlyExternal");
    appliance_.share("backup/x_DATA/y", "SecondVolume");
    appliance_.link("external", "Externals");
    appliance_.folder("/share/external");
    // Out of the share folder, although one of them begins like it.
    appliance_.link("/", "Root");
    appliance_.link(".", "Self");
    appliance_.link("/usr/local/sbin", "Program");

    EXPECT_THAT(messages_of_scan(),
                UnorderedElementsAre(
                    "[debug] Scan_Share_List(#): Found an non-auto-generated shared folder Plain, "
                    "/share/plain/folder!\n",
                    "[debug] Scan_Share_List(#): Found an non-auto-generated shared folder Short, /share/plain!\n",
                    "[debug] Scan_Share_List(#): Found an non-auto-generated shared folder Volume, /share/MD0_DATA!\n",
                    "[debug] Scan_Share_List(#): Found an non-auto-generated shared folder NearlyExternal, "
                    "/share/externals/sdb1!\n",
                    "[debug] Scan_Share_List(#): Found an non-auto-generated shared folder Externals, "
                    "/share/external!\n",
                    "[debug] Scan_Share_List(#): Skip the manual configured shared folder Root, /!\n",
                    "[debug] Scan_Share_List(#): Skip the manual configured shared folder Self, /share!\n",
                    "[debug] Scan_Share_List(#): Skip the manual configured shared folder Program, "
                    "/usr/local/sbin!\n"));
    EXPECT_THAT(Shares().names(), ElementsAre("Also", "Externals", "NearlyExternal", "Plain", "Public", "SecondVolume",
                                              "Short", "Volume"));
}

TEST_F(ShareScan, compares_the_share_folder_with_its_slash) {
    // A folder whose path begins with "/share", too.
    const std::string neighbour = "/shareware";
    appliance_.folder(neighbour + "/folder_DATA/x");
    appliance_.link(neighbour + "/folder_DATA/x", "Neighbour");
    EXPECT_THAT(messages_of_scan(), ElementsAre("[debug] Scan_Share_List(#): Skip the manual configured shared folder "
                                                "Neighbour, /shareware/folder_DATA/x!\n"));
    EXPECT_THAT(Shares().names(), IsEmpty());
    std::filesystem::remove_all(neighbour);
}

TEST_F(ShareScan, knows_external_devices_by_their_mount_points) {
    appliance_.volume("/share/external/sdb1");
    appliance_.volume("/share/external/with blank");
    appliance_.folder("/share/external/sdc1");
    appliance_.mount_table(
        "/dev/md0 /share/MD0_DATA ext4 rw 0 0\n"
        "/dev/sdb1 /share/external/sdb1 ntfs rw 0 0\n"
        "/dev/sdd1 /share/external/with\\040blank vfat rw 0 0\n");
    appliance_.link("external/sdb1", "USBDisk1");
    appliance_.link("USBDisk1", "Alias");
    appliance_.link("external/with blank", "USBDisk2");
    appliance_.share("external/sdb1/photos", "Photos");
    appliance_.link("external/sdc1", "NotMounted");
    plain_share("Public");
    appliance_.share_options("[USBDisk1]\n[Alias]\n[USBDisk2]\nbrowsable=no\n[Photos]\n[NotMounted]\n[Public]\n");

    LogCapture log;
    const Shares shares;
    EXPECT_EQ(shares["USBDisk1"].uFlags, 0x1100U);
    EXPECT_EQ(shares["Alias"].uFlags, 0x1100U);
    EXPECT_EQ(shares["USBDisk2"].uFlags, 0x1110U);
    EXPECT_EQ(shares["Photos"].uFlags, 0U);
    EXPECT_EQ(shares["NotMounted"].uFlags, 0U);
    EXPECT_EQ(shares["Public"].uFlags, 0U);
    // A share on such a device is nothing out of the ordinary, be it mounted or not.
    EXPECT_THAT(messages_of(log, "Scan_Share_List"), IsEmpty());
}

TEST_F(ShareScan, does_without_the_mount_table) {
    appliance_.volume("/share/external/sdb1");
    appliance_.link("external/sdb1", "USBDisk1");
    appliance_.share_options("[USBDisk1]\n");
    std::filesystem::remove("/etc/mtab");
    EXPECT_EQ(Shares()["USBDisk1"].uFlags, 0U);

    // As far as it was read: from its first line on, until there was no memory for a second record.
    appliance_.mount_table("/dev/sdb1 /share/external/sdb1 ntfs rw 0 0\nnone /a x o 0 0\n");
    std::set<size_t> cut;
    for (int nth = 1; nth < 10; nth++) {
        LogCapture log(1);
        std::optional<FailCall> fault(std::in_place, Call::allocation, ENOMEM, nth);
        const Shares shares;
        fault.reset();
        const std::vector<std::string> of_mounts = messages_of(log, "Scan_Mount_Info");
        if (of_mounts.empty())
            continue;

        const size_t second = sizeof(Mount_Info) + strlen("none/axo") + 4;
        const bool first_was_read = of_mounts[0].find(" " + std::to_string(second) + " bytes") != std::string::npos;
        EXPECT_EQ(shares.result(), 0);
        EXPECT_EQ(shares["USBDisk1"].uFlags, first_was_read ? 0x1100U : 0U);
        cut.insert(first_was_read ? 1 : 0);
    }
    EXPECT_THAT(cut, ElementsAre(0, 1));
}

TEST_F(ShareScan, knows_discs_by_their_file_systems) {
    const struct {
        int64_t magic;
        uint32_t flags;
        uint32_t mode;
    } cases[] = {{kIso, 0x1201, 0555},  {kUdf, 0x1201, 0555}, {kIso + 1, 0, 0777}, {kUdf - 1, 0, 0777},
                 {0x20009660, 0, 0777}, {0x1373, 0, 0777},    {0xEF53, 0, 0777},   {0x01021994, 0, 0777}};
    plain_share("DVD");
    ASSERT_EQ(chmod("/share/MD0_DATA/DVD", 0777), 0);
    for (const auto &row : cases) {
        SCOPED_TRACE(row.magic);
        const ChangeStatfs change(
            [&](const std::string &, struct statfs &status) { status.f_type = static_cast<long>(row.magic); });
        const Shares shares;
        EXPECT_EQ(shares["DVD"].uFlags, row.flags);
        EXPECT_EQ(shares["DVD"].uMode, S_IFDIR | row.mode);
        EXPECT_EQ(shares["DVD"].uFsType, row.magic);
    }
}

TEST_F(ShareScan, adds_the_flags_of_a_disc_to_the_others) {
    appliance_.volume("/share/external/sr0");
    appliance_.link("external/sr0", "DVD");
    plain_share("Public");
    appliance_.share_options("[DVD]\nbrowseable = No\n[Public]\n");
    appliance_.mount_table("/dev/sr0 /share/external/sr0 iso9660 ro 0 0\n");
    ASSERT_EQ(chmod("/share/external/sr0", 07777), 0);

    const ChangeStatfs change([](const std::string &path, struct statfs &status) {
        if (path == "/share/external/sr0" || path == "/share/DVD")
            status.f_type = kIso;
    });
    const Shares shares;
    EXPECT_EQ(shares["DVD"].uFlags, SHARE_READ_ONLY | SHARE_HIDDEN | SHARE_EXTERNAL | SHARE_DISC | SHARE_REMOVABLE);
    EXPECT_EQ(shares["DVD"].uFlags, 0x1311U);
    EXPECT_EQ(shares["DVD"].uMode, S_IFDIR | 07555U);
    EXPECT_EQ(shares["Public"].uFlags, 0U);
}

TEST_F(ShareScan, tells_what_the_folder_is_like) {
    plain_share("Owned");
    const std::string path = "/share/MD0_DATA/Owned";
    ASSERT_EQ(chown(path.c_str(), 1000, 4'000'000'000), 0);
    ASSERT_EQ(chmod(path.c_str(), 03751), 0);
    const struct {
        timespec time;
        uint32_t seconds;
    } cases[] = {
        {{1'700'000'000, 123'456'789}, 1'700'000'000},
        {{0, 0}, 0},
        {{2'147'483'648, 1}, 2'147'483'648},
        {{4'294'967'295, 999'999'999}, 4'294'967'295},
        {{4'294'967'296 + 123, 500}, 123},
        {{-1, 999'999'000}, 4'294'967'295},
    };
    for (const auto &[time, seconds] : cases) {
        SCOPED_TRACE(time.tv_sec);
        const timespec times[] = {{1, 2}, time};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
        const Shares shares;
        EXPECT_EQ(shares["Owned"].uMtime, seconds);
        EXPECT_EQ(shares["Owned"].uMtimeNsec, time.tv_nsec);
        EXPECT_EQ(shares["Owned"].uMode, S_IFDIR | 03751U);
        EXPECT_EQ(shares["Owned"].uUid, 1000U);
        EXPECT_EQ(shares["Owned"].uGid, 4'000'000'000U);
    }
}

TEST_F(ShareScan, tells_what_the_volume_is_like) {
    plain_share("Public");
    {
        struct statfs real {};
        ASSERT_EQ(statfs("/share/MD0_DATA", &real), 0);
        const Shares shares;
        EXPECT_EQ(shares["Public"].uFsType, 0x01021994U);
        EXPECT_EQ(shares["Public"].uBlockSize, real.f_bsize);
        EXPECT_EQ(shares["Public"].ullFreeBytes, static_cast<uint64_t>(real.f_bsize) * real.f_bfree);
        EXPECT_GT(shares["Public"].ullFreeBytes, 0U);
    }

    const ChangeStatfs change([](const std::string &, struct statfs &status) {
        status.f_type = 0x7'0000'EF53;
        status.f_bsize = 65'536;
        status.f_frsize = 512;
        status.f_blocks = 9'000'000'000;
        status.f_bfree = 5'000'000'000;
        status.f_bavail = 4'000'000'000;
    });
    const Shares shares;
    EXPECT_EQ(shares["Public"].uFsType, 0xEF53U);
    EXPECT_EQ(shares["Public"].uBlockSize, 65'536U);
    EXPECT_EQ(shares["Public"].ullFreeBytes, 327'680'000'000'000U);
}

TEST_F(ShareScan, asks_the_volume_that_the_link_leads_to) {
    appliance_.volume("/share/MD1_DATA");
    plain_share("First");
    appliance_.share("MD1_DATA/x", "Second");
    std::set<std::string> asked;
    const ChangeStatfs change([&](const std::string &path, struct statfs &status) {
        asked.insert(std::filesystem::canonical(path));
        status.f_bfree = path.ends_with("x") || path.ends_with("Second") ? 2 : 1;
        status.f_bsize = 1;
    });
    const Shares shares;
    EXPECT_THAT(asked, ElementsAre("/share/MD0_DATA/First", "/share/MD1_DATA/x"));
    EXPECT_EQ(shares["First"].ullFreeBytes, 1U);
    EXPECT_EQ(shares["Second"].ullFreeBytes, 2U);
}

TEST_F(ShareScan, gives_everything_back_when_memory_runs_out) {
    // Of lengths of their own, so that the messages tell which record could not be had.
    const std::vector<std::string> names = {"a", "bb", "ccc"};
    for (const std::string &name : names)
        plain_share(name);
    Shares();  // the system's own buffer for the mounts is made once

    std::set<std::string> missed;
    for (int nth = 1; nth < 200; nth++) {
        SCOPED_TRACE(nth);
        LogCapture log(1);
        std::optional<FailCall> fault(std::in_place, Call::allocation, ENOMEM, nth);
        const Shares shares;
        const int failed = fault->failed();
        fault.reset();
        const std::vector<std::string> messages = messages_of(log, "Scan_Share_List");
        if (failed == 0) {
            EXPECT_EQ(shares.names(), names);
            break;
        }
        if (shares.result() == 0) {
            // The mounts, the options of a share or a buffer of the system's.
            EXPECT_EQ(shares.count(), 3);
            EXPECT_EQ(shares.names(), names);
            EXPECT_THAT(messages, IsEmpty());
            continue;
        }
        EXPECT_EQ(shares.result(), -ENOMEM);
        EXPECT_EQ(shares.list(), nullptr);
        EXPECT_EQ(shares.count(), 0);
        missed.insert(messages.begin(), messages.end());
    }
    EXPECT_EQ(missed.erase("[error] Scan_Share_List(#): Failed to opendir(/share/)! (-12)\n"), 1U);
    std::set<std::string> expected;
    for (const std::string &name : names)
        expected.insert("[error] Scan_Share_List(#): ERROR: Failed to allocate memory of " +
                        std::to_string(kFixedFields + name.size() + 1) + " bytes.\n");
    EXPECT_EQ(missed, expected);
}

TEST_F(ShareScan, may_run_in_several_threads) {
    appliance_.volume("/share/external/sdb1");
    appliance_.mount_table("/dev/sdb1 /share/external/sdb1 ntfs rw 0 0\n/dev/md0 /share/MD0_DATA ext4 rw 0 0\n");
    plain_share("a");
    plain_share("b", "browsable = no");
    appliance_.link("external/sdb1", "USBDisk1");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([] {
            for (int round = 0; round < 50; round++) {
                const Shares shares;
                EXPECT_THAT(shares.names(), ElementsAre("USBDisk1", "a", "b"));
                EXPECT_EQ(shares["USBDisk1"].uFlags, 0x1110U);
                EXPECT_EQ(shares["b"].uFlags, 0x0010U);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(ShareScan, loses_nothing) {
    plain_share("a");
    plain_share("b");
    appliance_.link("/", "Root");
    appliance_.link("missing", "Missing");
    EXPECT_FALSE(support::loses_memory([] { EXPECT_EQ(Shares().count(), 2); }));
}
