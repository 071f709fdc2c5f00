#include "openssl_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace tls_test {
namespace {

std::array<int, 2> new_pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    return ends;
}

std::vector<std::string> with_port(const std::vector<std::string> &options) {
    std::vector<std::string> arguments = {"s_server", "-accept", "127.0.0.1:0"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return arguments;
}

}  // namespace

OpensslProcess::OpensslProcess(const std::vector<std::string> &arguments) {
    const std::array<int, 2> in = new_pipe();
    const std::array<int, 2> out = new_pipe();
    std::vector<char *> words = {const_cast<char *>("openssl")};
    for (const std::string &argument : arguments)
        words.push_back(const_cast<char *>(argument.c_str()));
    words.push_back(nullptr);

    process_ = fork();
    if (process_ == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(out[1], STDERR_FILENO);
        execvp(words[0], words.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    input_ = in[1];
    output_ = out[0];
}

OpensslProcess::~OpensslProcess() {
    end_input();
    close(output_);
    if (process_ > 0) {
        kill(process_, SIGKILL);
        exit_status();
    }
}

void OpensslProcess::write(const std::string &text) const {
    if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("openssl takes no input");
}

void OpensslProcess::end_input() {
    if (input_ >= 0)
        close(std::exchange(input_, -1));
}

std::string OpensslProcess::read_until(const std::string &text) {
    std::string all = std::exchange(ahead_, {});
    std::array<char, 4096> block{};
    while (text.empty() || all.find(text) == std::string::npos) {
        const ssize_t length = read(output_, block.data(), block.size());
        if (length <= 0)
            return all;
        all.append(block.data(), static_cast<size_t>(length));
    }
    const size_t end = all.find(text) + text.size();
    ahead_ = all.substr(end);
    return all.substr(0, end);
}

std::string OpensslProcess::read_all() {
    return read_until("");
}

int OpensslProcess::exit_status() {
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {}
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

OpensslServer::OpensslServer(const std::vector<std::string> &options) : OpensslProcess(with_port(options)) {
    // "ACCEPT 127.0.0.1:PORT", and its warnings anywhere but amid the address.
    const std::string head = read_until("127.0.0.1:");
    const std::string port = read_until("\n");
    if (port.empty())
        throw std::runtime_error("openssl s_server does not listen: " + head);
    port_ = std::stoi(port);
}

}  // namespace tls_test
