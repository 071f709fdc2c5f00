// The line that the benchmarks of logs write.
#pragma once

#include <cstdio>

#include "simplog.h"

namespace bench {

constexpr const char *kClient = "192.168.1.20";
constexpr const char *kLogLock = "/var/lock/bench.log.lck";

inline void write_line(Simp_Log *log) {
    Simp_Log_Write(log, "client %s asked for %d shares\n", kClient, 7);
}

// The same job with the system's own means: the look for the lock, the stamp, the line.
void write_line_by_hand(FILE *log);

}  // namespace bench
