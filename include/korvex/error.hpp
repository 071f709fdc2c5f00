/// @file
/// What went wrong: one class of exceptions, one category of codes, and the words for both.
///
/// A failure throws `korvex::error`. Its code says what happened, its `subject()` which path or peer it is about, and
/// its `what()` the whole in one line:
///
///     can't set 'workgroup' of [global] in '/etc/config/smb.conf': the lock was not obtained in 10 s
///
/// Codes compare with `korvex::errc`, and with `std::errc` where that has the same meaning:
///
///     catch (const korvex::error &failure) {
///         if (failure.code() == std::errc::no_such_file_or_directory) ...
///         if (failure.code() == korvex::errc::changed_meanwhile) ...
///     }
#ifndef KORVEX_ERROR_HPP
#define KORVEX_ERROR_HPP

#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace korvex {

/// No limit of time.
inline constexpr std::chrono::milliseconds forever{-1};

/// What has a meaning of its own here: the library's codes, then those of the layer, for which there is no errno.
enum class errc : int {
    no_such_section = ENOANO,
    no_such_key = ENODATA,
    not_a_regular_file = ENOMEDIUM,
    lock_not_obtained = ENOLCK,
    time_is_over = ETIME,
    queue_stopped = EXFULL,
    canceled = ECANCELED,

    changed_meanwhile = 5001,   ///< somebody who takes no lock changed the file
    expectation_failed,         ///< a value is not the one that `expect` asked for
    lock_lost,                  ///< the lock was taken over, or is about to be: ten minutes are over
    would_not_read_back,        ///< a name or value that the format can't hold
    not_carried_over,           ///< an attribute of the old file that the new one can't be given
    not_a_number,               ///< a value that is not of the type asked for
    peer_closed,                ///< the other side ended the connection before all had come
    no_certificate,             ///< the peer of a TLS session has shown none
    not_trusted,                ///< no trusted authority vouches for the peer's certificate
    certificate_expired,        ///< a certificate's time is over
    certificate_not_yet_valid,  ///< a certificate's time has not begun
    name_mismatch,              ///< the peer's certificate is not for the name that was asked for
    not_verified,               ///< OpenSSL refuses the certificate for another reason, which it says
};

namespace detail {

struct code_text {
    int code;
    const char *text;
};

inline constexpr code_text code_texts[] = {
    {ENOANO, "no such section"},
    {ENODATA, "no such key"},
    {ENOMEDIUM, "not a regular file"},
    {ENOLCK, "the lock was not obtained in 10 s"},
    {ETIME, "the time is over"},
    {EXFULL, "the queue is full or stopped"},
    {ECANCELED, "stopped on request"},
    {EINVAL, "an argument is not valid"},
    {ENOENT, "no such file or folder"},
    {EOVERFLOW, "the value does not fit"},
    {ENAMETOOLONG, "the path is too long"},
    {EIO, "not everything could be read or written"},
    {static_cast<int>(errc::changed_meanwhile), "somebody changed the file meanwhile"},
    {static_cast<int>(errc::expectation_failed), "a value is not the expected one"},
    {static_cast<int>(errc::lock_lost), "the lock was lost meanwhile"},
    {static_cast<int>(errc::would_not_read_back), "it would not read back as it is written"},
    {static_cast<int>(errc::not_carried_over), "an attribute of the old file can't be given to the new one"},
    {static_cast<int>(errc::not_a_number), "the value is not of the type that was asked for"},
    {static_cast<int>(errc::peer_closed), "the peer closed the connection"},
    {static_cast<int>(errc::no_certificate), "the peer has shown no certificate"},
    {static_cast<int>(errc::not_trusted), "no trusted authority has signed the peer's certificate"},
    {static_cast<int>(errc::certificate_expired), "the peer's certificate has expired"},
    {static_cast<int>(errc::certificate_not_yet_valid), "the peer's certificate is not valid yet"},
    {static_cast<int>(errc::name_mismatch), "the peer's certificate is for another name"},
    {static_cast<int>(errc::not_verified), "the peer's certificate was refused"},
};

class library_category final : public std::error_category {
  public:
    const char *name() const noexcept override { return "korvex"; }

    std::string message(int code) const override {
        for (const code_text &known : code_texts)
            if (known.code == code)
                return known.text;

        // The system's own words, in lower case like all others ("EPERM"-like ones excepted).
        std::string text = std::generic_category().message(code);
        if (text.size() > 1 && text[0] >= 'A' && text[0] <= 'Z' && text[1] >= 'a' && text[1] <= 'z')
            text[0] = static_cast<char>(text[0] - 'A' + 'a');
        return text;
    }

    std::error_condition default_error_condition(int code) const noexcept override {
        switch (code) {
            case static_cast<int>(errc::lock_lost):
                return std::errc::no_lock_available;
            case static_cast<int>(errc::peer_closed):
                return std::errc::connection_reset;
            case static_cast<int>(errc::would_not_read_back):
            case static_cast<int>(errc::not_a_number):
                return std::errc::invalid_argument;
            default:
                return code < first_own_code ? std::error_condition(code, std::generic_category())
                                             : std::error_condition(code, *this);
        }
    }

    // The library's end of a wait is ETIME; to std::errc that is a stream's, and who asks for `timed_out` means it,
    // too.
    bool equivalent(int code, const std::error_condition &condition) const noexcept override {
        return default_error_condition(code) == condition || (code == ETIME && condition == std::errc::timed_out);
    }

  private:
    static constexpr int first_own_code = static_cast<int>(errc::changed_meanwhile);
};

}  // namespace detail

/// @return the category of all codes of this library: errno values and those of `errc`.
inline const std::error_category &category() noexcept {
    static const detail::library_category the_category;
    return the_category;
}

/// @param code  one of `errc`, which converts by itself
/// @return its code, of this category
inline std::error_code make_error_code(errc code) noexcept {
    return {static_cast<int>(code), category()};
}

/// A failure: what could not be done, to what, and why. Copies share their texts, so copying never throws.
class error : public std::system_error {
  public:
    /// @param code     an errno, positive, or one of `errc`
    /// @param action   what could not be done, up to the subject: "can't read"
    /// @param subject  the path or peer that it is about
    /// @param reason   why, where the code's own text says less
    error(int code, std::string_view action, std::string_view subject, std::string_view reason = {})
        : std::system_error(code, category()),
          texts_(std::make_shared<const texts>(action, subject, reason.empty() ? this->code().message() : reason)) {}
    /// @param code, action, subject, reason  likewise
    error(errc code, std::string_view action, std::string_view subject, std::string_view reason = {})
        : error(static_cast<int>(code), action, subject, reason) {}

    /// @return the path or peer that it is about, as it was given
    const std::string &subject() const noexcept { return texts_->subject; }
    /// @return why, without what and on what
    const std::string &reason() const noexcept { return texts_->reason; }
    /// @return all in one line
    const char *what() const noexcept override { return texts_->line.c_str(); }

  private:
    struct texts {
        texts(std::string_view action, std::string_view on, std::string_view why)
            : subject(on), reason(why), line(action) {
            line.append(" '").append(subject).append("': ").append(reason);
        }
        std::string subject;
        std::string reason;
        std::string line;
    };
    std::shared_ptr<const texts> texts_;
};

}  // namespace korvex

/// @cond  What the standard library asks of a type of codes.
template <>
struct std::is_error_code_enum<korvex::errc> : std::true_type {};
/// @endcond

#endif
