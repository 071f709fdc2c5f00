#include "ratios.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>
#include <map>

#include "figures.h"

namespace bench {
namespace {

constexpr const char *kOurs = "korvex";

// One job: who did it, in how many seconds (one for each repetition).
using Rows = std::map<std::string, std::vector<double>>;

void print_aim(const Aim &aim, const Rows &rows, double ours) {
    double best = std::numeric_limits<double>::infinity();
    for (const auto &[who, seconds] : rows)
        if (who != kOurs && aim.aside.count(who) == 0)
            best = std::min(best, median(seconds));
    if (std::isfinite(best))
        std::printf("    aim: %.2fx the best peer, reached: %.2fx\n", aim.factor, best / ours);
}

std::string aim_of(const std::string &job, const std::string &who, const std::vector<Aim> &aims) {
    for (const Aim &aim : aims) {
        if (!job.starts_with(aim.job) || aim.aside.count(who) != 0 || who == kOurs)
            continue;
        char text[32];
        std::snprintf(text, sizeof text, "%gx", aim.factor);
        return text;
    }
    return "";
}

void record_job(const std::string &family, const std::string &job, const Rows &rows, const std::vector<Aim> &aims) {
    const auto ours = rows.find(kOurs);
    for (const auto &[who, seconds] : rows)
        record({.family = family,
                .job = job,
                .side = who,
                .value = median(seconds),
                .unit = "s",
                .ratio = ours == rows.end() ? NAN : median(seconds) / median(ours->second),
                .aim = aim_of(job, who, aims),
                .measure = "processor"});
}

void print_job(const std::string &job, const Rows &rows, const std::vector<Aim> &aims) {
    const auto found = rows.find(kOurs);
    if (found == rows.end())
        return;

    const double ours = median(found->second);
    std::printf("%s: %s 1.00 (%s)", job.c_str(), kOurs, readable(ours).c_str());
    for (const auto &[who, seconds] : rows)
        if (who != kOurs)
            std::printf(", %s %.2fx (%s)", who.c_str(), median(seconds) / ours, readable(median(seconds)).c_str());
    std::printf("\n");
    for (const Aim &aim : aims)
        if (job.starts_with(aim.job))
            print_aim(aim, rows, ours);
}

// Shows the median of each benchmark as a line of the usual table, and keeps the times of all repetitions.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) != 0 ? OO_Defaults : OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        std::vector<Run> shown;
        std::copy_if(runs.begin(), runs.end(), std::back_inserter(shown), is_shown);
        ConsoleReporter::ReportRuns(shown);
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred)
                continue;
            const std::string &name = run.run_name.function_name;
            const size_t slash = name.rfind('/');
            // Processor time: nothing here waits, and what else runs on the machine does not count.
            const double seconds = run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
            jobs_[name.substr(0, slash)][name.substr(slash + 1)].push_back(seconds);
        }
    }

    void tell(const std::string &family, const std::vector<Aim> &aims) const {
        std::printf("\nMedians and ratios of this run:\n");
        for (const auto &[job, rows] : jobs_) {
            print_job(job, rows, aims);
            record_job(family, job, rows, aims);
        }
    }

  private:
    static bool is_shown(const Run &run) { return run.aggregate_name == "median" || run.error_occurred; }

    std::map<std::string, Rows> jobs_;
};

}  // namespace

void add(const std::string &name, const std::function<void()> &job, const std::function<void()> &before) {
    // Google Benchmark owns what is registered. NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
    benchmark::RegisterBenchmark(name.c_str(), [job, before](benchmark::State &state) {
        if (before)
            before();
        for ([[maybe_unused]] auto iteration : state)
            job();
    });
}

int run(int argc, char **argv, const std::string &family, const std::vector<Aim> &aims) {
    // Random order, so that a change of the machine's pace meets all rows; what the caller says comes later and wins.
    std::vector<std::string> defaults = {"--benchmark_repetitions=" + std::to_string(rounds(5)),
                                         "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.1"};
    std::vector<char *> arguments = {argv[0]};
    for (std::string &option : defaults)
        arguments.push_back(option.data());
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);

    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.tell(family, aims);
    return 0;
}

}  // namespace bench
