// The attributes of block devices in /sys/block: size, partition number, vendor and model.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>

#include "faults.h"
#include "guarded_buffer.h"
#include "heap.h"
#include "log_capture.h"
#include "sample_appliance.h"
#include "sandbox.h"
#include "sysinfo.h"

using namespace sysinfo_test;
using support::Call;
using support::FailCall;
using support::GuardedBuffer;
using support::LogCapture;

namespace {

// The answer for one device.
struct Attributes {
    explicit Attributes(const std::string &device)
        : result(Query_Block_Device_Info(device.c_str(), &size, &partition, vendor.data(), model.data())) {
        EXPECT_LE(vendor.written(), 32U) << device;
        EXPECT_LE(model.written(), 32U) << device;
    }

    uint64_t size = 77;
    uint32_t partition = 77;
    GuardedBuffer vendor;
    GuardedBuffer model;
    int32_t result;

    // "size partition vendor|model", after the error where there is one.
    std::string text() const {
        return (result == 0 ? "" : std::to_string(result) + " ") + std::to_string(size) + " " +
               std::to_string(partition) + " " + vendor.text() + "|" + model.text();
    }
};

std::string of(const std::string &device) {
    return Attributes(device).text();
}

// A disk with three partitions, and one with a single one.
class BlockAttributes : public ApplianceTest {
  protected:
    BlockAttributes() {
        appliance_.disk("sdb", "7814037168\n", "WD40EFRX-68WT0N0\n", "WDC     \n");
        appliance_.partition("sdb", "sdb1", "1060290\n");
        appliance_.partition("sdb", "sdb2", "1060296\n");
        appliance_.partition("sdb", "sdb3", "7796362680\n");
        appliance_.disk("sdc", "2000\n", "DT 101 G2\n", "Kingston\n");
        appliance_.partition("sdc", "sdc1", "1999\n");
    }
};

}  // namespace

TEST_F(BlockAttributes, of_disks_and_partitions) {
    EXPECT_EQ(of("/dev/sdb"), "4000787030016 0 WDC|WD40EFRX-68WT0N0");
    EXPECT_EQ(of("/dev/sdb1"), "542868480 1 WDC|WD40EFRX-68WT0N0");
    EXPECT_EQ(of("/dev/sdb2"), "542871552 2 WDC|WD40EFRX-68WT0N0");
    EXPECT_EQ(of("/dev/sdb3"), "3991737692160 3 WDC|WD40EFRX-68WT0N0");
    EXPECT_EQ(of("/dev/sdc"), "1024000 0 Kingston|DT 101 G2");
}

TEST_F(BlockAttributes, call_the_only_partition_of_a_disk_0) {
    EXPECT_EQ(of("/dev/sdc1"), "1023488 0 Kingston|DT 101 G2");
    appliance_.partition("sdc", "sdc3", "1\n");
    EXPECT_EQ(of("/dev/sdc1"), "1023488 0 Kingston|DT 101 G2");
    EXPECT_EQ(of("/dev/sdc3"), "512 3 Kingston|DT 101 G2");

    // Whatever is in the place of a second one: it could be looked at.
    for (const auto &make : {+[] { support::write_file("/sys/block/sdc/sdc2", ""); },
                             +[] { std::filesystem::create_symlink("nothing", "/sys/block/sdc/sdc2"); },
                             +[] { std::filesystem::create_directory("/sys/block/sdc/sdc2"); }}) {
        make();
        EXPECT_EQ(of("/dev/sdc1"), "1023488 1 Kingston|DT 101 G2");
        if (!std::filesystem::is_directory("/sys/block/sdc/sdc2"))
            std::filesystem::remove("/sys/block/sdc/sdc2");
    }

    const FailCall fault(Call::fstatat, EIO);
    EXPECT_EQ(of("/dev/sdc1"), "1023488 0 Kingston|DT 101 G2");
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(BlockAttributes, have_the_disks_name_in_the_devices) {
    appliance_.disk("cachedev", "10\n", "mapped\n", "dm\n");
    appliance_.partition("cachedev", "cachedev1", "4\n");
    appliance_.partition("cachedev", "cachedev2", "5\n");
    appliance_.disk("nvme", "6\n", "no such thing\n", "none\n");
    appliance_.partition("nvme", "nvme0n1p2", "7\n");
    appliance_.disk("sd", "8\n", "s\n", "d\n");
    appliance_.partition("sd", "sdA1", "9\n");
    appliance_.partition("sdb", "sdb03", "2\n");
    appliance_.partition("sdb", "sdb1x", "3\n");
    appliance_.disk("mapper", "1\n", "map\n", "per\n");
    appliance_.partition("mapper", "mapper/sdb1", "11\n");

    const struct {
        const char *device;
        const char *expected;
    } cases[] = {
        {"sdb3", "3991737692160 3 WDC|WD40EFRX-68WT0N0"},
        {"/dev/mapper/sdb3", "3991737692160 3 WDC|WD40EFRX-68WT0N0"},
        {"/dev/mapper/cachedev1", "2048 1 dm|mapped"},
        {"/dev/mapper/cachedev2", "2560 2 dm|mapped"},
        {"/dev/mapper/cachedev", "5120 0 dm|mapped"},
        {"/dev/nvme0n1p2", "3584 0 none|no such thing"},
        {"/dev/sdA1", "4608 0 d|s"},
        {"/dev/sdb03", "1024 3 WDC|WD40EFRX-68WT0N0"},
        {"/dev/sdb1x", "1536 1 WDC|WD40EFRX-68WT0N0"},
        // No prefix is taken off twice, and none but these.
        {"/dev/dev/sdb3", "-2 0 0 |"},
        {"/dev//dev/mapper/sdb3", "-2 0 0 |"},
        {"/dev/mapper", "512 0 per|map"},
        {"/sys/sdb3", "-2 0 0 |"},
    };
    for (const auto &[device, expected] : cases)
        EXPECT_EQ(of(device), expected) << device;
}

TEST_F(BlockAttributes, count_sectors_of_512_bytes) {
    const struct {
        const char *content;
        uint64_t size;
    } cases[] = {
        {"0\n", 0},
        {"1\n", 512},
        {"1", 512},
        {"", 0},
        {"\n", 0},
        {"garbage\n", 0},
        {"12 13\n", 6144},
        {"7x\n", 3584},
        {"010\n", 5120},
        {" 5\n", 2560},
        {"0x10\n", 0},
        {"36028797018963967\n", 18'446'744'073'709'551'104U},
        {"8388608\n", 4'294'967'296},
    };
    for (const auto &[content, size] : cases) {
        SCOPED_TRACE(content);
        support::write_file("/sys/block/sdb/size", content);
        EXPECT_EQ(Attributes("/dev/sdb").size, size);
        support::write_file("/sys/block/sdb/sdb2/size", content);
        EXPECT_EQ(Attributes("/dev/sdb2").size, size);
    }
    // Numbers of no meaning do no harm.
    for (const std::string &content : {std::string("18446744073709551615\n"), std::string(5000, '9'),
                                       std::string("-1\n"), std::string(64, ' '), std::string(64, '\0')}) {
        support::write_file("/sys/block/sdb/size", content);
        EXPECT_EQ(Attributes("/dev/sdb").result, 0);
    }
}

TEST_F(BlockAttributes, have_no_size_where_it_cannot_be_read) {
    appliance_.unreadable("sdb/size");
    EXPECT_EQ(of("/dev/sdb"), "0 0 WDC|WD40EFRX-68WT0N0");
    appliance_.unreadable("sdb/sdb3/size");
    EXPECT_EQ(of("/dev/sdb3"), "0 3 WDC|WD40EFRX-68WT0N0");
    EXPECT_EQ(of("/dev/sdb4"), "0 4 WDC|WD40EFRX-68WT0N0");
    std::filesystem::remove_all("/sys/block/sdc/sdc1");
    EXPECT_EQ(of("/dev/sdc1"), "0 0 Kingston|DT 101 G2");
    const FailCall fault(Call::read, EIO);
    EXPECT_EQ(of("/dev/sdb2"), "0 2 WDC|WD40EFRX-68WT0N0");
}

TEST_F(BlockAttributes, have_texts_without_their_trailing_blanks) {
    using namespace std::string_literals;
    const struct {
        std::string content;
        std::string text;
    } cases[] = {
        {"WDC     \n", "WDC"},
        {"WDC", "WDC"},
        {"WDC\n", "WDC"},
        {"  inner  blanks stay  \n", "  inner  blanks stay"},
        {"", ""},
        {"\n", ""},
        {"                \n", ""},
        {" ", ""},
        // One line feed is dropped, and blanks alone are removed.
        {"WDC  \n\n", "WDC  \n"},
        {"WDC\t \n", "WDC\t"},
        {std::string(30, 'm') + "\n", std::string(30, 'm')},
        {std::string(31, 'm') + "\n", std::string(31, 'm')},
        {std::string(31, 'm'), std::string(31, 'm')},
        {std::string(32, 'm') + "\n", std::string(31, 'm')},
        {std::string(40, 'm') + "\n", std::string(31, 'm')},
        {std::string(5000, 'm'), std::string(31, 'm')},
        {std::string(30, 'm') + " \n", std::string(30, 'm')},
        {std::string(28, 'm') + "    more\n", std::string(28, 'm')},
        {std::string(16, 'm') + std::string(40, ' ') + "\n", std::string(16, 'm')},
        {std::string(100, ' '), ""},
        {"\xc3\xa9\xff\n", "\xc3\xa9\xff"},
    };
    for (const auto &[content, text] : cases) {
        SCOPED_TRACE(content);
        appliance_.disk("sdb", "1\n", content, "V\n");
        EXPECT_EQ(of("/dev/sdb"), "512 0 V|" + text);
        appliance_.disk("sdb", "1\n", "M\n", content);
        EXPECT_EQ(of("/dev/sdb"), "512 0 " + text + "|M");
    }
    // A NUL ends the text; nothing is written in front of it.
    appliance_.disk("sdb", "1\n", "\0   \n"s, "V\0  \n"s);
    EXPECT_EQ(of("/dev/sdb"), "512 0 V|");
}

TEST_F(BlockAttributes, need_no_model) {
    appliance_.unreadable("sdb/device/model");
    EXPECT_EQ(of("/dev/sdb3"), "3991737692160 3 WDC|");
    std::filesystem::remove("/sys/block/sdb/device/model");
    EXPECT_EQ(of("/dev/sdb3"), "3991737692160 3 WDC|");
}

TEST_F(BlockAttributes, need_a_vendor) {
    appliance_.unreadable("sdb/device/vendor");
    EXPECT_EQ(of("/dev/sdb3"), "-21 3991737692160 3 |WD40EFRX-68WT0N0");
    std::filesystem::remove("/sys/block/sdb/device/vendor");
    EXPECT_EQ(of("/dev/sdb3"), "-2 3991737692160 3 |WD40EFRX-68WT0N0");
    std::filesystem::remove_all("/sys/block/sdc/device");
    EXPECT_EQ(of("/dev/sdc1"), "-2 1023488 0 |");

    appliance_.disk("sdb", "1\n", "M\n", "V\n");
    const FailCall fault(Call::open, EACCES, 3);
    EXPECT_EQ(of("/dev/sdb"), "-13 512 0 |M");
    EXPECT_EQ(fault.failed(), 1) << "the third of three files";
}

TEST_F(BlockAttributes, of_no_device) {
    for (const char *device :
         {"", "/dev/", "/dev/mapper/", "/dev/sdz9", "/dev/7", "/dev/{1", "/dev/../../etc", "/dev/Sdb"}) {
        SCOPED_TRACE(device);
        const Attributes attributes(device);
        EXPECT_EQ(attributes.result, -ENOENT);
        EXPECT_EQ(attributes.size, 0U);
        EXPECT_EQ(attributes.vendor.text(), "");
        EXPECT_EQ(attributes.model.text(), "");
    }
    EXPECT_EQ(of("/dev/sdz9"), "-2 0 9 |");
}

TEST_F(BlockAttributes, of_names_beyond_all_measure) {
    for (const std::string &name : {std::string(300, 'a'), std::string(5000, 'a'), std::string(70'000, 'a'),
                                    "sdb" + std::string(5000, '1'), "sdb" + std::string(300, '/')}) {
        SCOPED_TRACE(name.size());
        for (const std::string &prefix : {std::string(), std::string("/dev/"), std::string("/dev/mapper/")}) {
            GuardedBuffer vendor;
            GuardedBuffer model;
            uint64_t size = 0;
            uint32_t partition = 0;
            const int32_t result =
                Query_Block_Device_Info((prefix + name).c_str(), &size, &partition, vendor.data(), model.data());
            if (name[0] == 'a' || name.size() > 4096) {
                EXPECT_EQ(result, -ENAMETOOLONG);
            }
            EXPECT_EQ(size, 0U);
            EXPECT_LE(vendor.written(), 32U);
            EXPECT_LE(model.written(), 32U);
        }
    }
}

TEST_F(BlockAttributes, of_names_at_the_limits_of_paths) {
    // One path after the other does not fit as a name grows: that of the vendor, of the size, of the second partition.
    for (const size_t length : {size_t{2000}, size_t{4050}})
        for (size_t more = 0; more < 60; more++)
            for (const char *partition : {"", "1"}) {
                const std::string name = std::string(length + more, 'a') + partition;
                SCOPED_TRACE(name.size());
                EXPECT_EQ(of(name), "-36 0 0 |");
            }
}

TEST_F(BlockAttributes, refuse_null) {
    uint64_t size = 77;
    uint32_t partition = 77;
    GuardedBuffer vendor;
    GuardedBuffer model;
    EXPECT_EQ(Query_Block_Device_Info(nullptr, &size, &partition, vendor.data(), model.data()), -EINVAL);
    EXPECT_EQ(Query_Block_Device_Info("sdb", nullptr, &partition, vendor.data(), model.data()), -EINVAL);
    EXPECT_EQ(Query_Block_Device_Info("sdb", &size, nullptr, vendor.data(), model.data()), -EINVAL);
    EXPECT_EQ(Query_Block_Device_Info("sdb", &size, &partition, nullptr, model.data()), -EINVAL);
    EXPECT_EQ(Query_Block_Device_Info("sdb", &size, &partition, vendor.data(), nullptr), -EINVAL);
    EXPECT_EQ(size, 77U);
    EXPECT_EQ(partition, 77U);
    EXPECT_EQ(vendor.written() + model.written(), 0U);
}

TEST_F(BlockAttributes, are_read_in_silence_and_lose_nothing) {
    LogCapture log;
    EXPECT_FALSE(support::loses_memory([] {
        of("/dev/sdb3");
        of("/dev/sdz");
    }));
    EXPECT_THAT(log.messages(), testing::IsEmpty());
}
