// Ways to do one job, compared inside one process: rounds of all sides in turn, and the median of the ratios of a round.
#pragma once

#include <cstddef>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace bench {

struct Cost {
    double elapsed;    // seconds
    double processor;  // seconds, user and system
};

// One way to do the job; the first side of a comparison is the library's.
struct Side {
    std::string name;
    std::function<Cost()> round;
    std::string aim = {};  // as in Figure, for the ratio of the processor times
};

struct Comparison {
    std::string family;  // as in Figure
    std::string job;
    size_t messages;  // in a round: what the times that are printed are divided by
    std::vector<Side> sides;
    size_t rounds = 60;
};

// What `body` costs. The clock says whose processor time counts: CLOCK_THREAD_CPUTIME_ID or CLOCK_PROCESS_CPUTIME_ID.
Cost cost_of(clockid_t processor_clock, const std::function<void()> &body);

// Runs the rounds, then prints and keeps, for each side beside the first, how much longer it took: above 1, the first is
// the faster one. The sides change places from round to round, so a change of the machine's pace meets all of them.
// Returns what was measured: the rounds of each side.
std::vector<std::vector<Cost>> compare(const Comparison &comparison);

}  // namespace bench
