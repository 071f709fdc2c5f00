// Lines from many processes into one log: each opens it for itself and writes its lines as fast as it can. The time of a line
// is that of all by the number of their lines. Before a figure counts, the file has every line.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "figures.h"
#include "growth.h"
#include "line.h"
#include "rounds.h"
#include "sandbox.h"

namespace {

constexpr size_t kLines = 64'000;  // by all processes together

struct Way {
    const char *side;
    std::function<int(const std::string &path, size_t lines)> write;
};

int write_by_library(const std::string &path, size_t lines) {
    Simp_Log *log = nullptr;
    if (Simp_Log_Create(path.c_str(), &log, 24, 3, 0) != 0 || Simp_Log_Open(log, 0) != 0)
        return 1;
    for (size_t line = 0; line < lines; ++line)
        bench::write_line(log);
    Simp_Log_Release(log);
    return 0;
}

int write_by_hand(const std::string &path, size_t lines) {
    FILE *log = std::fopen(path.c_str(), "a");
    for (size_t line = 0; line < lines; ++line)
        bench::write_line_by_hand(log);
    return std::fclose(log);
}

void write_by_all(const Way &way, const std::string &path, size_t processes) {
    std::vector<pid_t> children;
    for (size_t place = 0; place < processes; ++place)
        children.push_back(support::start_child([&] { return way.write(path, kLines / processes); }));
    for (const pid_t child : children)
        if (support::wait_for(child) != 0)
            throw std::runtime_error(std::string(way.side) + " did not write its lines");
}

void require_all_lines(const std::string &path) {
    const std::string text = support::read_file(path);
    if (static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) != kLines)
        throw std::runtime_error("lines were lost");
}

void measure(const Way &way, const std::string &path, size_t processes) {
    std::vector<double> rounds(bench::rounds(5));
    std::generate(rounds.begin(), rounds.end(), [&] {
        unlink(path.c_str());
        const double elapsed =
            bench::cost_of(CLOCK_THREAD_CPUTIME_ID, [&] { write_by_all(way, path, processes); }).elapsed;
        require_all_lines(path);
        return elapsed;
    });
    bench::record_point({.family = "growth of log lines",
                         .work = "a line",
                         .side = way.side,
                         .size = processes,
                         .value = bench::median(rounds) / static_cast<double>(kLines),
                         .measure = "elapsed"});
}

}  // namespace

int main() try {
    support::enter_sandbox();
    const support::SmallDisk disk(256 << 20);
    std::puts("Elapsed time of a line by the number of processes that write to one log:");
    std::fflush(stdout);
    for (const size_t processes : bench::sizes({1, 2, 4, 8, 16}))
        for (const Way &way : {Way{"korvex", write_by_library}, Way{"stat+stamp+fprintf+fflush", write_by_hand}})
            measure(way, disk.path("bench.log"), processes);
} catch (const std::exception &error) {
    std::fprintf(stderr, "log_growth: %s\n", error.what());
    return 1;
}
