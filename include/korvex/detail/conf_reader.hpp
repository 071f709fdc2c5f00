/// @file
/// Internal: reading a key with the library's own reader.
#ifndef KORVEX_DETAIL_CONF_READER_HPP
#define KORVEX_DETAIL_CONF_READER_HPP

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "conffile.h"
#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/conf_text.hpp"
#include "korvex/detail/conf_value.hpp"
#include "korvex/detail/descriptor.hpp"
#include "korvex/detail/file_place.hpp"
#include "korvex/detail/private_copy.hpp"
#include "korvex/error.hpp"

namespace korvex::detail {

/// To the library a carriage return is an ordinary byte.
inline std::string_view shown_value(std::string_view value) noexcept {
    return value.substr(0, value.size() - (value.ends_with('\r') ? 1 : 0));
}

/// Reads a key of the file that `way` leads to, whatever its length; nothing where there is no file, section or key.
/// `path` is what failures call the file.
inline std::optional<std::string> read_key(const char *way, std::string_view path, std::string_view section,
                                           std::string_view key) {
    const c_text<> c_section(section);
    const c_text<> c_key(key);
    std::array<char, 512> small;
    auto size = static_cast<std::int32_t>(small.size());
    std::int32_t result = Get_Conf_File_String_Value(way, c_section, c_key, small.data(), &size);
    if (result == 0)
        return std::string(shown_value({small.data(), static_cast<std::size_t>(size)}));

    // A writer may make it longer still between two looks.
    std::string large;
    while (result == -EOVERFLOW) {
        large.resize(static_cast<std::size_t>(size) + 1);
        size = static_cast<std::int32_t>(large.size());
        result = Get_Conf_File_String_Value(way, c_section, c_key, large.data(), &size);
    }
    if (result == -ENOENT || result == -ENOANO || result == -ENODATA)
        return {};
    if (result < 0)
        throw error(-result, "can't read " + key_name(section, key) + " in", path);
    return std::string(shown_value({large.data(), static_cast<std::size_t>(size)}));
}

/// The same of an open file: no name is looked up.
inline std::optional<std::string> read_key(int file, std::string_view path, std::string_view section,
                                           std::string_view key) {
    const std::string way = "/proc/self/fd/" + std::to_string(file);
    return read_key(way.c_str(), path, section, key);
}

/// A file of its own for a text, which nobody else sees.
inline descriptor file_in_memory(std::string_view text, std::string_view path) {
    descriptor file(check_system(::memfd_create("korvex", MFD_CLOEXEC), "can't read", path));
    write_content(file.get(), text, path);
    return file;
}

/// The same of a file that begins with a byte order mark, which hides the section in its first line: a copy without it,
/// in memory, is read. Nothing for all other files.
inline std::optional<std::string> read_key_behind_mark(const char *path, std::string_view section,
                                                       std::string_view key) {
    const descriptor file = open_without_hanging(AT_FDCWD, path, 0);
    std::array<char, conf_style::mark.size()> start;
    if (!file || ::pread(file.get(), start.data(), start.size(), 0) != static_cast<ssize_t>(start.size()) ||
        std::string_view(start.data(), start.size()) != conf_style::mark)
        return {};

    std::string body;
    (void)conf_style::of(content_of(file.get(), path), body);
    const descriptor copy = file_in_memory(body, path);
    return read_key(copy.get(), path, section, key);
}

}  // namespace korvex::detail

#endif
