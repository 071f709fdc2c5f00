// A configuration file's text in memory, as the key functions scan it.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/handles.h"
#include "conffile.h"
#include "file_place.h"
#include "permissions.h"

namespace korvex::conffile {

// As Cache_Conf_File, with its messages, for who is to replace the file. A link is followed where it is root's or the
// caller's own: somebody else's could make its target's secrets part of the new file. Such a link is -ELOOP, as a file that
// can't be opened. The old file's bits are carried to `permissions`.
[[nodiscard]] int32_t read_text_to_change(const FilePlace &place, MallocPtr<char> *text, Permissions *permissions);

class FileText final {
  public:
    // 0, or the code of Cache_Conf_File; the text is empty then.
    [[nodiscard]] int32_t read(const char *path) {
        char *text = nullptr;
        const int32_t length = Cache_Conf_File(path, &text);
        text_.reset(text);
        return keep_length(length);
    }

    [[nodiscard]] int32_t read_to_change(const FilePlace &place, Permissions *permissions) {
        return keep_length(read_text_to_change(place, &text_, permissions));
    }

    // The text ends in a line feed; a NUL in it is an ordinary byte.
    std::string_view view() const { return {text_.get(), length_}; }

  private:
    int32_t keep_length(int32_t length) {
        length_ = length > 0 ? static_cast<size_t>(length) : 0;
        return length < 0 ? length : 0;
    }

    MallocPtr<char> text_;
    size_t length_ = 0;
};

}  // namespace korvex::conffile
