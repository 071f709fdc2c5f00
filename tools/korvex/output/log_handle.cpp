#include "output/log_handle.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

#include "cli.h"
#include "files/descriptor.h"
#include "output/shown_name.h"

namespace korvex::cli {
namespace {

// The library removes a plain file that stands where a folder above the log has to be. A mistyped path must not cost
// a file here.
void refuse_file_as_folder(const std::filesystem::path &log, const std::string &file) {
    std::filesystem::path prefix;
    for (const auto &part : log.parent_path()) {
        prefix /= part;
        std::error_code ignored;
        const auto status = std::filesystem::status(prefix, ignored);
        if (std::filesystem::exists(status) && !std::filesystem::is_directory(status))
            throw file_failure(file, -ENOTDIR);
    }
}

// What the library's messages quote may be named by anybody: a line feed in a name must not begin a line of its own, nor
// an escape sequence reach the terminal. Here each message arrives in one piece, its stamp in front. In one write, so
// that processes that share the file don't mix their lines.
ssize_t write_shown(void *cookie, const char *bytes, size_t size) noexcept {
    try {
        std::string_view message(bytes, size);
        const bool ends = message.ends_with('\n');
        message.remove_suffix(ends ? 1 : 0);
        const std::string line = shown(message) + (ends ? "\n" : "");
        std::string_view rest = line;
        while (!rest.empty()) {
            const ssize_t written = write(static_cast<const Descriptor *>(cookie)->get(), rest.data(), rest.size());
            if (written <= 0)
                return 0;
            rest.remove_prefix(static_cast<size_t>(written));
        }
        return static_cast<ssize_t>(size);
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

int close_shown(void *cookie) {
    delete static_cast<Descriptor *>(cookie);
    return 0;
}

// A stream that shows what is written to it.
FILE *open_shown(Descriptor target) {
    auto cookie = std::make_unique<Descriptor>(std::move(target));
    FILE *const stream =
        fopencookie(cookie.get(), "a", {.read = nullptr, .write = write_shown, .seek = nullptr, .close = close_shown});
    if (stream == nullptr)
        throw std::bad_alloc();
    (void)cookie.release();
    std::setvbuf(stream, nullptr, _IONBF, 0);
    return stream;
}

}  // namespace

LogHandle open_log(const std::string &file, int clock, int date_format) {
    const std::filesystem::path path = std::filesystem::absolute(file);
    refuse_file_as_folder(path, file);

    Simp_Log *log = nullptr;
    const int32_t created =
        Simp_Log_Create(path.c_str(), &log, static_cast<uint32_t>(clock), static_cast<uint32_t>(date_format), 0);
    LogHandle handle(log);
    if (created < 0)
        throw file_failure(file, created);

    const int32_t opened = Simp_Log_Open(log, 0);
    if (opened < 0)
        throw file_failure(file, opened);

    return handle;
}

LibraryMessages::~LibraryMessages() {
    g_ptslLog = nullptr;
}

void LibraryMessages::show(const std::string &file) {
    constexpr int kDebugLevel = 3;
    // A log is a path, and standard error may have none that can be opened (a socket). So the log's stream gets standard
    // error's own descriptor, and with it the position that both then share.
    log_ = open_log(file.empty() ? "/dev/null" : file, 24, 3);
    Descriptor target(fcntl(file.empty() ? STDERR_FILENO : fileno(log_->fpLog), F_DUPFD_CLOEXEC, 3));
    if (target.get() >= 0)  // else nobody is there to be told
        std::fclose(std::exchange(log_->fpLog, open_shown(std::move(target))));
    g_ptslLog = log_.get();
    g_idLogLevel = kDebugLevel;
}

}  // namespace korvex::cli
