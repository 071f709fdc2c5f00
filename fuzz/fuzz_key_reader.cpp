// Get_Conf_File_String_Value on any file: what it finds, what it stores and what it reports are the model's.
//
// Input: a line with the section ("*": a null pointer), one with the key, one with the buffer's size; the file's text.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "target.h"

namespace {

constexpr char kUntouched = '\x5a';

// A block of exactly the size that the call is told, so that a byte too many is seen.
naive::Got get_key(const std::string &section, const std::string &key, int32_t capacity) {
    const auto room = static_cast<size_t>(std::max(capacity, 0));
    const auto buffer = std::make_unique<char[]>(room);
    std::fill_n(buffer.get(), room, kUntouched);
    int32_t size = capacity;
    const int32_t result = Get_Conf_File_String_Value(fuzz::kFile, section == "*" ? nullptr : section.c_str(),
                                                      key.c_str(), buffer.get(), &size);

    if (result != 0) {
        if (std::count(buffer.get(), buffer.get() + room, kUntouched) != static_cast<ptrdiff_t>(room))
            fuzz::fail("a failed call touched the buffer");
        return {result, "", size, fuzz::take_messages()};
    }
    if (size < 0 || size >= capacity || buffer[static_cast<size_t>(size)] != '\0')
        fuzz::fail("no NUL behind a value of size " + std::to_string(size));
    return {result, {buffer.get(), static_cast<size_t>(size)}, size, fuzz::take_messages()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view input = fuzz::bytes(data, size);
    const std::string section = fuzz::take_argument(input);
    const std::string key = fuzz::take_argument(input);
    const int32_t capacity = std::atoi(fuzz::take_argument(input).c_str()) % 100'000;
    fuzz::write_file(fuzz::kFile, input);

    const naive::Got expected = naive::get_key(std::string(input), section == "*" ? "" : section, key, capacity);
    fuzz::compare(expected, get_key(section, key, capacity));
    return 0;
}
