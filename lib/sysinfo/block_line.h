// The lines of the block-identification tool: a device's path, a colon, then KEY="value" pairs.
#pragma once

#include <cstdint>
#include <string_view>

namespace korvex::sysinfo {

// What a scan takes from a line: views into it, empty where there is none.
struct BlockLine {
    std::string_view device;
    std::string_view uuid;
    std::string_view type;
    std::string_view second_type;  // without its first character, as it has always been read
};

// False for a line to skip. The keys are found inside longer ones, too.
[[nodiscard]] bool parse_block_line(std::string_view line, BlockLine &parsed);

// Copies the value of ` KEY="value"`, a whole key. With a size, in: of the buffer, out: of the value.
// 0; -ENODATA; -EOVERFLOW, and the buffer untouched, for a value that does not fit with its NUL.
int32_t Extract_Value(const char *pszLine, const char *pszKey, char *pszValue, int32_t *pnSize);

}  // namespace korvex::sysinfo
