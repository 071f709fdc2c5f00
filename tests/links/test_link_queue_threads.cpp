// Producers and consumers in threads of their own.
#include <atomic>
#include <climits>
#include <thread>

#include "queues.h"

using namespace links_test;

namespace {

constexpr int kProducers = 4;
constexpr int kConsumers = 4;
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int64_t kNodes = 100'000;
#else
constexpr int64_t kNodes = 1'000'000;
#endif
constexpr int64_t kEach = kNodes / kProducers;

// What a consumer has seen.
struct Tally {
    int64_t count = 0;
    int64_t sum = 0;
    int64_t size = 0;
    int64_t last[kProducers] = {-1, -1, -1, -1};  // the newest of each producer's
    bool in_order = true;

    void add(const Link_Node *node) {
        const int64_t producer = value_of(node) / kEach;
        in_order = in_order && value_of(node) > last[producer];
        last[producer] = value_of(node);
        count++;
        sum += value_of(node);
        size += node->wSize;
    }
};

class LinkQueueThreads : public QueueTest {
  protected:
    LinkQueueThreads() { EXPECT_EQ(Link_Queue_Init(&queue_, INT_MAX, &mutex_, &condition_), 0); }

    void produce(int64_t producer) {
        for (int64_t i = 0; i < kEach; i++)
            if (Link_Queue_Push_Node(&queue_, make_node(static_cast<uint16_t>(i % 1000), producer * kEach + i)) != 0)
                refused_++;
    }

    // Waits until there is something to take, or nothing more to come.
    bool wait() {
        pthread_mutex_lock(&mutex_);
        while (queue_.nNumber == 0 && !done_)
            pthread_cond_wait(&condition_, &mutex_);
        const bool more = queue_.nNumber > 0;
        pthread_mutex_unlock(&mutex_);
        return more;
    }

    void consume(bool all_at_once, Tally &tally) {
        while (wait()) {
            Link_Node *node = nullptr;
            const int32_t count =
                all_at_once ? Link_Queue_Pop_Nodes(&queue_, &node) : Link_Queue_Pop_Node(&queue_, &node);
            for (int32_t i = 0; i < count; i++) {
                Link_Node *const next = node->pNext;
                tally.add(node);
                std::free(node);
                node = next;
            }
        }
    }

    void tell_the_end() {
        pthread_mutex_lock(&mutex_);
        done_ = true;
        pthread_cond_broadcast(&condition_);
        pthread_mutex_unlock(&mutex_);
    }

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
    bool done_ = false;
    std::atomic<int64_t> refused_{0};
};

}  // namespace

TEST_F(LinkQueueThreads, hand_on_every_node_once_and_in_order) {
    Tally tallies[kConsumers];
    std::vector<std::thread> consumers;
    for (int i = 0; i < kConsumers; i++)
        consumers.emplace_back([&, i] { consume(i % 2 == 1, tallies[i]); });
    std::vector<std::thread> producers;
    for (int64_t i = 0; i < kProducers; i++)
        producers.emplace_back([&, i] { produce(i); });
    for (std::thread &producer : producers)
        producer.join();
    tell_the_end();
    for (std::thread &consumer : consumers)
        consumer.join();

    Tally total;
    for (const Tally &tally : tallies) {
        EXPECT_TRUE(tally.in_order);
        total.count += tally.count;
        total.sum += tally.sum;
        total.size += tally.size;
    }
    EXPECT_EQ(refused_, 0);
    EXPECT_EQ(total.count, kNodes);
    EXPECT_EQ(total.sum, kNodes * (kNodes - 1) / 2);
    EXPECT_EQ(total.size, kNodes / 1000 * (999 * 1000 / 2));
    expect_queue(queue_, {});
}

// Each waits for the other's answer: a broadcast that was missed would leave both waiting.
TEST_F(LinkQueueThreads, wake_each_other) {
    constexpr int64_t rounds = kNodes / 50;
    Link_Queue answers;
    pthread_cond_t answered = PTHREAD_COND_INITIALIZER;
    ASSERT_EQ(Link_Queue_Init(&answers, 1, &mutex_, &answered), 0);
    const auto take = [this](Link_Queue &queue) {
        pthread_mutex_lock(&mutex_);
        while (queue.nNumber == 0)
            pthread_cond_wait(queue.pCond, &mutex_);
        pthread_mutex_unlock(&mutex_);
        Link_Node *node = nullptr;
        EXPECT_EQ(Link_Queue_Pop_Node(&queue, &node), 1);
        return node;
    };
    std::thread other([&] {
        for (int64_t i = 0; i < rounds; i++)
            EXPECT_EQ(Link_Queue_Push_Node(&answers, take(queue_)), 0);
    });
    Link_Node *node = make_node();
    for (int64_t i = 0; i < rounds; i++) {
        ASSERT_EQ(Link_Queue_Push_Node(&queue_, node), 0);
        node = take(answers);
    }
    other.join();
    std::free(node);
    expect_queue(answers, {});
    EXPECT_EQ(Link_Queue_Destroy(&answers), 0);
}

TEST_F(LinkQueueThreads, fill_a_queue_to_its_capacity_and_no_further) {
    constexpr int32_t capacity = 5000;
    ASSERT_EQ(Link_Queue_Reset(&queue_, capacity), 0);
    std::vector<std::thread> producers;
    for (int64_t i = 0; i < kProducers; i++)
        producers.emplace_back([&, i] { produce(i); });
    for (std::thread &producer : producers)
        producer.join();

    EXPECT_EQ(refused_, kNodes - capacity);
    EXPECT_EQ(queue_.nNumber, static_cast<uint32_t>(capacity));
    EXPECT_EQ(Link_Queue_Get_Number(&queue_), -EXFULL);
    EXPECT_EQ(Link_Queue_Reset(&queue_, capacity), 0);
    expect_queue(queue_, {});
}

TEST_F(LinkQueueThreads, are_all_refused_after_a_mark) {
    std::atomic<int64_t> accepted{0};
    std::vector<std::thread> producers;
    for (int i = 0; i < kProducers; i++)
        producers.emplace_back([&] {
            while (Link_Queue_Push_Node(&queue_, make_node()) == 0)
                accepted++;
        });
    while (accepted < 1000)
        std::this_thread::yield();
    EXPECT_EQ(Link_Queue_Mark(&queue_), 0);
    for (std::thread &producer : producers)
        producer.join();

    EXPECT_EQ(queue_.nNumber, static_cast<uint32_t>(accepted));
    const CountCalls frees(Call::free);
    EXPECT_EQ(Link_Queue_Reset(&queue_, 10), 0);
    EXPECT_EQ(frees.count(), accepted);
    expect_queue(queue_, {});
}
