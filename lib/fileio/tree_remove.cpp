// Removing a folder tree: failures inside are logged and passed over, and show in the removal of the top folder.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/message.h"
#include "base/really_unlink.h"
#include "base/shared_values.h"
#include "fileio.h"
#include "folder_reader.h"
#include "held_tree.h"
#include "path_status.h"
#include "tree_walk.h"

namespace korvex::fileio {
namespace {

constexpr const char *kFunction = "Remove_Folder_Tree_At";

class TreeRemoval final {
  public:
    TreeRemoval(int32_t folder, const char *name, const struct stat &top, TreePath &path, const int32_t *stop)
        : folder_(folder), name_(name), top_(top), path_(path), top_length_(path.size()), stop_(stop) {}

    [[nodiscard]] int32_t run();

  private:
    bool enter_folder();
    int32_t read_folder();
    int32_t remove_entries();
    int32_t remove_entry(const dirent &entry);
    int32_t remove_after_look(const char *name, int unlink_error);
    void leave_folder();
    int parent_at(size_t length);

    int32_t folder_;
    const char *name_;
    FolderId top_;
    TreePath &path_;  // without a "/" at its end
    size_t top_length_;
    StopFlag stop_;
    HeldTree tree_{O_RDONLY};
    FolderReader reader_;
    PendingFolders<FolderId> pending_;

    // The folder from which entries were removed last, and the length of its path: the next entry is often there, too.
    UniqueFd parent_;
    size_t parent_length_ = 0;
};

int32_t TreeRemoval::run() {
    while (!stop_.set()) {
        const int32_t end = read_folder();
        if (end != 0)
            return end;

        while (!pending_.empty() && pending_.top().visited)
            leave_folder();
        if (pending_.empty() && !stop_.set())
            return unlinkat(folder_, name_, AT_REMOVEDIR) == 0 ? 0 : -errno;
        if (pending_.empty())
            break;

        // There is room: it was looked at when the folder was found.
        auto &next = pending_.top();
        next.visited = true;
        if (!path_.append("/") || !path_.append(next.name()))
            return -ENAMETOOLONG;
    }
    return stop_.value();
}

// Before any folder was found, this is the top. There, a "/" at the end of the name follows a link.
bool TreeRemoval::enter_folder() {
    const bool entered = pending_.empty() ? tree_.open_top(folder_, name_, O_NOFOLLOW, top_)
                                          : tree_.enter(path_.c_str() + top_length_ + 1, pending_.top().found);
    return entered && reader_.start(tree_.here());
}

// Not 0 ends the walk: a failure, or the flag's value. The flag is looked at only once a folder was read.
int32_t TreeRemoval::read_folder() {
    if (!enter_folder()) {
        LOG_ERROR_AS(kFunction, "Can't opendir %s error! (%d)\n", path_.c_str(), -errno);
        return 0;
    }

    const int32_t result = remove_entries();
    if (!pending_.empty() && !pending_.top().visited && path_.size() > top_length_) {
        parent_ = tree_.take_here();  // of the folders that were found in it
        parent_length_ = path_.size();
    }
    return result < 0 ? result : stop_.value();
}

int32_t TreeRemoval::remove_entries() {
    while (const dirent *entry = reader_.next(stop_)) {
        const int32_t result = remove_entry(*entry);
        if (result < 0)
            return result;
    }
    return 0;
}

// Removes what is not a folder; a folder is visited later. An entry that is known not to be one is removed at once, without
// a look at it.
int32_t TreeRemoval::remove_entry(const dirent &entry) {
    const bool may_be_folder = entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN;
    if (may_be_folder || !fits(path_, entry.d_name))
        return remove_after_look(entry.d_name, 0);
    if (really_unlink_at(tree_.here(), entry.d_name) == 0)
        return 0;
    return remove_after_look(entry.d_name, errno);
}

// `unlink_error` tells why an entry could not be removed; it is 0 before that was tried.
int32_t TreeRemoval::remove_after_look(const char *name, int unlink_error) {
    struct stat status {};
    if (reader_.look_at(name, status) < 0) {
        LOG_ERROR_AS(kFunction, "Can't fstat file: %s/%s\n", path_.c_str(), name);
        return 0;
    }
    if (!fits(path_, name)) {
        LOG_DEBUG_AS(kFunction, "The path %s/%s is too long error! (%d)\n", path_.c_str(), name, -ENAMETOOLONG);
        return 0;
    }
    if (S_ISDIR(status.st_mode))
        return pending_.push(name, FolderId(status)) ? 0 : -ENOMEM;

    if (unlink_error == 0 && really_unlink_at(tree_.here(), name) != 0)
        unlink_error = errno;
    if (unlink_error != 0 && unlink_error != ENOENT)
        LOG_ERROR_AS(kFunction, "Can't unlink file %s/%s error! (%d)\n", path_.c_str(), name, -unlink_error);
    return 0;
}

void TreeRemoval::leave_folder() {
    const size_t parent_length = path_.size() - pending_.top().name_length - 1;
    const int parent = parent_at(parent_length);
    if ((parent < 0 || unlinkat(parent, pending_.top().name(), AT_REMOVEDIR) != 0) && errno != ENOENT)
        LOG_ERROR_AS(kFunction, "Can't rmdir %s error! (%d)\n", path_.c_str(), -errno);

    path_.cut(parent_length);
    pending_.pop();
}

// The folder whose path is the beginning of the current one. It need not be the folder that was found there: nothing but
// empty folders is removed in it, and folders that are entered are compared themselves. -1 and `errno` on failure.
int TreeRemoval::parent_at(size_t length) {
    if (length == top_length_)
        return tree_.top();

    if (!parent_ || parent_length_ != length) {
        parent_ = UniqueFd();
        path_.data()[length] = '\0';
        parent_ = tree_.open_below(path_.c_str() + top_length_ + 1, O_PATH);
        path_.data()[length] = '/';
        parent_length_ = length;
    }
    return parent_.get();
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex::fileio;

int32_t Remove_Folder_Tree_At(int32_t fdDir, const char *pszPath, int32_t *pnStop) {
    if (!is_directory_descriptor(fdDir) || pszPath == nullptr)
        return -EINVAL;

    struct stat status {};
    if (fstatat(fdDir, pszPath, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return -errno;

    TreePath path;
    const int32_t result = name_tree(path, fdDir, pszPath);
    if (result != 0)
        return result;
    // By its path, made absolute: Fenwa_Unlinkat knows no descriptors.
    if (!S_ISDIR(status.st_mode))
        return Fenwa_Unlinkat(AT_FDCWD, path.c_str(), "", 0) == 0 ? 0 : -errno;

    if (path.back() == '/')
        path.cut(path.size() - 1);
    // Of "/" nothing is left then, and so the root is never walked.
    return TreeRemoval(fdDir, path.size() > 0 ? pszPath : "", status, path, pnStop).run();
}

int32_t Remove_Folder_Tree(const char *pszPath, int32_t *pnStop) {
    return Remove_Folder_Tree_At(AT_FDCWD, pszPath, pnStop);
}
