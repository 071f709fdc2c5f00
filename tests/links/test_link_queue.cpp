// A queue in one thread: its states, its order, its counts, and who frees a node.
#include <climits>

#include "heap.h"
#include "queues.h"

using namespace links_test;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

using LinkQueue = QueueTest;

std::string bytes_of(const Link_Queue &queue) {
    return {reinterpret_cast<const char *>(&queue), sizeof queue};
}

}  // namespace

TEST(LinkQueueInit, makes_a_queue_of_anything) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    const struct {
        int32_t asked;
        int32_t capacity;
    } table[] = {{0, 32767}, {-1, 32767}, {INT_MIN, 32767}, {1, 1}, {2, 2}, {32768, 32768}, {INT_MAX, INT_MAX}};
    for (const auto &row : table)
        for (const int garbage : {0, 1, 0x5a, 0xff}) {
            SCOPED_TRACE(std::to_string(row.asked) + ", " + std::to_string(garbage));
            Link_Queue queue;
            std::memset(static_cast<void *>(&queue), garbage, sizeof queue);
            EXPECT_EQ(Link_Queue_Init(&queue, row.asked, &mutex, &condition), 0);
            EXPECT_EQ(queue.nMaxNumber, row.capacity);
            EXPECT_EQ(queue.pMutex, &mutex);
            EXPECT_EQ(queue.pCond, &condition);
            expect_queue(queue, {});
            EXPECT_EQ(Link_Queue_Get_Number(&queue), 0);
        }

    Link_Queue queue;
    EXPECT_EQ(Link_Queue_Init(&queue, 3, nullptr, &condition), 0);
    EXPECT_EQ(queue.pMutex, nullptr);
    EXPECT_EQ(Link_Queue_Init(&queue, 3, &mutex, nullptr), 0);
    EXPECT_EQ(queue.pCond, nullptr);
    EXPECT_EQ(Link_Queue_Init(nullptr, 3, &mutex, &condition), -EINVAL);
}

TEST_F(LinkQueue, init_forgets_what_was_queued) {
    std::vector<Link_Node *> nodes = push_many(3);
    Link_Queue_Mark(&queue_);
    const CountCalls frees(Call::free);
    EXPECT_EQ(Link_Queue_Init(&queue_, 2, nullptr, nullptr), 0);
    EXPECT_EQ(frees.count(), 0);
    expect_queue(queue_, {});
    for (Link_Node *const node : nodes)
        std::free(node);
}

TEST_F(LinkQueue, null_pointers_are_refused) {
    push();
    const std::string before = bytes_of(queue_);
    for (const Operation &operation : kOperations)
        EXPECT_EQ(operation.run(nullptr), -EINVAL) << operation.name;
    EXPECT_EQ(Link_Queue_Destroy(nullptr), -EINVAL);
    EXPECT_EQ(Link_Queue_Pop_Node(&queue_, nullptr), -EINVAL);
    EXPECT_EQ(Link_Queue_Pop_Nodes(&queue_, nullptr), -EINVAL);
    EXPECT_EQ(Link_Queue_Push_Node(&queue_, nullptr), -EINVAL);
    EXPECT_EQ(bytes_of(queue_), before);

    // A marked queue does not excuse them.
    Link_Queue_Mark(&queue_);
    EXPECT_EQ(Link_Queue_Pop_Node(&queue_, nullptr), -EINVAL);
    EXPECT_EQ(Link_Queue_Pop_Nodes(&queue_, nullptr), -EINVAL);
    EXPECT_EQ(Link_Queue_Push_Node(&queue_, nullptr), -EINVAL);
}

TEST_F(LinkQueue, that_is_not_ready_refuses_everything) {
    for (const uint8_t flags : {0x00, 0x02, 0xfe}) {
        SCOPED_TRACE(static_cast<int>(flags));
        queue_.uFlags = flags;
        const std::string before = bytes_of(queue_);
        for (const Operation &operation : kOperations)
            EXPECT_EQ(operation.run(&queue_), -EINVAL) << operation.name;
        EXPECT_EQ(bytes_of(queue_), before);
    }

    Link_Queue destroyed;
    EXPECT_EQ(Link_Queue_Init(&destroyed, 3, nullptr, nullptr), 0);
    EXPECT_EQ(Link_Queue_Destroy(&destroyed), 0);
    for (const Operation &operation : kOperations)
        EXPECT_EQ(operation.run(&destroyed), -EINVAL) << operation.name;
}

TEST_F(LinkQueue, that_is_marked_refuses_all_but_mark_and_reset) {
    const std::vector<Link_Node *> nodes = push_many(3);
    EXPECT_EQ(Link_Queue_Mark(&queue_), 0);
    expect_queue(queue_, nodes, kReady | kMarked);
    EXPECT_EQ(Link_Queue_Mark(&queue_), 0);

    for (int round = 0; round < 3; round++)
        for (const Operation &operation : kOperations)
            if (operation.refused_when_marked) {
                EXPECT_EQ(operation.run(&queue_), -EXFULL) << operation.name;
                expect_queue(queue_, nodes, kReady | kMarked);
            }

    EXPECT_EQ(Link_Queue_Reset(&queue_, 5), 0);
    expect_queue(queue_, {});
    push();
}

TEST_F(LinkQueue, that_is_empty_gives_nothing) {
    for (const Operation &operation : kOperations)
        if (std::string(operation.name) != "Push_Node" && std::string(operation.name) != "Mark") {
            EXPECT_EQ(operation.run(&queue_), 0) << operation.name;
        }
    expect_queue(queue_, {});
}

TEST_F(LinkQueue, gives_the_nodes_in_the_order_in_which_they_came) {
    std::vector<Link_Node *> nodes;
    for (int64_t i = 0; i < 10; i++) {
        nodes.push_back(push(static_cast<uint16_t>(i * 100), i));
        expect_queue(queue_, nodes);
        EXPECT_EQ(Link_Queue_Get_Number(&queue_), i + 1);
        EXPECT_EQ(Link_Queue_Get_Size(&queue_), 100 * i * (i + 1) / 2);
    }
    for (int64_t i = 0; i < 10; i++) {
        Link_Node *const node = pop();
        EXPECT_EQ(node, nodes.front());
        EXPECT_EQ(value_of(node), i);
        nodes.erase(nodes.begin());
        expect_queue(queue_, nodes);
        std::free(node);
    }
}

TEST_F(LinkQueue, popped_node_is_linked_to_itself_and_otherwise_as_it_came) {
    for (const size_t count : {1, 2, 5}) {
        std::vector<Link_Node *> nodes = push_many(count);
        for (size_t i = 0; i < count; i++) {
            Link_Node *const node = pop();
            EXPECT_EQ(node->pNext, node);
            EXPECT_EQ(node->pPrev, node);
            EXPECT_EQ(node->wUser, 0xabcd);
            EXPECT_EQ(node->wSize, i * 7);
            EXPECT_EQ(value_of(node), static_cast<int64_t>(i));
            std::free(node);
        }
    }
}

TEST_F(LinkQueue, nodes_that_are_popped_at_once_form_a_ring) {
    for (const size_t count : {1, 2, 3, 10}) {
        SCOPED_TRACE(count);
        const std::vector<Link_Node *> nodes = push_many(count);
        Link_Node *first = nullptr;
        EXPECT_EQ(Link_Queue_Pop_Nodes(&queue_, &first), static_cast<int32_t>(count));
        expect_queue(queue_, {});
        EXPECT_EQ(Link_Queue_Get_Size(&queue_), 0);

        const Link_Node *node = first;
        for (size_t i = 0; i < count; i++) {
            ASSERT_EQ(node, nodes[i]);
            EXPECT_EQ(node->pPrev, nodes[(i + count - 1) % count]);
            EXPECT_EQ(node->wUser, 0xabcd);
            EXPECT_EQ(value_of(node), static_cast<int64_t>(i));
            node = node->pNext;
        }
        EXPECT_EQ(node, first);
        for (Link_Node *const taken : nodes)
            std::free(taken);
    }
}

TEST_F(LinkQueue, popped_nodes_may_be_pushed_again) {
    std::vector<Link_Node *> nodes = push_many(3);
    EXPECT_EQ(Link_Queue_Push_Node(&queue_, pop()), 0);
    std::rotate(nodes.begin(), nodes.begin() + 1, nodes.end());
    expect_queue(queue_, nodes);

    Link_Node *first = nullptr;
    ASSERT_EQ(Link_Queue_Pop_Nodes(&queue_, &first), 3);
    for (Link_Node *const node : nodes)
        EXPECT_EQ(Link_Queue_Push_Node(&queue_, node), 0);
    expect_queue(queue_, nodes);
}

TEST_F(LinkQueue, size_is_the_sum_of_the_nodes) {
    uint32_t sum = 0;
    for (const uint16_t size : {0, 1, 0, 65535, 0, 256, 65535}) {
        push(size);
        sum += size;
        EXPECT_EQ(queue_.nSize, sum);
        EXPECT_EQ(Link_Queue_Get_Size(&queue_), static_cast<int32_t>(sum));
    }
    for (int i = 0; i < 7; i++) {
        Link_Node *const node = pop();
        sum -= node->wSize;
        EXPECT_EQ(queue_.nSize, sum);
        std::free(node);
    }
    EXPECT_EQ(sum, 0u);
}

TEST_F(LinkQueue, size_has_room_for_65535_of_the_largest_nodes) {
    EXPECT_EQ(Link_Queue_Reset(&queue_, INT_MAX), 0);
    uint32_t sum = 0;
    for (int i = 0; i < 65535; i++) {
        push(65535);
        sum += 65535;
        ASSERT_EQ(queue_.nSize, sum);
    }
    EXPECT_EQ(sum, 4'294'836'225u);
    EXPECT_EQ(Link_Queue_Get_Number(&queue_), 65535);
    EXPECT_EQ(static_cast<uint32_t>(Link_Queue_Get_Size(&queue_)), sum);
    for (int i = 0; i < 65535; i++)
        std::free(pop());
    expect_queue(queue_, {});
}

TEST_F(LinkQueue, that_is_full_becomes_marked_by_the_next_push) {
    for (const int32_t capacity : {1, 2, 5}) {
        SCOPED_TRACE(capacity);
        EXPECT_EQ(Link_Queue_Reset(&queue_, capacity), 0);
        std::vector<Link_Node *> nodes = push_many(static_cast<size_t>(capacity));
        // Full, but not marked: it goes on where a place becomes free.
        EXPECT_EQ(Link_Queue_Get_Number(&queue_), capacity);
        std::free(pop());
        nodes.erase(nodes.begin());
        nodes.push_back(push());
        expect_queue(queue_, nodes);

        EXPECT_EQ(push_in_vain(&queue_), -EXFULL);
        expect_queue(queue_, nodes, kReady | kMarked);
        for (const Operation &operation : kOperations)
            if (operation.refused_when_marked) {
                EXPECT_EQ(operation.run(&queue_), -EXFULL) << operation.name;
            }
        expect_queue(queue_, nodes, kReady | kMarked);
    }
}

TEST_F(LinkQueue, without_a_capacity_takes_32767) {
    EXPECT_EQ(Link_Queue_Reset(&queue_, 0), 0);
    for (int i = 0; i < 32767; i++)
        push();
    EXPECT_EQ(Link_Queue_Get_Number(&queue_), 32767);
    EXPECT_EQ(push_in_vain(&queue_), -EXFULL);
    EXPECT_EQ(Link_Queue_Get_Number(&queue_), -EXFULL);
}

TEST_F(LinkQueue, reset_frees_the_nodes_and_begins_anew) {
    const struct {
        int32_t asked;
        int32_t capacity;
    } table[] = {{2, 2}, {0, 32767}, {-1, 32767}, {INT_MIN, 32767}, {1, 1}, {INT_MAX, INT_MAX}, {7, 7}};
    for (const auto &row : table)
        for (const bool marked : {false, true})
            for (const size_t count : {0, 1, 4}) {
                SCOPED_TRACE(std::to_string(row.asked) + (marked ? ", marked, " : ", ") + std::to_string(count));
                EXPECT_EQ(Link_Queue_Reset(&queue_, 100), 0);
                const std::vector<Link_Node *> nodes = push_many(count);
                if (marked) {
                    EXPECT_EQ(Link_Queue_Mark(&queue_), 0);
                }

                HeapWatch watch;
                EXPECT_EQ(Link_Queue_Reset(&queue_, row.asked), 0);
                watch.stop();
                const std::vector<void *> expected(nodes.begin(), nodes.end());
                EXPECT_THAT(watch.freed(), testing::UnorderedElementsAreArray(expected));
                expect_queue(queue_, {});
                EXPECT_EQ(queue_.nMaxNumber, row.capacity);
            }
}

TEST_F(LinkQueue, destroy_frees_the_nodes_from_the_last_to_the_first) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (const bool marked : {false, true})
        for (const size_t count : {0, 1, 2, 20}) {
            SCOPED_TRACE((marked ? "marked, " : "") + std::to_string(count));
            EXPECT_EQ(Link_Queue_Init(&queue_, 100, &mutex, nullptr), 0);
            const std::vector<Link_Node *> nodes = push_many(count);
            if (marked) {
                EXPECT_EQ(Link_Queue_Mark(&queue_), 0);
            }

            const CountCalls locks(Call::pthread_mutex_lock);
            HeapWatch watch;
            EXPECT_EQ(Link_Queue_Destroy(&queue_), 0);
            watch.stop();
            EXPECT_THAT(watch.freed(), ElementsAreArray(reversed(nodes)));
            EXPECT_EQ(locks.count(), 0);
            EXPECT_EQ(queue_.uFlags & kReady, 0);
            expect_queue(queue_, {}, queue_.uFlags);
        }
}

TEST_F(LinkQueue, destroy_needs_no_ready_queue) {
    EXPECT_EQ(Link_Queue_Destroy(&queue_), 0);
    EXPECT_EQ(Link_Queue_Destroy(&queue_), 0);

    Link_Queue nothing{};
    const CountCalls frees(Call::free);
    EXPECT_EQ(Link_Queue_Destroy(&nothing), 0);
    EXPECT_EQ(frees.count(), 0);
    EXPECT_EQ(nothing.uFlags & kReady, 0);

    // What a queue that is not ready holds is freed as well.
    EXPECT_EQ(Link_Queue_Init(&queue_, 5, nullptr, nullptr), 0);
    const std::vector<Link_Node *> nodes = push_many(2);
    queue_.uFlags = 0;
    HeapWatch watch;
    EXPECT_EQ(Link_Queue_Destroy(&queue_), 0);
    watch.stop();
    EXPECT_THAT(watch.freed(), ElementsAreArray(reversed(nodes)));
}

TEST_F(LinkQueue, may_be_made_again_after_its_end) {
    push_many(3);
    EXPECT_EQ(Link_Queue_Mark(&queue_), 0);
    EXPECT_EQ(Link_Queue_Destroy(&queue_), 0);
    EXPECT_EQ(Link_Queue_Init(&queue_, 1, nullptr, nullptr), 0);
    expect_queue(queue_, {push()});
}

TEST_F(LinkQueue, loses_no_memory) {
    EXPECT_FALSE(loses_memory([&] {
        Link_Queue_Init(&queue_, 3, nullptr, nullptr);
        for (int i = 0; i < 5; i++)
            Link_Queue_Push_Node(&queue_, make_node());
        Link_Queue_Reset(&queue_, 3);
        push();
        Link_Queue_Destroy(&queue_);
    }));
}
