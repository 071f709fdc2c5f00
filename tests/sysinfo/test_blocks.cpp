// The list of what the block-identification tool prints, and the questions about one device.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

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
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr size_t kFixedFields = offsetof(Block_Info, szType2);

const char *const kRealLines =
    "/dev/sda1: LABEL=\"boot\" UUID=\"d0f5-11\" TYPE=\"ext4\" PARTUUID=\"6b-01\"\n"
    "/dev/sda2: UUID=\"91c2\" TYPE=\"swap\"\n"
    "/dev/sdb1: LABEL=\"My Book\" UUID=\"E02C-11F8\" SEC_TYPE=\"msdos\" TYPE=\"vfat\" PARTUUID=\"0a-01\"\n"
    "/dev/sde: PTUUID=\"5f\" PTTYPE=\"gpt\"\n"
    "warning: this is no device\n"
    "nothing\n"
    "/dev/mapper/cachedev1: UUID=\"7a1f-22\" TYPE=\"xfs\" \n";

void release(Block_Info *list) {
    while (list != nullptr) {
        Block_Info *const next = list->pNext;
        std::free(list);
        list = next;
    }
}

std::vector<std::string> texts_of(const Block_Info *list) {
    std::vector<std::string> texts;
    for (const Block_Info *block = list; block != nullptr; block = block->pNext)
        texts.push_back(std::string(block->pszDevice) + '|' + block->pszUuid + '|' + block->pszType + '|' +
                        block->szType2);
    return texts;
}

std::vector<std::string> scan() {
    Block_Info *list = nullptr;
    EXPECT_EQ(Scan_Block_Device_Info(&list), 0);
    const std::vector<std::string> texts = texts_of(list);
    release(list);
    return texts;
}

// What a question answers: the three texts, or the error and those of them that are not empty.
struct Answer {
    GuardedBuffer first;  // UUID or device
    GuardedBuffer label;
    GuardedBuffer type;
    int32_t result;

    std::string text() const {
        const std::string texts = first.text() + '|' + label.text() + '|' + type.text();
        return result == 0 ? texts : std::to_string(result) + (texts == "||" ? "" : " " + texts);
    }
    bool fits(size_t size) const { return first.written() <= size && label.written() <= 16 && type.written() <= 12; }
};

std::string by_path(const std::string &device) {
    Answer answer;
    answer.result =
        Query_Block_Info_By_Path(device.c_str(), answer.first.data(), answer.label.data(), answer.type.data());
    EXPECT_TRUE(answer.fits(40)) << device;
    return answer.text();
}

std::string by_id(const std::string &uuid) {
    Answer answer;
    answer.result = Query_Block_Info_By_Id(uuid.c_str(), answer.first.data(), answer.label.data(), answer.type.data());
    EXPECT_TRUE(answer.fits(24)) << uuid;
    return answer.text();
}

const std::string kNoDevice = std::to_string(-ENODEV);

using BlockScan = ApplianceTest;
using BlockByPath = ApplianceTest;
using BlockById = ApplianceTest;
using BlockTool = ApplianceTest;

}  // namespace

TEST_F(BlockScan, lists_the_last_line_first) {
    appliance_.tool_prints(kRealLines);
    EXPECT_THAT(scan(),
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
    release(list);
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
    release(list);
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
        EXPECT_EQ(scan(), expected);
    }
}

TEST_F(BlockScan, takes_a_last_line_without_its_end) {
    appliance_.tool_prints("/dev/a: UUID=\"u\"");
    EXPECT_THAT(scan(), ElementsAre("/dev/a|u||"));
}

TEST_F(BlockScan, takes_any_bytes) {
    std::string bytes;
    for (int i = 0; i < 20'000; i++)
        bytes += static_cast<char>((i * 167 + i / 256 * 13) % 256);
    for (const char *keys : {"", "/dev/a: UUID=\"", "\" TYPE=\"", ":"}) {
        appliance_.tool_prints(keys + bytes + keys);
        scan();
    }
    using namespace std::string_literals;
    appliance_.tool_prints("/dev/a: UUID=\"u\0\"\n\0/dev/b:\n/dev/\xff: UUID=\"\xfe\"\n"s);
    const std::vector<std::string> blocks = scan();
    ASSERT_FALSE(blocks.empty());
    EXPECT_EQ(blocks.front(), "/dev/\xff|\xfe||");
}

TEST_F(BlockScan, refuses_null) {
    appliance_.tool_prints(kRealLines);
    EXPECT_EQ(Scan_Block_Device_Info(nullptr), -EINVAL);
}

TEST_F(BlockScan, finds_nothing_without_the_tool) {
    LogCapture log;
    EXPECT_THAT(scan(), IsEmpty()) << "no tool";

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
        release(list);
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

TEST_F(BlockByPath, tells_what_the_device_holds) {
    appliance_.tool_prints(kRealLines);
    EXPECT_EQ(by_path("/dev/sda1"), "d0f5-11|boot|ext4");
    EXPECT_EQ(by_path("/dev/sda2"), "91c2||swap");
    EXPECT_EQ(by_path("/dev/sdb1"), "E02C-11F8|My Book|vfat") << "keys are taken as a whole";
    EXPECT_EQ(by_path("/dev/mapper/cachedev1"), "7a1f-22||xfs");
    EXPECT_EQ(by_path("/dev/sde"), "||");
    EXPECT_EQ(by_path("warning"), "||");
}

TEST_F(BlockByPath, knows_no_device_that_the_tool_does_not_name) {
    appliance_.tool_prints(kRealLines);
    for (const char *device : {"/dev/sda", "/dev/sda11", "/dev/sdz1", "dev/sda1", "/dev/SDA1", " /dev/sda1", "nothing",
                               "/dev/sda1 ", "UUID"}) {
        SCOPED_TRACE(device);
        EXPECT_EQ(by_path(device), kNoDevice);
    }
    appliance_.tool_prints("");
    EXPECT_EQ(by_path("/dev/sda1"), kNoDevice);
}

TEST_F(BlockByPath, takes_the_first_line_of_a_device) {
    appliance_.tool_prints("x /dev/a: UUID=\"0\"\n/dev/a: UUID=\"1\"\n/dev/a: UUID=\"2\" TYPE=\"t\"\n");
    EXPECT_EQ(by_path("/dev/a"), "1||");
}

TEST_F(BlockByPath, leaves_values_empty_that_do_not_fit) {
    const auto line = [](size_t uuid, size_t label, size_t type) {
        return "/dev/a: UUID=\"" + std::string(uuid, 'u') + "\" LABEL=\"" + std::string(label, 'l') + "\" TYPE=\"" +
               std::string(type, 't') + "\"\n";
    };
    for (const size_t more : {0, 1, 2, 60}) {
        SCOPED_TRACE(more);
        const bool fit = more == 0;
        appliance_.tool_prints(line(39 + more, 15 + more, 11 + more));
        EXPECT_EQ(by_path("/dev/a"), fit ? std::string(39, 'u') + "|lllllllllllllll|ttttttttttt" : "||");
    }
    appliance_.tool_prints(line(40, 15, 1));
    EXPECT_EQ(by_path("/dev/a"), "|lllllllllllllll|t");
    appliance_.tool_prints("/dev/a: LABEL=\"open TYPE=\"t\"\n");
    EXPECT_EQ(by_path("/dev/a"), "|open TYPE=|t");
    appliance_.tool_prints("/dev/a: UUID=\"u\" LABEL=\"open\n");
    EXPECT_EQ(by_path("/dev/a"), "u||");
}

TEST_F(BlockByPath, takes_paths_of_up_to_22_bytes) {
    for (const size_t length : {21, 22, 23, 24, 100, 5000}) {
        SCOPED_TRACE(length);
        const std::string device = "/dev/" + std::string(length - 5, 'd');
        appliance_.tool_prints(device.substr(0, 200) + ": UUID=\"u\"\n");
        EXPECT_EQ(by_path(device), length <= 22 ? "u||" : kNoDevice);
    }
}

TEST_F(BlockByPath, refuses_null_and_needs_the_tool) {
    appliance_.tool_prints(kRealLines);
    Answer answer;
    char *const texts[] = {answer.first.data(), answer.label.data(), answer.type.data()};
    EXPECT_EQ(Query_Block_Info_By_Path(nullptr, texts[0], texts[1], texts[2]), -EINVAL);
    EXPECT_EQ(Query_Block_Info_By_Path("/dev/sda1", nullptr, texts[1], texts[2]), -EINVAL);
    EXPECT_EQ(Query_Block_Info_By_Path("/dev/sda1", texts[0], nullptr, texts[2]), -EINVAL);
    EXPECT_EQ(Query_Block_Info_By_Path("/dev/sda1", texts[0], texts[1], nullptr), -EINVAL);

    const FailCall fault(Call::popen, ENOMEM);
    EXPECT_EQ(by_path("/dev/sda1"), kNoDevice);
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(BlockById, tells_what_the_device_holds) {
    appliance_.tool_prints(kRealLines);
    EXPECT_EQ(by_id("d0f5-11"), "/dev/sda1|boot|ext4");
    EXPECT_EQ(by_id("91c2"), "/dev/sda2||swap");
    EXPECT_EQ(by_id("E02C-11F8"), "/dev/sdb1|My Book|vfat");
    EXPECT_EQ(by_id("7a1f-22"), "/dev/mapper/cachedev1||xfs");
}

TEST_F(BlockById, compares_the_whole_pair) {
    appliance_.tool_prints(std::string(kRealLines) + "UUID=\"begin\": TYPE=\"t\"\n no colon UUID=\"none\"\n");
    for (const char *uuid : {"d0f5-1", "0f5-11", "D0F5-11", "6b-01", "0a-01", "5f", "boot", "e02c-11f8", " d0f5-11",
                             "begin", "none", "d0f5-11\"", ""}) {
        SCOPED_TRACE(uuid);
        EXPECT_EQ(by_id(uuid), kNoDevice);
    }
}

TEST_F(BlockById, passes_over_devices_whose_path_does_not_fit) {
    for (const size_t length : {1, 22, 23, 24, 25, 200}) {
        SCOPED_TRACE(length);
        const std::string device(length, 'd');
        const std::string line = device + ": UUID=\"u\" LABEL=\"first\"\n";
        appliance_.tool_prints(line);
        EXPECT_EQ(by_id("u"), length < 24 ? device + "|first|" : kNoDevice);
        appliance_.tool_prints(line + "no colon UUID=\"u\"\n/dev/b: UUID=\"u\" TYPE=\"second\"\n");
        EXPECT_EQ(by_id("u"), length < 24 ? device + "|first|" : "/dev/b||second");
    }
}

TEST_F(BlockById, leaves_values_empty_that_do_not_fit) {
    appliance_.tool_prints("/dev/a: UUID=\"u\" LABEL=\"123456789012345\" TYPE=\"12345678901\"\n");
    EXPECT_EQ(by_id("u"), "/dev/a|123456789012345|12345678901");
    appliance_.tool_prints("/dev/a: UUID=\"u\" LABEL=\"1234567890123456\" TYPE=\"123456789012\"\n");
    EXPECT_EQ(by_id("u"), "/dev/a||");
    appliance_.tool_prints("/dev/a: UUID=\"u\" LABEL=\"open\n");
    EXPECT_EQ(by_id("u"), "/dev/a||");
}

TEST_F(BlockById, takes_ids_of_up_to_39_bytes) {
    for (const size_t length : {36, 38, 39, 40, 41, 200, 5000}) {
        SCOPED_TRACE(length);
        const std::string uuid(length, 'u');
        appliance_.tool_prints("/dev/a: UUID=\"" + uuid.substr(0, 200) + "\"\n");
        EXPECT_EQ(by_id(uuid), length <= 39 ? "/dev/a||" : kNoDevice);
    }
}

TEST_F(BlockById, refuses_null_and_needs_the_tool) {
    appliance_.tool_prints(kRealLines);
    Answer answer;
    char *const texts[] = {answer.first.data(), answer.label.data(), answer.type.data()};
    EXPECT_EQ(Query_Block_Info_By_Id(nullptr, texts[0], texts[1], texts[2]), -EINVAL);
    EXPECT_EQ(Query_Block_Info_By_Id("91c2", nullptr, texts[1], texts[2]), -EINVAL);
    EXPECT_EQ(Query_Block_Info_By_Id("91c2", texts[0], nullptr, texts[2]), -EINVAL);
    EXPECT_EQ(Query_Block_Info_By_Id("91c2", texts[0], texts[1], nullptr), -EINVAL);

    const FailCall fault(Call::popen, ENOMEM);
    EXPECT_EQ(by_id("91c2"), kNoDevice);
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(BlockTool, is_run_without_arguments_and_its_errors_go_to_a_file) {
    appliance_.tool_runs("echo \"$0 $#\" >&2; echo '/dev/a: UUID=\"u\"'");
    EXPECT_THAT(scan(), ElementsAre("/dev/a|u||"));
    EXPECT_EQ(support::read_file("/dev/NULL"), "/usr/local/sbin/blkid 0\n");
    std::filesystem::remove("/dev/NULL");
    EXPECT_EQ(by_path("/dev/a"), "u||");
    EXPECT_EQ(support::read_file("/dev/NULL"), "/usr/local/sbin/blkid 0\n");
    std::filesystem::remove("/dev/NULL");
    EXPECT_EQ(by_id("u"), "/dev/a||");
    EXPECT_EQ(support::read_file("/dev/NULL"), "/usr/local/sbin/blkid 0\n");

    // Each run begins the file anew.
    appliance_.tool_prints("");
    scan();
    EXPECT_EQ(support::read_file("/dev/NULL"), "");
}

TEST_F(BlockTool, is_run_by_the_shell) {
    // Which tells the file, too, that there is no such tool.
    scan();
    EXPECT_THAT(support::read_file("/dev/NULL"), testing::HasSubstr("/usr/local/sbin/blkid"));
    appliance_.tool_runs("exit 3");
    EXPECT_THAT(scan(), IsEmpty());
    appliance_.tool_runs("echo '/dev/a: UUID=\"u\"'; kill -9 $$");
    EXPECT_THAT(scan(), ElementsAre("/dev/a|u||")) << "whatever becomes of it";
}

TEST_F(BlockTool, may_be_left_before_it_is_done) {
    // More than a pipe holds comes after the line that is looked for.
    appliance_.tool_runs("echo '/dev/a: UUID=\"u\"'; exec head -c 1000000 /dev/zero");
    EXPECT_EQ(by_path("/dev/a"), "u||");
    EXPECT_EQ(by_id("u"), "/dev/a||");
}

TEST_F(BlockTool, may_take_its_time) {
    appliance_.tool_runs("printf '/dev/a: UU'; sleep 0.1; printf 'ID=\"u\"\\n/dev/b:'; sleep 0.1; echo ' UUID=\"v\"'");
    EXPECT_THAT(scan(), ElementsAre("/dev/b|v||", "/dev/a|u||"));
}

TEST_F(BlockTool, may_be_asked_by_several_threads) {
    appliance_.tool_prints(kRealLines);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; i++)
        threads.emplace_back([] {
            for (int round = 0; round < 5; round++) {
                EXPECT_THAT(scan(), testing::SizeIs(6));
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
        scan();
        by_id("v");
    }));
    EXPECT_THAT(log.messages(), IsEmpty());
}
