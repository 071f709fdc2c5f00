// Decimal texts to and from integers, and small helpers for integers and texts.
#include <strings.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/handles.h"
#include "base/message.h"
#include "miscfunc.h"

void Swap_Integer(int32_t *pnFirst, int32_t *pnSecond) {
    if (pnFirst != nullptr && pnSecond != nullptr)
        std::swap(*pnFirst, *pnSecond);
}

int32_t Decimal_String_To_Integer(const char *pszText, int64_t *pllValue) {
    if (pszText == nullptr || pllValue == nullptr)
        return -EINVAL;

    const bool negative = *pszText == '-';
    const char *const digits = negative ? pszText + 1 : pszText;
    const char *next = digits;
    uint64_t magnitude = 0;  // unsigned, so that an overlong number wraps
    for (; *next >= '0' && *next <= '9'; next++)
        magnitude = magnitude * 10 + static_cast<uint64_t>(*next - '0');

    *pllValue = static_cast<int64_t>(negative ? 0 - magnitude : magnitude);
    return static_cast<int32_t>(next - digits);
}

int32_t Integer_To_Decimal_String(char *pszBuf, const int32_t *pnSize, int64_t llValue) {
    if (pszBuf == nullptr || pnSize == nullptr || *pnSize < 1)
        return -EINVAL;

    std::array<char, 32> work{};
    char *first = &work.back();
    const auto value = static_cast<uint64_t>(llValue);
    uint64_t magnitude = llValue < 0 ? 0 - value : value;
    do {
        *--first = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (llValue < 0)
        *--first = '-';

    std::strcpy(pszBuf, first);
    return 0;
}

int32_t Clone_String(const char *pszText, char **ppszCopy, int32_t *pnLength) {
    if (pszText == nullptr || ppszCopy == nullptr)
        return -EINVAL;

    const size_t length = std::strlen(pszText);
    korvex::MallocPtr<char> copy(static_cast<char *>(std::malloc(length + 1)));
    if (!copy) {
        LOG_DEBUG("Can't allocate memory error!\n");
        return -ENOMEM;
    }

    std::memcpy(copy.get(), pszText, length + 1);
    if (pnLength != nullptr)
        *pnLength = static_cast<int32_t>(length);
    *ppszCopy = copy.release();
    return 0;
}

int32_t Str_To_Bool(const char *pszText, int32_t nLength) {
    if (pszText == nullptr)
        return 0;

    return strncasecmp(pszText, "TRUE", static_cast<size_t>(nLength)) == 0 ? 1 : 0;
}
