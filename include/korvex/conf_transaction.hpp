/// @file
/// Several changes of one configuration file as one step, and nothing lost.
///
///     korvex::conf::transaction edit("/etc/config/smb.conf");
///     edit.set("global", "workgroup", "ATTIC");
///     edit.erase("homes", "guest ok");
///     edit.commit();  // or let it go: nothing happened
#ifndef KORVEX_CONF_TRANSACTION_HPP
#define KORVEX_CONF_TRANSACTION_HPP

#include <cerrno>
#include <chrono>
#include <concepts>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "conffile.h"
#include "korvex/detail/c_text.hpp"
#include "korvex/detail/conf_reader.hpp"
#include "korvex/detail/conf_text.hpp"
#include "korvex/detail/conf_value.hpp"
#include "korvex/detail/file_place.hpp"
#include "korvex/detail/private_copy.hpp"
#include "korvex/detail/replacement.hpp"
#include "korvex/detail/unified_diff.hpp"
#include "korvex/lock.hpp"
#include "korvex/path_view.hpp"

namespace korvex::conf {

/// How a transaction waits, writes and commits.
struct transaction_options {
    std::chrono::milliseconds wait = usual_wait;  ///< for the file's lock; `forever` has no limit
    bool durable = true;     ///< the new file is on the disk when `commit` returns; without it that takes a while
    std::string backup{};    ///< keeps the old file under its name and this suffix, such as "~"; empty: not
    bool force = false;      ///< commit over what somebody changed meanwhile without taking the lock
    bool lenient = false;    ///< commit even if an attribute of the old file can't be given to the new one
    std::stop_token stop{};  ///< ends the wait for the lock
};

}  // namespace korvex::conf

namespace korvex::detail {

inline replacement_rules rules_of(const conf::transaction_options &options) {
    if (options.backup.find('/') != std::string::npos)
        throw error(EINVAL, "can't keep a backup with the suffix", options.backup, "there is a '/' in it");
    return {.is_durable = options.durable,
            .is_lenient = options.lenient,
            .is_forced = options.force,
            .backup = options.backup};
}

/// Said just before the rename; what follows takes much less than the margin.
inline void refuse_lost_lock(const file_lock &lock, std::string_view path) {
    constexpr std::chrono::seconds margin{5};
    if (lock.time_left() < margin || !lock.is_held())
        throw error(errc::lock_lost, "can't replace", path);
}

}  // namespace korvex::detail

namespace korvex::conf {

/// Holds a file's common lock, which the library's own setters take, too, and a private copy of the file, in which the
/// edits are made. `commit` puts the copy into the file's place; without it nothing happened.
///
/// - A link stays a link: the file that it leads to is edited. A link of another user, root's excepted, is not followed
///   (ELOOP): he could have planted it. A file that is not there yet is made, as `open` would make it. Other hard links
///   of the file keep the old text.
/// - Edits are those of the library's own editor: every other line stays. Where all lines end in CR LF, new ones do,
///   too; a byte order mark stays and hides no section; so do empty lines at the start and an end without a line feed.
/// - The new file has the owner, group, bits, access list and extended attributes of the old one.
/// - Whatever fails, and wherever the process is killed, the file is the old one or the new one, whole. What may be
///   left is the private copy beside it, which `korvex temp` lists, and lock files that the next one takes over.
///
/// A set-id bit or a bit for the group is carried over only to the same owner and group. Between the last look at the
/// file and the rename there is a moment in which somebody who takes no lock can still change it unseen. One thread at
/// a time uses a transaction; it must be committed within ten minutes, when others take its lock over. Needs /proc.
class transaction {
  public:
    /// Takes the lock and makes the copy; the text comes into it with the first look or edit.
    ///
    /// @param path     the file; it need not exist, its folder must
    /// @param options  how to wait, write and commit
    ///
    /// Throws `errc::lock_not_obtained`; `errc::not_a_regular_file`; what opening, reading or writing met.
    explicit transaction(path_view path, const transaction_options &options = {})
        : state_(std::make_unique<state>(path, options)) {}

    /// Reads a key as it would be after the commit.
    ///
    /// @param section, key  where
    /// @return its value; nothing where there is none
    std::optional<std::string> get(std::string_view section, std::string_view key) const {
        (void)open_state();
        return detail::read_key(state_->filled_copy().file(), state_->place.path(), section, key);
    }

    /// As `get`, as a number or truth value: see `conf::get_as`.
    ///
    /// @param section, key  where
    /// @param range         what a number may be, both ends included
    /// @return its value; nothing where there is none
    template <value_type Type>
    std::optional<Type> get_as(std::string_view section, std::string_view key, range<Type> range = {}) const {
        const std::optional<std::string> text = get(section, key);
        if (!text)
            return {};
        return detail::value_or_throw<Type>(*text, state_->place.path(), section, key, range);
    }

    /// Sets a key; a missing key or section is added. What would not read back as it is written is refused
    /// (`errc::would_not_read_back`), and nothing changed: line feeds, blanks around, "=" in a key, "]" in a section.
    /// So is what would make other keys read otherwise: to the library a line that begins with "[" ends a section only
    /// if a "]" follows anywhere behind it.
    ///
    /// @param section  its name; "" for what stands before the first section
    /// @param key      not empty
    /// @param value    may be empty
    void set(std::string_view section, std::string_view key, std::string_view value) {
        detail::refuse_unwritable(open_state().place.path(), section, key, value);
        if (get(section, key) != value)
            edit(section, key, &value);
    }

    /// Sets a key to a number in decimal, or to yes or no.
    ///
    /// @param section, key, value  as for the texts
    template <value_type Type>
    void set(std::string_view section, std::string_view key, Type value) {
        set(section, key, std::string_view(detail::text_of(value)));
    }

    /// Removes a key's line, the first one where it repeats: the next one is read then.
    ///
    /// @param section, key  where
    /// @return whether it was there
    bool erase(std::string_view section, std::string_view key) {
        if (!get(section, key))
            return false;
        edit(section, key, nullptr);
        return true;
    }

    /// @return the whole text as it would be after the commit, for edits of other kinds: without a byte order mark and
    ///         empty lines at its start, and without the carriage returns where all lines end in one. All of these stay
    ///         in the file.
    const std::string &text() const { return open_state().body; }

    /// Puts another whole text in the place of `text()`. Single keys are better set and erased: that leaves every other
    /// byte as it is by itself.
    ///
    /// @param text  as `text()` gives it
    void rewrite(std::string_view text) {
        state &at = open_state();
        if (!at.first_copy)
            at.first_copy = detail::file_in_memory(at.body, at.place.path());
        at.body = text;
        at.style.take_empty_lines(at.body);
        at.is_filled = false;
    }

    /// Makes the commit conditional: it fails with `errc::expectation_failed` unless the file had this value when the
    /// transaction began.
    ///
    /// @param section, key  where
    /// @param value         the value, or nothing where the key must not be there
    void expect(std::string_view section, std::string_view key, std::optional<std::string_view> value) {
        const std::string &path = open_state().place.path();
        const std::optional<std::string> present = detail::read_key(state_->first_file(), path, section, key);
        if (present == value)
            return;
        state_->disappointment =
            detail::key_name(section, key) + " is " + shown(present) + ", expected " + shown(value);
    }

    /// @return the file's bytes as they would be after the commit, with its byte order mark and its ends of lines
    std::string file_text() const { return open_state().style.text_with(open_state().body); }

    /// @return what the commit would change, as `diff -u` writes it; empty for nothing
    std::string diff() const {
        const state &at = open_state();
        return detail::unified_diff(at.before.text(), at.style.text_with(at.body), at.place.path(), at.place.path());
    }

    /// Puts the new file in the old one's place, and releases the lock.
    ///
    /// Throws, and the file is the old one:
    /// - `errc::changed_meanwhile`: somebody who takes no lock changed the file since the transaction began;
    /// - `errc::expectation_failed`: the words name the key;
    /// - `errc::lock_lost`: ten minutes are over (but for a few seconds), or somebody removed the lock;
    /// - `errc::not_carried_over`: the new file can't be given the old one's owner, bits, access list or attributes;
    /// - what writing met, such as `std::errc::no_space_on_device`.
    /// After a failure a commit can be tried again. Only where the folder can't be brought to the disk, and the
    /// words say so, the new file is in place all the same. Where the edits changed nothing, nothing is written.
    void commit() {
        state &at = open_state();
        if (!at.disappointment.empty())
            throw error(errc::expectation_failed, "can't change", at.place.path(), at.disappointment);

        const std::string text = at.style.text_with(at.body);
        detail::replacement replacement(at.place, at.before, at.copy, at.rules);
        try {
            if (text != at.before.text() || !at.before.existed())
                replacement.finish(text, [&at] { detail::refuse_lost_lock(at.lock, at.place.path()); });
            else
                replacement.refuse_changed();
        } catch (...) {
            if (replacement.is_done())
                state_.reset();
            throw;
        }
        state_.reset();
    }

    /// @return the file that is edited, without links
    const std::string &path() const { return open_state().place.path(); }

  private:
    // Behind a pointer, so that a transaction moves.
    struct state {
        state(path_view given, const transaction_options &options)
            : place(given),
              lock(place.path(), options.wait, lock_kind::common, options.stop),
              before(place),
              style(detail::conf_style::of(before.text(), body)),
              copy(place, {}),
              rules(detail::rules_of(options)) {}

        // With the text, which it gets when it is first asked for: one that becomes shorter needs no room for the
        // longer.
        const detail::private_copy &filled_copy() {
            if (!is_filled)
                detail::write_content(copy.file(), body, copy.path());
            is_filled = true;
            return copy;
        }

        // The copy as it was at first; the library's editor replaces the file, and does not change it.
        int first_file() { return first_copy ? first_copy.get() : filled_copy().file(); }

        detail::file_place place;
        file_lock lock;
        detail::file_snapshot before;
        std::string body;
        detail::conf_style style;
        detail::private_copy copy;
        bool is_filled = false;
        detail::descriptor first_copy;
        detail::replacement_rules rules;
        std::string disappointment;
    };

    const state &open_state() const {
        if (!state_)
            throw error(EINVAL, "can't go on with", "the transaction", "it is committed");
        return *state_;
    }
    state &open_state() { return const_cast<state &>(std::as_const(*this).open_state()); }

    static std::string shown(const auto &value) { return value ? "'" + std::string(*value) + "'" : "absent"; }

    void edit(std::string_view section, std::string_view key, const std::string_view *value) {
        state &at = *state_;
        call_editor(section, key, value);

        detail::descriptor before = at.copy.reopen();
        if (!at.first_copy)
            at.first_copy = std::move(before);
        std::string body = detail::content_of(at.copy.file(), at.copy.path());
        if (!detail::is_edit_of(at.body, body, section, key, value))
            throw error(errc::changed_meanwhile, "can't go on with", at.copy.path(), "somebody put another file there");

        if (detail::open_headers(body) != detail::open_headers(at.body)) {
            detail::write_content(at.copy.file(), at.body, at.copy.path());
            throw error(errc::would_not_read_back, action_on(section, key, value), at.place.path(),
                        "a line begins with '[' and has no ']': it would change its meaning");
        }

        // The editor begins a text with an empty line where a key comes first.
        if (section.empty() && value != nullptr && body.starts_with('\n') && !at.body.starts_with('\n'))
            body.erase(0, 1);
        at.style.take_empty_lines(body);
        at.body = std::move(body);
    }

    void call_editor(std::string_view section, std::string_view key, const std::string_view *value) {
        state &at = *state_;
        const std::optional<detail::c_text<>> text =
            value != nullptr ? std::make_optional<detail::c_text<>>(*value) : std::nullopt;
        errno = 0;
        const std::int32_t result =
            Set_Conf_File_String_Value(at.filled_copy().way().c_str(), detail::c_text<>(section), detail::c_text<>(key),
                                       text ? text->get() : nullptr);
        const int reason = errno;
        if (result >= 0)
            return;
        // A text that could not be written is -1, and `errno` says why.
        throw error(result == -1 && reason != 0 ? reason : -result, action_on(section, key, value), at.place.path());
    }

    static std::string action_on(std::string_view section, std::string_view key, const std::string_view *value) {
        return (value != nullptr ? "can't set " : "can't erase ") + detail::key_name(section, key) + " in";
    }

    std::unique_ptr<state> state_;
};

}  // namespace korvex::conf

#endif
