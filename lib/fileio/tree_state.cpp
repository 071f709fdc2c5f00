// Measuring a folder tree: what can't be looked at is logged and left out.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/message.h"
#include "base/shared_values.h"
#include "fileio.h"
#include "tree_walk.h"

namespace korvex::fileio {
namespace {

constexpr const char *kFunction = "State_Folder_Tree_At";

class TreeState final {
  public:
    TreeState(Folder_Tree_State &state, const int32_t *stop) : state_(state), stop_(stop) {}

    [[nodiscard]] int32_t run(int32_t folder, const char *name);

  private:
    int32_t look_at_top();
    int32_t walk();
    int32_t read_folder();
    int32_t count_entry(const char *name, const struct stat &status);
    int32_t count_folder(const char *name, const struct stat &status);

    TreePath path_;  // ends with "/" during the walk
    Folder_Tree_State &state_;
    StopFlag stop_;
    PendingFolders pending_;
};

void add_folder(Folder_Tree_State &state, const struct stat &status) {
    state.cnFolders++;
    state.ullBlocks += static_cast<uint64_t>(status.st_blocks);
}

int32_t TreeState::run(int32_t folder, const char *name) {
    int32_t result = name_tree(path_, folder, name);
    if (result == 0)
        result = look_at_top();
    if (result != 0)
        return result;
    return walk();
}

// Follows a link at the top, and only there.
int32_t TreeState::look_at_top() {
    struct stat top {};
    if (stat(path_.c_str(), &top) != 0) {
        const int32_t code = -errno;
        LOG_DEBUG_AS(kFunction, "Can't fstat folder %s error!, %d\n", path_.c_str(), code);
        return code;
    }
    if (!S_ISDIR(top.st_mode)) {
        LOG_DEBUG_AS(kFunction, "The path %s is not a folder error!, %d\n", path_.c_str(), -ENOTDIR);
        return -ENOTDIR;
    }
    if (!end_with_slash(path_))
        return -ENAMETOOLONG;

    add_folder(state_, top);
    return 0;
}

int32_t TreeState::walk() {
    while (!stop_.set()) {
        const int32_t failure = read_folder();
        if (failure < 0)
            return failure;

        while (!pending_.empty() && pending_.top().visited) {
            path_.cut(path_.size() - pending_.top().name_length - 1);
            pending_.pop();
        }
        if (pending_.empty())
            return 0;

        // There is room: it was looked at when the folder was found.
        TreeWalkNode &next = pending_.top();
        next.visited = true;
        if (!path_.append(next.name()) || !path_.append("/"))
            return -ENAMETOOLONG;
    }
    return 0;
}

int32_t TreeState::read_folder() {
    FolderReader folder(path_.c_str());
    if (!folder) {
        LOG_DEBUG_AS(kFunction, "Can't opendir %s (%d)\n", path_.c_str(), errno);
        return 0;
    }

    while (const char *name = folder.next(stop_)) {
        struct stat status {};
        const int32_t failure = folder.look_at(name, status);
        if (failure < 0) {
            LOG_DEBUG_AS(kFunction, "Can't fstat file %s error!, %d\n", name, -failure);
            continue;
        }

        const int32_t result = count_entry(name, status);
        if (result < 0)
            return result;
    }
    return 0;
}

int32_t TreeState::count_entry(const char *name, const struct stat &status) {
    if (S_ISDIR(status.st_mode))
        return count_folder(name, status);

    if (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) {
        state_.cnFiles++;
        state_.ullBytes += static_cast<uint64_t>(status.st_size);
        state_.ullBlocks += static_cast<uint64_t>(status.st_blocks);
    }
    return 0;
}

int32_t TreeState::count_folder(const char *name, const struct stat &status) {
    if (!fits(path_, name)) {
        LOG_DEBUG_AS(kFunction, "The path of the folder %s%s is too long error!, %d\n", path_.c_str(), name,
                     ENAMETOOLONG);
        return 0;
    }

    // It counts also where there is no memory to visit it.
    add_folder(state_, status);
    return pending_.push(name, status.st_mtim) ? 0 : -ENOMEM;
}

}  // namespace
}  // namespace korvex::fileio

using namespace korvex::fileio;

int32_t State_Folder_Tree_At(int32_t fdDir, const char *pszPath, Folder_Tree_State *ptState, int32_t *pnStop) {
    if (!is_directory_descriptor(fdDir) || pszPath == nullptr || ptState == nullptr)
        return -EINVAL;

    return TreeState(*ptState, pnStop).run(fdDir, pszPath);
}

int32_t State_Folder_Tree(const char *pszPath, Folder_Tree_State *ptState, int32_t *pnStop) {
    return State_Folder_Tree_At(AT_FDCWD, pszPath, ptState, pnStop);
}
