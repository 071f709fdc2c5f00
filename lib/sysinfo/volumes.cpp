// Volumes: what the tool, the kernel, the mount table and the file system know of one, in one record.
#include <sys/vfs.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "base/texts.h"
#include "mount_table.h"
#include "sysinfo.h"

namespace korvex::sysinfo {
namespace {

constexpr size_t kShortcutSize = sizeof "/share/" + NAME_MAX;

void set_sizes(Volume_Info &volume, const struct statfs &status) {
    const auto block = static_cast<uint64_t>(status.f_bsize);
    volume.ullTotalBytes = block * status.f_blocks;
    volume.ullFreeBytes = block * status.f_bavail;
}

void set_mount_path(Volume_Info &volume, const char *mount_point) {
    std::array<char, kShortcutSize> shortcut;
    set_field(volume.szMountPath,
              Query_Mount_Shortcut(mount_point, shortcut.data()) == 0 ? shortcut.data() : mount_point);
}

int32_t query_device(Volume_Info &volume) {
    return Query_Block_Device_Info(volume.szDevice, &volume.ullTotalBytes, &volume.nPartition, volume.szVendor,
                                   volume.szModel);
}

int32_t query_content(Volume_Info &volume) {
    return Query_Block_Info_By_Path(volume.szDevice, volume.szUuid, volume.szLabel, volume.szType);
}

// Adds what is known of the device itself, and of where it is mounted.
int32_t complete(Volume_Info &volume) {
    int32_t result = query_device(volume);
    if (result != 0)
        return result;

    MountTable table;
    mntent entry{};
    result = table.open() ? find_mount(table, volume.szDevice, &mntent::mnt_fsname, entry) : -errno;
    if (result != 0)
        return result;

    struct statfs status {};
    if (statfs(entry.mnt_dir, &status) == 0)
        set_sizes(volume, status);
    set_mount_path(volume, entry.mnt_dir);
    return 0;
}

int32_t query_by_device(const char *path, Volume_Info &volume) {
    const int32_t result = Query_Block_Info_By_Path(path, volume.szUuid, volume.szLabel, volume.szType);
    if (result != 0)
        return result;

    set_field(volume.szDevice, path);
    return complete(volume);
}

int32_t query_by_mount_point(const char *path, Volume_Info &volume) {
    std::array<char, PATH_MAX> resolved;
    struct statfs status {};
    if (realpath(path, resolved.data()) == nullptr || statfs(resolved.data(), &status) != 0)
        return -errno;

    MountTable table;
    mntent entry{};
    int32_t result = table.open() ? find_mount(table, resolved.data(), &mntent::mnt_dir, entry) : -errno;
    if (result != 0)
        return result;

    set_field(volume.szDevice, entry.mnt_fsname);
    set_mount_path(volume, resolved.data());
    set_sizes(volume, status);
    result = query_content(volume);
    if (result != 0)
        return result;

    // Kept: here the device's size replaces the file system's; for a device path it is the other way round.
    return query_device(volume);
}

}  // namespace
}  // namespace korvex::sysinfo

using namespace korvex;
using namespace korvex::sysinfo;

int32_t Query_Volume_Info_BY_Path(const char *pszPath, Volume_Info *pInfo) {
    if (pszPath == nullptr || pInfo == nullptr)
        return -EINVAL;

    *pInfo = {};
    if (begins_with(pszPath, "/dev/"))
        return query_by_device(pszPath, *pInfo);
    if (begins_with(pszPath, "/share/"))
        return query_by_mount_point(pszPath, *pInfo);
    return -EINVAL;
}

int32_t Query_Volume_Info_BY_Id(const char *pszUuid, Volume_Info *pInfo) {
    if (pszUuid == nullptr || pInfo == nullptr || std::strlen(pszUuid) >= sizeof pInfo->szUuid)
        return -EINVAL;

    *pInfo = {};
    const int32_t result = Query_Block_Info_By_Id(pszUuid, pInfo->szDevice, pInfo->szLabel, pInfo->szType);
    if (result != 0)
        return result;

    set_field(pInfo->szUuid, pszUuid);
    return complete(*pInfo);
}
