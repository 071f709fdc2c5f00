// korvex send: sends a file to a waiting 'korvex recv'.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "fileio.h"
#include "files/descriptor.h"
#include "files/progress_line.h"
#include "net/file_stream.h"
#include "net/peer_arguments.h"
#include "socket.h"

namespace korvex::cli {
namespace {

constexpr const char *kTheReceiver = "the receiver";

struct SendArguments {
    std::string host;
    std::string port;
    std::string file;
    PeerArguments peer;
};

// A pipe that nobody writes to must not hang the open.
struct Source {
    explicit Source(const std::string &path)
        : name(path), file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
        struct stat status {};
        if (file.get() < 0 || fstat(file.get(), &status) != 0)
            throw lookup_failure(path, -errno);
        if (!S_ISREG(status.st_mode))
            throw Failure(kFailure, path + ": is not a file");
        size = static_cast<uint64_t>(status.st_size);
    }

    std::string name;
    Descriptor file;
    uint64_t size = 0;
};

Failure not_connected(const std::string &where, int32_t code, const PeerArguments &peer) {
    if (code == -EINPROGRESS || code == -EAGAIN)
        return {kFailure, where + ": no answer for " + std::to_string(peer.timeout()) + " ms"};
    return file_failure(where, code);
}

SSL_Socket_Info connected_to_path(const PeerArguments &peer) {
    int32_t socket = -1;
    if (const int32_t code = Domain_Socket_Connect(peer.unix_path.c_str(), &socket, peer.timeout()); code < 0)
        throw not_connected(peer.unix_path, code, peer);
    return plain_socket(socket);
}

SSL_Socket_Info connected_to_host(const std::string &host, int32_t port, const PeerArguments &peer,
                                  const std::optional<TlsFiles> &tls) {
    (void)address_of(host);
    SSL_Socket_Info connected = plain_socket(-1);
    const int32_t code = tls ? SSL_Socket_Connect(host.c_str(), port, peer.timeout(), tls->cert.c_str(),
                                                  tls->password.c_str(), tls->ca.c_str(), &connected)
                             : TCP_Socket_Connect(nullptr, host.c_str(), port, peer.timeout(), &connected.fdSocket);
    if (code < 0)
        throw not_connected(host + " port " + std::to_string(port), code, peer);
    return connected;
}

// Ctrl-Z and its end interrupt a send with a time-out: the offset tells where to go on.
void send_plain(Connection &connection, const Source &source, uint64_t &done) {
    int64_t offset = 0;
    while (done < source.size) {
        const uint64_t wanted = std::min(kPlainPiece, source.size - done);
        uint64_t sent = 0;
        errno = 0;  // what the library reports where a file has ended
        const int32_t code =
            File_Send_Bulk(source.file.get(), connection.socket(), static_cast<int64_t>(wanted), &offset, &sent);
        add_done(done, sent);
        if (code == -EIO)
            throw file_failure(source.name, code);
        if (code < 0 && code != -EINTR)
            throw connection.not_sent(code);
        if (code == 0 && sent < wanted)
            throw Failure(kFailure, source.name + ": became shorter while it was sent");
    }
}

void send_encrypted(Connection &connection, const Source &source, uint64_t &done) {
    std::vector<char> piece(kTlsPiece);
    while (done < source.size) {
        const uint64_t wanted = std::min(kTlsPiece, source.size - done);
        const ssize_t got = pread(source.file.get(), piece.data(), wanted, static_cast<off_t>(done));
        if (got < 0)
            throw file_failure(source.name, -errno);
        if (got == 0)
            throw Failure(kFailure, source.name + ": became shorter while it was sent");
        connection.send(piece.data(), static_cast<size_t>(got));
        add_done(done, static_cast<uint64_t>(got));
    }
}

// A receiver that gives up says why before it closes the connection.
void send_content(Connection &connection, const Source &source) {
    uint64_t done = 0;
    const ProgressLine progress(source.size, [&done](int32_t *) { return __atomic_load_n(&done, __ATOMIC_RELAXED); });
    try {
        connection.is_plain() ? send_plain(connection, source, done) : send_encrypted(connection, source, done);
    } catch (const ConnectionLost &lost) {
        if (lost.code() == -EPIPE || lost.code() == -ECONNRESET)
            receive_report(connection);
        throw broken_off(lost, done, source.size);
    }
}

int run_send(const SendArguments &arguments) {
    const PeerArguments &peer = arguments.peer;
    const std::vector<std::string> words =
        positional_words(peer, {{"HOST", arguments.host}, {"PORT", arguments.port}, {"FILE", arguments.file}});
    const int32_t port = peer.unix_path.empty() ? port_of(words[1]) : 0;
    const std::optional<TlsFiles> tls = tls_files(peer);
    const Source source(words[2]);

    Connection connection(
        peer.unix_path.empty() ? connected_to_host(words[0], port, peer, tls) : connected_to_path(peer), kTheReceiver,
        peer.timeout());
    if (tls && peer.no_verify)
        print_error("send",
                    "WARNING: --no-verify: the receiver's certificate is not checked; whoever takes its place "
                    "on the way gets the file");
    else if (tls)
        connection.verify_peer(words[0]);
    send_header(connection, source.size);
    receive_answer(connection);
    send_content(connection, source);
    receive_answer(connection);
    connection.close();
    return kSuccess;
}

constexpr const char *kSendDetails =
    R"(Sends FILE to 'korvex recv', which waits on PORT of HOST, or with --unix (then without HOST and PORT) on a
local socket. Success means that the file is complete on the other side's disk. The content alone is sent:
no name, no permission bits, no time. On a terminal a line on standard error shows the progress.

--tls encrypts the connection. Both sides need --cert, a file with their certificate chain and private key.
The receiver's certificate must come from an authority in --ca (without it: one that the system trusts), be of
this time, and be for HOST, or nothing is sent. --no-verify sends to whoever answers, and says so.

Example:
  korvex send nas.local 4000 /share/Public/film.mkv
  korvex send --unix /run/inbox report.pdf
  korvex send --tls --cert me.pem --ca ca.pem nas.local 4000 report.pdf)";

}  // namespace

void add_send_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"send", "Send a file to 'korvex recv'", kSendDetails}, run_send);
    refuse_empty(add_text(command, "HOST", arguments.host, "Name or address of the receiver"));
    refuse_empty(add_text(command, "PORT", arguments.port, "Its port, 1 to 65535"));
    refuse_empty(add_text(command, "FILE", arguments.file, "The file to send"));
    arguments.peer.is_sender = true;
    add_peer_options(command, arguments.peer);
    command.add_flag("--no-verify", arguments.peer.no_verify,
                     "Don't check the receiver's certificate: anybody on the way can get the file");
}

}  // namespace korvex::cli
