// Date and time texts: nine layouts, two clocks, and what is written where the buffer is too small.
#include <gtest/gtest.h>
#include <time.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "guarded_buffer.h"
#include "simplog.h"

using support::GuardedBuffer;

namespace {

constexpr time_t kMorning = 1'704'164'645;  // 2024-01-02 03:04:05 UTC
constexpr int32_t kLarge = 64;

constexpr time_t at(int hour, int minute, int second) {
    return 1'704'153'600 + hour * 3600 + minute * 60 + second;  // 2024-01-02
}

// In a zone of its own, whatever the machine's is.
class DateTime : public testing::Test {
  protected:
    DateTime() { set_zone("UTC0"); }

    // Deliberately without tzset(): a change of the variable is all that a host has to do.
    static void set_zone(const char *zone) { setenv("TZ", zone, 1); }
};

using DateText = DateTime;
using TimeText = DateTime;
using LogStamp = DateTime;

std::string date(time_t when, int32_t size, int32_t format) {
    GuardedBuffer buffer;
    EXPECT_EQ(Change_Date_To_String_By_Format_Ex(when, buffer.data(), size, format), 0);
    EXPECT_EQ(buffer.written(), buffer.text().size() + 1);
    return buffer.text();
}

std::string time_of_day(time_t when, int32_t size, uint32_t mode, int32_t clock) {
    GuardedBuffer buffer;
    EXPECT_EQ(Change_Time_To_String_By_Format_Ex(when, buffer.data(), size, mode, clock), 0);
    EXPECT_EQ(buffer.written(), buffer.text().size() + 1);
    return buffer.text();
}

std::string stamp(time_t when, int32_t clock, int32_t format) {
    GuardedBuffer buffer;
    EXPECT_EQ(Log_DateTime_Format(when, buffer.data(), clock, format), 0);
    return buffer.text();
}

const struct {
    int32_t format;
    const char *text;
} kDateFormats[] = {
    {1, "2024/01/02"},  {2, "2024.01.02"},  {3, "2024-01-02"},  {4, "01/02/2024"},       {5, "01.02.2024"},
    {6, "01-02-2024"},  {7, "02/01/2024"},  {8, "02.01.2024"},  {9, "02-01-2024"},       {0, "2024/01/02"},
    {10, "2024/01/02"}, {-1, "2024/01/02"}, {12, "2024/01/02"}, {INT_MIN, "2024/01/02"}, {INT_MAX, "2024/01/02"},
};

}  // namespace

TEST_F(DateText, has_nine_layouts_and_any_other_index_counts_as_1) {
    for (const auto &row : kDateFormats) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(date(kMorning, kLarge, row.format), row.text);
    }
}

TEST_F(DateText, is_written_in_full_whatever_the_size_says) {
    for (const auto &row : kDateFormats)
        for (const int32_t size : {1, 2, 4, 9, 10, 11, 12, INT_MAX, -1, INT_MIN}) {
            SCOPED_TRACE(testing::Message() << "format " << row.format << ", size " << size);
            EXPECT_EQ(date(kMorning, size, row.format), row.text);
        }
}

TEST_F(DateText, follows_the_calendar) {
    const struct {
        time_t when;
        const char *text;
    } table[] = {
        {0, "1970-01-01"},
        {86'399, "1970-01-01"},
        {86'400, "1970-01-02"},
        {-1, "1969-12-31"},
        {-2'208'988'800, "1900-01-01"},
        {-2'208'988'801, "1899-12-31"},
        {951'782'400, "2000-02-29"},
        {1'709'164'800, "2024-02-29"},
        {1'709'251'200, "2024-03-01"},
        {INT32_MAX, "2038-01-19"},
        {int64_t{INT32_MAX} + 1, "2038-01-19"},
        {4'107'542'400, "2100-03-01"},
        {253'402'300'799, "9999-12-31"},
    };

    for (const auto &row : table)
        for (const int32_t size : {kLarge, 4}) {
            SCOPED_TRACE(testing::Message() << row.when << ", size " << size);
            EXPECT_EQ(date(row.when, size, 3), row.text);
        }
}

// Such a year has another length, and a size of 11 is too small for it.
TEST_F(DateText, years_beyond_9999_are_written_in_full) {
    const struct {
        time_t when;
        const char *text;
    } table[] = {
        {253'402'300'800, "10000-01-01"},
        {3'093'527'980'800, "100000-01-01"},
        {67'767'976'233'532'799, "2147483647-12-31"},
    };

    for (const auto &row : table)
        for (const int32_t size : {kLarge, 11, 4}) {
            SCOPED_TRACE(testing::Message() << row.text << ", size " << size);
            EXPECT_EQ(date(row.when, size, 3), row.text);
        }
}

TEST_F(DateText, the_text_for_small_buffers_gives_the_year_four_digits) {
    EXPECT_EQ(date(-30'659'040'000, 4, 3), "0998-06-15");
    EXPECT_EQ(date(-30'659'040'000, 4, 8), "15.06.0998");
    EXPECT_EQ(date(-62'167'219'200, 4, 3), "0000-01-01");
}

TEST_F(DateText, a_time_beyond_any_calendar_is_day_0_of_1900) {
    for (const time_t when : {INT64_MAX, INT64_MIN})
        for (const int32_t size : {kLarge, 4}) {
            SCOPED_TRACE(testing::Message() << when << ", size " << size);
            EXPECT_EQ(date(when, size, 3), "1900-01-00");
            EXPECT_EQ(time_of_day(when, size, 0, 24), "00:00:00");
        }
    EXPECT_EQ(stamp(INT64_MAX, 24, 3), "[1900-01-00 00:00:00] ");
}

// The last year of an int month by month: nothing to print, but nothing to crash for either.
TEST_F(DateText, the_outermost_years_do_no_harm) {
    for (const time_t when : {67'768'036'191'676'799, -67'768'040'609'740'800})
        for (const int32_t size : {kLarge, 4}) {
            GuardedBuffer buffer;
            EXPECT_EQ(Change_Date_To_String_By_Format_Ex(when, buffer.data(), size, 3), 0);
            EXPECT_LE(buffer.written(), 18u);
        }
}

TEST_F(DateText, refuses_a_null_buffer_and_a_size_of_0) {
    GuardedBuffer buffer;
    EXPECT_EQ(Change_Date_To_String_By_Format_Ex(0, nullptr, kLarge, 1), -22);
    EXPECT_EQ(Change_Date_To_String_By_Format_Ex(0, buffer.data(), 0, 1), -22);
    EXPECT_EQ(Change_Time_To_String_By_Format_Ex(0, nullptr, kLarge, 0, 24), -22);
    EXPECT_EQ(Change_Time_To_String_By_Format_Ex(0, buffer.data(), 0, 0, 24), -22);
    EXPECT_EQ(buffer.written(), 0u);
}

namespace {

// One moment in the forms of the four patterns; the 12-hour clock reads differently where the buffer is too small.
const struct {
    time_t when;
    const char *hours24, *short24, *hours12, *short12, *small12, *small_short12;
} kTimes[] = {
    {at(0, 0, 0), "00:00:00", "00:00", "12:00:00 am", "12:00 am", "00:00:00 AM", "00:00 AM"},
    {at(0, 30, 9), "00:30:09", "00:30", "12:30:09 am", "12:30 am", "00:30:09 AM", "00:30 AM"},
    {at(1, 2, 3), "01:02:03", "01:02", "01:02:03 am", "01:02 am", "01:02:03 AM", "01:02 AM"},
    {at(11, 59, 59), "11:59:59", "11:59", "11:59:59 am", "11:59 am", "11:59:59 AM", "11:59 AM"},
    {at(12, 0, 0), "12:00:00", "12:00", "12:00:00 pm", "12:00 pm", "00:00:00 PM", "00:00 PM"},
    {at(12, 30, 0), "12:30:00", "12:30", "12:30:00 pm", "12:30 pm", "00:30:00 PM", "00:30 PM"},
    {at(13, 4, 5), "13:04:05", "13:04", "01:04:05 pm", "01:04 pm", "01:04:05 PM", "01:04 PM"},
    {at(23, 59, 59), "23:59:59", "23:59", "11:59:59 pm", "11:59 pm", "11:59:59 PM", "11:59 PM"},
};

}  // namespace

TEST_F(TimeText, has_two_clocks_with_and_without_seconds) {
    for (const auto &row : kTimes) {
        SCOPED_TRACE(row.hours24);
        EXPECT_EQ(time_of_day(row.when, kLarge, 0, 24), row.hours24);
        EXPECT_EQ(time_of_day(row.when, kLarge, 1, 24), row.short24);
        EXPECT_EQ(time_of_day(row.when, kLarge, 0, 12), row.hours12);
        EXPECT_EQ(time_of_day(row.when, kLarge, 1, 12), row.short12);
    }
}

TEST_F(TimeText, takes_the_other_form_exactly_where_the_text_and_its_end_do_not_fit) {
    for (const auto &row : kTimes)
        for (int32_t size = 1; size <= 16; size++) {
            SCOPED_TRACE(testing::Message() << row.hours24 << ", size " << size);
            EXPECT_EQ(time_of_day(row.when, size, 0, 24), row.hours24);
            EXPECT_EQ(time_of_day(row.when, size, 1, 24), row.short24);
            EXPECT_EQ(time_of_day(row.when, size, 0, 12), size < 12 ? row.small12 : row.hours12);
            EXPECT_EQ(time_of_day(row.when, size, 1, 12), size < 9 ? row.small_short12 : row.short12);
        }
}

TEST_F(TimeText, a_negative_size_counts_as_large) {
    for (const int32_t size : {-1, INT_MIN}) {
        EXPECT_EQ(time_of_day(at(12, 30, 0), size, 1, 12), "12:30 pm");
        EXPECT_EQ(time_of_day(at(12, 30, 0), size, 0, 24), "12:30:00");
    }
}

TEST_F(TimeText, any_mode_but_1_shows_the_seconds_and_any_clock_but_12_is_the_24_hour_clock) {
    for (const uint32_t mode : {0u, 2u, 3u, 0x10001u, UINT_MAX})
        EXPECT_EQ(time_of_day(at(13, 4, 5), kLarge, mode, 24), "13:04:05") << mode;
    for (const int32_t clock : {0, 24, 1, 11, 13, -12, 0x1000c, INT_MIN})
        EXPECT_EQ(time_of_day(at(13, 4, 5), kLarge, 0, clock), "13:04:05") << clock;
}

TEST_F(LogStamp, brackets_date_and_time) {
    for (const auto &row : kDateFormats) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(stamp(kMorning, 24, row.format), std::string("[") + row.text + " 03:04:05] ");
        EXPECT_EQ(stamp(kMorning, 12, row.format), std::string("[") + row.text + " 03:04:05 am] ");
    }
    for (const int32_t clock : {0, 24, 13, -1})
        EXPECT_EQ(stamp(at(13, 4, 5), clock, 3), "[2024-01-02 13:04:05] ") << clock;
    EXPECT_EQ(stamp(at(12, 30, 0), 12, 3), "[2024-01-02 12:30:00 pm] ");
}

TEST_F(LogStamp, writes_no_more_than_26_bytes) {
    for (const int32_t clock : {12, 24}) {
        GuardedBuffer buffer;
        EXPECT_EQ(Log_DateTime_Format(kMorning, buffer.data(), clock, 3), 0);
        EXPECT_EQ(buffer.written(), clock == 12 ? 26u : 23u);
    }
}

// The time has its fixed place, and so overwrites the end of a longer date.
TEST_F(LogStamp, the_time_stands_at_its_place_behind_any_date) {
    EXPECT_EQ(stamp(253'402'300'800, 24, 3), "[10000-01-0100:00:00] ");
    EXPECT_EQ(stamp(3'093'527'980'800, 24, 3), "[100000-01-000:00:00] ");
    EXPECT_EQ(stamp(67'767'976'233'532'799, 12, 4), "[12/31/2147411:59:59 pm] ");
}

TEST_F(DateTime, a_changed_zone_is_seen) {
    const struct {
        const char *zone;
        const char *text;
    } table[] = {
        {"UTC0", "[2024-01-02 03:04:05] "},    {"EAST-14", "[2024-01-02 17:04:05] "},
        {"WEST+12", "[2024-01-01 15:04:05] "}, {"HALF-5:30", "[2024-01-02 08:34:05] "},
        {"UTC0", "[2024-01-02 03:04:05] "},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.zone);
        set_zone(row.zone);
        EXPECT_EQ(stamp(kMorning, 24, 3), row.text);
        EXPECT_EQ("[" + date(kMorning, 4, 3) + " " + time_of_day(kMorning, 4, 0, 24) + "] ", row.text);
    }
}

TEST_F(DateTime, summer_time_counts) {
    set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(time_of_day(1'711'846'799, kLarge, 0, 24), "01:59:59");
    EXPECT_EQ(time_of_day(1'711'846'800, kLarge, 0, 24), "03:00:00");
}

TEST_F(DateTime, threads_do_not_disturb_each_other) {
    constexpr int kThreads = 4;
    std::vector<std::thread> threads;
    std::vector<int> wrong(kThreads);

    for (int i = 0; i < kThreads; i++)
        threads.emplace_back([i, &wrong] {
            char expected[32];
            snprintf(expected, sizeof expected, "[2024-01-02 03:0%d:00] ", i);
            for (int n = 0; n < 5000; n++)
                if (stamp(at(3, i, 0), 24, 3) != expected)
                    wrong[static_cast<size_t>(i)]++;
        });
    for (auto &thread : threads)
        thread.join();

    EXPECT_EQ(wrong, std::vector<int>(kThreads));
}
