// Where the sections of a text begin, for many questions about one text.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/handles.h"

namespace korvex::conffile {

class SectionIndex final {
  public:
    // Of a text that outlives the index. Without memory for it each question scans the text.
    void build(std::string_view text);

    // As `find_body` of text_scan.h.
    [[nodiscard]] size_t find_body(std::string_view section) const;

  private:
    struct Header {
        std::string_view name;  // up to the first "]"
        size_t body;
    };
    static int compare(const void *one, const void *other);

    std::string_view text_;
    MallocPtr<Header> headers_;  // by name; of equal ones the first in the text comes first
    size_t count_ = 0;
};

}  // namespace korvex::conffile
