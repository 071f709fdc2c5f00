// A configuration file's text in memory, as the key functions scan it.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/handles.h"
#include "conffile.h"

namespace korvex::conffile {

class CachedText final {
  public:
    // 0, or the code of Cache_Conf_File; the text is empty then.
    [[nodiscard]] int32_t read(const char *path) {
        char *cache = nullptr;
        const int32_t length = Cache_Conf_File(path, &cache);
        text_.reset(cache);
        length_ = length > 0 ? static_cast<size_t>(length) : 0;
        return length < 0 ? length : 0;
    }

    // The text ends in a line feed; a NUL in it is an ordinary byte.
    std::string_view view() const { return {text_.get(), length_}; }

  private:
    MallocPtr<char> text_;
    size_t length_ = 0;
};

}  // namespace korvex::conffile
