// What stands at the name of a lock. Anybody may have put it there, so it is looked at before it is touched: no pipe or
// device is ever opened, and no link is followed that somebody else may have planted.
#pragma once

#include <sys/stat.h>

#include "base/handles.h"
#include "base/path_buffer.h"

namespace korvex::fileio {

class LockEntry final {
  public:
    LockEntry() = default;
    LockEntry(const LockEntry &) = delete;  // it may point into itself
    LockEntry &operator=(const LockEntry &) = delete;

    enum class Kind {
        none,
        unreadable,       // a planted link, or a socket: what can't be opened
        without_content,  // a folder, pipe or device: what is not read
        file,
    };

    // Looks at what the name leads to; the name must stay for as long as the entry is used. Links of root's and our own
    // are followed.
    Kind look(const char *name);

    // The look's result. Of `unreadable` and `none` there is no status.
    Kind kind() const { return kind_; }
    const struct stat &status() const { return status_; }

    // Opens the file that was seen, and checks that it is still that file. Empty if it is not, if it can't be opened, or if
    // somebody holds a lease on it: this does not wait, since the wait for the lock tries again.
    [[nodiscard]] UniqueFd open_file();

  private:
    Kind follow();

    const char *place_ = nullptr;  // where it stands: the name, or what links led to
    PathBuffer<kPathSize> target_;
    Kind kind_ = Kind::none;
    struct stat status_;
};

}  // namespace korvex::fileio
