// Failures: their codes, their words, and what they compare equal with.
#include <gtest/gtest.h>

#include <filesystem>
#include <type_traits>

#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/error.hpp"
#include "korvex/path_view.hpp"

namespace {

using korvex::errc;

struct Words {
    int code;
    const char *text;
};

TEST(Category, says_what_happened_here) {
    const Words table[] = {
        {ENOANO, "no such section"},
        {ENODATA, "no such key"},
        {ENOMEDIUM, "not a regular file"},
        {ENOLCK, "the lock was not obtained in 10 s"},
        {EXFULL, "the queue is full or stopped"},
        {EACCES, "permission denied"},
        {static_cast<int>(errc::changed_meanwhile), "somebody changed the file meanwhile"},
    };
    for (const Words &row : table)
        EXPECT_EQ(korvex::category().message(row.code), row.text);
}

TEST(Category, has_words_for_each_code) {
    for (const korvex::detail::code_text &known : korvex::detail::code_texts)
        EXPECT_EQ(korvex::category().message(known.code), known.text);
    for (int code = static_cast<int>(errc::changed_meanwhile); code <= static_cast<int>(errc::not_a_number); code++)
        EXPECT_EQ(korvex::category().message(code).find("nknown"), std::string::npos) << code;
}

TEST(Category, equals_the_standard_conditions) {
    const auto code = [](int value) { return std::error_code(value, korvex::category()); };
    EXPECT_EQ(code(ENOENT), std::errc::no_such_file_or_directory);
    EXPECT_EQ(code(ECANCELED), std::errc::operation_canceled);
    EXPECT_EQ(code(ENOSPC), std::errc::no_space_on_device);
    EXPECT_EQ(code(ENOLCK), std::errc::no_lock_available);
    EXPECT_EQ(code(ETIME), std::errc::timed_out);
    EXPECT_EQ(code(ETIME), std::errc::stream_timeout);
    EXPECT_EQ(make_error_code(errc::lock_lost), std::errc::no_lock_available);
    EXPECT_EQ(make_error_code(errc::would_not_read_back), std::errc::invalid_argument);
    EXPECT_NE(make_error_code(errc::changed_meanwhile), std::errc::invalid_argument);
}

TEST(Error, says_in_one_line_what_failed_on_what_and_why) {
    const korvex::error failure(ENOENT, "can't read", "/etc/app.conf");
    EXPECT_STREQ(failure.what(), "can't read '/etc/app.conf': no such file or folder");
    EXPECT_EQ(failure.subject(), "/etc/app.conf");
    EXPECT_EQ(failure.reason(), "no such file or folder");
    EXPECT_EQ(failure.code(), std::errc::no_such_file_or_directory);
}

TEST(Error, can_have_a_reason_of_its_own) {
    const korvex::error failure(errc::lock_not_obtained, "can't lock", "a", "the lock was not obtained in 3 s");
    EXPECT_STREQ(failure.what(), "can't lock 'a': the lock was not obtained in 3 s");
    EXPECT_EQ(failure.code(), errc::lock_not_obtained);
    EXPECT_EQ(failure.code().value(), ENOLCK);
}

TEST(Error, is_a_system_error_that_copies_without_throwing) {
    static_assert(std::is_base_of_v<std::system_error, korvex::error>);
    static_assert(std::is_nothrow_copy_constructible_v<korvex::error>);
    static_assert(std::is_nothrow_copy_assignable_v<korvex::error>);
}

TEST(Check, gives_back_counts_and_throws_negated_codes) {
    EXPECT_EQ(korvex::detail::check(7, "can't", "x"), 7);
    try {
        korvex::detail::check(-ENOANO, "can't read", "/x");
        FAIL() << "nothing was thrown";
    } catch (const korvex::error &failure) {
        EXPECT_EQ(failure.code(), errc::no_such_section);
    }
}

TEST(Milliseconds, are_bounded_and_negative_for_no_limit) {
    using std::chrono::milliseconds;
    EXPECT_EQ(korvex::detail::milliseconds_of(korvex::forever), -1);
    EXPECT_EQ(korvex::detail::milliseconds_of(milliseconds(-7)), -1);
    EXPECT_EQ(korvex::detail::milliseconds_of(milliseconds(0)), 0);
    EXPECT_EQ(korvex::detail::milliseconds_of(std::chrono::seconds(10)), 10'000);
    EXPECT_EQ(korvex::detail::milliseconds_of(milliseconds::max()), INT32_MAX);
}

TEST(CText, ends_a_view_with_a_nul_wherever_it_is_stored) {
    for (const size_t size : {size_t{0}, size_t{1}, size_t{254}, size_t{255}, size_t{256}, size_t{257}, size_t{9000}}) {
        const std::string text(size, 'a');
        const std::string longer = text + "more";
        const korvex::detail::c_text<> copy(std::string_view(longer).substr(0, size));
        EXPECT_STREQ(copy.get(), text.c_str());
    }
    EXPECT_STREQ(korvex::detail::c_text<>(std::string_view()).get(), "");
}

TEST(CText, refuses_a_nul_inside) {
    try {
        const korvex::detail::c_text<> copy(std::string_view("ab\0cd", 5));
        FAIL() << "nothing was thrown";
    } catch (const korvex::error &failure) {
        EXPECT_EQ(failure.code(), std::errc::invalid_argument);
        EXPECT_STREQ(failure.what(), "can't use 'ab': a NUL follows it");
    }
}

std::string_view as_given(korvex::path_view path) {
    return path;
}

TEST(PathView, takes_texts_and_paths_without_a_copy) {
    const std::string text = "/etc/app.conf";
    const std::filesystem::path path = text;
    const char *const literal = "/etc/app.conf";
    EXPECT_EQ(as_given(literal).data(), literal);
    EXPECT_EQ(as_given(text).data(), text.data());
    EXPECT_EQ(as_given(path).data(), path.c_str());
    EXPECT_EQ(as_given(std::string_view(text).substr(0, 4)), "/etc");
}

}  // namespace
