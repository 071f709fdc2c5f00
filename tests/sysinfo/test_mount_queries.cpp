// The questions for one mounted file system: by its device and by its mount point.
#include <gmock/gmock.h>
#include <mntent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "faults.h"
#include "heap.h"
#include "log_capture.h"
#include "sample_appliance.h"
#include "sysinfo.h"

using namespace sysinfo_test;
using support::Call;
using support::FailCall;
using support::LogCapture;
using testing::IsEmpty;

namespace {

using Query = int32_t(const char *, struct mntent **);

// Both questions: what is promised of one holds for the other with the two columns changed.
class MountQuery : public ApplianceTest, public testing::WithParamInterface<bool> {
  protected:
    Query *query() const { return GetParam() ? Query_Mount_Entry_By_Device : Query_Mount_Entry_By_Path; }
    // A line in which `sought` is what the question looks at.
    std::string line(const std::string &sought, const std::string &other) const {
        return (GetParam() ? sought + " " + other : other + " " + sought) + " ext4 rw,noatime 3 7\n";
    }
    const char *sought_of(const struct mntent &entry) const { return GetParam() ? entry.mnt_fsname : entry.mnt_dir; }
    const char *other_of(const struct mntent &entry) const { return GetParam() ? entry.mnt_dir : entry.mnt_fsname; }
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(By, MountQuery, testing::Values(true, false),
                         [](const auto &which) { return std::string(which.param ? "device" : "path"); });

TEST_P(MountQuery, finds_the_first_entry) {
    appliance_.mount_table(line("/first", "/x") + line("/second", "/y") + line("/second", "/z"));
    struct mntent *entry = nullptr;
    ASSERT_EQ(query()("/second", &entry), 0);
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(sought_of(*entry), "/second");
    EXPECT_STREQ(other_of(*entry), "/y");
    EXPECT_STREQ(entry->mnt_type, "ext4");
    EXPECT_STREQ(entry->mnt_opts, "rw,noatime");
    EXPECT_EQ(entry->mnt_freq, 3);
    EXPECT_EQ(entry->mnt_passno, 7);
}

TEST_P(MountQuery, compares_exactly) {
    appliance_.mount_table(line("/share/MD0_DATA", "/other") + line("/with\\040blank", "/blank"));
    struct mntent *entry = nullptr;
    EXPECT_EQ(query()("/share/MD0_DATA", &entry), 0);
    EXPECT_EQ(query()("/with blank", &entry), 0);
    for (const char *other : {"/share/MD0_DAT", "/share/MD0_DATA/", "/share/MD0_DATA1", "share/MD0_DATA",
                              "/share/md0_data", "/with\\040blank", "/other", "/share", "ext4", "", "/"}) {
        SCOPED_TRACE(other);
        entry = reinterpret_cast<struct mntent *>(8);
        EXPECT_EQ(query()(other, &entry), -ENOTDIR);
        EXPECT_EQ(entry, nullptr);
    }
}

TEST_P(MountQuery, finds_nothing_in_an_empty_table) {
    appliance_.mount_table("# nothing\n");
    auto *entry = reinterpret_cast<struct mntent *>(8);
    EXPECT_EQ(query()("/a", &entry), -ENOTDIR);
    EXPECT_EQ(entry, nullptr);
}

TEST_P(MountQuery, needs_a_table) {
    auto *const untouched = reinterpret_cast<struct mntent *>(8);
    struct mntent *entry = untouched;
    EXPECT_EQ(query()("/a", &entry), -ENOENT);
    ASSERT_EQ(symlink("/etc/mtab", "/etc/mtab"), 0);
    EXPECT_EQ(query()("/a", &entry), -ELOOP);
    appliance_.mount_table_of_kernel();
    {
        const NoDescriptors none;
        EXPECT_EQ(query()("/", &entry), -EMFILE);
    }
    EXPECT_EQ(entry, untouched);
}

TEST_P(MountQuery, refuses_null) {
    appliance_.mount_table(line("/a", "/b"));
    struct mntent *entry = nullptr;
    LogCapture log;
    EXPECT_EQ(query()(nullptr, &entry), -EINVAL);
    EXPECT_EQ(query()("/a", nullptr), -EINVAL);
    EXPECT_EQ(query()(nullptr, nullptr), -EINVAL);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_P(MountQuery, hands_out_the_record_of_the_system) {
    appliance_.mount_table(line("/a", "/b"));
    struct mntent *entry = nullptr;
    ASSERT_EQ(query()("/a", &entry), 0);

    FILE *table = setmntent("/proc/self/mounts", "r");
    const struct mntent *const own = getmntent(table);
    endmntent(table);
    EXPECT_EQ(entry, own);
    EXPECT_STRNE(sought_of(*entry), "/a") << "the next reading must have overwritten it";
}

// As the system reads it from the table.
TEST_P(MountQuery, hands_out_what_the_system_reads) {
    for (const std::string &text :
         {line("/a", "/b"), line("/a", "/b\\040c\\134\\\\d\\e\\011\\012f"), line("/a", "c#b"), line("/a", "/\xff\x01"),
          std::string("/a /a x o,p=\\040q 2147483647 -2147483648\n"), std::string("/a /a x o 1\n"),
          std::string("/a /a x o\n"), std::string("/a /a x\n"), std::string("/a /a\n"), std::string("  /a\t/a  x"),
          "/a /a " + std::string(1'000, 't') + " " + std::string(3'000, 'o') + " 3 7\n"}) {
        SCOPED_TRACE(text.substr(0, 60));
        appliance_.mount_table(text);
        char buffer[8'192];
        struct mntent expected {};
        FILE *table = setmntent("/etc/mtab", "r");
        ASSERT_NE(getmntent_r(table, &expected, buffer, sizeof buffer), nullptr);
        endmntent(table);

        struct mntent *entry = nullptr;
        ASSERT_EQ(query()("/a", &entry), 0);
        EXPECT_STREQ(entry->mnt_fsname, expected.mnt_fsname);
        EXPECT_STREQ(entry->mnt_dir, expected.mnt_dir);
        EXPECT_STREQ(entry->mnt_type, expected.mnt_type);
        EXPECT_STREQ(entry->mnt_opts, expected.mnt_opts);
        EXPECT_EQ(entry->mnt_freq, expected.mnt_freq);
        EXPECT_EQ(entry->mnt_passno, expected.mnt_passno);
    }
}

TEST_P(MountQuery, has_as_much_of_long_options_as_the_record_holds_and_true_numbers) {
    for (const size_t length : {3'900, 4'040, 4'080, 4'096, 10'000, 100'000}) {
        SCOPED_TRACE(length);
        const std::string options(length, 'o');
        const std::string fields = GetParam() ? "/sought /other" : "/other /sought";
        appliance_.mount_table("a /a x o 1 2\n" + fields + " overlay " + options + " 3 7\n" + line("/behind", "/b"));
        struct mntent *entry = nullptr;
        ASSERT_EQ(query()("/sought", &entry), 0);
        EXPECT_EQ(strlen(entry->mnt_opts), std::min<size_t>(length, 4'056 - strlen("/sought /other overlay ")));
        EXPECT_TRUE(options.starts_with(entry->mnt_opts));
        EXPECT_EQ(entry->mnt_freq, 3);
        EXPECT_EQ(entry->mnt_passno, 7);
        ASSERT_EQ(query()("/behind", &entry), 0);
        EXPECT_STREQ(other_of(*entry), "/b");
    }
}

TEST_P(MountQuery, finds_names_beyond_the_room_of_the_record) {
    const std::string name = "/" + std::string(5'000, 'n');
    appliance_.mount_table(line(name, name) + line("/a", "/b"));
    struct mntent *entry = nullptr;
    ASSERT_EQ(query()(name.c_str(), &entry), 0);
    EXPECT_STREQ(entry->mnt_fsname, name.substr(0, 4'056).c_str());
    ASSERT_EQ(query()("/a", &entry), 0);
}

TEST_P(MountQuery, finds_names_with_a_number_sign) {
    appliance_.mount_table(line("/x\\043y", "\\043b"));
    struct mntent *entry = nullptr;
    ASSERT_EQ(query()("/x#y", &entry), 0);
    EXPECT_STREQ(sought_of(*entry), "/x#y");
}

TEST_P(MountQuery, without_memory_finds_no_entry) {
    appliance_.mount_table(line("/x", "/y") + line("/a", "/b"));
    struct mntent *entry = nullptr;
    ASSERT_EQ(query()("/a", &entry), 0);  // libc's buffer is made once
    for (int nth = 1;; nth++) {
        SCOPED_TRACE(nth);
        auto *const untouched = reinterpret_cast<struct mntent *>(8);
        entry = untouched;
        const FailCall fault(Call::allocation, ENOMEM, nth);
        const int32_t result = query()("/a", &entry);
        if (fault.failed() == 0)
            break;
        if (result == 0)
            EXPECT_STREQ(other_of(*entry), "/b");
        else
            EXPECT_TRUE(result == -ENOMEM && (entry == nullptr || entry == untouched));
    }
}

TEST_P(MountQuery, loses_nothing) {
    appliance_.mount_table(line("/a", "/b"));
    EXPECT_FALSE(support::loses_memory([this] {
        struct mntent *entry = nullptr;
        EXPECT_EQ(query()("/a", &entry), 0);
        EXPECT_EQ(query()("/c", &entry), -ENOTDIR);
    }));
}
