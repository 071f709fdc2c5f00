#include "terminal_process.h"

#include <pty.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

TerminalProcess::TerminalProcess(const Words &words, const std::string &folder) {
    const std::vector<char *> argv = argv_of(words);

    pid_ = forkpty(&screen_, nullptr, nullptr, nullptr);
    if (pid_ < 0)
        throw std::system_error(errno, std::generic_category(), "forkpty");
    if (pid_ == 0) {
        if (chdir(folder.c_str()) == 0)
            execv(argv[0], argv.data());
        _exit(99);
    }
}

TerminalProcess::~TerminalProcess() {
    if (pid_ != 0) {
        kill(pid_, SIGKILL);
        support::wait_for(pid_);
    }
    close(screen_);
}

bool TerminalProcess::shows(const std::string &text) {
    while (shown_.find(text) == std::string::npos)
        if (!read_more())
            return false;
    return true;
}

void TerminalProcess::type(const std::string &keys) const {
    if (write(screen_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
        throw std::system_error(errno, std::generic_category(), "typing");
}

// The terminal reads as an error once nobody has it open any more.
Outcome TerminalProcess::wait() {
    while (read_more()) {}
    const int exit_status = support::wait_for(pid_);
    pid_ = 0;
    return {exit_status, shown_};
}

bool TerminalProcess::read_more() {
    char block[4096];
    const ssize_t size = read(screen_, block, sizeof block);
    if (size <= 0)
        return false;
    shown_.append(block, static_cast<size_t>(size));
    return true;
}
