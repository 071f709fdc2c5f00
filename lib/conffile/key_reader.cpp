// Reading one key of a file, straight from its text.
#include "key_reader.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "base/message.h"
#include "file_text.h"
#include "nodes.h"
#include "text_scan.h"

namespace korvex::conffile {
namespace {

// Room for the text of a number and its NUL.
constexpr int32_t kNumberSize = 32;

// The buffer takes the value and its NUL; `*size` becomes the value's length without it, either way. (The getters of
// nodes count the NUL.)
int32_t hand_out(std::string_view value, char *buffer, int32_t *size) {
    const bool fits = static_cast<int64_t>(value.size()) < *size;
    if (fits) {
        std::memcpy(buffer, value.data(), value.size());
        buffer[value.size()] = '\0';
    }
    *size = static_cast<int32_t>(value.size());
    return fits ? 0 : -EOVERFLOW;
}

template <class Integer>
int32_t get_narrow(const char *path, const char *section, const char *key, Integer *target) {
    if (section == nullptr || target == nullptr)
        return -EINVAL;

    int64_t value = 0;
    const int32_t result = Get_Conf_File_Int64_Value(path, section, key, &value);
    return result < 0 ? result : store_narrowed(value, target);
}

}  // namespace

int32_t read_key(std::string_view text, size_t body, const char *key, char *buffer, int32_t *size,
                 const char *function) {
    const KeyPlace place = find_key(text, body, key, function);
    return place.found ? hand_out(place.value, buffer, size) : -ENODATA;
}

}  // namespace korvex::conffile

using namespace korvex::conffile;

int32_t Get_Conf_File_String_Value(const char *pszPath, const char *pszSection, const char *pszKey, char *pszBuf,
                                   int32_t *pnSize) {
    if (pszPath == nullptr || pszKey == nullptr || pszBuf == nullptr || pnSize == nullptr || *pnSize < 1) {
        LOG_DEBUG("Bad parameters!\n");
        return -EINVAL;
    }

    FileText text;
    const int32_t result = text.read(pszPath);
    if (result < 0) {
        LOG_DEBUG("Can't cache file \"%s\" error! (%d)\n", pszPath, result);
        return result;
    }

    const size_t body = find_body(text.view(), pszSection != nullptr ? pszSection : "");
    if (body == kNowhere)
        return -ENOANO;

    return read_key(text.view(), body, pszKey, pszBuf, pnSize, __func__);
}

int32_t Get_Conf_File_Int64_Value(const char *pszPath, const char *pszSection, const char *pszKey, int64_t *pllValue) {
    // The getter of texts judges the path and the key. A null section it would take for the global one.
    if (pszSection == nullptr || pllValue == nullptr)
        return -EINVAL;

    std::array<char, kNumberSize> text;
    int32_t size = kNumberSize;
    const int32_t result = Get_Conf_File_String_Value(pszPath, pszSection, pszKey, text.data(), &size);
    if (result < 0)
        return result;

    *pllValue = to_number(text.data());
    return 0;
}

int32_t Get_Conf_File_Int8_Value(const char *pszPath, const char *pszSection, const char *pszKey, int8_t *pnValue) {
    return get_narrow(pszPath, pszSection, pszKey, pnValue);
}

int32_t Get_Conf_File_Int16_Value(const char *pszPath, const char *pszSection, const char *pszKey, int16_t *pnValue) {
    return get_narrow(pszPath, pszSection, pszKey, pnValue);
}

int32_t Get_Conf_File_Int32_Value(const char *pszPath, const char *pszSection, const char *pszKey, int32_t *pnValue) {
    return get_narrow(pszPath, pszSection, pszKey, pnValue);
}
