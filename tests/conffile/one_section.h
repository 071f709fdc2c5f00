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

using BothWays = testing::Types<OnPairs, OnSection>;

}  // namespace lists
