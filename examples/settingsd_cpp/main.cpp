// settingsd in C++: the daemon of ../settingsd, on the C++ layer. It keeps an appliance's settings in a configuration file
// and serves them to its programs: the same options, protocol and promises, for the same clients.
//
//     options     the command line
//     connection  one peer, and the messages
//     settings    what is done for a request, in the file
//     server      sockets, threads, and the queue between them
//
// Build it with: c++ -std=c++20 -O2 *.cpp $(pkg-config --cflags --libs korvex_util_cpp) -o settingsd
//
// A killed daemon may leave the file's lock, a private copy beside the file and its own socket behind: the library takes
// the lock of a dead process over, `korvex temp` lists the copies, and the next daemon replaces the socket. Give the
// socket a folder of its own, and the port an address (--host) that only the right ones reach: who gets here may change
// settings.
#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <korvex/korvex.hpp>

#include "options.hpp"
#include "server.hpp"

namespace {

// The stop signals arrive at a descriptor, like connections. Blocked before there are threads, they are so in all.
korvex::socket stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    korvex::socket arrived(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    return arrived ? std::move(arrived) : throw korvex::error(errno, "can't wait for", "signals");
}

// A line is one write. But the kernel may end a write early, between two pages of the file, when the process is killed;
// so a daemon that was killed can have left half a line at the log's end. It goes.
void drop_half_line(const std::string &path) {
    constexpr std::uintmax_t longest_line = korvex::log::longest_line + 80;  // with its stamp
    std::error_code missing;
    const std::uintmax_t size = std::filesystem::file_size(path, missing);
    if (missing)
        return;

    const std::uintmax_t start = size > longest_line ? size - longest_line : 0;
    std::string tail(size - start, '\0');
    std::ifstream log(path, std::ios::binary);
    log.seekg(static_cast<std::streamoff>(start)).read(tail.data(), static_cast<std::streamsize>(tail.size()));
    if (const std::size_t line_feed = tail.rfind('\n'); log && line_feed != tail.npos)
        std::filesystem::resize_file(path, start + line_feed + 1);
}

}  // namespace

int main(int argc, char **argv) {
    const options chosen = read_options(argc, argv);
    try {
        korvex::socket signals = stop_signals();
        drop_half_line(chosen.log_path);
        korvex::log log(chosen.log_path);
        const korvex::library_log messages(log, korvex::log_level::errors);
        server(chosen, log, std::move(signals)).run();
        return 0;
    } catch (const std::exception &failure) {
        std::cerr << "settingsd: " << failure.what() << '\n';
        return 1;
    }
}
