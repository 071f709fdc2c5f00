#include "settings.hpp"

#include <algorithm>

#include "note.hpp"

namespace {

constexpr std::string_view section = "settings";

// The answer is given when the new file is in place. That a power failure can't take it back would cost two waits for the
// disk a change: `.durable = true`.
const korvex::conf::transaction_options quick{.durable = false};

bool has_blank_ends(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    return !text.empty() && (blanks.find(text.front()) != blanks.npos || blanks.find(text.back()) != blanks.npos);
}

bool is_key(std::string_view text) {
    const auto is_bad = [](unsigned char byte) { return byte < ' ' || byte == '=' || byte == 0x7f; };
    return !text.empty() && text.size() <= 255 && !has_blank_ends(text) && text.find_first_of("[;#") != 0 &&
           std::ranges::none_of(text, is_bad);
}

answer bad_request(const char *why) {
    return {status::bad_request, why};
}

}  // namespace

answer settings::answer_to(const request &asked) try {
    if (asked.unreadable != status::done)
        return {asked.unreadable, asked.unreadable == status::too_long ? "too long" : "bad request"};
    switch (asked.command) {
        case 'G':
            return get(asked.text);
        case 'S':
            return set(asked.text);
        case 'U':
            return unset(asked.text);
        case 'L':
            return list();
        default:
            return bad_request("unknown command");
    }
} catch (const korvex::error &failure) {
    if (failure.code() == korvex::errc::lock_not_obtained)
        return {status::busy, "the settings are locked by another process"};
    // A line feed or a blank at an end. It would be another line of the file, or not come back as it went in.
    if (failure.code() == korvex::errc::would_not_read_back)
        return bad_request("not a value");
    note(log_, failure.what());
    return {status::failed, "failed"};
}

answer settings::get(std::string_view key) const {
    if (!is_key(key))
        return bad_request("not a key");
    const std::optional<std::string> value = korvex::conf::get(path_, section, key);
    if (!value)
        return {status::no_key, "no such key"};
    if (value->size() > longest_request)
        return {status::too_long, "too long"};
    return {status::done, *value};
}

answer settings::set(std::string_view pair) {
    // A key has no "=", so the first one ends it.
    const std::size_t equals = pair.find('=');
    const std::string_view key = pair.substr(0, equals);
    if (equals == pair.npos || !is_key(key))
        return bad_request("not a key");

    // The file's lock, which the call takes, keeps other threads out as well. But it is asked for once a millisecond, and
    // for ten seconds at most: a mutex in front of it hands the turn on at once, and lets no thread wait in vain.
    const std::lock_guard turn(changing_);
    korvex::conf::set(path_, section, key, pair.substr(equals + 1), quick);
    note(log_, "set " + std::string(key));
    return {};
}

answer settings::unset(std::string_view key) {
    if (!is_key(key))
        return bad_request("not a key");
    const std::lock_guard turn(changing_);
    if (!korvex::conf::erase(path_, section, key, quick))
        return {status::no_key, "no such key"};
    note(log_, "unset " + std::string(key));
    return {};
}

answer settings::list() const try {
    answer lines;
    const auto all = korvex::conf::document::read(path_);
    if (const auto ours = all.find(section))
        for (const korvex::conf::pair &pair : *ours)
            lines.text.append(pair.key).append("=").append(pair.value).append("\n");
    if (lines.text.size() > longest_answer)
        return {status::too_long, "too long"};
    return lines;
} catch (const korvex::error &failure) {
    if (failure.code() == std::errc::no_such_file_or_directory)
        return {};  // nothing was set yet
    throw;
}
