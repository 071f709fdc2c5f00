// What the sources of fileio share about descriptors and names.
#pragma once

#include <fcntl.h>

#include <cstdint>

namespace korvex::fileio {

// An open folder or the current one.
constexpr bool is_directory_descriptor(int32_t descriptor) {
    return descriptor >= 0 || descriptor == AT_FDCWD;
}

// The path of a descriptor as messages show it. It stands in the buffer of `Fullpath`.
[[nodiscard]] const char *shown_path(int32_t descriptor);

constexpr bool is_self_or_parent(const char *name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace korvex::fileio
