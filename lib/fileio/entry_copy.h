// Copies of single entries, as the exported functions and the walk over a tree make them. Messages are those of
// Copy_File_At, Copy_Symlink_At and Copy_Folder_At in both cases.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "base/handles.h"

namespace korvex::fileio {

// A name in a folder, and how messages show both: a walk goes by descriptors and is told of by paths.
struct NameInFolder {
    int32_t folder;
    const char *name;
    int32_t shown_folder;
    const char *shown_name;
    bool shared = true;    // whether others may exchange the names in the folder; where nobody knows, they may
    int folder_error = 0;  // why the folder can't be held, where it can't: then nothing in it can be made
};

// As a caller gave them.
constexpr NameInFolder name_in(int32_t folder, const char *name) {
    return {.folder = folder, .name = name, .shown_folder = folder, .shown_name = name};
}

// Each copies an entry that was looked at and found to be as `status` says. Results as those of the exported functions.
[[nodiscard]] int32_t copy_file(const NameInFolder &source, const struct stat &status, const NameInFolder &dest,
                                int32_t *stop, int64_t *total);
[[nodiscard]] int32_t copy_symlink(const NameInFolder &source, const struct stat &status, const NameInFolder &dest);

// `made` receives the look at the new folder, where there is one.
[[nodiscard]] int32_t copy_folder(const struct stat &status, const NameInFolder &dest, struct stat &made);

// A hold on a folder that was just made under the name; empty where something else is there by now or came into it, and
// `errno` says why: what was exchanged for it must get neither the bits nor the owner that were meant for it.
[[nodiscard]] UniqueFd hold_new_folder(const NameInFolder &dest, struct stat &made);

}  // namespace korvex::fileio
