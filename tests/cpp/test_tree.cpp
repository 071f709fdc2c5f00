// Folder trees: what copies and removals report, and that what is stopped says so.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

#include "failure_of.h"
#include "faults.h"
#include "korvex/tree.hpp"
#include "sandbox.h"

namespace {

using korvex::errc;
using support::BeforeCall;
using support::Call;
using support::failure_of;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
namespace fs = std::filesystem;

class Tree : public testing::Test {
  protected:
    Tree() {
        fs::create_directories(from_ + "/sub/deep");
        support::write_file(from_ + "/file", "text");
        support::write_file(from_ + "/sub/deep/file", "deep text");
        fs::create_symlink("nowhere", from_ + "/link");
        chmod(folder_.path().c_str(), 0755);
    }
    // "name: reason" of each entry, without the folder of the test.
    std::vector<std::string> texts(const korvex::tree_report &report) const {
        std::vector<std::string> lines;
        for (const korvex::left_out &entry : report.entries)
            lines.push_back(entry.path.substr(folder_.path().size() + 1) + ": " + entry.reason);
        return lines;
    }

    support::TempFolder folder_;
    const std::string from_ = folder_.path("from");
    const std::string to_ = folder_.path("to");
};

using TreeCopy = Tree;
using TreeRemoval = Tree;

TEST_F(Tree, is_measured) {
    const korvex::tree_state state = korvex::measure_tree(from_);
    EXPECT_EQ(state.files, 3U);
    EXPECT_EQ(state.folders, 3U);
    EXPECT_EQ(state.bytes, 4U + 9U + 7U);
    EXPECT_EQ(failure_of([&] { (void)korvex::measure_tree(to_); }).code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(failure_of([&] { (void)korvex::measure_tree(from_ + "/file"); }).code(), std::errc::not_a_directory);
}

TEST_F(Tree, whose_measuring_is_stopped_has_no_measure) {
    std::stop_source source;
    source.request_stop();
    EXPECT_EQ(failure_of([&] { (void)korvex::measure_tree(from_, source.get_token()); }).code(),
              std::errc::operation_canceled);
}

TEST_F(TreeCopy, that_is_whole_says_so) {
    const korvex::tree_report report = korvex::copy_tree(from_, to_, {.stop = {}, .durable = true});
    EXPECT_TRUE(report.complete());
    EXPECT_EQ(support::read_file(to_ + "/sub/deep/file"), "deep text");
    EXPECT_EQ(fs::read_symlink(to_ + "/link"), "nowhere");
}

TEST_F(TreeCopy, names_what_it_never_copies) {
    ASSERT_EQ(mkfifo((from_ + "/sub/pipe").c_str(), 0600), 0);
    ASSERT_EQ(mknod((from_ + "/device").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (from_ + "/sub/deep/socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);

    const korvex::tree_report report = korvex::copy_tree(from_, to_);
    EXPECT_THAT(texts(report), UnorderedElementsAre("from/sub/pipe: it is a pipe", "from/device: it is a device",
                                                    "from/sub/deep/socket: it is a socket"));
    for (const korvex::left_out &entry : report.entries)
        EXPECT_EQ(entry.code, errc::not_a_regular_file);
    EXPECT_FALSE(report.complete());
    EXPECT_EQ(support::read_file(to_ + "/sub/deep/file"), "deep text");
    close(listener);
}

TEST_F(TreeCopy, names_the_folders_that_it_could_not_read) {
    if (!support::can_be_nobody())
        FAIL() << "this test needs root";
    ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  fs::create_directories(folder_.path("own/open"));
                  fs::create_directories(folder_.path("own/closed/below"));
                  support::write_file(folder_.path("own/open/file"), "text");
                  chmod(folder_.path("own/closed").c_str(), 0);
                  const korvex::tree_report report = korvex::copy_tree(folder_.path("own"), folder_.path("copy"));
                  EXPECT_THAT(texts(report), ElementsAre("own/closed: permission denied"));
                  EXPECT_EQ(report.entries.at(0).code, std::errc::permission_denied);
                  EXPECT_EQ(support::read_file(folder_.path("copy/open/file")), "text");
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}

TEST_F(TreeCopy, merges_and_refuses_before_it_begins) {
    fs::create_directories(to_ + "/sub");
    support::write_file(to_ + "/file", "old");
    const korvex::error failure = failure_of([&] { korvex::copy_tree(from_, to_); });
    EXPECT_EQ(failure.code(), std::errc::file_exists);
    EXPECT_EQ(failure.subject(), from_ + "/sub");
    EXPECT_EQ(failure.reason(), to_ + "/sub is in the way");
    EXPECT_EQ(support::read_file(to_ + "/file"), "old") << "nothing was copied";

    fs::remove(to_ + "/sub");
    support::write_file(to_ + "/other", "stays");
    EXPECT_TRUE(korvex::copy_tree(from_, to_).complete());
    EXPECT_EQ(support::read_file(to_ + "/file"), "text");
    EXPECT_EQ(support::read_file(to_ + "/other"), "stays");
}

TEST_F(TreeCopy, that_fails_names_the_entry) {
    const support::SmallDisk disk(64 << 10);
    support::write_file(from_ + "/sub/large", std::string(100'000, 'x'));
    const korvex::error failure = failure_of([&] { korvex::copy_tree(from_, disk.path("to")); });
    EXPECT_EQ(failure.code(), std::errc::no_space_on_device);
    EXPECT_EQ(failure.subject(), from_ + "/sub/large");
}

TEST_F(TreeCopy, into_itself_or_of_no_folder_is_refused) {
    EXPECT_EQ(failure_of([&] { korvex::copy_tree(from_, from_ + "/sub/copy"); }).code(), std::errc::invalid_argument);
    EXPECT_EQ(failure_of([&] { korvex::copy_tree(from_ + "/file", to_); }).code(), std::errc::not_a_directory);
    EXPECT_EQ(failure_of([&] { korvex::copy_tree(folder_.path("none"), to_); }).code(),
              std::errc::no_such_file_or_directory);
    EXPECT_FALSE(support::exists(to_));
}

TEST_F(TreeCopy, that_is_stopped_is_never_taken_for_done) {
    std::stop_source early;
    early.request_stop();
    EXPECT_EQ(failure_of([&] { korvex::copy_tree(from_, to_, {.stop = early.get_token()}); }).code(),
              std::errc::operation_canceled);
    for (const Call call : {Call::openat, Call::readdir, Call::write}) {
        korvex::remove_tree(to_);
        std::stop_source source;
        const BeforeCall stopping(call, 2, [&] { source.request_stop(); });
        EXPECT_EQ(failure_of([&] { korvex::copy_tree(from_, to_, {.stop = source.get_token()}); }).code(),
                  std::errc::operation_canceled);
        EXPECT_TRUE(stopping.ran());
    }
}

TEST_F(TreeCopy, names_what_came_later) {
    // The top folder is read to its end first: what comes into it after that is in the source alone.
    const BeforeCall adding(Call::getdents64, 3, [&] { support::write_file(from_ + "/late", "late"); });
    const korvex::tree_report report = korvex::copy_tree(from_, to_);
    EXPECT_TRUE(adding.ran());
    EXPECT_THAT(texts(report), ElementsAre("from/late: it came later"));
    EXPECT_EQ(report.entries.at(0).code, errc::changed_meanwhile);
}

TEST_F(TreeCopy, of_a_tree_that_is_deeper_than_descriptors_reach_is_looked_through) {
    std::string deep = from_;
    for (int i = 0; i < 150; i++)
        deep += "/d";
    fs::create_directories(deep);
    ASSERT_EQ(mkfifo((deep + "/pipe").c_str(), 0600), 0);
    EXPECT_EQ(support::in_child([&] {
                  const rlimit few{64, 64};
                  setrlimit(RLIMIT_NOFILE, &few);
                  const korvex::tree_report report = korvex::copy_tree(from_, to_);
                  return report.entries.size() == 1 && report.entries[0].path == deep + "/pipe" ? 0 : 1;
              }),
              0);
}

TEST_F(TreeRemoval, takes_all_and_says_so) {
    EXPECT_TRUE(korvex::remove_tree(from_).complete());
    EXPECT_THAT(folder_.names(), IsEmpty());
    EXPECT_EQ(failure_of([&] { korvex::remove_tree(from_); }).code(), std::errc::no_such_file_or_directory);
}

TEST_F(TreeRemoval, takes_a_link_and_not_what_it_leads_to) {
    fs::create_directory_symlink(from_, folder_.path("to_folder"));
    EXPECT_TRUE(korvex::remove_tree(folder_.path("to_folder/")).complete());
    EXPECT_THAT(folder_.names(), ElementsAre("from"));
    EXPECT_TRUE(korvex::remove_tree(from_ + "/file").complete());
    EXPECT_EQ(korvex::measure_tree(from_).files, 2U);
}

TEST_F(TreeRemoval, refuses_what_is_no_name) {
    for (const char *path : {"", "/", "//", ".", "..", "./", "/tmp/.."})
        EXPECT_EQ(failure_of([&] { korvex::remove_tree(path); }).code(), std::errc::invalid_argument) << path;
}

TEST_F(TreeRemoval, names_what_is_left_and_why) {
    fs::create_directories(from_ + "/sub/mount");
    ASSERT_EQ(mount("none", (from_ + "/sub/mount").c_str(), "tmpfs", 0, nullptr), 0);
    support::write_file(from_ + "/sub/mount/file", "text");
    const korvex::tree_report report = korvex::remove_tree(from_);
    EXPECT_THAT(texts(report), ElementsAre("from/sub/mount: device or resource busy"));
    EXPECT_EQ(report.entries.at(0).code, std::errc::device_or_resource_busy);
    EXPECT_FALSE(support::exists(from_ + "/file"));
    umount((from_ + "/sub/mount").c_str());
    EXPECT_TRUE(korvex::remove_tree(from_).complete());
}

TEST_F(TreeRemoval, names_what_may_not_be_removed) {
    if (!support::can_be_nobody())
        FAIL() << "this test needs root";
    ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  fs::create_directories(folder_.path("own/fixed"));
                  fs::create_directories(folder_.path("own/hidden/below"));
                  support::write_file(folder_.path("own/fixed/file"), "text");
                  support::write_file(folder_.path("own/file"), "text");
                  chmod(folder_.path("own/fixed").c_str(), 0500);
                  chmod(folder_.path("own/hidden").c_str(), 0);
                  EXPECT_THAT(
                      texts(korvex::remove_tree(folder_.path("own"))),
                      UnorderedElementsAre("own/fixed/file: permission denied", "own/hidden: permission denied"));
                  EXPECT_FALSE(support::exists(folder_.path("own/file")));
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}

TEST_F(TreeRemoval, that_is_stopped_says_so) {
    std::stop_source source;
    source.request_stop();
    EXPECT_EQ(failure_of([&] { korvex::remove_tree(from_, source.get_token()); }).code(),
              std::errc::operation_canceled);
    EXPECT_TRUE(support::exists(from_));
}

TEST_F(Tree, leaves_no_descriptor_open) {
    const auto before = support::open_descriptors();
    mkfifo((from_ + "/sub/pipe").c_str(), 0600);
    korvex::copy_tree(from_, to_);
    EXPECT_THROW(korvex::copy_tree(from_, to_), korvex::error);
    korvex::remove_tree(to_);
    EXPECT_EQ(support::open_descriptors(), before);
}

}  // namespace
