// Looking for memory that is lost, in builds without a leak checker, too.
#pragma once

#include <malloc.h>

#include <cstddef>
#include <functional>
#include <thread>

namespace support {

inline size_t heap_in_use() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// True when `body` loses a block each time that it runs. CTest has the allocator's cache of freed blocks switched off, which
// count as used; what else is taken once only is taken in some rounds before. Under a sanitizer, whose allocator gives
// no figures, it is that tool which reports the loss.
inline bool loses_memory(const std::function<void()> &body) {
    constexpr size_t rounds = 200;
    constexpr size_t smallest_block = 24;
    for (size_t i = 0; i < 20; i++)
        body();

    const size_t before = heap_in_use();
    for (size_t i = 0; i < rounds; i++)
        body();
    return heap_in_use() >= before + rounds * smallest_block;
}

// The same for a body that leaves the allocator's caches different each time, as it does with blocks of many sizes: here
// it runs in a thread, whose caches end with it, and few rounds are enough. The body has to arm itself what is armed for
// one thread only.
inline bool loses_memory_in_thread(const std::function<void()> &body) {
    constexpr size_t rounds = 100;
    constexpr size_t smallest_block = 24;
    const auto run = [&] {
        std::thread([&] {
            for (size_t i = 0; i < rounds; i++)
                body();
        }).join();
    };
    run();

    const size_t before = heap_in_use();
    run();
    return heap_in_use() >= before + rounds * smallest_block;
}

}  // namespace support
