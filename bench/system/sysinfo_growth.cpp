// How the time of listing mounts and shares and of searching processes grows with their number.
#include <cstdio>
#include <string>

#include "figures.h"
#include "growth.h"
#include "own_system.h"

namespace {

struct Way {
    const char *side;
    size_t (*run)();
    size_t found;
};

// Seconds for one entry; small systems are looked at often enough to be measured.
void measure(const std::string &family, const std::string &work, size_t size, const Way &way) {
    const size_t calls = size < 1'000 ? 1'000 / size : 1;
    bench::require(way.run() == way.found, way.side);
    const double seconds = bench::processor_seconds([&] {
        for (size_t i = 0; i < calls; ++i)
            way.run();
    });
    bench::record_point({.family = family,
                         .work = work,
                         .side = way.side,
                         .size = size,
                         .value = seconds / static_cast<double>(calls * size)});
}

int measure_all() {
    for (const size_t lines : bench::sizes({10, 100, 1'000, 10'000, 100'000})) {
        bench::write_mount_table(lines);
        measure("growth of mounts", "list", lines, {"korvex", bench::scan_mounts, lines});
        measure("growth of mounts", "list", lines, {"bare getmntent_r", bench::read_mounts, lines});
    }
    for (const size_t shares : bench::sizes({10, 60, 200, 600, 2'000})) {
        bench::make_shares(shares, shares);
        measure("growth of shares", "list", shares, {"korvex", bench::scan_shares, shares});
        measure("growth of shares", "list", shares, {"bare fstatat, realpath, statfs", bench::look_at_shares, shares});
        bench::remove_shares();
    }
    // This program is one of them.
    size_t started = 1;
    for (const size_t processes : bench::sizes({10, 100, 1'000, 4'000})) {
        for (; started < processes; ++started)
            bench::start_process(started % 2 == 0);
        measure("growth of processes", "search", processes, {"korvex", bench::search_processes, (processes - 1) / 2});
        measure("growth of processes", "search", processes, {"bare fstatat, open, read", bench::read_names, processes});
    }
    return 0;
}

}  // namespace

int main() {
    std::puts("Processor time of an entry:");
    std::fflush(stdout);
    return bench::in_own_system(measure_all);
}
