// The table of mounted file systems, /etc/mtab.
#pragma once

#include <mntent.h>

#include <memory>

#include "base/handles.h"
#include "sysinfo.h"

namespace korvex::sysinfo {

struct TableCloser {
    void operator()(FILE *table) const {
        const ErrnoKeeper keeper;
        endmntent(table);
    }
};
using MountTable = std::unique_ptr<FILE, TableCloser>;

// Null, with `errno`, where it can't be opened.
[[nodiscard]] inline MountTable open_mount_table() {
    return MountTable(setmntent("/etc/mtab", "r"));
}

struct MountFreer {
    void operator()(Mount_Info *list) const { Free_Mount_Info(list); }
};
using MountList = std::unique_ptr<Mount_Info, MountFreer>;

}  // namespace korvex::sysinfo
