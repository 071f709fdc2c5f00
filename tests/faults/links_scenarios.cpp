// The link queue, with calls of the system failing. A mutex is the caller's, and what goes wrong with it is not reported.
#include <pthread.h>

#include <cstdlib>

#include "links.h"
#include "modules.h"

namespace faults {
namespace {

// A queue with its mutex and condition, and some nodes in it.
class Queue {
  public:
    explicit Queue(int nodes) {
        Link_Queue_Init(&queue_, 2, &mutex_, &condition_);
        for (int i = 0; i < nodes; i++)
            Link_Queue_Push_Node(&queue_, new_node());
    }
    ~Queue() { Link_Queue_Destroy(&queue_); }
    Queue(const Queue &) = delete;
    Queue &operator=(const Queue &) = delete;

    static Link_Node *new_node() {
        auto *node = static_cast<Link_Node *>(std::calloc(1, sizeof(Link_Node)));
        node->wSize = 5;
        return node;
    }
    Link_Queue *get() { return &queue_; }

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
    Link_Queue queue_{};
};

// Frees a ring of nodes.
void release(Link_Node *first, int64_t count) {
    for (Link_Node *node = first; count > 0; count--) {
        Link_Node *next = node->pNext;
        std::free(node);
        node = next;
    }
}

template <typename Function>
Scenario on_queue(const char *name, const char *variant, int nodes, int64_t unharmed, uint32_t left,
                  Function function) {
    const auto body = [=](Trial &trial) {
        Queue queue(nodes);
        Link_Node *taken = nullptr;
        Link_Node *const pushed = Queue::new_node();
        const bool pushes = std::string(name) == "Link_Queue_Push_Node";
        trial.call([&] { return function(queue.get(), pushed, &taken); });
        if (!pushes)
            std::free(pushed);
        if (taken != nullptr)
            release(taken, trial.result());
        trial.check(queue.get()->nNumber == left, "the queue holds what it should");
    };
    return {name, variant, body, unharmed, {Rule().is_overlooked()}};
}

}  // namespace

Module links_module() {
    const auto reset = [](Link_Queue *queue, Link_Node *, Link_Node **) { return Link_Queue_Reset(queue, 2); };
    const auto mark = [](Link_Queue *queue, Link_Node *, Link_Node **) { return Link_Queue_Mark(queue); };
    const auto size = [](Link_Queue *queue, Link_Node *, Link_Node **) { return Link_Queue_Get_Size(queue); };
    const auto number = [](Link_Queue *queue, Link_Node *, Link_Node **) { return Link_Queue_Get_Number(queue); };
    const auto pop = [](Link_Queue *queue, Link_Node *, Link_Node **taken) {
        return Link_Queue_Pop_Node(queue, taken);
    };
    const auto pop_all = [](Link_Queue *queue, Link_Node *, Link_Node **taken) {
        return Link_Queue_Pop_Nodes(queue, taken);
    };
    const auto push = [](Link_Queue *queue, Link_Node *node, Link_Node **) {
        return Link_Queue_Push_Node(queue, node);
    };
    return {"links",
            {
                on_queue("Link_Queue_Reset", "", 2, 0, 0, reset),
                on_queue("Link_Queue_Mark", "", 2, 0, 2, mark),
                on_queue("Link_Queue_Get_Size", "", 2, 10, 2, size),
                on_queue("Link_Queue_Get_Number", "", 2, 2, 2, number),
                on_queue("Link_Queue_Pop_Node", "", 2, 1, 1, pop),
                on_queue("Link_Queue_Pop_Nodes", "", 2, 2, 0, pop_all),
                on_queue("Link_Queue_Push_Node", "the first", 0, 0, 1, push),
                on_queue("Link_Queue_Push_Node", "too many", 2, -EXFULL, 2, push),
            },
            {{"Link_Queue_Init", "fills a record of the caller's",
              [] {
                  Link_Queue queue;
                  Link_Queue_Init(&queue, 2, nullptr, nullptr);
              }},
             {"Link_Queue_Destroy", "takes no lock, and frees", [] {
                  Link_Queue queue{};
                  Link_Queue_Destroy(&queue);
              }}}};
}

}  // namespace faults
