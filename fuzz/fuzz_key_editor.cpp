// Set_Conf_File_String_Value on any file: every byte of the file behind it, its result and its messages are the
// model's, and neither a temporary file nor the lock stays.
//
// Input: a line with the section ("*": a null pointer), one with the key, one with the change; the file's text. The
// change is "=VALUE" to set, "-" to remove, and "+VALUE" and "~" to do so where there is no file.
#include <unistd.h>

#include "target.h"

namespace {

void check_clean() {
    for (const char *leftover : {"/var/lock/fuzz/conf.tmp", "/var/lock/_conf.lck"})
        if (access(leftover, F_OK) == 0)
            fuzz::fail(std::string("left behind: ") + leftover);
}

naive::Edited set_key(const std::string &section, const std::string &key, const std::optional<std::string> &value) {
    const int32_t result = Set_Conf_File_String_Value(fuzz::kFile, section == "*" ? nullptr : section.c_str(),
                                                      key.c_str(), value ? value->c_str() : nullptr);
    check_clean();
    return {result, fuzz::read_file(fuzz::kFile), fuzz::take_messages()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view input = fuzz::bytes(data, size);
    const std::string section = fuzz::take_argument(input);
    const std::string key = fuzz::take_argument(input);
    const std::string change = fuzz::take_argument(input);
    if (change.find_first_of("=-+~") != 0)
        return 0;

    std::optional<std::string> file;
    unlink(fuzz::kFile);
    if (change[0] == '=' || change[0] == '-') {
        file = std::string(input);
        fuzz::write_file(fuzz::kFile, input);
    }
    std::optional<std::string> value;
    if (change[0] == '=' || change[0] == '+')
        value = change.substr(1);

    naive::Edited expected = naive::set_key(file, section == "*" ? "" : section, key, value);
    if (!file && !value)
        expected.messages = {"[debug] Set_Conf_File_String_Value(#): Can't cache file \"" + std::string(fuzz::kFile) +
                             "\" error! (-2)\n"};
    fuzz::compare(expected, set_key(section, key, value));
    return 0;
}
