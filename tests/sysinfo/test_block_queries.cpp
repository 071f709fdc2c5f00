// What a block device holds: asked by its path and by its UUID.
#include <gmock/gmock.h>

#include <cerrno>
#include <string>

#include "block_answers.h"
#include "faults.h"
#include "sample_appliance.h"
#include "sysinfo.h"

using namespace sysinfo_test;
using support::Call;
using support::FailCall;

namespace {

using BlockByPath = ApplianceTest;
using BlockById = ApplianceTest;

}  // namespace

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
