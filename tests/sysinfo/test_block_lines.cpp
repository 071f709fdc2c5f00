// Reading one line of the block-identification tool: one value by its key, and what a list of devices takes from it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "guarded_buffer.h"
#include "sysinfo/block_line.h"

using korvex::sysinfo::BlockLine;
using korvex::sysinfo::Extract_Value;
using korvex::sysinfo::parse_block_line;
using support::GuardedBuffer;

namespace {

const char *const kLine =
    "/dev/sdb1: LABEL=\"My Book\" UUID=\"E02C-11F8\" TYPE=\"vfat\" EMPTY=\"\" PARTUUID=\"0a1b-01\" OPEN=\"x";

// What a list takes from a line; "skip" for a line that it does not take.
std::string parsed(std::string_view line) {
    BlockLine block{};
    if (!parse_block_line(line, block))
        return "skip";
    return std::string(block.device) + '|' + std::string(block.uuid) + '|' + std::string(block.type) + '|' +
           std::string(block.second_type);
}

// A line of the tool, and what is expected of it.
struct Row {
    const char *line;
    const char *expected;
};

}  // namespace

TEST(BlockValue, is_found_by_its_whole_key) {
    const struct {
        const char *key;
        const char *value;  // null: none
    } cases[] = {
        {"LABEL", "My Book"}, {"UUID", "E02C-11F8"}, {"TYPE", "vfat"}, {"EMPTY", ""},     {"PARTUUID", "0a1b-01"},
        {"OPEN", nullptr},    {"ABEL", nullptr},     {"UID", nullptr}, {"uuid", nullptr}, {"UUID=", nullptr},
        {"UUI", nullptr},     {"PTTYPE", nullptr},   {"", nullptr},    {"/dev", nullptr},
    };
    for (const auto &[key, value] : cases)
        for (const bool sized : {false, true}) {
            SCOPED_TRACE(std::string(key) + (sized ? " with a size" : ""));
            GuardedBuffer buffer;
            int32_t size = 100;
            const int32_t result = Extract_Value(kLine, key, buffer.data(), sized ? &size : nullptr);
            if (value == nullptr) {
                EXPECT_EQ(result, -ENODATA);
                EXPECT_EQ(buffer.written(), 0U);
            } else {
                EXPECT_EQ(result, 0);
                EXPECT_EQ(buffer.text(), value);
                EXPECT_EQ(buffer.written(), std::string(value).size() + 1);
                EXPECT_EQ(size, sized ? static_cast<int32_t>(std::string(value).size()) : 100);
            }
        }
}

TEST(BlockValue, is_told_apart_from_what_looks_like_it) {
    const struct {
        const char *line;
        const char *value;  // of UUID; null: none
    } cases[] = {
        {"/dev/a: PARTUUID=\"p\" UUID=\"u\"", "u"},
        {"/dev/a: PARTUUID=\"p\"", nullptr},
        {"UUID=\"u\"", nullptr},
        {" UUID=\"u\"", "u"},
        {"\tUUID=\"u\"", nullptr},
        {"/dev/a: UUID=\"u\" UUID=\"v\"", "u"},
        {"/dev/a: UUID= \"u\"", nullptr},
        {"/dev/a: UUID =\"u\"", nullptr},
        {"/dev/a: UUID='u'", nullptr},
        {"/dev/a: UUID=u", nullptr},
        {"/dev/a: UUID=\"", nullptr},
        {"/dev/a: UUID=", nullptr},
        {"/dev/a: LABEL=\"a UUID=\" UUID=\"u\"", " UUID="},
        {"/dev/a: LABEL=\"it\\\" UUID=\"u\\\"v\"", "u\\"},
        {"", nullptr},
        {" ", nullptr},
    };
    for (const auto &[line, value] : cases) {
        SCOPED_TRACE(line);
        GuardedBuffer buffer;
        EXPECT_EQ(Extract_Value(line, "UUID", buffer.data(), nullptr), value == nullptr ? -ENODATA : 0);
        if (value != nullptr) {
            EXPECT_EQ(buffer.text(), value);
        }
    }
}

TEST(BlockValue, must_be_shorter_than_the_buffer) {
    for (const int32_t length : {0, 1, 2, 15, 16, 17, 200}) {
        const std::string value(length, 'v');
        const std::string line = "/dev/a: LABEL=\"" + value + "\"";
        for (const int32_t size : {length + 1, length + 2, length, length - 1, 1, 0, -1, INT32_MIN, INT32_MAX}) {
            SCOPED_TRACE(std::to_string(length) + " in " + std::to_string(size));
            GuardedBuffer buffer;
            int32_t in_out = size;
            const int32_t result = Extract_Value(line.c_str(), "LABEL", buffer.data(), &in_out);
            EXPECT_EQ(in_out, length);
            if (length < size) {
                EXPECT_EQ(result, 0);
                EXPECT_EQ(buffer.text(), value);
                EXPECT_EQ(buffer.written(), value.size() + 1);
            } else {
                EXPECT_EQ(result, -EOVERFLOW);
                EXPECT_EQ(buffer.written(), 0U);
            }
        }
    }
}

TEST(BlockLine, of_real_devices) {
    const Row rows[] = {
        {"/dev/sda1: UUID=\"2ba9\" TYPE=\"ext4\" \n", "/dev/sda1|2ba9|ext4|"},
        {"/dev/sda3: LABEL=\"Data Vol\" UUID=\"7a1f\" BLOCK_SIZE=\"512\" TYPE=\"xfs\"\n", "/dev/sda3|7a1f|xfs|"},
        {"/dev/sda2: UUID=\"91c2\" TYPE=\"swap\" PARTUUID=\"e7-02\"\n", "/dev/sda2|91c2|swap|"},
        {"/dev/mapper/vg1-lv1: UUID=\"0c-4\" TYPE=\"crypto_LUKS\"\n", "/dev/mapper/vg1-lv1|0c-4|crypto_LUKS|"},
        {"/dev/md1: UUID=\"t1Xz-Qp\" TYPE=\"LVM2_member\"", "/dev/md1|t1Xz-Qp|LVM2_member|"},
        {"/dev/sr0: LABEL=\"DVD\" TYPE=\"iso9660\" \n", "/dev/sr0||iso9660|"},
        {"/dev/sde: PTUUID=\"5f\" PTTYPE=\"gpt\"\n", "/dev/sde|5f|gpt|"},
        {"/dev/sdf1: PARTLABEL=\"reserved\"\n", "/dev/sdf1|||"},
        {"/dev/sdf2:\n", "/dev/sdf2|||"},
        {"/dev/sdf2:", "/dev/sdf2|||"},
    };
    for (const auto &[line, expected] : rows)
        EXPECT_EQ(parsed(line), expected) << line;
}

TEST(BlockLine, finds_its_keys_inside_longer_ones) {
    const Row rows[] = {
        {"/dev/a: PARTUUID=\"p\" UUID=\"u\" TYPE=\"t\"", "/dev/a|p|t|"},
        {"/dev/a: UUID=\"u\" PARTUUID=\"p\" TYPE=\"t\"", "/dev/a|u|t|"},
        {"/dev/a: UUID_SUB=\"s\" UUID=\"u\"", "/dev/a|u||"},
        {"/dev/a:UUID=\"u\"TYPE=\"t\"", "/dev/a|u|t|"},
        {"/dev/a: UUID=\"u\" SEC_TYPE=\"msdos\" TYPE=\"vfat\"", "/dev/a|u|msdos|fat"},
        {"/dev/a: SEC_TYPE=\"msdos\" TYPE=\"vfat\"", "/dev/a||msdos|fat"},
        // What stands before the UUID is not looked at.
        {"/dev/a: SEC_TYPE=\"msdos\" UUID=\"u\" TYPE=\"vfat\"", "/dev/a|u|vfat|"},
        {"/dev/a: TYPE=\"ext4\" UUID=\"u\"", "/dev/a|u||"},
        {"/dev/a: TYPE=\"ext4\" PARTUUID=\"p\"", "/dev/a|p||"},
        {"/dev/a: LABEL=\"x TYPE=\" UUID=\"u\" TYPE=\"t\"", "/dev/a|u|t|"},
        {"/dev/a: LABEL=\"x TYPE=\" TYPE=\"t\"", "/dev/a|| TYPE=|"},
        // The value of the UUID is passed over.
        {"/dev/a: UUID=\"TYPE=\" TYPE=\"t\"", "/dev/a|TYPE=|t|"},
    };
    for (const auto &[line, expected] : rows)
        EXPECT_EQ(parsed(line), expected) << line;
}

TEST(BlockLine, drops_the_first_character_of_a_second_type) {
    const Row rows[] = {
        {"/dev/a: TYPE=\"ext4\" PTTYPE=\"dos\"", "/dev/a||ext4|os"},
        {"/dev/a: TYPE=\"ext4\" PTTYPE=\"d\"", "/dev/a||ext4|"},
        {"/dev/a: TYPE=\"\" PTTYPE=\"dos\"", "/dev/a|||os"},
        {"/dev/a: TYPE=\"1\" TYPE=\"2nd\" TYPE=\"3rd\"", "/dev/a||1|nd"},
        // An empty one has no first character: its closing quote goes, and the value runs on to the next.
        {"/dev/a: TYPE=\"ext4\" PTTYPE=\"\" LABEL=\"x\"", "/dev/a||ext4| LABEL="},
        {"/dev/a: TYPE=\"ext4\" PTTYPE=\"\"", "skip"},
        {"/dev/a: TYPE=\"ext4\" PTTYPE=\"\"\n", "skip"},
        {"/dev/a: TYPE=\"ext4\" PTTYPE=\"\"\"", "/dev/a||ext4|"},
    };
    for (const auto &[line, expected] : rows)
        EXPECT_EQ(parsed(line), expected) << line;
}

TEST(BlockLine, is_skipped_when_it_has_no_colon_or_an_open_value) {
    const Row rows[] = {
        {"", "skip"},
        {"\n", "skip"},
        {"no colon UUID=\"u\" TYPE=\"t\"", "skip"},
        {"/dev/a: UUID=\"u", "skip"},
        {"/dev/a: UUID=\"", "skip"},
        {"/dev/a: PARTUUID=\"p", "skip"},
        {"/dev/a: TYPE=\"t", "skip"},
        {"/dev/a: UUID=\"u\" TYPE=\"", "skip"},
        {"/dev/a: UUID=\"u\" TYPE=\"t\" PTTYPE=\"dos", "skip"},
        {"/dev/a: UUID=\"u\" TYPE=\"t\" PTTYPE=\"d", "skip"},
        {"/dev/a: UUID=\"u\" TYPE=\"t\" PTTYPE=\"", "skip"},
        // No values, so nothing is open.
        {"/dev/a: UUID=\"u\" TYPE=\"t\" PTTYPE=", "/dev/a|u|t|"},
        {"/dev/a: UUID=\"u\" TYPE=t LABEL=\"open", "/dev/a|u||"},
        {"/dev/a: UUID=u TYPE=t", "/dev/a|||"},
    };
    for (const auto &[line, expected] : rows)
        EXPECT_EQ(parsed(line), expected) << line;
}

TEST(BlockLine, ends_its_device_at_the_first_colon) {
    const Row rows[] = {
        {"/dev/disk/by-path/pci-0000:00:1f.2: UUID=\"u\"", "/dev/disk/by-path/pci-0000|u||"},
        {":", "|||"},
        {": UUID=\"u\"", "|u||"},
        {"UUID=\"u\":TYPE=\"t\"", "UUID=\"u\"||t|"},
        {"/dev/with blank: UUID=\"u\"", "/dev/with blank|u||"},
    };
    for (const auto &[line, expected] : rows)
        EXPECT_EQ(parsed(line), expected) << line;
}

TEST(BlockLine, is_read_no_further_than_it_goes) {
    // Every beginning of a line, in a block of exactly its size, where a checker would see one byte too much.
    const std::string whole = "/dev/a: UUID=\"u\" TYPE=\"t\" PTTYPE=\"dos\" X=\"\"";
    for (size_t length = 0; length <= whole.size(); length++) {
        SCOPED_TRACE(whole.substr(0, length));
        const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
        const std::string result = parsed({exact.data(), exact.size()});
        const std::string_view line(whole.data(), length);
        // A line is taken whenever none of its values is open.
        const bool open = (length >= whole.find("u\"") && length < whole.find("\" TYPE") + 1) ||
                          (length >= whole.find("t\" PT") && length < whole.find("\" PTTYPE") + 1) ||
                          (length >= whole.find("dos") && length < whole.find("\" X") + 1);
        EXPECT_EQ(result == "skip", open || line.find(':') == std::string_view::npos) << result;
    }
}
