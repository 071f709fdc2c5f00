// Looking for memory that is lost, in builds without a leak checker, too.
#pragma once

#include <malloc.h>

#include <cstddef>
#include <functional>

namespace support {

inline size_t heap_in_use() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// True when `body` loses a block each time that it runs. The allocator keeps freed blocks for itself until its caches
// are full, so the loss is taken from many rounds, after some that fill them. Under a sanitizer, whose allocator gives
// no figures, it is that tool which reports the loss.
inline bool loses_memory(const std::function<void()> &body, size_t rounds_before = 20) {
    constexpr size_t rounds = 200;
    constexpr size_t smallest_block = 24;
    for (size_t i = 0; i < rounds_before; i++)
        body();

    const size_t before = heap_in_use();
    for (size_t i = 0; i < rounds; i++)
        body();
    return heap_in_use() >= before + rounds * smallest_block;
}

}  // namespace support
