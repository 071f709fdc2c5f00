/// @file
/// A memory resource for debugging: it knows who asked for each block, notices writes beyond its ends, and reports what was
/// never given back.
///
///     korvex::traced_resource memory;
///     std::pmr::vector<int> numbers(&memory);
///
/// What it finds it says through the library's own messages: see `korvex::library_log`.
#ifndef KORVEX_TRACE_HPP
#define KORVEX_TRACE_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory_resource>
#include <mutex>
#include <new>

#include "tracer.h"

namespace korvex {

namespace detail {

/// The tracer's only state is the process's: made by the first who uses it, reported and cleared by the last.
class tracer_use {
  public:
    tracer_use() {
        const std::lock_guard lock(guard());
        if (count()++ == 0)
            Trace_Mem_Init();
    }
    ~tracer_use() {
        const std::lock_guard lock(guard());
        if (--count() == 0)
            Trace_Mem_Destroy();
    }
    tracer_use(const tracer_use &) = delete;
    tracer_use &operator=(const tracer_use &) = delete;

  private:
    static std::mutex &guard() {
        static std::mutex the_guard;
        return the_guard;
    }
    static int &count() {
        static int the_count = 0;
        return the_count;
    }
};

}  // namespace detail

/// Memory from the tracing allocator. Several may live at once, and any thread may use them; memory of one can be given
/// back to another. When the last one goes, each block that was not given back is reported as an error, and freed.
/// Of a block of 4 GiB or more damage is reported where there is none: its record holds the low 32 bits of the size.
///
/// Do not use `Trace_Mem_Init` and `Trace_Mem_Destroy` beside it.
class traced_resource : public std::pmr::memory_resource {
  public:
    /// @param who   who is named in reports, by default the function that makes this; 15 characters are kept. The text
    ///              must outlive this
    /// @param line  its line
    explicit traced_resource(const char *who = __builtin_FUNCTION(), std::int32_t line = __builtin_LINE()) noexcept
        : who_(who), line_(line) {}
    traced_resource(const traced_resource &) = delete;
    traced_resource &operator=(const traced_resource &) = delete;

    /// Whether nothing was written just before or behind a block's bytes; damage is reported as an error.
    ///
    /// @param block      what `allocate` gave
    /// @param alignment  the alignment that it was asked for with
    /// @return false for a damaged one
    static bool is_whole(void *block, std::size_t alignment = alignof(std::max_align_t)) noexcept {
        return Trace_Mem_Check(handle_of(block, alignment)) == 0;
    }

    /// @return blocks of all traced resources that were not given back yet. Call it while no other thread allocates
    static std::int32_t live_blocks() noexcept { return g_cnAlloc - g_cnFree; }

  private:
    // The library frees a block by an address 4 bytes behind the bytes that it handed out: a multiple of 16. That is what
    // callers get, so the bytes asked for are 4 more. A wider alignment moves the bytes on; the 8 before them keep the way
    // back.
    static constexpr std::size_t shift = 4;
    static constexpr std::size_t usual_alignment = 16;

    void *do_allocate(std::size_t bytes, std::size_t alignment) override {
        const std::size_t extra = shift + (alignment > usual_alignment ? alignment + sizeof(void *) : 0);
        if (bytes > std::numeric_limits<std::size_t>::max() - extra)
            throw std::bad_alloc();

        void *given = Trace_Mem_Alloc(bytes + extra, nullptr, who_, line_);
        if (given == nullptr)
            throw std::bad_alloc();

        char *const handle = static_cast<char *>(given) + shift;
        if (alignment <= usual_alignment)
            return handle;

        const auto at = reinterpret_cast<std::uintptr_t>(handle) + sizeof(void *);
        char *const block = handle + sizeof(void *) + (alignment - at % alignment) % alignment;
        std::memcpy(block - sizeof(void *), &handle, sizeof(void *));
        return block;
    }

    void do_deallocate(void *block, std::size_t /*bytes*/, std::size_t alignment) override {
        Trace_Mem_Free(handle_of(block, alignment), who_, line_);
    }

    bool do_is_equal(const std::pmr::memory_resource &other) const noexcept override {
        return dynamic_cast<const traced_resource *>(&other) != nullptr;
    }

    static void *handle_of(void *block, std::size_t alignment) noexcept {
        if (alignment <= usual_alignment)
            return block;

        void *handle = nullptr;
        std::memcpy(&handle, static_cast<char *>(block) - sizeof(void *), sizeof(void *));
        return handle;
    }

    detail::tracer_use use_;
    const char *who_;
    std::int32_t line_;
};

}  // namespace korvex

#endif
