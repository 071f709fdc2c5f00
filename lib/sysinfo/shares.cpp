// The shared folders of the appliance: the links in /share/ and what they lead to.
#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/message.h"
#include "base/path_buffer.h"
#include "base/texts.h"
#include "conffile/watched_file.h"
#include "mount_table.h"
#include "sysinfo.h"

const char *const g_rypszReservedShare[1] = {"TMBackup"};

namespace korvex::sysinfo {
namespace {

using conffile::WatchedFile;

constexpr const char *kScan = "Scan_Share_List";
constexpr const char *kShareConf = "/etc/config/smb.conf";
constexpr std::string_view kShareFolder = "/share/";
constexpr std::string_view kExternalFolder = "external/";
constexpr const char *kGeneratedMark = "_DATA/";
constexpr size_t kValueSize = 32;
constexpr size_t kTargetSize = 44;
constexpr uint32_t kIso9660 = 0x9660;
constexpr uint32_t kUdf = 0x15013346;
constexpr uint32_t kWriteBits = 0222;

int32_t ask_option(WatchedFile &options, const char *share, const char *key, std::array<char, kValueSize> &value) {
    auto size = static_cast<int32_t>(value.size());
    return options.get(share, key, value.data(), &size);
}

// Both spellings are in use. A share whose section lacks the option is shown. One whose option can't be read, also for want
// of a section, is hidden.
bool is_hidden(WatchedFile &options, const char *share) {
    std::array<char, kValueSize> value{};
    int32_t result = ask_option(options, share, "browsable", value);
    if (result == -ENODATA)
        result = ask_option(options, share, "browseable", value);
    if (result == 0)
        return strcasecmp(value.data(), "no") == 0;
    return result != -ENODATA;
}

// What is known of a link in the folder once it is followed.
struct Share {
    const char *name;
    struct stat folder;
    struct statfs volume;
    std::array<char, PATH_MAX> resolved;
    uint32_t flags;
};

// False where the link does not lead to a folder.
bool look_up(WatchedFile &options, int folder, const char *name, Share &share) {
    share.name = name;
    share.flags = is_hidden(options, name) ? SHARE_HIDDEN : 0;
    if (fstatat(folder, name, &share.folder, 0) != 0 || !S_ISDIR(share.folder.st_mode))
        return false;

    PathBuffer<kPathSize> path;
    return path.assign({kShareFolder, name}) && realpath(path.c_str(), share.resolved.data()) != nullptr &&
           statfs(share.resolved.data(), &share.volume) == 0;
}

bool is_mount_point(const Mount_Info *mounts, const char *path) {
    for (const Mount_Info *mount = mounts; mount != nullptr; mount = mount->pNext)
        if (std::strcmp(mount->pszDir, path) == 0)
            return true;
    return false;
}

// False where the share lies outside the folder of the volumes.
bool note_place(const Mount_Info *mounts, Share &share) {
    const char *resolved = share.resolved.data();
    if (!begins_with(resolved, kShareFolder)) {
        LOG_DEBUG_AS(kScan, "Skip the manual configured shared folder %s, %s!\n", share.name, resolved);
        return false;
    }

    const char *rest = resolved + kShareFolder.size();
    if (begins_with(rest, kExternalFolder)) {
        if (is_mount_point(mounts, resolved))
            share.flags |= SHARE_EXTERNAL | SHARE_REMOVABLE;
    } else if (std::strstr(rest, kGeneratedMark) == nullptr) {
        LOG_DEBUG_AS(kScan, "Found an non-auto-generated shared folder %s, %s!\n", share.name, resolved);
    }

    const auto type = static_cast<uint32_t>(share.volume.f_type);
    if (type == kIso9660 || type == kUdf) {
        share.folder.st_mode &= ~kWriteBits;
        share.flags |= SHARE_READ_ONLY | SHARE_DISC | SHARE_REMOVABLE;
    }
    return true;
}

// Null, and reported, without memory.
Share_Info *new_record(const Share &share) {
    const size_t size = offsetof(Share_Info, szName) + std::strlen(share.name) + 1;
    auto *record = static_cast<Share_Info *>(std::malloc(size));
    if (record == nullptr) {
        LOG_ERROR_AS(kScan, "ERROR: Failed to allocate memory of %d bytes.\n", static_cast<int>(size));
        return nullptr;
    }

    record->uMtime = static_cast<uint32_t>(share.folder.st_mtim.tv_sec);
    record->uMtimeNsec = static_cast<uint32_t>(share.folder.st_mtim.tv_nsec);
    record->uMode = share.folder.st_mode;
    record->uFlags = share.flags;
    record->uUid = share.folder.st_uid;
    record->uGid = share.folder.st_gid;
    record->uFsType = static_cast<uint32_t>(share.volume.f_type);
    record->uBlockSize = static_cast<uint32_t>(share.volume.f_bsize);
    record->ullFreeBytes = static_cast<uint64_t>(share.volume.f_bsize) * share.volume.f_bfree;
    put_text(record->szName, share.name);
    return record;
}

// Sorts by name while the records come. Each run is twice as long as the one before it and sorted in itself, so a record is
// merged as often as the number of records has binary digits.
class SortedShares final {
  public:
    void add(Share_Info *record) {
        record->pNext = nullptr;
        size_t run = 0;
        for (; runs_[run] != nullptr; run++)
            record = merge(std::exchange(runs_[run], nullptr), record);
        runs_[run] = record;
    }

    Share_Info *take() {
        Share_Info *all = nullptr;
        for (Share_Info *&run : runs_)
            all = merge(std::exchange(run, nullptr), all);
        return all;
    }

  private:
    // Of equal names that of the earlier list comes first.
    static Share_Info *merge(Share_Info *earlier, Share_Info *later) {
        Share_Info *merged = nullptr;
        Share_Info **end = &merged;
        while (earlier != nullptr && later != nullptr) {
            Share_Info *&next = std::strcmp(earlier->szName, later->szName) <= 0 ? earlier : later;
            *end = next;
            end = &next->pNext;
            next = next->pNext;
        }
        *end = earlier != nullptr ? earlier : later;
        return merged;
    }

    std::array<Share_Info *, 32> runs_{};
};

// What of the mount table could be read: a share is listed without it, too.
MountList read_mounts() {
    Mount_Info *first = nullptr;
    (void)Scan_Mount_Info(&first);
    return MountList(first);
}

int32_t list_shares(DIR *folder, int descriptor, const Mount_Info *mounts, SortedShares &shares, int32_t &count) {
    WatchedFile options(kShareConf);
    while (const dirent *entry = readdir(folder)) {
        if (entry->d_type != DT_LNK || std::strcmp(entry->d_name, g_rypszReservedShare[0]) == 0)
            continue;

        Share share;
        if (!look_up(options, descriptor, entry->d_name, share) || !note_place(mounts, share))
            continue;

        Share_Info *record = new_record(share);
        if (record == nullptr)
            return -ENOMEM;

        shares.add(record);
        count++;
    }
    return 0;
}

}  // namespace
}  // namespace korvex::sysinfo

using namespace korvex;
using namespace korvex::sysinfo;

int32_t Scan_Share_List(Share_Info **ppList, int32_t *pnCount) {
    if (ppList == nullptr) {
        LOG_ERROR("Invalid input parameter.\n");
        return -EINVAL;
    }

    *ppList = nullptr;
    if (pnCount != nullptr)
        *pnCount = 0;
    const MountList mounts = read_mounts();
    const UniqueDir folder(opendir(kShareFolder.data()));
    const int descriptor = folder ? dirfd(folder.get()) : -1;
    if (descriptor < 0) {
        const int32_t result = -errno;
        LOG_ERROR("Failed to opendir(%s)! (%d)\n", kShareFolder.data(), result);
        return result;
    }

    int32_t count = 0;
    SortedShares shares;
    const int32_t result = list_shares(folder.get(), descriptor, mounts.get(), shares, count);
    *ppList = shares.take();
    if (result != 0)
        Release_Share_List(ppList);
    else if (pnCount != nullptr)
        *pnCount = count;
    return result;
}

void Release_Share_List(Share_Info **ppList) {
    if (ppList == nullptr)
        return;

    while (*ppList != nullptr)
        *ppList = MallocPtr<Share_Info>(*ppList)->pNext;
}

int32_t Query_Mount_Shortcut(const char *pszPath, char *pszShortcut) {
    if (pszPath == nullptr || pszShortcut == nullptr)
        return -EINVAL;
    if (!begins_with(pszPath, kShareFolder))
        return -ENOENT;

    const UniqueDir folder(opendir("/share"));
    const int descriptor = folder ? dirfd(folder.get()) : -1;
    if (descriptor < 0)
        return -ENOENT;

    const std::string_view wanted = pszPath + kShareFolder.size();
    while (const dirent *entry = readdir(folder.get())) {
        if (entry->d_type != DT_LNK)
            continue;

        // A target that fills the buffer may be longer than that: it is no match.
        std::array<char, kTargetSize> target;
        const ssize_t length = readlinkat(descriptor, entry->d_name, target.data(), target.size());
        if (length < 0 || static_cast<size_t>(length) == target.size())
            continue;
        if (std::string_view(target.data(), static_cast<size_t>(length)) != wanted)
            continue;

        put_text(put_text(pszShortcut, kShareFolder) - 1, entry->d_name);
        return 0;
    }
    return -ENOENT;
}
