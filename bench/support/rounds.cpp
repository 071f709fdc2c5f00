#include "rounds.h"

#include <algorithm>
#include <cstdio>

#include "figures.h"

namespace bench {
namespace {

double now(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

using Member = double Cost::*;

double median_of(const std::vector<Cost> &costs, Member member) {
    std::vector<double> values(costs.size());
    std::transform(costs.begin(), costs.end(), values.begin(), [member](const Cost &cost) { return cost.*member; });
    return median(values);
}

double median_ratio(const std::vector<Cost> &peer, const std::vector<Cost> &ours, Member member) {
    std::vector<double> ratios(ours.size());
    for (size_t round = 0; round < ours.size(); ++round)
        ratios[round] = peer[round].*member / (ours[round].*member);
    return median(ratios);
}

// What one measure says about all sides; an aim is one for processor time.
void record_all(const Comparison &comparison, const std::vector<std::vector<Cost>> &costs, Member member,
                const char *measure) {
    for (size_t place = 0; place < costs.size(); ++place) {
        const Side &side = comparison.sides[place];
        record({.family = comparison.family,
                .job = comparison.job,
                .side = place == 0 ? "korvex" : side.name,
                .value = median_of(costs[place], member) / static_cast<double>(comparison.messages),
                .unit = "s",
                .ratio = median_ratio(costs[place], costs[0], member),
                .aim = place > 0 && member == &Cost::processor ? side.aim : "",
                .measure = measure});
    }
}

}  // namespace

Cost cost_of(clockid_t processor_clock, const std::function<void()> &body) {
    const double start = now(CLOCK_MONOTONIC);
    const double processor_start = now(processor_clock);
    body();
    return {.elapsed = now(CLOCK_MONOTONIC) - start, .processor = now(processor_clock) - processor_start};
}

std::vector<std::vector<Cost>> compare(const Comparison &comparison) {
    const std::vector<Side> &sides = comparison.sides;
    std::vector<std::vector<Cost>> costs(sides.size());
    // Not counted: the first use of buffers, files and sockets would be charged to whoever comes first.
    for (const Side &side : sides)
        side.round();
    for (size_t round = 0; round < rounds(comparison.rounds); ++round)
        for (size_t turn = 0; turn < sides.size(); ++turn) {
            const size_t place = (round + turn) % sides.size();
            costs[place].push_back(sides[place].round());
        }

    const auto messages = static_cast<double>(comparison.messages);
    const auto show = [&](size_t place, Member member) { return readable(median_of(costs[place], member) / messages); };
    std::printf("%s: %s 1.00 (%s, elapsed %s)", comparison.job.c_str(), sides[0].name.c_str(),
                show(0, &Cost::processor).c_str(), show(0, &Cost::elapsed).c_str());
    for (size_t place = 1; place < sides.size(); ++place)
        std::printf(", %s %.3fx (%s, elapsed %.3fx %s)", sides[place].name.c_str(),
                    median_ratio(costs[place], costs[0], &Cost::processor), show(place, &Cost::processor).c_str(),
                    median_ratio(costs[place], costs[0], &Cost::elapsed), show(place, &Cost::elapsed).c_str());
    std::printf("\n");
    std::fflush(stdout);
    record_all(comparison, costs, &Cost::processor, "processor");
    record_all(comparison, costs, &Cost::elapsed, "elapsed");
    return costs;
}

}  // namespace bench
