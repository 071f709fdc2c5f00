// Volumes: what the tool, the kernel, the mount table and the file system tell of one, put together.
#include <gmock/gmock.h>
#include <mntent.h>
#include <sys/statfs.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "faults.h"
#include "heap.h"
#include "log_capture.h"
#include "sample_appliance.h"
#include "sandbox.h"
#include "sysinfo.h"

using namespace sysinfo_test;
using support::Call;
using support::ChangeStatfs;
using support::FailCall;
using support::LogCapture;

namespace {

// The text in a field; how it stands where the field has no end within its size.
template <size_t N>
std::string field(const char (&text)[N]) {
    const size_t length = strnlen(text, N);
    return length < N ? std::string(text, length) : "(not terminated)";
}

// One answer: the error where there is one, then "device mount-path uuid type label vendor model partition total free",
// with "-" for what is empty.
std::string text_of(int32_t result, Guarded<Volume_Info> &info) {
    EXPECT_TRUE(info.guards_are_whole());
    std::ostringstream text;
    if (result != 0)
        text << result << ' ';
    for (const std::string &part :
         {field(info->szDevice), field(info->szMountPath), field(info->szUuid), field(info->szType),
          field(info->szLabel), field(info->szVendor), field(info->szModel)})
        text << (part.empty() ? "-" : part) << ' ';
    text << info->nPartition << ' ' << info->ullTotalBytes << ' ' << info->ullFreeBytes;
    return text.str();
}

std::string by_path(const std::string &path) {
    Guarded<Volume_Info> info;
    const int32_t result = Query_Volume_Info_BY_Path(path.c_str(), info.get());
    return text_of(result, info);
}

std::string by_id(const std::string &uuid) {
    Guarded<Volume_Info> info;
    const int32_t result = Query_Volume_Info_BY_Id(uuid.c_str(), info.get());
    return text_of(result, info);
}

const std::string kNothing = " - - - - - - - 0 0 0";

// One data volume that is mounted and shared, an external disk that is mounted but not shared, and one that is not
// mounted. The file systems have 1000 blocks of 4 KiB, of which 600 are free, 100 of these for root alone.
class Volume : public ApplianceTest {
  protected:
    Volume() {
        appliance_.tool_prints(
            "/dev/sda1: UUID=\"id-sda1\" TYPE=\"ext4\"\n"
            "/dev/mapper/cachedev1: LABEL=\"DataVol1\" UUID=\"id-data\" TYPE=\"ext4\"\n"
            "/dev/sdb3: LABEL=\"My-Book\" UUID=\"id-book\" TYPE=\"ntfs\"\n");
        appliance_.disk("cachedev", "9000\n", "Mapped  \n", "DM  \n");
        appliance_.partition("cachedev", "cachedev1", "8000\n");
        appliance_.disk("sda", "100\n", "Flash   \n", "Acme  \n");
        appliance_.partition("sda", "sda1", "90\n");
        appliance_.disk("sdb", "10000\n", "MyBook\n", "WD\n");
        appliance_.partition("sdb", "sdb3", "7000\n");

        appliance_.volume("/share/CACHEDEV1_DATA");
        appliance_.volume("/share/external/sdb3");
        appliance_.link("CACHEDEV1_DATA", "DataVol1");
        appliance_.share("CACHEDEV1_DATA/Public", "Public");
        appliance_.mount_table(
            "/dev/mapper/cachedev1 /share/CACHEDEV1_DATA ext4 rw 0 0\n"
            "/dev/sdb3 /share/external/sdb3 ntfs rw 0 0\n"
            "/dev/sdb3 /share/elsewhere ntfs ro 0 0\n");
    }

    // Counts by which the two sorts of free blocks, and the block's size and its fragment's, can be told apart.
    const ChangeStatfs sizes_{[](const std::string &, struct statfs &status) {
        status.f_bsize = 4096;
        status.f_frsize = 512;
        status.f_blocks = 1000;
        status.f_bfree = 600;
        status.f_bavail = 500;
    }};
};

using VolumeOfDevice = Volume;
using VolumeOfShare = Volume;
using VolumeOfId = Volume;

}  // namespace

TEST_F(VolumeOfDevice, is_described_by_its_file_system) {
    EXPECT_EQ(by_path("/dev/mapper/cachedev1"),
              "/dev/mapper/cachedev1 /share/DataVol1 id-data ext4 DataVol1 DM Mapped 0 4096000 2048000");
    EXPECT_EQ(by_path("/dev/sdb3"), "/dev/sdb3 /share/external/sdb3 id-book ntfs My-Book WD MyBook 3 4096000 2048000")
        << "no link leads to it; and the first of its mounts counts";
}

TEST_F(VolumeOfDevice, is_described_in_part_when_it_is_not_mounted) {
    EXPECT_EQ(by_path("/dev/sda1"), "-20 /dev/sda1 - id-sda1 ext4 - Acme Flash 0 46080 0");
    appliance_.mount_table("");
    EXPECT_EQ(by_path("/dev/sdb3"), "-20 /dev/sdb3 - id-book ntfs My-Book WD MyBook 3 3584000 0");
    std::filesystem::remove("/etc/mtab");
    EXPECT_EQ(by_path("/dev/sdb3"), "-2 /dev/sdb3 - id-book ntfs My-Book WD MyBook 3 3584000 0");
}

TEST_F(VolumeOfDevice, must_be_known_to_the_tool) {
    for (const char *device : {"/dev/sda", "/dev/sdz1", "/dev/", "/dev/sdb", "/dev/mapper/a-name-beyond-22"})
        EXPECT_EQ(by_path(device), "-19" + kNothing) << device;
    const FailCall fault(Call::popen, EAGAIN);
    EXPECT_EQ(by_path("/dev/sdb3"), "-19" + kNothing);
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(VolumeOfDevice, must_have_a_vendor) {
    appliance_.unreadable("sdb/device/vendor");
    EXPECT_EQ(by_path("/dev/sdb3"), "-21 /dev/sdb3 - id-book ntfs My-Book - MyBook 3 3584000 0");
    appliance_.unreadable("sdb/device/model");
    appliance_.unreadable("sdb/sdb3/size");
    EXPECT_EQ(by_path("/dev/sdb3"), "-21 /dev/sdb3 - id-book ntfs My-Book - - 3 0 0");
}

TEST_F(VolumeOfDevice, has_the_size_of_the_device_where_the_file_system_tells_none) {
    const FailCall fault(Call::statfs, EIO);
    EXPECT_EQ(by_path("/dev/mapper/cachedev1"),
              "/dev/mapper/cachedev1 /share/DataVol1 id-data ext4 DataVol1 DM Mapped 0 4096000 0");
    EXPECT_EQ(fault.failed(), 1);
    appliance_.mount_table("/dev/sdb3 /nowhere ntfs rw 0 0\n");
    EXPECT_EQ(by_path("/dev/sdb3"), "/dev/sdb3 /nowhere id-book ntfs My-Book WD MyBook 3 3584000 0");
}

TEST_F(VolumeOfDevice, has_a_path_of_up_to_22_bytes) {
    const std::string longest = "/dev/mapper/cachedev11";
    ASSERT_EQ(longest.size(), 22U);
    appliance_.tool_prints(longest + ": UUID=\"u\"\n" + longest + "1: UUID=\"v\"\n");
    EXPECT_EQ(by_path(longest), "-20 " + longest + " - u - - DM Mapped 11 0 0");
    EXPECT_EQ(by_path(longest + "1"), "-19" + kNothing);
}

TEST_F(VolumeOfDevice, has_its_mount_path_cut_to_the_field) {
    for (const size_t length : {42, 43, 44, 45, 200, 2000}) {
        SCOPED_TRACE(length);
        const std::string path = "/" + std::string(length - 1, 'm');
        appliance_.mount_table("/dev/sdb3 " + path + " ntfs rw 0 0\n");
        EXPECT_EQ(by_path("/dev/sdb3"),
                  "/dev/sdb3 " + path.substr(0, 43) + " id-book ntfs My-Book WD MyBook 3 3584000 0");
    }
    for (const size_t length : {35, 36, 37, 255}) {
        SCOPED_TRACE(length);
        const std::string name(length, 'n');
        const Appliance appliance;
        appliance.tool_prints("/dev/sdb3: UUID=\"u\"\n");
        appliance.disk("sdb", "1\n", "M\n", "V\n");
        appliance.mount_table("/dev/sdb3 /share/x ntfs rw 0 0\n");
        appliance.link("x", name);
        EXPECT_EQ(by_path("/dev/sdb3"), "/dev/sdb3 /share/" + name.substr(0, 36) + " u - - V M 3 0 0");
    }
}

TEST_F(VolumeOfShare, is_described_by_the_size_of_its_device) {
    const std::string expected =
        "/dev/mapper/cachedev1 /share/DataVol1 id-data ext4 DataVol1 DM Mapped 0 4096000 2048000";
    EXPECT_EQ(by_path("/share/CACHEDEV1_DATA"), expected);
    EXPECT_EQ(by_path("/share/DataVol1"), expected) << "links are followed";
    EXPECT_EQ(by_path("/share/Public/.."), expected);
    EXPECT_EQ(by_path("/share//./CACHEDEV1_DATA/"), expected);
    EXPECT_EQ(by_path("/share/external/sdb3"),
              "/dev/sdb3 /share/external/sdb3 id-book ntfs My-Book WD MyBook 3 3584000 2048000");
    appliance_.unreadable("sdb/sdb3/size");
    EXPECT_EQ(by_path("/share/external/sdb3"),
              "/dev/sdb3 /share/external/sdb3 id-book ntfs My-Book WD MyBook 3 0 2048000");
}

TEST_F(VolumeOfShare, must_be_a_mount_point) {
    for (const char *path : {"/share/Public", "/share/CACHEDEV1_DATA/Public", "/share/external", "/share/"})
        EXPECT_EQ(by_path(path), "-20" + kNothing) << path;
    std::filesystem::remove("/etc/mtab");
    EXPECT_EQ(by_path("/share/CACHEDEV1_DATA"), "-2" + kNothing);
}

TEST_F(VolumeOfShare, must_be_there) {
    appliance_.link("missing", "Missing");
    appliance_.link("Loop", "Loop");
    support::write_file("/share/file", "");
    EXPECT_EQ(by_path("/share/nothing"), "-2" + kNothing);
    EXPECT_EQ(by_path("/share/Missing"), "-2" + kNothing);
    EXPECT_EQ(by_path("/share/Loop"), "-40" + kNothing);
    EXPECT_EQ(by_path("/share/file/x"), "-20" + kNothing);
    EXPECT_EQ(by_path("/share/" + std::string(300, 'n')), "-36" + kNothing);
    EXPECT_EQ(by_path("/share/" + std::string(10'000, 'n')), "-36" + kNothing);
    {
        const FailCall fault(Call::realpath, EACCES);
        EXPECT_EQ(by_path("/share/DataVol1"), "-13" + kNothing);
        EXPECT_EQ(fault.failed(), 1);
    }
    const FailCall fault(Call::statfs, EIO);
    EXPECT_EQ(by_path("/share/DataVol1"), "-5" + kNothing);
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(VolumeOfShare, is_described_in_part_when_its_device_is_unknown) {
    appliance_.mount_table("/dev/md9 /share/CACHEDEV1_DATA ext4 rw 0 0\ntmpfs /tmp tmpfs rw 0 0\n");
    EXPECT_EQ(by_path("/share/DataVol1"), "-19 /dev/md9 /share/DataVol1 - - - - - 0 4096000 2048000");
    appliance_.link("/tmp", "Outside");
    EXPECT_EQ(by_path("/share/Outside"), "-19 tmpfs /tmp - - - - - 0 4096000 2048000");

    appliance_.mount_table("/dev/sdb3 /share/CACHEDEV1_DATA ext4 rw 0 0\n");
    appliance_.unreadable("sdb/device/vendor");
    EXPECT_EQ(by_path("/share/DataVol1"),
              "-21 /dev/sdb3 /share/DataVol1 id-book ntfs My-Book - MyBook 3 3584000 2048000");
    const FailCall fault(Call::popen, EAGAIN);
    EXPECT_EQ(by_path("/share/DataVol1"), "-19 /dev/sdb3 /share/DataVol1 - - - - - 0 4096000 2048000");
}

TEST_F(VolumeOfShare, has_its_device_cut_to_the_field) {
    for (const size_t length : {21, 22, 23, 24, 100, 2000}) {
        SCOPED_TRACE(length);
        const std::string device = "/dev/" + std::string(length - 5, 'd');
        appliance_.tool_prints(device.substr(0, 200) + ": UUID=\"u\"\n");
        appliance_.disk(device.substr(5, 100), "1\n", "M\n", "V\n");
        appliance_.mount_table(device + " /share/CACHEDEV1_DATA ext4 rw 0 0\n");
        EXPECT_EQ(by_path("/share/DataVol1"),
                  length <= 22 ? device + " /share/DataVol1 u - - V M 0 512 2048000"
                               : "-19 " + device.substr(0, 23) + " /share/DataVol1 - - - - - 0 4096000 2048000");
    }
}

TEST_F(VolumeOfId, is_described_by_its_file_system) {
    EXPECT_EQ(by_id("id-data"),
              "/dev/mapper/cachedev1 /share/DataVol1 id-data ext4 DataVol1 DM Mapped 0 4096000 2048000");
    EXPECT_EQ(by_id("id-book"), "/dev/sdb3 /share/external/sdb3 id-book ntfs My-Book WD MyBook 3 4096000 2048000");
}

TEST_F(VolumeOfId, is_described_in_part_when_it_is_not_mounted) {
    EXPECT_EQ(by_id("id-sda1"), "-20 /dev/sda1 - id-sda1 ext4 - Acme Flash 0 46080 0");
    std::filesystem::remove("/etc/mtab");
    EXPECT_EQ(by_id("id-book"), "-2 /dev/sdb3 - id-book ntfs My-Book WD MyBook 3 3584000 0");
    appliance_.unreadable("sdb/device/vendor");
    EXPECT_EQ(by_id("id-book"), "-21 /dev/sdb3 - id-book ntfs My-Book - MyBook 3 3584000 0");
}

TEST_F(VolumeOfId, must_be_known_to_the_tool) {
    for (const char *uuid : {"id-dat", "id", "ID-DATA", "DataVol1", ""})
        EXPECT_EQ(by_id(uuid), "-19" + kNothing) << uuid;
    const FailCall fault(Call::popen, EAGAIN);
    EXPECT_EQ(by_id("id-data"), "-19" + kNothing);
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(VolumeOfId, has_the_size_of_the_device_where_the_file_system_tells_none) {
    const FailCall fault(Call::statfs, EIO);
    EXPECT_EQ(by_id("id-book"), "/dev/sdb3 /share/external/sdb3 id-book ntfs My-Book WD MyBook 3 3584000 0");
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(VolumeOfId, has_up_to_39_bytes_and_a_device_of_up_to_23) {
    const std::string uuid(39, 'u');
    const std::string device = "/dev/mapper/cachedev111";
    ASSERT_EQ(device.size(), 23U);
    appliance_.tool_prints(device + ": UUID=\"" + uuid + "\" LABEL=\"123456789012345\" TYPE=\"12345678901\"\n");
    appliance_.mount_table(device + " /share/CACHEDEV1_DATA ext4 rw 0 0\n");
    EXPECT_EQ(by_id(uuid),
              device + " /share/DataVol1 " + uuid + " 12345678901 123456789012345 DM Mapped 111 4096000 2048000");

    Guarded<Volume_Info> info;
    for (const size_t length : {40, 41, 1000})
        EXPECT_EQ(Query_Volume_Info_BY_Id(std::string(length, 'u').c_str(), info.get()), -EINVAL);
    EXPECT_TRUE(info.guards_are_whole());
}

TEST_F(VolumeOfId, has_its_mount_path_cut_to_the_field) {
    const std::string path = "/" + std::string(100, 'm');
    appliance_.mount_table("/dev/sdb3 " + path + " ntfs rw 0 0\n");
    EXPECT_EQ(by_id("id-book"), "/dev/sdb3 " + path.substr(0, 43) + " id-book ntfs My-Book WD MyBook 3 3584000 0");
}

TEST_F(Volume, has_blanks_in_its_mount_point) {
    appliance_.mount_table("/dev/sdb3 /share/external/My\\040Book ntfs rw 0 0\n");
    appliance_.volume("/share/external/My Book");
    appliance_.link("external/My Book", "Book");
    for (const std::string &text : {by_path("/dev/sdb3"), by_id("id-book")})
        EXPECT_EQ(text, "/dev/sdb3 /share/Book id-book ntfs My-Book WD MyBook 3 4096000 2048000");
    EXPECT_EQ(by_path("/share/Book"), "/dev/sdb3 /share/Book id-book ntfs My-Book WD MyBook 3 3584000 2048000");
}

// Another thread asks for another volume between two steps of the question.
TEST_F(Volume, is_never_that_of_another_thread) {
    const ChangeStatfs other([](const std::string &, struct statfs &) {
        std::thread([] {
            struct mntent *entry = nullptr;
            EXPECT_EQ(Query_Mount_Entry_By_Device("/dev/sdb3", &entry), 0);
            EXPECT_EQ(by_id("id-book").substr(0, 30), "/dev/sdb3 /share/external/sdb3");
        }).join();
    });
    for (const std::string &text :
         {by_path("/dev/mapper/cachedev1"), by_path("/share/CACHEDEV1_DATA"), by_id("id-data")})
        EXPECT_EQ(text.substr(0, 37), "/dev/mapper/cachedev1 /share/DataVol1");
}

TEST_F(Volume, leaves_the_record_of_the_system_alone) {
    struct mntent *entry = nullptr;
    ASSERT_EQ(Query_Mount_Entry_By_Device("/dev/sdb3", &entry), 0);
    for (const char *path : {"/dev/mapper/cachedev1", "/share/CACHEDEV1_DATA"}) {
        (void)by_path(path);
        EXPECT_STREQ(entry->mnt_fsname, "/dev/sdb3") << path;
    }
    (void)by_id("id-data");
    EXPECT_STREQ(entry->mnt_fsname, "/dev/sdb3");
}

TEST_F(Volume, may_be_asked_for_by_several_threads) {
    std::vector<std::thread> threads;
    for (const bool data : {true, false, true, false})
        threads.emplace_back([data] {
            for (int round = 0; round < 20; round++)
                EXPECT_EQ(by_path(data ? "/share/CACHEDEV1_DATA" : "/share/external/sdb3").substr(0, 30),
                          data ? "/dev/mapper/cachedev1 /share/D" : "/dev/sdb3 /share/external/sdb3");
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(Volume, may_be_larger_than_32_bits_count) {
    const ChangeStatfs large([](const std::string &, struct statfs &status) {
        status.f_bsize = 65'536;
        status.f_blocks = 9'000'000'000;
        status.f_bfree = 6'000'000'000;
        status.f_bavail = 5'000'000'000;
    });
    for (const std::string &text : {by_path("/dev/sdb3"), by_id("id-book")})
        EXPECT_THAT(text, testing::EndsWith(" 589824000000000 327680000000000"));
}

TEST_F(Volume, of_other_paths_is_refused) {
    for (const char *path : {"", "/", "/dev", "/share", "dev/sdb3", "share/DataVol1", "/mnt/share/x", "/devices/x",
                             "/shared/x", "//dev/sdb3", "id-book"})
        EXPECT_EQ(by_path(path), "-22" + kNothing) << path;
}

TEST_F(Volume, of_null_is_refused) {
    Guarded<Volume_Info> info;
    EXPECT_EQ(Query_Volume_Info_BY_Path(nullptr, info.get()), -EINVAL);
    EXPECT_EQ(Query_Volume_Info_BY_Path("/dev/sdb3", nullptr), -EINVAL);
    EXPECT_EQ(Query_Volume_Info_BY_Path(nullptr, nullptr), -EINVAL);
    EXPECT_EQ(Query_Volume_Info_BY_Id(nullptr, info.get()), -EINVAL);
    EXPECT_EQ(Query_Volume_Info_BY_Id("id-book", nullptr), -EINVAL);
    EXPECT_EQ(Query_Volume_Info_BY_Id(nullptr, nullptr), -EINVAL);
}

TEST_F(Volume, leaves_no_byte_of_the_record_as_it_was) {
    Guarded<Volume_Info> info;
    EXPECT_EQ(Query_Volume_Info_BY_Path("/dev/none", info.get()), -ENODEV);
    const Volume_Info empty{};
    EXPECT_EQ(memcmp(info->szDevice, empty.szDevice, sizeof empty - offsetof(Volume_Info, szDevice)), 0);
}

TEST_F(Volume, is_described_in_silence_and_loses_nothing) {
    LogCapture log;
    EXPECT_FALSE(support::loses_memory([] { by_path("/share/DataVol1"); }));
    EXPECT_THAT(log.messages(), testing::IsEmpty());
}
