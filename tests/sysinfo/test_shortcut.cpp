// The short name in /share of a path below it.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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

class Shortcut : public ApplianceTest {
  protected:
    // The short name of a path, or the error as a number.
    static std::string of(const std::string &path) {
        GuardedBuffer shortcut;
        const int32_t result = Query_Mount_Shortcut(path.c_str(), shortcut.data());
        if (result != 0) {
            EXPECT_EQ(shortcut.written(), 0U);
            return std::to_string(result);
        }
        EXPECT_EQ(shortcut.written(), shortcut.text().size() + 1);
        return shortcut.text();
    }

    const std::string none_ = std::to_string(-ENOENT);
};

}  // namespace

TEST_F(Shortcut, is_the_link_whose_target_is_the_rest_of_the_path) {
    appliance_.link("CACHEDEV1_DATA/Public", "Public");
    appliance_.link("CACHEDEV1_DATA", "Volume");
    appliance_.link("external/DEV3301_1", "USB Disk");
    appliance_.link("missing", "Missing");
    EXPECT_EQ(of("/share/CACHEDEV1_DATA/Public"), "/share/Public");
    EXPECT_EQ(of("/share/CACHEDEV1_DATA"), "/share/Volume");
    EXPECT_EQ(of("/share/external/DEV3301_1"), "/share/USB Disk");
    EXPECT_EQ(of("/share/missing"), "/share/Missing") << "the target need not exist";
}

TEST_F(Shortcut, needs_the_target_to_be_exactly_that) {
    appliance_.link("MD0_DATA/Public", "Public");
    appliance_.link("/share/MD0_DATA/Web", "Absolute");
    appliance_.link("Public", "ToLink");
    appliance_.folder("/share/MD0_DATA/Public");
    support::write_file("/share/file", "MD0_DATA/Public");
    for (const char *path : {"/share/MD0_DATA/Publi", "/share/MD0_DATA/Public/", "/share/MD0_DATA/Public2",
                             "/share/MD0_DATA", "/share//MD0_DATA/Public", "/share/./MD0_DATA/Public",
                             "/share/MD0_DATA/public", "/share/MD0_DATA/Web", "/share/file", "/share/"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(of(path), none_);
    }
    // The links are read, not followed.
    EXPECT_EQ(of("/share/Public"), "/share/ToLink");
    EXPECT_EQ(of("/share//share/MD0_DATA/Web"), "/share/Absolute");
}

TEST_F(Shortcut, is_only_for_paths_below_the_share_folder) {
    appliance_.link("x", "Found");
    EXPECT_EQ(of("/share/x"), "/share/Found");
    for (const char *path : {"", "/", "/share", "/shar", "/share2/x", "share/x", "//share/x", "/Share/x", "x",
                             "/mnt/share/x", "/share x"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(of(path), none_);
    }
}

TEST_F(Shortcut, is_never_found_for_targets_of_44_bytes_or_more) {
    for (const size_t length : {1, 42, 43, 44, 45, 46, 88, 255, 4000}) {
        SCOPED_TRACE(length);
        const std::string target(length, 't');
        const Appliance appliance;
        appliance.link(target, "Long");
        EXPECT_EQ(of("/share/" + target), length <= 43 ? "/share/Long" : none_);
        // Nor for what such a target begins with.
        if (length > 43) {
            EXPECT_EQ(of("/share/" + target.substr(0, 43)), none_);
            EXPECT_EQ(of("/share/" + target.substr(0, 44)), none_);
        }
    }
}

TEST_F(Shortcut, may_have_the_longest_name) {
    const std::string name(255, 'n');
    appliance_.link("x", name);
    EXPECT_EQ(of("/share/x"), "/share/" + name);
}

TEST_F(Shortcut, is_one_of_several) {
    for (const char *name : {"A", "B", "C"})
        appliance_.link("x", name);
    EXPECT_THAT(of("/share/x"), testing::AnyOf("/share/A", "/share/B", "/share/C"));
}

TEST_F(Shortcut, passes_over_links_that_cannot_be_read) {
    appliance_.link("x", "A");
    appliance_.link("x", "B");
    const std::string first = of("/share/x");
    {
        const FailCall fault(Call::readlinkat, EIO);
        EXPECT_EQ(of("/share/x"), first == "/share/A" ? "/share/B" : "/share/A");
        EXPECT_EQ(fault.failed(), 1);
    }
    const FailCall fault(Call::readlinkat, EIO, 1, 2);
    EXPECT_EQ(of("/share/x"), none_);
    EXPECT_EQ(fault.failed(), 2);
}

TEST_F(Shortcut, refuses_null) {
    GuardedBuffer shortcut;
    EXPECT_EQ(Query_Mount_Shortcut(nullptr, shortcut.data()), -EINVAL);
    EXPECT_EQ(Query_Mount_Shortcut("/share/x", nullptr), -EINVAL);
    EXPECT_EQ(Query_Mount_Shortcut("/elsewhere", nullptr), -EINVAL);
    EXPECT_EQ(Query_Mount_Shortcut(nullptr, nullptr), -EINVAL);
    EXPECT_EQ(shortcut.written(), 0U);
}

TEST_F(Shortcut, needs_the_share_folder) {
    appliance_.link("x", "Found");
    const LogCapture log;
    for (const Call call : {Call::opendir, Call::dirfd}) {
        const FailCall fault(call, EMFILE);
        EXPECT_EQ(of("/share/x"), none_) << "whatever it was that failed";
        EXPECT_EQ(fault.failed(), 1);
    }

    ASSERT_EQ(umount2("/share", MNT_DETACH), 0);
    ASSERT_EQ(rmdir("/share"), 0);
    EXPECT_EQ(of("/share/x"), none_);
    ASSERT_EQ(mkdir("/share", 0755), 0);
}

TEST_F(Shortcut, is_found_in_silence_and_loses_nothing) {
    appliance_.link("x", "Found");
    LogCapture log;
    EXPECT_FALSE(support::loses_memory([] {
        of("/share/x");
        of("/share/y");
    }));
    EXPECT_THAT(log.messages(), testing::IsEmpty());
}
