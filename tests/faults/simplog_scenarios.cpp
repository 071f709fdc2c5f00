// The log facility, with calls of the system failing.
#include <cerrno>
#include <cstring>

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

Scenarios create_scenarios() {
    // Folders made before a failure stay.
    const Rules rules = {
        Rule(Call::malloc, 1).gives(-ENOMEM).leaves(Files::any).says(msg::log_no_memory),
        // Whatever its reason, a folder that can't be looked at is made, which fails where it is there.
        Rule(Call::stat).gives(-EEXIST).with_code(-EEXIST).says(msg::log_no_folder),
        Rule(Call::mkdir).leaves(Files::any).says(msg::log_no_folder),
        Rule(Call::unlink).says(msg::log_no_removal),
    };
    // A file that can't be emptied is left to Simp_Log_Open to report.
    const Rules emptying = {
        Rule(Call::fopen).gives(0).leaves(Files::as_before).says(msg::log_not_opened),
        Rule(Call::malloc, 2).gives(0).leaves(Files::as_before).says(msg::log_not_opened),  // the stream's own
        Rule({Call::setvbuf, Call::fclose}).is_overlooked(),
    };
    // The third and the fourth folder of the path are not there: looking in vain for them is not a failure.
    Rules new_folders = {Rule(Call::stat, 3).is_overlooked(), Rule(Call::stat, 4).is_overlooked()};

    return {
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
}

Scenarios open_scenarios() {
    const Rules rules = {
        Rule(Call::fopen).says(msg::log_not_opened),
        Rule(Call::malloc).says(msg::log_not_opened),  // the stream's own
        Rule({Call::setvbuf, Call::fclose}).is_overlooked(),
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

}  // namespace

Module simplog_module() {
    return {"simplog", join({create_scenarios(), open_scenarios()}), {}};
}

}  // namespace faults
