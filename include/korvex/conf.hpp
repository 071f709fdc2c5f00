/// @file
/// Configuration files: single keys, whole documents, and several changes as one step.
///
///     const std::string group = korvex::conf::get("/etc/config/smb.conf", "global", "workgroup").value_or("WORKGROUP");
///     const bool guests = korvex::conf::get_as<bool>("/etc/config/smb.conf", "homes", "guest ok").value_or(false);
///     korvex::conf::set("/etc/config/smb.conf", "global", "netbios name", "ATTIC");
///
/// The format is that of the C interface (conffile.h): sections of "key = value" lines, names compared byte for byte,
/// the first one of a name is used, "" is the section before the first header.
#ifndef KORVEX_CONF_HPP
#define KORVEX_CONF_HPP

#include <optional>
#include <string>
#include <string_view>

#include "korvex/conf_document.hpp"
#include "korvex/conf_transaction.hpp"
#include "korvex/detail/c_text.hpp"
#include "korvex/detail/conf_reader.hpp"
#include "korvex/detail/conf_value.hpp"
#include "korvex/path_view.hpp"

namespace korvex::conf {

/// Reads a key. Takes no lock, since a file is only ever replaced as a whole.
///
/// @param path          the file
/// @param section, key  where to look
/// @return the value, however long; nothing where there is no such file, section or key. What else keeps the file from
///         being read is thrown.
///
/// The value is what the C interface reads, without a carriage return at its end. A byte order mark hides a section in
/// the first line of a file from the C interface: its keys then count for section "". So such a file is read as it is
/// first, and without the mark only where that finds nothing: a second section of the same name goes before the first.
/// A `transaction` reads such a file without the mark.
inline std::optional<std::string> get(path_view path, std::string_view section, std::string_view key) {
    const detail::c_path c_path(path);
    std::optional<std::string> value = detail::read_key(c_path, path, section, key);
    if (!value)
        return detail::read_key_behind_mark(c_path, section, key);
    return value;
}

/// Reads a key as a number or a truth value.
///
/// @param path, section, key  as for `get`
/// @param range               what a number may be, both ends included
/// @return the value; nothing where there is none. A text that is not of the type throws `errc::not_a_number`, a number
///         outside the range `std::errc::result_out_of_range`.
///
/// A truth value is true for yes, on, 1 and true, false for no, off, 0 and false, in upper and lower case. A number is
/// in decimal, with nothing around it.
template <value_type Type>
std::optional<Type> get_as(path_view path, std::string_view section, std::string_view key, range<Type> range = {}) {
    const std::optional<std::string> text = get(path, section, key);
    if (!text)
        return {};
    return detail::value_or_throw<Type>(*text, path, section, key, range);
}

/// Sets one key: a transaction with one change, with all that a transaction keeps.
///
/// @param path, section, key, value  as for `transaction`
/// @param options                    as for `transaction`
inline void set(path_view path, std::string_view section, std::string_view key, std::string_view value,
                const transaction_options &options = {}) {
    transaction edit(path, options);
    edit.set(section, key, value);
    edit.commit();
}

/// Sets one key to a number in decimal, or to yes or no.
///
/// @param path, section, key, value, options  as for the texts
template <value_type Type>
void set(path_view path, std::string_view section, std::string_view key, Type value,
         const transaction_options &options = {}) {
    set(path, section, key, std::string_view(detail::text_of(value)), options);
}

/// Removes one key's line.
///
/// @param path, section, key  where
/// @param options             as for `transaction`
/// @return whether it was there
inline bool erase(path_view path, std::string_view section, std::string_view key,
                  const transaction_options &options = {}) {
    transaction edit(path, options);
    const bool is_there = edit.erase(section, key);
    if (is_there)
        edit.commit();
    return is_there;
}

}  // namespace korvex::conf

#endif
