// Reading one key of a text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace korvex::conffile {

// Hands out the value of a key in the body that begins at `body`. 0; -ENODATA; -EOVERFLOW. `*size` is that of the buffer and
// becomes the value's length without the NUL. Bad lines are reported as messages of `function`.
[[nodiscard]] int32_t read_key(std::string_view text, size_t body, const char *key, char *buffer, int32_t *size,
                               const char *function);

}  // namespace korvex::conffile
