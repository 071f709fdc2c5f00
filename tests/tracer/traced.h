// Traced blocks, their list, and what is said of them.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "faults.h"
#include "heap_watch.h"
#include "log_capture.h"
#include "tracer.h"

namespace tracer_test {

using namespace support;

constexpr size_t kNodeSize = 60;
constexpr size_t kGuardSize = 16;
const std::string kGuard(kGuardSize, 'Z');

// A block as it was handed out: the caller's bytes.
inline char *allocate(size_t size, const char *name = "test", int32_t line = 1) {
    auto *bytes = static_cast<char *>(Trace_Mem_Alloc(size, nullptr, name, line));
    if (bytes == nullptr)
        std::abort();
    return bytes;
}

inline Trace_Mem_Node *node_of(void *bytes) {
    return reinterpret_cast<Trace_Mem_Node *>(static_cast<char *>(bytes) - kNodeSize);
}

// The pointer by which a block is checked and freed.
inline void *judged(void *bytes) {
    return static_cast<char *>(bytes) + 4;
}

inline std::string bytes_of(const void *place, size_t count) {
    return {static_cast<const char *>(place), count};
}

// The blocks listed from the oldest to the newest; the way back has to be the same.
inline std::vector<const void *> listed() {
    std::vector<const void *> nodes;
    const Trace_Mem_Node *before = &g_tmnHead;
    for (const Trace_Mem_Node *node = g_tmnHead.pNext; node != &g_tmnHead; node = node->pNext) {
        EXPECT_EQ(node->pPrev, before);
        nodes.push_back(node);
        before = node;
    }
    EXPECT_EQ(g_tmnHead.pPrev, before);
    return nodes;
}

// Begins without blocks and with both counters at 0, and leaves none.
class TracerTest : public testing::Test {
  protected:
    TracerTest() {
        g_cnAlloc = 0;
        g_cnFree = 0;
        EXPECT_EQ(Trace_Mem_Init(), 0);
    }
    ~TracerTest() override { Trace_Mem_Destroy(); }
};

inline std::string told(const char *function, const std::string &text) {
    return std::string("[error] ") + function + "(#): " + text;
}

// What is said of a damaged guard: where the damage begins, each of its bytes in a message of its own, and an end.
inline std::vector<std::string> damage(const char *function, const std::string &whose, const char *guard, size_t index,
                                       const std::string &bytes) {
    std::vector<std::string> messages;
    messages.push_back(
        told(function, whose + " byte buffer is corrupted! (" + guard + ":" + std::to_string(index) + ")\n"));
    for (const char byte : bytes) {
        char hex[16];
        std::snprintf(hex, sizeof hex, "%2X, ", static_cast<unsigned int>(static_cast<signed char>(byte)));
        // A message ends where a NUL stands in it.
        messages.push_back(told(function, hex + (byte != '\0' ? std::string(1, byte) + ", \n" : "\n")));
    }
    messages.push_back(told(function, "\n"));
    return messages;
}

// How such a message names a block.
inline std::string whose(const std::string &name, int32_t line, int64_t size) {
    return name + " (" + std::to_string(line) + ") allocate " + std::to_string(size);
}

inline std::vector<std::string> operator+(std::vector<std::string> first, const std::vector<std::string> &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

}  // namespace tracer_test
