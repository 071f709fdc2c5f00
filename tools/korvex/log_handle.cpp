#include "log_handle.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "cli.h"

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
    if (file.empty()) {
        // A log is a path, and standard error may have none that can be opened (a socket). So the log's stream gets
        // standard error's own descriptor, and with it the position that both then share.
        log_ = open_log("/dev/null", 24, 3);
        dup3(STDERR_FILENO, fileno(log_->fpLog), O_CLOEXEC);
    } else {
        log_ = open_log(file, 24, 3);
    }
    g_ptslLog = log_.get();
    g_idLogLevel = kDebugLevel;
}

}  // namespace korvex::cli
