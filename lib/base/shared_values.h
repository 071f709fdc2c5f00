// The two values that a caller shares with a long operation from another thread: a stop flag and a byte total. They are
// plain integers in the interface, so they are touched through relaxed atomic accesses only.
#pragma once

#include <cstdint>

namespace korvex {

class StopFlag final {
  public:
    // A null flag never stops.
    explicit StopFlag(const int32_t *flag) : flag_(flag) {}

    // What the caller set; 0: go on.
    int32_t value() const { return flag_ != nullptr ? __atomic_load_n(flag_, __ATOMIC_RELAXED) : 0; }
    bool set() const { return value() != 0; }

  private:
    const int32_t *flag_;
};

class ByteTotal final {
  public:
    // A null total is not kept.
    explicit ByteTotal(int64_t *total) : total_(total) {}

    void add(int64_t bytes) const {
        if (total_ != nullptr)
            __atomic_store_n(total_, __atomic_load_n(total_, __ATOMIC_RELAXED) + bytes, __ATOMIC_RELAXED);
    }

  private:
    int64_t *total_;
};

}  // namespace korvex
