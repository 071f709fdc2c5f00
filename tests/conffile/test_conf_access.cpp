// Finding and making sections in a configuration; what is promised for the pairs inside: see test_pair_access.cpp.
#include <gmock/gmock.h>

#include <cerrno>

#include "faults.h"
#include "heap.h"
#include "one_section.h"

using lists::Conf;
using lists::ConfList;
using lists::make_conf;
using lists::Messages;
using lists::messages_at;
using support::Call;
using support::FailCall;

namespace {

// Calls every getter for one key of one section; all must give `result`, and store nothing.
void expect_nothing_found(const Sect_Node *conf, const char *section, const char *key, int32_t result) {
    lists::Outputs out;
    EXPECT_EQ(Get_Conf_String_Pointer(conf, section, key, &out.value), result);
    EXPECT_EQ(Get_Conf_String_Value(conf, section, key, out.buffer, &out.size), result);
    EXPECT_EQ(Get_Conf_Int8_Value(conf, section, key, &out.tiny), result);
    EXPECT_EQ(Get_Conf_Int16_Value(conf, section, key, &out.small), result);
    EXPECT_EQ(Get_Conf_Int32_Value(conf, section, key, &out.medium), result);
    EXPECT_EQ(Get_Conf_Int64_Value(conf, section, key, &out.large), result);
    out.expect_untouched();
}

const Conf kConf = {{"", {{"k", "global"}}},
                    {"s", {{"k", "first"}}},
                    {"S", {{"k", "upper"}}},
                    {"empty", {}},
                    {"s", {{"k", "second"}, {"only", "here"}}}};

}  // namespace

TEST(ConfAccess, finds_the_first_section_of_a_name) {
    const ConfList conf = make_conf(kConf);
    const std::pair<const char *, const char *> rows[] = {{"", "global"}, {"s", "first"}, {"S", "upper"}};
    for (const auto &[section, expected] : rows) {
        SCOPED_TRACE(section);
        char *value = nullptr;
        ASSERT_EQ(Get_Conf_String_Pointer(conf, section, "k", &value), 0);
        EXPECT_STREQ(value, expected);
    }
}

TEST(ConfAccess, tells_a_missing_section_from_a_missing_key) {
    const ConfList conf = make_conf(kConf);
    const struct {
        const char *section;
        const char *key;
        int32_t result;
    } rows[] = {
        {"none", "k", -ENOANO}, {"s ", "k", -ENOANO},        {"ss", "k", -ENOANO},   {"emp", "k", -ENOANO},
        {"s", "x", -ENODATA},   {"s", "only", -ENODATA},     {"s", "K", -ENODATA},   {"empty", "k", -ENODATA},
        {"", "x", -ENODATA},    {"empty", "none", -ENODATA}, {"none", "x", -ENOANO},
    };
    const auto messages = messages_at(3, [&] {
        for (const auto &row : rows) {
            SCOPED_TRACE(std::string(row.section) + "/" + row.key);
            expect_nothing_found(conf, row.section, row.key, row.result);
        }
    });
    EXPECT_THAT(messages, testing::IsEmpty());
}

TEST(ConfAccess, has_no_global_section_where_none_is_in_the_list) {
    expect_nothing_found(make_conf({{"s", {{"k", "v"}}}}), "", "k", -ENOANO);
}

TEST(ConfAccess, finds_an_unnamed_section_wherever_it_stands) {
    const ConfList conf = make_conf({{"s", {{"k", "v"}}}, {"", {{"k", "unnamed"}}}});
    char *value = nullptr;
    ASSERT_EQ(Get_Conf_String_Pointer(conf, "", "k", &value), 0);
    EXPECT_STREQ(value, "unnamed");
}

TEST(ConfAccess, refuses_null_arguments_silently) {
    const ConfList conf = make_conf(kConf);
    const auto messages = messages_at(3, [&] {
        expect_nothing_found(nullptr, "s", "k", -EINVAL);
        expect_nothing_found(conf, nullptr, "k", -EINVAL);
        expect_nothing_found(conf, "s", nullptr, -EINVAL);
        for (const char *value : {"v", static_cast<const char *>(nullptr)}) {
            EXPECT_EQ(Set_Conf_String_Value(nullptr, "s", "k", value), -EINVAL);
            EXPECT_EQ(Set_Conf_String_Value(conf, nullptr, "k", value), -EINVAL);
            EXPECT_EQ(Set_Conf_String_Value(conf, "s", nullptr, value), -EINVAL);
        }
        EXPECT_EQ(Set_Conf_Integer_Value(nullptr, "s", "k", 1), -EINVAL);
        EXPECT_EQ(Set_Conf_Integer_Value(conf, nullptr, "k", 1), -EINVAL);
        EXPECT_EQ(Set_Conf_Integer_Value(conf, "s", nullptr, 1), -EINVAL);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
    EXPECT_EQ(lists::conf_of(conf), kConf);
}

TEST(ConfAccess, judges_the_arguments_of_a_missing_section_first) {
    const ConfList conf = make_conf(kConf);
    int32_t size = 8;
    char buffer[8];
    EXPECT_EQ(Get_Conf_String_Pointer(conf, "none", "k", nullptr), -EINVAL);
    EXPECT_EQ(Get_Conf_String_Value(conf, "none", "k", nullptr, &size), -EINVAL);
    EXPECT_EQ(Get_Conf_String_Value(conf, "none", "k", buffer, nullptr), -EINVAL);
    EXPECT_EQ(Get_Conf_Int64_Value(conf, "none", "k", nullptr), -EINVAL);
    EXPECT_EQ(Get_Conf_Int8_Value(conf, "none", "k", nullptr), -EINVAL);
}

TEST(SetConf, changes_the_first_section_of_the_name_alone) {
    const ConfList conf = make_conf({{"s", {{"k", "1"}}}, {"t", {}}, {"s", {{"k", "2"}, {"l", "3"}}}});
    EXPECT_EQ(Set_Conf_String_Value(conf, "s", "k", "longer"), 0);
    EXPECT_EQ(Set_Conf_String_Value(conf, "s", "l", "new"), 0);
    EXPECT_EQ(Set_Conf_Integer_Value(conf, "t", "n", INT64_MIN), 0);
    EXPECT_EQ(lists::conf_of(conf), (Conf{{"s", {{"k", "longer"}, {"l", "new"}}},
                                          {"t", {{"n", "-9223372036854775808"}}},
                                          {"s", {{"k", "2"}, {"l", "3"}}}}));
}

TEST(SetConf, appends_a_missing_section_with_its_one_pair) {
    const Conf before = {{"a", {{"k", "1"}}}, {"b", {}}};
    for (const char *name : {"c", "A", " a", ""}) {
        SCOPED_TRACE(name);
        const ConfList conf = make_conf(before);
        EXPECT_EQ(Set_Conf_String_Value(conf, name, "k", "v"), 0);
        EXPECT_EQ(Set_Conf_Integer_Value(conf, name, "n", -5), 0);

        Conf after = before;
        after.push_back({name, {{"k", "v"}, {"n", "-5"}}});
        EXPECT_EQ(lists::conf_of(conf), after);
    }
}

TEST(SetConf, lays_a_new_pair_out_like_any_other) {
    const ConfList conf = make_conf({{"a", {}}});
    ASSERT_EQ(Set_Conf_String_Value(conf, "b", "key", "value"), 0);
    const Pair_Node *pair = conf->pNext->pPairs;
    EXPECT_EQ(pair->pszValue, pair->szKey + sizeof "key");
}

TEST(SetConf, removes_nothing_where_nothing_is) {
    const ConfList conf = make_conf(kConf);
    EXPECT_EQ(Set_Conf_String_Value(conf, "none", "k", nullptr), 0);
    EXPECT_EQ(Set_Conf_String_Value(conf, "empty", "k", nullptr), 0);
    EXPECT_EQ(Set_Conf_String_Value(conf, "s", "only", nullptr), 0);
    EXPECT_EQ(lists::conf_of(conf), kConf);
}

TEST(SetConf, keeps_a_section_whose_last_pair_is_removed) {
    const ConfList conf = make_conf({{"a", {{"k", "1"}}}, {"b", {}}});
    EXPECT_EQ(Set_Conf_String_Value(conf, "a", "k", nullptr), 0);
    EXPECT_EQ(lists::conf_of(conf), (Conf{{"a", {}}, {"b", {}}}));
}

TEST(SetConf, leaves_the_list_as_it_was_when_a_new_section_finds_no_memory) {
    const Messages pair_message = {
        "[debug] Set_Conf_String_Value(#): Can't create a pair node error! (-12, key, value)\n"};
    const Messages section_message = {"[debug] Set_Conf_String_Value(#): Can'r create a sect node error! (-12, new)\n"};
    for (int nth = 1; nth <= 3; nth++) {
        SCOPED_TRACE(nth);
        const ConfList conf = make_conf(kConf);
        Conf after = kConf;
        const auto messages = messages_at(3, [&] {
            FailCall fault(Call::allocation, ENOMEM, nth);
            EXPECT_EQ(Set_Conf_String_Value(conf, "new", "key", "value"), nth <= 2 ? -ENOMEM : 0);
            EXPECT_EQ(fault.failed(), nth <= 2 ? 1 : 0) << "the pair is the first allocation, the section the second";
        });
        if (nth == 3)
            after.push_back({"new", {{"key", "value"}}});
        EXPECT_EQ(messages, nth == 1 ? pair_message : nth == 2 ? section_message : Messages{});
        EXPECT_EQ(lists::conf_of(conf), after);
    }
}

TEST(SetConf, reports_the_number_of_a_new_section_that_found_no_memory) {
    const ConfList conf = make_conf(kConf);
    const auto set = [&] {
        FailCall fault(Call::allocation, ENOMEM);
        EXPECT_EQ(Set_Conf_Integer_Value(conf, "new", "key", -42), -ENOMEM);
    };
    EXPECT_EQ(messages_at(3, set),
              (Messages{"[debug] Set_Conf_String_Value(#): Can't create a pair node error! (-12, key, -42)\n"}));
    EXPECT_THAT(messages_at(2, set), testing::IsEmpty());
}

TEST(SetConf, frees_the_new_pair_of_a_section_that_finds_no_memory) {
    const ConfList conf = make_conf(kConf);
    EXPECT_FALSE(support::loses_memory([&] {
        FailCall fault(Call::allocation, ENOMEM, 2);
        Set_Conf_String_Value(conf, "new", "key", "value");
    }));
    EXPECT_EQ(lists::conf_of(conf), kConf);
}
