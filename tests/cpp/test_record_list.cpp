// The owning range over a list of C records.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "korvex/detail/record_list.hpp"

namespace {

struct Node {
    Node *next;
    const char *name;
};

int g_freed = 0;

struct Traits {
    struct element {
        std::string_view name;
    };
    using record = Node;
    static const Node *next(const Node &at) { return at.next; }
    static element show(const Node &at) { return {at.name}; }
    static void free(Node *first) {
        for (; first != nullptr; g_freed++)
            delete std::exchange(first, first->next);
    }
};
using List = korvex::detail::record_list<Traits>;

List make() {
    return List(new Node{new Node{nullptr, "two"}, "one"});
}

std::vector<std::string_view> names_of(const List &list) {
    std::vector<std::string_view> names;
    for (const auto &element : list)
        names.push_back(element.name);
    return names;
}

static_assert(std::forward_iterator<List::iterator>);
static_assert(!std::is_copy_constructible_v<List> && !std::is_copy_assignable_v<List>);
static_assert(std::is_nothrow_move_constructible_v<List>);

TEST(RecordList, shows_each_record_in_order) {
    const List list = make();
    EXPECT_EQ(names_of(list), (std::vector<std::string_view>{"one", "two"}));
    EXPECT_EQ(list.front().name, "one");
    EXPECT_EQ(list.begin()->name, "one");
    EXPECT_EQ(list.size(), 2U);
    EXPECT_FALSE(list.empty());
    EXPECT_NE(std::find_if(list.begin(), list.end(), [](const auto &element) { return element.name == "two"; }),
              list.end());
}

TEST(RecordList, is_empty_without_records) {
    const List list;
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(list.size(), 0U);
    EXPECT_EQ(list.begin(), list.end());
}

TEST(RecordList, frees_the_records_once) {
    g_freed = 0;
    {
        List list = make();
        const List other = std::move(list);
        EXPECT_TRUE(list.empty());  // NOLINT(bugprone-use-after-move): what a moved-from list is
        EXPECT_EQ(g_freed, 0);
    }
    EXPECT_EQ(g_freed, 2);
}

TEST(RecordList, lives_as_long_as_a_loop_over_it) {
    g_freed = 0;
    for (const auto &element : make()) {
        EXPECT_FALSE(element.name.empty());
        EXPECT_EQ(g_freed, 0);
    }
    EXPECT_EQ(g_freed, 2);
}

}  // namespace
