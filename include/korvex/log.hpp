/// @file
/// Logs: stamped lines appended to a file that several processes may share.
///
///     korvex::log log("/var/log/app.log");
///     const korvex::library_log messages(log, korvex::log_level::errors);
///     log.write("started");
#ifndef KORVEX_LOG_HPP
#define KORVEX_LOG_HPP

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "korvex/detail/c_text.hpp"
#include "korvex/detail/call.hpp"
#include "korvex/path_view.hpp"
#include "simplog.h"

namespace korvex {

/// The clock of a stamp: 13:04:05, or 01:04:05 pm.
enum class hour_clock : std::uint16_t { h24 = 24, h12 = 12 };

/// How a date is written: the order of year, month and day, and what stands between them.
enum class date_format : std::uint16_t {
    ymd_slashes = 1,
    ymd_dots = 2,
    ymd_dashes = 3,  ///< 2024-01-31
    mdy_slashes = 4,
    mdy_dots = 5,
    mdy_dashes = 6,
    dmy_slashes = 7,
    dmy_dots = 8,
    dmy_dashes = 9,
};

/// How a log is opened and stamped.
struct log_options {
    hour_clock clock = hour_clock::h24;          ///< of 24 or 12 hours
    date_format date = date_format::ymd_dashes;  ///< how a date is written
    bool truncate = false;                       ///< empty the file first
};

/// A log that is open as long as it lives. Threads may share it for writing.
class log {
  public:
    /// Opens a log, and makes the folders above it.
    ///
    /// @param path     absolute. The C interface removes a plain file that stands where a folder is needed; this
    ///                 refuses (`std::errc::not_a_directory`) and touches nothing.
    /// @param options  clock and date of the stamp; whether what the file has goes
    explicit log(path_view path, log_options options = {}) : log(opened(path, options)) {}

    /// Makes a log on standard output.
    ///
    /// @param options  clock and date of the stamp
    /// @return the log, whose path is empty
    static log standard_output(log_options options = {}) { return log(created(nullptr, "standard output", options)); }

    /// Writes one line with its stamp; what it has after `longest_line` bytes would be cut, so a longer one is refused
    /// (EOVERFLOW), and so is one with a NUL (`std::errc::invalid_argument`). Waits up to 10 s while another program
    /// holds the log's watched lock, then writes in any case. A full disk throws `std::errc::no_space_on_device`.
    ///
    /// @param line  without a line feed at its end
    void write(std::string_view line) {
        if (line.size() > longest_line || line.find('\0') != std::string_view::npos)
            refuse(line);

        errno = 0;
        const std::int32_t result = Simp_Log_Write(handle_.get(), "%.*s", static_cast<int>(line.size()), line.data());
        if (result < 0)
            throw error(result == -EIO && errno != 0 ? errno : -result, "can't write to", name());
    }

    /// Opens the file anew: after something else has moved it away.
    void reopen() { detail::check(Simp_Log_Open(handle_.get(), 0), "can't open", name()); }

    /// @return its absolute path; empty for standard output
    std::string_view path() const noexcept { return handle_->szFilename; }
    /// @return the handle, for calls of the C interface; it stays this object's
    Simp_Log *handle() const noexcept { return handle_.get(); }

    /// The longest line that is written whole, whatever its stamp, in bytes.
    static constexpr std::size_t longest_line = 16'384;

  private:
    struct releaser {
        void operator()(Simp_Log *handle) const noexcept { Simp_Log_Release(handle); }
    };
    using owner = std::unique_ptr<Simp_Log, releaser>;

    explicit log(owner handle) noexcept : handle_(std::move(handle)) {}

    static owner created(const char *path, std::string_view name, log_options options) {
        Simp_Log *handle = nullptr;
        detail::check(Simp_Log_Create(path, &handle, static_cast<std::uint32_t>(options.clock),
                                      static_cast<std::uint32_t>(options.date), 0),
                      "can't make the log", name);
        return owner(handle);
    }

    static owner opened(path_view path, log_options options) {
        const std::string_view name = path;
        if (name.empty() || name.front() != '/')
            throw error(EINVAL, "can't make the log", name, "its path must be absolute");
        refuse_plain_file_above(name);

        owner handle = created(detail::c_path(name), name, options);
        detail::check(Simp_Log_Open(handle.get(), options.truncate ? 1 : 0), "can't open the log", name);
        return handle;
    }

    static void refuse_plain_file_above(std::string_view path) {
        const std::string folder(path.substr(0, path.find_last_of('/') + 1));
        struct stat status {};
        if (stat(folder.c_str(), &status) != 0 && errno == ENOTDIR)
            throw error(ENOTDIR, "can't make the log", path, "a file stands where a folder is needed");
    }

    [[noreturn]] void refuse(std::string_view line) const {
        if (line.size() > longest_line)
            throw error(EOVERFLOW, "can't write to", name(), "the line is longer than 16384 bytes");
        throw error(EINVAL, "can't write to", name(), "there is a NUL in the line");
    }
    std::string_view name() const noexcept { return path().empty() ? "standard output" : path(); }

    owner handle_;
};

/// Which of its own messages the library writes.
enum class log_level : std::int32_t { none = 0, errors = 1, debug = 3 };

/// As long as it lives, the library's own messages go to a log; then they go where they went before. The log must
/// outlive it. The library reads these settings without synchronisation: make it before there are threads.
class library_log {
  public:
    /// @param target  where to
    /// @param level   which messages
    library_log(log &target, log_level level) noexcept
        : handle_before_(std::exchange(g_ptslLog, target.handle())),
          level_before_(std::exchange(g_idLogLevel, static_cast<std::int32_t>(level))) {}
    ~library_log() {
        g_ptslLog = handle_before_;
        g_idLogLevel = level_before_;
    }
    library_log(const library_log &) = delete;
    library_log &operator=(const library_log &) = delete;

  private:
    Simp_Log *handle_before_;
    std::int32_t level_before_;
};

}  // namespace korvex

#endif
