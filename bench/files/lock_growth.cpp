// How long the unluckiest of many processes waits for one lock: all of them want it when it is released, each releases it
// at once, and the time is that until the last one has it. Beside flock, where the kernel wakes who waits.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "figures.h"
#include "fileio.h"
#include "growth.h"
#include "sandbox.h"

namespace {

constexpr size_t kMostWaiters = 50;

void require(bool done, const char *what) {
    if (!done)
        throw std::runtime_error(what);
}

double now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Taken by one call and released by the other; both are made in each process.
struct Lock {
    const char *name;
    std::function<int()> take;  // what `release` is given
    std::function<void(int)> release;
};

Lock library_lock(const std::string &path) {
    return {.name = "korvex",
            .take =
                [path] {
                    require(Get_File_Lock(path.c_str(), -1) == 1, "the lock was not taken");
                    return 0;
                },
            .release = [path](int) { Release_File_Lock(path.c_str()); }};
}

Lock kernel_lock(const std::string &path) {
    return {.name = "bare flock",
            .take =
                [path] {
                    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
                    require(flock(file, LOCK_EX) == 0, "flock");
                    return file;
                },
            // A descriptor that a child has, too, holds it on.
            .release =
                [](int file) {
                    flock(file, LOCK_UN);
                    close(file);
                }};
}

// When each has it, in memory that all processes share.
double *shared_times() {
    void *memory =
        mmap(nullptr, kMostWaiters * sizeof(double), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(memory != MAP_FAILED, "mmap");
    return static_cast<double *>(memory);
}

int wait_for_lock(const Lock &lock, int ready, double *time) {
    require(write(ready, "", 1) == 1, "pipe");
    const int held = lock.take();
    *time = now();
    lock.release(held);
    return 0;
}

double unluckiest(const Lock &lock, size_t waiters, double *times) {
    int ready[2];
    require(pipe2(ready, O_CLOEXEC) == 0, "pipe");
    const int held = lock.take();
    std::vector<pid_t> children;
    for (size_t place = 0; place < waiters; ++place)
        children.push_back(support::start_child([&] { return wait_for_lock(lock, ready[1], times + place); }));
    char byte = 0;
    for (size_t place = 0; place < waiters; ++place)
        require(read(ready[0], &byte, 1) == 1, "pipe");
    // From their word to their wait it is not far; one that comes later waits less.
    usleep(20'000);

    const double released = now();
    lock.release(held);
    for (const pid_t child : children)
        require(support::wait_for(child) == 0, "a waiter failed");
    close(ready[0]);
    close(ready[1]);
    return *std::max_element(times, times + waiters) - released;
}

void measure(const Lock &lock, size_t waiters, double *times) {
    std::vector<double> rounds(bench::rounds(15));
    std::generate(rounds.begin(), rounds.end(), [&] { return unluckiest(lock, waiters, times); });
    bench::record_point({.family = "growth of waiters",
                         .work = "the unluckiest",
                         .side = lock.name,
                         .size = waiters,
                         .value = bench::median(rounds),
                         .measure = "elapsed"});
}

}  // namespace

int main() try {
    support::enter_sandbox();
    const support::SmallDisk disk(1 << 20);
    double *times = shared_times();
    std::puts("Time from a lock's release until the last of its waiters has it:");
    std::fflush(stdout);
    for (const size_t waiters : bench::sizes({1, 2, 5, 10, 20, kMostWaiters}))
        for (const Lock &lock : {library_lock("/etc/bench.conf"), kernel_lock(disk.path("lock"))})
            measure(lock, waiters, times);
} catch (const std::exception &error) {
    std::fprintf(stderr, "lock_growth: %s\n", error.what());
    return 1;
}
