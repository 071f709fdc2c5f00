// The table of mounted file systems, /etc/mtab.
#pragma once

#include <mntent.h>

#include <cstddef>
#include <cstdint>
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

// Reads the table entry by entry, as libc does, but each line is whole, however long it is.
class MountTable final {
  public:
    // False, with `errno`, where it can't be opened.
    [[nodiscard]] bool open() {
        stream_.reset(setmntent("/etc/mtab", "r"));
        return stream_ != nullptr;
    }

    // 1 with the next entry, whose texts live until the call after; 0 at the end; -ENOMEM.
    [[nodiscard]] int32_t next(mntent &entry);

  private:
    std::unique_ptr<FILE, TableCloser> stream_;
    MallocPtr<char> line_;
    size_t size_ = 0;
};

// Finds the first entry of an open table of which one text equals `wanted`. 0; -ENOTDIR; -ENOMEM.
[[nodiscard]] int32_t find_mount(MountTable &table, const char *wanted, char *mntent::*text, mntent &entry);

struct MountFreer {
    void operator()(Mount_Info *list) const { Free_Mount_Info(list); }
};
using MountList = std::unique_ptr<Mount_Info, MountFreer>;

}  // namespace korvex::sysinfo
