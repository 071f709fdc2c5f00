// Numbers, amounts and times as texts.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <cstdint>
#include <limits>

#include "korvex/text.hpp"

namespace {

using namespace std::chrono_literals;

TEST(Text, tells_a_size_in_the_unit_that_people_read) {
    struct sample {
        std::uint64_t bytes;
        float amount;
        const char *unit;
    };
    constexpr sample samples[] = {
        {0, 0, "byte"},         {1, 1, "byte"},
        {1024, 1024, "byte"},   {1536, 1.5F, "KB"},
        {3U << 20U, 3, "MB"},   {5ULL << 30U, 5, "GB"},
        {7ULL << 40U, 7, "TB"}, {std::numeric_limits<std::uint64_t>::max(), 16'777'216, "TB"},
    };
    for (const sample &one : samples) {
        const korvex::sized_amount size = korvex::size_amount(one.bytes);
        EXPECT_FLOAT_EQ(size.amount, one.amount) << one.bytes;
        EXPECT_EQ(size.unit, one.unit) << one.bytes;
    }
}

TEST(Text, tells_a_duration_and_keeps_it_in_its_bounds) {
    EXPECT_EQ(korvex::duration_text(48h + 5s), "2 days 5 seconds");
    EXPECT_EQ(korvex::duration_text(-5s), korvex::duration_text(0s));
    EXPECT_EQ(korvex::duration_text(std::chrono::seconds::max()), korvex::duration_text(4'294'967'295s));
}

TEST(Text, reads_numbers_and_nothing_else) {
    EXPECT_EQ(korvex::to_number("42"), 42);
    EXPECT_EQ(korvex::to_number("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(korvex::to_number<std::uint8_t>("255"), 255);
    for (const char *text : {"", "-", " 1", "1 ", "+1", "1x", "0x1", "9223372036854775808"})
        EXPECT_EQ(korvex::to_number(text), std::nullopt) << text;
    EXPECT_EQ(korvex::to_number<std::uint8_t>("256"), std::nullopt);
    EXPECT_EQ(korvex::to_number<std::uint8_t>("-1"), std::nullopt);
    EXPECT_EQ(korvex::to_number(std::string_view("123", 2)), 12);
}

TEST(Text, writes_every_number_so_that_it_reads_back) {
    for (const std::int64_t number : {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1}, std::int64_t{0},
                                      std::int64_t{1}, std::numeric_limits<std::int64_t>::max()})
        EXPECT_EQ(korvex::to_number(korvex::number_text(number)), number);
}

TEST(Text, writes_dates_and_times_as_a_log_does) {
    setenv("TZ", "UTC", 1);
    tzset();
    const std::chrono::system_clock::time_point time{1'706'706'245s};  // 2024-01-31 13:04:05
    EXPECT_EQ(korvex::date_text(time), "2024-01-31");
    EXPECT_EQ(korvex::date_text(time, korvex::date_format::dmy_dots), "31.01.2024");
    EXPECT_EQ(korvex::date_text(time, korvex::date_format::mdy_slashes), "01/31/2024");
    EXPECT_EQ(korvex::time_text(time), "13:04:05");
    EXPECT_EQ(korvex::time_text(time, korvex::hour_clock::h12), "01:04:05 pm");
    EXPECT_EQ(korvex::time_text(time, korvex::hour_clock::h24, korvex::time_parts::without_seconds), "13:04");
    EXPECT_EQ(korvex::stamp_text(time), "[2024-01-31 13:04:05] ");
}

}  // namespace
