#include "conf/conf_failure.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "korvex/lock.hpp"
#include "korvex/text.hpp"

namespace korvex::cli {
namespace {

namespace fs = std::filesystem;

// Where a chain of links ends; the kernel follows at most 40.
fs::path end_of_links(fs::path path) {
    std::error_code failure;
    for (int links = 0; links < 40 && fs::is_symlink(fs::symlink_status(path, failure)); ++links)
        path = path.parent_path() / fs::read_symlink(path, failure);
    return path;
}

// The topmost folder of a path that is missing; empty where all are there.
std::string missing_folder(const std::string &file) {
    std::error_code failure;
    fs::path missing;
    for (fs::path folder = end_of_links(file).parent_path();
         !folder.empty() && fs::status(folder, failure).type() == fs::file_type::not_found;
         folder = folder.parent_path())
        missing = folder;
    return missing.native();
}

// As a shell takes it for one word.
std::string as_word(std::string_view name) {
    constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.+-@:/";
    const bool is_plain = name.find_first_not_of(plain) == std::string_view::npos;
    return is_plain ? std::string(name) : "'" + std::string(name) + "'";
}

// "; did you mean ...": the same key in other letters, or the first section that has it.
std::string other_place(const ConfPlace &place, const conf::document &document) {
    if (const std::string key = as_spelled(place, document).key; key != place.key)
        return "; did you mean '" + key + "'?";
    for (const conf::section &section : document)
        if (!section.name().empty() && section.name() != place.section && section.find(place.key))
            return "; did you mean -s " + as_word(section.name()) + "?";
    return "";
}

std::string holder_text(const std::string &file) {
    const lock_state state = inspect(end_of_links(file));
    if (state.status == lock_status::held)
        return ", held by process " + std::to_string(state.pid) + " (" + state.program + ") for " +
               duration_text(std::chrono::duration_cast<std::chrono::seconds>(state.age));
    return "";
}

Failure lock_failure(const std::string &file) {
    std::string holder;
    try {
        holder = holder_text(file);
    } catch (const error &) {
        // A lock that can't be read: nothing more to tell.
    }
    return {kNegativeAnswer,
            file + ": lock not obtained within " + std::to_string(usual_wait.count()) + " seconds" + holder};
}

// The system's own words as all other commands print them, unless the layer has better ones.
std::string reason_text(const error &failure) {
    const std::string text = error_text(failure.code().value());
    const bool is_same = text.size() == failure.reason().size() && text.substr(1) == failure.reason().substr(1);
    return is_same ? text : failure.reason();
}

// What was tried, where that tells more than the reason alone: "can't make a file beside '/etc/config/f': ".
std::string action_text(const error &failure) {
    const std::string_view line = failure.what();
    const std::string_view action = line.substr(0, line.size() - failure.reason().size());
    for (const std::string_view plain : {"can't open '", "can't read '", "can't write '", "can't find '"})
        if (action.starts_with(plain))
            return "";
    const bool is_of_a_key = failure.code() != errc::would_not_read_back && action.find(" in '") != std::string::npos;
    return is_of_a_key ? "" : std::string(action);
}

}  // namespace

Failure missing_file(const std::string &file, int exit_status) {
    const std::string folder = missing_folder(file);
    return {exit_status, file + (folder.empty() ? ": no such file" : ": no such folder: '" + folder + "'")};
}

std::string section_text(const std::string &section) {
    return section.empty() ? "before the first section" : "in section '" + section + "'";
}

Failure missing_section(const ConfPlace &place, const conf::document &document) {
    if (place.section.empty())
        return {kNegativeAnswer, place.file + ": no pairs before the first section"};
    const std::string meant = as_spelled(place, document).section;
    return {kNegativeAnswer, place.file + ": no section '" + place.section + "'" +
                                 (meant == place.section ? "" : "; did you mean '" + meant + "'?")};
}

Failure missing_key(const ConfPlace &place, const conf::document &document) {
    if (!place.section.empty() && !document.find(place.section))
        return missing_section(place, document);
    return {kNegativeAnswer,
            place.file + ": no key '" + place.key + "' " + section_text(place.section) + other_place(place, document)};
}

Failure conf_failure(const std::string &file, const error &failure) {
    const std::error_code code = failure.code();
    if (code == errc::lock_not_obtained)
        return lock_failure(file);
    // A folder that is missing is said to be; that of the locks is another matter.
    if (code == std::errc::no_such_file_or_directory && !failure.subject().starts_with(lock_folder))
        return missing_file(file, kFailure);
    return {kFailure, file + ": " + action_text(failure) + reason_text(failure)};
}

Failure reading_failure(const std::string &file, const error &failure) {
    return failure.code() == std::errc::no_such_file_or_directory ? missing_file(file) : conf_failure(file, failure);
}

conf::document read_document(const std::string &file) {
    try {
        return conf::document::read(file);
    } catch (const error &failure) {
        throw reading_failure(file, failure);
    }
}

}  // namespace korvex::cli
