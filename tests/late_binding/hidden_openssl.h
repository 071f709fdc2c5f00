// A private mount namespace in which the system has no OpenSSL.
#pragma once

#include <dlfcn.h>
#include <link.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

#include "sandbox.h"

namespace late_binding_test {

// Where the system finds a shared object; empty where it does not. Looked for by a child, which takes it along.
inline std::string found_by_the_system(const char *name) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    support::in_child([&] {
        void *handle = dlopen(name, RTLD_LAZY);
        link_map *map = nullptr;
        if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0)
            return 1;
        const std::string path = map->l_name;
        return write(ends[1], path.data(), path.size()) == static_cast<ssize_t>(path.size()) ? 0 : 1;
    });
    close(ends[1]);
    std::array<char, 4096> path{};
    const ssize_t length = read(ends[0], path.data(), path.size());
    close(ends[0]);
    return {path.data(), length < 0 ? 0 : static_cast<size_t>(length)};
}

// Lays an empty file over each place where the system finds it; the test program is in a mount namespace of its own.
inline void hide_from_the_system(const char *name, const support::TempFolder &folder) {
    const std::string nothing = folder.file("nothing", "");
    for (std::string path = found_by_the_system(name); !path.empty(); path = found_by_the_system(name)) {
        if (mount(nothing.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0)
            throw std::system_error(errno, std::generic_category(), "hide " + path);
    }
}

}  // namespace late_binding_test
