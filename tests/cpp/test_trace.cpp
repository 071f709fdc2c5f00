// The traced memory of the C++ layer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory_resource>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "korvex/trace.hpp"
#include "log_capture.h"

namespace {

using korvex::traced_resource;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(TracedResource, gives_memory_of_every_alignment) {
    support::LogCapture log(1);
    {
        traced_resource memory;
        for (std::size_t alignment = 1; alignment <= 256; alignment *= 2)
            for (const std::size_t size : {0, 1, 3, 4, 15, 16, 17, 255, 4096, 100'000}) {
                void *block = memory.allocate(size, alignment);
                EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignment, 0U) << alignment;
                std::memset(block, 0xA5, size);
                EXPECT_TRUE(traced_resource::is_whole(block, alignment)) << size << " at " << alignment;
                EXPECT_EQ(traced_resource::live_blocks(), 1);
                memory.deallocate(block, size, alignment);
                EXPECT_EQ(traced_resource::live_blocks(), 0);
            }
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(TracedResource, sees_a_write_behind_and_before_the_bytes) {
    support::LogCapture log(1);
    traced_resource memory;
    for (const std::size_t alignment : {8U, 16U}) {
        auto *block = static_cast<char *>(memory.allocate(10, alignment));
        EXPECT_TRUE(traced_resource::is_whole(block, alignment));
        const char kept = block[10];
        block[10] = 'x';
        EXPECT_FALSE(traced_resource::is_whole(block, alignment));
        block[10] = kept;
        EXPECT_TRUE(traced_resource::is_whole(block, alignment));
        block[-5] = 'x';  // the first 4 bytes before it are nobody's
        EXPECT_FALSE(traced_resource::is_whole(block, alignment));
        memory.deallocate(block, 10, alignment);
    }
    EXPECT_EQ(traced_resource::live_blocks(), 0);
    EXPECT_FALSE(log.messages().empty());
}

TEST(TracedResource, names_who_forgot_what) {
    support::LogCapture log(1);
    std::optional<traced_resource> memory(std::in_place, "forgetful", 77);
    [[maybe_unused]] const void *forgotten = memory->allocate(24);
    memory.reset();
    EXPECT_THAT(log.messages(), Contains(HasSubstr("forgetful")));
    EXPECT_EQ(traced_resource::live_blocks(), 0) << "what was forgotten is freed, and the counters begin anew";
}

TEST(TracedResource, takes_back_what_another_one_gave) {
    traced_resource one;
    traced_resource other;
    EXPECT_TRUE(one == other);
    EXPECT_FALSE(one.is_equal(*std::pmr::new_delete_resource()));
    void *block = one.allocate(8);
    other.deallocate(block, 8);
    EXPECT_EQ(traced_resource::live_blocks(), 0);
}

TEST(TracedResource, lives_on_until_the_last_one_goes) {
    support::LogCapture log(1);
    std::optional<traced_resource> first(std::in_place);
    traced_resource second;
    void *block = first->allocate(8);
    first.reset();
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_EQ(traced_resource::live_blocks(), 1);
    second.deallocate(block, 8);
}

TEST(TracedResource, refuses_a_size_that_no_machine_has) {
    traced_resource memory;
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
    for (std::size_t size = most; size > most - 600; size--)
        for (const std::size_t alignment : {16U, 256U})
            EXPECT_THROW((void)memory.allocate(size, alignment), std::bad_alloc);
    EXPECT_EQ(traced_resource::live_blocks(), 0);
}

TEST(TracedResource, serves_containers_in_several_threads) {
    support::LogCapture log(1);
    {
        traced_resource memory;
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; i++)
            threads.emplace_back([&] {
                std::pmr::vector<std::pmr::string> texts(&memory);
                for (int j = 0; j < 200; j++)
                    texts.emplace_back("a text that does not fit into the string itself");
            });
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

}  // namespace
