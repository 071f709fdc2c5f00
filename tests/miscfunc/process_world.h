// Processes to be found, and places to find them in: what the tests of process queries share.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "faults.h"
#include "log_capture.h"
#include "miscfunc.h"
#include "sandbox.h"

namespace process_test {

using namespace support;

inline void must(bool worked, const char *what) {
    if (!worked)
        throw std::system_error(errno, std::generic_category(), what);
}

// Runs `body` as process 1 of a pid namespace with a /proc of its own: what is to be found there is what `body` starts,
// and nothing else. Process 1 takes all others with it when it ends.
inline void as_first_process(const std::function<void()> &body) {
    const int status = in_child([&] {
        must(unshare(CLONE_NEWPID | CLONE_NEWNS) == 0, "unshare");
        return in_child([&] {
            must(mount("proc", "/proc", "proc", 0, nullptr) == 0, "mount /proc");
            body();
            return testing::Test::HasFailure() ? 1 : 0;
        });
    });
    EXPECT_EQ(status, 0) << "in process 1 of a namespace";
}

inline void set_name(const std::string &name) {
    must(prctl(PR_SET_NAME, name.c_str()) == 0, "prctl");
}

// A pipe that is closed at the end of its life.
class Pipe {
  public:
    explicit Pipe(int flags = 0) { must(pipe2(ends_.data(), flags) == 0, "pipe2"); }
    ~Pipe() {
        close_end(0);
        close_end(1);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    int out() const { return ends_[0]; }
    int in() const { return ends_[1]; }
    void close_end(size_t end) {
        if (ends_[end] >= 0)
            ::close(ends_[end]);
        ends_[end] = -1;
    }
    template <typename Value>
    void put(const Value &value) const {
        must(::write(in(), &value, sizeof value) == sizeof value, "write to a pipe");
    }
    template <typename Value>
    Value take() const {
        Value value;
        must(::read(out(), &value, sizeof value) == sizeof value, "read from a pipe");
        return value;
    }

  private:
    std::array<int, 2> ends_;
};

[[noreturn]] inline void wait_for_the_end() {
    for (;;)
        pause();
}

// A child that lives until it is ended.
class Process {
  public:
    explicit Process(pid_t pid) : pid_(pid) {}
    ~Process() { end(); }
    Process(Process &&other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
    Process &operator=(Process &&) = delete;

    pid_t pid() const { return pid_; }
    // Kills it without waiting for it: it stays as a zombie.
    void become_zombie() const {
        siginfo_t ended{};
        must(::kill(pid_, SIGKILL) == 0, "kill");
        must(waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOWAIT) == 0, "waitid");
    }
    // Nothing is left of it.
    void end() {
        if (pid_ == 0)
            return;
        ::kill(pid_, SIGKILL);
        wait_for(std::exchange(pid_, 0));
    }

  private:
    pid_t pid_;
};

// A child of a chosen command name.
inline Process named(const std::string &name) {
    const Pipe ready;
    Process child(start_child([&] {
        set_name(name);
        ready.put('r');
        wait_for_the_end();
        return 0;
    }));
    (void)ready.take<char>();
    return child;
}

// Each of `names` as the child of the one before it, the first one as a child of this process; their ids, when all run.
// For process 1 of a namespace, which ends them.
inline std::vector<pid_t> start_line_of(const std::vector<std::string> &names) {
    const Pipe started;
    const std::function<int(size_t)> run = [&](size_t place) -> int {
        set_name(names[place]);
        started.put(getpid());
        if (place + 1 < names.size())
            start_child([&] { return run(place + 1); });
        wait_for_the_end();
    };
    start_child([&] { return run(0); });

    std::vector<pid_t> line;
    for (size_t i = 0; i < names.size(); i++)
        line.push_back(started.take<pid_t>());
    return line;
}

// A running program: a file that is executed with chosen arguments, the first one being its name. It has to hand a line
// from its standard input to its standard output, which tells that it is past its start, and to wait for another.
class Program {
  public:
    Program(const std::string &file, const std::vector<std::string> &arguments)
        : process_(start_child([&] { return execute(file, arguments); })) {
        to_.close_end(0);
        from_.close_end(1);
        to_.put('\n');
        (void)from_.take<char>();
    }

    pid_t pid() const { return process_.pid(); }
    void become_zombie() const { process_.become_zombie(); }

  private:
    int execute(const std::string &file, const std::vector<std::string> &arguments) const {
        must(dup2(to_.out(), STDIN_FILENO) == STDIN_FILENO && dup2(from_.in(), STDOUT_FILENO) == STDOUT_FILENO, "dup2");
        std::vector<char *> words;
        for (const std::string &argument : arguments)
            words.push_back(const_cast<char *>(argument.c_str()));
        words.push_back(nullptr);
        execv(file.c_str(), words.data());
        must(false, "execv");
        return 1;
    }

    Pipe to_{O_CLOEXEC};
    Pipe from_{O_CLOEXEC};
    Process process_;
};

// A program file that does what `Program` asks for.
inline std::string program_file(const TempFolder &folder, const std::string &name) {
    const std::string path = folder.path(name);
    std::filesystem::copy_file("/bin/cat", path);
    return path;
}

// What stands under a process id in /proc; what is empty text in it is an empty file, and what is "-" is no file.
struct ProcEntry {
    std::string name;
    std::string comm = "-";
    std::string cmdline = "-";
    std::string stat = "-";
};

// Runs `body` in a child whose /proc is made of `entries` alone, in a file system that lists them in an order of its
// own: for what no kernel shows at a chosen moment.
inline void with_proc(const std::vector<ProcEntry> &entries, const std::function<void()> &body) {
    const int status = in_child([&] {
        must(unshare(CLONE_NEWNS) == 0, "unshare");
        must(mount("korvex-test", "/proc", "tmpfs", 0, nullptr) == 0, "mount /proc");
        for (const ProcEntry &entry : entries) {
            const std::string folder = "/proc/" + entry.name;
            must(mkdir(folder.c_str(), 0755) == 0, "mkdir");
            for (const auto &[file, content] :
                 {std::pair("comm", entry.comm), {"cmdline", entry.cmdline}, {"stat", entry.stat}})
                if (content != "-")
                    write_file(folder + "/" + file, content);
        }
        body();
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(status, 0) << "with a /proc of chosen entries";
}

// Get_All_Pids with its result and outputs in one.
struct Found {
    explicit Found(const std::string &name) {
        int32_t *array = &count;
        result = Get_All_Pids(name.c_str(), &array, &count);
        null = array == nullptr;
        if (result == 0) {
            pids.assign(array, array + count);
            std::free(array);
        }
    }

    int32_t result;
    std::vector<int32_t> pids;
    int32_t count = 99;
    bool null;
};

// The ids found; a failure is a failure of the test.
inline std::vector<int32_t> pids_of(const std::string &name) {
    const Found found(name);
    EXPECT_EQ(found.result, found.pids.empty() ? -ENODATA : 0);
    EXPECT_EQ(found.null, found.pids.empty());
    EXPECT_EQ(found.count, static_cast<int32_t>(found.pids.size()));
    return found.pids;
}

inline std::string match_message(int32_t pid, const std::string &name) {
    return "[debug] Get_All_Pids(#): " + std::to_string(pid) + " is a \"" + name + "\" process.\n";
}

}  // namespace process_test
