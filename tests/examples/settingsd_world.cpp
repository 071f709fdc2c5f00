#include "settingsd_world.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <system_error>

namespace {

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void enter_empty_network() {
    if (unshare(CLONE_NEWNET) != 0)
        fail("a network of its own");

    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::string("lo").copy(request.ifr_name, IFNAMSIZ - 1);
    request.ifr_flags = IFF_UP;
    if (ioctl(socket, SIOCSIFFLAGS, &request) != 0)
        fail("the loopback interface");
    close(socket);
}

// Up to `size` bytes, fewer where the peer closes.
std::string receive(int socket, size_t size) {
    std::string bytes;
    char block[65536];
    while (bytes.size() < size) {
        const ssize_t count = recv(socket, block, std::min(sizeof block, size - bytes.size()), 0);
        if (count <= 0)
            break;
        bytes.append(block, static_cast<size_t>(count));
    }
    return bytes;
}

uint32_t length_in(const std::string &header) {
    uint32_t length = 0;
    for (size_t i = 4; i < 8; i++)
        length = length << 8 | static_cast<unsigned char>(header[i]);
    return length;
}

template <class Address>
int connected(int family, const Address &address) {
    const int socket = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fail("connect");
    return socket;
}

// "[2024-01-31 13:04:05] ".
bool has_stamp_at(std::string_view line, size_t place) {
    constexpr std::string_view kStamp = "[0000-00-00 00:00:00] ";
    const std::string_view text = line.substr(place, kStamp.size());
    return text.size() == kStamp.size() && std::equal(text.begin(), text.end(), kStamp.begin(), [](char is, char want) {
               return want == '0' ? std::isdigit(static_cast<unsigned char>(is)) != 0 : is == want;
           });
}

// A stamp and something behind it, which is not another line.
bool is_whole(std::string_view line) {
    constexpr size_t kStampSize = 22;
    if (!has_stamp_at(line, 0) || line.size() == kStampSize)
        return false;
    for (size_t i = 1; i < line.size(); i++)
        if (has_stamp_at(line, i))
            return false;
    return true;
}

}  // namespace

std::ostream &operator<<(std::ostream &stream, const Reply &reply) {
    return stream << "status " << reply.status << ", text: " << reply.text;
}

std::string header(char command, uint32_t length) {
    std::string bytes = {'K', 'S', 1, command};
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(length >> shift);
    return bytes;
}

std::string request(char command, const std::string &text) {
    return header(command, static_cast<uint32_t>(text.size())) + text;
}

Peer Peer::local(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return Peer(connected(AF_UNIX, address));
}

Peer Peer::tcp(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return Peer(connected(AF_INET, address));
}

Peer::~Peer() {
    if (socket_ >= 0)
        close(socket_);
}

bool Peer::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

void Peer::wait_until_read() const {
    for (int waiting = 1; waiting != 0; usleep(1000))
        if (ioctl(socket_, SIOCOUTQ, &waiting) != 0)
            fail("SIOCOUTQ");
}

bool Peer::is_answered() const {
    char byte = 0;
    return recv(socket_, &byte, 1, MSG_PEEK) == 1;
}

std::optional<Reply> Peer::reply() const {
    const std::string head = receive(socket_, 8);
    if (head.size() != 8 || head.substr(0, 3) != std::string("KS\1"))
        return std::nullopt;

    Reply reply{.status = head[3], .text = receive(socket_, length_in(head))};
    if (reply.text.size() != length_in(head))
        return std::nullopt;
    return reply;
}

std::string Peer::rest() const {
    return receive(socket_, SIZE_MAX);
}

SettingsdTest::SettingsdTest() {
    // Where no time zone is set, glibc makes its own anew for each line of a log, under a lock that ThreadSanitizer
    // does not see.
    setenv("TZ", "UTC0", 1);
    enter_empty_network();
}

Words SettingsdTest::local_words() const {
    return {"--socket", "socket", "--conf", "conf", "--log", folder.path("log"), "--timeout", "60000"};
}

Words SettingsdTest::tls_address() {
    return {"--port", std::to_string(kPort), "--cert", "cert.pem", "--ca", "ca.pem", "--password-file", "pass"};
}

Words SettingsdTest::tls_words() const {
    return joined(local_words(), tls_address());
}

std::unique_ptr<Program> SettingsdTest::start(const Words &words) const {
    auto daemon = std::make_unique<Program>(SETTINGSD_PROGRAM, words, folder.path());
    const std::string line = "] process " + std::to_string(daemon->pid()) + " serves ";
    while (!support::exists(folder.path("log")) || log().find(line) == std::string::npos) {
        if (!daemon->runs()) {
            std::ostringstream outcome;
            outcome << daemon->wait();
            throw std::runtime_error("the daemon does not start: " + outcome.str());
        }
        usleep(1000);
    }
    return daemon;
}

void SettingsdTest::expect_clean_stop(Program &daemon, int signal) const {
    daemon.send(signal);
    EXPECT_EQ(daemon.wait(), Outcome());
    EXPECT_FALSE(support::exists(folder.path("socket")));
    expect_whole_log();
#ifdef SETTINGSD_TRACED
    EXPECT_THAT(log(), testing::ContainsRegex("Mem Usage: GOOD, Alloc: [0-9]+ times, Free: [0-9]+ times\n$"));
#else
    EXPECT_THAT(log(), testing::Not(testing::HasSubstr("Mem Usage")));
#endif
}

Outcome SettingsdTest::settings(const Words &words) const {
    return Program(SETTINGS_PROGRAM, joined({"--socket", "socket"}, words), folder.path()).wait();
}

Outcome SettingsdTest::tls_settings(const Words &words) const {
    return Program(SETTINGS_PROGRAM, joined(tls_address(), words), folder.path()).wait();
}

void SettingsdTest::make_certificate() const {
    folder.file("pass", "open, please\n");
    const std::string script =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -passout file:pass -days 2 -subj /CN=localhost "
        "-keyout key.pem -out ca.pem && cat ca.pem key.pem > cert.pem";
    const Outcome outcome = Program("/bin/sh", {"-c", script}, folder.path()).wait();
    ASSERT_EQ(outcome.exit_status, 0) << outcome;
}

void SettingsdTest::expect_whole_log() const {
    const std::string text = log();
    EXPECT_TRUE(text.ends_with('\n'));
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        EXPECT_TRUE(is_whole(line)) << "not a whole line: " << line;
}
