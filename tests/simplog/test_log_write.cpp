// Writing log lines: their form and limits, the watched lock, failures, and writers beside each other.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio_ext.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "faults.h"
#include "lock_content.h"
#include "log_capture.h"
#include "sandbox.h"
#include "simplog.h"

using support::Call;
using support::CountCalls;
using support::exists;
using support::FailCall;
using support::FakeClock;
using support::LogCapture;
using support::read_file;
using support::TempFolder;
using support::write_file;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr size_t kLongestMessage = 16463;
constexpr size_t kLongestLine = 16463;  // stamp and message, the newline not included
constexpr size_t kStamp = 22;           // on the 24-hour clock

// The only lock file that any test here makes.
const char *const kLock = "/var/lock/app.log.lck";

std::string stamp(time_t when, int32_t clock, int32_t format) {
    char text[64];
    Log_DateTime_Format(when, text, clock, format);
    return text;
}

// Runs `write`, and tells whether `line()` then is `message` with the stamp of a second at which it can have run.
template <typename Write, typename Line>
void expect_stamped(Write write, Line line, const std::string &message, int32_t clock = 24, int32_t format = 3) {
    const time_t before = time(nullptr);
    write();
    const time_t after = time(nullptr);

    std::vector<std::string> possible;
    for (time_t second = before; second <= after; second++)
        possible.push_back(stamp(second, clock, format) + message);
    EXPECT_THAT(possible, testing::Contains(line()));
}

// A log file that is open for appending.
class OpenLog {
  public:
    explicit OpenLog(const std::string &path, uint32_t clock = 24, uint32_t format = 3) {
        EXPECT_EQ(Simp_Log_Create(path.c_str(), &log_, clock, format, 0), 0);
        EXPECT_EQ(Simp_Log_Open(log_, 0), 0);
    }
    ~OpenLog() { Simp_Log_Release(log_); }
    OpenLog(const OpenLog &) = delete;
    OpenLog &operator=(const OpenLog &) = delete;

    Simp_Log *get() const { return log_; }
    Simp_Log *operator->() const { return log_; }

  private:
    Simp_Log *log_ = nullptr;
};

class LogWrite : public testing::Test {
  protected:
    LogWrite() {
        setenv("TZ", "UTC0", 1);
        support::empty_lock_folder();
    }
    ~LogWrite() override { g_ptslLog = nullptr; }

    std::string content() const { return read_file(path_); }

    TempFolder folder_;
    const std::string path_ = folder_.path("app.log");
};

using LogLimits = LogWrite;
using LogLock = LogWrite;
using LogFailure = LogWrite;
using SharedLog = LogWrite;

std::string cannot_generate(int32_t result, int value) {
    return "[error] Simp_Log_Write(#): Can't generate the log message ! (" + std::to_string(result) + ", " +
           std::to_string(value) + ")\n";
}

std::string cannot_write(size_t length, int64_t written) {
    return "[error] Simp_Log_Write(#): Can't write " + std::to_string(length) + " bytes to the log file. (" +
           std::to_string(written) + ")\n";
}

std::string timed_out() {
    return std::string("[error] Check_File_Lock(#): Get lock file \"") + kLock + "\" timeout! (10001 < 10000)\n";
}

void make_live_lock(const FakeClock &clock, const char *path = kLock) {
    write_file(path, support::lock_bytes(static_cast<int64_t>(clock.now()), getpid()));
}

}  // namespace

TEST_F(LogWrite, ends_each_message_with_a_newline_that_has_none) {
    const struct {
        const char *message;
        const char *line;
    } table[] = {{"text", "text\n"}, {"text\n", "text\n"},           {"text\n\n", "text\n\n"},
                 {"", "\n"},         {"two\nlines", "two\nlines\n"}, {"\n", "\n"}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.message);
        std::remove(path_.c_str());
        const OpenLog log(path_);
        expect_stamped([&] { EXPECT_EQ(Simp_Log_Write(log.get(), "%s", row.message), 0); }, [&] { return content(); },
                       row.line);
    }
}

TEST_F(LogWrite, a_nul_ends_the_message) {
    const OpenLog log(path_);
    expect_stamped([&] { EXPECT_EQ(Simp_Log_Write(log.get(), "a%cb\n", '\0'), 0); }, [&] { return content(); }, "a\n");
}

TEST_F(LogWrite, formats_its_arguments) {
    const OpenLog log(path_);
    expect_stamped([&] { EXPECT_EQ(Simp_Log_Write(log.get(), "%d %s %5.1f %lld%%", -7, "x", 2.25, 1LL << 40), 0); },
                   [&] { return content(); }, "-7 x   2.2 1099511627776%\n");
}

TEST_F(LogWrite, stamps_with_the_clock_and_the_date_format_of_the_handle) {
    for (const uint32_t clock : {12u, 24u, 0u})
        for (uint32_t format = 0; format <= 10; format++) {
            SCOPED_TRACE(testing::Message() << "clock " << clock << ", format " << format);
            std::remove(path_.c_str());
            const OpenLog log(path_, clock, format);
            expect_stamped([&] { EXPECT_EQ(Simp_Log_Write(log.get(), "text"), 0); }, [&] { return content(); },
                           "text\n", static_cast<int32_t>(clock), static_cast<int32_t>(format));
        }
}

TEST_F(LogWrite, each_line_is_in_the_file_when_the_call_returns) {
    const OpenLog log(path_);
    for (int n = 1; n <= 3; n++) {
        EXPECT_EQ(Simp_Log_Write(log.get(), "line %d", n), 0);
        EXPECT_THAT(content(), testing::EndsWith("] line " + std::to_string(n) + "\n"));
    }
}

TEST_F(LogWrite, without_an_open_stream_prints_with_the_default_stamp) {
    Simp_Log *closed = nullptr;
    ASSERT_EQ(Simp_Log_Create(path_.c_str(), &closed, 12, 4, 0), 0);

    for (Simp_Log *log : {static_cast<Simp_Log *>(nullptr), closed}) {
        std::string printed;
        expect_stamped(
            [&] { printed = support::capture_stdout([&] { EXPECT_EQ(Simp_Log_Write(log, "%d%%", 5), 0); }); },
            [&] { return printed; }, "5%\n");
    }
    EXPECT_FALSE(exists(path_));
    Simp_Log_Release(closed);
}

TEST_F(LogWrite, to_standard_output_uses_the_formats_of_the_handle) {
    Simp_Log *log = nullptr;
    ASSERT_EQ(Simp_Log_Create(nullptr, &log, 12, 9, 0), 0);

    std::string printed;
    expect_stamped([&] { printed = support::capture_stdout([&] { EXPECT_EQ(Simp_Log_Write(log, "text"), 0); }); },
                   [&] { return printed; }, "text\n", 12, 9);
    Simp_Log_Release(log);
}

TEST_F(LogWrite, a_changed_time_zone_is_seen) {
    const OpenLog log(path_);
    for (const char *zone : {"EAST-14", "WEST+12", "UTC0"}) {
        SCOPED_TRACE(zone);
        Simp_Log_Open(log.get(), 1);
        setenv("TZ", zone, 1);
        EXPECT_EQ(Simp_Log_Write(log.get(), "text"), 0);

        // strptime and timegm take the text as it is, so the zone's offset shows.
        tm parts{};
        ASSERT_NE(strptime(content().c_str(), "[%Y-%m-%d %H:%M:%S] text", &parts), nullptr);
        const int64_t hours = std::string(zone) == "EAST-14" ? 14 : std::string(zone) == "WEST+12" ? -12 : 0;
        const int64_t late = time(nullptr) + hours * 3600 - timegm(&parts);
        EXPECT_GE(late, 0);
        EXPECT_LT(late, 3600);
    }
}

TEST_F(LogWrite, allocates_nothing) {
    const OpenLog log(path_);
    EXPECT_EQ(Simp_Log_Write(log.get(), "the stream and the zone are set up"), 0);

    const CountCalls mallocs(Call::malloc);
    const CountCalls callocs(Call::calloc);
    const CountCalls reallocs(Call::realloc);
    EXPECT_EQ(Simp_Log_Write(log.get(), "%s %d", "text", 5), 0);
    EXPECT_EQ(mallocs.count() + callocs.count() + reallocs.count(), 0);
}

// The write calls of this thread, as the kernel counts them.
static int64_t system_writes() {
    const std::string counters = read_file("/proc/thread-self/io");
    return std::stoll(counters.substr(counters.find("syscw: ") + 7));
}

TEST_F(LogWrite, a_line_is_one_fwrite_and_one_write_to_the_system) {
    if (!exists("/proc/thread-self/io"))
        GTEST_SKIP() << "the kernel does not count the calls of a thread";

    const OpenLog log(path_);
    for (const size_t length : {1, 1000, 4073, 4074, 4096, 8192, 12288, 16400, 16441, 16463}) {
        SCOPED_TRACE(length);
        const std::string message(length, 'x');
        const CountCalls stream_writes(Call::fwrite);
        const int64_t before = system_writes();
        EXPECT_EQ(Simp_Log_Write(log.get(), "%s", message.c_str()), 0);
        EXPECT_EQ(system_writes() - before, 1);
        EXPECT_EQ(stream_writes.count(), 1);
    }
}

TEST_F(LogLimits, a_message_is_cut_where_stamp_and_message_do_not_fit) {
    const struct {
        uint32_t clock;
        size_t message;
        size_t line;  // what is left of stamp and message
    } table[] = {
        {24, 16440, 16462},        {24, 16441, kLongestLine},           {24, 16442, kLongestLine},
        {24, 16462, kLongestLine}, {24, kLongestMessage, kLongestLine}, {12, 16437, 16462},
        {12, 16438, kLongestLine}, {12, 16439, kLongestLine},           {12, kLongestMessage, kLongestLine},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << "clock " << row.clock << ", message " << row.message);
        std::remove(path_.c_str());
        const OpenLog log(path_, row.clock);
        EXPECT_EQ(Simp_Log_Write(log.get(), "%s", std::string(row.message, 'x').c_str()), 0);

        const std::string line = content();
        const size_t stamp_length = row.clock == 12 ? 25 : kStamp;
        ASSERT_EQ(line.size(), row.line + 1);
        EXPECT_EQ(line.substr(stamp_length), std::string(row.line - stamp_length, 'x') + "\n");
        EXPECT_EQ(line[stamp_length - 1], ' ');
    }
}

TEST_F(LogLimits, a_newline_that_was_cut_off_is_put_back) {
    const OpenLog log(path_);
    EXPECT_EQ(Simp_Log_Write(log.get(), "%s\n", std::string(kLongestMessage - 1, 'x').c_str()), 0);
    EXPECT_EQ(content().substr(kStamp), std::string(kLongestLine - kStamp, 'x') + "\n");
}

TEST_F(LogLimits, the_newline_that_just_fits_is_not_doubled) {
    const OpenLog log(path_);
    EXPECT_EQ(Simp_Log_Write(log.get(), "%s\n", std::string(16440, 'x').c_str()), 0);
    EXPECT_EQ(content().substr(kStamp), std::string(16440, 'x') + "\n");
}

TEST_F(LogLimits, the_cut_is_the_same_on_standard_output) {
    const std::string printed = support::capture_stdout(
        [] { EXPECT_EQ(Simp_Log_Write(nullptr, "%s", std::string(kLongestMessage, 'x').c_str()), 0); });
    EXPECT_EQ(printed.substr(kStamp), std::string(kLongestLine - kStamp, 'x') + "\n");
}

TEST_F(LogLimits, an_overlong_message_fails_with_the_error_of_the_moment_or_an_overflow) {
    const struct {
        size_t length;
        int error;  // `errno` before the call
        int32_t expected;
    } table[] = {{16464, 0, -EOVERFLOW}, {16464, ENOENT, -ENOENT}, {100'000, 0, -EOVERFLOW}, {100'000, EIO, -EIO}};

    const OpenLog log(path_);
    for (Simp_Log *handle : {log.get(), static_cast<Simp_Log *>(nullptr)})
        for (const auto &row : table) {
            SCOPED_TRACE(testing::Message() << row.length << " with errno " << row.error);
            LogCapture messages(1);
            const std::string text(row.length, 'x');
            const std::string printed = support::capture_stdout([&] {
                errno = row.error;
                EXPECT_EQ(Simp_Log_Write(handle, "%s", text.c_str()), row.expected);
            });
            EXPECT_EQ(printed, "");
            EXPECT_THAT(messages.messages(), ElementsAre(cannot_generate(row.expected, static_cast<int>(row.length))));
        }
    EXPECT_EQ(content(), "");
}

// Looking for the zone's file sets `errno`; that is not an error of the message.
TEST_F(LogLimits, an_unknown_time_zone_does_not_pass_for_the_error) {
    const OpenLog log(path_);
    const std::string text(kLongestMessage + 1, 'x');
    setenv("TZ", "Nowhere/Land", 1);
    errno = 0;
    EXPECT_EQ(Simp_Log_Write(log.get(), "%s", text.c_str()), -EOVERFLOW);
}

TEST_F(LogLimits, a_message_that_cannot_be_formatted_fails) {
    const OpenLog log(path_);
    const wchar_t unprintable[] = {L'\x4e2d', L'\0'};  // not in the "C" locale
    LogCapture messages;

    errno = 0;
    EXPECT_EQ(Simp_Log_Write(log.get(), "text %ls", unprintable), -EILSEQ);
    EXPECT_THAT(messages.messages(), ElementsAre(cannot_generate(-EILSEQ, -1)));
    EXPECT_EQ(content(), "");
}

TEST_F(LogLimits, a_formatting_failure_without_an_error_is_an_overflow) {
    const OpenLog log(path_);
    for (const int error : {0, ENOMEM}) {
        LogCapture messages;
        const FailCall fault(Call::vsnprintf, error);
        EXPECT_EQ(Simp_Log_Write(log.get(), "text"), error == 0 ? -EOVERFLOW : -error);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_THAT(messages.messages(), ElementsAre(cannot_generate(error == 0 ? -EOVERFLOW : -error, -1)));
    }
}

TEST_F(LogLimits, an_overlong_message_to_the_librarys_own_log_is_reported_there_once) {
    const OpenLog log(path_);
    g_ptslLog = log.get();
    errno = 0;
    EXPECT_EQ(Simp_Log_Write(log.get(), "%s", std::string(kLongestMessage + 1, 'x').c_str()), -EOVERFLOW);
    EXPECT_TRUE(std::regex_match(
        content(),
        std::regex(
            R"(\[[-0-9]{10} [:0-9]{8}\] \[error\] Simp_Log_Write\(\d+\): Can't generate the log message ! \(-75, 16464\)\n)")))
        << content();
}

TEST_F(LogLock, waits_10_seconds_for_the_watched_lock_and_writes_in_any_case) {
    const OpenLog log(path_);
    LogCapture messages;
    FakeClock clock(1'700'000'000'000);
    make_live_lock(clock);

    EXPECT_EQ(Simp_Log_Write(log.get(), "text"), 0);

    EXPECT_EQ(clock.sleeps(), 10'001);
    EXPECT_THAT(messages.messages(), ElementsAre(timed_out()));
    EXPECT_THAT(content(), testing::EndsWith("] text\n"));
    EXPECT_TRUE(exists(kLock));
}

TEST_F(LogLock, writes_at_once_when_the_lock_goes) {
    const OpenLog log(path_);
    LogCapture messages;
    FakeClock clock(1'700'000'000'000);
    make_live_lock(clock);
    const support::BeforeCall release(Call::kill, 50, [] { unlink(kLock); });

    EXPECT_EQ(Simp_Log_Write(log.get(), "text"), 0);

    EXPECT_EQ(clock.sleeps(), 50);
    EXPECT_THAT(messages.messages(), IsEmpty());
}

TEST_F(LogLock, the_time_out_can_be_reported_to_the_very_log) {
    const OpenLog log(path_);
    g_ptslLog = log.get();
    FakeClock clock(1'700'000'000'000);
    make_live_lock(clock);

    EXPECT_EQ(Simp_Log_Write(log.get(), "text"), 0);

    EXPECT_EQ(clock.sleeps(), 10'001);
    EXPECT_TRUE(std::regex_match(
        content(), std::regex(R"(\[[^\]]+\] \[error\] Check_File_Lock\(\d+\): Get lock file "/var/lock/app\.log\.lck" )"
                              R"(timeout! \(10001 < 10000\)\n\[[^\]]+\] text\n)")))
        << content();
}

TEST_F(LogLock, a_stale_lock_is_removed_and_can_be_reported_to_the_very_log) {
    const OpenLog log(path_);
    g_ptslLog = log.get();
    g_idLogLevel = 3;
    const FakeClock clock(1'700'000'000'000);
    write_file(kLock, support::lock_bytes(1'700'000'000'000, -1));

    EXPECT_EQ(Simp_Log_Write(log.get(), "text"), 0);
    g_idLogLevel = 1;

    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_FALSE(exists(kLock));
    EXPECT_THAT(content(), HasSubstr("Remove \"/var/lock/app.log.lck\" because proc -1 is not existed!\n["));
    EXPECT_THAT(content(), testing::EndsWith("] text\n"));
}

TEST_F(LogLock, is_left_alone_where_nothing_is_appended) {
    Simp_Log *closed = nullptr;
    ASSERT_EQ(Simp_Log_Create(path_.c_str(), &closed, 24, 3, 0), 0);
    FakeClock clock(1'700'000'000'000);
    make_live_lock(clock);

    support::capture_stdout([&] {
        EXPECT_EQ(Simp_Log_Write(closed, "text"), 0);
        EXPECT_EQ(Simp_Log_Write(nullptr, "text"), 0);
        EXPECT_NE(Simp_Log_Write(closed, "%s", std::string(kLongestMessage + 1, 'x').c_str()), 0);
    });

    EXPECT_EQ(clock.sleeps(), 0);
    Simp_Log_Release(closed);
}

TEST_F(LogLock, only_the_watched_lock_counts) {
    const OpenLog log(path_);
    FakeClock clock(1'700'000'000'000);
    for (const std::string &other : {std::string("/var/lock/_app.log.lck"), path_ + ".lck"})
        make_live_lock(clock, other.c_str());

    EXPECT_EQ(Simp_Log_Write(log.get(), "text"), 0);
    EXPECT_EQ(clock.sleeps(), 0);
}

// Its path is empty, and so is the base of the lock's name.
TEST_F(LogLock, standard_output_has_one_too) {
    Simp_Log *log = nullptr;
    ASSERT_EQ(Simp_Log_Create(nullptr, &log, 24, 3, 0), 0);
    FakeClock clock(1'700'000'000'000);
    make_live_lock(clock, "/var/lock/.lck");

    const std::string printed = support::capture_stdout([&] { EXPECT_EQ(Simp_Log_Write(log, "text"), 0); });

    EXPECT_EQ(clock.sleeps(), 10'001);
    EXPECT_THAT(printed, testing::EndsWith("] text\n"));
    Simp_Log_Release(log);
}

TEST_F(LogFailure, a_short_write_is_an_input_output_error) {
    const OpenLog log(path_);
    for (const int error : {0, ENOSPC}) {
        LogCapture messages;
        const FailCall fault(Call::fwrite, error);
        EXPECT_EQ(Simp_Log_Write(log.get(), "text"), -EIO);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_THAT(messages.messages(), ElementsAre(cannot_write(kStamp + 5, 0)));
    }
}

TEST_F(LogFailure, the_count_that_was_written_is_reported) {
    struct Room {
        size_t left;
    };
    const OpenLog log(path_);
    Room room{30};
    const cookie_io_functions_t functions{
        .read = nullptr,
        .write = [](void *cookie, const char *, size_t size) -> ssize_t {
            auto *left = &static_cast<Room *>(cookie)->left;
            const size_t taken = size < *left ? size : *left;
            *left -= taken;
            return static_cast<ssize_t>(taken);
        },
        .seek = nullptr,
        .close = nullptr,
    };
    FILE *narrow = fopencookie(&room, "w", functions);
    ASSERT_NE(narrow, nullptr);
    setvbuf(narrow, nullptr, _IONBF, 0);
    FILE *real = std::exchange(log->fpLog, narrow);

    LogCapture messages;
    EXPECT_EQ(Simp_Log_Write(log.get(), "%s", std::string(50, 'x').c_str()), -EIO);
    EXPECT_THAT(messages.messages(), ElementsAre(cannot_write(kStamp + 51, 30)));

    std::fclose(std::exchange(log->fpLog, real));
}

TEST_F(LogFailure, a_full_disk_is_reported_by_one_write_that_reports_nothing_itself) {
    const OpenLog log("/dev/full");
    g_ptslLog = log.get();
    const CountCalls writes(Call::fwrite);
    EXPECT_EQ(Simp_Log_Write(log.get(), "%s", std::string(16'000, 'x').c_str()), -EIO);
    EXPECT_LE(writes.count(), 2);
}

TEST_F(LogFailure, a_failing_report_is_not_reported) {
    const OpenLog log(path_);
    g_ptslLog = log.get();
    {
        const FailCall fault(Call::fwrite, EIO, 1, 1000);
        EXPECT_EQ(Simp_Log_Write(log.get(), "text"), -EIO);
        EXPECT_EQ(fault.failed(), 2);
    }
    {
        const FailCall fault(Call::vsnprintf, EIO, 1, 1000);
        EXPECT_EQ(Simp_Log_Write(log.get(), "text"), -EIO);
        EXPECT_EQ(fault.failed(), 2);
    }
    EXPECT_EQ(Simp_Log_Write(log.get(), "afterwards"), 0);
    EXPECT_THAT(content(), testing::EndsWith("] afterwards\n"));
}

// What is printed without an open handle is nobody's concern; what a handle's stream takes, its flush may still lose.
TEST_F(LogFailure, of_standard_output_and_of_a_flush_is_not_seen) {
    Simp_Log *log = nullptr;
    ASSERT_EQ(Simp_Log_Create(nullptr, &log, 24, 3, 0), 0);
    LogCapture messages;
    char room[BUFSIZ];
    int32_t printed = 99;
    int32_t buffered = 99;
    bool failed = false;
    support::capture_stdout([&] {
        const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
        dup2(full, STDOUT_FILENO);
        close(full);
        setvbuf(stdout, nullptr, _IONBF, 0);
        printed = Simp_Log_Write(nullptr, "text");
        clearerr(stdout);
        setvbuf(stdout, room, _IOFBF, sizeof room);
        buffered = Simp_Log_Write(log, "text");
        failed = ferror(stdout) != 0;
        __fpurge(stdout);
        clearerr(stdout);
        setvbuf(stdout, nullptr, _IONBF, 0);
    });

    EXPECT_EQ(printed, 0);
    EXPECT_EQ(buffered, 0);
    EXPECT_TRUE(failed);
    EXPECT_THAT(messages.messages(), IsEmpty());
    Simp_Log_Release(log);
}

TEST_F(LogFailure, is_silent_below_level_1) {
    const OpenLog log(path_);
    LogCapture messages(0);
    const FailCall fault(Call::fwrite, EIO);
    EXPECT_EQ(Simp_Log_Write(log.get(), "text"), -EIO);
    EXPECT_THAT(messages.messages(), IsEmpty());
}

namespace {

constexpr int kWriters = 8;
constexpr int kLines = 1000;

// Lines of many lengths, a few of them longer than any stream's buffer.
std::string body(int writer, int line) {
    const size_t length = line % 50 == 7 ? 9000 + static_cast<size_t>(line) : static_cast<size_t>(line * 7 % 200);
    return std::to_string(writer) + " " + std::to_string(line) + " " +
           std::string(length, static_cast<char>('a' + writer));
}

void write_lines(Simp_Log *log, int writer) {
    for (int line = 0; line < kLines; line++)
        EXPECT_EQ(Simp_Log_Write(log, "%s", body(writer, line).c_str()), 0);
}

// Every line is whole, and each writer's lines stand in the order in which it wrote them.
void expect_whole_lines(const std::string &content) {
    const std::regex head(R"(\[[-0-9]{10} [:0-9]{8}\] (\d+) (\d+) )");
    std::map<int, int> next;
    std::istringstream lines(content);
    std::string line;

    while (std::getline(lines, line)) {
        std::smatch match;
        const std::string beginning = line.substr(0, 40);
        ASSERT_TRUE(std::regex_search(beginning, match, head, std::regex_constants::match_continuous)) << beginning;
        const int writer = std::stoi(match[1]);
        ASSERT_EQ(std::stoi(match[2]), next[writer]) << "of writer " << writer;
        ASSERT_TRUE(line.substr(kStamp) == body(writer, next[writer])) << "line " << next[writer] << " is torn";
        next[writer]++;
    }
    ASSERT_EQ(next.size(), static_cast<size_t>(kWriters));
    for (const auto &[writer, count] : next)
        EXPECT_EQ(count, kLines) << writer;
}

}  // namespace

TEST_F(SharedLog, threads_write_whole_lines) {
    const OpenLog log(path_);
    std::vector<std::thread> threads;
    for (int writer = 0; writer < kWriters; writer++)
        threads.emplace_back(write_lines, log.get(), writer);
    for (auto &thread : threads)
        thread.join();

    expect_whole_lines(content());
}

TEST_F(SharedLog, processes_write_whole_lines) {
    std::vector<pid_t> children;
    for (int writer = 0; writer < kWriters; writer++)
        children.push_back(support::start_child([&] {
            const OpenLog log(path_);
            write_lines(log.get(), writer);
            return HasFailure() ? 1 : 0;
        }));
    for (const pid_t child : children)
        EXPECT_EQ(support::wait_for(child), 0);

    expect_whole_lines(content());
}
