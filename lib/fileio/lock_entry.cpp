#include "lock_entry.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "base/file_identity.h"

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
        if (!lead_on(entry.get()))
            return Kind::none;
    }
    return Kind::none;
}

// Puts what the link says in the place of its own name.
bool LockEntry::lead_on(int link) {
    std::array<char, kPathSize> text;
    const ssize_t length = readlinkat(link, "", text.data(), text.size());
    if (length <= 0)
        return false;

    const std::string_view own(target_.c_str(), target_.size());
    target_.cut(text[0] == '/' ? 0 : own.rfind('/') + 1);
    return target_.append({text.data(), static_cast<size_t>(length)});
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
