// The questions for one mounted file system: by its device and by its mount point.
#include <gmock/gmock.h>
#include <mntent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "heap.h"
#include "log_capture.h"
#include "sample_appliance.h"
#include "sysinfo.h"

using namespace sysinfo_test;
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

TEST_P(MountQuery, loses_nothing) {
    appliance_.mount_table(line("/a", "/b"));
    EXPECT_FALSE(support::loses_memory([this] {
        struct mntent *entry = nullptr;
        EXPECT_EQ(query()("/a", &entry), 0);
        EXPECT_EQ(query()("/c", &entry), -ENOTDIR);
    }));
}
