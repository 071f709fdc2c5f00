// How the benchmarks sum up and print what they measured.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace bench {

inline double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

inline std::string readable(double seconds) {
    char text[32];
    if (seconds >= 1e-3)
        std::snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
    else if (seconds >= 1e-7)
        std::snprintf(text, sizeof text, "%.2f us", seconds * 1e6);
    else
        std::snprintf(text, sizeof text, "%.1f ns", seconds * 1e9);
    return text;
}

}  // namespace bench
