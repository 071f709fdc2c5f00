// What the fuzz targets share: a private place to work in, the library's messages, and the comparison with the model.
//
// An input of the targets that work on files begins with lines for the call's arguments; the rest is the file's text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "conffile.h"
#include "naive_conf.h"

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fuzz {

// The folder that the file-based targets use: in memory, seen by this process alone, gone when it ends.
inline constexpr const char *kFolder = "/var/lock/fuzz";
inline constexpr const char *kFile = "/var/lock/fuzz/conf";

inline std::string_view bytes(const uint8_t *data, size_t size) {
    return {reinterpret_cast<const char *>(data), size};
}

// Cuts the first line off an input, as an argument: without its line feed, and ending before a NUL.
std::string take_argument(std::string_view &input);

void write_file(const std::string &path, std::string_view content);
std::optional<std::string> read_file(const std::string &path);  // none: it does not exist

// The library's messages since the last call, in the model's form.
naive::Messages take_messages();

// A list of nodes in the model's form.
std::vector<naive::Section> copy_of(const Sect_Node *conf);

// Checks the count of a list, and that each value lies where a node promises it: inside its block, right behind the
// key or, where the key runs on into it, at the key's end.
void check_nodes(const Sect_Node *conf, int32_t count);

// How a failed comparison is printed.
std::string shown(const std::string &text);
std::string shown(const naive::Parsed &parsed);
std::string shown(const naive::Got &got);
std::string shown(const naive::Edited &edited);

[[noreturn]] void fail(const std::string &what);

template <typename Outcome>
void compare(const Outcome &expected, const Outcome &got) {
    if (!(expected == got))
        fail("expected " + shown(expected) + "\ngot " + shown(got));
}

}  // namespace fuzz
