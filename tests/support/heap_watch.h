// Looking at what is asked of the heap.
#pragma once

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <span>

namespace support {

// Notes what this thread asks `malloc` for and what it gives to `free`, and fills with a byte what `malloc` answers, so
// that it shows which bytes of a block have been written.
class HeapWatch {
  public:
    explicit HeapWatch(unsigned char fill = 0xab) : fill_(fill) { t_current = this; }
    ~HeapWatch() { stop(); }
    HeapWatch(const HeapWatch &) = delete;
    HeapWatch &operator=(const HeapWatch &) = delete;

    // Ends the watch: a test looks at what was noted without adding to it.
    void stop() { t_current = nullptr; }
    std::span<const size_t> asked() const { return {asked_.data(), asked_count_}; }
    std::span<void *const> freed() const { return {freed_.data(), freed_count_}; }

    // For the wrappers; null where nothing is watched.
    static HeapWatch *current() { return t_current; }
    void ask(size_t size) { note(asked_, asked_count_, size); }
    void take_back(void *block) { note(freed_, freed_count_, block); }
    void fill(void *block, size_t size) const {
        if (block != nullptr)
            std::memset(block, fill_, size);
    }

  private:
    static constexpr size_t kRoom = 1024;

    template <typename Value>
    static void note(std::array<Value, kRoom> &values, size_t &count, Value value) {
        if (count == kRoom)  // a fault of the test
            std::abort();
        values[count++] = value;
    }

    static inline constinit thread_local HeapWatch *t_current = nullptr;
    const unsigned char fill_;
    size_t asked_count_ = 0;
    size_t freed_count_ = 0;
    std::array<size_t, kRoom> asked_{};
    std::array<void *, kRoom> freed_{};
};

}  // namespace support
