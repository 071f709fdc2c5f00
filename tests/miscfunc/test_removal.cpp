// Removing paths: both functions answer as the system does, 0 or -1 with `errno`.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <string>
#include <vector>

#include "faults.h"
#include "log_capture.h"
#include "miscfunc.h"
#include "sandbox.h"

using support::Call;
using support::exists;
using support::FailCall;
using support::LogCapture;
using support::TempFolder;

namespace {

constexpr size_t kLongestPath = 4095;

// A folder with one of each kind of thing in it.
class Tree {
  public:
    Tree() {
        folder_.file("file", "content");
        EXPECT_EQ(mkdir(path("empty").c_str(), 0755), 0);
        EXPECT_EQ(mkdir(path("full").c_str(), 0755), 0);
        folder_.file("full/inner", "content");
        EXPECT_EQ(symlink("file", path("link").c_str()), 0);
        EXPECT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
    }

    std::string path() const { return folder_.path(); }
    std::string path(const std::string &name) const { return folder_.path(name); }

    // What is no longer there.
    std::vector<std::string> removed() const {
        std::vector<std::string> all = {"dangling", "empty", "file", "full", "full/inner", "link"};
        all.erase(std::remove_if(all.begin(), all.end(), [&](const auto &name) { return exists(path(name)); }),
                  all.end());
        return all;
    }

  private:
    TempFolder folder_;
};

// Makes a file whose path has exactly `length` characters, and returns that path.
std::string deep_file(const TempFolder &folder, size_t length) {
    std::string path = folder.path();
    while (length - path.size() > 250)
        path += "/" + std::string(200, 'd');
    std::filesystem::create_directories(path);
    path += "/" + std::string(length - path.size() - 1, 'f');
    support::write_file(path, "");
    return path;
}

}  // namespace

TEST(ReallyUnlink, answers_as_unlink_does) {
    const struct {
        const char *name;
        int error;  // 0: removed
    } table[] = {
        {"file", 0},       {"link", 0},      {"dangling", 0},   {"missing", ENOENT},      {"missing/x", ENOENT},
        {"empty", EISDIR}, {"full", EISDIR}, {"full/inner", 0}, {"full/inner/x", ENOENT},
    };
    LogCapture log;
    const Tree tree;

    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        errno = 0;
        EXPECT_EQ(Fenwa_Really_Unlink(tree.path(row.name).c_str()), row.error == 0 ? 0 : -1);
        EXPECT_EQ(errno, row.error);
    }
    EXPECT_THAT(tree.removed(), testing::ElementsAre("dangling", "file", "full/inner", "link"));
    EXPECT_THAT(log.messages(), testing::IsEmpty());
}

TEST(ReallyUnlink, removes_a_link_and_not_what_it_leads_to) {
    const Tree tree;
    EXPECT_EQ(Fenwa_Really_Unlink(tree.path("link").c_str()), 0);
    EXPECT_THAT(tree.removed(), testing::ElementsAre("link"));
}

TEST(UnlinkAt, the_flag_picks_the_call_and_the_name_the_path) {
    const struct {
        const char *folder;  // below the tree
        const char *name;
        int32_t flags;
        int error;  // 0: removed
        const char *removed;
    } table[] = {
        {"", "file", 0, 0, "file"},
        {"", "missing", 0, ENOENT, nullptr},
        {"", "empty", 0, EISDIR, nullptr},
        {"", "empty", 0x200, 0, "empty"},
        {"", "file", 0x200, ENOTDIR, nullptr},
        {"", "full", 0x200, ENOTEMPTY, nullptr},
        {"", "missing", 0x200, ENOENT, nullptr},
        {"", "link", 0, 0, "link"},
        {"", "link", 0x200, ENOTDIR, nullptr},
        {"", "dangling", 0, 0, "dangling"},
        {"", "full/inner", 0, 0, "full/inner"},
        {"/full", "inner", 0, 0, "full/inner"},
        {"/full", "../file", 0, 0, "file"},
        // No other bit has an effect.
        {"", "file", 0x1, 0, "file"},
        {"", "file", 0x100, 0, "file"},
        {"", "file", ~0x200, 0, "file"},
        {"", "empty", 0x201, 0, "empty"},
        {"", "empty", -1, 0, "empty"},
        {"", "empty", 0x400, EISDIR, nullptr},
        // An empty name: the path of the folder itself without flags, and with a slash behind it with any.
        {"/file", "", 0, 0, "file"},
        {"/link", "", 0, 0, "link"},
        {"/empty", "", 0, EISDIR, nullptr},
        {"/empty", "", 0x200, 0, "empty"},
        {"/full", "", 0x200, ENOTEMPTY, nullptr},
        {"/file", "", 0x1, ENOTDIR, nullptr},
        {"/file", "", 0x200, ENOTDIR, nullptr},
    };
    LogCapture log;

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << "'" << row.folder << "' + '" << row.name << "', flags " << row.flags);
        const Tree tree;
        errno = 0;
        EXPECT_EQ(Fenwa_Unlinkat(AT_FDCWD, (tree.path() + row.folder).c_str(), row.name, row.flags),
                  row.error == 0 ? 0 : -1);
        EXPECT_EQ(errno, row.error);
        EXPECT_EQ(tree.removed(),
                  row.removed == nullptr ? std::vector<std::string>{} : std::vector{std::string{row.removed}});
    }
    EXPECT_THAT(log.messages(), testing::IsEmpty());
}

TEST(UnlinkAt, the_descriptor_is_not_used) {
    const Tree other;
    const int other_folder = open(other.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(other_folder, 0);

    for (const int32_t descriptor : {-1, AT_FDCWD, 0, INT_MAX, INT_MIN, other_folder}) {
        SCOPED_TRACE(descriptor);
        const Tree tree;
        EXPECT_EQ(Fenwa_Unlinkat(descriptor, tree.path().c_str(), "file", 0), 0);
        EXPECT_EQ(Fenwa_Unlinkat(descriptor, tree.path("empty").c_str(), "", AT_REMOVEDIR), 0);
        EXPECT_THAT(tree.removed(), testing::ElementsAre("empty", "file"));
    }
    EXPECT_THAT(other.removed(), testing::IsEmpty());
    close(other_folder);
}

TEST(UnlinkAt, a_relative_folder_counts_from_the_working_folder) {
    const Tree tree;
    const int outer = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(chdir(tree.path().c_str()), 0);

    EXPECT_EQ(Fenwa_Unlinkat(-1, "full", "inner", 0), 0);
    EXPECT_EQ(Fenwa_Unlinkat(-1, "full", "", 0x200), 0);
    EXPECT_THAT(tree.removed(), testing::ElementsAre("full", "full/inner"));

    ASSERT_EQ(fchdir(outer), 0);
    close(outer);
}

TEST(UnlinkAt, a_null_text_is_refused) {
    const Tree tree;
    for (const int32_t flags : {0, 0x200}) {
        SCOPED_TRACE(flags);
        EXPECT_EQ(Fenwa_Unlinkat(AT_FDCWD, nullptr, tree.path("file").c_str(), flags), -22);
        EXPECT_EQ(Fenwa_Unlinkat(AT_FDCWD, tree.path("file").c_str(), nullptr, flags), -22);
        EXPECT_EQ(Fenwa_Unlinkat(AT_FDCWD, nullptr, nullptr, flags), -22);
    }
    EXPECT_THAT(tree.removed(), testing::IsEmpty());
}

TEST(UnlinkAt, a_path_that_is_too_long_is_cut) {
    const TempFolder folder;
    const std::string path = deep_file(folder, kLongestPath);
    const size_t slash = path.rfind('/');

    EXPECT_EQ(Fenwa_Unlinkat(-1, path.substr(0, slash).c_str(), (path.substr(slash + 1) + "more").c_str(), 0), 0);
    EXPECT_FALSE(exists(path));

    support::write_file(path, "");
    EXPECT_EQ(Fenwa_Unlinkat(-1, (path + "/and/more").c_str(), "", 0), 0);
    EXPECT_FALSE(exists(path));
}

TEST(UnlinkAt, hands_on_what_the_system_answers) {
    const struct {
        Call call;
        const char *name;
        int32_t flags;
    } table[] = {{Call::unlink, "file", 0}, {Call::rmdir, "empty", 0x200}};
    const Tree tree;

    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        const FailCall fault(row.call, EROFS);
        errno = 0;
        EXPECT_EQ(Fenwa_Unlinkat(-1, tree.path().c_str(), row.name, row.flags), -1);
        EXPECT_EQ(errno, EROFS);
        EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_THAT(tree.removed(), testing::IsEmpty());
}
