// How the benchmarks sum up, print and keep what they measured.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace bench {

// One side of one job, as a row of the file that KORVEX_BENCH_CSV names.
struct Figure {
    std::string family;  // what stands in one section of the page
    std::string job;
    std::string side;     // "korvex" or the peer
    double value;         // in `unit`
    std::string unit;     // "s", "s/B" or "B"; system calls are counted by scripts, and there it is the call's name
    double ratio = NAN;   // the side's value by the library's; NAN where there is nothing to compare
    std::string aim;      // "3x": a ratio of at least 3; "<0.001": a value of less than 0.001; empty: none
    std::string measure;  // "processor", "elapsed" or "memory"
};

// Appends the row; without KORVEX_BENCH_CSV nothing happens.
void record(const Figure &figure);

// Opens the file now rather than with the first row: for a program that is about to leave its root folder.
void open_record();

// How many rounds to take where `usual` are needed for figures that are to be told: KORVEX_BENCH_ROUNDS makes it fewer.
size_t rounds(size_t usual);

// The sizes to measure at, of those that are to be told: KORVEX_BENCH_LARGEST leaves out what is larger. The first stays.
std::vector<size_t> sizes(const std::vector<size_t> &usual);

inline double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

inline std::string readable(double seconds) {
    char text[32];
    if (std::fabs(seconds) >= 1e-3)
        std::snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
    else if (std::fabs(seconds) >= 1e-7)
        std::snprintf(text, sizeof text, "%.2f us", seconds * 1e6);
    else
        std::snprintf(text, sizeof text, "%.1f ns", seconds * 1e9);
    return text;
}

}  // namespace bench
