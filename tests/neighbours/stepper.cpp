#include "stepper.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <map>
#include <stdexcept>
#include <system_error>

#include "log_capture.h"
#include "sandbox.h"

namespace neighbours {
namespace {

constexpr time_t kPatienceSeconds = 10;
constexpr size_t kMessageSpace = 1 << 20;

void check(bool done, const char *what) {
    if (!done)
        throw std::system_error(errno, std::generic_category(), what);
}

// What the victim tells without a system call: memory that the test sees, too.
struct Told {
    volatile bool at_work;
    int64_t result;
    size_t message_bytes;
    char messages[kMessageSpace];  // each with a NUL behind it
};

class SharedTold {
  public:
    SharedTold()
        : told_(static_cast<Told *>(
              mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        check(told_ != MAP_FAILED, "share memory with the victim");
    }
    ~SharedTold() { munmap(told_, sizeof(Told)); }
    SharedTold(const SharedTold &) = delete;
    SharedTold &operator=(const SharedTold &) = delete;

    Told *operator->() const { return told_; }

  private:
    Told *told_;
};

void tell_messages(const SharedTold &told, const std::vector<std::string> &messages) {
    std::string all;
    for (const std::string &message : messages)
        all += message + '\0';
    if (all.size() > kMessageSpace)
        all.erase(0, all.size() - kMessageSpace);
    all.copy(told->messages, all.size());
    told->message_bytes = all.size();
}

std::vector<std::string> told_messages(const SharedTold &told) {
    std::vector<std::string> messages;
    const char *begin = told->messages;
    const char *const end = begin + told->message_bytes;
    while (begin != end) {
        messages.emplace_back(begin);
        begin += messages.back().size() + 1;
    }
    return messages;
}

// Ends a wait of this process from the outside: a signal that interrupts it.
class Patience {
  public:
    Patience() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, &outer_);
        const itimerval time{{}, {kPatienceSeconds, 0}};
        setitimer(ITIMER_REAL, &time, nullptr);
    }
    ~Patience() {
        const itimerval none{};
        setitimer(ITIMER_REAL, &none, nullptr);
        sigaction(SIGALRM, &outer_, nullptr);
    }
    Patience(const Patience &) = delete;
    Patience &operator=(const Patience &) = delete;

  private:
    struct sigaction outer_ {};
};

// Follows one victim from its first stop to its end.
class Stepper {
  public:
    Stepper(pid_t victim, const SharedTold &told, const BeforeCall &before)
        : victim_(victim), told_(told), before_(before) {}

    Answer follow() {
        int status = 0;
        check(waitpid(victim_, &status, 0) == victim_ && WIFSTOPPED(status), "wait for the victim's start");
        constexpr auto options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
        check(ptrace(PTRACE_SETOPTIONS, victim_, nullptr, options) == 0, "follow the victim");

        int signal = 0;
        while (go_on(signal, status))
            signal = at_stop(status);
        return answer_;
    }

  private:
    // Lets the victim run to its next stop; false where there is none any more.
    bool go_on(int signal, int &status) {
        check(ptrace(PTRACE_SYSCALL, victim_, nullptr, signal) == 0 || errno == ESRCH, "let the victim go on");
        {
            const Patience patience;
            if (waitpid(victim_, &status, 0) != victim_)
                return give_up();
        }
        if (WIFSTOPPED(status))
            return true;

        answer_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        answer_.result = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
        return false;
    }

    bool give_up() {
        check(errno == EINTR, "wait for the victim");
        answer_.stuck = answer_.calls.empty() ? "no system call" : answer_.calls.back();
        kill(victim_, SIGKILL);
        while (waitpid(victim_, nullptr, 0) < 0 && errno == EINTR) {}
        return false;
    }

    // Returns the signal that the victim is to get, or 0.
    int at_stop(int status) {
        if (status >> 8 == (SIGTRAP | PTRACE_EVENT_EXEC << 8))
            return 0;
        if (WSTOPSIG(status) != (SIGTRAP | 0x80))
            return WSTOPSIG(status);

        __ptrace_syscall_info info{};
        check(ptrace(PTRACE_GET_SYSCALL_INFO, victim_, sizeof info, &info) > 0, "ask for the victim's system call");
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY && told_->at_work)
            at_call(info);
        return 0;
    }

    void at_call(const __ptrace_syscall_info &info) {
        SystemCall call{};
        call.index = static_cast<int64_t>(answer_.calls.size()) + 1;
        call.number = static_cast<int64_t>(info.entry.nr);
        std::copy(std::begin(info.entry.args), std::end(info.entry.args), call.arguments.begin());
        call.process = victim_;
        answer_.calls.push_back(call.name());
        if (before_)
            before_(call);
    }

    pid_t victim_;
    const SharedTold &told_;
    const BeforeCall &before_;
    Answer answer_;
};

void wait_for_stepper() {
    check(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0, "be followed");
    raise(SIGSTOP);
}

// Where the program is built with a leak checker: that one can't work in a process that is followed, and would fail it.
void leave_leaks_alone() {
    const char *const options = std::getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS", (options == nullptr ? "detect_leaks=0" : std::string(options) + ":detect_leaks=0").c_str(),
           1);
}

const std::map<int64_t, std::string> &call_names() {
    static const std::map<int64_t, std::string> names = {
#define KORVEX_NAME(call) {SYS_##call, #call}
        KORVEX_NAME(access),       KORVEX_NAME(bind),      KORVEX_NAME(brk),        KORVEX_NAME(chmod),
        KORVEX_NAME(clone),        KORVEX_NAME(close),     KORVEX_NAME(connect),    KORVEX_NAME(execve),
        KORVEX_NAME(exit_group),   KORVEX_NAME(faccessat), KORVEX_NAME(fchmod),     KORVEX_NAME(fchmodat),
        KORVEX_NAME(fchown),       KORVEX_NAME(fchownat),  KORVEX_NAME(fcntl),      KORVEX_NAME(flock),
        KORVEX_NAME(fstat),        KORVEX_NAME(fstatfs),   KORVEX_NAME(futex),      KORVEX_NAME(getdents64),
        KORVEX_NAME(getpid),       KORVEX_NAME(ioctl),     KORVEX_NAME(kill),       KORVEX_NAME(lchown),
        KORVEX_NAME(linkat),       KORVEX_NAME(listen),    KORVEX_NAME(lseek),      KORVEX_NAME(lstat),
        KORVEX_NAME(mkdir),        KORVEX_NAME(mkdirat),   KORVEX_NAME(mknodat),    KORVEX_NAME(mmap),
        KORVEX_NAME(mprotect),     KORVEX_NAME(munmap),    KORVEX_NAME(nanosleep),  KORVEX_NAME(clock_nanosleep),
        KORVEX_NAME(newfstatat),   KORVEX_NAME(open),      KORVEX_NAME(openat),     KORVEX_NAME(openat2),
        KORVEX_NAME(poll),         KORVEX_NAME(pread64),   KORVEX_NAME(pselect6),   KORVEX_NAME(pwrite64),
        KORVEX_NAME(read),         KORVEX_NAME(readlink),  KORVEX_NAME(readlinkat), KORVEX_NAME(recvfrom),
        KORVEX_NAME(rename),       KORVEX_NAME(renameat),  KORVEX_NAME(renameat2),  KORVEX_NAME(rmdir),
        KORVEX_NAME(rt_sigaction), KORVEX_NAME(select),    KORVEX_NAME(sendfile),   KORVEX_NAME(sendto),
        KORVEX_NAME(socket),       KORVEX_NAME(splice),    KORVEX_NAME(stat),       KORVEX_NAME(statfs),
        KORVEX_NAME(statx),        KORVEX_NAME(symlinkat), KORVEX_NAME(umask),      KORVEX_NAME(unlink),
        KORVEX_NAME(unlinkat),     KORVEX_NAME(utimensat), KORVEX_NAME(wait4),      KORVEX_NAME(write),
#undef KORVEX_NAME
    };
    return names;
}

}  // namespace

std::string SystemCall::name() const {
    const auto found = call_names().find(number);
    return found == call_names().end() ? "system call " + std::to_string(number) : found->second;
}

std::string SystemCall::text(size_t argument) const {
    std::string text;
    uint64_t address = arguments.at(argument);
    // Byte by byte: what follows the text need not be readable.
    for (char byte = 1; address != 0 && byte != '\0'; address++) {
        const iovec here{&byte, 1};
        const iovec there{reinterpret_cast<void *>(address), 1};
        check(process_vm_readv(process, &here, 1, &there, 1, 0) == 1, "read the victim's memory");
        if (byte != '\0')
            text += byte;
    }
    return text;
}

std::string SystemCall::how() const {
    return "call " + std::to_string(index) + " (" + name() + ")";
}

std::string Answer::how() const {
    if (!stuck.empty())
        return "was stuck in " + stuck + ", its call " + std::to_string(calls.size());
    if (signal != 0)
        return "was ended by signal " + std::to_string(signal);
    return "ended with " + std::to_string(result) + " after " + std::to_string(calls.size()) + " calls";
}

Answer run_root(const Body &body, const BeforeCall &before) {
    const SharedTold told;
    const pid_t victim = support::start_child([&] {
        support::LogCapture log;
        wait_for_stepper();
        told->at_work = true;
        told->result = body();
        told->at_work = false;
        tell_messages(told, log.messages());
        return 0;
    });

    Answer answer = Stepper(victim, told, before).follow();
    if (answer.ended() && told->at_work)
        throw std::runtime_error("the victim ended within its body, with status " + std::to_string(answer.result));
    answer.result = told->result;
    answer.messages = told_messages(told);
    return answer;
}

Answer run_root_program(const std::vector<std::string> &arguments, const BeforeCall &before) {
    const SharedTold told;
    const int output = memfd_create("output", MFD_CLOEXEC);
    check(output >= 0, "make a place for the program's output");
    std::vector<char *> words;
    for (const std::string &argument : arguments)
        words.push_back(const_cast<char *>(argument.c_str()));
    words.push_back(nullptr);
    const pid_t victim = support::start_child([&] {
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        leave_leaks_alone();
        wait_for_stepper();
        told->at_work = true;
        execv(words[0], words.data());
        return 127;
    });

    Answer answer = Stepper(victim, told, before).follow();
    answer.output = support::read_file("/proc/self/fd/" + std::to_string(output));
    close(output);
    return answer;
}

}  // namespace neighbours
