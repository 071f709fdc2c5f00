// The list of the shared folders: which links are shares, and in which order.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
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
#include "share_scan.h"
#include "sysinfo.h"

using namespace sysinfo_test;
using support::Call;
using support::FailCall;
using support::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

constexpr size_t kFixedFields = offsetof(Share_Info, szName);

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
