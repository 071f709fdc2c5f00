// The link queue beside GLib's GAsyncQueue and beside a std::deque with std::mutex and std::condition_variable.
//
// Each message is a heap block of 64 bytes that the producer allocates and fills and the consumer reads and frees. The
// link queue chains these blocks themselves; the others are handed a pointer and allocate what they need for it. One more
// deque holds the 64 bytes by value, which saves its user the block.
#include <pthread.h>

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#ifdef BENCH_GLIB
#include <glib.h>
#endif

#include "links.h"
#include "rounds.h"

namespace {

constexpr size_t kMessages = 40'000;  // in a round, by all producers together
constexpr uint16_t kLast = 1;         // in `wUser`: ends a consumer

struct Item {
    Link_Node node;
    uint64_t number;
    char rest[32];
};
static_assert(sizeof(Item) == 64);

Item *new_item(uint64_t number, uint16_t user) {
    auto *item = static_cast<Item *>(std::malloc(sizeof(Item)));
    if (item == nullptr)
        throw std::bad_alloc();
    item->node.wUser = user;
    item->node.wSize = sizeof(Item);
    item->number = number;
    return item;
}

// What a consumer took: the sum tells whether every message came through once.
struct Taken {
    uint64_t sum = 0;
    size_t last_ones = 0;
};

void use(Item *item, Taken &taken) {
    taken.sum += item->number;
    taken.last_ones += item->node.wUser == kLast ? 1 : 0;
    std::free(item);
}

// ---- The ways to hand items over. `push` makes and appends one; `take` waits for one or more.

template <bool All>
class LinkQueue final {
  public:
    LinkQueue() { Link_Queue_Init(&queue_, INT32_MAX, &mutex_, &condition_); }

    void push(uint64_t number, uint16_t user) {
        if (Link_Queue_Push_Node(&queue_, &new_item(number, user)->node) != 0)
            throw std::runtime_error("the link queue refused a node");
    }

    void take(Taken &taken) {
        Link_Node *node = nullptr;
        int32_t count = 0;
        while ((count = All ? Link_Queue_Pop_Nodes(&queue_, &node) : Link_Queue_Pop_Node(&queue_, &node)) == 0)
            wait();
        for (; count > 0; --count) {
            Link_Node *next = node->pNext;
            use(reinterpret_cast<Item *>(node), taken);
            node = next;
        }
    }

  private:
    void wait() {
        pthread_mutex_lock(&mutex_);
        while (queue_.nNumber == 0)
            pthread_cond_wait(&condition_, &mutex_);
        pthread_mutex_unlock(&mutex_);
    }

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
    Link_Queue queue_{};
};

#ifdef BENCH_GLIB
class AsyncQueue final {
  public:
    AsyncQueue() : queue_(g_async_queue_new()) {}
    ~AsyncQueue() { g_async_queue_unref(queue_); }
    AsyncQueue(const AsyncQueue &) = delete;
    AsyncQueue &operator=(const AsyncQueue &) = delete;

    void push(uint64_t number, uint16_t user) { g_async_queue_push(queue_, new_item(number, user)); }
    void take(Taken &taken) { use(static_cast<Item *>(g_async_queue_pop(queue_)), taken); }

  private:
    GAsyncQueue *queue_;
};
#endif

template <class Value>
class Deque {
  public:
    void append(Value value) {
        const std::lock_guard lock(mutex_);
        values_.push_back(std::move(value));
        condition_.notify_one();
    }

    Value first() {
        std::unique_lock lock(mutex_);
        condition_.wait(lock, [this] { return !values_.empty(); });
        Value value = std::move(values_.front());
        values_.pop_front();
        return value;
    }

    void all(std::deque<Value> &values) {
        std::unique_lock lock(mutex_);
        condition_.wait(lock, [this] { return !values_.empty(); });
        values.swap(values_);
    }

  private:
    std::mutex mutex_;
    std::condition_variable condition_;
    std::deque<Value> values_;
};

template <bool All>
class PointerDeque final {
  public:
    void push(uint64_t number, uint16_t user) { items_.append(new_item(number, user)); }

    void take(Taken &taken) {
        if (!All)
            return use(items_.first(), taken);

        std::deque<Item *> items;
        items_.all(items);
        for (Item *item : items)
            use(item, taken);
    }

  private:
    Deque<Item *> items_;
};

template <bool All>
class ValueDeque final {
  public:
    void push(uint64_t number, uint16_t user) {
        Item item;
        item.node.wUser = user;
        item.number = number;
        items_.append(item);
    }

    void take(Taken &taken) {
        if (!All)
            return count(items_.first(), taken);

        std::deque<Item> items;
        items_.all(items);
        for (const Item &item : items)
            count(item, taken);
    }

  private:
    static void count(const Item &item, Taken &taken) {
        taken.sum += item.number;
        taken.last_ones += item.node.wUser == kLast ? 1 : 0;
    }

    Deque<Item> items_;
};

// ---- Rounds.

constexpr const char *kAimBesideGlib = "1.5x";
// Between threads. In one, a template that is inlined is no measure for a call into a shared object. A deque that allocates
// nothing saves its user what a queue of the caller's blocks can't: no aim beside it.
constexpr const char *kAimBesideBlocks = "1x";
constexpr const char *kNoAim = "";

void require_all(uint64_t sum) {
    if (sum != uint64_t{kMessages} * (kMessages + 1) / 2)
        throw std::runtime_error("messages were lost");
}

// One thread pushes one and takes it again: what the calls cost where nobody waits or contends.
template <class Queue>
bench::Cost alone() {
    Queue queue;
    Taken taken;
    const bench::Cost cost = bench::cost_of(CLOCK_THREAD_CPUTIME_ID, [&] {
        for (size_t number = 1; number <= kMessages; ++number) {
            queue.push(number, 0);
            queue.take(taken);
        }
    });
    require_all(taken.sum);
    return cost;
}

template <class Queue>
void consume(Queue &queue, Taken &mine) {
    Taken all;
    while (all.last_ones == 0)
        queue.take(all);
    // Who took all at once may have taken the end of others.
    for (; all.last_ones > 1; --all.last_ones)
        queue.push(0, kLast);
    mine = all;
}

template <class Queue>
void produce(Queue &queue, size_t first, size_t step) {
    for (size_t number = first; number <= kMessages; number += step)
        queue.push(number, 0);
}

template <class Queue>
bench::Cost between(size_t threads) {
    Queue queue;
    std::vector<Taken> taken(threads);
    const bench::Cost cost = bench::cost_of(CLOCK_PROCESS_CPUTIME_ID, [&] {
        std::vector<std::thread> producers;
        std::vector<std::thread> consumers;
        for (size_t place = 0; place < threads; ++place)
            consumers.emplace_back(consume<Queue>, std::ref(queue), std::ref(taken[place]));
        for (size_t place = 0; place < threads; ++place)
            producers.emplace_back(produce<Queue>, std::ref(queue), place + 1, threads);
        for (std::thread &producer : producers)
            producer.join();
        for (size_t place = 0; place < threads; ++place)
            queue.push(0, kLast);
        for (std::thread &consumer : consumers)
            consumer.join();
    });
    uint64_t sum = 0;
    for (const Taken &one : taken)
        sum += one.sum;
    require_all(sum);
    return cost;
}

template <class Queue>
bench::Side side(const char *name, size_t threads, const char *aim) {
    return {name, [threads] { return threads == 0 ? alone<Queue>() : between<Queue>(threads); }, aim};
}

void compare(const std::string &job, size_t threads) {
    const char *beside_blocks = threads == 0 ? kNoAim : kAimBesideBlocks;
    std::vector<bench::Side> peers;
#ifdef BENCH_GLIB
    peers.push_back(side<AsyncQueue>("GAsyncQueue", threads, kAimBesideGlib));
#endif
    peers.push_back(side<PointerDeque<false>>("deque of blocks", threads, beside_blocks));
    peers.push_back(side<ValueDeque<false>>("deque of values", threads, kNoAim));

    std::vector<bench::Side> singly = {side<LinkQueue<false>>("korvex", threads, kNoAim)};
    singly.insert(singly.end(), peers.begin(), peers.end());
    bench::compare({.family = "queue", .job = job + ", Link_Queue_Pop_Node", .messages = kMessages, .sides = singly});

    // GAsyncQueue has no way to take all, so it stands here as it is.
    std::vector<bench::Side> at_once = {side<LinkQueue<true>>("korvex", threads, kNoAim)};
    at_once.insert(at_once.end(), peers.begin(), peers.end());
    at_once.push_back(side<PointerDeque<true>>("deque of blocks, swapped", threads, beside_blocks));
    at_once.push_back(side<ValueDeque<true>>("deque of values, swapped", threads, kNoAim));
    bench::compare({.family = "queue", .job = job + ", Link_Queue_Pop_Nodes", .messages = kMessages, .sides = at_once});
}

}  // namespace

// Without arguments, all comparisons; with one, those whose name contains it.
int main(int argc, char **argv) {
    std::puts(
        "A message of 64 bytes from push to pop, with its allocation: medians of processor time (all threads) and of\n"
        "the ratios of a round; above 1, the link queue is the faster one:");
#ifndef BENCH_GLIB
    std::puts("GAsyncQueue is left out: built without GLib");
#endif
    const struct {
        const char *job;
        size_t threads;
    } jobs[] = {{"one thread", 0}, {"1:1 threads", 1}, {"4:4 threads", 4}};
    for (const auto &[job, threads] : jobs)
        if (std::string(job).find(argc > 1 ? argv[1] : "") != std::string::npos)
            compare(job, threads);
}
