// Sizes and durations as people read them, and the word for true.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdint>
#include <string>

#include "guarded_buffer.h"
#include "miscfunc.h"

using support::GuardedBuffer;

namespace {

constexpr uint64_t kKilo = 1024;
constexpr uint64_t kMega = kKilo * 1024;
constexpr uint64_t kGiga = kMega * 1024;
constexpr uint64_t kTera = kGiga * 1024;

using Fields = std::array<int32_t, 4>;  // seconds, minutes, hours, days

}  // namespace

TEST(SizeUnit, the_next_unit_begins_above_1024) {
    const struct {
        uint64_t bytes;
        float amount;
        const char *unit;
    } table[] = {
        {0, 0.0f, "byte"},
        {1, 1.0f, "byte"},
        {2, 2.0f, "byte"},
        {1023, 1023.0f, "byte"},
        {1024, 1024.0f, "byte"},
        {1025, 1.0009765625f, "KB"},
        {1536, 1.5f, "KB"},
        {2048, 2.0f, "KB"},
        {kMega - 1, 1048575.0f / 1024.0f, "KB"},
        {kMega, 1024.0f, "KB"},
        {kMega + 1, 1048577.0f / 1048576.0f, "MB"},
        {123'456'789, 123'456'792.0f / 1048576.0f, "MB"},
        {kGiga, 1024.0f, "MB"},
        {kGiga + kMega, 1025.0f / 1024.0f, "GB"},
        {kTera, 1024.0f, "GB"},
        {kTera + kGiga, 1025.0f / 1024.0f, "TB"},
        {5 * kTera, 5.0f, "TB"},
        {1024 * kTera, 1024.0f, "TB"},
        {1025 * kTera, 1025.0f, "TB"},
        {uint64_t{1} << 60, 1048576.0f, "TB"},
        {(uint64_t{1} << 63) - 1, 8388608.0f, "TB"},
        {uint64_t{1} << 63, 8388608.0f, "TB"},
        {3 * (uint64_t{1} << 62), 12582912.0f, "TB"},
        {UINT64_MAX, 16777216.0f, "TB"},
        // Counted in single precision, 2^30 + 1 is 2^30, and so not yet above 1024 MB.
        {kGiga + 1, 1024.0f, "MB"},
        {kGiga + 64, 1024.0f, "MB"},
        {kGiga + 65, 1073741952.0f / 1073741824.0f, "GB"},
        {kTera + 65536, 1024.0f, "GB"},
        {kTera + 65537, 1099511758848.0f / 1099511627776.0f, "TB"},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.bytes);
        float amount = -1.0f;
        GuardedBuffer unit;
        EXPECT_EQ(Size_Unit_Conversion(row.bytes, &amount, unit.data(), 16), 0);
        EXPECT_EQ(amount, row.amount);
        EXPECT_EQ(unit.text(), row.unit);
        EXPECT_EQ(unit.written(), std::string(row.unit).size() + 1);
    }
}

TEST(SizeUnit, the_unit_must_fit_and_a_negative_size_counts_as_large) {
    const struct {
        uint64_t bytes;
        int32_t size;
        int32_t expected;
    } table[] = {
        {1, 5, 0},
        {1, 4, -75},
        {1, 3, -75},
        {1, 0, -75},
        {1, -1, 0},
        {1, INT_MIN, 0},
        {1, INT_MAX, 0},
        {2 * kKilo, 3, 0},
        {2 * kMega, 3, 0},
        {2 * kGiga, 3, 0},
        {2 * kTera, 3, 0},
        {2 * kKilo, 2, -75},
        {2 * kMega, 2, -75},
        {2 * kGiga, 1, -75},
        {2 * kTera, 0, -75},
        {UINT64_MAX, 2, -75},
        {2 * kTera, INT_MIN, 0},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.bytes << " bytes, size " << row.size);
        float amount = -1.0f;
        GuardedBuffer unit;
        EXPECT_EQ(Size_Unit_Conversion(row.bytes, &amount, unit.data(), row.size), row.expected);
        EXPECT_EQ(amount == -1.0f, row.expected != 0);
        EXPECT_EQ(unit.written() == 0, row.expected != 0);
    }
}

TEST(SizeUnit, null_is_refused) {
    float amount = -1.0f;
    GuardedBuffer unit;
    EXPECT_EQ(Size_Unit_Conversion(1, nullptr, unit.data(), 16), -22);
    EXPECT_EQ(Size_Unit_Conversion(1, &amount, nullptr, 16), -22);
    EXPECT_EQ(Size_Unit_Conversion(1, nullptr, nullptr, -1), -22);
    EXPECT_EQ(amount, -1.0f);
    EXPECT_EQ(unit.written(), 0u);
}

TEST(TimeUnit, splits_a_duration_and_names_its_parts) {
    const struct {
        uint32_t seconds;
        Fields fields;
        const char *text;
    } table[] = {
        {0, {0, 0, 0, 0}, "0 second"},
        {1, {1, 0, 0, 0}, "1 second"},
        {2, {2, 0, 0, 0}, "2 seconds"},
        {59, {59, 0, 0, 0}, "59 seconds"},
        {60, {0, 1, 0, 0}, "1 minute 0 second"},
        {61, {1, 1, 0, 0}, "1 minute 1 second"},
        {122, {2, 2, 0, 0}, "2 minutes 2 seconds"},
        {3599, {59, 59, 0, 0}, "59 minutes 59 seconds"},
        {3600, {0, 0, 1, 0}, "1 hour 0 second"},
        {3602, {2, 0, 1, 0}, "1 hour 2 seconds"},
        {7260, {0, 1, 2, 0}, "2 hours 1 minute 0 second"},
        {86399, {59, 59, 23, 0}, "23 hours 59 minutes 59 seconds"},
        {86400, {0, 0, 0, 1}, "1 day 0 second"},
        {86460, {0, 1, 0, 1}, "1 day 1 minute 0 second"},
        {90000, {0, 0, 1, 1}, "1 day 1 hour 0 second"},
        {90061, {1, 1, 1, 1}, "1 day 1 hour 1 minute 1 second"},
        {172805, {5, 0, 0, 2}, "2 days 5 seconds"},
        {4294943999, {59, 59, 23, 49709}, "49709 days 23 hours 59 minutes 59 seconds"},
        {UINT32_MAX, {15, 28, 6, 49710}, "49710 days 6 hours 28 minutes 15 seconds"},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.seconds);
        const auto size = static_cast<int32_t>(std::string(row.text).size() + 1);
        Fields fields{-1, -1, -1, -1};
        GuardedBuffer text;
        EXPECT_EQ(Time_Unit_Conversion(row.seconds, fields.data(), text.data(), size), 0);
        EXPECT_EQ(fields, row.fields);
        EXPECT_EQ(text.text(), row.text);
        EXPECT_EQ(text.written(), static_cast<size_t>(size));
    }
}

TEST(TimeUnit, the_text_must_fit_and_the_fields_are_filled_in_any_case) {
    const struct {
        int32_t size;
        int32_t expected;
    } table[] = {{15, 0}, {14, -75}, {5, -75}, {1, -75}, {0, -75}, {-1, 0}, {INT_MIN, 0}, {INT_MAX, 0}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.size);
        Fields fields{-1, -1, -1, -1};
        GuardedBuffer text;
        EXPECT_EQ(Time_Unit_Conversion(86400, fields.data(), text.data(), row.size), row.expected);
        EXPECT_EQ(fields, (Fields{0, 0, 0, 1}));
        EXPECT_EQ(text.written(), row.expected == 0 ? sizeof "1 day 0 second" : 0u);
    }
}

TEST(TimeUnit, either_output_may_be_left_out_but_not_both) {
    Fields fields{-1, -1, -1, -1};
    for (const int32_t size : {16, 0, -1})
        EXPECT_EQ(Time_Unit_Conversion(61, fields.data(), nullptr, size), 0) << size;
    EXPECT_EQ(fields, (Fields{1, 1, 0, 0}));

    GuardedBuffer text;
    EXPECT_EQ(Time_Unit_Conversion(61, nullptr, text.data(), 18), 0);
    EXPECT_EQ(text.text(), "1 minute 1 second");

    EXPECT_EQ(Time_Unit_Conversion(61, nullptr, nullptr, 18), -22);
}

TEST(StringToBool, compares_the_beginning_with_the_word_true) {
    const struct {
        const char *text;
        int32_t length;
        int32_t expected;
    } table[] = {
        {"TRUE", 4, 1},  {"true", 4, 1},  {"tRuE", 4, 1},        {"true", 5, 1},  {"TRUE", INT_MAX, 1}, {"T", 1, 1},
        {"tr", 2, 1},    {"TRU", 3, 1},   {"TRUEX", 4, 1},       {"truck", 3, 1}, {"anything", 0, 1},   {"", 0, 1},
        {"TRUEX", 5, 0}, {"truck", 4, 0}, {"T", 2, 0},           {"TR", 4, 0},    {"", 1, 0},           {"", 4, 0},
        {"1", 1, 0},     {"yes", 3, 0},   {"on", 2, 0},          {"FALSE", 5, 0}, {" true", 5, 0},      {"rue", 3, 0},
        {"true", -1, 1}, {"tr", -1, 0},   {"TRUEX", INT_MIN, 0},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << "'" << row.text << "', length " << row.length);
        EXPECT_EQ(Str_To_Bool(row.text, row.length), row.expected);
    }
}

TEST(StringToBool, no_text_is_not_true) {
    for (const int32_t length : {0, 4})
        EXPECT_EQ(Str_To_Bool(nullptr, length), 0) << length;
}
