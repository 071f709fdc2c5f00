// A log line, beside a bare fprintf and fflush of the same bytes; beside a line that a program stamps by hand after it has
// looked for the lock, the same job with the system's own means; and beside spdlog, which looks for no lock.
#ifdef BENCH_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "line.h"
#include "ratios.h"
#include "sandbox.h"

namespace {

// The two system calls of a line and nothing else: what no line that looks for a lock can beat. The look is the dearer one
// of them: a tmpfs, as lock folders are, remembers no name that is missing.
void make_the_calls_alone(int log) {
    static constexpr char kLine[] = "[2024-01-31 13:04:05] client 192.168.1.20 asked for 7 shares\n";
    struct stat status;
    (void)stat(bench::kLogLock, &status);
    if (write(log, kLine, sizeof kLine - 1) < 0)
        std::abort();
}

#ifdef BENCH_SPDLOG
// A logger whose lines look like ours, each written through at once.
std::shared_ptr<spdlog::logger> spdlog_logger(const std::string &path) {
    auto logger = std::make_shared<spdlog::logger>("bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path));
    logger->set_pattern("[%Y-%m-%d %H:%M:%S] %v");
    logger->flush_on(spdlog::level::trace);
    return logger;
}
#endif

// Without TZ, the library looks once a second whether the system's time zone has changed.
struct Environment {
    const char *name;
    bool has_zone;
};

constexpr Environment kEnvironments[] = {{"TZ set", true}, {"TZ not set", false}};

// Each row appends to a file of its own, emptied before each repetition so that it does not fill the disk.
auto prepared(const std::string &path, bool has_zone) {
    return [=] {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the only thread
        if (truncate(path.c_str(), 0) != 0 || (has_zone ? setenv("TZ", "UTC", 1) : unsetenv("TZ")) != 0)
            std::abort();
    };
}

}  // namespace

int main(int argc, char **argv) {
    support::enter_sandbox();
    const support::SmallDisk disk(int64_t{1} << 30);
    Simp_Log *log = nullptr;
    if (Simp_Log_Create(disk.path("bench.log").c_str(), &log, 24, 3, 0) != 0 || Simp_Log_Open(log, 0) != 0) {
        std::fprintf(stderr, "no log to write to\n");
        return 1;
    }
    FILE *bare = std::fopen(disk.path("bare.log").c_str(), "a");
    FILE *by_hand = std::fopen(disk.path("by_hand.log").c_str(), "a");

    const auto write = [=] { bench::write_line(log); };
    const auto write_bare = [=] {
        std::fprintf(bare, "[2024-01-31 13:04:05] client %s asked for %d shares\n", bench::kClient, 7);
        std::fflush(bare);
    };
#ifdef BENCH_SPDLOG
    const auto logger = spdlog_logger(disk.path("spdlog.log"));
#endif
    for (const auto &[name, has_zone] : kEnvironments) {
        const std::string job = std::string("log line, ") + name;
        bench::add(job + "/korvex", write, prepared(disk.path("bench.log"), has_zone));
        bench::add(job + "/fprintf+fflush", write_bare, prepared(disk.path("bare.log"), has_zone));
        bench::add(
            job + "/stat+stamp+fprintf+fflush", [=] { bench::write_line_by_hand(by_hand); },
            prepared(disk.path("by_hand.log"), has_zone));
        bench::add(
            job + "/stat+write alone", [=] { make_the_calls_alone(fileno(bare)); },
            prepared(disk.path("bare.log"), has_zone));
#ifdef BENCH_SPDLOG
        bench::add(
            job + "/spdlog, flushed", [=] { logger->info("client {} asked for {} shares", bench::kClient, 7); },
            prepared(disk.path("spdlog.log"), has_zone));
#endif
    }

    const int result =
        bench::run(argc, argv, "log",
                   {{"log line", 0.6, {"fprintf+fflush", "stat+write alone", "stat+stamp+fprintf+fflush"}},
                    {"log line", 1.2, {"fprintf+fflush", "stat+write alone", "spdlog, flushed"}}});
    std::fclose(bare);
    std::fclose(by_hand);
    Simp_Log_Release(log);
    return result;
}
