// Lock files: their names, taking and releasing one.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/handles.h"
#include "base/log_wait.h"
#include "base/message.h"
#include "base/path_buffer.h"
#include "fileio.h"
#include "lock_wait.h"
#include "miscfunc.h"

namespace korvex::fileio {
namespace {

using CommonLockPath = PathBuffer<256>;
using SideLockPath = PathBuffer<kPathSize>;

const char *base_name(const char *path) {
    const char *slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

[[nodiscard]] bool watched_lock_path(CommonLockPath &lock, const char *path) {
    return lock.assign({"/var/lock/", base_name(path), ".lck"});
}

[[nodiscard]] bool held_lock_path(CommonLockPath &lock, const char *path) {
    return lock.assign({"/var/lock/_", base_name(path), ".lck"});
}

[[nodiscard]] bool side_lock_path(SideLockPath &lock, const char *path) {
    return lock.assign({path, ".lck"});
}

// Fills a lock file that this call has just created. 1 or 0, as the functions that take a lock return it.
int32_t fill_lock(UniqueFd lock, const char *path, uint64_t start, const char *function) {
    const LockContent content{.waiting_since = static_cast<int64_t>(start), .holder = getpid(), .reserved = 0};
    if (write(lock.get(), &content, sizeof content) == sizeof content)
        return 1;

    unlink(path);
    const NoLogWait at_once;
    LOG_ERROR_AS(function, "Can't write lock file \"%s\" content error!\n", path);
    return 0;
}

// Creating the file is the one atomic step: whoever creates it holds the lock.
int32_t take_lock(const char *lock, int32_t timeout_ms, const char *function) {
    LockWait wait(lock, timeout_ms, function);
    do {
        UniqueFd created(open(lock, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0777));
        if (created)
            return fill_lock(std::move(created), lock, wait.start(), function);
        (void)wait.sees_lock();
    } while (wait.next_pass());
    return 0;
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex::fileio;

int32_t Get_Filename(const char *pszPath, const char **ppszName) {
    if (pszPath == nullptr || ppszName == nullptr)
        return -EINVAL;

    *ppszName = base_name(pszPath);
    return 0;
}

int32_t Check_File_Lock(const char *pszPath, int32_t nTimeout) {
    CommonLockPath lock;
    if (pszPath == nullptr || !watched_lock_path(lock, pszPath))
        return 0;

    LockWait wait(lock.c_str(), nTimeout, __func__);
    while (wait.sees_lock() && wait.next_pass()) {}
    return 0;
}

int32_t Get_File_Lock(const char *pszPath, int32_t nTimeout) {
    if (pszPath == nullptr)
        return 0;

    CommonLockPath lock;
    if (!held_lock_path(lock, pszPath))
        return -ENAMETOOLONG;
    return take_lock(lock.c_str(), nTimeout, __func__);
}

int32_t Release_File_Lock(const char *pszPath) {
    if (pszPath == nullptr)
        return 0;

    CommonLockPath lock;
    if (!held_lock_path(lock, pszPath))
        return -ENAMETOOLONG;
    unlink(lock.c_str());
    return 1;
}

int32_t Get_File_Lock_Ex(const char *pszPath, int32_t nTimeout) {
    if (pszPath == nullptr)
        return 0;

    SideLockPath lock;
    if (!side_lock_path(lock, pszPath))
        return -ENAMETOOLONG;
    return take_lock(lock.c_str(), nTimeout, __func__);
}

int32_t Release_File_Lock_Ex(const char *pszPath) {
    if (pszPath == nullptr)
        return 0;

    SideLockPath lock;
    if (!side_lock_path(lock, pszPath))
        return -ENAMETOOLONG;
    Fenwa_Really_Unlink(lock.c_str());
    return 1;
}
