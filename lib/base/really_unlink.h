// Removing a file for good from a folder that is held, as Fenwa_Really_Unlink does by a path.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/path_buffer.h"
#include "miscfunc.h"

namespace korvex {

// As `unlinkat` without flags: 0, or -1 and `errno`.
[[nodiscard]] inline int really_unlink_at(int folder, const char *name) {
#ifdef KORVEX_APPLIANCE_UNLINK
    // The appliance kernel's call takes a path alone.
    if (folder == AT_FDCWD || name[0] == '/')
        return static_cast<int>(Fenwa_Really_Unlink(name));
    char held[32];
    std::snprintf(held, sizeof held, "/proc/self/fd/%d/", folder);
    PathBuffer<kPathSize> path;
    if (path.assign({held, name}))
        return static_cast<int>(Fenwa_Really_Unlink(path.c_str()));
    errno = ENAMETOOLONG;
    return -1;
#else
    return unlinkat(folder, name, 0);
#endif
}

}  // namespace korvex
