// Queues, their nodes, and how they have to be linked.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "faults.h"
#include "heap_watch.h"
#include "links.h"

namespace links_test {

using namespace support;

constexpr uint8_t kReady = 1;
constexpr uint8_t kMarked = 2;
constexpr int32_t kDefaultCapacity = 32767;

// A host's node.
struct Node {
    Link_Node link;
    int64_t value;
};

inline Link_Node *make_node(uint16_t size = 1, int64_t value = 0) {
    auto *node = static_cast<Node *>(std::malloc(sizeof(Node)));
    if (node == nullptr)
        std::abort();
    *node = {{nullptr, nullptr, 0xabcd, size}, value};
    return &node->link;
}

inline int64_t value_of(const Link_Node *node) {
    return reinterpret_cast<const Node *>(node)->value;
}

// The queue's place in its own list.
inline Link_Node *anchor_of(Link_Queue &queue) {
    return reinterpret_cast<Link_Node *>(&queue.pHead);
}

// A queue's fields, and the list from both ends.
inline void expect_queue(Link_Queue &queue, const std::vector<Link_Node *> &nodes, uint8_t flags = kReady) {
    uint32_t size = 0;
    const Link_Node *before = anchor_of(queue);
    const Link_Node *next = queue.pHead;
    for (const Link_Node *node : nodes) {
        ASSERT_EQ(next, node);
        EXPECT_EQ(node->pPrev, before);
        EXPECT_EQ(node->wUser, 0xabcd);
        size += node->wSize;
        before = node;
        next = node->pNext;
    }
    EXPECT_EQ(next, anchor_of(queue));
    EXPECT_EQ(queue.pTail, before);
    EXPECT_EQ(queue.nNumber, nodes.size());
    EXPECT_EQ(queue.nSize, size);
    EXPECT_EQ(queue.uFlags, flags);
}

inline std::vector<void *> reversed(const std::vector<Link_Node *> &nodes) {
    return {nodes.rbegin(), nodes.rend()};
}

// A queue of its own for each test, without mutex and condition.
class QueueTest : public testing::Test {
  protected:
    QueueTest() { EXPECT_EQ(Link_Queue_Init(&queue_, 100, nullptr, nullptr), 0); }
    ~QueueTest() override { Link_Queue_Destroy(&queue_); }

    Link_Node *push(uint16_t size = 1, int64_t value = 0) {
        Link_Node *const node = make_node(size, value);
        EXPECT_EQ(Link_Queue_Push_Node(&queue_, node), 0);
        return node;
    }
    std::vector<Link_Node *> push_many(size_t count) {
        std::vector<Link_Node *> nodes;
        for (size_t i = 0; i < count; i++)
            nodes.push_back(push(static_cast<uint16_t>(i * 7), static_cast<int64_t>(i)));
        return nodes;
    }
    Link_Node *pop() {
        Link_Node *node = nullptr;
        EXPECT_EQ(Link_Queue_Pop_Node(&queue_, &node), 1);
        return node;
    }

    Link_Queue queue_;
};

// What can be asked of a queue that is ready.
struct Operation {
    const char *name;
    int32_t (*run)(Link_Queue *queue);
    bool refused_when_marked;
};

inline Link_Node *const kUntouched = reinterpret_cast<Link_Node *>(0x10);

// A pop of which nothing may come.
inline int32_t pop_nothing(int32_t (*pop)(Link_Queue *, Link_Node **), Link_Queue *queue) {
    Link_Node *node = kUntouched;
    const int32_t result = pop(queue, &node);
    EXPECT_EQ(node, kUntouched);
    return result;
}

// A push that is refused: the node is freed where the queue is marked, and stays the caller's where it is not ready.
inline int32_t push_in_vain(Link_Queue *queue) {
    Link_Node *const node = make_node();
    HeapWatch watch;
    const int32_t result = Link_Queue_Push_Node(queue, node);
    watch.stop();
    if (result == -EXFULL) {
        EXPECT_THAT(watch.freed(), testing::ElementsAre(node));
    } else {
        EXPECT_THAT(watch.freed(), testing::IsEmpty());
        std::free(node);
    }
    return result;
}

inline const Operation kOperations[] = {
    {"Reset", [](Link_Queue *queue) { return Link_Queue_Reset(queue, 5); }, false},
    {"Mark", [](Link_Queue *queue) { return Link_Queue_Mark(queue); }, false},
    {"Get_Size", [](Link_Queue *queue) { return Link_Queue_Get_Size(queue); }, true},
    {"Get_Number", [](Link_Queue *queue) { return Link_Queue_Get_Number(queue); }, true},
    {"Pop_Node", [](Link_Queue *queue) { return pop_nothing(Link_Queue_Pop_Node, queue); }, true},
    {"Pop_Nodes", [](Link_Queue *queue) { return pop_nothing(Link_Queue_Pop_Nodes, queue); }, true},
    {"Push_Node", push_in_vain, true},
};

}  // namespace links_test
