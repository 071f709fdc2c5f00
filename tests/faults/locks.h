// Locks of files in scenarios: those that are there, and what may fail in the wait for one.
#pragma once

#include <string>

#include "sweep.h"

namespace faults {

// A lock whose holder has ended.
void put_stale_lock(Trial &trial, const std::string &path);
// A lock whose holder lives: this process.
void put_live_lock(Trial &trial, const std::string &path);
// A lock that its holder never filled.
void put_empty_lock(const std::string &path);

// For a wait that removes a stale lock, and succeeds whatever fails in it. `function` is the one that reports it.
// From `nth` on other calls of the same functions follow, which are not the wait's; 0: none.
Rules stale_lock_rules(const char *function, int nth = 0);
// For taking a lock that nobody holds, as the first thing that a setter of configurations does: `function` is to report
// it where the lock could not be filled.
Rules conf_lock_rules(const char *function);

}  // namespace faults
