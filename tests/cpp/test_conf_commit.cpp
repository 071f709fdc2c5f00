// What a commit carries over, what it keeps, and when it does not take place.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>

#include "conffile.h"
#include "failure_of.h"
#include "faults.h"
#include "korvex/conf.hpp"
#include "lock_content.h"
#include "sandbox.h"
#include "transaction_world.h"

namespace {

namespace conf = korvex::conf;
namespace world = transaction_world;
using conf::transaction;
using korvex::errc;
using support::failure_of;
using testing::HasSubstr;
using testing::Optional;

constexpr const char *kText = "[s]\nk = old\n";
constexpr const char *kChanged = "[s]\nk = new\n";
constexpr const char *kLock = "/var/lock/_app.conf.lck";

class Commit : public testing::Test {
  protected:
    void SetUp() override {
        support::empty_lock_folder();
        support::write_file(path_, kText);
        ASSERT_TRUE(support::can_be_nobody()) << "run this as root";
    }

    std::string text() const { return support::read_file(path_); }
    void change(const conf::transaction_options &options = {}) const { conf::set(path_, "s", "k", "new", options); }

    support::SmallDisk folder_{1 << 20};
    const std::string path_ = folder_.path("app.conf");
};

TEST_F(Commit, carries_owner_bits_access_list_and_attributes_over) {
    world::make_special(path_);
    const world::Attributes before = world::attributes_of(path_);
    ASSERT_EQ(before.owner, world::kOwner);
    ASSERT_EQ(before.access_list, world::access_list_for(2345));
    ASSERT_EQ(before.note, "kept");
    change();
    EXPECT_EQ(text(), kChanged);
    EXPECT_EQ(world::attributes_of(path_), before);
}

TEST_F(Commit, carries_the_bits_of_set_id_and_of_odd_modes) {
    for (const mode_t bits : {0U, 0400U, 0444U, 0600U, 0604U, 0666U, 0777U, 04755U, 02755U, 07777U}) {
        ASSERT_EQ(chown(path_.c_str(), world::kOwner, world::kGroup), 0);
        ASSERT_EQ(chmod(path_.c_str(), bits), 0);
        conf::set(path_, "s", "k", bits);
        EXPECT_EQ(world::attributes_of(path_).bits, bits);
        EXPECT_EQ(world::attributes_of(path_).group, world::kGroup);
    }
}

// What the folder gives to new files is not the old file's.
TEST_F(Commit, adds_no_access_list_that_the_old_file_did_not_have) {
    const std::string list = world::access_list_for(2345);
    const std::string folder = std::filesystem::path(path_).parent_path();
    ASSERT_EQ(setxattr(folder.c_str(), "system.posix_acl_default", list.data(), list.size(), 0), 0);
    const world::Attributes before = world::attributes_of(path_);
    ASSERT_EQ(before.access_list, "none");
    change();
    EXPECT_EQ(world::attributes_of(path_), before);

    // A file that is made there gets it, as from `open`.
    conf::set(folder_.path("new.conf"), "s", "k", "v");
    support::write_file(folder_.path("plain"), "");
    EXPECT_EQ(world::attributes_of(folder_.path("new.conf")), world::attributes_of(folder_.path("plain")));
    EXPECT_EQ(world::attributes_of(folder_.path("new.conf")).access_list.size(), list.size());
}

TEST_F(Commit, gives_a_new_file_what_open_would_give_it_where_no_file_goes_without_a_name) {
    umask(022);
    // Which call it is that makes the file without a name.
    int calls = 0;
    int nameless = 0;
    {
        const support::BeforeCall look(support::Call::openat, 0, [&](const support::Arguments &arguments) {
            calls++;
            if ((arguments.at<int>(2) & O_TMPFILE) == O_TMPFILE)
                nameless = calls;
        });
        conf::set(folder_.path("new.conf"), "s", "k", "v");
    }
    ASSERT_GT(nameless, 0);
    unlink(folder_.path("new.conf").c_str());

    const support::FailCall fail(support::Call::openat, EOPNOTSUPP, nameless);
    conf::set(folder_.path("new.conf"), "s", "k", "v");
    EXPECT_EQ(fail.failed(), 1);
    EXPECT_EQ(world::attributes_of(folder_.path("new.conf")).bits, 0644U);
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"app.conf", "new.conf"}));
}

// A member of a group may write a file that somebody else owns, and can't give a new one away.
class OthersFile : public Commit {
  protected:
    void SetUp() override {
        Commit::SetUp();
        ASSERT_EQ(chown(path_.c_str(), world::kOwner, world::kGroup), 0);
        ASSERT_EQ(chmod(path_.c_str(), 06766), 0);
    }
};

TEST_F(OthersFile, is_left_alone_where_its_owner_can_not_be_kept) {
    const int status = support::in_child_as_nobody([this] {
        const korvex::error failure = failure_of([this] { change(); });
        EXPECT_EQ(failure.code(), errc::not_carried_over);
        EXPECT_STREQ(
            failure.what(),
            ("can't replace '" + path_ + "': the new file can't be given its owner: operation not permitted").c_str());
        return testing::Test::HasFailure();
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(text(), kText);
    EXPECT_EQ(world::leftovers(folder_), std::vector<std::string>());
}

TEST_F(OthersFile, is_replaced_without_its_owner_by_who_says_so_and_opens_to_nobody_new) {
    const int status = support::in_child_as_nobody([this] {
        change({.lenient = true});
        return 0;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(text(), kChanged);
    const world::Attributes after = world::attributes_of(path_);
    EXPECT_NE(after.owner, world::kOwner);
    EXPECT_EQ(after.bits, 0766U) << "set-id bits are the old owner's, group bits the old group's";
}

TEST_F(Commit, does_not_take_place_when_the_file_was_changed_meanwhile) {
    struct Row {
        const char *what;
        std::function<void(const std::string &)> change;
    };
    const Row table[] = {
        {"another text", [](const std::string &path) { support::write_file(path, "[s]\nk = other\n"); }},
        {"another text of the same size and time",
         [](const std::string &path) {
             struct stat status {};
             ASSERT_EQ(stat(path.c_str(), &status), 0);
             support::write_file(path, "[s]\nk = odd\n");
             const timespec times[] = {status.st_atim, status.st_mtim};
             ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
         }},
        {"another time",
         [](const std::string &path) {
             const timespec times[] = {{1, 1}, {1, 1}};
             ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
         }},
        {"another file of the same text",
         [](const std::string &path) {
             support::write_file(path + ".new", kText);
             ASSERT_EQ(rename((path + ".new").c_str(), path.c_str()), 0);
         }},
        {"no file any more", [](const std::string &path) { ASSERT_EQ(unlink(path.c_str()), 0); }},
    };
    for (const Row &row : table) {
        SCOPED_TRACE(row.what);
        support::write_file(path_, kText);
        transaction edit(path_);
        edit.set("s", "k", "new");
        row.change(path_);
        const std::string left = support::exists(path_) ? text() : "none";
        const korvex::error failure = failure_of([&] { edit.commit(); });
        EXPECT_EQ(failure.code(), errc::changed_meanwhile);
        EXPECT_EQ(support::exists(path_) ? text() : "none", left);
    }
    EXPECT_EQ(world::leftovers(folder_), std::vector<std::string>());
}

TEST_F(Commit, of_no_change_looks_at_the_file_all_the_same) {
    transaction edit(path_);
    support::write_file(path_, "[s]\nk = other\n");
    EXPECT_EQ(failure_of([&] { edit.commit(); }).code(), errc::changed_meanwhile);
}

TEST_F(Commit, does_not_overwrite_a_file_that_somebody_made_meanwhile) {
    const std::string path = folder_.path("new.conf");
    transaction edit(path);
    edit.set("s", "k", "new");
    support::write_file(path, "theirs");
    EXPECT_EQ(failure_of([&] { edit.commit(); }).code(), errc::changed_meanwhile);
    EXPECT_EQ(support::read_file(path), "theirs");
}

TEST_F(Commit, that_is_forced_takes_place_over_another_change) {
    transaction edit(path_, {.force = true});
    edit.set("s", "k", "new");
    support::write_file(path_ + ".new", "[s]\nk = other\n");
    ASSERT_EQ(chmod((path_ + ".new").c_str(), 0604), 0);
    ASSERT_EQ(rename((path_ + ".new").c_str(), path_.c_str()), 0);
    edit.commit();
    EXPECT_EQ(text(), kChanged);
    EXPECT_EQ(world::attributes_of(path_).bits, 0604U) << "the attributes of the file that is replaced";
}

TEST_F(Commit, takes_place_only_if_values_are_the_expected_ones) {
    struct Row {
        std::string section, key;
        std::optional<std::string_view> value;
        const char *reason;  // null: it takes place
    };
    const Row table[] = {
        {"s", "k", "old", nullptr},
        {"s", "none", std::nullopt, nullptr},
        {"none", "k", std::nullopt, nullptr},
        {"s", "k", "other", "'k' of [s] is 'old', expected 'other'"},
        {"s", "k", std::nullopt, "'k' of [s] is 'old', expected absent"},
        {"s", "none", "old", "'none' of [s] is absent, expected 'old'"},
    };
    for (const Row &row : table) {
        support::write_file(path_, kText);
        transaction edit(path_);
        edit.set("s", "k", "new");  // what it was counts, not what it will be
        edit.set("s", "l", "more");
        edit.expect(row.section, row.key, row.value);
        if (row.reason == nullptr) {
            edit.commit();
            EXPECT_THAT(conf::get(path_, "s", "k"), Optional(std::string("new")));
            continue;
        }
        const korvex::error failure = failure_of([&] { edit.commit(); });
        EXPECT_EQ(failure.code(), errc::expectation_failed);
        EXPECT_THAT(failure.what(), HasSubstr(row.reason));
        EXPECT_EQ(text(), kText);
    }
}

TEST_F(Commit, does_not_take_place_without_its_lock) {
    {
        transaction edit(path_);
        edit.set("s", "k", "new");
        ASSERT_EQ(unlink(kLock), 0);
        EXPECT_EQ(failure_of([&] { edit.commit(); }).code(), errc::lock_lost);
        support::write_file(kLock, support::lock_bytes(static_cast<int64_t>(Tick_Diff(0)), getppid()));
        EXPECT_EQ(failure_of([&] { edit.commit(); }).code(), errc::lock_lost);
    }
    EXPECT_EQ(text(), kText);
    EXPECT_EQ(world::leftovers(folder_), std::vector<std::string>());
    unlink(kLock);
}

TEST_F(Commit, does_not_take_place_after_ten_minutes) {
    support::FakeClock clock;
    transaction edit(path_);
    edit.set("s", "k", "new");
    clock.advance(596'000);
    const korvex::error failure = failure_of([&] { edit.commit(); });
    EXPECT_EQ(failure.code(), errc::lock_lost);
    EXPECT_EQ(failure.code(), std::errc::no_lock_available);
    EXPECT_EQ(text(), kText);
    clock.advance(-10'000);
    edit.commit();
    EXPECT_EQ(text(), kChanged);
}

TEST_F(Commit, keeps_the_old_file_as_a_backup) {
    world::make_special(path_);
    const world::Attributes before = world::attributes_of(path_);
    struct stat old_file {};
    struct stat backup {};
    ASSERT_EQ(stat(path_.c_str(), &old_file), 0);
    change({.backup = "~"});
    ASSERT_EQ(stat((path_ + "~").c_str(), &backup), 0);
    EXPECT_EQ(backup.st_ino, old_file.st_ino);
    EXPECT_EQ(support::read_file(path_ + "~"), kText);
    EXPECT_EQ(world::attributes_of(path_ + "~"), before);

    conf::set(path_, "s", "k", "newer", {.backup = "~"});
    EXPECT_EQ(support::read_file(path_ + "~"), kChanged);
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"app.conf", "app.conf~"}));

    // The backup is the file's other name already.
    unlink((path_ + "~").c_str());
    ASSERT_EQ(link(path_.c_str(), (path_ + "~").c_str()), 0);
    change({.backup = "~"});
    EXPECT_THAT(support::read_file(path_ + "~"), HasSubstr("newer"));
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"app.conf", "app.conf~"}));
}

TEST_F(Commit, of_a_new_file_has_no_backup) {
    conf::set(folder_.path("new.conf"), "s", "k", "v", {.backup = "~"});
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"app.conf", "new.conf"}));
    EXPECT_EQ(failure_of([&] { change({.backup = "/etc/x"}); }).code(), std::errc::invalid_argument);
}

TEST_F(Commit, can_be_tried_again_after_a_failure) {
    std::filesystem::create_directory(path_ + "~");
    transaction edit(path_, {.backup = "~"});
    edit.set("s", "k", "new");
    const korvex::error failure = failure_of([&] { edit.commit(); });
    EXPECT_EQ(failure.code(), std::errc::is_a_directory) << failure.what();
    EXPECT_EQ(text(), kText);
    std::filesystem::remove(path_ + "~");
    edit.commit();
    EXPECT_EQ(text(), kChanged);
}

TEST_F(Commit, follows_no_link_that_belongs_to_another_user) {
    const std::string link = folder_.path("link.conf");
    ASSERT_EQ(symlink("app.conf", link.c_str()), 0);
    conf::set(link, "s", "k", "new");
    EXPECT_EQ(text(), kChanged);
    ASSERT_EQ(lchown(link.c_str(), world::kOwner, world::kGroup), 0);
    const korvex::error failure = failure_of([&] { conf::set(link, "s", "k", "newer"); });
    EXPECT_EQ(failure.code(), std::errc::too_many_symbolic_link_levels);
    EXPECT_THAT(failure.what(), HasSubstr("a link that belongs to another user"));
    EXPECT_EQ(text(), kChanged);
}

TEST_F(Commit, reads_no_file_of_a_size_that_no_configuration_has) {
    ASSERT_EQ(truncate(path_.c_str(), off_t{1} << 40), 0);
    EXPECT_EQ(failure_of([&] { change(); }).code(), std::errc::file_too_large);
    EXPECT_EQ(failure_of([&] { (void)conf::document::read(path_); }).code(), std::errc::file_too_large);
    ASSERT_EQ(truncate(path_.c_str(), 0), 0);
}

// Somebody who owns the folder puts another file where root edits its private copy.
TEST_F(Commit, does_not_take_what_somebody_put_in_the_copys_place) {
    const std::string secret = folder_.file("secret", "[s]\nsecret = of root\nmore = of it\n");
    transaction edit(path_);
    edit.set("s", "l", "more");
    const std::vector<std::string> names = world::leftovers(folder_);
    const auto copy = std::find_if(names.begin(), names.end(),
                                   [](const std::string &name) { return Check_Temp_Filename(name.c_str()) == 0; });
    ASSERT_NE(copy, names.end());
    unlink(folder_.path(*copy).c_str());
    ASSERT_EQ(symlink("secret", folder_.path(*copy).c_str()), 0);
    EXPECT_EQ(failure_of([&] { edit.set("s", "k", "new"); }).code(), errc::changed_meanwhile);
    EXPECT_EQ(failure_of([&] { edit.commit(); }).code(), errc::changed_meanwhile);
    EXPECT_EQ(text(), kText);
    EXPECT_EQ(support::read_file(secret), "[s]\nsecret = of root\nmore = of it\n");
}

}  // namespace
