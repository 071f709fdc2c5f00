// The file of a new text beside the one that it is to replace.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "base/handles.h"
#include "base/path_buffer.h"
#include "file_place.h"
#include "permissions.h"

namespace korvex::conffile {

class NewFile final {
  public:
    // Both must outlive the object.
    NewFile(const FilePlace &place, const Permissions &permissions) : place_(place), permissions_(permissions) {}
    // Closes the file, and removes what was not moved into place.
    ~NewFile();
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;

    // Makes the file under the place's path with a suffix. Its permission bits are right before its first byte. What stands
    // at the name already was left by a process that ended, or planted: it is removed, never used. Somebody may hold it open
    // with wider bits, or have made it a link to another file.
    // 0; -ENAMETOOLONG, and name() is empty; or another negated errno.
    [[nodiscard]] int32_t create(std::string_view suffix, std::string_view suffix_end = "");

    // For messages.
    const char *name() const { return name_.c_str(); }
    FILE *stream() const { return stream_.get(); }

    // Hands the written text to the system: 0, or what `ferror` answers then. What was refused is dropped.
    [[nodiscard]] int flush();
    // 0 or a negated errno.
    [[nodiscard]] int32_t move_into_place();
    // Gives this file, whatever stands at its name by now, the old file's bits if one was seen. 0 or a negated errno.
    [[nodiscard]] int32_t set_permissions() const;
    // Removes the file, which stays open.
    void remove();

  private:
    // The temporary name in the place's folder.
    const char *entry() const { return name_.c_str() + (place_.name() - place_.path()); }
    [[nodiscard]] UniqueFd make_anew() const;
    void prepare_permissions();

    const FilePlace &place_;
    const Permissions &permissions_;
    PathBuffer<kPathSize> name_;
    std::array<char, 16384> buffer_;  // an ordinary configuration goes out in one write
    UniqueFile stream_;
    int descriptor_ = -1;  // the stream's
    mode_t last_bits_ = 0;
    bool to_remove_ = false;
};

}  // namespace korvex::conffile
