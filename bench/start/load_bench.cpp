// What loading the library adds to a program: the object beside an empty one, loaded and let go of in one process, and
// two equal programs that are linked with the one and with the other.
#include <dlfcn.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "commands.h"
#include "figures.h"

namespace {

constexpr size_t kLoads = 20;  // in a round
constexpr size_t kRounds = 400;

// Both are told by the build.
constexpr const char *kObject = BENCH_OBJECT;
constexpr const char *kEmptyObject = BENCH_EMPTY_OBJECT;

void load(const char *object) {
    void *handle = dlopen(object, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
        throw std::runtime_error(dlerror());
    dlclose(handle);
}

bench::Cost load_often(const char *object) {
    const bench::Cost cost = bench::cost_of(CLOCK_THREAD_CPUTIME_ID, [object] {
        for (size_t i = 0; i < kLoads; ++i)
            load(object);
    });
    // An object that stays would be found rather than loaded.
    if (dlopen(object, RTLD_NOW | RTLD_NOLOAD) != nullptr)
        throw std::runtime_error(std::string(object) + " stays loaded");
    return cost;
}

// The median of the rounds' differences. Elapsed time is the larger one, so that is what the aim is for.
void compare_and_subtract(const bench::Comparison &comparison) {
    const std::vector<std::vector<bench::Cost>> costs = bench::compare(comparison);
    std::vector<double> more;
    for (size_t round = 0; round < costs[0].size(); ++round)
        more.push_back((costs[0][round].elapsed - costs[1][round].elapsed) / static_cast<double>(comparison.messages));
    const double seconds = bench::median(more);
    std::printf("    aim: less than 1 ms more, elapsed, reached: %s\n", bench::readable(seconds).c_str());
    bench::record({.family = comparison.family,
                   .job = comparison.job + ": more than beside the empty object",
                   .side = "korvex",
                   .value = seconds,
                   .unit = "s",
                   .aim = "<0.001",
                   .measure = "elapsed"});
}

bench::Side program(const char *name, const char *path) {
    return {name, [path] { return bench::run_command({path}).cost; }};
}

}  // namespace

int main() {
    std::puts("Medians of processor time and of the ratios of a round; above 1, the library is the faster one:");
    compare_and_subtract({.family = "load",
                          .job = "dlopen and dlclose",
                          .messages = kLoads,
                          .sides = {{"korvex", [] { return load_often(kObject); }},
                                    {"empty object", [] { return load_often(kEmptyObject); }}},
                          .rounds = kRounds});
    compare_and_subtract({.family = "load",
                          .job = "a process from start to end",
                          .messages = 1,
                          .sides = {program("korvex", BENCH_PROGRAM), program("empty object", BENCH_EMPTY_PROGRAM)},
                          .rounds = kRounds});
}
