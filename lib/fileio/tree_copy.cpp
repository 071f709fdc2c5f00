// Copying a folder tree: any failure but a folder that can't be opened ends the walk, and what was copied stays.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/file_identity.h"
#include "base/message.h"
#include "base/shared_values.h"
#include "fileio.h"
#include "tree_walk.h"

namespace korvex::fileio {
namespace {

constexpr const char *kFunction = "Copy_Folder_Tree_At";

// Devices, pipes and sockets are skipped.
bool is_copied(const struct stat &status) {
    return S_ISREG(status.st_mode) || S_ISLNK(status.st_mode) || S_ISDIR(status.st_mode);
}

class TreeCopy final {
  public:
    TreeCopy(int32_t dest_folder, const char *dest_name, int32_t *stop)
        : dest_folder_(dest_folder), dest_name_(dest_name), stop_flag_(stop), stop_(stop) {}

    [[nodiscard]] int32_t run(int32_t source_folder, const char *source_name);

  private:
    int32_t name_both(int32_t source_folder, const char *source_name);
    int32_t look_at_source();
    int32_t prepare_dest();
    int32_t adopt_mode_and_owner(const struct stat &dest) const;
    int32_t walk();
    int32_t read_folder();
    int32_t copy_entry(const char *name, const struct stat &status);
    int32_t copy_file();
    int32_t copy_symlink();
    int32_t copy_folder(const char *name, const struct stat &status);
    bool enter_folder();
    void leave_folder();
    int32_t set_dest_time(const struct timespec &time) const;

    // Both paths end with "/" between entries.
    TreePath source_;
    TreePath dest_;

    int32_t dest_folder_;
    const char *dest_name_;  // as the caller gave it, which is how messages show it
    int32_t *stop_flag_;
    StopFlag stop_;

    struct stat top_ {};       // the source's top folder
    struct stat dest_top_ {};  // the destination's, which the walk must not meet
    PendingFolders pending_;
    int32_t result_ = 0;  // of the last step: what a stopped walk returns
};

int32_t TreeCopy::run(int32_t source_folder, const char *source_name) {
    int32_t result = name_both(source_folder, source_name);
    if (result == 0)
        result = look_at_source();
    if (result == 0)
        result = prepare_dest();
    if (result != 0)
        return result;
    return stop_.set() ? 0 : walk();
}

int32_t TreeCopy::name_both(int32_t source_folder, const char *source_name) {
    const int32_t result = name_tree(source_, source_folder, source_name);
    if (result != 0)
        return result;
    return dest_.assign({dest_name_}) ? 0 : -ENAMETOOLONG;
}

// Follows a link at the top, and only there.
int32_t TreeCopy::look_at_source() {
    if (stat(source_.c_str(), &top_) != 0) {
        const int32_t code = -errno;
        LOG_DEBUG_AS(kFunction, "Can't fstat folder %s error!, %d\n", source_.c_str(), code);
        return code;
    }
    if (!S_ISDIR(top_.st_mode)) {
        LOG_DEBUG_AS(kFunction, "The source path %s is not a folder error!, %d\n", source_.c_str(), -ENOTDIR);
        return -ENOTDIR;
    }
    return end_with_slash(source_) && end_with_slash(dest_) ? 0 : -ENAMETOOLONG;
}

// Makes the top folder of the destination, or accepts one that is there.
int32_t TreeCopy::prepare_dest() {
    struct stat dest {};  // a new folder counts as mode 0 of owner 0
    if (fstatat(dest_folder_, dest_name_, &dest, AT_SYMLINK_NOFOLLOW) != 0) {
        dest = {};
        if (mkdirat(dest_folder_, dest_name_, top_.st_mode) != 0) {
            const int32_t code = -errno;
            LOG_ERROR_AS(kFunction, "Can't mkdirat the dst folder (%d, %s, %o) error! (%d)\n", dest_folder_, dest_name_,
                         top_.st_mode, code);
            return code;
        }
    } else if (!S_ISDIR(dest.st_mode)) {
        LOG_DEBUG_AS(kFunction, "The destination path (%d, %s) is not a folder error!, %d\n", dest_folder_, dest_name_,
                     -ENOTDIR);
        return -ENOTDIR;
    }

    const int32_t result = adopt_mode_and_owner(dest);
    if (result != 0)
        return result;
    return fstatat(dest_folder_, dest_name_, &dest_top_, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : -errno;
}

int32_t TreeCopy::adopt_mode_and_owner(const struct stat &dest) const {
    if (dest.st_mode != top_.st_mode && fchmodat(dest_folder_, dest_name_, top_.st_mode, 0) != 0) {
        const int32_t code = -errno;
        LOG_ERROR_AS(kFunction, "Can't fchmodat the dest folder (%d, %s, %d) error! (%d)\n", dest_folder_, dest_name_,
                     static_cast<int>(top_.st_mode), code);
        return code;
    }

    const bool same_owner = dest.st_uid == top_.st_uid && dest.st_gid == top_.st_gid;
    if (!same_owner && fchownat(dest_folder_, dest_name_, top_.st_uid, top_.st_gid, AT_SYMLINK_NOFOLLOW) != 0) {
        const int32_t code = -errno;
        LOG_ERROR_AS(kFunction, "Can't fchownat the dest folder (%d, %s, %d, %d) error! (%d)\n", dest_folder_,
                     dest_name_, static_cast<int>(top_.st_uid), static_cast<int>(top_.st_gid), code);
        return code;
    }
    return 0;
}

int32_t TreeCopy::walk() {
    while (!stop_.set()) {
        const int32_t ended = read_folder();
        if (ended != 0)
            return ended;

        while (!pending_.empty() && pending_.top().visited)
            leave_folder();
        if (pending_.empty())
            return set_dest_time(top_.st_mtim);
        if (!enter_folder())
            return -ENAMETOOLONG;
    }
    return result_;
}

// Copies what is in the current folder; subfolders are made at once and visited later. A result other than 0 ends the
// walk: a failure, or the value of the stop flag that came during a file.
int32_t TreeCopy::read_folder() {
    FolderReader folder(source_.c_str());
    if (!folder) {
        result_ = errno;  // positive, as a stopped walk has always returned it
        LOG_DEBUG_AS(kFunction, "Can't opendir %s (%d)\n", source_.c_str(), result_);
        return 0;
    }

    while (const char *name = folder.next(stop_)) {
        struct stat status {};
        const int32_t failure = folder.look_at(name, status);
        if (failure < 0) {
            LOG_DEBUG_AS(kFunction, "Can't fstat file %s error! (%d)\n", name, failure);
            return failure;
        }

        if (!is_copied(status))
            continue;
        result_ = copy_entry(name, status);
        if (result_ != 0)
            return result_;
    }
    return folder.failure();
}

int32_t TreeCopy::copy_entry(const char *name, const struct stat &status) {
    const size_t source_length = source_.size();
    const size_t dest_length = dest_.size();
    int32_t result = -ENAMETOOLONG;
    if (source_.append(name) && dest_.append(name)) {
        switch (status.st_mode & S_IFMT) {
            case S_IFREG:
                result = copy_file();
                break;
            case S_IFLNK:
                result = copy_symlink();
                break;
            default:
                result = copy_folder(name, status);
        }
    }
    source_.cut(source_length);
    dest_.cut(dest_length);
    return result;
}

int32_t TreeCopy::copy_file() {
    const int32_t result = Copy_File_At(AT_FDCWD, source_.c_str(), dest_folder_, dest_.c_str(), stop_flag_, nullptr);
    if (result < 0)
        LOG_DEBUG_AS(kFunction, "Can't copy file (%s -> %d, %s) error! (%d)\n", source_.c_str(), dest_folder_,
                     dest_name_, result);
    return result;
}

int32_t TreeCopy::copy_symlink() {
    const int32_t result = Copy_Symlink_At(AT_FDCWD, source_.c_str(), dest_folder_, dest_.c_str());
    if (result < 0)
        LOG_DEBUG_AS(kFunction, "Can't create symlink (%d, %s) error! (%d)\n", dest_folder_, dest_name_, result);
    return result;
}

int32_t TreeCopy::copy_folder(const char *name, const struct stat &status) {
    if (is_same_file(status, dest_top_)) {
        LOG_DEBUG_AS(kFunction, "The destination (%d, %s) lies inside the source error! (%d)\n", dest_folder_,
                     dest_name_, -EINVAL);
        return -EINVAL;
    }
    if (!pending_.push(name, status.st_mtim))
        return -ENOMEM;

    const int32_t result = Copy_Folder_At(AT_FDCWD, source_.c_str(), dest_folder_, dest_.c_str());
    if (result < 0)
        LOG_DEBUG_AS(kFunction, "Can't create folder (%d, %s) error! (%d)\n", dest_folder_, dest_name_, result);
    return result;
}

// False when a path does not fit.
bool TreeCopy::enter_folder() {
    TreeWalkNode &folder = pending_.top();
    folder.visited = true;
    return source_.append(folder.name()) && source_.append("/") && dest_.append(folder.name()) && dest_.append("/");
}

// The folder's own time goes to the top folder, not to the folder: so copied subfolders keep the time of their last
// change during the copy, which users know.
void TreeCopy::leave_folder() {
    const int32_t result = set_dest_time(pending_.top().mtime);
    if (result < 0)
        result_ = result;

    const size_t length = size_t{pending_.top().name_length} + 1;
    source_.cut(source_.size() - length);
    dest_.cut(dest_.size() - length);
    pending_.pop();
}

int32_t TreeCopy::set_dest_time(const struct timespec &time) const {
    const int32_t result = Set_File_Modified_Time_At(dest_folder_, dest_name_, static_cast<uint32_t>(time.tv_nsec),
                                                     static_cast<uint32_t>(time.tv_sec), AT_SYMLINK_NOFOLLOW);
    if (result < 0)
        LOG_DEBUG_AS(kFunction, "Can't chtime the folder (%d, %s) error! (%d)\n", dest_folder_, dest_name_, result);
    return result;
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex::fileio;

int32_t Copy_Folder_Tree_At(int32_t fdSourceDir, const char *pszSource, int32_t fdDestDir, const char *pszDest,
                            int32_t *pnStop) {
    if (!is_directory_descriptor(fdSourceDir) || pszSource == nullptr || !is_directory_descriptor(fdDestDir) ||
        pszDest == nullptr)
        return -EINVAL;

    return TreeCopy(fdDestDir, pszDest, pnStop).run(fdSourceDir, pszSource);
}

int32_t Copy_Folder_Tree(const char *pszSource, const char *pszDest, int32_t *pnStop) {
    return Copy_Folder_Tree_At(AT_FDCWD, pszSource, AT_FDCWD, pszDest, pnStop);
}
