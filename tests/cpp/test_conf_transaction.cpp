// Several changes of a configuration file as one step.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <random>
#include <string>

#include "conffile.h"
#include "failure_of.h"
#include "faults.h"
#include "korvex/conf.hpp"
#include "lease_holder.h"
#include "lock_content.h"
#include "sandbox.h"
#include "transaction_world.h"

namespace {

namespace conf = korvex::conf;
using conf::transaction;
using korvex::errc;
using support::failure_of;
using testing::Optional;

class Transaction : public testing::Test {
  protected:
    void SetUp() override { support::empty_lock_folder(); }

    void write(const std::string &text) const { support::write_file(path_, text); }
    std::string text() const { return support::read_file(path_); }

    // The file after a change of [s] k to v.
    std::string after_set(const std::string &before, const std::string &section = "s") const {
        write(before);
        transaction edit(path_);
        edit.set(section, "k", "v");
        edit.commit();
        return text();
    }

    support::TempFolder folder_;
    const std::string path_ = folder_.path("app.conf");
    const std::vector<std::string> alone_ = {"app.conf"};
};

constexpr const char *kText = "# top\n[s]\na = 1\n  k   =  old  \n; between\n\n[t]\nx = y\n";

TEST_F(Transaction, changes_several_keys_at_once_and_no_other_byte) {
    write(kText);
    transaction edit(path_);
    edit.set("s", "k", "new");
    edit.set("t", "added", 7);
    edit.set("u", "first", true);
    EXPECT_TRUE(edit.erase("s", "a"));
    EXPECT_EQ(text(), kText) << "seen before the commit";
    edit.commit();
    EXPECT_EQ(text(), "# top\n[s]\nk = new\n; between\n\n[t]\nx = y\nadded = 7\n\n[u]\nfirst = yes\n");
    EXPECT_EQ(folder_.names(), alone_);
    EXPECT_FALSE(support::exists("/var/lock/_app.conf.lck"));
}

TEST_F(Transaction, that_is_let_go_changes_nothing_and_leaves_nothing) {
    write(kText);
    {
        transaction edit(path_);
        edit.set("s", "k", "new");
        EXPECT_EQ(transaction_world::leftovers(folder_).size(), 1U);
    }
    EXPECT_EQ(text(), kText);
    EXPECT_EQ(folder_.names(), alone_);
    EXPECT_TRUE(std::filesystem::is_empty("/var/lock"));
}

TEST_F(Transaction, reads_what_it_wrote) {
    write(kText);
    transaction edit(path_);
    EXPECT_THAT(edit.get("s", "k"), Optional(std::string("old")));
    edit.set("s", "k", 41);
    edit.set("s", "k", edit.get_as<int>("s", "k").value() + 1);
    EXPECT_THAT(edit.get_as<int>("s", "k"), Optional(42));
    EXPECT_EQ(edit.get("s", "none"), std::nullopt);
    EXPECT_FALSE(edit.erase("s", "none"));
    EXPECT_FALSE(edit.erase("none", "k"));
    EXPECT_EQ(failure_of([&] { (void)edit.get_as<bool>("s", "k"); }).code(), errc::not_a_number);
}

TEST_F(Transaction, that_changed_nothing_writes_nothing) {
    write(kText);
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat(path_.c_str(), &before), 0);
    transaction edit(path_);
    edit.set("s", "k", "old");
    edit.commit();
    ASSERT_EQ(stat(path_.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(text(), kText);
}

TEST_F(Transaction, is_over_after_its_commit) {
    write(kText);
    transaction edit(path_);
    edit.commit();
    EXPECT_STREQ(failure_of([&] { edit.commit(); }).what(), "can't go on with 'the transaction': it is committed");
    EXPECT_EQ(failure_of([&] { edit.set("s", "k", "v"); }).code(), std::errc::invalid_argument);
    EXPECT_EQ(failure_of([&] { (void)edit.diff(); }).code(), std::errc::invalid_argument);
}

TEST_F(Transaction, moves) {
    write(kText);
    transaction first(path_);
    first.set("s", "k", "new");
    transaction second = std::move(first);
    second.commit();
    EXPECT_THAT(conf::get(path_, "s", "k"), Optional(std::string("new")));
}

TEST_F(Transaction, makes_a_file_that_reads_back) {
    for (const char *section : {"", "s"}) {
        unlink(path_.c_str());
        umask(027);
        transaction edit(path_);
        edit.set(section, "k", "v");
        EXPECT_FALSE(support::exists(path_));
        edit.commit();
        umask(022);
        EXPECT_THAT(conf::get(path_, section, "k"), Optional(std::string("v")));
        EXPECT_EQ(transaction_world::attributes_of(path_).bits, 0640U);
        EXPECT_EQ(folder_.names(), alone_);
    }
}

// What the editor would drop or stumble over stays.
TEST_F(Transaction, keeps_line_ends_marks_and_empty_lines) {
    struct Row {
        std::string before, after;
    };
    const Row table[] = {
        {"[s]\nk = 1\n", "[s]\nk = v\n"},
        {"[s]\r\nk = 1\r\nb = 2\r\n", "[s]\r\nk = v\r\nb = 2\r\n"},
        {"[s]\r\nb = 2\r\n\r\n[t]\r\n", "[s]\r\nb = 2\r\nk = v\r\n\r\n[t]\r\n"},
        {"[s]\r\nk = 1\nb = 2\r\n", "[s]\r\nk = v\nb = 2\r\n"},
        {"[s]\r\nk = 1\r\nlast", "[s]\r\nk = v\r\nlast"},
        {"\xEF\xBB\xBF[s]\nk = 1\n", "\xEF\xBB\xBF[s]\nk = v\n"},
        {"\xEF\xBB\xBF[s]\r\nk = 1\r\n", "\xEF\xBB\xBF[s]\r\nk = v\r\n"},
        {"\n\n[s]\nk = 1\n", "\n\n[s]\nk = v\n"},
        {"\n\n[s]\nb = 2\n", "\n\n[s]\nb = 2\nk = v\n\n"},
        {"\n\n[t]\nb = 2\n", "\n\n[t]\nb = 2\n\n[s]\nk = v\n"},
        {"\r\n\r\n[t]\r\n", "\r\n\r\n[t]\r\n\r\n[s]\r\nk = v\r\n"},
        {"[s]\nk = 1", "[s]\nk = v"},
        {"[s]\nb = 2", "[s]\nb = 2\nk = v"},
        {"[t]\nb = 2", "[t]\nb = 2\n\n[s]\nk = v"},
        {"", "[s]\nk = v\n"},
        {"\n", "\n[s]\nk = v\n"},
        {std::string("[s]\nz = a\0b\nk = 1\n", 17), std::string("[s]\nz = a\0b\nk = v\n", 17)},
    };
    for (const Row &row : table)
        EXPECT_EQ(after_set(row.before), row.after);
}

TEST_F(Transaction, puts_keys_before_the_first_section_at_the_top) {
    EXPECT_EQ(after_set("", ""), "k = v\n\n");
    EXPECT_EQ(after_set("[t]\nx = y\n", ""), "k = v\n\n[t]\nx = y\n");
    EXPECT_EQ(after_set("# c\n[t]\nx = y\n", ""), "# c\nk = v\n\n[t]\nx = y\n");
    EXPECT_EQ(after_set("\n\n[t]\n", ""), "\n\nk = v\n\n[t]\n");
}

TEST_F(Transaction, keeps_an_empty_line_that_comes_first_when_what_was_before_it_goes) {
    write("a = 1\n\n[s]\nk = 1\n");
    transaction edit(path_);
    edit.erase("", "a");
    edit.set("s", "n", "2");
    edit.commit();
    EXPECT_EQ(text(), "\n[s]\nk = 1\nn = 2\n\n");
}

// Random texts and edits: on what needs no care of the transaction's own it does what the setters do, byte for byte.
TEST_F(Transaction, edits_as_the_setters_do) {
    std::mt19937 random(17);
    const auto number = [&](unsigned most) { return random() % (most + 1); };
    const std::string lines[] = {"[s]", "[t]",  "[u] x", "a = 1", "a=2",     " b = 3", "b =",  "# a", "; [s]", "",
                                 "",    "junk", "= 4",   "]",     "c = [x]", "[]",     "a = ", "  ",  "[t]]"};
    const std::string other = folder_.path("other.conf");
    for (int round = 0; round < 150 && !HasFailure(); round++) {
        std::string before = "top = 1\n";  // neither empty lines nor a new key come first
        for (unsigned count = number(12); count > 0; count--)
            before += lines[number(std::size(lines) - 1)] + "\n";
        SCOPED_TRACE(before);
        write(before);
        support::write_file(other, before);
        transaction edit(path_, {.durable = false});
        for (unsigned count = 1 + number(3); count > 0; count--) {
            const std::string section = std::string(1, "stuvw"[number(4)]);
            const std::string key = std::string(1, "abcd"[number(3)]);
            if (number(2) == 0) {
                const bool is_there =
                    Set_Conf_File_String_Value(other.c_str(), section.c_str(), key.c_str(), nullptr) == 0;
                EXPECT_EQ(edit.erase(section, key), is_there);
                continue;
            }
            const std::string value = std::to_string(100 + number(99));
            ASSERT_EQ(Set_Conf_File_String_Value(other.c_str(), section.c_str(), key.c_str(), value.c_str()), 0);
            ASSERT_NO_THROW(edit.set(section, key, value));
        }
        ASSERT_NO_THROW(edit.commit());
        EXPECT_EQ(text(), support::read_file(other));
    }
}

// To the library a line that begins with "[" ends a section only where a "]" follows anywhere behind it.
TEST_F(Transaction, refuses_what_would_make_other_keys_read_otherwise) {
    const struct {
        std::string before;
        std::string section;
        std::string key;
        std::string value;
    } rows[] = {
        {"[s]\na = 1\n[bad\nb = 2\n", "t", "k", "v"},
        {"[s]\na = 1\n[bad\nb = 2\n", "s", "k", "[v]"},
        {"[bad\n[s]\na = 1\n[bad\nb = 2", "t", "k", "v"},
        {"[s]\na = 1\n[bad\nb = 2\nc = [3]\nd = 4\n[\nd = 5", "t", "z", "]"},
    };
    for (const auto &[before, section, key, value] : rows) {
        SCOPED_TRACE(before);
        write(before);
        transaction edit(path_);
        edit.set("s", "a", "9");
        const auto failure = failure_of([&, s = section, k = key, v = value] { edit.set(s, k, v); });
        EXPECT_EQ(failure.code(), errc::would_not_read_back);
        EXPECT_EQ(failure.reason(), "a line begins with '[' and has no ']': it would change its meaning");
        EXPECT_EQ(edit.get(section, key), std::nullopt);
        EXPECT_EQ(edit.get("s", "a"), "9");
        edit.commit();
        EXPECT_EQ(conf::get(path_, "s", "a"), "9") << "what went before stays";
    }
    write(rows[0].before);
    transaction edit(path_);
    edit.set("s", "k", "no bracket");
    edit.commit();
    EXPECT_EQ(text(), rows[0].before + "k = no bracket\n\n");
}

TEST_F(Transaction, sets_keys_of_any_length) {
    write(kText);
    transaction edit(path_);
    edit.set(std::string(300, 's'), std::string(400, 'k'), std::string(100'000, 'v'));
    EXPECT_EQ(edit.get(std::string(300, 's'), std::string(400, 'k'))->size(), 100'000U);
    edit.commit();
    EXPECT_EQ(conf::get(path_, std::string(300, 's'), std::string(400, 'k'))->size(), 100'000U);
}

TEST_F(Transaction, edits_the_file_that_a_link_leads_to) {
    std::filesystem::create_directory(folder_.path("real"));
    const std::string real = folder_.path("real/file.conf");
    support::write_file(real, kText);
    ASSERT_EQ(symlink("real/file.conf", folder_.path("middle").c_str()), 0);
    ASSERT_EQ(symlink("middle", path_.c_str()), 0);
    transaction edit(path_);
    EXPECT_EQ(edit.path(), real);
    EXPECT_TRUE(support::exists("/var/lock/_file.conf.lck"));
    edit.set("s", "k", "new");
    edit.commit();
    EXPECT_TRUE(std::filesystem::is_symlink(path_));
    EXPECT_THAT(conf::get(real, "s", "k"), Optional(std::string("new")));
}

TEST_F(Transaction, leaves_the_old_text_to_other_hard_links) {
    write(kText);
    std::filesystem::create_hard_link(path_, folder_.path("other name"));
    transaction edit(path_, {.backup = "~"});
    edit.set("s", "a", 2);
    edit.commit();
    EXPECT_EQ(conf::get(path_, "s", "a"), "2");
    EXPECT_EQ(support::read_file(folder_.path("other name")), kText);
    EXPECT_TRUE(std::filesystem::equivalent(path_ + "~", folder_.path("other name"))) << "the backup is the old file";
}

TEST_F(Transaction, makes_the_file_that_a_link_leads_to_in_vain) {
    std::filesystem::create_directory(folder_.path("real"));
    ASSERT_EQ(symlink("real/file.conf", path_.c_str()), 0);
    conf::set(path_, "s", "k", "v");
    EXPECT_TRUE(std::filesystem::is_symlink(path_));
    EXPECT_EQ(support::read_file(folder_.path("real/file.conf")), "[s]\nk = v\n");
}

TEST_F(Transaction, refuses_what_is_no_file_and_where_no_folder_is) {
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(failure_of([&] { transaction edit(path_); }).code(), errc::not_a_regular_file);
    EXPECT_EQ(failure_of([&] { transaction edit(folder_.path()); }).code(), errc::not_a_regular_file);
    const korvex::error failure = failure_of([&] { transaction edit(folder_.path("none/app.conf")); });
    EXPECT_EQ(failure.code(), std::errc::no_such_file_or_directory) << failure.what();
    ASSERT_EQ(symlink("loop", folder_.path("loop").c_str()), 0);
    EXPECT_EQ(failure_of([&] { transaction edit(folder_.path("loop")); }).code(),
              std::errc::too_many_symbolic_link_levels);
    EXPECT_EQ(failure_of([&] { transaction edit(""); }).code(), std::errc::no_such_file_or_directory);
    EXPECT_TRUE(std::filesystem::is_empty("/var/lock"));
}

TEST_F(Transaction, works_with_a_relative_path) {
    write(kText);
    std::filesystem::current_path(folder_.path());
    conf::set("app.conf", "s", "k", "new");
    EXPECT_THAT(conf::get("app.conf", "s", "k"), Optional(std::string("new")));
    std::filesystem::current_path("/");
}

TEST_F(Transaction, holds_the_lock_that_the_setters_take) {
    write(kText);
    transaction edit(path_);
    const korvex::lock_state state = korvex::inspect(path_);
    EXPECT_EQ(state.status, korvex::lock_status::held);
    EXPECT_EQ(state.pid, getpid());
    const korvex::error failure = failure_of([&] { transaction other(path_, {.wait = std::chrono::milliseconds(5)}); });
    EXPECT_EQ(failure.code(), errc::lock_not_obtained);
}

TEST_F(Transaction, waits_until_it_is_stopped) {
    write(kText);
    support::write_file("/var/lock/_app.conf.lck", support::lock_bytes(static_cast<int64_t>(Tick_Diff(0)), getppid()));
    std::stop_source source;
    source.request_stop();
    const korvex::error failure =
        failure_of([&] { transaction edit(path_, {.wait = korvex::forever, .stop = source.get_token()}); });
    EXPECT_EQ(failure.code(), std::errc::operation_canceled);
}

TEST_F(Transaction, tells_its_change_beforehand) {
    write("[s]\nk = old\n");
    transaction edit(path_);
    EXPECT_EQ(edit.diff(), "");
    edit.set("s", "k", "new");
    EXPECT_EQ(edit.diff(), "--- " + path_ + "\n+++ " + path_ + "\n@@ -1,2 +1,2 @@\n [s]\n-k = old\n+k = new\n");
}

TEST_F(Transaction, takes_another_text_as_a_whole) {
    write("\xEF\xBB\xBF\r\n[s]\r\nk = old\r\n");
    transaction edit(path_);
    EXPECT_EQ(edit.text(), "[s]\nk = old\n");
    edit.rewrite("\n[t]\nx = y\n");
    EXPECT_EQ(edit.text(), "[t]\nx = y\n");
    EXPECT_EQ(edit.get("s", "k"), std::nullopt);
    edit.set("t", "x", "z");
    edit.expect("s", "k", "old");
    edit.commit();
    EXPECT_EQ(text(), "\xEF\xBB\xBF\r\n\r\n[t]\r\nx = z\r\n");
}

TEST_F(Transaction, tells_the_files_text_with_marks_and_line_ends) {
    write("\xEF\xBB\xBF[s]\r\nk = old\r\n");
    transaction edit(path_);
    EXPECT_EQ(edit.file_text(), "\xEF\xBB\xBF[s]\r\nk = old\r\n");
    edit.set("s", "k", "new");
    EXPECT_EQ(edit.file_text(), "\xEF\xBB\xBF[s]\r\nk = new\r\n");
    edit.commit();
    EXPECT_EQ(failure_of([&] { (void)edit.file_text(); }).code(), std::errc::invalid_argument);
}

TEST_F(Transaction, leaves_no_descriptor_open) {
    write(kText);
    const auto before = support::open_descriptors();
    {
        transaction edit(path_);
        edit.set("s", "k", "1");
        edit.set("s", "k", "2");
        edit.commit();
    }
    { transaction edit(path_); }
    (void)failure_of([&] { transaction edit(folder_.path("none/x")); });
    EXPECT_EQ(support::open_descriptors(), before);
}

TEST_F(Transaction, waits_for_a_lease_as_a_plain_open_does) {
    write(kText);
    LeaseHolder holder(path_);
    transaction edit(path_);
    edit.set("s", "k", "new");
    edit.commit();
    EXPECT_EQ(korvex::conf::get(path_, "s", "k"), "new");
    holder.expect_asked();
}

}  // namespace
