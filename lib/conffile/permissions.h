// The permission bits of a new text's file: never wider than those of the file that it replaces.
#pragma once

#include <sys/stat.h>

#include "base/file_identity.h"

namespace korvex::conffile {

// Whether somebody else may have put a link, pipe, socket or device in the place of a file.
inline bool is_planted(const struct stat &entry) {
    return is_foreign(entry) && !S_ISREG(entry.st_mode) && !S_ISDIR(entry.st_mode);
}

// Collects what several looks at the old file showed: what one of them does not allow is not carried over. The looks may
// differ, where somebody changes the bits or exchanges the file meanwhile.
class Permissions final {
  public:
    void carry(const struct stat &old) {
        if (is_planted(old))
            return;

        bits_ &= old.st_mode & 07777U;
        if (carried_ && old.st_uid != owner_)
            bits_ &= ~mode_t{S_ISUID};
        if (carried_ && old.st_gid != group_)
            bits_ &= ~mode_t{S_ISGID};
        owner_ = old.st_uid;
        group_ = old.st_gid;
        carried_ = true;
    }

    // There may be an old file, but its bits are not to be had.
    void doubt() { when_new_ = 0600; }

    // Whether an old file was seen. If not, the new one keeps what it was made with.
    bool carried() const { return carried_; }

    // While the text is written: nobody may run as the file's owner what is half there.
    mode_t while_written() const { return carried_ ? bits_ & 0777U : when_new_; }

    // Whether someone runs as the file's owner or group, so that it counts whose the new file is.
    bool has_set_id() const { return (bits_ & (S_ISUID | S_ISGID)) != 0; }

    // The bits for the finished file of this owner and group. A program that ran as its owner must not run as somebody else
    // only because that one has edited it.
    mode_t final_bits(uid_t owner, gid_t group) const {
        mode_t bits = bits_;
        if (owner != owner_)
            bits &= ~mode_t{S_ISUID};
        if (group != group_)
            bits &= ~mode_t{S_ISGID};
        return bits;
    }

  private:
    mode_t bits_ = 07777;
    mode_t when_new_ = 0666;  // less the umask, as fopen makes a file
    uid_t owner_ = 0;
    gid_t group_ = 0;
    bool carried_ = false;
};

}  // namespace korvex::conffile
