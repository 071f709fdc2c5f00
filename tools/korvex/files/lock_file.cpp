#include "files/lock_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "cli.h"
#include "fileio.h"
#include "files/descriptor.h"
#include "files/lock_umask.h"
#include "miscfunc.h"

namespace korvex::cli {
namespace {

constexpr uint64_t kExpiryMs = 600000;

// The content of a lock file (fileio.h).
struct LockContent {
    int64_t start_ms;
    int32_t holder;
    int32_t reserved;
};
static_assert(sizeof(LockContent) == 16);

std::string lock_path(const std::string &file, bool beside) {
    if (beside)
        return file + ".lck";
    const char *name = nullptr;
    Get_Filename(file.c_str(), &name);
    return std::string("/var/lock/_") + name + ".lck";
}

LockState judge(const LockContent &content) {
    const uint64_t age = Tick_Diff(static_cast<uint64_t>(content.start_ms));
    const int32_t existed = Is_Process_Existed(content.holder);
    LockState state{.kind = LockState::Kind::stale, .holder = content.holder, .age_ms = static_cast<int64_t>(age)};
    if (existed == -EPERM)
        state.reason = "the process belongs to another user";
    else if (existed != 1)
        state.reason = "no such process";
    else if (state.age_ms < 0)  // counts as very old, as all differences of ticks do
        state.reason = "dated in the future";
    else if (age >= kExpiryMs)
        state.reason = "ten minutes old";
    else
        state.kind = LockState::Kind::held;
    return state;
}

LockState judge_incomplete(const struct stat &status) {
    const int64_t changed_ms = int64_t{status.st_mtim.tv_sec} * 1000 + status.st_mtim.tv_nsec / 1000000;
    return {.kind = LockState::Kind::incomplete,
            .age_ms = static_cast<int64_t>(Tick_Diff(static_cast<uint64_t>(changed_ms)))};
}

const char *kind_text(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return "a folder";
        case S_IFLNK:
            return "a link";
        case S_IFIFO:
            return "a pipe";
        case S_IFSOCK:
            return "a socket";
        default:
            return "a device";
    }
}

LockState blocked_by(const struct stat &status) {
    const bool is_own = status.st_uid == 0 || status.st_uid == geteuid();
    return {.kind = LockState::Kind::blocked,
            .reason = kind_text(status.st_mode),
            .is_followed = S_ISLNK(status.st_mode) && is_own};
}

}  // namespace

LockFile::LockFile(std::string file, bool beside)
    : file_(std::move(file)), beside_(beside), path_(lock_path(file_, beside)) {}

// A link is not followed and nothing but a file opened: anybody may have put them there.
LockState LockFile::state() const {
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        return blocked_by(status);

    const Descriptor lock(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW));
    if (lock.get() < 0 && errno == ENOENT)
        return {};
    if (lock.get() < 0 && errno == ELOOP)
        return {.kind = LockState::Kind::blocked, .reason = kind_text(S_IFLNK)};
    if (lock.get() < 0 || fstat(lock.get(), &status) != 0)
        throw file_failure(path_, -errno);
    if (!S_ISREG(status.st_mode))
        return blocked_by(status);

    LockContent content{};
    const ssize_t size = read(lock.get(), &content, sizeof content);
    return size == ssize_t{sizeof content} ? judge(content) : judge_incomplete(status);
}

bool LockFile::take(int32_t wait_ms) const {
    const LockUmask umask;
    const int32_t result = beside_ ? Get_File_Lock_Ex(file_.c_str(), wait_ms) : Get_File_Lock(file_.c_str(), wait_ms);
    if (result < 0)
        throw file_failure(file_, result);
    if (result == 1)
        return true;

    // The library takes every failure to create the lock for a lock that somebody holds, and would wait in vain.
    const std::string folder = std::filesystem::path(path_).parent_path();
    if (access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) != 0)
        throw Failure(kFailure, file_ + ": can't create '" + path_ + "': " + error_text(errno));
    return false;
}

void LockFile::release() const {
    if (beside_)
        Release_File_Lock_Ex(file_.c_str());
    else
        Release_File_Lock(file_.c_str());
}

}  // namespace korvex::cli
