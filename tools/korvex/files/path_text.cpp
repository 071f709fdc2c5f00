#include "files/path_text.h"

#include <cstdio>
#include <string_view>

#include "miscfunc.h"

namespace korvex::cli {

std::string size_text(uint64_t bytes) {
    float amount = 0;
    char unit[8];
    Size_Unit_Conversion(bytes, &amount, unit, sizeof unit);
    const bool whole = std::string_view(unit) == "byte";
    char text[64];
    std::snprintf(text, sizeof text, "%.*f %s", whole ? 0 : 2, static_cast<double>(amount), unit);
    return text;
}

std::string without_end_slashes(const std::string &path) {
    const size_t last = path.find_last_not_of('/');
    return last == std::string::npos ? path.substr(0, 1) : path.substr(0, last + 1);
}

std::string inside(const std::string &folder, const std::string &name) {
    return folder.ends_with('/') ? folder + name : folder + "/" + name;
}

std::string last_name(const std::string &path) {
    const std::string trimmed = without_end_slashes(path);
    return trimmed.substr(trimmed.rfind('/') + 1);
}

}  // namespace korvex::cli
