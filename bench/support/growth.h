// Points of the pictures that show how a figure grows with the size of what it is about.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace bench {

struct Point {
    std::string family;  // "growth of WHAT": one picture
    std::string work;    // one line of it, for each side
    std::string side;
    size_t size;
    double value;
    std::string unit = "s";             // or "B"
    std::string measure = "processor";  // as in Figure
};

// Prints and keeps it.
void record_point(const Point &point);

// Seconds of processor time of this thread: the median of up to five runs, fewer where they take long.
double processor_seconds(const std::function<void()> &body);

}  // namespace bench
