// Sizes and durations in the units that people read.
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "miscfunc.h"

namespace korvex::miscfunc {
namespace {

constexpr std::array<std::string_view, 5> kSizeUnits{"byte", "KB", "MB", "GB", "TB"};

// Copies a text and its NUL where it fits. The size is compared unsigned, so a negative one never fails: by contract.
bool put_text(std::string_view text, char *buffer, int32_t size) {
    if (static_cast<uint64_t>(int64_t{size}) < text.size() + 1)
        return false;

    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    return true;
}

// A duration's fields, in the order in which they are handed out.
enum Field : size_t { kSeconds, kMinutes, kHours, kDays, kFields };

constexpr std::array<const char *, kFields> kFieldNames{"second", "minute", "hour", "day"};

void split_duration(uint32_t seconds, int32_t *fields) {
    const uint32_t days = seconds / 86400;
    fields[kSeconds] = static_cast<int32_t>(seconds % 60);
    fields[kMinutes] = static_cast<int32_t>(seconds / 60 % 60);
    fields[kHours] = static_cast<int32_t>(seconds / 3600 - days * 24);
    fields[kDays] = static_cast<int32_t>(days);
}

using DurationText = std::array<char, 128>;

// "2 days 5 seconds": the fields that are not 0, and seconds always. Zero is singular.
std::string_view put_duration(DurationText &text, const int32_t *fields) {
    size_t length = 0;
    for (size_t field = kFields; field-- > 0;) {
        if (fields[field] == 0 && field != kSeconds)
            continue;

        const int written = std::snprintf(&text[length], text.size() - length, "%s%d %s%s", length == 0 ? "" : " ",
                                          fields[field], kFieldNames[field], fields[field] > 1 ? "s" : "");
        length += static_cast<size_t>(written);
    }
    return {text.data(), length};
}

}  // namespace
}  // namespace korvex::miscfunc

using namespace korvex::miscfunc;

int32_t Size_Unit_Conversion(uint64_t ullBytes, float *pfAmount, char *pszUnit, int32_t cbUnit) {
    if (pfAmount == nullptr || pszUnit == nullptr)
        return -EINVAL;

    auto amount = static_cast<float>(ullBytes);
    size_t unit = 0;
    for (; amount > 1024.0F && unit + 1 < kSizeUnits.size(); unit++)
        amount *= 1.0F / 1024;

    if (!put_text(kSizeUnits[unit], pszUnit, cbUnit))
        return -EOVERFLOW;
    *pfAmount = amount;
    return 0;
}

int32_t Time_Unit_Conversion(uint32_t uSeconds, int32_t *pnFields, char *pszText, int32_t cbText) {
    if (pnFields == nullptr && pszText == nullptr)
        return -EINVAL;

    std::array<int32_t, kFields> own_fields;
    int32_t *fields = pnFields != nullptr ? pnFields : own_fields.data();
    split_duration(uSeconds, fields);
    if (pszText == nullptr)
        return 0;

    DurationText text;
    return put_text(put_duration(text, fields), pszText, cbText) ? 0 : -EOVERFLOW;
}
