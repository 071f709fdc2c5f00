#include "lock_entry.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/file_identity.h"
#include "base/link_target.h"

namespace korvex::fileio {
namespace {

constexpr int kMaximumLinks = 40;  // one after the other, as the kernel allows

LockEntry::Kind kind_of(const struct stat &status) {
    if (S_ISREG(status.st_mode))
        return LockEntry::Kind::file;
    return S_ISSOCK(status.st_mode) ? LockEntry::Kind::unreadable : LockEntry::Kind::without_content;
}

}  // namespace

LockEntry::Kind LockEntry::look(const char *name) {
    place_ = name;
    if (lstat(name, &status_) != 0)
        return kind_ = Kind::none;
    return kind_ = S_ISLNK(status_.st_mode) ? follow() : kind_of(status_);
}

// Goes from link to link. Each is held while its owner and its text are read, so that no other can come in between.
LockEntry::Kind LockEntry::follow() {
    if (!target_.assign({place_}))
        return Kind::none;

    for (int links = 0; links <= kMaximumLinks; links++) {
        const UniqueFd entry(open(target_.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (!entry || fstat(entry.get(), &status_) != 0)
            return Kind::none;

        place_ = target_.c_str();
        if (!S_ISLNK(status_.st_mode))
            return kind_of(status_);
        if (is_foreign(status_))
            return Kind::unreadable;
        if (!follow_link(entry, &target_))
            return Kind::none;
    }
    return Kind::none;
}

// O_NONBLOCK, since a pipe may stand there by now.
UniqueFd LockEntry::open_file() {
    UniqueFd file(open(place_, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    const struct stat seen = status_;
    if (!file || fstat(file.get(), &status_) != 0 || !S_ISREG(status_.st_mode) || !is_same_file(status_, seen))
        return {};
    return file;
}

}  // namespace korvex::fileio
