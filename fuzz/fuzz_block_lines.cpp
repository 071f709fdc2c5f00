// What is taken from any line of the block-identification tool is what the model takes.
//
// Input: a line with a key; a line with the size of the buffer for its value, or "-" for none; the tool's line.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "naive_sysinfo.h"
#include "sysinfo/block_line.h"
#include "target.h"

namespace {

constexpr char kUntouched = '~';

std::string shown(const std::optional<naive::Block> &block) {
    if (!block)
        return "a line to skip";
    return "device " + fuzz::shown(block->device) + ", UUID " + fuzz::shown(block->uuid) + ", type " +
           fuzz::shown(block->type) + ", second type " + fuzz::shown(block->second_type);
}

// A block of exactly the text's size, so that a look behind it is seen.
std::unique_ptr<char[]> exact_copy(std::string_view text) {
    auto copy = std::make_unique<char[]>(text.size());
    text.copy(copy.get(), text.size());
    return copy;
}

void check_line(const std::string &line) {
    const std::unique_ptr<char[]> text = exact_copy(line);
    korvex::sysinfo::BlockLine parsed;
    std::optional<naive::Block> got;
    if (korvex::sysinfo::parse_block_line({text.get(), line.size()}, parsed))
        got = {.device = std::string(parsed.device),
               .uuid = std::string(parsed.uuid),
               .type = std::string(parsed.type),
               .second_type = std::string(parsed.second_type)};

    const std::optional<naive::Block> expected = naive::block_of(line);
    if (expected != got)
        fuzz::fail("expected " + shown(expected) + "\ngot " + shown(got));
}

void check_value(const std::string &line, const std::string &key, std::optional<int32_t> size) {
    const std::optional<std::string> value = naive::value_of(line, key);
    const int32_t length = value ? static_cast<int32_t>(value->size()) : 0;
    const int32_t fitting = length + 1;
    const int32_t expected = !value ? -ENODATA : size && length >= *size ? -EOVERFLOW : 0;

    // Without a size the buffer has to be large enough; with one it is no larger than that.
    const auto room = static_cast<size_t>(std::max(size.value_or(fitting), 0));
    const auto buffer = std::make_unique<char[]>(room);
    std::fill_n(buffer.get(), room, kUntouched);
    const std::unique_ptr<char[]> text = exact_copy({line.c_str(), line.size() + 1});
    const std::unique_ptr<char[]> name = exact_copy({key.c_str(), key.size() + 1});
    int32_t stored = size.value_or(0);
    const int32_t got = korvex::sysinfo::Extract_Value(text.get(), name.get(), buffer.get(), size ? &stored : nullptr);

    if (got != expected)
        fuzz::fail("expected " + std::to_string(expected) + ", got " + std::to_string(got));
    if (size && stored != (value ? length : *size))
        fuzz::fail("size " + std::to_string(stored) + " for a value of " + std::to_string(length));
    if (got == 0 && buffer.get() != *value)
        fuzz::fail("expected " + fuzz::shown(*value) + ", got " + fuzz::shown(buffer.get()));
    if (got != 0 && std::count(buffer.get(), buffer.get() + room, kUntouched) != static_cast<ptrdiff_t>(room))
        fuzz::fail("a buffer was touched by a call that failed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view input = fuzz::bytes(data, size);
    const std::string key = fuzz::take_argument(input);
    const std::string size_text = fuzz::take_argument(input);
    std::optional<int32_t> value_size;
    if (size_text != "-")
        value_size = static_cast<int32_t>(std::clamp(std::strtol(size_text.c_str(), nullptr, 10), -2L, 300L));

    check_line(std::string(input));
    check_value(naive::up_to_nul(std::string(input)), key, value_size);
    return 0;
}
