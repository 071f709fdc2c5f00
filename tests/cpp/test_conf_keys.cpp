// Single keys of configuration files through the C++ layer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "failure_of.h"
#include "faults.h"
#include "korvex/conf.hpp"
#include "sandbox.h"

namespace {

namespace conf = korvex::conf;
using korvex::errc;
using support::failure_of;
using testing::HasSubstr;
using testing::Optional;

class Keys : public testing::Test {
  protected:
    // The file has this one value.
    void put(const std::string &value) const { support::write_file(path_, "[s]\nk = " + value + "\n"); }

    template <class Type>
    std::optional<Type> value_of(const std::string &text, conf::range<Type> range = {}) const {
        put(text);
        return conf::get_as<Type>(path_, "s", "k", range);
    }
    template <class Type>
    std::error_code code_of(const std::string &text, conf::range<Type> range = {}) const {
        return failure_of([&] { (void)value_of<Type>(text, range); }).code();
    }

    support::TempFolder folder_;
    const std::string path_ = folder_.path("app.conf");
};

TEST_F(Keys, are_read_by_section_and_name) {
    support::write_file(path_, "g = 1\n[s]\nk = v w\nempty =\n[t]\nk = other\n");
    EXPECT_THAT(conf::get(path_, "s", "k"), Optional(std::string("v w")));
    EXPECT_THAT(conf::get(path_, "", "g"), Optional(std::string("1")));
    EXPECT_THAT(conf::get(path_, "s", "empty"), Optional(std::string()));
    EXPECT_THAT(conf::get(std::filesystem::path(path_), "t", "k"), Optional(std::string("other")));
}

TEST_F(Keys, that_are_absent_are_nothing) {
    EXPECT_EQ(conf::get(path_, "s", "k"), std::nullopt);
    put("v");
    EXPECT_EQ(conf::get(path_, "s", "other"), std::nullopt);
    EXPECT_EQ(conf::get(path_, "other", "k"), std::nullopt);
    EXPECT_EQ(conf::get_as<int>(path_, "s", "other"), std::nullopt);
}

TEST_F(Keys, of_what_is_no_file_throw) {
    const korvex::error failure = failure_of([&] { (void)conf::get(folder_.path(), "s", "k"); });
    EXPECT_EQ(failure.code(), errc::not_a_regular_file);
    EXPECT_EQ(std::string(failure.what()), "can't read 'k' of [s] in '" + folder_.path() + "': not a regular file");
}

TEST_F(Keys, of_any_length_are_read_whole) {
    for (const size_t size : {511, 512, 513, 100'000}) {
        const std::string value(size, 'x');
        put(value);
        EXPECT_THAT(conf::get(path_, "s", "k"), Optional(value));
    }
}

// The second look finds a longer value than the first one announced.
TEST_F(Keys, that_grow_between_two_looks_are_read_whole) {
    put(std::string(600, 'x'));
    const std::string longer(9000, 'y');
    const support::BeforeCall grow(support::Call::stat, 2, [&] { put(longer); });
    EXPECT_EQ(conf::get(path_, "s", "k").value_or("").size(), longer.size());
    EXPECT_TRUE(grow.ran());
}

TEST_F(Keys, have_no_carriage_return_at_their_end) {
    support::write_file(path_, "[s]\r\nk = v\r\n");
    EXPECT_THAT(conf::get(path_, "s", "k"), Optional(std::string("v")));
}

TEST_F(Keys, behind_a_byte_order_mark_are_found) {
    support::write_file(path_, "\xEF\xBB\xBF[s]\r\nk = v\r\n");
    EXPECT_THAT(conf::get(path_, "s", "k"), Optional(std::string("v")));
    EXPECT_EQ(conf::get(path_, "s", "other"), std::nullopt);
    support::write_file(path_, "\xEF\xBB\xBFk = v\n");
    EXPECT_THAT(conf::get(path_, "", "k"), Optional(std::string("v")));
}

TEST_F(Keys, of_a_short_text_take_no_memory) {
    put("on");
    const support::CountCalls of_c(support::Call::malloc);
    char buffer[16];
    int32_t size = sizeof buffer;
    ASSERT_EQ(Get_Conf_File_String_Value(path_.c_str(), "s", "k", buffer, &size), 0);
    const int64_t expected = of_c.count();
    const support::CountCalls of_layer(support::Call::malloc);
    EXPECT_TRUE(conf::get_as<bool>(path_, "s", "k").value_or(false));
    EXPECT_EQ(of_layer.count(), expected);
}

TEST_F(Keys, as_truth_values) {
    for (const char *text : {"yes", "on", "1", "true", "Yes", "ON", "tRUE"})
        EXPECT_THAT(value_of<bool>(text), Optional(true)) << text;
    for (const char *text : {"no", "off", "0", "false", "No", "OFF", "FALSE"})
        EXPECT_THAT(value_of<bool>(text), Optional(false)) << text;
    for (const char *text : {"", "2", "yess", "y", "enabled", "01"})
        EXPECT_EQ(code_of<bool>(text), errc::not_a_number) << text;
}

TEST_F(Keys, as_integers_within_their_type) {
    EXPECT_THAT(value_of<int8_t>("-128"), Optional(int8_t{-128}));
    EXPECT_THAT(value_of<uint8_t>("255"), Optional(uint8_t{255}));
    EXPECT_THAT(value_of<int64_t>("-9223372036854775808"), Optional(std::numeric_limits<int64_t>::min()));
    EXPECT_THAT(value_of<uint64_t>("18446744073709551615"), Optional(std::numeric_limits<uint64_t>::max()));
    EXPECT_EQ(code_of<int8_t>("128"), std::errc::result_out_of_range);
    EXPECT_EQ(code_of<uint64_t>("18446744073709551616"), std::errc::result_out_of_range);
    for (const char *text : {"", "x", "1x", "1 2", "0x10", "1.0", "+1", "-"})
        EXPECT_EQ(code_of<int>(text), errc::not_a_number) << text;
    EXPECT_EQ(code_of<unsigned>("-1"), errc::not_a_number);
}

TEST_F(Keys, as_integers_within_a_range) {
    const conf::range<int> ports{1, 65535};
    EXPECT_THAT(value_of<int>("65535", ports), Optional(65535));
    EXPECT_EQ(code_of<int>("65536", ports), std::errc::result_out_of_range);
    put("0");
    const korvex::error failure = failure_of([&] { (void)conf::get_as<int>(path_, "s", "k", ports); });
    EXPECT_EQ(std::string(failure.what()), "can't use 'k' of [s] in '" + path_ + "': '0' is not from 1 to 65535");
}

TEST_F(Keys, as_doubles) {
    EXPECT_THAT(value_of<double>("1.5"), Optional(1.5));
    EXPECT_THAT(value_of<double>("-1e3"), Optional(-1000.0));
    for (const char *text : {"nan", "inf", "1,5", "1.5x", ""})
        EXPECT_EQ(code_of<double>(text), errc::not_a_number) << text;
    EXPECT_EQ(code_of<double>("1e999"), std::errc::result_out_of_range);
    EXPECT_EQ(code_of<double>("0.9", {1.0, 2.0}), std::errc::result_out_of_range);
}

TEST_F(Keys, are_set_and_read_back_in_every_type) {
    conf::set(path_, "s", "text", "a = b [c] # d");
    conf::set(path_, "s", "truth", true);
    conf::set(path_, "s", "number", int64_t{-5});
    conf::set(path_, "s", "fraction", 0.1);
    EXPECT_THAT(conf::get(path_, "s", "text"), Optional(std::string("a = b [c] # d")));
    EXPECT_THAT(conf::get_as<bool>(path_, "s", "truth"), Optional(true));
    EXPECT_THAT(conf::get_as<int>(path_, "s", "number"), Optional(-5));
    EXPECT_THAT(conf::get_as<double>(path_, "s", "fraction"), Optional(0.1));
}

TEST_F(Keys, are_erased_or_were_not_there) {
    put("v");
    EXPECT_TRUE(conf::erase(path_, "s", "k"));
    EXPECT_FALSE(conf::erase(path_, "s", "k"));
    EXPECT_FALSE(conf::erase(path_, "t", "k"));
    EXPECT_EQ(support::read_file(path_), "[s]\n");
    EXPECT_FALSE(conf::erase(folder_.path("none"), "s", "k"));
    EXPECT_FALSE(support::exists(folder_.path("none")));
}

TEST_F(Keys, and_values_that_would_not_read_back_are_refused) {
    struct Row {
        std::string section, key, value, reason;
    };
    const Row table[] = {
        {"s", "k", "a\nb", "a value has no line feed"},
        {"s", "k", "a\rb", "a value has no line feed, carriage return"},
        {"s", "k", std::string("a\0b", 3), "a value has no line feed, carriage return or NUL"},
        {"s", "k", " a", "blanks around a value"},
        {"s", "k", "a\t", "blanks around a value"},
        {"s", "", "v", "a key is not empty"},
        {"s", "a=b", "v", "a key ends at its first '='"},
        {"s", "[a", "v", "opens a section"},
        {"s", "#a", "v", "is a comment"},
        {"s", ";a", "v", "is a comment"},
        {"s", "a\nb", "v", "a key has no line feed"},
        {"s", "a ", "v", "blanks around a key"},
        {"a]b", "k", "v", "a section's name ends at its first ']'"},
        {"a\nb", "k", "v", "a section's name has no line feed"},
    };
    put("old");
    for (const Row &row : table) {
        const korvex::error failure = failure_of([&] { conf::set(path_, row.section, row.key, row.value); });
        EXPECT_EQ(failure.code(), errc::would_not_read_back);
        EXPECT_THAT(failure.what(), HasSubstr(row.reason));
    }
    EXPECT_EQ(support::read_file(path_), "[s]\nk = old\n");
    EXPECT_EQ(folder_.names(), std::vector<std::string>{"app.conf"});
}

// What is accepted reads back, whatever it is made of.
TEST_F(Keys, and_values_that_are_accepted_read_back) {
    const std::string pieces[] = {"a", " ", "=", "[", "]", "#", ";", "\t", "\"", "\\", "\xC3\xA4", "", "x y"};
    int accepted = 0;
    for (const std::string &first : pieces)
        for (const std::string &second : pieces)
            for (const std::string &third : {std::string("k"), first, second}) {
                const std::string text = first + third + second;
                unlink(path_.c_str());
                try {
                    conf::set(path_, text, text, text);
                } catch (const korvex::error &failure) {
                    ASSERT_EQ(failure.code(), errc::would_not_read_back) << failure.what();
                    continue;
                }
                accepted++;
                ASSERT_THAT(conf::get(path_, text, text), Optional(text)) << support::read_file(path_);
            }
    EXPECT_GT(accepted, 50);
}

}  // namespace
