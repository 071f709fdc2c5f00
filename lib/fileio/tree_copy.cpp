// Copying a folder tree: any failure but a folder that can't be opened ends the walk, and what was copied stays.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/file_identity.h"
#include "base/message.h"
#include "base/shared_values.h"
#include "entry_copy.h"
#include "entry_handle.h"
#include "fileio.h"
#include "folder_reader.h"
#include "held_tree.h"
#include "path_status.h"
#include "tree_walk.h"

namespace korvex::fileio {
namespace {

constexpr const char *kFunction = "Copy_Folder_Tree_At";

// Devices, pipes and sockets are skipped.
bool is_copied(const struct stat &status) {
    return S_ISREG(status.st_mode) || S_ISLNK(status.st_mode) || S_ISDIR(status.st_mode);
}

// A folder that was found and its copy.
struct FolderPair {
    FolderId source;
    FolderId dest;
    timespec mtime;
};

class TreeCopy final {
  public:
    TreeCopy(int32_t dest_folder, const char *dest_name, int32_t *stop)
        : dest_folder_(dest_folder), dest_name_(dest_name), stop_flag_(stop), stop_(stop) {}

    [[nodiscard]] int32_t run(int32_t source_folder, const char *source_name);

  private:
    int32_t set_paths();
    int32_t look_at_source();
    int32_t prepare_dest();
    int32_t hold_dest(const struct stat *found, struct stat &held);
    int32_t adopt_mode_and_owner(const struct stat &dest, int32_t held) const;
    int32_t walk();
    bool enter_source();
    void enter_dest();
    int32_t read_folder();
    int32_t copy_entry(const char *name, const struct stat &status);
    int32_t copy_entry(const NameInFolder &source, const struct stat &status, const NameInFolder &dest);
    int32_t copy_subfolder(const char *name, const struct stat &status, const NameInFolder &dest);
    bool append_next();
    void leave_folder();
    int32_t set_top_time(const timespec &time) const;

    int32_t source_folder_ = 0;
    const char *source_name_ = nullptr;
    int32_t dest_folder_;
    const char *dest_name_;  // as the caller gave it, which is how messages show it
    int32_t *stop_flag_;
    StopFlag stop_;

    // Both paths end with "/" between entries; what lies below the tops begins at these places.
    TreePath source_;
    TreePath dest_;
    size_t source_top_ = 0;
    size_t dest_top_ = 0;

    HeldTree source_tree_{O_RDONLY};
    HeldTree dest_tree_{O_PATH};
    FolderReader reader_;
    struct stat top_ {};    // the source's top folder
    FolderId dest_top_id_;  // which the walk must not meet
    int dest_error_ = 0;    // why the folder to copy into could not be opened; 0: it was
    PendingFolders<FolderPair> pending_;
    int32_t result_ = 0;  // of the last step: what a stopped walk returns
};

int32_t TreeCopy::run(int32_t source_folder, const char *source_name) {
    source_folder_ = source_folder;
    source_name_ = source_name;
    int32_t result = set_paths();
    if (result == 0)
        result = look_at_source();
    if (result == 0)
        result = prepare_dest();
    if (result != 0)
        return result;
    return stop_.set() ? 0 : walk();
}

int32_t TreeCopy::set_paths() {
    const int32_t result = name_tree(source_, source_folder_, source_name_);
    if (result != 0)
        return result;
    return dest_.assign({dest_name_}) ? 0 : -ENAMETOOLONG;
}

// Follows a link at the top, and only there.
int32_t TreeCopy::look_at_source() {
    if (fstatat(source_folder_, source_name_, &top_, 0) != 0) {
        const int32_t code = -errno;
        LOG_DEBUG_AS(kFunction, "Can't fstat folder %s error!, %d\n", source_.c_str(), code);
        return code;
    }
    if (!S_ISDIR(top_.st_mode)) {
        LOG_DEBUG_AS(kFunction, "The source path %s is not a folder error!, %d\n", source_.c_str(), -ENOTDIR);
        return -ENOTDIR;
    }
    if (!end_with_slash(source_) || !end_with_slash(dest_))
        return -ENAMETOOLONG;

    source_top_ = source_.size();
    dest_top_ = dest_.size();
    return 0;
}

// Makes the top folder of the destination, or accepts one that is there.
int32_t TreeCopy::prepare_dest() {
    struct stat dest {};  // a new folder counts as mode 0 of owner 0
    struct stat held {};
    int32_t holding = 0;
    if (fstatat(dest_folder_, dest_name_, &dest, AT_SYMLINK_NOFOLLOW) != 0) {
        dest = {};
        if (mkdirat(dest_folder_, dest_name_, top_.st_mode) != 0) {
            const int32_t code = -errno;
            LOG_ERROR_AS(kFunction, "Can't mkdirat the dst folder (%d, %s, %o) error! (%d)\n", dest_folder_, dest_name_,
                         top_.st_mode, code);
            return code;
        }
        holding = hold_dest(nullptr, held);
    } else if (!S_ISDIR(dest.st_mode)) {
        LOG_DEBUG_AS(kFunction, "The destination path (%d, %s) is not a folder error!, %d\n", dest_folder_, dest_name_,
                     -ENOTDIR);
        return -ENOTDIR;
    } else {
        holding = hold_dest(&dest, held);
    }

    dest_top_id_ = FolderId(held);
    const int32_t result = adopt_mode_and_owner(dest, holding);
    return result != 0 ? result : holding;
}

// Holds the top folder that was found, or the new one where none was.
int32_t TreeCopy::hold_dest(const struct stat *found, struct stat &held) {
    if (found != nullptr)
        held = *found;
    else if (!hold_new_folder(name_in(dest_folder_, dest_name_), held))
        return -errno;
    return dest_tree_.open_top(dest_folder_, dest_name_, O_NOFOLLOW, FolderId(held)) ? 0 : -errno;
}

// `held` is 0, or why the folder could not be held: then nothing of it can be set.
int32_t TreeCopy::adopt_mode_and_owner(const struct stat &dest, int32_t held) const {
    if (dest.st_mode != top_.st_mode) {
        const int32_t code = held != 0 ? held : set_folder_mode(dest_tree_.top(), top_.st_mode);
        if (code != 0) {
            LOG_ERROR_AS(kFunction, "Can't fchmodat the dest folder (%d, %s, %d) error! (%d)\n", dest_folder_,
                         dest_name_, static_cast<int>(top_.st_mode), code);
            return code;
        }
    }

    if (dest.st_uid != top_.st_uid || dest.st_gid != top_.st_gid) {
        const int32_t code = held != 0 ? held : set_owner(dest_tree_.top(), top_);
        if (code != 0) {
            LOG_ERROR_AS(kFunction, "Can't fchownat the dest folder (%d, %s, %d, %d) error! (%d)\n", dest_folder_,
                         dest_name_, static_cast<int>(top_.st_uid), static_cast<int>(top_.st_gid), code);
            return code;
        }
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
            return set_top_time(top_.st_mtim);
        if (!append_next())
            return -ENAMETOOLONG;
    }
    return result_;
}

// Before any folder was found, this is the top.
bool TreeCopy::enter_source() {
    const bool entered = pending_.empty()
                             ? source_tree_.open_top(source_folder_, source_name_, 0, FolderId(top_))
                             : source_tree_.enter(source_.c_str() + source_top_, pending_.top().found.source);
    return entered && reader_.start(source_tree_.here());
}

// Where that fails the walk goes on: each entry is then reported as one that can't be made. The top is open already.
void TreeCopy::enter_dest() {
    const ErrnoKeeper keeper;  // kept: a source that ends early gives the errno that stands here as its result
    dest_error_ = 0;
    if (!pending_.empty() && !dest_tree_.enter(dest_.c_str() + dest_top_, pending_.top().found.dest))
        dest_error_ = errno;
}

// Copies what is in the current folder; subfolders are made at once and visited later. A result other than 0 ends the
// walk: a failure, or the value of the stop flag that came during a file.
int32_t TreeCopy::read_folder() {
    if (!enter_source()) {
        result_ = errno;  // positive, as a stopped walk has always returned it
        LOG_DEBUG_AS(kFunction, "Can't opendir %s (%d)\n", source_.c_str(), result_);
        return 0;
    }
    enter_dest();

    while (const dirent *entry = reader_.next(stop_)) {
        struct stat status {};
        const int32_t failure = reader_.look_at(entry->d_name, status);
        if (failure < 0) {
            LOG_DEBUG_AS(kFunction, "Can't fstat file %s error! (%d)\n", entry->d_name, failure);
            return failure;
        }

        if (!is_copied(status))
            continue;
        result_ = copy_entry(entry->d_name, status);
        if (result_ != 0)
            return result_;
    }
    return reader_.failure();
}

int32_t TreeCopy::copy_entry(const char *name, const struct stat &status) {
    const size_t source_length = source_.size();
    const size_t dest_length = dest_.size();
    int32_t result = -ENAMETOOLONG;
    if (source_.append(name) && dest_.append(name))
        result = copy_entry(
            {.folder = source_tree_.here(), .name = name, .shown_folder = AT_FDCWD, .shown_name = source_.c_str()},
            status,
            {.folder = dest_tree_.here(),
             .name = name,
             .shown_folder = dest_folder_,
             .shown_name = dest_.c_str(),
             .shared = dest_tree_.shared_here(),
             .folder_error = dest_error_});
    source_.cut(source_length);
    dest_.cut(dest_length);
    return result;
}

int32_t TreeCopy::copy_entry(const NameInFolder &source, const struct stat &status, const NameInFolder &dest) {
    if (S_ISDIR(status.st_mode))
        return copy_subfolder(source.name, status, dest);

    if (S_ISREG(status.st_mode)) {
        const int32_t result = copy_file(source, status, dest, stop_flag_, nullptr);
        if (result < 0)
            LOG_DEBUG_AS(kFunction, "Can't copy file (%s -> %d, %s) error! (%d)\n", source.shown_name, dest_folder_,
                         dest_name_, result);
        return result;
    }

    const int32_t result = copy_symlink(source, status, dest);
    if (result < 0)
        LOG_DEBUG_AS(kFunction, "Can't create symlink (%d, %s) error! (%d)\n", dest_folder_, dest_name_, result);
    return result;
}

int32_t TreeCopy::copy_subfolder(const char *name, const struct stat &status, const NameInFolder &dest) {
    if (FolderId(status) == dest_top_id_) {
        LOG_DEBUG_AS(kFunction, "The destination (%d, %s) lies inside the source error! (%d)\n", dest_folder_,
                     dest_name_, -EINVAL);
        return -EINVAL;
    }
    if (!pending_.push(name, {.source = FolderId(status), .dest = {}, .mtime = status.st_mtim}))
        return -ENOMEM;

    struct stat made {};
    const int32_t result = copy_folder(status, dest, made);
    if (result < 0)
        LOG_DEBUG_AS(kFunction, "Can't create folder (%d, %s) error! (%d)\n", dest_folder_, dest_name_, result);
    pending_.top().found.dest = FolderId(made);
    return result;
}

// False when a path does not fit.
bool TreeCopy::append_next() {
    auto &folder = pending_.top();
    folder.visited = true;
    return source_.append(folder.name()) && source_.append("/") && dest_.append(folder.name()) && dest_.append("/");
}

// Kept: the folder's time is given to the top folder instead. So a copied subfolder has the time at which the copy last
// changed it, which users know.
void TreeCopy::leave_folder() {
    const int32_t result = set_top_time(pending_.top().found.mtime);
    if (result < 0)
        result_ = result;

    const size_t length = size_t{pending_.top().name_length} + 1;
    source_.cut(source_.size() - length);
    dest_.cut(dest_.size() - length);
    pending_.pop();
}

int32_t TreeCopy::set_top_time(const timespec &time) const {
    const int32_t result = set_both_times(dest_tree_.top(), narrow_time(time));
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
