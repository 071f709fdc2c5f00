// Random operations on a queue, and what a plain list says that they do.
#include <climits>
#include <deque>
#include <random>

#include "queues.h"

using namespace links_test;

namespace {

// A queue that is a list of the nodes and nothing else.
class Model {
  public:
    void init(int32_t capacity) {
        nodes_.clear();
        reset(capacity);
        ready_ = true;
    }
    void reset(int32_t capacity) {
        nodes_.clear();
        capacity_ = capacity < 1 ? kDefaultCapacity : capacity;
        marked_ = false;
    }
    void mark() { marked_ = true; }
    void destroy() {
        nodes_.clear();
        ready_ = false;
    }
    int32_t push(Link_Node *node) {
        if (!ready_)
            return -EINVAL;
        if (nodes_.size() == static_cast<size_t>(capacity_))
            marked_ = true;
        if (marked_)
            return -EXFULL;
        nodes_.push_back(node);
        return 0;
    }
    Link_Node *take() {
        Link_Node *const node = nodes_.front();
        nodes_.pop_front();
        return node;
    }
    // What a question or a pop is answered, when `answer` is what it is answered otherwise.
    int32_t answer(int64_t answer) const {
        return !ready_ ? -EINVAL : marked_ ? -EXFULL : static_cast<int32_t>(answer);
    }

    bool ready() const { return ready_; }
    uint8_t marked() const { return marked_ ? kMarked : 0; }
    size_t count() const { return nodes_.size(); }
    std::vector<Link_Node *> nodes() const { return {nodes_.begin(), nodes_.end()}; }
    int64_t size() const {
        int64_t sum = 0;
        for (const Link_Node *node : nodes_)
            sum += node->wSize;
        return sum;
    }

  private:
    std::deque<Link_Node *> nodes_;
    int32_t capacity_ = kDefaultCapacity;
    bool marked_ = false;
    bool ready_ = false;
};

// Does the same to a queue and to the model.
class Pair {
  public:
    explicit Pair(uint32_t seed) : random_(seed) { init(); }
    ~Pair() { destroy(); }
    Pair(const Pair &) = delete;
    Pair &operator=(const Pair &) = delete;

    void step() {
        const uint32_t dice = random_() % 1000;
        if (dice < 480)
            push();
        else if (dice < 830)
            pop();
        else if (dice < 880)
            pop_all();
        else if (dice < 960)
            ask();
        else if (dice < 970)
            mark();
        else if (dice < 992)
            reset();
        else if (dice < 996)
            destroy();
        else
            init();
        if (model_.ready())
            expect_queue(queue_, model_.nodes(), static_cast<uint8_t>(kReady | model_.marked()));
    }

  private:
    int32_t any_capacity() {
        const int32_t some[] = {1, 2, 3, 8, 20, 100, 0, -1, INT_MAX};
        return some[random_() % std::size(some)];
    }

    // Expects that `work` frees so many nodes.
    template <typename Work>
    void expect_freed(size_t expected, const Work &work) {
        const CountCalls frees(Call::free);
        const int32_t result = work();
        EXPECT_EQ(frees.count(), static_cast<int64_t>(expected));
        EXPECT_EQ(result, 0);
    }

    void init() {
        destroy();
        const int32_t capacity = any_capacity();
        expect_freed(0, [&] { return Link_Queue_Init(&queue_, capacity, nullptr, nullptr); });
        model_.init(capacity);
    }
    void destroy() {
        expect_freed(model_.count(), [&] { return Link_Queue_Destroy(&queue_); });
        model_.destroy();
    }
    void reset() {
        const int32_t capacity = any_capacity();
        if (!model_.ready()) {
            EXPECT_EQ(Link_Queue_Reset(&queue_, capacity), -EINVAL);
            return;
        }
        expect_freed(model_.count(), [&] { return Link_Queue_Reset(&queue_, capacity); });
        model_.reset(capacity);
    }
    void mark() {
        EXPECT_EQ(Link_Queue_Mark(&queue_), model_.ready() ? 0 : -EINVAL);
        if (model_.ready())
            model_.mark();
    }
    void push() {
        Link_Node *const node = make_node(static_cast<uint16_t>(random_() % 4 == 0 ? 0 : random_()));
        const int32_t expected = model_.push(node);
        const CountCalls frees(Call::free);
        EXPECT_EQ(Link_Queue_Push_Node(&queue_, node), expected);
        EXPECT_EQ(frees.count(), expected == -EXFULL ? 1 : 0);
        if (expected == -EINVAL)
            std::free(node);
    }
    void pop() {
        Link_Node *node = kUntouched;
        const int32_t expected = model_.answer(model_.count() == 0 ? 0 : 1);
        ASSERT_EQ(Link_Queue_Pop_Node(&queue_, &node), expected);
        if (expected != 1) {
            EXPECT_EQ(node, kUntouched);
            return;
        }
        ASSERT_EQ(node, model_.take());
        EXPECT_EQ(node->pNext, node);
        EXPECT_EQ(node->pPrev, node);
        std::free(node);
    }
    void pop_all() {
        Link_Node *node = kUntouched;
        const int32_t expected = model_.answer(static_cast<int64_t>(model_.count()));
        ASSERT_EQ(Link_Queue_Pop_Nodes(&queue_, &node), expected);
        if (expected < 1) {
            EXPECT_EQ(node, kUntouched);
            return;
        }
        const Link_Node *const first = node;
        const Link_Node *before = node->pPrev;
        EXPECT_EQ(before->pNext, first);
        while (model_.count() > 0) {
            ASSERT_EQ(node, model_.take());
            EXPECT_TRUE(node == first || node->pPrev == before);
            before = node;
            Link_Node *const next = node->pNext;
            if (model_.count() == 0) {
                EXPECT_EQ(next, first);
            }
            if (node != first)
                std::free(node);
            node = next;
        }
        std::free(const_cast<Link_Node *>(first));
    }
    void ask() {
        EXPECT_EQ(Link_Queue_Get_Number(&queue_), model_.answer(static_cast<int64_t>(model_.count())));
        EXPECT_EQ(Link_Queue_Get_Size(&queue_), model_.answer(model_.size()));
    }

    std::mt19937 random_;
    Link_Queue queue_{};
    Model model_;
};

}  // namespace

TEST(LinkQueueModel, any_operations_in_any_order) {
    for (uint32_t seed = 1; seed <= 60; seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Pair pair(seed);
        for (int i = 0; i < 2000; i++) {
            pair.step();
            if (HasFailure())
                GTEST_FAIL() << "in step " << i;
        }
    }
}
