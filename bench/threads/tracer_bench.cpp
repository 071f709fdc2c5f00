// The tracer beside plain malloc and free, and beside dmalloc with several of its settings.
//
// dmalloc is loaded beside libc, not in its place: its functions are called by their own names, so malloc and free stay
// libc's for everybody else. Its settings can't all be changed once it runs, so each has a process of its own.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "rounds.h"
#include "tracer.h"

namespace {

constexpr size_t kPairs = 20'000;  // in a round
constexpr size_t kLive = 10'000;
constexpr size_t kLargest = 4096;

// dmalloc 5.5; what it wants to be told about the function that was called.
constexpr const char *kDmalloc = "libdmalloc.so.5";
constexpr int kMallocCalled = 10;
constexpr int kFreeCalled = 18;

struct Dmalloc {
    void *(*allocate)(const char *file, int line, unsigned long size, int function, unsigned long alignment, int exits);
    int (*free)(const char *file, int line, void *block, int function);
    unsigned (*debug)(unsigned flags);
};

Dmalloc g_dmalloc{};

template <class Function>
bool find(void *library, const char *name, Function &function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

bool load_dmalloc() {
    void *library = dlopen(kDmalloc, RTLD_NOW | RTLD_LOCAL);
    return library != nullptr && find(library, "dmalloc_malloc", g_dmalloc.allocate) &&
           find(library, "dmalloc_free", g_dmalloc.free) && find(library, "dmalloc_debug", g_dmalloc.debug);
}

// ---- The allocators.

struct Plain {
    static constexpr const char *kName = "malloc";
    static constexpr const char *kAim = "0.334x";  // less than three times what malloc costs
    static void *allocate(size_t size) { return std::malloc(size); }
    static void free(void *block) { std::free(block); }
};

struct Traced {
    static constexpr const char *kName = "korvex";
    static constexpr const char *kAim = "";
    static void *allocate(size_t size) { return Trace_Mem_Alloc(size, nullptr, __func__, __LINE__); }
    static void free(void *block) { Trace_Mem_Free(static_cast<char *>(block) + 4, __func__, __LINE__); }
};

struct Watched {
    static constexpr const char *kName = "dmalloc";
    static constexpr const char *kAim = "5x";
    static void *allocate(size_t size) { return g_dmalloc.allocate(__FILE__, __LINE__, size, kMallocCalled, 0, 0); }
    static void free(void *block) { g_dmalloc.free(__FILE__, __LINE__, block, kFreeCalled); }
};

// ---- The jobs.

// Each block is written to, as its user would: that also keeps the compiler from leaving out a pair.
template <class Allocator>
void *block_of(size_t size) {
    void *block = Allocator::allocate(size);
    if (block == nullptr)
        throw std::runtime_error(std::string("no memory from ") + Allocator::kName);
    *static_cast<volatile char *>(block) = 1;
    return block;
}

template <class Allocator>
bench::Cost pairs(size_t size) {
    return bench::cost_of(CLOCK_THREAD_CPUTIME_ID, [size] {
        for (size_t i = 0; i < kPairs; ++i)
            Allocator::free(block_of<Allocator>(size));
    });
}

// The same numbers for every side: which block goes, and how large the next one is.
class Dice final {
  public:
    size_t below(size_t limit) {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return state_ % limit;
    }

  private:
    uint64_t state_ = 88'172'645'463'325'252;
};

// Small blocks are the most frequent ones.
size_t any_size(Dice &dice) {
    const size_t limit = size_t{16} << dice.below(9);
    return 1 + dice.below(limit);
}

// Among many live blocks of all sizes: frees one and allocates another.
template <class Allocator>
class Mixed final {
  public:
    Mixed() {
        for (void *&block : blocks_)
            block = block_of<Allocator>(any_size(dice_));
    }
    ~Mixed() {
        for (void *block : blocks_)
            Allocator::free(block);
    }
    Mixed(const Mixed &) = delete;
    Mixed &operator=(const Mixed &) = delete;

    bench::Cost round() {
        return bench::cost_of(CLOCK_THREAD_CPUTIME_ID, [this] {
            for (size_t i = 0; i < kPairs; ++i) {
                void *&block = blocks_[dice_.below(kLive)];
                Allocator::free(block);
                block = block_of<Allocator>(any_size(dice_));
            }
        });
    }

  private:
    Dice dice_;
    std::vector<void *> blocks_ = std::vector<void *>(kLive);
};

template <class Allocator>
bench::Side pairs_side(size_t size) {
    return {Allocator::kName, [size] { return pairs<Allocator>(size); }, Allocator::kAim};
}

template <class Allocator>
bench::Side mixed_side(Mixed<Allocator> &mixed) {
    return {Allocator::kName, [&mixed] { return mixed.round(); }, Allocator::kAim};
}

void compare_all(const std::string &setting, bool with_dmalloc) {
    for (const size_t size : {size_t{16}, size_t{128}, kLargest}) {
        std::vector<bench::Side> sides = {pairs_side<Traced>(size), pairs_side<Plain>(size)};
        if (with_dmalloc)
            sides.push_back(pairs_side<Watched>(size));
        bench::compare(
            {.family = "tracer", .job = std::to_string(size) + " bytes" + setting, .messages = kPairs, .sides = sides});
    }

    Mixed<Traced> traced;
    Mixed<Plain> plain;
    std::vector<bench::Side> sides = {mixed_side(traced), mixed_side(plain)};
    const std::string job = "1 to 4096 bytes among 10,000 live blocks" + setting;
    if (!with_dmalloc) {
        bench::compare({.family = "tracer", .job = job, .messages = kPairs, .sides = sides});
        return;
    }

    Mixed<Watched> watched;
    sides.push_back(mixed_side(watched));
    bench::compare({.family = "tracer", .job = job, .messages = kPairs, .sides = sides});
}

int compare_with(const char *name, unsigned flags) {
    const pid_t child = fork();
    if (child == 0) {
        g_dmalloc.debug(flags);
        compare_all(std::string("; dmalloc ") + name, true);
        // Without dmalloc's own end, which would report on this process.
        _exit(0);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0 ? 0 : 1;
}

int compare_with_all() {
    Trace_Mem_Init();
    if (!load_dmalloc()) {
        std::printf("dmalloc is left out: %s\n", dlerror());
        compare_all("", false);
        return 0;
    }
    int failed = compare_with("without checks (0)", 0);
    failed |= compare_with("low (0x4e48503)", 0x4e48503);
    return failed;
}

}  // namespace

int main() try {
    std::puts(
        "A pair of allocating and freeing: medians of processor time and of the ratios of a round; above 1, the\n"
        "tracer is the faster one. What the tracer costs beside malloc is 1 by malloc's ratio:");
    std::fflush(stdout);
    return compare_with_all();
} catch (const std::exception &error) {
    std::fprintf(stderr, "tracer_bench: %s\n", error.what());
    return 1;
}
