// The list of what the block-identification tool prints, and how the tool is run.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "block_answers.h"
#include "faults.h"
#include "heap.h"
#include "log_capture.h"
#include "sample_appliance.h"
#include "sandbox.h"
#include "sysinfo.h"

using namespace sysinfo_test;
using support::Call;
using support::FailCall;
using support::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr size_t kFixedFields = offsetof(Block_Info, szType2);

using BlockScan = ApplianceTest;
using BlockTool = ApplianceTest;

}  // namespace

TEST_F(BlockScan, lists_the_last_line_first) {
    appliance_.tool_prints(kRealLines);
    EXPECT_THAT(scan_blocks(),
                ElementsAre("/dev/mapper/cachedev1|7a1f-22|xfs|", "warning|||", "/dev/sde|5f|gpt|",
                            "/dev/sdb1|E02C-11F8|msdos|fat", "/dev/sda2|91c2|swap|", "/dev/sda1|d0f5-11|ext4|"));
}

TEST_F(BlockScan, pushes_onto_the_list_as_it_is) {
    appliance_.tool_prints("a:\nb:\n");
    Block_Info *list = nullptr;
    ASSERT_EQ(Scan_Block_Device_Info(&list), 0);
    Block_Info *const before = list;
    ASSERT_EQ(Scan_Block_Device_Info(&list), 0);
    EXPECT_THAT(texts_of(list), ElementsAre("b|||", "a|||", "b|||", "a|||"));
    EXPECT_EQ(list->pNext->pNext, before);
    release_blocks(list);
}

TEST_F(BlockScan, puts_the_texts_into_the_block_of_their_record) {
    appliance_.tool_prints("/dev/sdb1: UUID=\"E02C-11F8\" SEC_TYPE=\"msdos\" TYPE=\"vfat\"\n");
    Block_Info *list = nullptr;
    ASSERT_EQ(Scan_Block_Device_Info(&list), 0);
    ASSERT_NE(list, nullptr);

    // Each text is somewhere behind the fixed fields, and together they take up no more than their lengths.
    const auto *const begin = reinterpret_cast<const char *>(list) + kFixedFields;
    const char *const end = begin +
                            strlen(
                                "/dev/sdb1"
                                "E02C-11F8"
                                "msdos"
                                "fat") +
                            4;
    EXPECT_EQ(list->szType2, begin);
    for (const char *text : {list->pszDevice, list->pszUuid, list->pszType}) {
        EXPECT_GT(text, begin) << text;
        EXPECT_LE(text + strlen(text) + 1, end) << text;
    }
    release_blocks(list);
}

TEST_F(BlockScan, takes_a_line_of_256_bytes_or_more_in_pieces) {
    const auto line = [](size_t length, const std::string &end) {
        const std::string begin = "/dev/a: UUID=\"u\" TYPE=\"t\" LABEL=\"";
        return begin + std::string(length - begin.size() - end.size(), 'l') + end;
    };
    const struct {
        std::string output;
        std::vector<std::string> expected;
    } cases[] = {
        {line(254, "\"\n") + "b:\n", {"b|||", "/dev/a|u|t|"}},
        {line(255, "\"\n") + "b:\n", {"b|||", "/dev/a|u|t|"}},
        // A piece without a colon is no device.
        {line(256, "\"\n") + "b:\n", {"b|||", "/dev/a|u|t|"}},
        {line(2000, "\"\n") + "b:\n", {"b|||", "/dev/a|u|t|"}},
        // One with a colon is.
        {line(255, "") + "x:y\nb:\n", {"b|||", "x|||", "/dev/a|u|t|"}},
        {line(255, "") + ": UUID=\"v\"\n", {"|v||", "/dev/a|u|t|"}},
        // A value that is cut in two has no end.
        {line(255, "UUID=\"") + "v\"\nb:\n", {"b|||", "/dev/a|u|t|"}},
        {line(255, "TYPE=\"dos") + "\"\nb:\n", {"b|||"}},
        {std::string(255, 'd') + ":\nb:\n", {"b|||", "|||"}},
        {std::string(254, 'd') + ":\nb:\n", {"b|||", std::string(254, 'd') + "|||"}},
        {std::string(100'000, ':'), std::vector<std::string>(393, "|||")},
        {std::string(100'000, 'x'), {}},
    };
    for (const auto &[output, expected] : cases) {
        SCOPED_TRACE(output.substr(0, 600).substr(output.size() < 300 ? 0 : 240));
        appliance_.tool_prints(output);
        EXPECT_EQ(scan_blocks(), expected);
    }
}

TEST_F(BlockScan, takes_a_last_line_without_its_end) {
    appliance_.tool_prints("/dev/a: UUID=\"u\"");
    EXPECT_THAT(scan_blocks(), ElementsAre("/dev/a|u||"));
}

TEST_F(BlockScan, takes_any_bytes) {
    std::string bytes;
    for (int i = 0; i < 20'000; i++)
        bytes += static_cast<char>((i * 167 + i / 256 * 13) % 256);
    for (const char *keys : {"", "/dev/a: UUID=\"", "\" TYPE=\"", ":"}) {
        appliance_.tool_prints(keys + bytes + keys);
        scan_blocks();
    }
    using namespace std::string_literals;
    appliance_.tool_prints("/dev/a: UUID=\"u\0\"\n\0/dev/b:\n/dev/\xff: UUID=\"\xfe\"\n"s);
    const std::vector<std::string> blocks = scan_blocks();
    ASSERT_FALSE(blocks.empty());
    EXPECT_EQ(blocks.front(), "/dev/\xff|\xfe||");
}

TEST_F(BlockScan, refuses_null) {
    appliance_.tool_prints(kRealLines);
    EXPECT_EQ(Scan_Block_Device_Info(nullptr), -EINVAL);
}

TEST_F(BlockScan, finds_nothing_without_the_tool) {
    LogCapture log;
    EXPECT_THAT(scan_blocks(), IsEmpty()) << "no tool";

    appliance_.tool_prints(kRealLines);
    auto *const untouched = reinterpret_cast<Block_Info *>(8);
    Block_Info *list = untouched;
    const FailCall fault(Call::popen, EMFILE);
    EXPECT_EQ(Scan_Block_Device_Info(&list), 0);
    EXPECT_EQ(fault.failed(), 1);
    EXPECT_EQ(list, untouched);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(BlockScan, leaves_what_it_has_when_memory_runs_out) {
    appliance_.tool_prints("/dev/a: UUID=\"u\" TYPE=\"t\" PTTYPE=\"dos\"\n/dev/bb:\n/dev/ccc:\n");
    const std::string blocks[] = {"/dev/a|u|t|os", "/dev/bb|||", "/dev/ccc|||"};
    std::set<size_t> left;
    for (int nth = 1; nth < 50; nth++) {
        SCOPED_TRACE(nth);
        LogCapture log;
        Block_Info *list = nullptr;
        std::optional<FailCall> fault(std::in_place, Call::allocation, ENOMEM, nth);
        const int32_t result = Scan_Block_Device_Info(&list);
        const bool failed = fault->failed() != 0;
        fault.reset();
        const std::vector<std::string> listed = texts_of(list);
        release_blocks(list);
        if (!failed)
            break;

        std::vector<std::string> expected(blocks, blocks + listed.size());
        std::reverse(expected.begin(), expected.end());
        EXPECT_EQ(listed, expected);
        if (result == 0) {
            // The stream: none, or one without a buffer.
            EXPECT_THAT(log.messages(), IsEmpty());
            continue;
        }
        EXPECT_EQ(result, -ENOMEM);
        ASSERT_LT(listed.size(), 3U);
        // Three separators stand where three of the four terminators do.
        EXPECT_THAT(log.messages(),
                    ElementsAre("[error] Scan_Block_Device_Info(#): Can't allocate " +
                                std::to_string(kFixedFields + blocks[listed.size()].size() + 1) + " bytes memory!\n"));
        left.insert(listed.size());
    }
    EXPECT_THAT(left, ElementsAre(0, 1, 2));
}

TEST_F(BlockTool, is_run_without_arguments_and_its_errors_go_to_a_file) {
    appliance_.tool_runs("echo \"$0 $#\" >&2; echo '/dev/a: UUID=\"u\"'");
    EXPECT_THAT(scan_blocks(), ElementsAre("/dev/a|u||"));
    EXPECT_EQ(support::read_file("/dev/NULL"), "/usr/local/sbin/blkid 0\n");
    std::filesystem::remove("/dev/NULL");
    EXPECT_EQ(by_path("/dev/a"), "u||");
    EXPECT_EQ(support::read_file("/dev/NULL"), "/usr/local/sbin/blkid 0\n");
    std::filesystem::remove("/dev/NULL");
    EXPECT_EQ(by_id("u"), "/dev/a||");
    EXPECT_EQ(support::read_file("/dev/NULL"), "/usr/local/sbin/blkid 0\n");

    // Each run begins the file anew.
    appliance_.tool_prints("");
    scan_blocks();
    EXPECT_EQ(support::read_file("/dev/NULL"), "");
}

TEST_F(BlockTool, is_run_by_the_shell) {
    // Which tells the file, too, that there is no such tool.
    scan_blocks();
    EXPECT_THAT(support::read_file("/dev/NULL"), testing::HasSubstr("/usr/local/sbin/blkid"));
    appliance_.tool_runs("exit 3");
    EXPECT_THAT(scan_blocks(), IsEmpty());
    appliance_.tool_runs("echo '/dev/a: UUID=\"u\"'; kill -9 $$");
    EXPECT_THAT(scan_blocks(), ElementsAre("/dev/a|u||")) << "whatever becomes of it";
}

TEST_F(BlockTool, may_be_left_before_it_is_done) {
    // More than a pipe holds comes after the line that is looked for.
    appliance_.tool_runs("echo '/dev/a: UUID=\"u\"'; exec head -c 1000000 /dev/zero");
    EXPECT_EQ(by_path("/dev/a"), "u||");
    EXPECT_EQ(by_id("u"), "/dev/a||");
}

TEST_F(BlockTool, may_take_its_time) {
    appliance_.tool_runs("printf '/dev/a: UU'; sleep 0.1; printf 'ID=\"u\"\\n/dev/b:'; sleep 0.1; echo ' UUID=\"v\"'");
    EXPECT_THAT(scan_blocks(), ElementsAre("/dev/b|v||", "/dev/a|u||"));
}

TEST_F(BlockTool, may_be_asked_by_several_threads) {
    appliance_.tool_prints(kRealLines);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; i++)
        threads.emplace_back([] {
            for (int round = 0; round < 5; round++) {
                EXPECT_THAT(scan_blocks(), testing::SizeIs(6));
                EXPECT_EQ(by_path("/dev/sda2"), "91c2||swap");
                EXPECT_EQ(by_id("91c2"), "/dev/sda2||swap");
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(BlockTool, says_nothing_in_the_log_and_loses_nothing) {
    appliance_.tool_runs("echo '/dev/a: UUID=\"u\"'");
    LogCapture log;
    EXPECT_FALSE(support::loses_memory([] {
        scan_blocks();
        by_id("v");
    }));
    EXPECT_THAT(log.messages(), IsEmpty());
}
