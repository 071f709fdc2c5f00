#include "program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "sandbox.h"

namespace {

// What a process writes waits in memory, so that neither side can block the other.
int memory_file() {
    const int fd = memfd_create("korvex-test", MFD_CLOEXEC);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "memory file");
    return fd;
}

std::string taken_content(int fd) {
    std::string content = support::read_file("/proc/self/fd/" + std::to_string(fd));
    close(fd);
    return content;
}

}  // namespace

std::ostream &operator<<(std::ostream &stream, const Outcome &outcome) {
    return stream << "exit status " << outcome.exit_status << "\nout: " << outcome.out << "\nerr: " << outcome.err;
}

Words joined(Words words, const Words &more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

Program::Program(const std::string &path, const Words &words, const std::string &folder)
    : out_(memory_file()), err_(memory_file()) {
    std::vector<char *> argv = {const_cast<char *>(path.c_str())};
    for (const std::string &word : words)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out_, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err_, STDERR_FILENO);
    posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    const int error = posix_spawn(&pid_, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), path);
}

Program::~Program() {
    if (pid_ == 0)
        return;
    send(SIGKILL);
    wait();
}

bool Program::runs() const {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

Outcome Program::wait() {
    const int exit_status = support::wait_for(pid_);
    pid_ = 0;
    return {exit_status, taken_content(out_), taken_content(err_)};
}
