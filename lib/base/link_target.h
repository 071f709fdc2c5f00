// Following a symbolic link by hand: the very one that was looked at. By its name it could be another one by then.
#pragma once

#include <linux/magic.h>
#include <sys/types.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/handles.h"
#include "base/path_buffer.h"

namespace korvex {

// Makes `name`, which led to the link that is held by an O_PATH descriptor, the name of its target: the link's text in the
// place of the last component. False on failure, and `errno` says why.
[[nodiscard]] inline bool follow_link(const UniqueFd &link, PathBuffer<kPathSize> *name) {
    std::array<char, kPathSize> target;
    const ssize_t length = readlinkat(link.get(), "", target.data(), target.size());
    if (length < 0)
        return false;

    const char *const slash = std::strrchr(name->c_str(), '/');
    const bool from_root = length > 0 && target[0] == '/';
    name->cut(slash == nullptr || from_root ? 0 : static_cast<size_t>(slash + 1 - name->c_str()));
    if (name->append({target.data(), static_cast<size_t>(length)}))
        return true;

    errno = ENAMETOOLONG;
    return false;
}

// Whether a held link is one of /proc, which may lead where its text does not: /dev/stdout leads through one. Nobody can
// exchange it.
[[nodiscard]] inline bool is_kernels_link(const UniqueFd &link) {
    struct statfs system {};
    return fstatfs(link.get(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

}  // namespace korvex
