/// @file
/// Internal: giving a new file what the old one is besides its content: owner, group, bits, access list, attributes.
#ifndef KORVEX_DETAIL_ATTRIBUTES_HPP
#define KORVEX_DETAIL_ATTRIBUTES_HPP

#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "korvex/error.hpp"

namespace korvex::detail {

/// Checksums that the kernel keeps of a file's content.
inline bool is_checksum(std::string_view attribute) noexcept {
    return attribute == "security.ima" || attribute == "security.evm";
}

/// Asks for a size, then for a value, as often as it grows in between. Nothing where there is none, or where the file
/// system has no such attributes.
///
/// @param code  receives 0, or why it can't be asked for
template <class Call>
std::optional<std::string> grown_value(const Call &call, int &code) {
    constexpr int tries = 100;
    for (int count = 0; count < tries; ++count) {
        ssize_t size = call(nullptr, 0);
        if (size >= 0) {
            std::string value(static_cast<std::size_t>(size), '\0');
            size = call(value.data(), value.size());
            if (size >= 0) {
                value.resize(static_cast<std::size_t>(size));
                code = 0;
                return value;
            }
        }
        if (errno == ERANGE)
            continue;
        code = errno != ENODATA && errno != EOPNOTSUPP ? errno : 0;
        return {};
    }
    code = ERANGE;
    return {};
}

/// The names of a file's extended attributes, its access lists among them.
///
/// @param code  receives 0, or why they can't be asked for
inline std::vector<std::string> attribute_names(int file, int &code) {
    const std::optional<std::string> list =
        grown_value([file](char *buffer, std::size_t size) { return ::flistxattr(file, buffer, size); }, code);
    std::vector<std::string> names;
    for (std::string_view rest = list ? *list : std::string_view(); !rest.empty();) {
        const std::size_t size = std::min(rest.find('\0'), rest.size());
        names.emplace_back(rest.substr(0, size));
        rest.remove_prefix(std::min(size + 1, rest.size()));
    }
    return names;
}

/// Carries one file's attributes over to another that only its owner can open so far. What can't be carried over throws
/// `errc::not_carried_over`; a lenient one goes on, and takes back bits rather than let somebody in who was not before.
class attribute_carrier {
  public:
    /// @param is_same_text  whether the new file's text comes from the old one: without that it gets no privileges
    /// @param action        what fails where it is not lenient
    attribute_carrier(int from, int to, std::string_view path, bool is_lenient, bool is_same_text,
                      std::string_view action = "can't replace")
        : from_(from), to_(to), path_(path), action_(action), is_lenient_(is_lenient), is_same_text_(is_same_text) {}

    // The owner first, since changing it takes set-id bits and capabilities away; the bits last, since access lists and
    // bits change each other.
    void carry() {
        struct stat source {};
        struct stat target {};
        if (::fstat(from_, &source) != 0 || ::fstat(to_, &target) != 0)
            throw error(errno, "can't look at", path_);

        carry_owner(source, target);
        carry_extended();
        if (::fchmod(to_, bits_for(source.st_mode)) != 0)
            fail("permission bits", errno);
    }

    /// The first thing that a lenient one could not carry, and why; empty where it carried all.
    const std::string &failure() const noexcept { return failure_; }

  private:
    void carry_owner(const struct stat &source, const struct stat &target) {
        has_owner_ = source.st_uid == target.st_uid;
        has_group_ = source.st_gid == target.st_gid;
        if ((has_owner_ && has_group_) || ::fchown(to_, source.st_uid, source.st_gid) == 0) {
            has_owner_ = has_group_ = true;
            return;
        }
        fail("owner", errno);
        has_group_ = has_group_ || ::fchown(to_, static_cast<uid_t>(-1), source.st_gid) == 0;
    }

    // Set-id bits are kept only for the old owner and group. Where the group or the access list differs, the group gets
    // no more than everybody has: its old bits would let in whom they did not let in before.
    mode_t bits_for(mode_t mode) const {
        mode_t bits = mode & 07777U;
        if (!has_owner_ || !is_same_text_)
            bits &= ~static_cast<mode_t>(S_ISUID);
        if (!has_group_ || !is_same_text_)
            bits &= ~static_cast<mode_t>(S_ISGID);
        if (!has_group_ || !has_access_list_)
            bits &= ~static_cast<mode_t>(S_IRWXG) | (bits & S_IRWXO) << 3U;
        return bits;
    }

    void carry_extended() {
        const std::vector<std::string> wanted = names_of(from_);
        // What the folder gave the new file, such as a default access list, is not the old one's.
        for (const std::string &name : names_of(to_))
            if (std::find(wanted.begin(), wanted.end(), name) == wanted.end() && !belongs_to_content(name) &&
                ::fremovexattr(to_, name.c_str()) != 0 && errno != ENODATA)
                fail_extended(name, errno);

        for (const std::string &name : wanted) {
            const std::optional<std::string> value = belongs_to_content(name) ? std::nullopt : value_of(from_, name);
            if (!value || value == value_of(to_, name))
                continue;
            if (::fsetxattr(to_, name.c_str(), value->data(), value->size(), 0) != 0)
                fail_extended(name, errno);
        }
    }

    // Checksums of the content, and privileges that it was given.
    bool belongs_to_content(std::string_view name) const noexcept {
        return is_checksum(name) || (name == "security.capability" && !is_same_text_);
    }

    std::vector<std::string> names_of(int file) {
        int code = 0;
        std::vector<std::string> names = attribute_names(file, code);
        if (code != 0)
            fail("extended attributes", code);
        return names;
    }

    // Nothing where it is gone.
    std::optional<std::string> value_of(int file, const std::string &name) {
        int code = 0;
        std::optional<std::string> value = grown_value(
            [file, &name](char *buffer, std::size_t size) { return ::fgetxattr(file, name.c_str(), buffer, size); },
            code);
        if (code != 0)
            fail("extended attributes", code);
        return value;
    }

    void fail_extended(const std::string &name, int reason) {
        if (name == "system.posix_acl_access")
            has_access_list_ = false;
        fail("attribute " + name, reason);
    }

    void fail(std::string_view what, int reason) {
        const std::string text = std::string(what).append(": ").append(category().message(reason));
        if (!is_lenient_)
            throw error(errc::not_carried_over, action_, path_, "the new file can't be given its " + text);
        if (failure_.empty())
            failure_ = text;
    }

    int from_;
    int to_;
    std::string_view path_;
    std::string_view action_;
    std::string failure_;
    bool is_lenient_;
    bool is_same_text_;
    bool has_owner_ = false;
    bool has_group_ = false;
    bool has_access_list_ = true;
};

}  // namespace korvex::detail

#endif
