// The log handle: making it and the folders above its file, opening, writing stamped lines, closing.
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/destination.h"
#include "base/handles.h"
#include "base/lock_time.h"
#include "base/log_wait.h"
#include "base/message.h"
#include "base/path_buffer.h"
#include "fileio.h"
#include "miscfunc.h"
#include "simplog.h"
#include "stamp.h"

static_assert(offsetof(Simp_Log, fpLog) == 0 && offsetof(Simp_Log, idTimeFormat) == 8 &&
              offsetof(Simp_Log, idDateFormat) == 10 && offsetof(Simp_Log, szFilename) == 12);

Simp_Log *g_ptslLog = nullptr;
int32_t g_idLogLevel = korvex::kErrorLevel;
int32_t g_bDebugOutput = 1;
Log_Output_Func g_pfError = nullptr;
Log_Output_Func g_pfDebug = nullptr;

[[gnu::tls_model("initial-exec")]] constinit thread_local int korvex::t_no_log_wait = 0;

namespace korvex::simplog {
namespace {

constexpr size_t kLineSize = 16464;
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0666;  // less the umask

// How deep this thread is in writes. A write can cause another: it reports its own failure, and the wait for a log's
// lock reports through the log. The inner one must do neither, or it would never end. initial-exec keeps the object
// free of the dynamic loader's TLS call, and so of a dependency besides libc.
[[gnu::tls_model("initial-exec")]] thread_local int t_write_depth = 0;

class WriteDepth final {
  public:
    WriteDepth() { t_write_depth++; }
    ~WriteDepth() { t_write_depth--; }
    WriteDepth(const WriteDepth &) = delete;
    WriteDepth &operator=(const WriteDepth &) = delete;

    bool nested() const { return t_write_depth > 1; }
};

using Line = std::array<char, kLineSize + 2>;  // a full line has room for its newline and the terminator

// Makes sure that a folder stands at `path`; a plain file there gives way to it.
int32_t ensure_folder(const char *path, const char *function) {
    struct stat status {};
    if (stat(path, &status) == 0) {
        if (S_ISDIR(status.st_mode))
            return 0;

        if (Fenwa_Really_Unlink(path) == -1) {
            const int32_t code = -errno;
            LOG_ERROR_AS(function, "Can't remove a file error! (%d, %s)\n", code, path);
            return code;
        }
    }

    if (mkdir(path, kFolderMode) != 0) {
        const int32_t code = -errno;
        LOG_ERROR_AS(function, "Can't create the folder \"%s\"! (%d)\n", path, code);
        return code;
    }
    return 0;
}

// Makes the folders above the last component; `path` is cut and mended at each slash on the way.
int32_t make_parents(char *path, const char *function) {
    if (path[0] == '\0')  // what "/" alone leaves
        return 0;

    for (char *slash = std::strchr(path + 1, '/'); slash != nullptr; slash = std::strchr(slash + 1, '/')) {
        *slash = '\0';
        const int32_t result = ensure_folder(path, function);
        *slash = '/';
        if (result != 0)
            return result;
    }
    return 0;
}

Simp_Log *new_log(const char *path, uint32_t time_format, uint32_t date_format, const char *function) {
    const size_t size = offsetof(Simp_Log, szFilename) + std::strlen(path) + 1;
    MallocPtr<Simp_Log> log(static_cast<Simp_Log *>(std::malloc(size)));
    if (!log) {
        LOG_ERROR_AS(function, "Can't allocate memory of %d bytes!\n", static_cast<int>(size));
        return nullptr;
    }

    log->fpLog = nullptr;
    log->idTimeFormat = static_cast<uint16_t>(time_format);
    log->idDateFormat = static_cast<uint16_t>(date_format);
    std::strcpy(log->szFilename, path);
    return log.release();
}

// Formats the message behind the stamp and ends the line. The line's length, or a negated errno.
[[gnu::format(printf, 3, 0)]] int32_t format_line(Line &line, const Simp_Log *log, const char *format,
                                                  va_list arguments, const char *function, bool quiet) {
    const bool open = log != nullptr && log->fpLog != nullptr;
    const size_t stamp = put_stamp(line.data(), open ? log->idTimeFormat : 24, open ? log->idDateFormat : 3);

    const int wanted = std::vsnprintf(&line[stamp], kLineSize - stamp, format, arguments);
    if (wanted < 0 || wanted >= static_cast<int>(kLineSize)) {
        const int32_t code = errno != 0 ? -errno : -EOVERFLOW;
        if (!quiet)
            LOG_ERROR_AS(function, "Can't generate the log message ! (%d, %d)\n", code, wanted);
        return code;
    }

    size_t length = stamp + std::strlen(&line[stamp]);
    if (line[length - 1] != '\n') {
        line[length++] = '\n';
        line[length] = '\0';
    }
    return static_cast<int32_t>(length);
}

// Appends a line to the log's file, after waiting for its lock.
int32_t append_line(const Simp_Log *log, const Line &line, int32_t length, const char *function, bool quiet) {
    const bool waits = !quiet && !NoLogWait::in_force();
    if (waits && Check_File_Lock(log->szFilename, kLockWaitMs) == 1) {
        LOG_ERROR_AS(function, "Can't write %d bytes to the log file. (%d)", length, -ETIME);
        return -ETIME;
    }

    const size_t written = std::fwrite(line.data(), 1, static_cast<size_t>(length), log->fpLog);
    if (written < static_cast<size_t>(length)) {
        if (!quiet)
            LOG_ERROR_AS(function, "Can't write %d bytes to the log file. (%d)", length, static_cast<int>(written));
        return -EIO;
    }

    std::fflush(log->fpLog);
    return 0;
}

}  // namespace
}  // namespace korvex::simplog

using namespace korvex;
using namespace korvex::simplog;

int32_t Simp_Log_Create(const char *pszPath, Simp_Log **pptslLog, uint32_t idTimeFormat, uint32_t idDateFormat,
                        int32_t bReset) {
    if (pptslLog == nullptr || (pszPath != nullptr && pszPath[0] != '/'))
        return -EINVAL;

    *pptslLog = nullptr;
    const bool to_stdout = pszPath == nullptr;
    PathBuffer<kPathSize> path;
    if (!path.assign({to_stdout ? "" : pszPath}))
        return -ENAMETOOLONG;

    if (!to_stdout) {
        if (path.back() == '/')
            path.cut(path.size() - 1);

        const int32_t result = make_parents(path.data(), __func__);
        if (result != 0)
            return result;
    }

    Simp_Log *log = new_log(path.c_str(), idTimeFormat, idDateFormat, __func__);
    if (log == nullptr)
        return -ENOMEM;

    if (to_stdout)
        log->fpLog = stdout;
    if (bReset != 0 && Simp_Log_Open(log, 1) == 0)
        Simp_Log_Close(log);
    *pptslLog = log;
    return 0;
}

int32_t Simp_Log_Open(Simp_Log *ptslLog, int32_t bTruncate) {
    if (ptslLog == nullptr)
        return -EINVAL;

    if (ptslLog->fpLog == stdout)
        return 0;

    UniqueFile(std::exchange(ptslLog->fpLog, nullptr)).reset();
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (bTruncate != 0 ? O_TRUNC : O_APPEND);
    UniqueFile stream;
    const int32_t result =
        open_destination({AT_FDCWD, ptslLog->szFilename, flags, kFileMode}, bTruncate != 0 ? "w" : "a", stream);
    if (result < 0) {
        LOG_ERROR("Can't open the log file \"%s\"! (%d)\n", ptslLog->szFilename, result);
        return result;
    }
    ptslLog->fpLog = stream.release();

    // A line goes out in one piece, however long: with a buffer of its own size the stream would write a long one in
    // several, and the lines of two processes would mix.
    std::setvbuf(ptslLog->fpLog, nullptr, _IONBF, 0);
    return 0;
}

int32_t Simp_Log_Write(Simp_Log *ptslLog, const char *pszFormat, ...) {
    const WriteDepth depth;
    Line line;

    va_list arguments;
    va_start(arguments, pszFormat);
    const int32_t length = format_line(line, ptslLog, pszFormat, arguments, __func__, depth.nested());
    va_end(arguments);
    if (length < 0)
        return length;

    if (ptslLog == nullptr || ptslLog->fpLog == nullptr) {
        std::printf("%s", line.data());
        return 0;
    }
    return append_line(ptslLog, line, length, __func__, depth.nested());
}

int32_t Simp_Log_Close(Simp_Log *ptslLog) {
    if (ptslLog == nullptr)
        return -EINVAL;

    if (ptslLog->fpLog == stdout)
        std::fflush(stdout);
    else
        UniqueFile(std::exchange(ptslLog->fpLog, nullptr)).reset();
    return 0;
}

void Simp_Log_Release(Simp_Log *ptslLog) {
    if (ptslLog == nullptr)
        return;

    if (ptslLog->fpLog != stdout)
        UniqueFile(std::exchange(ptslLog->fpLog, nullptr)).reset();
    MallocPtr<Simp_Log>(ptslLog).reset();
}
