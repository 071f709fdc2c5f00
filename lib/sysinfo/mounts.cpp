// The mounted file systems: as a list, and single entries.
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "base/message.h"
#include "base/texts.h"
#include "libc_record.h"
#include "mount_table.h"
#include "sysinfo.h"

namespace korvex::sysinfo {
namespace {

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

int32_t query(const char *wanted, char *mntent::*text, mntent **result) {
    if (wanted == nullptr || result == nullptr)
        return -EINVAL;

    MountTable table;
    if (!table.open())
        return -errno;

    *result = nullptr;
    mntent entry{};
    const int32_t code = find_mount(table, wanted, text, entry);
    return code == 0 ? fill_libc_record(entry, result) : code;
}

}  // namespace
}  // namespace korvex::sysinfo

using namespace korvex;
using namespace korvex::sysinfo;

int32_t Scan_Mount_Info(Mount_Info **ppList) {
    if (ppList == nullptr)
        return -EINVAL;

    MountTable table;
    if (!table.open())
        return -errno;

    mntent entry{};
    int32_t found = 0;
    while ((found = table.next(entry)) > 0) {
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
    return found;
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
