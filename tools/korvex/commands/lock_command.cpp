// korvex lock: runs a command under a file's lock, or tells the lock's state.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "files/lock_file.h"
#include "miscfunc.h"
#include "process/stop_signals.h"

namespace korvex::cli {
namespace {

struct LockArguments {
    std::string file;
    std::vector<std::string> command;
    int32_t wait_ms = 10000;
    bool beside = false;
    bool status = false;
    const Session *session = nullptr;
};

// --- signals ---

// The signals that ask the tool to end. They stay blocked from before the lock is taken until after it is released,
// and are fetched one by one: so there is no moment at which one of them could leave a lock behind.
class EndingSignals {
  public:
    EndingSignals() {
        with_child_ = set_;
        sigaddset(&with_child_, SIGCHLD);
        // Where the parent ignores it, a child's end would not be reported.
        std::signal(SIGCHLD, SIG_DFL);
        pthread_sigmask(SIG_BLOCK, &with_child_, nullptr);
    }

    // Waits so long for one of them; 0 when none came.
    int wait_ms(int milliseconds) const {
        const timespec timeout{.tv_sec = 0, .tv_nsec = milliseconds * 1000000L};
        const int signal = sigtimedwait(&set_, nullptr, &timeout);
        return signal > 0 ? signal : 0;
    }

    // Waits for one of them, or for SIGCHLD.
    siginfo_t wait_with_child() const {
        siginfo_t info{};
        while (sigwaitinfo(&with_child_, &info) < 0) {}
        return info;
    }

  private:
    sigset_t set_ = those_not_ignored({SIGINT, SIGTERM, SIGHUP, SIGQUIT});
    sigset_t with_child_{};
};

// Ends the process by the signal, as it would have ended without the tool's care. Call it without a lock.
[[noreturn]] void die_by(int signal) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    std::signal(signal, SIG_DFL);
    raise(signal);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    std::_Exit(128 + signal);
}

// --- taking the lock ---

// The library takes an incomplete lock over after it has watched it for two seconds, in one call. A lock that is
// younger than a moment is most likely about to be filled.
constexpr int64_t kMomentMs = 100;
constexpr int64_t kTakeOverMs = 2500;

bool try_to_take(const LockFile &lock, const LockState &state, int64_t time_left_ms) {
    switch (state.kind) {
        case LockState::Kind::free:
        case LockState::Kind::stale:
            return lock.take(0);
        case LockState::Kind::incomplete:
            return state.age_ms > kMomentMs && lock.take(static_cast<int32_t>(std::min(kTakeOverMs, time_left_ms)));
        case LockState::Kind::blocked:
            return state.is_followed && lock.take(0);
        case LockState::Kind::held:
            break;
    }
    return false;
}

std::string holder_text(const LockState &state) {
    if (state.kind == LockState::Kind::blocked)
        return ", blocked by " + state.reason;
    return state.kind == LockState::Kind::held ? ", held by process " + std::to_string(state.holder) : "";
}

// The library's wait can't be interrupted. So the library is asked only when the lock looks as if it could be had,
// and the waiting between is done here, where a signal ends it.
void take(const LockFile &lock, const LockArguments &arguments, const EndingSignals &signals) {
    constexpr int kPassMs = 2;
    const uint64_t start = Rough_Tick();
    for (;;) {
        const auto waited_ms = static_cast<int64_t>(Tick_Diff(start));
        const int64_t time_left_ms =
            arguments.wait_ms < 0 ? INT64_MAX : std::clamp<int64_t>(arguments.wait_ms - waited_ms, 0, INT32_MAX);
        const LockState state = lock.state();
        if (try_to_take(lock, state, time_left_ms))
            return;
        if (time_left_ms == 0)
            throw Failure(kNotFound, arguments.file + ": lock not obtained within " +
                                         std::to_string(arguments.wait_ms) + " ms" + holder_text(state));
        if (const int signal = signals.wait_ms(kPassMs); signal != 0)
            die_by(signal);
    }
}

// Releases a lock that this process took, unless another process has taken it over since: a lock expires after ten
// minutes.
class HeldLock {
  public:
    explicit HeldLock(const LockFile &lock) : lock_(lock) {}
    HeldLock(const HeldLock &) = delete;
    HeldLock &operator=(const HeldLock &) = delete;

    ~HeldLock() {
        try {
            if (lock_.state().holder == getpid())
                lock_.release();
        } catch (const Failure &) {
            // A lock that can't be read any more is not ours.
        }
    }

  private:
    const LockFile &lock_;
};

// --- running the command ---

// Throws a Failure with the exit status that shells use for a command that can't be run.
pid_t start_command(const std::vector<std::string> &words, const sigset_t &mask) {
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (const std::string &word : words)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigmask(&attributes, &mask);
    pid_t child = 0;
    const int error = posix_spawnp(&child, argv[0], nullptr, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);

    if (error != 0)
        throw Failure(error == ENOENT ? 127 : 126, words.front() + ": " + error_text(error));
    return child;
}

int exit_status_of(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Passes signals on to the child until it has ended. What the terminal sends (SI_KERNEL) reaches every process of the
// foreground, the child among them, by itself; except for what came before there was a child.
int wait_for(pid_t child, const EndingSignals &signals) {
    for (int early = signals.wait_ms(0); early != 0; early = signals.wait_ms(0))
        kill(child, early);

    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child)
            return exit_status_of(status);
        if (ended < 0)
            throw Failure(kFailure, std::string("can't wait for the command: ") + error_text(errno));

        const siginfo_t info = signals.wait_with_child();
        if (info.si_signo != SIGCHLD && info.si_code != SI_KERNEL)
            kill(child, info.si_signo);
    }
}

// --- the command itself ---

int print_status(const LockFile &lock) {
    const LockState state = lock.state();
    const auto age = static_cast<long long>(state.age_ms);
    switch (state.kind) {
        case LockState::Kind::free:
            std::printf("free\n");
            break;
        case LockState::Kind::held:
            std::printf("held pid %d age %lld ms\n", state.holder, age);
            break;
        case LockState::Kind::stale:
            std::printf("stale pid %d age %lld ms (%s)\n", state.holder, age, state.reason.c_str());
            break;
        case LockState::Kind::incomplete:
            std::printf("incomplete age %lld ms\n", age);
            break;
        case LockState::Kind::blocked:
            std::printf("blocked by %s\n", state.reason.c_str());
            break;
    }
    return kSuccess;
}

int run_lock(const LockArguments &arguments) {
    const LockFile lock(arguments.file, arguments.beside);
    if (arguments.status && !arguments.command.empty())
        throw Failure(kUsage, "--status takes no COMMAND");
    if (arguments.status)
        return print_status(lock);
    if (arguments.command.empty())
        throw Failure(kUsage, "COMMAND is required");

    const EndingSignals signals;
    take(lock, arguments, signals);
    const HeldLock held(lock);
    return wait_for(start_command(arguments.command, arguments.session->start_mask), signals);
}

constexpr const char *kLockDetails =
    R"(Runs COMMAND while holding the lock of FILE, which need not exist, and exits with its exit status: 128
plus the signal's number if a signal ended it, 127 if it is not found, 126 if it can't be run. Signals
that end the tool are passed on to COMMAND, and the lock is released whatever happens. The lock is
/var/lock/_NAME.lck, the one that 'korvex conf set' takes, or with --beside FILE.lck. Others take it
over from a process that has ended, and from any process after ten minutes.

--status prints one of these, exit status 0:
  free
  held pid PID age AGE ms
  stale pid PID age AGE ms (REASON)     whoever waits for it may take it over
  incomplete age AGE ms                 created but not filled; taken over after two seconds
  blocked by WHAT                       a folder, link, pipe, socket or device in its place, which stays there

Example:
  korvex lock /etc/config/share.conf --wait 2000 -- cp /etc/config/share.conf /backup/
  korvex lock --status /etc/config/share.conf)";

}  // namespace

void add_lock_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"lock", "Run a command under a file's lock", kLockDetails}, run_lock);
    arguments.session = &session;
    add_file(command, arguments.file, "The file that the lock protects");
    add_texts(command, "COMMAND", arguments.command, "The command and its words, after \"--\"");
    command.add_option("--wait", arguments.wait_ms, "Milliseconds to wait for the lock; negative: for ever")
        ->type_name("MS")
        ->capture_default_str();
    command.add_flag("--beside", arguments.beside, "Use the lock beside the file, FILE.lck");
    command.add_flag("--status", arguments.status, "Tell the lock's state instead of taking it");
}

}  // namespace korvex::cli
