// libc's own record of a mounted file system, the one that `getmntent` hands out.
#pragma once

#include <mntent.h>

#include <cstdint>

namespace korvex::sysinfo {

// Fills it from an entry. 0; else why it could not be filled, and `*record` is null.
[[nodiscard]] int32_t fill_libc_record(const mntent &entry, mntent **record);

}  // namespace korvex::sysinfo
