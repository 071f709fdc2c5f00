// Opening a file to write to it. The folder may be another user's, who puts there what he likes and when he likes.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "base/handles.h"

namespace korvex {

struct Destination {
    int folder;  // or AT_FDCWD
    const char *name;
    int flags;                              // as `open` takes them
    mode_t mode;                            // of a new file, less the umask
    const struct stat *not_this = nullptr;  // a file that must not be opened; may be null
};

// As `openat`, but a link, pipe, socket or device that somebody else may have put there is not followed, written
// to or waited for: -ELOOP for a link, -ENXIO for the rest. What root or this user has put there is used as by `open`.
// Returns 0, and leaves `errno` as it was; or a negated errno, to which `errno` is set; or kNotThis for the file that it must
// not be, which is then neither opened nor emptied.
constexpr int32_t kNotThis = 1;
[[nodiscard]] int32_t open_destination(const Destination &destination, UniqueFd &file);

// The same as a stream, with the mode that `fdopen` takes.
[[nodiscard]] int32_t open_destination(const Destination &destination, const char *mode, UniqueFile &stream);

}  // namespace korvex
