// The log facility, with calls of the system failing.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "locks.h"
#include "messages_fileio.h"
#include "messages_simplog.h"
#include "modules.h"
#include "simplog.h"

namespace faults {
namespace {

// Releases a log handle at its end.
class LogHandle {
  public:
    LogHandle() = default;
    ~LogHandle() { Simp_Log_Release(log_); }
    LogHandle(const LogHandle &) = delete;
    LogHandle &operator=(const LogHandle &) = delete;

    Simp_Log *get() const { return log_; }
    Simp_Log **place() { return &log_; }
    void create(const std::string &path) { Simp_Log_Create(path.c_str(), &log_, 24, 3, 0); }
    void open(const std::string &path) {
        create(path);
        Simp_Log_Open(log_, 0);
    }

  private:
    Simp_Log *log_ = nullptr;
};

void create_log(Trial &trial, const std::string &path, int32_t reset) {
    LogHandle log;
    trial.call([&] { return Simp_Log_Create(path.c_str(), log.place(), 24, 3, reset); });
    trial.check((log.get() != nullptr) == (trial.result() == 0), "a handle comes with success alone");
}

// The blocks of a new log.
constexpr int kHandle = 1;
constexpr int kStream = 2;  // of its file, where that is emptied

Scenarios create_scenarios() {
    // Folders made before a failure stay.
    const Rules rules = {
        Rule(Call::malloc, kHandle).gives(-ENOMEM).leaves(Files::as_unharmed).says(msg::log_no_memory),
        // If the look at a folder fails, for any reason, the library makes the folder; that fails if it exists.
        Rule(Call::stat).gives(-EEXIST).with_code(-EEXIST).says(msg::log_no_folder),
        Rule(Call::mkdir, 2).leaves(Files::as_before, {done(".../a")}).says(msg::log_no_folder),
        Rule(Call::mkdir).leaves(Files::as_before, {gone(".../a")}).says(msg::log_no_folder),
        Rule(Call::unlink).says(msg::log_no_removal),
    };
    // A file that can't be emptied is left to Simp_Log_Open to report.
    const Rules emptying = {
        Rule(Call::malloc, kHandle).gives(-ENOMEM).says(msg::log_no_memory),
        Rule({Call::openat, Call::fstat, Call::fdopen, Call::ftruncate})
            .gives(0)
            .leaves(Files::as_before)
            .says(msg::log_not_opened),
        Rule(Call::malloc, kStream).gives(0).leaves(Files::as_before).says(msg::log_not_opened),
        Rule({Call::setvbuf, Call::fclose, Call::close}).is_overlooked(),
    };
    // The third and the fourth folder of the path are not there: looking in vain for them is not a failure.
    Rules new_folders = {Rule(Call::stat, 3).is_overlooked(), Rule(Call::stat, 4).is_overlooked()};

    // A folder that could not be looked at, and can't be made either.
    const Rules then = {Rule(Call::mkdir).gives(-EACCES).says(msg::log_no_folder).alone()};
    const Scenarios scenarios = {
        {"Simp_Log_Create", "in a folder that is there",
         [](Trial &trial) { create_log(trial, trial.path("app.log"), 0); }, 0, rules},
        {"Simp_Log_Create", "in new folders", [](Trial &trial) { create_log(trial, trial.path("a/b/app.log"), 0); }, 0,
         join({new_folders, rules})},
        {"Simp_Log_Create", "a file in the folder's place",
         [](Trial &trial) {
             trial.file("a", "in the way");
             create_log(trial, trial.path("a/app.log"), 0);
         },
         0, rules},
        {"Simp_Log_Create", "emptying the file",
         [](Trial &trial) { create_log(trial, trial.file("app.log", "old\n"), 1); }, 0, join({emptying, rules})},
        {"Simp_Log_Create", "standard output",
         [](Trial &trial) {
             LogHandle log;
             trial.call([&] { return Simp_Log_Create(nullptr, log.place(), 24, 3, 1); });
         },
         0, join({{Rule(Call::fflush).is_overlooked()}, rules})},
    };
    return and_then(scenarios, then);
}

Scenarios open_scenarios() {
    const Rules rules = {
        Rule({Call::openat, Call::fstat, Call::fdopen, Call::ftruncate}).says(msg::log_not_opened),
        Rule(Call::malloc).says(msg::log_not_opened),  // the stream's own
        Rule({Call::setvbuf, Call::fclose, Call::close}).is_overlooked(),
    };
    const auto open = [](int32_t truncate) {
        return [truncate](Trial &trial) {
            LogHandle log;
            log.create(trial.file("app.log", "old\n"));
            trial.call([&] { return Simp_Log_Open(log.get(), truncate); });
            trial.check((log.get()->fpLog != nullptr) == (trial.result() == 0), "a stream comes with success alone");
        };
    };
    return {
        {"Simp_Log_Open", "appending", open(0), 0, rules},
        {"Simp_Log_Open", "truncating", open(1), 0, rules},
        {"Simp_Log_Open", "an open one",
         [](Trial &trial) {
             LogHandle log;
             log.open(trial.file("app.log", "old\n"));
             trial.call([&] { return Simp_Log_Open(log.get(), 0); });
         },
         0, rules},
    };
}

// A line written by the library's own function, since a call by its name arrives at the one that catches messages.
void write_line(Trial &trial, Simp_Log *log) {
    const LogWriter write = library_log_writer();
    // A thread keeps its last stamp. This line puts another there, so that the one that counts makes its own.
    LogHandle other;
    Simp_Log_Create("/dev/null", other.place(), 12, 1, 0);
    Simp_Log_Open(other.get(), 0);
    write(other.get(), "%s", "other");
    trial.call([&] { return write(log, "%s", "four"); });
}

void write_to_file(Trial &trial) {
    LogHandle log;
    log.open(trial.file("app.log", "old\n"));
    write_line(trial, log.get());
}

Scenarios write_scenarios() {
    const Rules rules = {
        Rule(Call::localtime_r)
            .is_overlooked()
            .leaves(Files::as_unharmed, {holding(".../app.log", "old\n[1900-01-00 00:00:00] four\n")}),
        Rule(Call::strftime).is_overlooked(),
        Rule(Call::vsnprintf).says(msg::log_not_formatted),
        Rule(Call::fwrite)
            .when_short()
            .gives(-EIO)
            .leaves(Files::as_before, {holding(".../app.log", "old\n[")})
            .says(msg::log_not_written),
        Rule(Call::fwrite).gives(-EIO).says(msg::log_not_written),
        Rule({Call::fflush, Call::lstat, Call::printf}).is_overlooked(),
    };
    static constexpr const char *lock = "/var/lock/app.log.lck";
    // The watch for a lock that can't be looked at is over.
    const Rule lock_not_seen =
        Rule(Call::lstat, 1).is_overlooked().leaves(Files::as_unharmed, {kept(lock), gone(lock)});
    return {
        {"Simp_Log_Write", "to its file", write_to_file, 0, rules},
        and_then(
            Scenario{"Simp_Log_Write",
                     "a stale lock",
                     [](Trial &trial) {
                         put_stale_lock(trial, lock);
                         write_to_file(trial);
                     },
                     0,
                     join({{lock_not_seen,
                            Rule(Call::vsnprintf).leaves(Files::as_before, {kept(lock)}).says(msg::log_not_formatted)},
                           rules,
                           stale_lock_rules("Check_File_Lock")}),
                     {msg::lock_of_dead("Check_File_Lock")},
                     {},
                     {},
                     lock},
            {lock_not_seen.any_time()}),
        {"Simp_Log_Write", "a closed handle",
         [](Trial &trial) {
             LogHandle log;
             log.create(trial.file("app.log", "old\n"));
             const std::string shown = support::capture_stdout([&] { write_line(trial, log.get()); });
             const bool silent =
                 trial.injection() != nullptr && (trial.injection()->call == Call::printf || trial.result() != 0);
             trial.check(shown.ends_with("] four\n") != silent, "the line on standard output");
         },
         0, join({{Rule(Call::localtime_r).is_overlooked()}, rules})},
    };
}

Scenarios close_scenarios() {
    const Rules rules = {Rule({Call::fclose, Call::fflush}).is_overlooked()};
    return {
        {"Simp_Log_Close", "",
         [](Trial &trial) {
             LogHandle log;
             log.open(trial.path("app.log"));
             trial.call([&] { return Simp_Log_Close(log.get()); });
             trial.check(log.get()->fpLog == nullptr, "the handle is closed");
         },
         0, rules},
        {"Simp_Log_Close", "standard output",
         [](Trial &trial) {
             LogHandle log;
             Simp_Log_Create(nullptr, log.place(), 24, 3, 0);
             trial.call([&] { return Simp_Log_Close(log.get()); });
         },
         0, rules},
        {"Simp_Log_Release", "",
         [](Trial &trial) {
             Simp_Log *log = nullptr;
             Simp_Log_Create(trial.path("app.log").c_str(), &log, 24, 3, 0);
             Simp_Log_Open(log, 0);
             trial.call([&] { return Simp_Log_Release(log), 0; });
         },
         0, rules},
    };
}

Scenarios text_scenarios() {
    constexpr time_t time = 1'705'323'845;
    // What strftime does not write is written by hand, and a time that can't be split counts as none.
    const Rules rules = {Rule({Call::localtime_r, Call::strftime}).is_overlooked()};
    const auto full = [](Trial &trial, const std::array<char, 32> &text, const std::string &wanted) {
        if (trial.injection() == nullptr || trial.injection()->call != Call::localtime_r)
            trial.check(text.data() == wanted, "the text " + wanted);
        trial.check(std::strlen(text.data()) == wanted.size(), "a full text");
    };
    return {
        {"Change_Date_To_String_By_Format_Ex", "",
         [=](Trial &trial) {
             std::array<char, 32> text{};
             trial.call([&] { return Change_Date_To_String_By_Format_Ex(time, text.data(), 32, 3); });
             full(trial, text, "2024-01-15");
         },
         0, rules},
        {"Change_Time_To_String_By_Format_Ex", "",
         [=](Trial &trial) {
             std::array<char, 32> text{};
             trial.call([&] { return Change_Time_To_String_By_Format_Ex(time, text.data(), 32, 0, 24); });
             full(trial, text, "13:04:05");
         },
         0, rules},
        {"Log_DateTime_Format", "",
         [=](Trial &trial) {
             std::array<char, 32> text{};
             trial.call([&] { return Log_DateTime_Format(time, text.data(), 24, 3); });
             full(trial, text, "[2024-01-15 13:04:05] ");
         },
         0, rules},
    };
}

}  // namespace

Module simplog_module() {
    setenv("TZ", "UTC", 1);
    return {"simplog",
            join({create_scenarios(), open_scenarios(), write_scenarios(), close_scenarios(), text_scenarios()}),
            {}};
}

}  // namespace faults
