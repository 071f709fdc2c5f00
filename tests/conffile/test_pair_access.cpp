// Looking up and changing pairs, in a list of pairs and in a section of a configuration alike.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <limits>

#include "faults.h"
#include "heap.h"
#include "one_section.h"

using lists::Messages;
using lists::messages_at;
using lists::Pairs;
using support::Call;
using support::CountCalls;
using support::FailCall;

template <typename Access>
class Getters : public testing::Test {};
TYPED_TEST_SUITE(Getters, lists::BothWays);

template <typename Access>
class Setters : public testing::Test {};
TYPED_TEST_SUITE(Setters, lists::BothWays);

namespace {

const char *const kUnknownKeys[] = {"missing", "", "ke", "keys", "KEY", "key "};

struct Number {
    const char *text;
    int64_t value;
};

const Number kNumbers[] = {
    // Not checked any further than strtoll does.
    {"", 0},
    {"abc", 0},
    {"12abc", 12},
    {"  \t42", 42},
    {"\n7", 7},
    {"+5", 5},
    {"-", 0},
    {"- 5", 0},
    {"0x10", 0},
    {"010", 10},
    {"1e3", 1},
    {"1 000", 1},
    // The edges of the widths.
    {"-127", -127},
    {"127", 127},
    {"-128", -128},
    {"128", 128},
    {"-129", -129},
    {"255", 255},
    {"256", 256},
    {"300", 300},
    {"-32767", -32767},
    {"32767", 32767},
    {"-32768", -32768},
    {"32768", 32768},
    {"65536", 65536},
    {"-2147483647", -2147483647},
    {"2147483647", 2147483647},
    {"-2147483648", -2147483648LL},
    {"2147483648", 2147483648LL},
    {"4294967296", 4294967296LL},
    {"4294967297", 4294967297LL},
    {"9223372036854775807", INT64_MAX},
    {"-9223372036854775808", INT64_MIN},
    // Beyond them.
    {"9223372036854775808", INT64_MAX},
    {"-9223372036854775809", INT64_MIN},
    {"123456789012345678901234567890", INT64_MAX},
};

// The low bits are stored in any case; the range is symmetric, so the most negative value is out of it.
template <typename Integer, typename Access>
void expect_narrow(const Number &number) {
    const auto stored = static_cast<Integer>(number.value);
    const int64_t largest = std::numeric_limits<Integer>::max();
    const bool fits = number.value >= -largest && number.value <= largest;

    Access access(Pairs{{"n", number.text}});
    auto value = static_cast<Integer>(~stored);
    EXPECT_EQ(access.number("n", &value), fits ? 0 : -EOVERFLOW) << sizeof value << " bytes";
    EXPECT_EQ(value, stored) << sizeof value << " bytes";
}

template <typename Integer, typename Access>
void expect_no_number(const Access &access) {
    Integer value = 77;
    EXPECT_EQ(access.number("missing", &value), -ENODATA);
    EXPECT_EQ(access.number(nullptr, &value), -EINVAL);
    EXPECT_EQ(value, 77) << "nothing is stored";

    Integer *const nowhere = nullptr;
    EXPECT_EQ(access.number("key", nowhere), -EINVAL);
}

}  // namespace

TYPED_TEST(Getters, hand_out_the_own_text_of_the_first_pair) {
    TypeParam access(Pairs{{"K", "upper"}, {"key", "longer"}, {"k", "first"}, {"k", "second"}, {"", "unnamed"}});
    char *value = nullptr;
    ASSERT_EQ(access.text("k", &value), 0);
    EXPECT_EQ(value, (*access.head())->pNext->pNext->pszValue);
    EXPECT_STREQ(value, "first");

    ASSERT_EQ(access.text("", &value), 0);
    EXPECT_STREQ(value, "unnamed");
}

TYPED_TEST(Getters, report_a_missing_key_and_store_nothing) {
    TypeParam access(Pairs{{"key", "12"}});
    for (const char *key : kUnknownKeys) {
        SCOPED_TRACE(key);
        lists::Outputs out;
        EXPECT_EQ(access.text(key, &out.value), -ENODATA);
        EXPECT_EQ(access.copy(key, out.buffer, &out.size), -ENODATA);
        out.expect_untouched();
    }
}

TYPED_TEST(Getters, refuse_null_arguments_silently) {
    TypeParam access(Pairs{{"key", "12"}});
    const auto messages = messages_at(3, [&] {
        lists::Outputs out;
        EXPECT_EQ(access.text(nullptr, &out.value), -EINVAL);
        EXPECT_EQ(access.text("key", nullptr), -EINVAL);
        EXPECT_EQ(access.copy(nullptr, out.buffer, &out.size), -EINVAL);
        EXPECT_EQ(access.copy("key", nullptr, &out.size), -EINVAL);
        EXPECT_EQ(access.copy("key", out.buffer, nullptr), -EINVAL);
        out.expect_untouched();
    });
    EXPECT_THAT(messages, testing::IsEmpty());
}

TYPED_TEST(Getters, copy_a_value_only_where_it_fits_and_report_its_size) {
    const struct {
        const char *value;
        int32_t size;
        int32_t result;
    } rows[] = {
        {"value", 64, 0},          {"value", 7, 0},
        {"value", 6, 0},           {"value", 5, -EOVERFLOW},
        {"value", 1, -EOVERFLOW},  {"value", 0, -EOVERFLOW},
        {"value", -1, -EOVERFLOW}, {"value", INT32_MIN, -EOVERFLOW},
        {"value", INT32_MAX, 0},   {"", 1, 0},
        {"", 0, -EOVERFLOW},       {"", -1, -EOVERFLOW},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.value) + " into " + std::to_string(row.size));
        TypeParam access(Pairs{{"key", row.value}});
        std::string buffer(64, '#');
        std::string expected = buffer;
        if (row.result == 0)
            expected.replace(0, std::strlen(row.value) + 1, row.value, std::strlen(row.value) + 1);

        int32_t size = row.size;
        EXPECT_EQ(access.copy("key", buffer.data(), &size), row.result);
        EXPECT_EQ(size, static_cast<int32_t>(std::strlen(row.value) + 1));
        EXPECT_EQ(buffer, expected);
    }
}

TYPED_TEST(Getters, follow_a_value_that_stands_elsewhere) {
    char elsewhere[] = "12345";
    TypeParam access(Pairs{{"key", "1"}});
    char *const own = std::exchange((*access.head())->pszValue, elsewhere);
    char *value = nullptr;
    int32_t number = 0;
    EXPECT_EQ(access.text("key", &value), 0);
    EXPECT_EQ(access.number("key", &number), 0);
    EXPECT_EQ(value, elsewhere);
    EXPECT_EQ(number, 12345);
    (*access.head())->pszValue = own;
}

TYPED_TEST(Getters, read_numbers_as_strtoll_does) {
    for (const Number &row : kNumbers) {
        SCOPED_TRACE(row.text);
        TypeParam access(Pairs{{"n", row.text}});
        int64_t value = ~row.value;
        EXPECT_EQ(access.number("n", &value), 0);
        EXPECT_EQ(value, row.value);
    }
}

TYPED_TEST(Getters, store_the_low_bits_and_report_what_is_out_of_the_symmetric_range) {
    for (const Number &row : kNumbers) {
        SCOPED_TRACE(row.text);
        expect_narrow<int8_t, TypeParam>(row);
        expect_narrow<int16_t, TypeParam>(row);
        expect_narrow<int32_t, TypeParam>(row);
    }
}

TYPED_TEST(Getters, report_the_most_negative_byte_as_out_of_range) {
    const struct {
        const char *text;
        int32_t result;
        int stored;
    } rows[] = {{"-128", -EOVERFLOW, -128},
                {"-127", 0, -127},
                {"127", 0, 127},
                {"128", -EOVERFLOW, -128},
                {"300", -EOVERFLOW, 44},
                {"256", -EOVERFLOW, 0},
                {"9999999999999999999", -EOVERFLOW, -1}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        TypeParam access(Pairs{{"n", row.text}});
        int8_t value = 99;
        EXPECT_EQ(access.number("n", &value), row.result);
        EXPECT_EQ(value, row.stored);
    }
}

TYPED_TEST(Getters, store_no_number_without_a_value) {
    const TypeParam access(Pairs{{"key", "12"}});
    const auto messages = messages_at(3, [&] {
        expect_no_number<int64_t>(access);
        expect_no_number<int32_t>(access);
        expect_no_number<int16_t>(access);
        expect_no_number<int8_t>(access);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
}

TYPED_TEST(Setters, change_the_first_pair_of_the_key_alone) {
    const Pairs before = {{"a", "11"}, {"k", "22"}, {"K", "33"}, {"k", "44"}};
    const struct {
        const char *key;
        const char *value;
        Pairs after;
    } rows[] = {
        {"k", "xy", {{"a", "11"}, {"k", "xy"}, {"K", "33"}, {"k", "44"}}},
        {"k", "", {{"a", "11"}, {"k", ""}, {"K", "33"}, {"k", "44"}}},
        {"k", "longer", {{"a", "11"}, {"k", "longer"}, {"K", "33"}, {"k", "44"}}},
        {"a", "longer", {{"a", "longer"}, {"k", "22"}, {"K", "33"}, {"k", "44"}}},
        {"K", "longer", {{"a", "11"}, {"k", "22"}, {"K", "longer"}, {"k", "44"}}},
        {"k", nullptr, {{"a", "11"}, {"K", "33"}, {"k", "44"}}},
        {"a", nullptr, {{"k", "22"}, {"K", "33"}, {"k", "44"}}},
        {"new", "", {{"a", "11"}, {"k", "22"}, {"K", "33"}, {"k", "44"}, {"new", ""}}},
        {"", "x = y", {{"a", "11"}, {"k", "22"}, {"K", "33"}, {"k", "44"}, {"", "x = y"}}},
        {"new", nullptr, before},
        {"", nullptr, before},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.key) + " to " + (row.value == nullptr ? "nothing" : row.value));
        TypeParam access(before);
        EXPECT_EQ(access.set(row.key, row.value), 0);
        EXPECT_EQ(access.pairs(), row.after);
    }
}

TYPED_TEST(Setters, grow_a_list_from_nothing_and_shrink_it_to_nothing) {
    TypeParam access(Pairs{});
    EXPECT_EQ(access.set("k", nullptr), 0);
    EXPECT_EQ(*access.head(), nullptr);
    EXPECT_EQ(access.set("k", "1"), 0);
    EXPECT_EQ(access.set("l", "2"), 0);
    EXPECT_EQ(access.pairs(), (Pairs{{"k", "1"}, {"l", "2"}}));

    EXPECT_EQ(access.set("l", nullptr), 0);
    EXPECT_EQ(access.set("k", nullptr), 0);
    EXPECT_EQ(*access.head(), nullptr);
}

TYPED_TEST(Setters, keep_the_node_for_a_value_that_is_not_longer) {
    TypeParam access(Pairs{{"a", "0"}, {"k", "12345"}, {"z", "0"}});
    const Pair_Node *node = (*access.head())->pNext;
    const char *place = node->pszValue;
    for (const char *value : {"abcde", "abc", "", ""}) {
        SCOPED_TRACE(value);
        CountCalls allocations(Call::allocation);
        const int32_t result = access.set("k", value);
        EXPECT_EQ(allocations.count(), 0);
        EXPECT_EQ(result, 0);
        EXPECT_EQ((*access.head())->pNext, node);
        EXPECT_EQ(node->pszValue, place);
        EXPECT_EQ(access.pairs(), (Pairs{{"a", "0"}, {"k", value}, {"z", "0"}}));
    }
}

TYPED_TEST(Setters, replace_the_node_for_a_longer_value) {
    TypeParam access(Pairs{{"a", "0"}, {"k", "12345"}, {"z", "0"}});
    const Pair_Node *last = (*access.head())->pNext->pNext;
    ASSERT_EQ(access.set("k", "123456"), 0);

    const Pair_Node *node = (*access.head())->pNext;
    EXPECT_EQ(node->pNext, last);
    EXPECT_EQ(node->pszValue, node->szKey + 2);
    EXPECT_EQ(access.pairs(), (Pairs{{"a", "0"}, {"k", "123456"}, {"z", "0"}}));
}

TYPED_TEST(Setters, take_the_current_value_as_the_room_of_a_node) {
    TypeParam access(Pairs{{"k", "12345"}});
    ASSERT_EQ(access.set("k", "1"), 0);
    const Pair_Node *before = *access.head();
    ASSERT_EQ(access.set("k", "12"), 0);
    EXPECT_NE(*access.head(), before);
    EXPECT_EQ(access.pairs(), (Pairs{{"k", "12"}}));
}

TYPED_TEST(Setters, take_texts_of_the_node_itself) {
    const struct {
        const char *text;
        Pairs before;
        std::function<const char *(const Pair_Node *)> value;
        Pairs after;
    } rows[] = {
        {"its value", {{"k", "value"}}, [](const Pair_Node *node) { return node->pszValue; }, {{"k", "value"}}},
        {"the value's end",
         {{"k", "value"}},
         [](const Pair_Node *node) { return node->pszValue + 1; },
         {{"k", "alue"}}},
        {"its key, shorter", {{"k", "value"}}, [](const Pair_Node *node) { return node->szKey; }, {{"k", "k"}}},
        {"its key, longer", {{"key", "v"}}, [](const Pair_Node *node) { return node->szKey; }, {{"key", "key"}}},
        {"the next one's",
         {{"k", "v"}, {"l", "w w"}},
         [](const Pair_Node *node) { return node->pNext->pszValue; },
         {{"k", "w w"}, {"l", "w w"}}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        TypeParam access(row.before);
        EXPECT_EQ(access.set(row.before[0].key.c_str(), row.value(*access.head())), 0);
        EXPECT_EQ(access.pairs(), row.after);
    }
}

TYPED_TEST(Setters, take_the_key_from_the_node_itself) {
    for (const char *value : {"1", "longer", static_cast<const char *>(nullptr)}) {
        TypeParam access(Pairs{{"a", "0"}, {"k", "12"}});
        EXPECT_EQ(access.set((*access.head())->pNext->szKey, value), 0);
        EXPECT_EQ(access.pairs(), value == nullptr ? (Pairs{{"a", "0"}}) : (Pairs{{"a", "0"}, {"k", value}}));
    }
}

TYPED_TEST(Setters, leave_the_list_as_it_was_when_out_of_memory) {
    const Pairs before = {{"a", "0"}, {"k", "12"}, {"z", "0"}};
    const struct {
        const char *key;
        const char *value;
    } rows[] = {{"k", "longer"}, {"a", "longer"}, {"z", "longer"}, {"new", ""}, {"", "unnamed"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.key);
        TypeParam access(before);
        const Pair_Node *first = *access.head();
        const auto messages = messages_at(3, [&] {
            FailCall fault(Call::allocation, ENOMEM);
            EXPECT_EQ(access.set(row.key, row.value), -ENOMEM);
            EXPECT_EQ(fault.failed(), 1);
        });
        EXPECT_EQ(messages,
                  (Messages{std::string("[debug] Set_Pair_String_Value(#): Can't create a pair node error! (-12, ") +
                            row.key + ", " + row.value + ")\n"}));
        EXPECT_EQ(*access.head(), first);
        EXPECT_EQ(access.pairs(), before);
    }
}

TYPED_TEST(Setters, report_missing_memory_as_debug_messages_only) {
    TypeParam access(Pairs{{"k", "1"}});
    const auto messages = messages_at(2, [&] {
        FailCall fault(Call::allocation, ENOMEM, 1, 2);
        EXPECT_EQ(access.set("k", "longer"), -ENOMEM);
        EXPECT_EQ(access.set("new", int64_t{1}), -ENOMEM);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
}

TYPED_TEST(Setters, need_no_memory_to_remove) {
    TypeParam access(Pairs{{"k", "1"}, {"l", "2"}});
    FailCall fault(Call::allocation, ENOMEM, 1, 100);
    const int32_t result = access.set("k", nullptr);
    EXPECT_EQ(fault.failed(), 0);
    EXPECT_EQ(result, 0);
}

TYPED_TEST(Setters, free_what_they_replace_and_remove) {
    EXPECT_FALSE(support::loses_memory([] {
        TypeParam access(Pairs{{"a", "0"}, {"k", "1"}});
        access.set("k", "longer");
        access.set("k", "longer still");
        access.set("a", nullptr);
    }));
}

TYPED_TEST(Setters, write_numbers_in_decimal) {
    const std::pair<int64_t, const char *> numbers[] = {
        {0, "0"}, {-7, "-7"}, {INT64_MAX, "9223372036854775807"}, {INT64_MIN, "-9223372036854775808"}};
    for (const auto &[number, text] : numbers) {
        SCOPED_TRACE(text);
        TypeParam access(Pairs{{"k", ""}});
        EXPECT_EQ(access.set("k", number), 0);
        EXPECT_EQ(access.set("new", number), 0);
        EXPECT_EQ(access.pairs(), (Pairs{{"k", text}, {"new", text}}));

        int64_t value = 0;
        EXPECT_EQ(access.number("k", &value), 0);
        EXPECT_EQ(value, number);
    }
}

TYPED_TEST(Setters, overwrite_a_longer_number_in_place) {
    TypeParam access(Pairs{{"k", "1000"}});
    const Pair_Node *node = *access.head();
    EXPECT_EQ(access.set("k", int64_t{-5}), 0);
    EXPECT_EQ(*access.head(), node);
    EXPECT_EQ(access.pairs(), (Pairs{{"k", "-5"}}));
}

TYPED_TEST(Setters, report_the_number_that_found_no_memory) {
    TypeParam access(Pairs{});
    const auto messages = messages_at(3, [&] {
        FailCall fault(Call::allocation, ENOMEM);
        EXPECT_EQ(access.set("k", int64_t{-42}), -ENOMEM);
    });
    EXPECT_EQ(messages,
              (Messages{"[debug] Set_Pair_String_Value(#): Can't create a pair node error! (-12, k, -42)\n"}));
    EXPECT_EQ(*access.head(), nullptr);
}

TYPED_TEST(Setters, refuse_a_null_key_silently) {
    TypeParam access(Pairs{{"k", "1"}});
    const auto messages = messages_at(3, [&] {
        EXPECT_EQ(access.set(nullptr, "v"), -EINVAL);
        EXPECT_EQ(access.set(nullptr, nullptr), -EINVAL);
        EXPECT_EQ(access.set(nullptr, int64_t{1}), -EINVAL);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
    EXPECT_EQ(access.pairs(), (Pairs{{"k", "1"}}));
}

TEST(PairAccess, refuses_a_null_list) {
    lists::Outputs out;
    EXPECT_EQ(Get_Pair_String_Buffer(nullptr, "k", &out.value), -EINVAL);
    EXPECT_EQ(Get_Pair_String_Value(nullptr, "k", out.buffer, &out.size), -EINVAL);
    EXPECT_EQ(Get_Pair_Int8_Value(nullptr, "k", &out.tiny), -EINVAL);
    EXPECT_EQ(Get_Pair_Int16_Value(nullptr, "k", &out.small), -EINVAL);
    EXPECT_EQ(Get_Pair_Int32_Value(nullptr, "k", &out.medium), -EINVAL);
    EXPECT_EQ(Get_Pair_Int64_Value(nullptr, "k", &out.large), -EINVAL);
    EXPECT_EQ(Set_Pair_String_Value(nullptr, "k", "v"), -EINVAL);
    EXPECT_EQ(Set_Pair_String_Value(nullptr, "k", nullptr), -EINVAL);
    EXPECT_EQ(Set_Pair_Integer_Value(nullptr, "k", 1), -EINVAL);
    out.expect_untouched();
}
