// Making and freeing nodes.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>

#include "conf_lists.h"
#include "faults.h"
#include "heap.h"
#include "heap_watch.h"

using lists::ConfList;
using lists::messages_at;
using lists::PairList;
using support::Call;
using support::CountCalls;
using support::FailCall;

namespace {

const std::string kLong(1 << 20, 'k');

// An address that no function stores.
template <typename Node>
Node *untouched() {
    static long anchor;
    return reinterpret_cast<Node *>(&anchor);
}

}  // namespace

TEST(CreatePairNode, lays_key_and_value_out_in_one_block) {
    const lists::Pairs pairs = {{"key", "value"},    {"", ""}, {"k", ""}, {"", "v"}, {"a key", " v = [x] # "},
                                {kLong, kLong + "v"}};
    for (const auto &[key, value] : pairs) {
        SCOPED_TRACE(key.substr(0, 20));
        PairList node;
        CountCalls allocations(Call::allocation);
        const int32_t result = Create_Pair_Node(node.head(), key.c_str(), value.c_str());
        EXPECT_EQ(allocations.count(), 1);
        ASSERT_EQ(result, 0);
        EXPECT_EQ(node->pNext, nullptr);
        EXPECT_EQ(node->szKey, key);
        EXPECT_EQ(node->pszValue, node->szKey + key.size() + 1);
        EXPECT_EQ(node->pszValue, value);
    }
}

TEST(CreatePairNode, copies_its_texts) {
    char key[] = "key";
    char value[] = "value";
    PairList node;
    ASSERT_EQ(Create_Pair_Node(node.head(), key, value), 0);

    std::memset(key, 'x', 3);
    std::memset(value, 'x', 5);
    EXPECT_EQ(lists::pairs_of(node), (lists::Pairs{{"key", "value"}}));
}

TEST(CreatePairNode, refuses_null_arguments_silently_and_stores_nothing) {
    Pair_Node *node = untouched<Pair_Node>();
    const auto messages = messages_at(3, [&] {
        EXPECT_EQ(Create_Pair_Node(nullptr, "k", "v"), -EINVAL);
        EXPECT_EQ(Create_Pair_Node(&node, nullptr, "v"), -EINVAL);
        EXPECT_EQ(Create_Pair_Node(&node, "k", nullptr), -EINVAL);
        EXPECT_EQ(Create_Integer_Pair_Node(nullptr, "k", 1), -EINVAL);
        EXPECT_EQ(Create_Integer_Pair_Node(&node, nullptr, 1), -EINVAL);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
    EXPECT_EQ(node, untouched<Pair_Node>());
}

TEST(CreateNodes, store_null_when_out_of_memory) {
    const auto messages = messages_at(3, [] {
        const std::function<int32_t(Pair_Node **)> makers[] = {
            [](Pair_Node **node) { return Create_Pair_Node(node, "k", "v"); },
            [](Pair_Node **node) { return Create_Integer_Pair_Node(node, "k", 12); }};
        for (const auto &make : makers) {
            Pair_Node *node = untouched<Pair_Node>();
            FailCall fault(Call::allocation, ENOMEM);
            EXPECT_EQ(make(&node), -ENOMEM);
            EXPECT_EQ(fault.failed(), 1);
            EXPECT_EQ(node, nullptr);
        }
        Sect_Node *section = untouched<Sect_Node>();
        FailCall fault(Call::allocation, ENOMEM);
        EXPECT_EQ(Create_Sect_Node(&section, "s"), -ENOMEM);
        EXPECT_EQ(section, nullptr);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
}

TEST(CreateNodes, report_no_memory_whatever_errno_says) {
    Pair_Node *node = untouched<Pair_Node>();
    FailCall fault(Call::allocation, 0);
    EXPECT_EQ(Create_Pair_Node(&node, "k", "v"), -ENOMEM);
    EXPECT_EQ(node, nullptr);
}

TEST(CreateIntegerPairNode, writes_the_number_in_decimal) {
    const std::pair<int64_t, const char *> numbers[] = {
        {0, "0"}, {-1, "-1"}, {42, "42"}, {INT64_MAX, "9223372036854775807"}, {INT64_MIN, "-9223372036854775808"}};
    for (const auto &[number, text] : numbers) {
        SCOPED_TRACE(text);
        PairList node;
        ASSERT_EQ(Create_Integer_Pair_Node(node.head(), "number", number), 0);
        EXPECT_EQ(lists::pairs_of(node), (lists::Pairs{{"number", text}}));
        EXPECT_EQ(node->pszValue, node->szKey + sizeof "number");
    }
}

TEST(CreateSectNode, makes_an_empty_section_in_one_block) {
    for (const std::string &name : {std::string("sec"), std::string(), std::string(" a ]"), kLong}) {
        SCOPED_TRACE(name.substr(0, 20));
        ConfList node;
        CountCalls allocations(Call::allocation);
        const int32_t result = Create_Sect_Node(node.head(), name.c_str());
        EXPECT_EQ(allocations.count(), 1);
        ASSERT_EQ(result, 0);
        EXPECT_EQ(node->pNext, nullptr);
        EXPECT_EQ(node->pPairs, nullptr);
        EXPECT_EQ(node->szName, name);
    }
}

TEST(CreateSectNode, refuses_null_arguments_silently_and_stores_nothing) {
    Sect_Node *node = untouched<Sect_Node>();
    const auto messages = messages_at(3, [&] {
        EXPECT_EQ(Create_Sect_Node(nullptr, "s"), -EINVAL);
        EXPECT_EQ(Create_Sect_Node(&node, nullptr), -EINVAL);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
    EXPECT_EQ(node, untouched<Sect_Node>());
}

TEST(FreeNodes, ignore_null) {
    const auto messages = messages_at(3, [] {
        support::HeapWatch watch;
        Free_Pair_Node(nullptr);
        Free_Sect_Node(nullptr);
        watch.stop();
        EXPECT_TRUE(watch.freed().empty());
    });
    EXPECT_THAT(messages, testing::IsEmpty());
}

TEST(FreeNodes, free_every_node_behind_the_first) {
    EXPECT_FALSE(support::loses_memory([] { lists::make_pairs({{"a", "1"}, {"b", "2"}, {"c", "3"}}); }));
    EXPECT_FALSE(support::loses_memory([] {
        lists::make_conf({{"", {{"a", "1"}, {"b", "2"}}}, {"empty", {}}, {"s", {{"c", "3"}, {"d", "4"}}}});
    }));
}

TEST(FreeNodes, free_one_node_alone_when_it_is_cut_off) {
    PairList list = lists::make_pairs({{"a", "1"}, {"b", "2"}});
    Pair_Node *first = std::exchange(*list.head(), list->pNext);
    first->pNext = nullptr;
    Free_Pair_Node(first);
    EXPECT_EQ(lists::pairs_of(list), (lists::Pairs{{"b", "2"}}));
}

TEST(FreeNodes, take_lists_of_a_million_nodes) {
    // A free function that calls itself for the tail would run out of stack.
    PairList pairs;
    ConfList conf;
    for (int i = 0; i < 1'000'000; i++) {
        PairList pair = lists::make_pairs({{"k", "v"}});
        pair->pNext = std::exchange(*pairs.head(), nullptr);
        pairs = std::move(pair);
        ConfList section = lists::make_conf({{"s", {}}});
        section->pNext = std::exchange(*conf.head(), nullptr);
        conf = std::move(section);
    }
    EXPECT_NE(pairs->pNext, nullptr);
    EXPECT_NE(conf->pNext, nullptr);
}
