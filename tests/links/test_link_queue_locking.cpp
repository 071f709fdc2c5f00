// What a queue does with the mutex and the condition of its owner.
#include "queues.h"

using namespace links_test;
namespace {

class LinkQueueLocking : public QueueTest {
  protected:
    LinkQueueLocking() { EXPECT_EQ(Link_Queue_Init(&queue_, 3, &mutex_, &condition_), 0); }

    // By this thread; the mutex is not recursive.
    bool is_locked() {
        if (pthread_mutex_trylock(&mutex_) == EBUSY)
            return true;
        pthread_mutex_unlock(&mutex_);
        return false;
    }

    // A push of which nothing is seen but the result.
    static int32_t push_quietly(Link_Queue *queue) {
        Link_Node *const node = make_node();
        const int32_t result = Link_Queue_Push_Node(queue, node);
        if (result == -EINVAL)
            std::free(node);
        return result;
    }

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
};

// Expects that `work` locks and unlocks so many times, and leaves the mutex free.
void expect_locks(int64_t expected, const std::function<void()> &work) {
    const CountCalls locks(Call::pthread_mutex_lock);
    const CountCalls unlocks(Call::pthread_mutex_unlock);
    work();
    EXPECT_EQ(locks.count(), expected);
    EXPECT_EQ(unlocks.count(), expected);
}

}  // namespace

TEST_F(LinkQueueLocking, each_operation_locks_once_in_every_state) {
    const struct {
        const char *name;
        std::function<void()> prepare;
        int64_t locks;
    } states[] = {
        {"empty", [] {}, 1},
        {"with nodes", [this] { push_many(2); }, 1},
        {"full", [this] { push_many(3); }, 1},
        {"marked",
         [this] {
             push_many(2);
             Link_Queue_Mark(&queue_);
         },
         1},
        {"not ready", [this] { Link_Queue_Destroy(&queue_); }, 0},
    };
    Link_Node *taken = nullptr;
    const struct {
        const char *name;
        std::function<void()> run;
    } operations[] = {
        {"Reset", [&] { Link_Queue_Reset(&queue_, 5); }},
        {"Mark", [&] { Link_Queue_Mark(&queue_); }},
        {"Get_Size", [&] { Link_Queue_Get_Size(&queue_); }},
        {"Get_Number", [&] { Link_Queue_Get_Number(&queue_); }},
        {"Pop_Node", [&] { Link_Queue_Pop_Node(&queue_, &taken); }},
        {"Pop_Nodes", [&] { Link_Queue_Pop_Nodes(&queue_, &taken); }},
        {"Push_Node", [&] { push_quietly(&queue_); }},
    };
    for (const auto &state : states)
        for (const auto &operation : operations) {
            SCOPED_TRACE(std::string(state.name) + ", " + operation.name);
            Link_Queue_Init(&queue_, 3, &mutex_, &condition_);
            state.prepare();
            expect_locks(state.locks, operation.run);
            EXPECT_FALSE(is_locked());

            // What was taken, one node or a ring.
            if (taken != nullptr)
                taken->pPrev->pNext = nullptr;
            while (taken != nullptr)
                std::free(std::exchange(taken, taken->pNext));
            Link_Queue_Destroy(&queue_);
        }
}

TEST_F(LinkQueueLocking, bad_arguments_lock_nothing) {
    expect_locks(0, [this] {
        EXPECT_EQ(Link_Queue_Pop_Node(&queue_, nullptr), -EINVAL);
        EXPECT_EQ(Link_Queue_Pop_Nodes(&queue_, nullptr), -EINVAL);
        EXPECT_EQ(Link_Queue_Push_Node(&queue_, nullptr), -EINVAL);
    });
}

TEST_F(LinkQueueLocking, init_and_destroy_lock_nothing) {
    push_many(2);
    expect_locks(0, [this] {
        EXPECT_EQ(Link_Queue_Destroy(&queue_), 0);
        EXPECT_EQ(Link_Queue_Init(&queue_, 3, &mutex_, &condition_), 0);
    });
}

TEST_F(LinkQueueLocking, a_queue_without_a_mutex_locks_nothing) {
    EXPECT_EQ(Link_Queue_Init(&queue_, 3, nullptr, &condition_), 0);
    expect_locks(0, [this] {
        push_many(3);
        EXPECT_EQ(Link_Queue_Get_Size(&queue_), 21);
        std::free(pop());
        EXPECT_EQ(Link_Queue_Mark(&queue_), 0);
        EXPECT_EQ(Link_Queue_Get_Number(&queue_), -EXFULL);
        EXPECT_EQ(Link_Queue_Reset(&queue_, 3), 0);
    });
}

TEST_F(LinkQueueLocking, all_changes_happen_between_the_lock_and_the_unlock) {
    Link_Node *node = nullptr;
    const struct {
        const char *name;
        std::function<void()> work;
        size_t before;
        size_t after;
        uint8_t flags;
    } table[] = {
        {"push to an empty queue", [&] { push(); }, 0, 1, kReady},
        {"push", [&] { push(); }, 1, 2, kReady},
        {"pop", [&] { std::free(pop()); }, 2, 1, kReady},
        {"pop all",
         [&] {
             EXPECT_EQ(Link_Queue_Pop_Nodes(&queue_, &node), 1);
             std::free(node);
         },
         1, 0, kReady},
        {"push again", [&] { push(); }, 0, 1, kReady},
        {"mark", [&] { EXPECT_EQ(Link_Queue_Mark(&queue_), 0); }, 1, 1, kReady | kMarked},
        {"reset", [&] { EXPECT_EQ(Link_Queue_Reset(&queue_, 1), 0); }, 1, 0, kReady},
        {"push the last", [&] { push(); }, 0, 1, kReady},
        {"push too many", [&] { EXPECT_EQ(push_quietly(&queue_), -EXFULL); }, 1, 1, kReady | kMarked},
    };
    uint8_t flags = kReady;
    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        const BeforeCall locking(Call::pthread_mutex_lock, 1, [&] {
            EXPECT_EQ(queue_.nNumber, row.before);
            EXPECT_EQ(queue_.uFlags, flags);
        });
        const BeforeCall unlocking(Call::pthread_mutex_unlock, 1, [&] {
            EXPECT_EQ(queue_.nNumber, row.after);
            EXPECT_EQ(queue_.uFlags, row.flags);
            EXPECT_EQ(queue_.pHead == anchor_of(queue_), row.after == 0);
            EXPECT_EQ(queue_.pTail == anchor_of(queue_), row.after == 0);
        });
        row.work();
        EXPECT_TRUE(locking.ran());
        EXPECT_TRUE(unlocking.ran());
        flags = row.flags;
    }
}

TEST_F(LinkQueueLocking, reset_frees_with_the_mutex_and_a_refused_push_without_it) {
    push_many(3);
    {
        const BeforeCall freeing(Call::free, 0, [this] { EXPECT_FALSE(is_locked()); });
        EXPECT_EQ(push_quietly(&queue_), -EXFULL);
        EXPECT_EQ(push_quietly(&queue_), -EXFULL);
        EXPECT_TRUE(freeing.ran());
    }
    const BeforeCall freeing(Call::free, 0, [this] { EXPECT_TRUE(is_locked()); });
    EXPECT_EQ(Link_Queue_Reset(&queue_, 3), 0);
    EXPECT_TRUE(freeing.ran());
}

TEST_F(LinkQueueLocking, condition_is_broadcast_when_the_queue_ceases_to_be_empty) {
    int broadcasts = 0;
    const BeforeCall watching(Call::pthread_cond_broadcast, 0, [&] {
        broadcasts++;
        EXPECT_TRUE(is_locked());
        EXPECT_EQ(queue_.nNumber, 1u);
    });
    const auto expect_broadcasts = [&](int expected, const std::function<void()> &work) {
        broadcasts = 0;
        work();
        EXPECT_EQ(broadcasts, expected);
    };

    expect_broadcasts(1, [&] { push(); });
    expect_broadcasts(0, [&] { push(); });
    expect_broadcasts(0, [&] { std::free(pop()); });
    expect_broadcasts(0, [&] { push(); });  // from one node to two
    expect_broadcasts(0, [&] {
        std::free(pop());
        std::free(pop());
        EXPECT_EQ(pop_nothing(Link_Queue_Pop_Node, &queue_), 0);
    });
    expect_broadcasts(1, [&] { push(); });
    expect_broadcasts(0, [&] {
        Link_Node *node = nullptr;
        EXPECT_EQ(Link_Queue_Pop_Nodes(&queue_, &node), 1);
        std::free(node);
    });
    expect_broadcasts(1, [&] { push_many(3); });
    expect_broadcasts(0, [&] { EXPECT_EQ(push_quietly(&queue_), -EXFULL); });
    expect_broadcasts(0, [&] { EXPECT_EQ(Link_Queue_Reset(&queue_, 3), 0); });
    expect_broadcasts(1, [&] { push(); });
    expect_broadcasts(0, [&] {
        Link_Queue_Reset(&queue_, 3);
        Link_Queue_Mark(&queue_);
        EXPECT_EQ(push_quietly(&queue_), -EXFULL);
        Link_Queue_Get_Number(&queue_);
        Link_Queue_Destroy(&queue_);
        EXPECT_EQ(push_quietly(&queue_), -EINVAL);
    });
}

TEST_F(LinkQueueLocking, a_queue_without_a_condition_broadcasts_nothing) {
    EXPECT_EQ(Link_Queue_Init(&queue_, 3, &mutex_, nullptr), 0);
    const CountCalls broadcasts(Call::pthread_cond_broadcast);
    push_many(2);
    EXPECT_EQ(broadcasts.count(), 0);
}

TEST_F(LinkQueueLocking, a_condition_needs_no_mutex) {
    EXPECT_EQ(Link_Queue_Init(&queue_, 3, nullptr, &condition_), 0);
    const CountCalls broadcasts(Call::pthread_cond_broadcast);
    push_many(2);
    EXPECT_EQ(broadcasts.count(), 1);
}
