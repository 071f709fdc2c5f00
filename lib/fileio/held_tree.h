// One side of a walk over a folder tree: its top folder, held open from beginning to end, and the folder below it that
// the walk is at. Whatever is in the tree is reached from the top, never through a link, and never by the long path.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

#include "base/handles.h"
#include "entry_handle.h"

namespace korvex::fileio {

// Which folder one is, whatever its name.
struct FolderId {
    FolderId() = default;
    explicit FolderId(const struct stat &status) : device(status.st_dev), inode(status.st_ino) {}
    bool operator==(const FolderId &) const = default;

    dev_t device = 0;
    ino_t inode = 0;
};

class HeldTree final {
  public:
    // How its folders are opened: O_RDONLY to read them, O_PATH where they are only worked in.
    explicit HeldTree(int access) : access_(access) {}

    // Opens the top folder as the caller named it. `follow` is 0 or O_NOFOLLOW. The walk is at the top then. False on
    // failure and where it is not the folder that was found; `errno` says why.
    [[nodiscard]] bool open_top(int folder, const char *name, int follow, const FolderId &found);

    // Goes to a folder by its path below the top. False on failure and where it is not the folder that was found; `errno` says
    // why, and the walk is nowhere then.
    [[nodiscard]] bool enter(const char *path, const FolderId &found);

    // Opens a folder by its path below the top, with the flags that are given instead of those of `enter`.
    [[nodiscard]] UniqueFd open_below(const char *path, int access);

    int top() const { return top_.get(); }
    int here() const { return at_top_ ? top_.get() : here_.get(); }
    // Hands out the descriptor of the folder below the top that the walk is at, which the walk leaves.
    UniqueFd take_here() { return std::move(here_); }
    // Whether others may exchange the names in the folder that the walk is at.
    bool shared_here() const { return shared_here_; }

  private:
    bool accept(const UniqueFd &folder, const FolderId &found);
    UniqueFd open_step_by_step(const char *path, int access) const;

    int access_;
    bool has_openat2_ = true;  // until the kernel says otherwise
    bool at_top_ = false;
    bool shared_here_ = true;
    UniqueFd top_;
    UniqueFd here_;
};

}  // namespace korvex::fileio
