// What is told of a shared folder: where it lies, what it is like, and what its volume is.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "faults.h"
#include "log_capture.h"
#include "sample_appliance.h"
#include "share_scan.h"
#include "sysinfo.h"

using namespace sysinfo_test;
using support::Call;
using support::ChangeStatfs;
using support::FailCall;
using support::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t kIso = 0x9660;
constexpr uint32_t kUdf = 0x15013346;

using ShareFacts = ShareScan;

}  // namespace

TEST_F(ShareFacts, knows_external_devices_by_their_mount_points) {
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

TEST_F(ShareFacts, does_without_the_mount_table) {
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

TEST_F(ShareFacts, knows_discs_by_their_file_systems) {
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

TEST_F(ShareFacts, adds_the_flags_of_a_disc_to_the_others) {
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

TEST_F(ShareFacts, tells_what_the_folder_is_like) {
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

TEST_F(ShareFacts, tells_what_the_volume_is_like) {
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

TEST_F(ShareFacts, asks_the_volume_that_the_link_leads_to) {
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
