/// @file
/// A bounded queue that hands values from thread to thread.
///
///     korvex::queue<job> jobs(1000);
///
///     jobs.push(job{...});                                    // a producer
///     while (std::optional<job> next = jobs.pop(token))       // a consumer; ends when the queue is stopped and empty
///         work(*next);
#ifndef KORVEX_QUEUE_HPP
#define KORVEX_QUEUE_HPP

#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>

#include "korvex/detail/queue_wait.hpp"
#include "korvex/error.hpp"
#include "links.h"

namespace korvex {

/// A first-in-first-out queue of values, of bounded length. Any thread may call anything at any time, but for the
/// destructor: no other thread may use the queue then.
///
/// The C queue stops for everybody when it meets its bound, and drops what is queued. This one refuses the one value, and
/// goes on; what is queued when it is stopped can still be taken.
template <class T>
class queue {
    static_assert(std::is_nothrow_move_constructible_v<T>, "a value that is taken out must not be lost on the way");
    static_assert(alignof(T) <= alignof(std::max_align_t), "values lie in memory from malloc");

    struct node {
        Link_Node link;
        T value;
    };
    struct freer {
        void operator()(void *memory) const noexcept { std::free(memory); }
    };
    struct node_deleter {
        void operator()(node *given) const noexcept {
            std::destroy_at(&given->value);
            std::free(given);
        }
    };
    using node_ptr = std::unique_ptr<node, node_deleter>;

  public:
    class batch;

    /// The most that a queue holds when nothing is said.
    static constexpr std::int32_t usual_capacity = 32'767;

    /// @param capacity  the most values that it holds, at least 1: else it throws `std::errc::invalid_argument`
    explicit queue(std::int32_t capacity = usual_capacity) {
        if (capacity < 1)
            throw error(EINVAL, "can't make", "queue", "its capacity must be at least 1");
        Link_Queue_Init(&queue_, capacity, nullptr, wait_.condition());
    }
    ~queue() { const batch rest{take_all()}; }
    queue(const queue &) = delete;
    queue &operator=(const queue &) = delete;

    /// Appends a value. Throws `errc::queue_stopped` when the queue is full or stopped; the value is gone then: `try_push`
    /// keeps it.
    ///
    /// @param value   it is moved into the queue
    /// @param weight  what it adds to `weight()`, in any unit of the caller's
    void push(T value, std::uint16_t weight = 0) {
        if (!try_push(value, weight))
            throw error(errc::queue_stopped, "can't push into", "queue");
    }

    /// Appends a value unless the queue is full or stopped.
    ///
    /// @param value   it is moved into the queue; untouched where that is refused
    /// @param weight  as for `push`
    /// @return whether it was appended
    [[nodiscard]] bool try_push(T &value, std::uint16_t weight = 0) {
        std::unique_ptr<void, freer> memory(std::malloc(sizeof(node)));
        if (!memory)
            throw std::bad_alloc();

        const detail::queue_wait::lock lock(wait_);
        if (stopped_ || queue_.nNumber >= static_cast<std::uint32_t>(queue_.nMaxNumber))
            return false;

        node *fresh = ::new (memory.release()) node{{nullptr, nullptr, 0, weight}, std::move(value)};
        Link_Queue_Push_Node(&queue_, &fresh->link);  // can't fail: neither full nor stopped
        return true;
    }

    /// Takes the first value; waits until there is one.
    ///
    /// @param stop  ends the wait: `std::errc::operation_canceled`
    /// @return nothing once the queue is stopped and empty
    std::optional<T> pop(std::stop_token stop = {}) { return pop_until({}, stop); }

    /// The same with a limit of time, by the steady clock.
    ///
    /// @param limit  how long at most; a negative one, as `forever`, is none
    /// @param stop   ends the wait: `std::errc::operation_canceled`
    /// @return nothing when the time is over, and once the queue is stopped and empty
    std::optional<T> pop_for(std::chrono::nanoseconds limit, std::stop_token stop = {}) {
        const auto now = std::chrono::steady_clock::now();
        const bool has_end = limit.count() >= 0 && limit < std::chrono::steady_clock::time_point::max() - now;
        return pop_until(has_end ? std::optional(now + limit) : std::nullopt, stop);
    }

    /// Takes the first value if there is one; never waits.
    ///
    /// @return the value
    std::optional<T> try_pop() {
        const detail::queue_wait::lock lock(wait_);
        return taken();
    }

    /// Takes all values at once; never waits, and allocates nothing.
    ///
    /// @return their range
    batch pop_all() {
        const detail::queue_wait::lock lock(wait_);
        return batch{take_all()};
    }

    /// Refuses further values and wakes all who wait. What is queued can still be taken.
    void stop() noexcept {
        const detail::queue_wait::lock lock(wait_);
        stopped_ = true;
        wait_.wake_all();
    }

    /// @return whether it was stopped
    bool stopped() const noexcept {
        const detail::queue_wait::lock lock(wait_);
        return stopped_;
    }
    /// @return how many values are in it
    std::size_t size() const noexcept {
        const detail::queue_wait::lock lock(wait_);
        return queue_.nNumber;
    }
    /// @return whether there is none
    bool empty() const noexcept { return size() == 0; }
    /// @return the sum of the weights of the values in it, modulo 2^32
    std::uint32_t weight() const noexcept {
        const detail::queue_wait::lock lock(wait_);
        return queue_.nSize;
    }

  private:
    std::optional<T> pop_until(std::optional<std::chrono::steady_clock::time_point> end, const std::stop_token &stop) {
        // Before the lock: a stop that was requested already calls back at once.
        const detail::queue_wait::stop_waker waker(wait_, stop);
        const detail::queue_wait::lock lock(wait_);
        while (queue_.nNumber == 0 && !stopped_) {
            if (stop.stop_requested())
                throw error(ECANCELED, "can't pop from", "queue");
            if (!wait_.sleep(end))
                break;
        }
        return taken();
    }

    // The first value, with the lock held.
    std::optional<T> taken() {
        Link_Node *first = nullptr;
        if (Link_Queue_Pop_Node(&queue_, &first) != 1)
            return {};
        const node_ptr owner(reinterpret_cast<node *>(first));
        return std::optional<T>(std::move(owner->value));
    }

    // The ring of all nodes, with the lock held.
    std::pair<node *, std::size_t> take_all() noexcept {
        Link_Node *first = nullptr;
        const std::int32_t count = Link_Queue_Pop_Nodes(&queue_, &first);
        return {reinterpret_cast<node *>(first), static_cast<std::size_t>(count)};
    }

    Link_Queue queue_{};
    bool stopped_ = false;
    mutable detail::queue_wait wait_;
};

/// What `pop_all` took: an owning range of the values, in their order.
template <class T>
class queue<T>::batch {
  public:
    /// A forward iterator.
    class iterator {
      public:
        /// @cond  What the standard asks of an iterator.
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using reference = T &;
        using pointer = T *;
        using iterator_category = std::forward_iterator_tag;

        iterator() = default;
        reference operator*() const noexcept { return at_->value; }
        pointer operator->() const noexcept { return &at_->value; }
        iterator &operator++() noexcept {
            at_ = reinterpret_cast<node *>(at_->link.pNext);
            left_--;
            return *this;
        }
        iterator operator++(int) noexcept {
            const iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const iterator &one, const iterator &other) noexcept { return one.left_ == other.left_; }
        /// @endcond

      private:
        friend class batch;
        iterator(node *at, std::size_t left) noexcept : at_(at), left_(left) {}
        node *at_ = nullptr;
        std::size_t left_ = 0;
    };

    /// @param other  is left empty
    batch(batch &&other) noexcept
        : first_(std::exchange(other.first_, nullptr)), size_(std::exchange(other.size_, 0)) {}
    /// @param other  whose values take the place of these
    /// @return this
    batch &operator=(batch other) noexcept {
        std::swap(first_, other.first_);
        std::swap(size_, other.size_);
        return *this;
    }
    ~batch() {
        while (size_ > 0) {
            const node_ptr owner(first_);
            first_ = reinterpret_cast<node *>(first_->link.pNext);
            size_--;
        }
    }

    /// @return the first value
    iterator begin() &noexcept { return {first_, size_}; }
    /// @return the end of the range
    iterator end() &noexcept { return {nullptr, 0}; }
    iterator begin() && = delete;
    iterator end() && = delete;
    /// @return how many there are
    std::size_t size() const noexcept { return size_; }
    /// @return whether there is none
    bool empty() const noexcept { return size_ == 0; }

  private:
    friend class queue;
    explicit batch(std::pair<node *, std::size_t> ring) noexcept : first_(ring.first), size_(ring.second) {}

    node *first_;
    std::size_t size_;
};

}  // namespace korvex

#endif
