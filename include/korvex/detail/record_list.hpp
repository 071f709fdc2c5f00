/// @file
/// Internal: the library's linked lists as owning ranges.
#ifndef KORVEX_DETAIL_RECORD_LIST_HPP
#define KORVEX_DETAIL_RECORD_LIST_HPP

#include <cstddef>
#include <iterator>
#include <memory>

namespace korvex::detail {

/// Gives a pointer-like `->` on an element that is made on the fly.
template <class Element>
struct arrow {
    Element element;
    const Element *operator->() const noexcept { return &element; }
};

/// Walks a list of C records and shows each as an element: a plain struct of views into the record.
///
/// `Traits` has the types `record` and `element`, and `static const record *next(const record &)` and
/// `static element show(const record &)`.
template <class Traits>
class record_iterator {
  public:
    using record = typename Traits::record;
    using value_type = typename Traits::element;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;
    using pointer = arrow<value_type>;
    using iterator_category = std::input_iterator_tag;
    using iterator_concept = std::forward_iterator_tag;

    record_iterator() = default;
    explicit record_iterator(const record *at) noexcept : at_(at) {}

    value_type operator*() const { return Traits::show(*at_); }
    pointer operator->() const { return {Traits::show(*at_)}; }
    record_iterator &operator++() noexcept {
        at_ = Traits::next(*at_);
        return *this;
    }
    record_iterator operator++(int) noexcept {
        const record_iterator before = *this;
        ++*this;
        return before;
    }
    friend bool operator==(record_iterator, record_iterator) = default;

  private:
    const record *at_ = nullptr;
};

/// Owns a list of C records; besides what the iterator needs, `Traits` has `static void free(record *)`.
///
/// Elements live as long as the list, so nothing hands one out of a temporary list: `for (auto m : mounts())` is right,
/// since the loop keeps the list, and `mounts().front()` does not compile.
template <class Traits>
class record_list {
  public:
    using record = typename Traits::record;
    using value_type = typename Traits::element;
    using iterator = record_iterator<Traits>;
    using const_iterator = iterator;

    record_list() = default;
    /// Takes over what the library handed out; null is the empty list.
    explicit record_list(record *first) noexcept : first_(first) {}

    iterator begin() const &noexcept { return iterator(first_.get()); }
    iterator end() const &noexcept { return iterator(); }
    value_type front() const & { return *begin(); }
    iterator begin() const && = delete;
    iterator end() const && = delete;
    value_type front() const && = delete;

    bool empty() const noexcept { return first_ == nullptr; }
    /// Counts: it takes a walk.
    std::size_t size() const noexcept {
        return static_cast<std::size_t>(std::distance(iterator(first_.get()), iterator()));
    }
    /// The records themselves, for calls of the C interface; they stay this list's.
    const record *get() const &noexcept { return first_.get(); }
    const record *get() const && = delete;

  private:
    struct freer {
        void operator()(record *first) const noexcept { Traits::free(first); }
    };
    std::unique_ptr<record, freer> first_;
};

}  // namespace korvex::detail

#endif
