/// @file
/// A whole configuration in memory: sections and pairs as ranges, to read, change and write.
///
///     korvex::conf::document config = korvex::conf::document::read("/etc/config/smb.conf");
///     for (const auto &section : config)
///         for (const auto &pair : section)
///             std::cout << section.name() << ": " << pair.key << " = " << pair.value << '\n';
#ifndef KORVEX_CONF_DOCUMENT_HPP
#define KORVEX_CONF_DOCUMENT_HPP

#include <fcntl.h>
#include <stdio.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "conffile.h"
#include "korvex/conf_transaction.hpp"
#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/detail/conf_reader.hpp"
#include "korvex/detail/conf_text.hpp"
#include "korvex/detail/conf_value.hpp"
#include "korvex/detail/record_list.hpp"
#include "korvex/path_view.hpp"

namespace korvex::conf {

/// One "key = value" of a document; its texts live until the key is set or removed, or the document ends.
struct pair {
    std::string_view key;    ///< without blanks around
    std::string_view value;  ///< likewise
};

/// One section of a document: a view, which lives as the document does.
class section {
    struct pair_traits {
        using record = Pair_Node;
        using element = conf::pair;
        static const record *next(const record &at) noexcept { return at.pNext; }
        static element show(const record &at) noexcept { return {at.szKey, detail::shown_value(at.pszValue)}; }
    };

  public:
    /// A forward iterator over `pair`.
    using iterator = detail::record_iterator<pair_traits>;

    /// @param node  of the C interface
    explicit section(const Sect_Node &node) noexcept : node_(&node) {}

    /// @return its name; "" for what stands before the first header
    std::string_view name() const noexcept { return node_->szName; }
    /// @return the first pair
    iterator begin() const noexcept { return iterator(node_->pPairs); }
    /// @return the end of the range
    iterator end() const noexcept { return iterator(); }

    /// Finds a key, the first one where it repeats.
    ///
    /// @param key  its name
    /// @return its value; nothing where there is none
    std::optional<std::string_view> find(std::string_view key) const noexcept {
        for (const conf::pair &pair : *this)
            if (pair.key == key)
                return pair.value;
        return {};
    }

  private:
    const Sect_Node *node_;
};

/// Owns the sections of a configuration. Comments, layout and bad lines are not part of it: what it writes has none, so
/// use a `transaction` to change a file that people edit.
class document {
    struct section_traits {
        using record = Sect_Node;
        using element = conf::section;
        static const record *next(const record &at) noexcept { return at.pNext; }
        static element show(const record &at) noexcept { return element(at); }
    };

  public:
    /// A forward iterator over `section`.
    using iterator = detail::record_iterator<section_traits>;

    /// Without sections.
    document() = default;

    /// Reads a text. Lines that are neither header, pair, comment nor empty are passed over, with a message of the
    /// library; a NUL ends the text. A byte order mark and carriage returns that end all lines are kept apart, and
    /// written again.
    ///
    /// @param text  of a configuration
    /// @return its sections
    static document parse(std::string_view text) {
        std::string body;
        document made;
        made.style_ = detail::conf_style::of(text, body);
        body += '\n';  // what follows the last line feed is not parsed
        Sect_Node *first = nullptr;
        detail::check(Parse_Conf_Cache(body.data(), &first), "can't parse", "a configuration");
        made.first_.reset(first);
        return made;
    }

    /// Reads a file.
    ///
    /// @param path  a link is followed; throws `std::errc::no_such_file_or_directory` where there is none
    /// @return its sections
    static document read(path_view path) {
        const detail::descriptor file = detail::open_regular(AT_FDCWD, detail::c_path(path), 0, path);
        if (!file)
            throw error(ENOENT, "can't read", path);
        return parse(detail::content_of(file.get(), path));
    }

    /// @return the first section
    iterator begin() const &noexcept { return iterator(first_.get()); }
    /// @return the end of the range
    iterator end() const &noexcept { return iterator(); }
    iterator begin() const && = delete;
    iterator end() const && = delete;
    /// @return whether there is no section
    bool empty() const noexcept { return first_ == nullptr; }

    /// Finds the first section of a name.
    ///
    /// @param name  of the section; "" for what stands before the first header
    /// @return a view of it; nothing where there is none
    std::optional<conf::section> find(std::string_view name) const &noexcept {
        if (name.empty())
            return first_ && *first_->szName == '\0' ? std::optional(conf::section(*first_)) : std::nullopt;
        for (const conf::section &section : *this)
            if (section.name() == name)
                return section;
        return {};
    }
    /// Finds a key in the first section of a name.
    ///
    /// @param name  of the section
    /// @param key   of the pair
    /// @return its value; nothing where there is none
    std::optional<std::string_view> find(std::string_view name, std::string_view key) const &noexcept {
        const std::optional<conf::section> section = find(name);
        return section ? section->find(key) : std::nullopt;
    }
    std::optional<conf::section> find(std::string_view) const && = delete;
    std::optional<std::string_view> find(std::string_view, std::string_view) const && = delete;

    /// Sets a key, the first one where it repeats; a missing key or section is added. Refuses what would not read back:
    /// see `transaction::set`.
    ///
    /// @param section, key, value  as for `transaction::set`
    void set(std::string_view section, std::string_view key, std::string_view value) {
        detail::refuse_unwritable("a configuration", section, key, value);
        if (!find(section))
            add(section);
        const detail::c_text<> c_section(section);
        detail::check(Set_Conf_String_Value(first_.get(), c_section, detail::c_text<>(key), detail::c_text<>(value)),
                      "can't set " + detail::key_name(section, key) + " in", "a configuration");
    }
    /// Sets a key to a number in decimal, or to yes or no.
    ///
    /// @param section, key, value  as for the texts
    template <value_type Type>
    void set(std::string_view section, std::string_view key, Type value) {
        set(section, key, std::string_view(detail::text_of(value)));
    }

    /// Removes a key.
    ///
    /// @param section, key  where
    /// @return whether it was there
    bool erase(std::string_view section, std::string_view key) {
        if (!find(section, key))
            return false;
        const detail::c_text<> c_section(section);
        detail::check(Set_Conf_String_Value(first_.get(), c_section, detail::c_text<>(key), nullptr),
                      "can't erase " + detail::key_name(section, key) + " in", "a configuration");
        return true;
    }
    /// Removes the first section of a name with its pairs.
    ///
    /// @param name  of the section
    /// @return whether it was there
    bool erase(std::string_view name) {
        Sect_Node *before = nullptr;
        for (Sect_Node *at = first_.get(); at != nullptr; before = std::exchange(at, at->pNext)) {
            if (at->szName != name || (name.empty() && before != nullptr))
                continue;
            Sect_Node *const rest = std::exchange(at->pNext, nullptr);
            if (before != nullptr)
                before->pNext = rest;
            else
                (void)first_.release();
            const owner removed(at);
            if (before == nullptr)
                first_.reset(rest);
            return true;
        }
        return false;
    }

    /// Throws `errc::would_not_read_back` where a section without a name ("[]") is not the first one: it would be written
    /// without a header, and its pairs become another one's. `erase` can't remove it either; no reader finds its keys.
    ///
    /// @return the text as it would be written
    std::string text() const {
        for (const Sect_Node *at = first_ ? first_->pNext : nullptr; at != nullptr; at = at->pNext)
            if (*at->szName == '\0')
                throw error(errc::would_not_read_back, "can't write", "a configuration",
                            "a section without a name is not the first one");
        char *text = nullptr;
        std::size_t size = 0;
        FILE *const stream = ::open_memstream(&text, &size);
        if (stream == nullptr)
            throw error(errno, "can't write", "a configuration");
        Write_Sect_Node(stream, first_.get());
        const bool is_whole = ::ferror(stream) == 0;
        const bool is_closed = ::fclose(stream) == 0;
        const std::unique_ptr<char, decltype(&std::free)> owned(text, std::free);
        if (!is_whole || !is_closed)
            throw error(ENOMEM, "can't write", "a configuration");
        return style_.text_with({text, size});
    }

    /// Replaces a file as a whole, under its lock, by what a transaction's commit does: attributes, links and durability
    /// are kept, and a full disk leaves the old file. What others changed since `read` is overwritten.
    ///
    /// @param path     the file; it need not exist
    /// @param options  as for `transaction`
    void write(path_view path, const transaction_options &options = {}) const {
        const std::string text = this->text();
        const detail::file_place place(path);
        const file_lock lock(place.path(), options.wait, lock_kind::common, options.stop);
        const detail::file_snapshot before(place);
        detail::private_copy copy(place, text);
        const detail::replacement_rules rules = detail::rules_of(options);
        detail::replacement(place, before, copy, rules).finish(text, [&] {
            detail::refuse_lost_lock(lock, place.path());
        });
    }

    /// @return the first node, for calls of the C interface; it stays this document's
    const Sect_Node *get() const &noexcept { return first_.get(); }

  private:
    struct freer {
        void operator()(Sect_Node *first) const noexcept { Free_Sect_Node(first); }
    };
    using owner = std::unique_ptr<Sect_Node, freer>;

    // The section without a name has no header, so anywhere but at the beginning its pairs would become another one's.
    void add(std::string_view name) {
        Sect_Node *made = nullptr;
        detail::check(Create_Sect_Node(&made, detail::c_text<>(name)), "can't add a section to", "a configuration");
        if (name.empty() || first_ == nullptr) {
            made->pNext = first_.release();
            first_.reset(made);
            return;
        }
        Sect_Node *last = first_.get();
        while (last->pNext != nullptr)
            last = last->pNext;
        last->pNext = made;
    }

    owner first_;
    detail::conf_style style_;
};

}  // namespace korvex::conf

#endif
