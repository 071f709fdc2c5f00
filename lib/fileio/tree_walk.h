// What the three walks over a folder tree share: the paths that grow and shrink, the stack of folders that are still to
// be visited, and the way from one folder to the next. What a walk does on its way is its own.
//
// A walk goes depth-first without recursion. It reads one folder to its end, closes it, and pushes each subfolder; then
// it goes down into the one found last. Coming back up, it finds that folder marked as visited on top of the stack.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/handles.h"
#include "base/path_buffer.h"
#include "base/shared_values.h"
#include "path_status.h"

namespace korvex::fileio {

// A path on the stack of the call: room for 4095 bytes and the NUL.
using TreePath = PathBuffer<kPathSize>;

// A folder that is on the way or still to be visited; its name follows the record.
struct TreeWalkNode {
    TreeWalkNode *below;
    struct timespec mtime;  // kept by the copy only
    uint16_t name_length;
    bool visited;

    char *name() { return reinterpret_cast<char *>(this + 1); }
};

class PendingFolders final {
  public:
    PendingFolders() = default;
    ~PendingFolders() {
        while (top_ != nullptr)
            pop();
    }
    PendingFolders(const PendingFolders &) = delete;
    PendingFolders &operator=(const PendingFolders &) = delete;

    // False without memory.
    [[nodiscard]] bool push(std::string_view name, const struct timespec &mtime) {
        auto *node = static_cast<TreeWalkNode *>(std::malloc(sizeof(TreeWalkNode) + name.size() + 1));
        if (node == nullptr)
            return false;

        node->below = top_;
        node->mtime = mtime;
        node->name_length = static_cast<uint16_t>(name.size());
        node->visited = false;
        std::memcpy(node->name(), name.data(), name.size());
        node->name()[name.size()] = '\0';
        top_ = node;
        return true;
    }

    void pop() { MallocPtr<TreeWalkNode>(std::exchange(top_, top_->below)).reset(); }

    bool empty() const { return top_ == nullptr; }
    TreeWalkNode &top() { return *top_; }

  private:
    TreeWalkNode *top_ = nullptr;
};

// Reads one folder's entries; "." and ".." are left out.
class FolderReader final {
  public:
    explicit FolderReader(const char *path) : folder_(opendir(path)) {}

    // False when the folder could not be opened; `errno` says why.
    explicit operator bool() const { return folder_ != nullptr; }

    // The next entry's name, valid until the next call; null at the end, where the folder can't be read on, and as soon
    // as the stop flag is set. `errno` stays, for it tells of a file's source that ends early.
    const char *next(const StopFlag &stop) {
        const ErrnoKeeper keeper;
        while (!stop.set()) {
            errno = 0;
            const struct dirent *entry = readdir(folder_.get());
            if (entry == nullptr) {
                failure_ = -errno;
                return nullptr;
            }
            if (!is_self_or_parent(entry->d_name))
                return entry->d_name;
        }
        return nullptr;
    }

    // Why the folder could not be read to its end: a negated errno. 0 where it could.
    int32_t failure() const { return failure_; }

    // Looks at an entry itself, not at what it may link to. 0, or a negated errno.
    int32_t look_at(const char *name, struct stat &status) const {
        return fstatat(dirfd(folder_.get()), name, &status, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : -errno;
    }

  private:
    UniqueDir folder_;
    int32_t failure_ = 0;
};

// The name in `path` of a folder given by a descriptor and a name: absolute where the name is relative to a descriptor.
// 0, -EINVAL for a descriptor without a path, or -ENAMETOOLONG.
[[nodiscard]] int32_t name_tree(TreePath &path, int32_t descriptor, const char *name);

// Whether a name, and a "/", have room behind the path of a folder.
[[nodiscard]] inline bool fits(const TreePath &path, std::string_view name) {
    return path.size() + name.size() + 1 < kPathSize;
}

// Ends the path with one "/". False where there is no room.
[[nodiscard]] inline bool end_with_slash(TreePath &path) {
    return path.back() == '/' || path.append("/");
}

}  // namespace korvex::fileio
