// The tables of the system as ranges, from a sample appliance.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "../sysinfo/sample_appliance.h"
#include "failure_of.h"
#include "fake_network.h"
#include "faults.h"
#include "korvex/system.hpp"

namespace {

using support::failure_of;
using testing::ElementsAre;
using testing::IsEmpty;

// The name of each element of a list.
template <class List, class Name>
std::vector<std::string> texts(const List &list, Name name) {
    std::vector<std::string> found;
    for (const auto &element : list)
        found.emplace_back(element.*name);
    return found;
}

class System : public testing::Test {
  protected:
    sysinfo_test::Appliance appliance_;
};

TEST_F(System, lists_its_mounts) {
    appliance_.mount_table("/dev/sda1 /share/A ext4 rw,noatime 1 2\nnone /proc proc rw 0 0\n");
    const korvex::mount_list mounts = korvex::mounts();
    ASSERT_THAT(texts(mounts, &korvex::mount::folder), ElementsAre("/proc", "/share/A"));
    const auto disk = std::ranges::find(mounts, "/dev/sda1", &korvex::mount::source);
    ASSERT_NE(disk, mounts.end());
    EXPECT_EQ(disk->type, "ext4");
    EXPECT_EQ(disk->options, "rw,noatime");
    EXPECT_EQ(disk->frequency, 1);
    EXPECT_EQ(disk->pass, 2);
}

TEST_F(System, without_a_table_of_mounts_says_so) {
    std::filesystem::remove("/etc/mtab");
    const korvex::error failure = failure_of([] { (void)korvex::mounts(); });
    EXPECT_EQ(failure.code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(failure.subject(), "/etc/mtab");
}

TEST_F(System, lists_its_shares_with_their_options) {
    appliance_.volume("/share/VOL");
    appliance_.share("VOL/Public", "Public");
    appliance_.share("VOL/Music", "Music");
    appliance_.share_options("[Public]\nbrowsable = yes\n[Music]\nbrowsable = no\n");
    const korvex::share_list shares = korvex::shares();
    ASSERT_THAT(texts(shares, &korvex::share::name), ElementsAre("Music", "Public"));
    const korvex::share music = shares.front();
    EXPECT_TRUE(has(music.flags, korvex::share_flags::hidden));
    EXPECT_FALSE(has(std::ranges::find(shares, "Public", &korvex::share::name)->flags, korvex::share_flags::hidden));
    EXPECT_EQ(music.mode & 0170000U, 0040000U);
    EXPECT_GT(music.free_bytes, 0U);
    EXPECT_GT(music.modified.time_since_epoch().count(), 0);
}

TEST_F(System, without_shares_or_blocks_lists_none) {
    EXPECT_TRUE(korvex::shares().empty());
    EXPECT_EQ(korvex::shares().size(), 0U);
    EXPECT_TRUE(korvex::blocks().empty());
}

TEST_F(System, describes_a_volume_by_each_of_its_names) {
    appliance_.tool_prints("/dev/sda1: LABEL=\"Data\" UUID=\"id-data\" TYPE=\"ext4\"\n");
    appliance_.disk("sda", "9000\n", "Disk\n", "Acme\n");
    appliance_.partition("sda", "sda1", "8000\n");
    appliance_.volume("/share/VOL");
    appliance_.link("VOL", "Data");
    appliance_.mount_table("/dev/sda1 /share/VOL ext4 rw 0 0\n");
    for (const char *name : {"/dev/sda1", "id-data"}) {
        const auto volume = korvex::find_volume(name);
        ASSERT_TRUE(volume) << name;
        EXPECT_EQ(volume->device, "/dev/sda1");
        EXPECT_EQ(volume->mount_path, "/share/Data");
        EXPECT_EQ(volume->label, "Data");
        EXPECT_EQ(volume->vendor, "Acme");
        EXPECT_GT(volume->total_bytes, volume->free_bytes / 2);
    }
    EXPECT_EQ(korvex::find_volume("/dev/sdz9"), std::nullopt);
    EXPECT_EQ(korvex::find_volume("id-none"), std::nullopt);
    appliance_.mount_table("");
    EXPECT_EQ(korvex::find_volume("/dev/sda1"), std::nullopt) << "it is not mounted";

    EXPECT_EQ(korvex::content_of("/dev/sda1")->label, "Data");
    EXPECT_EQ(korvex::find_block("id-data")->device, "/dev/sda1");
    EXPECT_EQ(korvex::find_block("id-none"), std::nullopt);
    EXPECT_EQ(korvex::content_of("/dev/sdz9"), std::nullopt);
    EXPECT_EQ(korvex::find_disk("/dev/sda1")->model, "Disk");
    EXPECT_EQ(korvex::find_disk("/dev/sda1")->size, 8000U * 512);
    EXPECT_EQ(korvex::find_disk("/dev/md1"), std::nullopt);
    EXPECT_EQ(korvex::share_link_to("/share/VOL"), "/share/Data");
    EXPECT_EQ(korvex::share_link_to("/share/NONE"), std::nullopt);
}

TEST_F(System, lists_what_is_on_its_block_devices) {
    appliance_.tool_prints("/dev/sda1: UUID=\"one\" TYPE=\"ext4\"\n/dev/sdb1: UUID=\"two\" TYPE=\"ntfs\"\n");
    EXPECT_THAT(texts(korvex::blocks(), &korvex::block::uuid), ElementsAre("two", "one"));
}

TEST(SystemNetwork, lists_its_interfaces_with_their_addresses) {
    const support::FakeNetwork network({{.name = "eth0"}}, {{"eth0", "10.0.0.2", "255.255.255.0"},
                                                            {"eth0", "fd00::1", "ffff:ffff:ffff:ffff::"},
                                                            {"eth0", "fd00::2", "ffff:ffff:ffff:ffff::"}});
    const korvex::interface_list interfaces = korvex::interfaces();
    ASSERT_EQ(interfaces.size(), 1U);
    const korvex::interface eth = interfaces.front();
    EXPECT_EQ(eth.name, "eth0");
    EXPECT_EQ(eth.mac, "00:16:3E:0A:BC:DF");
    EXPECT_EQ(eth.ipv4, "10.0.0.2");
    EXPECT_EQ(eth.ipv4_prefix, 24);
    std::vector<std::string> addresses;
    for (const korvex::ipv6_address &address : eth.ipv6)
        addresses.push_back(std::string(address.address) + "/" + std::to_string(address.prefix));
    EXPECT_THAT(addresses, testing::UnorderedElementsAre("fd00::1/64", "fd00::2/64"));
}

TEST(SystemNetwork, that_can_not_be_listed_is_a_failure) {
    const support::FailCall fault(support::Call::getifaddrs, EMFILE);
    EXPECT_EQ(failure_of([] { (void)korvex::interfaces(); }).code(), std::errc::too_many_files_open);
}

}  // namespace
