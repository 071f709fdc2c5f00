// Logs through the C++ layer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

#include "conffile.h"
#include "failure_of.h"
#include "faults.h"
#include "korvex/error.hpp"
#include "korvex/log.hpp"
#include "sandbox.h"

namespace {

using support::failure_of;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;

static_assert(!std::is_copy_constructible_v<korvex::log> && std::is_nothrow_move_constructible_v<korvex::log>);

class Log : public testing::Test {
  protected:
    std::string content() const { return support::read_file(path_); }

    support::TempFolder folder_;
    const std::string path_ = folder_.path("app.log");
};

TEST_F(Log, appends_stamped_lines) {
    support::write_file(path_, "before\n");
    korvex::log log(path_);
    log.write("100 % done");
    log.write("with its line feed\n");
    EXPECT_THAT(content(), ContainsRegex("^before\n"
                                         "\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\\] 100 % done\n"
                                         "\\[[-0-9 :]*\\] with its line feed\n$"));
    EXPECT_EQ(log.path(), path_);
}

TEST_F(Log, stamps_as_the_options_say_and_empties_the_file) {
    support::write_file(path_, "before\n");
    korvex::log log(path_, {.clock = korvex::hour_clock::h12, .date = korvex::date_format::dmy_dots, .truncate = true});
    log.write("x");
    EXPECT_THAT(content(), ContainsRegex("^\\[[0-9]{2}\\.[0-9]{2}\\.[0-9]{4} [0-9:]{8} [ap]m\\] x\n$"));
}

TEST_F(Log, makes_the_folders_above_it) {
    korvex::log log(folder_.path("a/b/c.log"));
    log.write("x");
    EXPECT_TRUE(support::exists(folder_.path("a/b/c.log")));
}

TEST_F(Log, keeps_a_file_that_stands_where_a_folder_is_needed) {
    const std::string precious = folder_.file("a", "precious");
    for (const char *path : {"a/c.log", "a/b/c.log"}) {
        const korvex::error failure = failure_of([&] { korvex::log log(folder_.path(path)); });
        EXPECT_EQ(failure.code(), std::errc::not_a_directory) << failure.what();
    }
    EXPECT_EQ(support::read_file(precious), "precious");
}

TEST_F(Log, refuses_a_relative_path) {
    const korvex::error failure = failure_of([] { korvex::log log("app.log"); });
    EXPECT_STREQ(failure.what(), "can't make the log 'app.log': its path must be absolute");
    EXPECT_EQ(failure.code(), std::errc::invalid_argument);
}

TEST_F(Log, says_why_it_can_not_be_opened) {
    const korvex::error failure = failure_of([&] { korvex::log log(folder_.path()); });
    EXPECT_EQ(failure.code(), std::errc::is_a_directory);
    EXPECT_EQ(failure.subject(), folder_.path());
}

TEST_F(Log, writes_the_longest_line_whole_and_refuses_a_longer_one) {
    korvex::log log(path_, {.clock = korvex::hour_clock::h12});
    log.write(std::string(korvex::log::longest_line, 'x'));
    EXPECT_THAT(content(), testing::EndsWith("x\n"));
    EXPECT_EQ(content().size(), korvex::log::longest_line + 26);
    const korvex::error failure = failure_of([&] { log.write(std::string(korvex::log::longest_line + 1, 'x')); });
    EXPECT_EQ(failure.code(), std::errc::value_too_large);
    EXPECT_EQ(content().size(), korvex::log::longest_line + 26);
}

TEST_F(Log, refuses_a_line_that_would_be_cut_at_a_nul) {
    korvex::log log(path_);
    EXPECT_EQ(failure_of([&] { log.write(std::string_view("a\0b", 3)); }).code(), std::errc::invalid_argument);
    EXPECT_THAT(content(), IsEmpty());
}

TEST_F(Log, tells_of_a_full_disk) {
    const support::SmallDisk disk(1 << 16);
    korvex::log log(disk.path("full.log"));
    disk.fill_up_to(0);
    const korvex::error failure = failure_of([&] {
        for (int line = 0; line < 1000; line++)
            log.write(std::string(1000, 'x'));
    });
    EXPECT_EQ(failure.code(), std::errc::no_space_on_device) << failure.what();
    EXPECT_EQ(failure.subject(), disk.path("full.log"));
}

TEST_F(Log, goes_on_in_a_new_file_when_it_is_opened_anew) {
    korvex::log log(path_);
    log.write("old");
    ASSERT_EQ(rename(path_.c_str(), folder_.path("app.log.1").c_str()), 0);
    log.reopen();
    log.write("new");
    EXPECT_THAT(content(), HasSubstr("new"));
    EXPECT_THAT(support::read_file(folder_.path("app.log.1")), HasSubstr("old"));
}

TEST_F(Log, writes_to_standard_output) {
    const std::string text = support::capture_stdout([] {
        korvex::log log = korvex::log::standard_output();
        log.write("hello");
        EXPECT_THAT(std::string(log.path()), IsEmpty());
    });
    EXPECT_THAT(text, HasSubstr("] hello\n"));
}

// What libc allocates when it looks for the time zone, it does for the C call, too.
TEST_F(Log, allocates_nothing_besides_what_the_c_call_does) {
    constexpr const char *kText = "a line that is longer than what a std::string keeps in itself";
    korvex::log log(path_);
    log.write(kText);
    const support::CountCalls of_c(support::Call::malloc);
    ASSERT_EQ(Simp_Log_Write(log.handle(), "%s", kText), 0);
    const int64_t expected = of_c.count();
    const support::CountCalls of_layer(support::Call::malloc);
    log.write(kText);
    EXPECT_EQ(of_layer.count(), expected);
}

TEST_F(Log, takes_the_librarys_messages_for_as_long_as_it_is_told) {
    korvex::log log(path_);
    const auto say_something = [&] { Update_Conf_File(folder_.path("none/x.conf").c_str(), nullptr); };
    {
        const korvex::library_log messages(log, korvex::log_level::errors);
        say_something();
        const std::string said = content();
        EXPECT_THAT(said, HasSubstr("[error] Update_Conf_File"));
        {
            const korvex::library_log silence(log, korvex::log_level::none);
            say_something();
        }
        EXPECT_EQ(content(), said);
        EXPECT_EQ(g_ptslLog, log.handle());
        EXPECT_EQ(g_idLogLevel, 1);
    }
    EXPECT_EQ(g_ptslLog, nullptr);
}

}  // namespace
