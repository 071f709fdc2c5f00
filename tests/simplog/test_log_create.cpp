// Log handles: making, opening, closing and releasing them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "faults.h"
#include "log_capture.h"
#include "sandbox.h"
#include "simplog.h"

using support::Call;
using support::exists;
using support::FailCall;
using support::LogCapture;
using support::read_file;
using support::TempFolder;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(offsetof(Simp_Log, fpLog) == 0);
static_assert(offsetof(Simp_Log, idTimeFormat) == 8);
static_assert(offsetof(Simp_Log, idDateFormat) == 10);
static_assert(offsetof(Simp_Log, szFilename) == 12);

namespace {

constexpr size_t kPathLimit = 4096;

// What may not be changed shows whether it was.
Simp_Log *const kUntouched = reinterpret_cast<Simp_Log *>(0x10);

// A handle, released at the end; null where making it failed.
class Log {
  public:
    explicit Log(const char *path, uint32_t clock = 24, uint32_t date_format = 3, int32_t reset = 0)
        : result_(Simp_Log_Create(path, &log_, clock, date_format, reset)) {}
    explicit Log(const std::string &path, uint32_t clock = 24, uint32_t date_format = 3, int32_t reset = 0)
        : Log(path.c_str(), clock, date_format, reset) {}
    ~Log() { Simp_Log_Release(log_); }
    Log(const Log &) = delete;
    Log &operator=(const Log &) = delete;

    int32_t result() const { return result_; }
    Simp_Log *get() const { return log_; }
    Simp_Log *operator->() const { return log_; }

  private:
    Simp_Log *log_ = kUntouched;
    int32_t result_;
};

class LogHandle : public testing::Test {
  protected:
    ~LogHandle() override { EXPECT_EQ(support::open_descriptors(), before_); }

    TempFolder folder_;
    const std::map<int, std::string> before_ = support::open_descriptors();
};

using LogCreate = LogHandle;
using LogReset = LogHandle;
using LogOpen = LogHandle;
using LogClose = LogHandle;
using LogOnStandardOutput = LogHandle;

mode_t mode_of(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode;
}

bool is_folder(const std::string &path) {
    return S_ISDIR(mode_of(path));
}

// A path of exactly `length` characters in `folder`, whose folders do not exist yet.
std::string long_path(const TempFolder &folder, size_t length) {
    std::string path = folder.path();
    while (length - path.size() > 250)
        path += "/" + std::string(200, 'd');
    return path + "/" + std::string(length - path.size() - 1, 'f');
}

std::string cannot_open(const std::string &path, int error) {
    return "[error] Simp_Log_Open(#): Can't open the log file \"" + path + "\"! (" + std::to_string(-error) + ")\n";
}

std::string cannot_make_folder(const std::string &path, int error) {
    return "[error] Simp_Log_Create(#): Can't create the folder \"" + path + "\"! (" + std::to_string(-error) + ")\n";
}

}  // namespace

TEST(LogGlobals, have_their_start_values) {
    EXPECT_EQ(g_ptslLog, nullptr);
    EXPECT_EQ(g_idLogLevel, 1);
    EXPECT_EQ(g_bDebugOutput, 1);
    EXPECT_EQ(g_pfError, nullptr);
    EXPECT_EQ(g_pfDebug, nullptr);
}

namespace {

int32_t g_hook_calls = 0;

int32_t count_hook_call(const char *, ...) {
    return ++g_hook_calls;
}

}  // namespace

TEST(LogGlobals, that_are_the_hosts_own_change_nothing) {
    g_bDebugOutput = 0;
    g_pfError = count_hook_call;
    g_pfDebug = count_hook_call;
    LogCapture messages;

    const Log log("/proc/no/app.log");
    EXPECT_EQ(log.result(), -ENOENT);
    EXPECT_THAT(messages.messages(), ElementsAre(cannot_make_folder("/proc/no", ENOENT)));
    EXPECT_EQ(g_hook_calls, 0);
    EXPECT_EQ(g_bDebugOutput, 0);
}

TEST_F(LogCreate, keeps_path_and_formats_in_a_closed_handle) {
    const std::string path = folder_.path("app.log");
    const Log log(path, 12, 7);

    ASSERT_EQ(log.result(), 0);
    EXPECT_EQ(log->fpLog, nullptr);
    EXPECT_EQ(log->idTimeFormat, 12);
    EXPECT_EQ(log->idDateFormat, 7);
    EXPECT_EQ(log->szFilename, path);
    EXPECT_FALSE(exists(path));
}

TEST_F(LogCreate, keeps_the_low_16_bits_of_the_formats) {
    const struct {
        uint32_t given;
        uint16_t kept;
    } table[] = {{0, 0}, {65535, 65535}, {65536, 0}, {65536 + 12, 12}, {0xffff0003, 3}, {UINT32_MAX, 65535}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.given);
        const Log log(folder_.path("app.log"), row.given, row.given);
        EXPECT_EQ(log->idTimeFormat, row.kept);
        EXPECT_EQ(log->idDateFormat, row.kept);
    }
}

TEST_F(LogCreate, refuses_a_null_handle_pointer) {
    const LogCapture messages;
    EXPECT_EQ(Simp_Log_Create(folder_.path("sub/app.log").c_str(), nullptr, 24, 3, 1), -22);
    EXPECT_EQ(Simp_Log_Create(nullptr, nullptr, 24, 3, 0), -22);
    EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(LogCreate, refuses_a_relative_path_and_leaves_the_pointer_alone) {
    LogCapture messages;
    for (const char *path : {"", "app.log", "./app.log", " /tmp/app.log", "tmp/app.log"}) {
        SCOPED_TRACE(path);
        Simp_Log *log = kUntouched;
        EXPECT_EQ(Simp_Log_Create(path, &log, 24, 3, 1), -22);
        EXPECT_EQ(log, kUntouched);
    }
    EXPECT_THAT(messages.messages(), IsEmpty());
}

TEST_F(LogCreate, drops_one_trailing_slash) {
    const struct {
        std::string given;
        std::string kept;
    } table[] = {
        {folder_.path("app.log/"), folder_.path("app.log")},
        {folder_.path("sub/app.log/"), folder_.path("sub/app.log")},
        {folder_.path("/app.log"), folder_.path("/app.log")},
        {"/app.log", "/app.log"},
        {"/", ""},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.given);
        const Log log(row.given);
        ASSERT_EQ(log.result(), 0);
        EXPECT_EQ(log->szFilename, row.kept);
    }
}

TEST_F(LogCreate, of_two_trailing_slashes_the_first_one_ends_a_folder) {
    const Log log(folder_.path("app.log//"));
    ASSERT_EQ(log.result(), 0);
    EXPECT_EQ(log->szFilename, folder_.path("app.log/"));
    EXPECT_TRUE(is_folder(folder_.path("app.log")));
}

TEST_F(LogCreate, makes_the_folders_above_the_file_but_not_the_file) {
    const mode_t outer = umask(0022);
    const Log log(folder_.path("a/b//c/app.log"));
    umask(outer);

    ASSERT_EQ(log.result(), 0);
    for (const char *made : {"a", "a/b", "a/b/c"}) {
        SCOPED_TRACE(made);
        EXPECT_EQ(mode_of(folder_.path(made)), static_cast<mode_t>(S_IFDIR | 0755));
    }
    EXPECT_FALSE(exists(folder_.path("a/b/c/app.log")));
}

TEST_F(LogCreate, the_folders_have_mode_0755_less_the_umask) {
    const struct {
        mode_t mask;
        mode_t mode;
    } table[] = {{0, 0755}, {0077, 0700}, {0027, 0750}};

    for (const auto &row : table) {
        const std::string name = "made" + std::to_string(row.mask);
        const mode_t outer = umask(row.mask);
        const Log log(folder_.path(name + "/app.log"));
        umask(outer);
        EXPECT_EQ(mode_of(folder_.path(name)), S_IFDIR | row.mode) << row.mask;
    }
}

TEST_F(LogCreate, goes_through_links_to_folders) {
    ASSERT_EQ(mkdir(folder_.path("real").c_str(), 0700), 0);
    ASSERT_EQ(symlink("real", folder_.path("link").c_str()), 0);

    const Log log(folder_.path("link/sub/app.log"));

    EXPECT_EQ(log.result(), 0);
    EXPECT_TRUE(S_ISLNK(mode_of(folder_.path("link"))));
    EXPECT_TRUE(is_folder(folder_.path("real/sub")));
    EXPECT_EQ(mode_of(folder_.path("real")), static_cast<mode_t>(S_IFDIR | 0700));
}

TEST_F(LogCreate, replaces_what_is_no_folder_where_a_folder_must_be) {
    const std::string target = folder_.file("target", "kept");
    folder_.file("file", "lost");
    ASSERT_EQ(mkfifo(folder_.path("fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink("target", folder_.path("link").c_str()), 0);
    LogCapture messages;

    for (const char *name : {"file", "fifo", "link"}) {
        SCOPED_TRACE(name);
        const Log log(folder_.path(name) + "/sub/app.log");
        EXPECT_EQ(log.result(), 0);
        EXPECT_TRUE(is_folder(folder_.path(name)));
        EXPECT_TRUE(is_folder(folder_.path(name) + "/sub"));
    }
    EXPECT_EQ(read_file(target), "kept");
    EXPECT_THAT(messages.messages(), IsEmpty());
}

TEST_F(LogCreate, does_not_look_at_the_file_itself) {
    folder_.file("app.log", "kept");
    ASSERT_EQ(mkdir(folder_.path("folder").c_str(), 0700), 0);

    EXPECT_EQ(Log(folder_.path("app.log")).result(), 0);
    EXPECT_EQ(Log(folder_.path("folder")).result(), 0);
    EXPECT_EQ(read_file(folder_.path("app.log")), "kept");
    EXPECT_TRUE(is_folder(folder_.path("folder")));
}

TEST_F(LogCreate, fails_where_what_stands_in_the_way_cannot_be_removed) {
    const std::string path = folder_.file("file", "kept");

    for (const int error : {EPERM, EROFS, ENOSYS}) {
        LogCapture messages;
        const FailCall fault(Call::unlink, error);
        const Log log(path + "/app.log");

        EXPECT_EQ(log.result(), -error);
        EXPECT_EQ(log.get(), nullptr);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_EQ(read_file(path), "kept");
        EXPECT_THAT(messages.messages(), ElementsAre("[error] Simp_Log_Create(#): Can't remove a file error! (" +
                                                     std::to_string(-error) + ", " + path + ")\n"));
    }
}

TEST_F(LogCreate, fails_where_a_folder_cannot_be_made_and_keeps_those_above_it) {
    LogCapture messages;
    const FailCall fault(Call::mkdir, ENOSPC, 2);
    const Log log(folder_.path("a/b/c/app.log"));

    EXPECT_EQ(log.result(), -ENOSPC);
    EXPECT_EQ(log.get(), nullptr);
    EXPECT_TRUE(is_folder(folder_.path("a")));
    EXPECT_FALSE(exists(folder_.path("a/b")));
    EXPECT_THAT(messages.messages(), ElementsAre(cannot_make_folder(folder_.path("a/b"), ENOSPC)));
}

TEST_F(LogCreate, fails_after_a_removal_where_the_folder_cannot_be_made) {
    const std::string path = folder_.file("file", "lost");
    LogCapture messages;
    const FailCall fault(Call::mkdir, EACCES);

    EXPECT_EQ(Log(path + "/app.log").result(), -EACCES);
    EXPECT_FALSE(exists(path));
    EXPECT_THAT(messages.messages(), ElementsAre(cannot_make_folder(path, EACCES)));
}

TEST_F(LogCreate, what_cannot_be_looked_at_counts_as_missing) {
    ASSERT_EQ(symlink("nowhere", folder_.path("dangling").c_str()), 0);
    LogCapture messages;

    EXPECT_EQ(Log(folder_.path("dangling/app.log")).result(), -EEXIST);
    {
        const FailCall fault(Call::stat, EACCES, 1);
        EXPECT_EQ(Log("/tmp/app.log").result(), -EEXIST);
        EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_THAT(messages.messages(),
                ElementsAre(cannot_make_folder(folder_.path("dangling"), EEXIST), cannot_make_folder("/tmp", EEXIST)));
}

TEST_F(LogCreate, out_of_memory_names_the_exact_size) {
    const std::string path = folder_.path("app.log");
    const struct {
        const char *path;
        size_t size;
    } table[] = {{path.c_str(), offsetof(Simp_Log, szFilename) + path.size() + 1},
                 {nullptr, offsetof(Simp_Log, szFilename) + 1}};

    for (const auto &row : table) {
        LogCapture messages;
        const FailCall no_malloc(Call::malloc, ENOMEM);
        const FailCall no_calloc(Call::calloc, ENOMEM);
        const Log log(row.path);

        EXPECT_EQ(log.result(), -12);
        EXPECT_EQ(log.get(), nullptr);
        EXPECT_EQ(no_malloc.failed() + no_calloc.failed(), 1);
        EXPECT_THAT(messages.messages(), ElementsAre("[error] Simp_Log_Create(#): Can't allocate memory of " +
                                                     std::to_string(row.size) + " bytes!\n"));
    }
}

TEST_F(LogCreate, a_path_must_be_shorter_than_4096) {
    const std::string longest = long_path(folder_, kPathLimit - 1);
    const Log log(longest);
    ASSERT_EQ(log.result(), 0);
    EXPECT_EQ(log->szFilename, longest);
    EXPECT_EQ(Simp_Log_Open(log.get(), 0), 0);
    std::filesystem::remove_all(folder_.path(std::string(200, 'd')));

    for (const std::string &path : {long_path(folder_, kPathLimit), longest + "/", long_path(folder_, 10'000)}) {
        SCOPED_TRACE(path.size());
        const Log refused(path);
        EXPECT_EQ(refused.result(), -ENAMETOOLONG);
        EXPECT_EQ(refused.get(), nullptr);
    }
    EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(LogReset, empties_or_makes_the_file_and_leaves_it_closed) {
    folder_.file("old.log", "old lines\n");
    const std::string kept = folder_.file("kept.log", "kept\n");

    for (const int32_t reset : {1, -1, 256}) {
        const Log log(folder_.path("old.log"), 24, 3, reset);
        ASSERT_EQ(log.result(), 0);
        EXPECT_EQ(log->fpLog, nullptr);
        EXPECT_EQ(read_file(folder_.path("old.log")), "");
        folder_.file("old.log", "old again\n");
    }
    EXPECT_EQ(Log(folder_.path("sub/new.log"), 24, 3, 1).result(), 0);
    EXPECT_EQ(read_file(folder_.path("sub/new.log")), "");

    EXPECT_EQ(Log(kept, 24, 3, 0).result(), 0);
    EXPECT_EQ(read_file(kept), "kept\n");
}

TEST_F(LogReset, on_an_unwritable_path_is_left_to_the_next_open) {
    LogCapture messages;
    const Log log(folder_.path(), 24, 3, 1);

    ASSERT_EQ(log.result(), 0);
    EXPECT_EQ(log->fpLog, nullptr);
    EXPECT_THAT(messages.messages(), ElementsAre(cannot_open(folder_.path(), EISDIR)));

    messages.clear();
    EXPECT_EQ(Simp_Log_Open(log.get(), 0), -EISDIR);
    EXPECT_THAT(messages.messages(), ElementsAre(cannot_open(folder_.path(), EISDIR)));
}

TEST_F(LogOpen, appends_or_truncates) {
    const Log log(folder_.file("app.log", "old\n"));

    const struct {
        int32_t truncate;
        const char *text;
        const char *content;
    } table[] = {{0, "one\n", "old\none\n"}, {0, "two\n", "old\none\ntwo\n"}, {1, "three\n", "three\n"}, {-7, "", ""}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.content);
        ASSERT_EQ(Simp_Log_Open(log.get(), row.truncate), 0);
        ASSERT_NE(log->fpLog, nullptr);
        EXPECT_NE(std::fputs(row.text, log->fpLog), EOF);
        EXPECT_EQ(Simp_Log_Close(log.get()), 0);
        EXPECT_EQ(log->fpLog, nullptr);
        EXPECT_EQ(read_file(folder_.path("app.log")), row.content);
    }
}

TEST_F(LogOpen, the_descriptor_appends_and_closes_itself_on_exec) {
    const Log log(folder_.path("app.log"));
    for (const int32_t truncate : {0, 1}) {
        SCOPED_TRACE(truncate);
        ASSERT_EQ(Simp_Log_Open(log.get(), truncate), 0);
        const int descriptor = fileno(log->fpLog);
        EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
        EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_ACCMODE, O_WRONLY);
        EXPECT_EQ((fcntl(descriptor, F_GETFL) & O_APPEND) != 0, truncate == 0);
    }
}

TEST_F(LogOpen, closes_what_was_open_first) {
    const Log log(folder_.path("app.log"));
    ASSERT_EQ(Simp_Log_Open(log.get(), 0), 0);
    ASSERT_NE(std::fputs("buffered\n", log->fpLog), EOF);

    ASSERT_EQ(Simp_Log_Open(log.get(), 0), 0);

    EXPECT_EQ(read_file(folder_.path("app.log")), "buffered\n");
    EXPECT_EQ(support::open_descriptors().size(), before_.size() + 1);
}

TEST_F(LogOpen, a_failure_leaves_the_handle_closed) {
    const std::string path = folder_.path("app.log");
    const Log log(path);

    for (const int error : {EMFILE, EACCES, ENOSPC}) {
        ASSERT_EQ(Simp_Log_Open(log.get(), 0), 0);
        LogCapture messages;
        const FailCall fault(Call::openat, error);
        EXPECT_EQ(Simp_Log_Open(log.get(), 1), -error);
        EXPECT_EQ(log->fpLog, nullptr);
        EXPECT_THAT(messages.messages(), ElementsAre(cannot_open(path, error)));
        EXPECT_EQ(support::open_descriptors(), before_);
    }
}

TEST_F(LogOpen, reports_a_folder_that_has_gone) {
    const Log log(folder_.path("sub/app.log"));
    std::filesystem::remove_all(folder_.path("sub"));
    LogCapture messages(1);
    EXPECT_EQ(Simp_Log_Open(log.get(), 0), -ENOENT);
    EXPECT_THAT(messages.messages(), ElementsAre(cannot_open(folder_.path("sub/app.log"), ENOENT)));
}

TEST_F(LogOpen, errors_are_silent_at_level_0_or_without_a_log) {
    const Log log(folder_.path());
    for (const int32_t level : {0, -1}) {
        LogCapture messages(level);
        EXPECT_EQ(Simp_Log_Open(log.get(), 0), -EISDIR);
        EXPECT_THAT(messages.messages(), IsEmpty());
    }
    EXPECT_EQ(support::capture_stdout([&] { EXPECT_EQ(Simp_Log_Open(log.get(), 0), -EISDIR); }), "");
}

// Whoever asked finds his own error, not that of the log.
TEST_F(LogOpen, the_message_leaves_the_error_number_as_it_was) {
    const Log log(folder_.path());
    const Log full("/dev/full");
    ASSERT_EQ(Simp_Log_Open(full.get(), 0), 0);
    g_ptslLog = full.get();
    const int32_t result = Simp_Log_Open(log.get(), 0);
    const int error = errno;
    g_ptslLog = nullptr;

    EXPECT_EQ(result, -EISDIR);
    EXPECT_EQ(error, EISDIR);
    Simp_Log_Close(full.get());
}

TEST_F(LogOpen, null_is_refused) {
    EXPECT_EQ(Simp_Log_Open(nullptr, 0), -22);
    EXPECT_EQ(Simp_Log_Open(nullptr, 1), -22);
}

TEST_F(LogClose, closes_once_and_again_is_no_failure) {
    const Log log(folder_.path("app.log"));
    EXPECT_EQ(Simp_Log_Close(log.get()), 0);

    ASSERT_EQ(Simp_Log_Open(log.get(), 0), 0);
    EXPECT_EQ(Simp_Log_Close(log.get()), 0);
    EXPECT_EQ(log->fpLog, nullptr);
    EXPECT_EQ(support::open_descriptors(), before_);
    EXPECT_EQ(Simp_Log_Close(log.get()), 0);
    EXPECT_EQ(Simp_Log_Close(nullptr), -22);
}

TEST_F(LogClose, release_closes_an_open_stream_and_flushes_it) {
    Simp_Log *log = nullptr;
    ASSERT_EQ(Simp_Log_Create(folder_.path("app.log").c_str(), &log, 24, 3, 0), 0);
    ASSERT_EQ(Simp_Log_Open(log, 0), 0);
    ASSERT_NE(std::fputs("buffered\n", log->fpLog), EOF);

    Simp_Log_Release(log);

    EXPECT_EQ(support::open_descriptors(), before_);
    EXPECT_EQ(read_file(folder_.path("app.log")), "buffered\n");
    Simp_Log_Release(nullptr);
}

TEST_F(LogOnStandardOutput, is_open_from_the_start_and_stays_so) {
    for (const int32_t reset : {0, 1}) {
        SCOPED_TRACE(reset);
        const Log log(nullptr, 12, 4, reset);
        ASSERT_EQ(log.result(), 0);
        EXPECT_EQ(log->fpLog, stdout);
        EXPECT_STREQ(log->szFilename, "");
        EXPECT_EQ(log->idTimeFormat, 12);
        EXPECT_EQ(log->idDateFormat, 4);

        EXPECT_EQ(Simp_Log_Open(log.get(), 1), 0);
        EXPECT_EQ(log->fpLog, stdout);
        EXPECT_EQ(Simp_Log_Close(log.get()), 0);
        EXPECT_EQ(log->fpLog, stdout);
    }
}

TEST_F(LogOnStandardOutput, close_flushes) {
    const Log log(nullptr);
    support::capture_stdout([&] {
        struct stat status {};
        std::printf("text");
        EXPECT_EQ(Simp_Log_Close(log.get()), 0);
        EXPECT_EQ(fstat(STDOUT_FILENO, &status), 0);
        EXPECT_EQ(status.st_size, 4);
    });
}

TEST_F(LogOnStandardOutput, reset_flushes) {
    support::capture_stdout([] {
        struct stat status {};
        std::printf("text");
        EXPECT_EQ(Log(nullptr, 24, 3, 1).result(), 0);
        EXPECT_EQ(fstat(STDOUT_FILENO, &status), 0);
        EXPECT_EQ(status.st_size, 4);
    });
}

TEST_F(LogOnStandardOutput, release_does_not_close_it) {
    const std::string printed = support::capture_stdout([] {
        { const Log log(nullptr); }
        EXPECT_GE(fcntl(STDOUT_FILENO, F_GETFD), 0);
        EXPECT_GT(std::printf("still here"), 0);
    });
    EXPECT_EQ(printed, "still here");
}
