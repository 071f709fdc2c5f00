#include "held_tree.h"

#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/path_buffer.h"

namespace korvex::fileio {
namespace {

constexpr int kFolderFlags = O_DIRECTORY | O_CLOEXEC;

}  // namespace

bool HeldTree::open_top(int folder, const char *name, int follow, const FolderId &found) {
    UniqueFd top(openat(folder, name, access_ | follow | kFolderFlags));
    if (!accept(top, found))
        return false;

    top_ = std::move(top);
    at_top_ = true;
    return true;
}

bool HeldTree::enter(const char *path, const FolderId &found) {
    at_top_ = false;
    here_ = UniqueFd();  // before the next is opened: a walk needs few descriptors
    UniqueFd folder = open_below(path, access_);
    if (!accept(folder, found))
        return false;

    here_ = std::move(folder);
    return true;
}

bool HeldTree::accept(const UniqueFd &folder, const FolderId &found) {
    struct stat status {};
    if (!folder || fstat(folder.get(), &status) != 0)
        return false;
    if (FolderId(status) != found) {
        errno = ESTALE;
        return false;
    }

    shared_here_ = is_shared(status);
    return true;
}

UniqueFd HeldTree::open_below(const char *path, int access) {
    if (has_openat2_) {
        open_how how{};
        how.flags = static_cast<uint64_t>(access | kFolderFlags);
        how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
        UniqueFd folder(static_cast<int>(syscall(SYS_openat2, top_.get(), path, &how, sizeof how)));
        // A filter that does not know the call may answer EPERM.
        if (folder || (errno != ENOSYS && errno != EPERM))
            return folder;
        has_openat2_ = false;
    }
    return open_step_by_step(path, access);
}

UniqueFd HeldTree::open_step_by_step(const char *path, int access) const {
    UniqueFd folder;
    PathBuffer<kPathSize> names;
    if (!names.assign({path})) {
        errno = ENAMETOOLONG;
        return folder;
    }

    for (char *name = names.data(); *name != '\0';) {
        char *end = name + std::strcspn(name, "/");
        const bool is_last = end[0] == '\0' || end[1] == '\0';
        char *next = end[0] == '\0' ? end : end + 1;
        *end = '\0';
        const int parent = folder ? folder.get() : top_.get();
        folder = UniqueFd(openat(parent, name, (is_last ? access : O_PATH) | O_NOFOLLOW | kFolderFlags));
        if (!folder)
            return folder;
        name = next;
    }
    return folder;
}

}  // namespace korvex::fileio
