// Decimal numbers to and from text, copying texts, exchanging integers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "faults.h"
#include "guarded_buffer.h"
#include "log_capture.h"
#include "miscfunc.h"

using support::Call;
using support::FailCall;
using support::GuardedBuffer;
using support::LogCapture;

TEST(SwapInteger, exchanges_two_values) {
    int32_t first = INT_MIN;
    int32_t second = 7;

    Swap_Integer(&first, &second);
    EXPECT_EQ(first, 7);
    EXPECT_EQ(second, INT_MIN);

    Swap_Integer(&first, &first);
    EXPECT_EQ(first, 7);
}

TEST(SwapInteger, does_nothing_where_a_pointer_is_null) {
    int32_t value = 5;
    Swap_Integer(&value, nullptr);
    Swap_Integer(nullptr, &value);
    Swap_Integer(nullptr, nullptr);
    EXPECT_EQ(value, 5);
}

namespace {

void expect_read(const char *text, int32_t digits, int64_t expected) {
    SCOPED_TRACE(text);
    int64_t value = 99;
    EXPECT_EQ(Decimal_String_To_Integer(text, &value), digits);
    EXPECT_EQ(value, expected);
}

struct DecimalText {
    const char *text;
    int32_t digits;
    int64_t value;
};

}  // namespace

TEST(DecimalToInteger, reads_the_digits_that_begin_a_text) {
    const DecimalText table[] = {
        {"0", 1, 0},
        {"7", 1, 7},
        {"007", 3, 7},
        {"42", 2, 42},
        {"-42", 2, -42},
        {"-0", 1, 0},
        {"-007", 3, -7},
        {"-42abc", 2, -42},
        {"12 34", 2, 12},
        {"12\n", 2, 12},
        {"1/", 1, 1},
        {"1:", 1, 1},
        {"0x10", 1, 0},
        {"1.5", 1, 1},
        {"1-2", 1, 1},
        {"1\xb2", 1, 1},
        {"9223372036854775807", 19, INT64_MAX},
        {"-9223372036854775807", 19, -INT64_MAX},
        {"-9223372036854775808", 19, INT64_MIN},
    };

    for (const auto &row : table)
        expect_read(row.text, row.digits, row.value);
}

TEST(DecimalToInteger, a_text_without_a_digit_in_front_is_nought) {
    for (const char *text : {"", "abc", "-", "--1", "-a", "- 1", "+1", " 1", "\t1", "/", ":", "-+1", "\xb9", ".5"})
        expect_read(text, 0, 0);
}

TEST(DecimalToInteger, a_number_beyond_64_bits_wraps) {
    const DecimalText table[] = {
        {"9223372036854775808", 19, INT64_MIN},
        {"-9223372036854775809", 19, INT64_MAX},
        {"18446744073709551615", 20, -1},
        {"-18446744073709551615", 20, 1},
        {"18446744073709551616", 20, 0},
        {"18446744073709551617", 20, 1},
        {"99999999999999999999", 20, 7'766'279'631'452'241'919},
        {"-99999999999999999999", 20, -7'766'279'631'452'241'919},
        {"340282366920938463463374607431768211457", 39, 1},
    };

    for (const auto &row : table)
        expect_read(row.text, row.digits, row.value);
}

TEST(DecimalToInteger, every_digit_is_counted) {
    int64_t value = 99;
    EXPECT_EQ(Decimal_String_To_Integer((std::string(100'000, '0') + "5").c_str(), &value), 100'001);
    EXPECT_EQ(value, 5);
}

TEST(DecimalToInteger, null_is_refused) {
    int64_t value = 99;
    EXPECT_EQ(Decimal_String_To_Integer(nullptr, &value), -22);
    EXPECT_EQ(Decimal_String_To_Integer("1", nullptr), -22);
    EXPECT_EQ(Decimal_String_To_Integer(nullptr, nullptr), -22);
    EXPECT_EQ(value, 99);
}

TEST(IntegerToDecimal, writes_the_number_and_nothing_more) {
    const struct {
        int64_t value;
        const char *text;
    } table[] = {
        {0, "0"},
        {1, "1"},
        {-1, "-1"},
        {9, "9"},
        {10, "10"},
        {-10, "-10"},
        {1'000'000'007, "1000000007"},
        {INT32_MIN, "-2147483648"},
        {uint32_t{UINT32_MAX}, "4294967295"},
        {INT64_MAX, "9223372036854775807"},
        {-INT64_MAX, "-9223372036854775807"},
        {INT64_MIN, "-9223372036854775808"},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.text);
        GuardedBuffer buffer;
        const int32_t size = 32;
        EXPECT_EQ(Integer_To_Decimal_String(buffer.data(), &size, row.value), 0);
        EXPECT_EQ(buffer.text(), row.text);
        EXPECT_EQ(buffer.written(), std::string(row.text).size() + 1);
        EXPECT_EQ(size, 32);
    }
}

TEST(IntegerToDecimal, any_size_from_1_on_is_taken_for_large_enough) {
    for (const int32_t size : {1, 2, 20, 21, INT_MAX}) {
        SCOPED_TRACE(size);
        GuardedBuffer buffer;
        int32_t unchanged = size;
        EXPECT_EQ(Integer_To_Decimal_String(buffer.data(), &unchanged, INT64_MIN), 0);
        EXPECT_EQ(buffer.text(), "-9223372036854775808");
        EXPECT_EQ(unchanged, size);
    }
}

TEST(IntegerToDecimal, refuses_null_and_sizes_below_1) {
    GuardedBuffer buffer;
    for (const int32_t size : {0, -1, INT_MIN}) {
        SCOPED_TRACE(size);
        EXPECT_EQ(Integer_To_Decimal_String(buffer.data(), &size, 5), -22);
    }
    const int32_t size = 32;
    EXPECT_EQ(Integer_To_Decimal_String(nullptr, &size, 5), -22);
    EXPECT_EQ(Integer_To_Decimal_String(buffer.data(), nullptr, 5), -22);
    EXPECT_EQ(buffer.written(), 0u);
}

TEST(CloneString, hands_out_a_copy_and_its_length) {
    for (const std::string &text : {std::string(), std::string("a"), std::string("two words\n"),
                                    std::string("\xff\x80"), std::string(1 << 20, 'x')}) {
        SCOPED_TRACE(text.size());
        char *copy = nullptr;
        int32_t length = -1;
        ASSERT_EQ(Clone_String(text.c_str(), &copy, &length), 0);
        EXPECT_EQ(copy, text);
        EXPECT_NE(copy, text.c_str());
        EXPECT_EQ(length, static_cast<int32_t>(text.size()));
        std::free(copy);
    }
}

TEST(CloneString, the_length_is_optional) {
    char *copy = nullptr;
    ASSERT_EQ(Clone_String("text", &copy, nullptr), 0);
    EXPECT_STREQ(copy, "text");
    std::free(copy);
}

TEST(CloneString, null_is_refused) {
    char *copy = nullptr;
    int32_t length = 77;
    EXPECT_EQ(Clone_String(nullptr, &copy, &length), -22);
    EXPECT_EQ(Clone_String("text", nullptr, &length), -22);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(length, 77);
}

TEST(CloneString, out_of_memory_is_reported_and_nothing_stored) {
    LogCapture log;
    char untouched = 'x';
    char *copy = &untouched;
    int32_t length = 77;

    const FailCall fault(Call::malloc, ENOMEM);
    EXPECT_EQ(Clone_String("text", &copy, &length), -12);

    EXPECT_EQ(fault.failed(), 1);
    EXPECT_EQ(copy, &untouched);
    EXPECT_EQ(length, 77);
    EXPECT_THAT(log.messages(), testing::ElementsAre("[debug] Clone_String(#): Can't allocate memory error!\n"));
}

TEST(CloneString, the_message_is_for_the_debug_level) {
    for (const int32_t level : {0, 1, 2}) {
        SCOPED_TRACE(level);
        LogCapture log(level);
        char *copy = nullptr;
        const FailCall fault(Call::malloc, ENOMEM);
        EXPECT_EQ(Clone_String("text", &copy, nullptr), -12);
        EXPECT_THAT(log.messages(), testing::IsEmpty());
    }
}
