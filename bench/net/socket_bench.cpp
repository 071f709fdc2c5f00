// Exact transfer over TCP, local domain and TLS sockets beside bare loops of send and recv, SSL_write and SSL_read, and
// receiving into a file beside bare loops of splice and of read and write.
//
// Both sides work in this process, on the same sockets or on sessions of the same kind, and take turns. Short messages
// go out and come in on one thread, so no waiting hides what a call costs; for long ones a thread of its own sends.
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "rounds.h"
#include "sandbox.h"
#include "sessions.h"
#include "socket.h"

namespace {

using bench::Side;

constexpr size_t kLarge = 64 << 20;
constexpr size_t kFileChunk = 8192;
constexpr int32_t kTimeoutMs = 10'000;

// Beside every bare loop of the same calls.
constexpr const char *kAim = "0.97x";
constexpr const char *kNoAim = "";

void require(bool done, const char *what) {
    if (!done)
        throw std::runtime_error(what);
}

// ---- Exact transfer.

// The two ends of one side: each call moves all the bytes that it is given.
struct Ends {
    std::string name;
    std::function<bool(const char *, size_t)> send;
    std::function<bool(char *, size_t)> receive;
};

// The bare loop: `move` is given what is left and says how much it moved, or 0 or less for a failure.
template <typename Byte, typename Move>
bool move_all(Byte *bytes, size_t size, Move move) {
    for (size_t done = 0; done < size;) {
        const auto moved = move(bytes + done, size - done);
        if (moved <= 0)
            return false;
        done += static_cast<size_t>(moved);
    }
    return true;
}

std::vector<Ends> plain_ends(const bench::Link &link) {
    const int out = link.near();
    const int in = link.far();
    return {{.name = "korvex",
             .send =
                 [out](const char *bytes, size_t size) {
                     return Exactly_Send(out, bytes, size, MSG_NOSIGNAL) == static_cast<int64_t>(size);
                 },
             .receive =
                 [in](char *bytes, size_t size) {
                     const auto length = static_cast<int32_t>(size);
                     return Exactly_Recv(in, bytes, length, kTimeoutMs) == length;
                 }},
            {.name = "bare loops",
             .send =
                 [out](const char *bytes, size_t size) {
                     return move_all(bytes, size, [out](const char *rest, size_t left) {
                         return send(out, rest, left, MSG_NOSIGNAL);
                     });
                 },
             .receive =
                 [in](char *bytes, size_t size) {
                     return move_all(bytes, size, [in](char *rest, size_t left) { return recv(in, rest, left, 0); });
                 }}};
}

std::vector<Ends> tls_ends(bench::LibrarySession &ours, const bench::BareSession &bare) {
    return {{.name = "korvex",
             .send =
                 [&ours](const char *bytes, size_t size) {
                     return Exactly_SSL_Send(ours.client(), bytes, size, 0) == static_cast<int64_t>(size);
                 },
             .receive =
                 [&ours](char *bytes, size_t size) {
                     const auto length = static_cast<int32_t>(size);
                     return Exactly_SSL_Recv(ours.server(), bytes, length, kTimeoutMs) == length;
                 }},
            {.name = "bare loops",
             .send =
                 [&bare](const char *bytes, size_t size) {
                     return move_all(bytes, size, [&bare](const char *rest, size_t left) {
                         return SSL_write(bare.client(), rest, static_cast<int>(left));
                     });
                 },
             .receive =
                 [&bare](char *bytes, size_t size) {
                     return move_all(bytes, size, [&bare](char *rest, size_t left) {
                         return SSL_read(bare.server(), rest, static_cast<int>(left));
                     });
                 }}};
}

std::string random_bytes(size_t size) {
    std::string bytes(size, '\0');
    uint64_t state = 88'172'645'463'325'252;
    for (char &byte : bytes) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        byte = static_cast<char>(state);
    }
    return bytes;
}

const std::string &payload() {
    static const std::string bytes = random_bytes(kLarge);
    return bytes;
}

std::vector<char> &landing() {
    static std::vector<char> bytes(kLarge);
    return bytes;
}

// One message after the other, each sent and then received by this thread.
bench::Cost exchange(const Ends &ends, size_t size, size_t messages) {
    const char *out = payload().data();
    char *in = landing().data();
    return bench::cost_of(CLOCK_THREAD_CPUTIME_ID, [&] {
        for (size_t i = 0; i < messages; ++i)
            if (!ends.send(out, size) || !ends.receive(in, size))
                throw std::runtime_error(ends.name + " did not move a message");
    });
}

// One message that is larger than all buffers on its way; the processor time is that of both ends.
bench::Cost stream(const Ends &ends, size_t size) {
    bool sent = false;
    bool received = false;
    const bench::Cost cost = bench::cost_of(CLOCK_PROCESS_CPUTIME_ID, [&] {
        std::thread sender([&] { sent = ends.send(payload().data(), size); });
        received = ends.receive(landing().data(), size);
        sender.join();
    });
    require(sent && received, "a message did not come through");
    return cost;
}

struct Message {
    const char *name;
    size_t size;
    size_t in_a_round;
};

constexpr Message kMessages[] = {{"64 B", 64, 2000}, {"64 KiB", 64 << 10, 100}, {"64 MiB", kLarge, 1}};

bench::Cost transfer(const Ends &ends, const Message &message) {
    return message.in_a_round > 1 ? exchange(ends, message.size, message.in_a_round) : stream(ends, message.size);
}

void check_arrival(const Ends &ends, const Message &message) {
    std::fill_n(landing().begin(), message.size, '\0');
    transfer(ends, message);
    if (std::memcmp(landing().data(), payload().data(), message.size) != 0)
        throw std::runtime_error(ends.name + " moved other bytes");
}

void compare_message(const std::string &way, const std::vector<Ends> &all, const Message &message) {
    std::vector<Side> sides;
    for (const Ends &ends : all) {
        check_arrival(ends, message);
        sides.push_back({ends.name, [&] { return transfer(ends, message); }, kAim});
    }
    bench::compare(
        {.family = "socket", .job = way + ", " + message.name, .messages = message.in_a_round, .sides = sides});
}

void compare_transfer(const std::string &way, const std::vector<Ends> &all) {
    for (const Message &message : kMessages)
        compare_message(way, all, message);
}

void compare_tls(const std::string &folder) {
    const std::string certificate = folder + "/certificate.pem";
    const std::string password = "a pass phrase";
    bench::write_certificate(certificate, password);
    bench::LibrarySession ours(certificate, password);
    const bench::BareSession bare(certificate, password);
    const std::string kind = bench::kind_of(bare.client());
    require(bench::kind_of(ours.client()->pSsl) == kind, "the two sessions are not of one kind");
    compare_transfer(kind, tls_ends(ours, bare));
}

// ---- Receiving into a file.

using ReceiveFile = bool (*)(int socket, int file, size_t size);

bool by_library(int socket, int file, size_t size) {
    int64_t offset = 0;
    uint64_t received = 0;
    return Recv_File(socket, file, &offset, static_cast<int64_t>(size), &received) == 0 && received == size;
}

bool wait_for(int socket) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(socket, &set);
    timeval second{.tv_sec = 1, .tv_usec = 0};
    return select(socket + 1, &set, nullptr, nullptr, &second) == 1;
}

// With or without asking, before each chunk, whether something has come.
template <bool Wait>
bool by_splice(int socket, int file, size_t size) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    loff_t offset = 0;
    size_t left = size;
    while (left > 0) {
        if (Wait && !wait_for(socket))
            break;
        const ssize_t come =
            splice(socket, nullptr, ends[1], nullptr, std::min(left, kFileChunk), SPLICE_F_MOVE | SPLICE_F_MORE);
        if (come <= 0 ||
            splice(ends[0], nullptr, file, &offset, static_cast<size_t>(come), SPLICE_F_MOVE | SPLICE_F_MORE) != come)
            break;
        left -= static_cast<size_t>(come);
    }
    close(ends[0]);
    close(ends[1]);
    return left == 0;
}

bool by_read_and_write(int socket, int file, size_t size) {
    std::array<char, kFileChunk> buffer;
    if (lseek(file, 0, SEEK_SET) != 0)
        return false;
    for (size_t left = size; left > 0;) {
        const ssize_t come = read(socket, buffer.data(), std::min(left, buffer.size()));
        if (come <= 0 || write(file, buffer.data(), static_cast<size_t>(come)) != come)
            return false;
        left -= static_cast<size_t>(come);
    }
    return true;
}

// The processor time is that of the receiver alone.
bench::Cost receive_file(ReceiveFile receive, const bench::Link &link, int file) {
    bool sent = false;
    bool received = false;
    std::thread sender([&] {
        sent = move_all(payload().data(), kLarge,
                        [&](const char *rest, size_t left) { return send(link.near(), rest, left, MSG_NOSIGNAL); });
    });
    const bench::Cost cost =
        bench::cost_of(CLOCK_THREAD_CPUTIME_ID, [&] { received = receive(link.far(), file, kLarge); });
    sender.join();
    require(sent && received, "a file did not come through");
    return cost;
}

void compare_files(const std::string &way, const bench::Link &link, const std::string &path) {
    const struct {
        const char *name;
        ReceiveFile receive;
        const char *aim;
    } ways[] = {{"korvex", by_library, kNoAim},
                {"splice", by_splice<false>, kNoAim},
                {"select and splice", by_splice<true>, kAim},
                {"read and write", by_read_and_write, kNoAim}};

    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    std::vector<Side> sides;
    for (const auto &[name, receive, aim] : ways) {
        const auto round = [&link, file, receive = receive] { return receive_file(receive, link, file); };
        require(ftruncate(file, 0) == 0, "can't empty the file");
        round();
        require(support::read_file(path) == payload(), "other bytes came into the file");
        sides.push_back({name, round, aim});
    }
    bench::compare({.family = "socket", .job = "Recv_File, 64 MiB by " + way, .messages = 1, .sides = sides});
    close(file);
}

void compare_all(const std::string &only) {
    const support::SmallDisk disk(int64_t{256} << 20);
    const bench::Link tcp = bench::Link::tcp();
    const bench::Link local = bench::Link::local();
    const std::map<std::string, std::function<void()>> jobs = {
        {"1 exact, tcp", [&] { compare_transfer("TCP", plain_ends(tcp)); }},
        {"2 exact, local", [&] { compare_transfer("AF_UNIX", plain_ends(local)); }},
        {"3 exact, tls", [&] { compare_tls(disk.path("")); }},
        {"4 file, tcp", [&] { compare_files("TCP", tcp, disk.path("received")); }},
        {"5 file, local", [&] { compare_files("AF_UNIX", local, disk.path("received")); }},
    };
    for (const auto &[name, job] : jobs)
        if (name.find(only) != std::string::npos)
            job();
}

}  // namespace

// Without arguments, all comparisons; with one, those whose name contains it.
int main(int argc, char **argv) {
    support::enter_sandbox();
    std::puts("Medians of a message's processor time and of the ratios of a round; above 1, korvex is the faster one:");
    compare_all(argc > 1 ? argv[1] : "");
}
