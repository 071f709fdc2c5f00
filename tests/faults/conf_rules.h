// What is expected where the steps fail that the functions on configuration files have in common.
#pragma once

#include <string>
#include <vector>

#include "sweep.h"

namespace faults {

using Messages = std::vector<Message>;

// A configuration of two sections, the first without a name; and how its parse fails.
inline constexpr const char *kConf = "a = 1\n[s]\nb = 2\n";
// The allocations of its parse, from the first: the nameless section, a pair, a section, a pair. A section for which
// there is no memory ends the list, which is a success; a pair fails.
Rules parse_rules(const char *function, int first_malloc, int64_t result_without_section);

// The read of a file: which `openat` it is, and which `stat`,
// `fstat` and `read`, and what the callers say after Cache_Conf_File's own message,
// where the file is not read and where it is missing.
Rules cache_rules(int nth_open, const Messages &failed, const Messages &missing, int nth = 1);

// The write of nodes to a file, which is replaced. `nth_malloc` is the stream's; the callers' messages follow.
Rules update_rules(int nth_malloc, const Messages &callers);

// The release of a lock is not reported: it stays.
Rule lock_not_released(int nth_unlink = 0);

// Writes kConf to "x.conf" with a mode of its own; its path.
std::string put_conf(Trial &trial, const std::string &content = kConf);
// A file holds its old bytes or its new ones, unless a write into it was made to fail and nobody is told.
void check_old_or_new(Trial &trial, const std::string &old_bytes, const std::string &new_bytes);

}  // namespace faults
