#include "growth.h"

#include <cstdio>
#include <ctime>
#include <vector>

#include "figures.h"
#include "rounds.h"

namespace bench {

void record_point(const Point &point) {
    const std::string value =
        point.unit == "s" ? readable(point.value) : std::to_string(static_cast<size_t>(point.value) / 1024) + " KiB";
    std::printf("%s, %zu: %s, %s: %s\n", point.family.c_str(), point.size, point.work.c_str(), point.side.c_str(),
                value.c_str());
    std::fflush(stdout);
    record({.family = point.family,
            .job = point.work,
            .side = point.side + ", " + std::to_string(point.size),
            .value = point.value,
            .unit = point.unit,
            .aim = "",
            .measure = point.measure});
}

double processor_seconds(const std::function<void()> &body) {
    constexpr double kLong = 1.0;
    std::vector<double> runs;
    double total = 0;
    while (runs.size() < rounds(5) && total < kLong) {
        runs.push_back(cost_of(CLOCK_THREAD_CPUTIME_ID, body).processor);
        total += runs.back();
    }
    return median(runs);
}

}  // namespace bench
