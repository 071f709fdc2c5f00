// The mounted file systems: as a list, and single entries.
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/message.h"
#include "base/texts.h"
#include "mount_table.h"
#include "sysinfo.h"

namespace korvex::sysinfo {
namespace {

// Of one line; what is longer is cut. The kernel's own lines stay below: two paths of a page and a page of options.
constexpr size_t kLineSize = 16'384;

size_t record_size(const mntent &entry) {
    return offsetof(Mount_Info, szOptions) + std::strlen(entry.mnt_opts) + std::strlen(entry.mnt_type) +
           std::strlen(entry.mnt_dir) + std::strlen(entry.mnt_fsname) + 4;
}

void fill(Mount_Info &record, const mntent &entry) {
    record.nPassNo = entry.mnt_passno;
    record.nFreq = entry.mnt_freq;
    record.pszType = put_text(record.szOptions, entry.mnt_opts);
    record.pszDir = put_text(record.pszType, entry.mnt_type);
    record.pszFsName = put_text(record.pszDir, entry.mnt_dir);
    put_text(record.pszFsName, entry.mnt_fsname);
}

// Finds the first entry of which one text equals `wanted`. It is libc's own record, which the caller is promised.
int32_t query(const char *wanted, char *mntent::*text, mntent **result) {
    if (wanted == nullptr || result == nullptr)
        return -EINVAL;

    const MountTable table = open_mount_table();
    if (!table)
        return -errno;

    *result = nullptr;
    while (mntent *entry = getmntent(table.get()))
        if (std::strcmp(entry->*text, wanted) == 0) {
            *result = entry;
            return 0;
        }
    return -ENOTDIR;
}

}  // namespace
}  // namespace korvex::sysinfo

using namespace korvex;
using namespace korvex::sysinfo;

int32_t Scan_Mount_Info(Mount_Info **ppList) {
    if (ppList == nullptr)
        return -EINVAL;

    const MountTable table = open_mount_table();
    if (!table)
        return -errno;

    mntent entry{};
    std::array<char, kLineSize> line;
    while (getmntent_r(table.get(), &entry, line.data(), static_cast<int>(line.size())) != nullptr) {
        const size_t size = record_size(entry);
        auto *record = static_cast<Mount_Info *>(std::malloc(size));
        if (record == nullptr) {
            LOG_ERROR("Can't allocate %d bytes memory!\n", static_cast<int>(size));
            return -ENOMEM;
        }

        fill(*record, entry);
        record->pNext = *ppList;
        *ppList = record;
    }
    return 0;
}

void Free_Mount_Info(Mount_Info *pList) {
    while (pList != nullptr)
        pList = MallocPtr<Mount_Info>(pList)->pNext;
}

int32_t Query_Mount_Entry_By_Device(const char *pszDevice, struct mntent **ppEntry) {
    return query(pszDevice, &mntent::mnt_fsname, ppEntry);
}

int32_t Query_Mount_Entry_By_Path(const char *pszPath, struct mntent **ppEntry) {
    return query(pszPath, &mntent::mnt_dir, ppEntry);
}
