// The list of the mounted file systems.
#include <gmock/gmock.h>
#include <mntent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "faults.h"
#include "heap.h"
#include "log_capture.h"
#include "sample_appliance.h"
#include "sysinfo.h"

using namespace sysinfo_test;
using support::Call;
using support::FailCall;
using support::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// One record as "device|mount point|type|options|frequency|pass".
std::string text_of(const Mount_Info &mount) {
    std::ostringstream text;
    text << mount.pszFsName << '|' << mount.pszDir << '|' << mount.pszType << '|' << mount.szOptions << '|'
         << mount.nFreq << '|' << mount.nPassNo;
    return text.str();
}

std::vector<std::string> texts_of(const Mount_Info *list) {
    std::vector<std::string> texts;
    for (const Mount_Info *mount = list; mount != nullptr; mount = mount->pNext)
        texts.push_back(text_of(*mount));
    return texts;
}

std::vector<std::string> scan() {
    Mount_Info *list = nullptr;
    EXPECT_EQ(Scan_Mount_Info(&list), 0);
    const std::vector<std::string> texts = texts_of(list);
    Free_Mount_Info(list);
    return texts;
}

constexpr size_t kFixedFields = offsetof(Mount_Info, szOptions);

const char *const kThreeMounts =
    "/dev/md9 /mnt/HDA_ROOT ext4 rw,data=ordered 0 0\n"
    "/dev/mapper/cachedev1 /share/CACHEDEV1_DATA ext4 rw,usrjquota=aquota.user 1 2\n"
    "tmpfs /tmp tmpfs rw,size=64M 0 0\n";

using Mounts = ApplianceTest;

}  // namespace

TEST_F(Mounts, are_listed_last_line_first) {
    appliance_.mount_table(kThreeMounts);
    EXPECT_THAT(scan(), ElementsAre("tmpfs|/tmp|tmpfs|rw,size=64M|0|0",
                                    "/dev/mapper/cachedev1|/share/CACHEDEV1_DATA|ext4|rw,usrjquota=aquota.user|1|2",
                                    "/dev/md9|/mnt/HDA_ROOT|ext4|rw,data=ordered|0|0"));
}

TEST_F(Mounts, are_pushed_onto_the_list_as_it_is) {
    appliance_.mount_table("a /a x o 0 0\nb /b x o 0 0\n");
    Mount_Info *list = nullptr;
    ASSERT_EQ(Scan_Mount_Info(&list), 0);
    Mount_Info *const before = list;
    ASSERT_EQ(Scan_Mount_Info(&list), 0);

    EXPECT_THAT(texts_of(list), ElementsAre("b|/b|x|o|0|0", "a|/a|x|o|0|0", "b|/b|x|o|0|0", "a|/a|x|o|0|0"));
    EXPECT_EQ(list->pNext->pNext, before);
    Free_Mount_Info(list);
}

TEST_F(Mounts, have_the_pass_number_before_the_frequency) {
    appliance_.mount_table("a /a x o 3 7\n");
    Mount_Info *list = nullptr;
    ASSERT_EQ(Scan_Mount_Info(&list), 0);
    int32_t numbers[2];
    std::memcpy(numbers, reinterpret_cast<const char *>(list) + sizeof(void *), sizeof numbers);
    EXPECT_THAT(numbers, ElementsAre(7, 3));
    Free_Mount_Info(list);
}

TEST_F(Mounts, are_one_block_each_with_options_type_mount_point_and_device) {
    appliance_.mount_table("/dev/sda1 /boot vfat rw,noatime 0 0\nnone\n");
    Mount_Info *list = nullptr;
    ASSERT_EQ(Scan_Mount_Info(&list), 0);

    for (const Mount_Info *mount = list; mount != nullptr; mount = mount->pNext) {
        SCOPED_TRACE(text_of(*mount));
        EXPECT_EQ(mount->szOptions, reinterpret_cast<const char *>(mount) + kFixedFields);
        EXPECT_EQ(mount->pszType, mount->szOptions + strlen(mount->szOptions) + 1);
        EXPECT_EQ(mount->pszDir, mount->pszType + strlen(mount->pszType) + 1);
        EXPECT_EQ(mount->pszFsName, mount->pszDir + strlen(mount->pszDir) + 1);
    }
    Free_Mount_Info(list);
}

TEST_F(Mounts, are_read_as_the_system_reads_its_table) {
    const struct {
        const char *lines;
        std::vector<std::string> expected;
    } cases[] = {
        {"", {}},
        {"\n\n", {}},
        {"# a b c d 0 0\n", {}},
        {" \t# a b c d 0 0\n", {}},
        {"a /a x o 1 2", {"a|/a|x|o|1|2"}},
        {" \ta \t /a\tx  o\t1 \t2\n", {"a|/a|x|o|1|2"}},
        {"# head\na /a x o 1 2\n\n#b /b x o 3 4\n", {"a|/a|x|o|1|2"}},
        {"a /a x o 1\n", {"a|/a|x|o|1|0"}},
        {"a /a x o\n", {"a|/a|x|o|0|0"}},
        {"a /a x\n", {"a|/a|x||0|0"}},
        {"a /a\n", {"a|/a|||0|0"}},
        {"a\n", {"a||||0|0"}},
        {"a /a x o none none\n", {"a|/a|x|o|0|0"}},
        {"a /a x o 1 2 and more\n", {"a|/a|x|o|1|2"}},
        {"a /a x o -1 2147483647\n", {"a|/a|x|o|-1|2147483647"}},
        {"//nas/My\\040Share /mnt/my\\040share cifs rw 0 0\n", {"//nas/My Share|/mnt/my share|cifs|rw|0|0"}},
        {"a\\011b /c\\134d e\\040f g\\011h 0 0\n", {"a\tb|/c\\d|e f|g\th|0|0"}},
        {"\\040 /\\134040 x o 0 0\n", {" |/\\040|x|o|0|0"}},
        {"a\\04 /b\\ x o 0 0\n", {"a\\04|/b\\|x|o|0|0"}},
        {"a\\\\b\\ /b\\012\\0 x o\\ 0 0\n", {"a\\b\\|/b\n\\0|x|o\\|0|0"}},
        {"a /a x o 1x 2\nb /b x o x 2\n", {"b|/b|x|o|0|0", "a|/a|x|o|1|0"}},
        {"a /a x o 1 2 \t \nb /b \n", {"b|/b|||0|0", "a|/a|x|o|1|2"}},
        {"\xff\xfe /\x80 \xc3\xa9 \x01 0 0\n", {"\xff\xfe|/\x80|\xc3\xa9|\x01|0|0"}},
        {"a /a x o 0 0\na /a x o 0 0\n", {"a|/a|x|o|0|0", "a|/a|x|o|0|0"}},
    };
    for (const auto &[lines, expected] : cases) {
        SCOPED_TRACE(lines);
        appliance_.mount_table(lines);
        EXPECT_EQ(scan(), expected);
    }
}

// Newer kernels write it so, and libc may not know it.
TEST_F(Mounts, may_have_a_number_sign_in_their_names) {
    appliance_.mount_table("\\043a#b /mnt/\\0431 x o 0 0\n");
    EXPECT_THAT(scan(), ElementsAre("#a#b|/mnt/#1|x|o|0|0"));
}

TEST_F(Mounts, may_have_long_options) {
    // What an overlay of many layers has.
    const std::string options = "rw,lowerdir=" + std::string(3000, 'l');
    appliance_.mount_table("a /a x o 0 0\noverlay / overlay " + options + " 5 6\nb /b x o 0 0\n");
    EXPECT_THAT(scan(), ElementsAre("b|/b|x|o|0|0", "overlay|/|overlay|" + options + "|5|6", "a|/a|x|o|0|0"));
}

TEST_F(Mounts, of_lines_of_any_length_are_whole) {
    for (const size_t length : {4'000, 4'096, 8'192, 16'384, 65'536, 1'000'000}) {
        const std::string text(length, 'e');
        const struct {
            std::string line;
            std::string expected;
        } cases[] = {
            {text, text + "||||0|0"},
            {"device " + text, "device|" + text + "|||0|0"},
            {"device /dir type " + text + " 1 2", "device|/dir|type|" + text + "|1|2"},
            {text + " " + text + " " + text + " o 5 6", text + "|" + text + "|" + text + "|o|5|6"},
            {"#" + text, ""},
        };
        for (const auto &[line, expected] : cases) {
            SCOPED_TRACE(line.substr(0, 20) + " " + std::to_string(length));
            appliance_.mount_table("a /a x o 1 2\n" + line + "\nb /b x o 3 4\n");
            std::vector<std::string> all = {"b|/b|x|o|3|4", "a|/a|x|o|1|2"};
            if (!expected.empty())
                all.insert(all.begin() + 1, expected);
            EXPECT_TRUE(scan() == all) << "the texts are too long to be shown";
        }
    }
}

TEST_F(Mounts, end_where_memory_for_a_long_line_does) {
    appliance_.mount_table("a /a x o 1 2\nb /b x " + std::string(5'000, 'o') + " 3 4\n");
    LogCapture log;
    Mount_Info *list = nullptr;
    int32_t result = 0;
    {
        const FailCall fault(Call::realloc, ENOMEM);
        result = Scan_Mount_Info(&list);
        ASSERT_EQ(fault.failed(), 1);
    }
    EXPECT_EQ(result, -ENOMEM);
    EXPECT_THAT(texts_of(list), ElementsAre("a|/a|x|o|1|2"));
    EXPECT_THAT(log.messages(), IsEmpty());
    Free_Mount_Info(list);
}

TEST_F(Mounts, are_those_of_the_kernel_where_the_table_leads_there) {
    appliance_.volume("/share/with blank");
    appliance_.mount_table_of_kernel();

    std::vector<std::string> expected;
    FILE *table = setmntent("/proc/self/mounts", "r");
    while (const struct mntent *entry = getmntent(table)) {
        std::ostringstream text;
        text << entry->mnt_fsname << '|' << entry->mnt_dir << '|' << entry->mnt_type << '|' << entry->mnt_opts << '|'
             << entry->mnt_freq << '|' << entry->mnt_passno;
        expected.insert(expected.begin(), text.str());
    }
    endmntent(table);

    EXPECT_EQ(scan(), expected);
    EXPECT_THAT(expected.front(), testing::StartsWith("korvex-test|/share/with blank|tmpfs|"));
}

TEST_F(Mounts, are_not_listed_without_a_table) {
    LogCapture log;
    auto *const untouched = reinterpret_cast<Mount_Info *>(8);

    Mount_Info *list = untouched;
    EXPECT_EQ(Scan_Mount_Info(&list), -ENOENT);
    ASSERT_EQ(symlink("/etc/mtab", "/etc/mtab"), 0);
    EXPECT_EQ(Scan_Mount_Info(&list), -ELOOP);
    appliance_.mount_table_of_kernel();
    {
        const NoDescriptors none;
        EXPECT_EQ(Scan_Mount_Info(&list), -EMFILE);
    }
    EXPECT_EQ(list, untouched);
    EXPECT_EQ(Scan_Mount_Info(nullptr), -EINVAL);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(Mounts, pushed_before_memory_ran_out_stay) {
    const std::string mounts[] = {"/dev/sda1|/boot|vfat|rw,noatime|0|0", "b|/b|x|o|0|0", "c|/c|x|o|0|0"};
    appliance_.mount_table("/dev/sda1 /boot vfat rw,noatime 0 0\nb /b x o 0 0\nc /c x o 0 0\n");
    scan();  // the system's own buffer for the entries is made once

    std::set<size_t> left;
    for (int nth = 1; nth < 50; nth++) {
        SCOPED_TRACE(nth);
        LogCapture log(1);
        Mount_Info *list = nullptr;
        int failed = 0;
        int32_t result = 0;
        {
            const FailCall fault(Call::allocation, ENOMEM, nth);
            result = Scan_Mount_Info(&list);
            failed = fault.failed();
        }
        const std::vector<std::string> listed = texts_of(list);
        const std::vector<std::string> messages = log.messages();
        Free_Mount_Info(list);
        if (failed == 0)
            break;

        std::vector<std::string> expected(mounts, mounts + listed.size());
        std::reverse(expected.begin(), expected.end());
        EXPECT_EQ(listed, expected);
        if (result == 0) {
            // Streams live without a buffer of their own.
            EXPECT_THAT(listed, SizeIs(3));
        } else if (messages.empty()) {
            EXPECT_EQ(result, -ENOMEM);
            EXPECT_THAT(listed, IsEmpty()) << "the table was not opened";
        } else {
            EXPECT_EQ(result, -ENOMEM);
            ASSERT_LT(listed.size(), 3U);
            // Each text has its terminator: where three separators stand, and one more. The numbers are fixed fields.
            const size_t size = kFixedFields + mounts[listed.size()].size() - strlen("|0|0") + 1;
            EXPECT_THAT(messages, ElementsAre("[error] Scan_Mount_Info(#): Can't allocate " + std::to_string(size) +
                                              " bytes memory!\n"));
            left.insert(listed.size());
        }
    }
    EXPECT_THAT(left, ElementsAre(0, 1, 2));
}

TEST_F(Mounts, can_be_listed_by_several_threads) {
    appliance_.mount_table(kThreeMounts);
    const std::vector<std::string> expected = scan();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&] {
            for (int round = 0; round < 100; round++)
                EXPECT_EQ(scan(), expected);
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(Mounts, are_all_given_back) {
    appliance_.mount_table(kThreeMounts);
    EXPECT_FALSE(support::loses_memory([] { scan(); }));
    Free_Mount_Info(nullptr);
}
