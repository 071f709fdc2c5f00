// Removing a folder tree: failures inside are logged and passed over, and show in the removal of the top folder.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/message.h"
#include "base/shared_values.h"
#include "fileio.h"
#include "miscfunc.h"
#include "tree_walk.h"

namespace korvex::fileio {
namespace {

constexpr const char *kFunction = "Remove_Folder_Tree_At";

class TreeRemoval final {
  public:
    TreeRemoval(TreePath &path, const int32_t *stop) : path_(path), stop_(stop) {}

    [[nodiscard]] int32_t run();

  private:
    int32_t read_folder();
    int32_t remove_entries(FolderReader &folder);
    int32_t remove_entry(const char *name, const struct stat &status);
    void leave_folder();

    TreePath &path_;  // without a "/" at its end
    StopFlag stop_;
    PendingFolders pending_;
};

int32_t TreeRemoval::run() {
    while (!stop_.set()) {
        const int32_t end = read_folder();
        if (end != 0)
            return end;

        while (!pending_.empty() && pending_.top().visited)
            leave_folder();
        if (pending_.empty() && !stop_.set())
            return rmdir(path_.c_str()) == 0 ? 0 : -errno;
        if (pending_.empty())
            break;

        // There is room: it was looked at when the folder was found.
        TreeWalkNode &next = pending_.top();
        next.visited = true;
        if (!path_.append("/") || !path_.append(next.name()))
            return -ENAMETOOLONG;
    }
    return stop_.value();
}

// Not 0 ends the walk: a failure, or the flag's value. The flag is looked at only once a folder was read.
int32_t TreeRemoval::read_folder() {
    int32_t result = 0;
    {
        FolderReader folder(path_.c_str());
        if (!folder) {
            LOG_ERROR_AS(kFunction, "Can't opendir %s error! (%d)\n", path_.c_str(), -errno);
            return 0;
        }
        result = remove_entries(folder);
    }
    return result < 0 ? result : stop_.value();
}

int32_t TreeRemoval::remove_entries(FolderReader &folder) {
    while (const char *name = folder.next(stop_)) {
        struct stat status {};
        if (folder.look_at(name, status) < 0) {
            LOG_ERROR_AS(kFunction, "Can't fstat file: %s/%s\n", path_.c_str(), name);
            continue;
        }

        const int32_t result = remove_entry(name, status);
        if (result < 0)
            return result;
    }
    return 0;
}

// Removes what is no folder; a folder is visited later.
int32_t TreeRemoval::remove_entry(const char *name, const struct stat &status) {
    if (!fits(path_, name)) {
        LOG_DEBUG_AS(kFunction, "The path %s/%s is too long error! (%d)\n", path_.c_str(), name, -ENAMETOOLONG);
        return 0;
    }
    if (S_ISDIR(status.st_mode))
        return pending_.push(name, status.st_mtim) ? 0 : -ENOMEM;

    if (Fenwa_Unlinkat(AT_FDCWD, path_.c_str(), name, 0) != 0 && errno != ENOENT)
        LOG_ERROR_AS(kFunction, "Can't unlink file %s/%s error! (%d)\n", path_.c_str(), name, -errno);
    return 0;
}

void TreeRemoval::leave_folder() {
    if (rmdir(path_.c_str()) != 0 && errno != ENOENT)
        LOG_ERROR_AS(kFunction, "Can't rmdir %s error! (%d)\n", path_.c_str(), -errno);

    path_.cut(path_.size() - pending_.top().name_length - 1);
    pending_.pop();
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

    // Absolute from here on: Fenwa_Unlinkat works on paths alone.
    TreePath path;
    const int32_t result = name_tree(path, fdDir, pszPath);
    if (result != 0)
        return result;
    if (!S_ISDIR(status.st_mode))
        return Fenwa_Unlinkat(AT_FDCWD, path.c_str(), "", 0) == 0 ? 0 : -errno;

    if (path.back() == '/')
        path.cut(path.size() - 1);
    return TreeRemoval(path, pnStop).run();
}

int32_t Remove_Folder_Tree(const char *pszPath, int32_t *pnStop) {
    return Remove_Folder_Tree_At(AT_FDCWD, pszPath, pnStop);
}
