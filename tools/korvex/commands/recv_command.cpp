// korvex recv: takes one file from 'korvex send'.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "fileio.h"
#include "files/descriptor.h"
#include "files/new_file.h"
#include "files/progress_line.h"
#include "files/unfinished_files.h"
#include "net/file_stream.h"
#include "net/peer_arguments.h"
#include "output/shown_name.h"
#include "process/deadline.h"
#include "socket.h"

namespace korvex::cli {
namespace {

constexpr const char *kTheSender = "the sender";

struct ReceiveArguments {
    std::string port;
    std::string file;
    std::string host;
    int32_t max_time = 0;  // milliseconds; 0 for no limit
    PeerArguments peer;
};

using Listeners = std::vector<Descriptor>;

// --- waiting for the sender ---

Listeners listen_on_port(const std::string &host, int32_t port) {
    if (!host.empty())
        (void)address_of(host);

    constexpr int32_t kMost = 16;  // as many as can be waited for at once
    std::array<int32_t, kMost + 1> sockets{};
    const int32_t code = TCP_Socket_Listen(host.empty() ? nullptr : host.c_str(), port, 1, sockets.data(), kMost);
    if (code < 0)
        throw file_failure((host.empty() ? "" : host + " ") + "port " + std::to_string(port), code);

    Listeners listeners;
    for (size_t i = 0; sockets[i] >= 0; ++i)
        listeners.emplace_back(sockets[i]);
    return listeners;
}

// The library removes whatever file is at the path.
Listeners listen_on_path(const std::string &path, UnfinishedFiles &unfinished) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode))
        throw Failure(kFailure, path + ": exists and is not a socket");

    Listeners listeners;
    unfinished.add([&] {
        int32_t socket = -1;
        if (const int32_t code = Domain_Socket_Listen(path.c_str(), &socket, 0); code < 0)
            throw file_failure(path, code);
        listeners.emplace_back(socket);
        return path;
    });
    return listeners;
}

// A sender that goes away between the readiness and the accept leaves nothing to accept.
Descriptor accepted(const Listeners &listeners, const PeerArguments &peer) {
    std::vector<int32_t> sockets;
    for (const Descriptor &listener : listeners) {
        sockets.push_back(listener.get());
        if (const int32_t code = Domain_Sock_Set_Nonblocking(listener.get()); code < 0)
            throw file_failure("socket", code);
    }

    const int32_t limit = peer.given_timeout > 0 ? peer.given_timeout : -1;
    for (;;) {
        int32_t ready = -1;
        const int32_t code =
            Is_Any_Socket_Ready(sockets.data(), static_cast<int32_t>(sockets.size()), limit, &ready, nullptr);
        if (code == 0)
            throw Failure(kFailure, "no sender for " + std::to_string(limit) + " ms");
        if (code < 0)
            throw file_failure("socket", code);
        Descriptor socket(accept4(ready, nullptr, nullptr, SOCK_CLOEXEC));
        if (socket.get() >= 0)
            return socket;
        if (errno != EAGAIN && errno != ECONNABORTED)
            throw file_failure("socket", -errno);
    }
}

// On a local socket urgent bytes become part of the stream: outside it they would be counted as waiting, but not be
// received. On TCP the count stops at them.
void set_options(int socket, const PeerArguments &peer) {
    const long limit = peer.timeout();
    const timeval timeout = {.tv_sec = limit / 1000, .tv_usec = limit % 1000 * 1000};
    const int in_line = peer.unix_path.empty() ? 0 : 1;
    if (setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0 ||
        setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0 ||
        setsockopt(socket, SOL_SOCKET, SO_OOBINLINE, &in_line, sizeof in_line) != 0)
        throw file_failure("socket", -errno);
}

SSL_Socket_Info accept_session(Descriptor socket, const PeerArguments &peer, const std::optional<TlsFiles> &tls,
                               const Deadline &deadline) {
    SSL_Socket_Info connected = plain_socket(socket.get());
    if (tls) {
        const int32_t code = SSL_Accept_Socket(tls->cert.c_str(), tls->password.c_str(), tls->ca.c_str(), &connected);
        if (code < 0 && deadline.is_over())
            throw Failure(kFailure, deadline.text());
        if (code == -EAGAIN)
            throw Failure(kFailure, "nothing came from the sender for " + std::to_string(peer.timeout()) + " ms");
        if (code < 0)
            throw file_failure("no TLS session with the sender", code);
    }
    (void)socket.release();
    return connected;
}

// Whoever comes first is the sender: nobody can connect any more behind it.
Descriptor connected_sender(const ReceiveArguments &arguments, int32_t port, UnfinishedFiles &unfinished) {
    const PeerArguments &peer = arguments.peer;
    const Listeners listeners =
        peer.unix_path.empty() ? listen_on_port(arguments.host, port) : listen_on_path(peer.unix_path, unfinished);
    if (ProgressLine::is_shown())
        std::fprintf(stderr, "waiting for a sender on %s\n",
                     peer.unix_path.empty() ? ("port " + std::to_string(port)).c_str() : shown(peer.unix_path).c_str());
    Descriptor socket = accepted(listeners, peer);
    unfinished.remove(peer.unix_path);
    set_options(socket.get(), peer);
    return socket;
}

// --- the file ---

// Recv_File waits for ever for a sender that has gone: it is asked for nothing but what has come.
void receive_plain(const Connection &connection, const NewFile &file, uint64_t size, uint64_t &done) {
    while (done < size) {
        const uint64_t wanted = std::min({size - done, connection.wait_for_bytes(), kPlainPiece});
        uint64_t written = 0;
        const int32_t code =
            Recv_File(connection.socket(), file.descriptor(), nullptr, static_cast<int64_t>(wanted), &written);
        add_done(done, written);
        file.check_written(code, written, wanted);
    }
}

void receive_encrypted(Connection &connection, const NewFile &file, uint64_t size, uint64_t &done) {
    std::vector<char> piece(kTlsPiece);
    while (done < size) {
        const uint64_t wanted = std::min(kTlsPiece, size - done);
        connection.receive(piece.data(), wanted);
        uint64_t written = 0;
        const int32_t code = File_Write_Bulk(file.descriptor(), piece.data(), static_cast<int64_t>(wanted), &written);
        add_done(done, written);
        file.check_written(code, written, wanted);
    }
}

void receive_content(Connection &connection, const NewFile &file, uint64_t size) {
    uint64_t done = 0;
    const ProgressLine progress(size, [&done](int32_t *) { return __atomic_load_n(&done, __ATOMIC_RELAXED); });
    try {
        connection.is_plain() ? receive_plain(connection, file, size, done)
                              : receive_encrypted(connection, file, size, done);
    } catch (const ConnectionLost &lost) {
        throw broken_off(lost, done, size);
    }
}

void receive_file(Connection &connection, const std::string &target, UnfinishedFiles &unfinished) {
    const uint64_t size = receive_header(connection);
    NewFile file(target, unfinished);
    file.refuse_larger_than_disk(size);
    send_answer(connection, 0);
    receive_content(connection, file, size);
    connection.refuse_more_than(size);
    file.complete();
}

void receive_and_answer(Connection &connection, const std::string &target, UnfinishedFiles &unfinished) {
    try {
        receive_file(connection, target, unfinished);
    } catch (const FileRefused &refused) {
        send_report(connection, refused.error());
        throw;
    }
    try {
        send_answer(connection, 0);
    } catch (const ConnectionLost &lost) {
        throw Failure(kFailure, target + ": is complete, but the sender does not know: " + lost.what());
    }
    connection.close();
}

int run_recv(const ReceiveArguments &arguments) {
    const PeerArguments &peer = arguments.peer;
    const std::vector<std::string> words = positional_words(peer, {{"PORT", arguments.port}, {"FILE", arguments.file}});
    if (!peer.unix_path.empty() && !arguments.host.empty())
        throw Failure(kUsage, "--host is for PORT");
    const int32_t port = peer.unix_path.empty() ? port_of(words[0]) : 0;
    const std::string &target = words[1];
    const std::optional<TlsFiles> tls = tls_files(peer);
    refuse_target(target);

    UnfinishedFiles unfinished;
    Descriptor socket = connected_sender(arguments, port, unfinished);
    const Deadline deadline(socket.get(), arguments.max_time);
    Connection connection(accept_session(std::move(socket), peer, tls, deadline), kTheSender, peer.timeout(),
                          &deadline);
    receive_and_answer(connection, target, unfinished);
    return kSuccess;
}

constexpr const char *kRecvDetails =
    R"(Waits on PORT of all addresses of this machine, or with --unix (then without PORT) on a local socket that
everybody may write to, takes one file from 'korvex send', and ends. The content goes to a temporary file
beside FILE, which replaces FILE when it is complete and on the disk; after a failure, Ctrl-C, SIGTERM or
SIGHUP nothing of it is left. A FILE that is replaced keeps its permission bits. Whoever connects first
is the sender: what does not speak as 'korvex send' does, or announces more than the disk has room for, is
refused, and the tool ends.

Without --timeout it waits for the sender as long as it takes. --max-time limits the whole transfer: a sender
that goes on sending, however slowly, is never silent. On a terminal a line on standard error shows the
progress. --tls is described at 'korvex send'; it needs --cert and --ca. The certificate must be for the name
that the sender knows this machine by; the sender is not asked for one.

Example:
  korvex recv 4000 /share/Public/film.mkv
  korvex recv --unix /run/inbox report.pdf
  korvex recv --tls --cert nas.pem --ca ca.pem --host 192.168.1.10 4000 report.pdf)";

}  // namespace

void add_recv_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"recv", "Receive a file from 'korvex send'", kRecvDetails}, run_recv);
    refuse_empty(add_text(command, "PORT", arguments.port, "The port to wait on, 1 to 65535"));
    refuse_empty(add_text(command, "FILE", arguments.file, "The file that it becomes"));
    refuse_empty(*add_text(command, "--host", arguments.host, "Wait on this name or address alone").type_name("HOST"));
    add_peer_options(command, arguments.peer);
    command
        .add_option("--max-time", arguments.max_time,
                    "Give up when the file is not here so many milliseconds after the sender came")
        ->check(CLI::Range(1, std::numeric_limits<int32_t>::max()).description(""))
        ->type_name("MS");
}

}  // namespace korvex::cli
