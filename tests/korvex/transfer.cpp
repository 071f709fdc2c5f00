#include "transfer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "network.h"

namespace {

[[noreturn]] void fail(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The limit is against hanging alone.
void wait_until(const std::function<bool()> &holds, const std::string &what) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > limit)
            throw std::runtime_error("waited in vain: " + what);
        usleep(1000);
    }
}

// Sockets in the state "listen": 0A in the tables of TCP, the flag 00010000 in that of local sockets.
bool listens_on_port(int port) {
    char end[16];
    std::snprintf(end, sizeof end, ":%04X", port);
    for (const char *table : {"/proc/thread-self/net/tcp", "/proc/thread-self/net/tcp6"}) {
        std::istringstream lines(support::read_file(table));
        std::string slot, local, remote, state;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream(line) >> slot >> local >> remote >> state;
            if (local.ends_with(end) && state == "0A")
                return true;
        }
    }
    return false;
}

bool listens_on_path(const std::string &path) {
    std::istringstream lines(support::read_file("/proc/thread-self/net/unix"));
    for (std::string line; std::getline(lines, line);)
        if (line.ends_with(" " + path) && line.find(" 00010000 ") != std::string::npos)
            return true;
    return false;
}

// It stays to be waited for.
bool has_ended(pid_t pid) {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid;
}

sockaddr_in loopback() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

template <typename Address>
RawPeer connected(int family, const Address &address) {
    RawPeer peer(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(peer.descriptor(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fail("connect");
    return peer;
}

}  // namespace

RawPeer::RawPeer(RawPeer &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

void RawPeer::say(const std::string &bytes) const {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t sent = send(descriptor_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent < 0)
            fail("send");
        done += static_cast<size_t>(sent);
    }
}

std::string RawPeer::hear(size_t size) const {
    std::string bytes(size, '\0');
    size_t done = 0;
    while (done < size) {
        const ssize_t got = recv(descriptor_, bytes.data() + done, size - done, 0);
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

void RawPeer::hang_up() {
    if (descriptor_ >= 0)
        close(std::exchange(descriptor_, -1));
}

std::string big_endian(uint64_t number, int bytes) {
    std::string text;
    for (int i = bytes - 1; i >= 0; --i)
        text += static_cast<char>(number >> (8 * i) & 0xff);
    return text;
}

std::string header(uint64_t size) {
    return "korvex/1" + big_endian(size, 8);
}

std::string answer(uint32_t error) {
    return "korvex/1" + big_endian(error, 4);
}

TransferTest::TransferTest() {
    support::enter_network();
}

void TransferTest::expect_time_out(const std::string &text,
                                   const std::function<Outcome(const std::string &ms)> &attempt) {
    Outcome outcome;
    for (int timeout = 150; timeout < 20'000; timeout *= 3) {
        const std::string ms = std::to_string(timeout);
        try {
            outcome = attempt(ms);
        } catch (const std::system_error &error) {
            outcome = {-1, "", error.what()};
        }
        const std::regex expected(std::regex_replace(text, std::regex("MS"), ms + " ms") + "\n");
        if (outcome.exit_status == 3 && std::regex_match(outcome.err, expected))
            return;
    }
    ADD_FAILURE() << "never came to: " << text << "\nlast: " << outcome;
}

Words TransferTest::with(Words words, const Words &more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

std::string TransferTest::content(size_t size) {
    std::string text(size, '\0');
    uint32_t state = 12345;
    for (char &byte : text) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return text;
}

void TransferTest::start_receiver(std::optional<KorvexProcess> &process, const Words &words) const {
    process.emplace(with({"recv"}, words), folder.path());
    const auto socket = std::find(words.begin(), words.end(), "--unix");
    const bool local = socket != words.end();
    wait_until(
        [&] { return (local ? listens_on_path(socket[1]) : listens_on_port(kPort)) || has_ended(process->pid()); },
        "a receiver that listens");
}

RawPeer TransferTest::connect_to_receiver() const {
    return connected(AF_INET, loopback());
}

RawPeer TransferTest::connect_to_receiver(const std::string &socket) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socket.copy(address.sun_path, sizeof address.sun_path - 1);
    return connected(AF_UNIX, address);
}

RawPeer TransferTest::begun(uint64_t size) const {
    RawPeer peer = connect_to_receiver();
    peer.say(header(size));
    if (peer.hear(12) != answer())
        throw std::runtime_error("the header was not taken");
    return peer;
}

RawPeer TransferTest::accept_sender() const {
    const int accepted = accept4(listener_->descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
    if (accepted < 0)
        fail("accept");
    return RawPeer(accepted);
}

void TransferTest::listen() {
    listener_.emplace(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = loopback();
    const int on = 1;
    setsockopt(listener_->descriptor(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener_->descriptor(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        ::listen(listener_->descriptor(), 1) != 0)
        fail("listen");
}

void TransferTest::make_certificates() const {
    safe_.file("pass.txt", "open sesame\nnot this line\n");
    support::run_command("cd " + safe_.path() +
                         " && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -days 2 -subj /CN=test"
                         " -addext subjectAltName=DNS:localhost,IP:127.0.0.1 -noenc -keyout key.pem -out cert.only"
                         " && openssl pkcs8 -topk8 -in key.pem -out locked.key -passout file:pass.txt"
                         " && cat cert.only key.pem > cert.pem && cat cert.only locked.key > locked.pem");
}
