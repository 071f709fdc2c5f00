// Measuring a folder tree: what can't be looked at is logged and left out.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/message.h"
#include "base/shared_values.h"
#include "fileio.h"
#include "folder_reader.h"
#include "held_tree.h"
#include "path_status.h"
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
    bool enter_folder();
    int32_t read_folder();
    int32_t count_entry(const char *name, const struct stat &status);
    int32_t count_folder(const char *name, const struct stat &status);

    int32_t folder_ = 0;
    const char *name_ = nullptr;
    TreePath path_;         // ends with "/" during the walk
    size_t top_place_ = 0;  // where what lies below the top begins in it
    struct stat top_ {};
    Folder_Tree_State &state_;
    StopFlag stop_;
    HeldTree tree_{O_RDONLY};
    FolderReader reader_;
    PendingFolders<FolderId> pending_;
};

void add_folder(Folder_Tree_State &state, const struct stat &status) {
    state.cnFolders++;
    state.ullBlocks += static_cast<uint64_t>(status.st_blocks);
}

int32_t TreeState::run(int32_t folder, const char *name) {
    folder_ = folder;
    name_ = name;
    int32_t result = name_tree(path_, folder, name);
    if (result == 0)
        result = look_at_top();
    if (result != 0)
        return result;
    return walk();
}

// Follows a link at the top, and only there.
int32_t TreeState::look_at_top() {
    if (fstatat(folder_, name_, &top_, 0) != 0) {
        const int32_t code = -errno;
        LOG_DEBUG_AS(kFunction, "Can't fstat folder %s error!, %d\n", path_.c_str(), code);
        return code;
    }
    if (!S_ISDIR(top_.st_mode)) {
        LOG_DEBUG_AS(kFunction, "The path %s is not a folder error!, %d\n", path_.c_str(), -ENOTDIR);
        return -ENOTDIR;
    }
    if (!end_with_slash(path_))
        return -ENAMETOOLONG;

    top_place_ = path_.size();
    add_folder(state_, top_);
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
        auto &next = pending_.top();
        next.visited = true;
        if (!path_.append(next.name()) || !path_.append("/"))
            return -ENAMETOOLONG;
    }
    return 0;
}

// The first folder is the top, before any was found.
bool TreeState::enter_folder() {
    const bool entered = pending_.empty() ? tree_.open_top(folder_, name_, 0, FolderId(top_))
                                          : tree_.enter(path_.c_str() + top_place_, pending_.top().found);
    return entered && reader_.start(tree_.here());
}

int32_t TreeState::read_folder() {
    if (!enter_folder()) {
        LOG_DEBUG_AS(kFunction, "Can't opendir %s (%d)\n", path_.c_str(), errno);
        return 0;
    }

    while (const dirent *entry = reader_.next(stop_)) {
        struct stat status {};
        const int32_t failure = reader_.look_at(entry->d_name, status);
        if (failure < 0) {
            LOG_DEBUG_AS(kFunction, "Can't fstat file %s error!, %d\n", entry->d_name, -failure);
            continue;
        }

        const int32_t result = count_entry(entry->d_name, status);
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

    // The folder is counted even if there is no memory to visit it.
    add_folder(state_, status);
    return pending_.push(name, FolderId(status)) ? 0 : -ENOMEM;
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
