// korvex lock: runs a command under a file's lock, or tells the lock's state.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "files/lock_list.h"
#include "files/lock_umask.h"
#include "korvex/lock.hpp"
#include "process/duration.h"
#include "process/stop_signals.h"

namespace korvex::cli {
namespace {

using Milliseconds = std::chrono::milliseconds;

struct LockArguments {
    std::string file;
    std::vector<std::string> command;
    std::string wait;
    bool beside = false;
    bool status = false;
    bool list = false;
    bool json = false;
    const Session *session = nullptr;

    lock_kind kind() const { return beside ? lock_kind::side : lock_kind::common; }
    Milliseconds wait_time() const { return wait.empty() ? usual_wait : duration_of("--wait", wait); }
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
    int wait_for_one(Milliseconds time) const {
        const timespec timeout{.tv_sec = time.count() / 1000, .tv_nsec = time.count() % 1000 * 1'000'000};
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

// To take an incomplete lock over, the library must watch it for two seconds in one call. A lock that is younger than a
// moment is most likely about to be filled.
constexpr Milliseconds kMoment{100};
constexpr Milliseconds kTakeOver{2500};

std::optional<file_lock> taken(const LockArguments &arguments, Milliseconds wait) {
    const LockUmask umask;
    return file_lock::try_for(arguments.file, wait, arguments.kind());
}

// What blocks a lock may be a link of one's own, which leads to it: the library knows.
std::optional<file_lock> try_to_take(const LockArguments &arguments, const lock_state &state, Milliseconds time_left) {
    switch (state.status) {
        case lock_status::held:
        case lock_status::unreadable:
            return {};
        case lock_status::incomplete:
            return state.age > kMoment ? taken(arguments, std::min(kTakeOver, time_left)) : std::nullopt;
        default:
            return taken(arguments, Milliseconds(0));
    }
}

// A lock that this process took. It is released in the end, unless another process has taken it over since: a lock
// expires after ten minutes.
class OwnLock {
  public:
    explicit OwnLock(file_lock lock) : lock_(std::move(lock)) {}
    OwnLock(const OwnLock &) = delete;
    OwnLock &operator=(const OwnLock &) = delete;
    ~OwnLock() {
        if (!lock_.is_held())
            lock_.abandon();
    }

  private:
    file_lock lock_;
};

// The library's wait can't be interrupted. So the library is asked only when the lock looks as if it could be had,
// and the waiting between is done here, where a signal ends it.
file_lock take(const LockArguments &arguments, const EndingSignals &signals) {
    constexpr Milliseconds kPass{2};
    using clock = std::chrono::steady_clock;
    const Milliseconds wait = arguments.wait_time();
    const clock::time_point start = clock::now();
    for (;;) {
        const auto waited = std::chrono::duration_cast<Milliseconds>(clock::now() - start);
        const Milliseconds time_left = wait.count() < 0 ? kTakeOver : std::max(wait - waited, Milliseconds(0));
        const lock_state state = inspect(arguments.file, arguments.kind());
        if (std::optional<file_lock> lock = try_to_take(arguments, state, time_left))
            return std::move(*lock);
        if (time_left.count() == 0)
            throw Failure(kNegativeAnswer, arguments.file + ": lock not obtained within " +
                                               std::to_string(wait.count()) + " ms" + holder_text(state));
        if (const int signal = signals.wait_for_one(kPass); signal != 0)
            die_by(signal);
    }
}

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
    constexpr Milliseconds kNow{0};
    for (int early = signals.wait_for_one(kNow); early != 0; early = signals.wait_for_one(kNow))
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

// Whether somebody who asks for the lock now would get it.
int print_status(const LockArguments &arguments) {
    const lock_state state = inspect(arguments.file, arguments.kind());
    std::printf("%s\n", status_line(state).c_str());
    return state.status == lock_status::free || state.status == lock_status::stale ? kSuccess : kNegativeAnswer;
}

void check_usage(const LockArguments &arguments) {
    const char *const look = arguments.list ? "--list" : "--status";
    if (arguments.list && arguments.status)
        throw Failure(kUsage, "--list and --status exclude each other");
    if (arguments.json && !arguments.list)
        throw Failure(kUsage, "--json is for --list");
    if (!arguments.list && arguments.file.empty())
        throw Failure(kUsage, "FILE is required");
    if ((arguments.list || arguments.status) && !arguments.command.empty())
        throw Failure(kUsage, std::string(look) + " takes no COMMAND");
    if (!arguments.list && !arguments.status && arguments.command.empty())
        throw Failure(kUsage, "COMMAND is required");
    (void)arguments.wait_time();
}

int run_lock(const LockArguments &arguments) {
    check_usage(arguments);
    if (arguments.list) {
        print_locks(arguments.file, arguments.json);
        return kSuccess;
    }
    if (arguments.status)
        return print_status(arguments);

    const EndingSignals signals;
    const OwnLock held(take(arguments, signals));
    return wait_for(start_command(arguments.command, arguments.session->start_mask), signals);
}

constexpr const char *kLockDetails =
    R"(Runs COMMAND while holding the lock of FILE, which need not exist, and exits with its exit status: 128
plus the signal's number if a signal ended it, 127 if it is not found, 126 if it can't be run. Signals
that end the tool are passed on to COMMAND, and the lock is released whatever happens. The lock is
/var/lock/_NAME.lck, the one that 'korvex conf set' takes, or with --beside FILE.lck. Others take it
over from a process that has ended, and from any process after ten minutes.

--wait takes milliseconds, or a time with its unit: 500ms, 2s, 1min; a negative one waits for ever.

--status prints one of these. The exit status is 0 where the lock is to be had at once (free, stale), and
1 where somebody who asks for it has to wait (held, incomplete, blocked):
  free
  held pid PID age AGE ms
  stale pid PID age AGE ms (REASON)     whoever waits for it may take it over
  incomplete age AGE ms                 created but not filled; taken over after two seconds
  blocked by WHAT                       a folder, link, pipe, socket or device in its place, which stays there

--list prints every lock of /var/lock and, where FILE is given, the one beside FILE: whose it is, since when,
its state, and what comes of it. A "watched" lock is another program's, for which logs wait. --json prints an
array of objects with "name", "kind", "file", "status", "reason", "pid", "user", "program", "since_ms" (since
1970), "age_ms" and "next", null where it is not known.

Example:
  korvex lock /etc/config/share.conf --wait 2s -- cp /etc/config/share.conf /backup/
  korvex lock --status /etc/config/share.conf)";

}  // namespace

void add_lock_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"lock", "Run a command under a file's lock", kLockDetails}, run_lock);
    arguments.session = &session;
    refuse_empty(add_text(command, "FILE", arguments.file, "The file that the lock protects"));
    add_texts(command, "COMMAND", arguments.command, "The command and its words, after \"--\"");
    add_text(command, "--wait", arguments.wait,
             "Time to wait for the lock, such as 500ms or 2s; negative: for ever [10s]")
        .type_name("TIME");
    command.add_flag("--beside", arguments.beside, "Use the lock beside the file, FILE.lck");
    command.add_flag("--status", arguments.status, "Tell the lock's state instead of taking it");
    command.add_flag("--list", arguments.list, "List all locks");
    command.add_flag("--json", arguments.json, "Print JSON");
}

}  // namespace korvex::cli
