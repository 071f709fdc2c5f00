// The two ways to one list of pairs, the list itself and a section of a configuration, under one set of names: what
// both promise is tested once.
#pragma once

#include <gtest/gtest.h>

#include "conf_lists.h"

namespace lists {

class OnPairs {
  public:
    explicit OnPairs(const Pairs &pairs) : list_(make_pairs(pairs)) {}

    Pair_Node **head() { return list_.head(); }
    Pairs pairs() const { return pairs_of(list_); }

    int32_t text(const char *key, char **value) const { return Get_Pair_String_Buffer(list_, key, value); }
    int32_t copy(const char *key, char *buffer, int32_t *size) const {
        return Get_Pair_String_Value(list_, key, buffer, size);
    }
    int32_t number(const char *key, int64_t *value) const { return Get_Pair_Int64_Value(list_, key, value); }
    int32_t number(const char *key, int32_t *value) const { return Get_Pair_Int32_Value(list_, key, value); }
    int32_t number(const char *key, int16_t *value) const { return Get_Pair_Int16_Value(list_, key, value); }
    int32_t number(const char *key, int8_t *value) const { return Get_Pair_Int8_Value(list_, key, value); }

    int32_t set(const char *key, const char *value) { return Set_Pair_String_Value(head(), key, value); }
    int32_t set(const char *key, int64_t value) { return Set_Pair_Integer_Value(head(), key, value); }

  private:
    PairList list_;
};

class OnSection {
  public:
    // The neighbours hold what must never be taken for the section's own.
    explicit OnSection(const Pairs &pairs) : list_(make_conf({{"", kOther}, {"s", pairs}, {"s", kOther}})) {}

    Pair_Node **head() { return &list_->pNext->pPairs; }
    Pairs pairs() const {
        EXPECT_EQ(pairs_of(list_->pPairs), kOther);
        EXPECT_EQ(conf_of(list_->pNext->pNext), (Conf{{"s", kOther}}));
        return pairs_of(list_->pNext->pPairs);
    }

    int32_t text(const char *key, char **value) const { return Get_Conf_String_Pointer(list_, "s", key, value); }
    int32_t copy(const char *key, char *buffer, int32_t *size) const {
        return Get_Conf_String_Value(list_, "s", key, buffer, size);
    }
    int32_t number(const char *key, int64_t *value) const { return Get_Conf_Int64_Value(list_, "s", key, value); }
    int32_t number(const char *key, int32_t *value) const { return Get_Conf_Int32_Value(list_, "s", key, value); }
    int32_t number(const char *key, int16_t *value) const { return Get_Conf_Int16_Value(list_, "s", key, value); }
    int32_t number(const char *key, int8_t *value) const { return Get_Conf_Int8_Value(list_, "s", key, value); }

    int32_t set(const char *key, const char *value) { return Set_Conf_String_Value(list_, "s", key, value); }
    int32_t set(const char *key, int64_t value) { return Set_Conf_Integer_Value(list_, "s", key, value); }

  private:
    static inline const Pairs kOther = {{"k", "other"}, {"missing", "7"}};
    ConfList list_;
};

// Where getters store, with a content of its own that a getter which fails must leave alone.
struct Outputs {
    char buffer[8] = "as was";
    char *value = buffer;
    int32_t size = sizeof buffer;
    int8_t tiny = 1;
    int16_t small = 1;
    int32_t medium = 1;
    int64_t large = 1;

    void expect_untouched() const {
        EXPECT_STREQ(buffer, "as was");
        EXPECT_EQ(value, buffer);
        EXPECT_EQ(size, static_cast<int32_t>(sizeof buffer));
        EXPECT_EQ(tiny + small + medium + large, 4);
    }
};

using BothWays = testing::Types<OnPairs, OnSection>;

}  // namespace lists
