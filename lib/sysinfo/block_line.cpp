#include "block_line.h"

#include <cerrno>
#include <cstring>

#include "base/texts.h"

namespace korvex::sysinfo {
namespace {

constexpr auto kNone = std::string_view::npos;

// A place in a line from which values are taken one after the other.
class ValueReader final {
  public:
    ValueReader(std::string_view line, size_t place) : line_(line), place_(place) {}

    // Takes the value behind the next `opening` text, without its first `dropped` characters. Without
    // such a text the value is empty, and the result true. False where the value has no end.
    [[nodiscard]] bool take(std::string_view opening, size_t dropped, std::string_view &value) {
        const size_t found = line_.find(opening, place_);
        if (found == kNone)
            return true;

        const size_t begin = found + opening.size() + dropped;
        const size_t end = line_.find('"', begin);
        if (end == kNone)
            return false;

        value = {line_.data() + begin, end - begin};
        place_ = end + 1;
        return true;
    }

  private:
    std::string_view line_;
    size_t place_;
};

}  // namespace

bool parse_block_line(std::string_view line, BlockLine &parsed) {
    const size_t colon = line.find(':');
    if (colon == kNone)
        return false;

    parsed = {};
    parsed.device = {line.data(), colon};
    ValueReader values(line, colon + 1);
    if (!values.take("UUID=\"", 0, parsed.uuid) || !values.take("TYPE=\"", 0, parsed.type))
        return false;

    return parsed.type.data() == nullptr || values.take("TYPE=\"", 1, parsed.second_type);
}

int32_t Extract_Value(const char *pszLine, const char *pszKey, char *pszValue, int32_t *pnSize) {
    const size_t key_length = std::strlen(pszKey);
    for (const char *place = pszLine; (place = std::strchr(place, ' ')) != nullptr; place++) {
        const char *key = place + 1;
        if (std::strncmp(key, pszKey, key_length) != 0 || std::strncmp(key + key_length, "=\"", 2) != 0)
            continue;

        const char *value = key + key_length + 2;
        const char *end = std::strchr(value, '"');
        if (end == nullptr)
            return -ENODATA;

        const auto length = static_cast<size_t>(end - value);
        if (pnSize != nullptr) {
            const int32_t size = *pnSize;
            *pnSize = static_cast<int32_t>(length);
            if (*pnSize >= size)
                return -EOVERFLOW;
        }
        put_text(pszValue, {value, length});
        return 0;
    }
    return -ENODATA;
}

}  // namespace korvex::sysinfo
