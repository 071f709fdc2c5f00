// The general helpers, with calls of the system failing.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "messages_miscfunc.h"
#include "miscfunc.h"
#include "modules.h"

namespace faults {
namespace {

// The system's own /proc, which the sweep itself needs, at another place.
class SystemProc {
  public:
    static std::string path() {
        static const SystemProc proc;
        return proc.folder_.path();
    }

  private:
    SystemProc() = default;
    const support::TempFolder folder_;
    const support::BindMount mount_{"/proc", folder_.path()};
};

// What stands in /proc while a scenario is swept: processes 20 to 20 + `count` - 1 named "daemon" with parent 10,
// process 10 named "parent" with parent 1, and process 30000 of another name. All the same in each run, as the machine's
// are not. Mounted at the first run, since a mount takes much longer than a run.
class Processes {
  public:
    explicit Processes(int count) {
        link_to("self", SystemProc::path() + "/self");
        add(10, "parent", 1);
        add(30000, "other", 10);
        for (int i = 0; i < count; i++)
            add(20 + i, "daemon", 10);
        mount_.emplace(folder_.path(), "/proc");
    }

  private:
    void link_to(const std::string &name, const std::string &target) const {
        if (symlink(target.c_str(), folder_.path(name).c_str()) != 0)
            throw std::runtime_error("no link in the processes' folder");
    }
    void add(int pid, const std::string &name, int parent) const {
        const std::string entry = std::to_string(pid);
        mkdir(folder_.path(entry).c_str(), 0755);
        folder_.file(entry + "/comm", name + "\n");
        folder_.file(entry + "/cmdline", "/usr/bin/" + name);
        folder_.file(entry + "/stat", entry + " (" + name + ") S " + std::to_string(parent) + " 1 1\n");
    }

    const support::TempFolder folder_;
    std::optional<support::BindMount> mount_;
};

// Shows the processes of a scenario in place of those of the one before.
void show_processes(int count) {
    static std::optional<Processes> shown;
    static int shown_count = 0;
    if (std::exchange(shown_count, count) == count)
        return;
    shown.reset();
    shown.emplace(count);
}

Scenarios clock_scenarios() {
    return {
        {"Sleep_MSec",
         "",
         [](Trial &trial) {
             const uint64_t start = trial.clock().now();
             trial.call([] { return Sleep_MSec(1500), 0; });
             // A signal does not shorten the sleep; any other failure ends it.
             const auto refused = [](const Injection *fault) { return fault != nullptr && fault->error == EINVAL; };
             const bool ended = refused(trial.injection()) || refused(trial.second());
             trial.check(trial.clock().now() == start + (ended ? 0 : 1500), "the time that was slept");
         },
         0,
         {Rule(Call::nanosleep).is_overlooked()}},
        {"Is_Process_Existed",
         "",
         [](Trial &trial) { trial.call([] { return Is_Process_Existed(getpid()); }); },
         1,
         {Rule(Call::kill).with(ESRCH).gives(0)}},
    };
}

// These follow the system's convention: -1 and `errno`.
Scenarios removal_scenarios() {
    const Rules rules = {Rule().gives(-1)};
    const auto keeps_errno = [](Trial &trial) {
        if (trial.injection() != nullptr)
            trial.check(errno == trial.injection()->error, "errno is that of the failure");
    };
    return {
        {"Fenwa_Really_Unlink", "",
         [=](Trial &trial) {
             const std::string path = trial.file("x", "1");
             int error = 0;
             trial.call([&] {
                 const int64_t result = Fenwa_Really_Unlink(path.c_str());
                 error = errno;
                 return result;
             });
             errno = error;
             keeps_errno(trial);
         },
         0, rules},
        {"Fenwa_Unlinkat", "a file",
         [=](Trial &trial) {
             trial.file("x", "1");
             const std::string folder = trial.path("");
             int error = 0;
             trial.call([&] {
                 const int32_t result = Fenwa_Unlinkat(-1, folder.c_str(), "x", 0);
                 error = errno;
                 return result;
             });
             errno = error;
             keeps_errno(trial);
         },
         0, rules},
        {"Fenwa_Unlinkat", "a folder",
         [](Trial &trial) {
             mkdir(trial.path("x").c_str(), 0755);
             const std::string folder = trial.path("");
             trial.call([&] { return Fenwa_Unlinkat(-1, folder.c_str(), "x", AT_REMOVEDIR); });
         },
         0, rules},
    };
}

// The blocks of a stream.
constexpr int kStream = 1;
constexpr int kStreamBuffer = 2;

Scenarios process_scenarios() {
    return {
        {"Get_Program_Output",
         "",
         [](Trial &trial) {
             std::array<char, 17> text{};
             int32_t size = 16;
             trial.call([&] { return Get_Program_Output("echo abc", text.data(), &size); });
             const Injection *injection = trial.injection();
             const bool unread = injection != nullptr && injection->call == Call::fread;
             const std::string wanted = !unread ? "abc" : injection->is_short() ? "a" : "";
             if (trial.result() == 0)
                 trial.check(text.data() == wanted && size == static_cast<int>(wanted.size()), "the output");
             else
                 trial.check(size == 16, "nothing is stored after a failure");
         },
         0,
         {// What can't be read is no output, and the command's own end is not looked at.
          Rule({Call::fread, Call::pclose}).is_overlooked(),
          // The stream can do without a buffer.
          Rule(Call::malloc, kStreamBuffer).is_overlooked()}},
        {"Get_Parent_Pid",
         "",
         [](Trial &trial) {
             int32_t parent = 7;
             trial.call([&] { return Get_Parent_Pid(getpid(), &parent); });
             trial.check(parent == (trial.result() == 0 ? getppid() : -1), "the parent, or none");
         },
         0,
         {// Whatever its reason, a status that can't be read is that of no process.
          Rule({Call::fopen, Call::fscanf}).gives(-ESRCH), Rule(Call::malloc, kStream).gives(-ESRCH),
          Rule(Call::malloc).is_overlooked(), Rule(Call::fclose).is_overlooked()}},
    };
}

// Looks for processes by name or path, of which each run finds some.
std::function<void(Trial &)> looking_for(const char *name, int count) {
    return [=](Trial &trial) {
        show_processes(count);
        auto *pids = reinterpret_cast<int32_t *>(&trial);
        int32_t found = 77;
        trial.call([&] { return Get_All_Pids(name, &pids, &found); });
        const bool left_out = trial.injection() != nullptr;
        if (trial.result() == 0)
            trial.check(left_out ? found >= 0 && found <= count : found == count, "the number of processes");
        else
            trial.check(pids == nullptr && found == 0, "nothing is handed out after a failure");
        std::free(pids);
    };
}

Scenarios scan_scenarios() {
    // The blocks of a scan.
    constexpr int array = 1;
    constexpr int folder_stream = 2;
    const Rules scan = {
        Rule(Call::opendir).says(msg::pids_no_folder),
        Rule(Call::dirfd).says(msg::pids_no_descriptor),
        Rule(Call::malloc, array).says(msg::pids_no_memory),
        Rule(Call::malloc, folder_stream).says(msg::pids_no_folder),
        Rule(Call::malloc).says(msg::pids_no_memory),  // the larger array
        // A process that can't be looked at is left out.
        Rule(Call::fstatat).gives({0}).says(msg::pids_no_status),
        Rule(Call::open).gives({0}).says(msg::pids_not_opened),
        Rule(Call::read).gives({0}),
        Rule(Call::readdir).gives({0, -ENODATA}),
        Rule({Call::close, Call::closedir}).is_overlooked(),
    };
    const std::vector<Message> usual = {msg::pids_found, msg::pids_larger};
    // One process is found: without it there is none.
    Rules one = scan;
    for (Rule &rule : one)
        if (rule.applies_to({Call::fstatat, 1, EACCES}) || rule.applies_to({Call::open, 1, EACCES}) ||
            rule.applies_to({Call::read, 1, EIO}))
            rule.gives({0, -ENODATA});
    // Behind the three processes that are looked at for their names: two that are asked for their parents.
    const Rules ancestry = join({{Rule(Call::open, 4).is_overlooked(), Rule(Call::open, 5).is_overlooked(),
                                  Rule(Call::read, 4).is_overlooked(), Rule(Call::read, 5).is_overlooked()},
                                 one});
    // Where a call is the same in two of them, one sweeps it.
    return {
        {"Get_All_Pids", "by name", looking_for("daemon", 2), 0, scan, usual},
        {"Get_All_Pids", "by path", looking_for("/usr/bin/daemon", 2), 0, scan, usual, {}, {Call::open, Call::read}},
        {"Get_All_Pids",
         "more than the first array holds",
         looking_for("daemon", 65),
         0,
         scan,
         usual,
         {},
         {Call::malloc}},
        {"Get_Ancestry_Pid", "",
         [](Trial &trial) {
             show_processes(1);
             int32_t pid = 77;
             trial.call([&] { return Get_Ancestry_Pid("daemon", &pid); });
             if (trial.result() != 0)
                 trial.check(pid == -1, "no process after a failure");
             else
                 trial.check(pid == 10 || (trial.injection() != nullptr && pid == 20),
                             "the ancestor, or how far it is");
         },
         0, ancestry, usual},
    };
}

std::vector<Unfailing> unfailing() {
    const std::string reads = "reads the clock, which is always there";
    const std::string computes = "computes";
    return {
        {"Rough_Tick", reads, [] { Rough_Tick(); }},
        {"Tick_Diff", reads, [] { Tick_Diff(1); }},
        {"Rough_Tick_Diff", reads, [] { Rough_Tick_Diff(1); }},
        {"Swap_Integer", computes,
         [] {
             int32_t one = 1;
             int32_t two = 2;
             Swap_Integer(&one, &two);
         }},
        {"Decimal_String_To_Integer", computes,
         [] {
             int64_t value = 0;
             Decimal_String_To_Integer("-42", &value);
         }},
        {"Integer_To_Decimal_String", computes,
         [] {
             std::array<char, 32> text{};
             const int32_t size = 32;
             Integer_To_Decimal_String(text.data(), &size, -42);
         }},
        {"Size_Unit_Conversion", computes,
         [] {
             std::array<char, 8> unit{};
             float amount = 0;
             Size_Unit_Conversion(1 << 20, &amount, unit.data(), 8);
         }},
        {"Time_Unit_Conversion", computes,
         [] {
             std::array<char, 64> text{};
             Time_Unit_Conversion(90'061, nullptr, text.data(), 64);
         }},
        {"Str_To_Bool", computes, [] { Str_To_Bool("true", 4); }},
    };
}

}  // namespace

Module miscfunc_module() {
    return {"miscfunc",
            join({clock_scenarios(),
                  removal_scenarios(),
                  process_scenarios(),
                  scan_scenarios(),
                  {{"Clone_String",
                    "",
                    [](Trial &trial) {
                        auto *copy = reinterpret_cast<char *>(&trial);
                        char *const before = copy;
                        int32_t length = 77;
                        trial.call([&] { return Clone_String("four", &copy, &length); });
                        if (trial.result() != 0) {
                            trial.check(copy == before && length == 77, "nothing is written after a failure");
                            return;
                        }
                        trial.check(std::string(copy) == "four" && length == 4, "the copy");
                        std::free(copy);
                    },
                    0,
                    {Rule(Call::malloc).says(msg::clone_no_memory)}}}}),
            unfailing()};
}

}  // namespace faults
