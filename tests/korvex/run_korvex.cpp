#include "run_korvex.h"

#include <spawn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace {

// What a process reads or writes here waits in memory, so that neither side can block the other.
int memory_file(const std::string &content = "") {
    const int fd = memfd_create("korvex-test", MFD_CLOEXEC);
    if (fd < 0 || write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
        throw std::system_error(errno, std::generic_category(), "memory file");
    lseek(fd, 0, SEEK_SET);
    return fd;
}

std::string taken_content(int fd) {
    std::string content;
    char block[65536];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t size = read(fd, block, sizeof block); size > 0; size = read(fd, block, sizeof block))
        content.append(block, static_cast<size_t>(size));
    close(fd);
    return content;
}

}  // namespace

std::ostream &operator<<(std::ostream &stream, const Outcome &outcome) {
    return stream << "exit status " << outcome.exit_status << "\nout: " << outcome.out << "\nerr: " << outcome.err;
}

std::vector<char *> argv_of(const Words &words) {
    std::vector<char *> argv = {const_cast<char *>(KORVEX_PROGRAM)};
    for (const std::string &word : words)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    return argv;
}

KorvexProcess::KorvexProcess(const Words &words, const std::string &folder, const std::string &input, int out)
    : out_(memory_file()), err_(memory_file()) {
    const std::vector<char *> argv = argv_of(words);

    const int in = memory_file(input);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out < 0 ? out_ : out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err_, STDERR_FILENO);
    posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    const int error = posix_spawn(&pid_, KORVEX_PROGRAM, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), KORVEX_PROGRAM);
}

KorvexProcess::~KorvexProcess() {
    if (pid_ == 0)
        return;
    send(SIGKILL);
    wait();
}

Outcome KorvexProcess::wait() {
    const int exit_status = support::wait_for(pid_);
    pid_ = 0;
    return {exit_status, taken_content(out_), taken_content(err_)};
}
