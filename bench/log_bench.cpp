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

// Each row appends to a file of its own, emptied before each repetition so that it does not fill the disk.
auto emptying(FILE *log) {
    return [=] {
        if (ftruncate(fileno(log), 0) != 0)
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
    bench::add("log line/korvex", write, emptying(log->fpLog));
    bench::add("log line/fprintf+fflush", write_bare, emptying(bare));
    bench::add(
        "log line/stat+stamp+fprintf+fflush", [=] { write_by_hand(by_hand); }, emptying(by_hand));

    const int result = bench::run(argc, argv);
    std::fclose(bare);
    std::fclose(by_hand);
    Simp_Log_Release(log);
    return result;
}
