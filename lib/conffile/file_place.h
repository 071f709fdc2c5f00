// Where a configuration file stands: its folder, opened once, and its name there. Others may exchange a folder on the way
// for a link while a file is read and replaced. A place stays in the folder that it opened.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "base/handles.h"

namespace korvex::conffile {

class FilePlace final {
  public:
    // The path must outlive the place. A folder that can't be opened shows in every call below: it fails with that `errno`.
    explicit FilePlace(const char *path);

    const char *path() const { return path_; }
    const char *name() const { return name_; }

    // As fstatat, of the name itself or of what a link there leads to: 0, or -1 and `errno`.
    [[nodiscard]] int look(struct stat *status) const;
    [[nodiscard]] int look_through_link(struct stat *status) const;

    struct Opened {
        UniqueFd file;
        bool through_link = false;
    };
    // Opens the name without hanging at a pipe; empty on failure, and `errno` says why. A link is followed where it is
    // root's or the caller's own. Somebody else's was planted: ELOOP.
    [[nodiscard]] Opened open(int flags, mode_t mode = 0) const;

    // Opens the name as fopen does with "w": 0 or a negated errno. What somebody else may have planted there is refused.
    [[nodiscard]] int32_t open_to_write_over(UniqueFile *stream) const;

    // These are about another name in the folder. A new file; EEXIST where the name is taken.
    [[nodiscard]] UniqueFd create(const char *name, mode_t mode) const;
    // Takes the place's own name: 0, or -1 and `errno`.
    [[nodiscard]] int move_here(const char *name) const;
    // 0, or -1 and `errno`.
    int remove(const char *name) const;

  private:
    // Whether the folder is there; if not, `errno` says why.
    [[nodiscard]] bool usable() const;

    const char *path_;
    const char *name_;
    UniqueFd opened_folder_;
    int folder_;
    int error_ = 0;
};

}  // namespace korvex::conffile
