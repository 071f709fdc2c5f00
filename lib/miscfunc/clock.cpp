// Ticks of the wall clock, and a sleep that signals do not shorten.
#include <sys/time.h>

#include <cerrno>
#include <ctime>

#include "miscfunc.h"

uint64_t Rough_Tick(void) {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

uint64_t Tick_Diff(uint64_t ullStart) {
    return Rough_Tick() - ullStart;
}

uint64_t Rough_Tick_Diff(uint64_t ullStart) {
    return Tick_Diff(ullStart);
}

void Sleep_MSec(uint32_t uMSec) {
    timespec left{.tv_sec = uMSec / 1000, .tv_nsec = (uMSec % 1000) * 1'000'000L};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {}
}
