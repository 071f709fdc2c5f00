// Google Benchmark with ratios at the end: benchmarks named "job/who" are compared with "job/korvex".
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace bench {

// Adds the row "job/who", which does `job` over and over; `before` is called once before each repetition.
void add(const std::string &name, const std::function<void()> &job, const std::function<void()> &before = {});

// What a job should reach, printed beside what it reached.
struct Aim {
    std::string job;              // the jobs whose names begin so
    double factor;                // times as fast as the fastest other row
    std::set<std::string> aside;  // rows that are shown but do not do the whole job
};

// Runs the added rows as the command line says, each five times in random order, and prints for each job the median
// processor time of every row and its ratio to korvex: above 1, korvex is the faster one. The rows are kept as `family`'s.
int run(int argc, char **argv, const std::string &family, const std::vector<Aim> &aims = {});

}  // namespace bench
