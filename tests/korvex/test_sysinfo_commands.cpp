// korvex mounts, shares, volume and blocks, asked about a sample appliance.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "run_korvex.h"
#include "sample_appliance.h"

namespace {

using nlohmann::json;

class SysinfoCommands : public KorvexTest {
  protected:
    SysinfoCommands() { setenv("TZ", "UTC0", 1); }

    json printed(const Words &words) const { return json::parse(output_of(words), nullptr, false); }

    const sysinfo_test::Appliance appliance_;
};

using MountsCommand = SysinfoCommands;
using SharesCommand = SysinfoCommands;
using BlocksCommand = SysinfoCommands;

TEST_F(MountsCommand, the_table_has_the_order_of_the_systems) {
    appliance_.mount_table(
        "/dev/sda3 /share/MD0_DATA ext4 rw,relatime 1 2\n"
        "none /tmp tmpfs rw 0 0\n");
    EXPECT_EQ(korvex({"mounts"}), Outcome(0,
                                          "device     path             type   options\n"
                                          "/dev/sda3  /share/MD0_DATA  ext4   rw,relatime\n"
                                          "none       /tmp             tmpfs  rw\n"));
    const json first = {{"device", "/dev/sda3"},
                        {"path", "/share/MD0_DATA"},
                        {"type", "ext4"},
                        {"options", "rw,relatime"},
                        {"freq", 1},
                        {"pass", 2}};
    const json second = {{"device", "none"}, {"path", "/tmp"}, {"type", "tmpfs"},
                         {"options", "rw"},  {"freq", 0},      {"pass", 0}};
    EXPECT_EQ(printed({"mounts", "--json"}), json::array({first, second}));
}

TEST_F(MountsCommand, hostile_names_stay_on_their_line) {
    appliance_.mount_table("dev\\012x /a\033[2Jb t o\n\xc3\xbc\\040\xc3\xbc / \xff rw\n");
    EXPECT_EQ(korvex({"mounts"}), Outcome(0,
                                          "device  path        type  options\n"
                                          "dev\\nx  /a\\x1b[2Jb  t     o\n"
                                          "\xc3\xbc \xc3\xbc     /           \xff     rw\n"));
    const json list = printed({"mounts", "--json"});
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0]["device"], "dev\nx");
    EXPECT_EQ(list[0]["path"], "/a\033[2Jb");
    EXPECT_EQ(list[1]["type"], "\xef\xbf\xbd");
}

TEST_F(MountsCommand, an_empty_table_and_none_differ) {
    appliance_.mount_table("");
    EXPECT_EQ(korvex({"mounts"}), Outcome(0, "device  path  type  options\n"));
    EXPECT_EQ(korvex({"mounts", "--json"}), Outcome(0, "[]\n"));
    std::filesystem::remove("/etc/mtab");
    EXPECT_EQ(korvex({"mounts"}), Outcome(3, "", "korvex: mounts: /etc/mtab: No such file or directory\n"));
}

TEST_F(SharesCommand, shares_stand_with_what_their_folders_are_like) {
    appliance_.volume("/share/external/sdb1");
    appliance_.volume("/share/MD0_DATA");
    appliance_.link("external/sdb1", "USBDisk1");
    appliance_.share("MD0_DATA/Public", "Public");
    appliance_.mount_table("/dev/sdb1 /share/external/sdb1 ntfs rw 0 0\n");
    appliance_.share_options("[Public]\n[USBDisk1]\nbrowsable = no\n");
    ASSERT_EQ(chmod("/share/MD0_DATA/Public", 01775), 0);
    ASSERT_EQ(chmod("/share/external/sdb1", 0700), 0);
    const timespec times[] = {{1, 2}, {1'700'000'000, 123'456'789}};
    for (const char *path : {"/share/MD0_DATA/Public", "/share/external/sdb1"})
        ASSERT_EQ(utimensat(AT_FDCWD, path, times, 0), 0);

    EXPECT_EQ(korvex({"shares"}),
              Outcome(0,
                      "mode  uid  gid  modified             free      flags                      name\n"
                      "1775  0    0    2023-11-14 22:13:20  64.00 MB  -                          Public\n"
                      "0700  0    0    2023-11-14 22:13:20  64.00 MB  hidden,external,removable  USBDisk1\n"));

    struct statfs volume {};
    ASSERT_EQ(statfs("/share/MD0_DATA", &volume), 0);
    json share = {{"name", "Public"},
                  {"flags", json::array()},
                  {"mode", "1775"},
                  {"uid", 0},
                  {"gid", 0},
                  {"mtime", 1'700'000'000},
                  {"mtime_nsec", 123'456'789},
                  {"fs_type", 0x01021994},
                  {"block_size", volume.f_bsize},
                  {"free_bytes", static_cast<uint64_t>(volume.f_bsize) * volume.f_bfree}};
    json external = share;
    external.update({{"name", "USBDisk1"}, {"flags", {"hidden", "external", "removable"}}, {"mode", "0700"}});
    EXPECT_EQ(printed({"shares", "--json"}), json::array({share, external}));
}

TEST_F(SharesCommand, a_hostile_name_stays_on_its_line) {
    appliance_.share("MD0_DATA/x", "a\nb\033c");
    const Outcome outcome = korvex({"shares"});
    EXPECT_TRUE(outcome.out.ends_with("  a\\nb\\x1bc\n")) << outcome;
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 2) << outcome;
    EXPECT_EQ(printed({"shares", "--json"})[0]["name"], "a\nb\033c");
}

TEST_F(SharesCommand, without_shares_there_is_the_head_alone) {
    EXPECT_EQ(korvex({"shares"}), Outcome(0, "mode  uid  gid  modified  free  flags  name\n"));
    EXPECT_EQ(korvex({"shares", "--json"}), Outcome(0, "[]\n"));
}

// One that is mounted and shared, and one that is not mounted.
class VolumeCommand : public SysinfoCommands {
  protected:
    VolumeCommand() {
        appliance_.tool_prints(
            "/dev/sda3: LABEL=\"Data\033[2J\" UUID=\"id-data\" TYPE=\"ext4\"\n"
            "/dev/sdb1: UUID=\"id-book\" TYPE=\"ntfs\"\n"
            "/dev/md9: UUID=\"id-md\" TYPE=\"ext4\"\n");
        appliance_.disk("sda", "10000\n", "Disk One  \n", "Acme\n");
        appliance_.partition("sda", "sda3", "9000\n");
        appliance_.disk("sdb", "100\n", "Book\n", "WD\n");
        appliance_.partition("sdb", "sdb1", "90\n");
        appliance_.volume("/share/MD0_DATA");
        appliance_.link("MD0_DATA", "DataVol1");
        appliance_.mount_table("/dev/sda3 /share/MD0_DATA ext4 rw 0 0\nnone /share/other tmpfs rw 0 0\n");
        appliance_.folder("/share/other");
    }
};

TEST_F(VolumeCommand, a_device_and_a_uuid_are_described_by_their_file_system) {
    const std::string table =
        "device     /dev/sda3\n"
        "mounted    /share/DataVol1\n"
        "uuid       id-data\n"
        "label      Data\\x1b[2J\n"
        "type       ext4\n"
        "vendor     Acme\n"
        "model      Disk One\n"
        "partition  3\n"
        "size       64.00 MB\n"
        "free       64.00 MB\n";
    const json object = {{"device", "/dev/sda3"},   {"mount_path", "/share/DataVol1"},
                         {"uuid", "id-data"},       {"label", "Data\033[2J"},
                         {"type", "ext4"},          {"vendor", "Acme"},
                         {"model", "Disk One"},     {"partition", 3},
                         {"total_bytes", 64 << 20}, {"free_bytes", 64 << 20}};
    for (const char *name : {"/dev/sda3", "id-data"}) {
        EXPECT_EQ(korvex({"volume", name}), Outcome(0, table));
        EXPECT_EQ(printed({"volume", name, "--json"}), object);
    }
}

TEST_F(VolumeCommand, a_mount_point_has_the_size_of_its_device) {
    for (const char *name : {"/share/MD0_DATA", "/share/DataVol1"}) {
        const json object = printed({"volume", name, "--json"});
        EXPECT_EQ(object["device"], "/dev/sda3");
        EXPECT_EQ(object["mount_path"], "/share/DataVol1");
        EXPECT_EQ(object["total_bytes"], 9000 * 512);
    }
}

TEST_F(VolumeCommand, one_that_is_not_mounted_is_described_without_a_place) {
    const json object = {{"device", "/dev/sdb1"}, {"mount_path", nullptr}, {"uuid", "id-book"}, {"label", nullptr},
                         {"type", "ntfs"},        {"vendor", "WD"},        {"model", "Book"},   {"partition", 0},
                         {"total_bytes", 46080},  {"free_bytes", nullptr}};
    for (const char *name : {"/dev/sdb1", "id-book"})
        EXPECT_EQ(printed({"volume", name, "--json"}), object);
    EXPECT_TRUE(korvex({"volume", "id-book"}).out.ends_with("partition  0\nsize       45.00 KB\nfree       -\n"));
}

TEST_F(VolumeCommand, what_is_no_volume_is_not_found) {
    const std::string error = "korvex: volume: ";
    expect({
        {{"volume", "/dev/sdz1"}, {1, "", error + "/dev/sdz1: no such volume\n"}},
        {{"volume", "id-none"}, {1, "", error + "id-none: no such volume\n"}},
        {{"volume", std::string(40, 'x')}, {1, "", error + std::string(40, 'x') + ": no such volume\n"}},
        {{"volume", "/share/other"}, {1, "", error + "/share/other: no such volume\n"}},
        {{"volume", "/share/MD0_DATA/"}, {0, korvex({"volume", "/share/MD0_DATA"}).out}},
        {{"volume", "/share/none\n"}, {1, "", error + "/share/none\\n: No such file or directory\n"}},
        {{"volume", "/share/external"}, {1, "", error + "/share/external: No such file or directory\n"}},
        {{"volume", "id-md"}, {3, "", error + "attributes of /dev/md9: No such file or directory\n"}},
        {{"volume", "/tmp"},
         {2, "", error + "'/tmp' is neither below /dev nor below /share (see 'korvex volume --help')\n"}},
    });
    appliance_.folder("/share/plain");
    EXPECT_EQ(korvex({"volume", "/share/plain"}), Outcome(1, "", error + "/share/plain: not a mount point\n"));
}

TEST_F(BlocksCommand, blocks_stand_in_the_order_of_the_tool) {
    appliance_.tool_prints(
        "/dev/sda1: SEC_TYPE=\"msdos\" UUID=\"1234\" TYPE=\"vfat\"\n"
        "/dev/sdb\033: UUID=\"5678\"\n");
    EXPECT_EQ(korvex({"blocks"}), Outcome(0,
                                          "device        uuid  type  second type\n"
                                          "/dev/sda1     1234  vfat  -\n"
                                          "/dev/sdb\\x1b  5678  -     -\n"))
        << "a line's UUID is looked for before its type";
}

TEST_F(BlocksCommand, blocks_are_printed_as_json) {
    appliance_.tool_prints("/dev/sda1: UUID=\"1234\" SEC_TYPE=\"msdos\" TYPE=\"vfat\"\n/dev/sdb: LABEL=\"x\"\n");
    const json first = {{"device", "/dev/sda1"}, {"uuid", "1234"}, {"type", "msdos"}, {"second_type", "fat"}};
    const json second = {{"device", "/dev/sdb"}, {"uuid", nullptr}, {"type", nullptr}, {"second_type", nullptr}};
    EXPECT_EQ(printed({"blocks", "--json"}), json::array({first, second}));
}

constexpr const char *kMissing = "can't identify volumes: the command /usr/local/sbin/blkid is missing\n";

TEST_F(BlocksCommand, without_the_identification_command_that_is_said) {
    for (const Words &words : {Words{"blocks"}, Words{"blocks", "--json"}})
        EXPECT_EQ(korvex(words), Outcome(3, "", std::string("korvex: blocks: ") + kMissing));
    appliance_.tool_prints("");
    EXPECT_EQ(korvex({"blocks"}), Outcome(0, "device  uuid  type  second type\n"));
    EXPECT_EQ(korvex({"blocks", "--json"}), Outcome(0, "[]\n"));
}

TEST_F(VolumeCommand, without_the_identification_command_that_is_said) {
    std::filesystem::remove("/usr/local/sbin/blkid");
    for (const char *name : {"/dev/sdz1", "id-data", "id-none"})
        EXPECT_EQ(korvex({"volume", name}), Outcome(3, "", std::string("korvex: volume: ") + kMissing)) << name;
}

}  // namespace
