// A log line, beside a bare fprintf and fflush of the same bytes, and beside a line that a program stamps by hand
// after it has looked for the lock: the same job with the system's own means.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "ratios.h"
#include "sandbox.h"
#include "simplog.h"

namespace {

constexpr const char *kFormat = "client %s asked for %d shares\n";
constexpr const char *kClient = "192.168.1.20";

void write_by_hand(FILE *log) {
    struct stat status;
    (void)stat("/var/lock/bench.log.lck", &status);
    const time_t now = std::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    std::fprintf(log, "[%s] client %s asked for %d shares\n", stamp, kClient, 7);
    std::fflush(log);
}

// Without TZ, the library looks for each line whether the system's time zone has changed.
struct Environment {
    const char *name;
    bool has_zone;
};

constexpr Environment kEnvironments[] = {{"TZ set", true}, {"TZ not set", false}};

// Each row appends to a file of its own, emptied before each repetition so that it does not fill the disk.
auto prepared(FILE *log, bool has_zone) {
    return [=] {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the only thread
        if (ftruncate(fileno(log), 0) != 0 || (has_zone ? setenv("TZ", "UTC", 1) : unsetenv("TZ")) != 0)
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

    const auto write = [=] { Simp_Log_Write(log, kFormat, kClient, 7); };
    const auto write_bare = [=] {
        std::fprintf(bare, "[2024-01-31 13:04:05] client %s asked for %d shares\n", kClient, 7);
        std::fflush(bare);
    };
    for (const auto &[name, has_zone] : kEnvironments) {
        const std::string job = std::string("log line, ") + name;
        bench::add(job + "/korvex", write, prepared(log->fpLog, has_zone));
        bench::add(job + "/fprintf+fflush", write_bare, prepared(bare, has_zone));
        bench::add(
            job + "/stat+stamp+fprintf+fflush", [=] { write_by_hand(by_hand); }, prepared(by_hand, has_zone));
    }

    const int result = bench::run(argc, argv, "log");
    std::fclose(bare);
    std::fclose(by_hand);
    Simp_Log_Release(log);
    return result;
}
