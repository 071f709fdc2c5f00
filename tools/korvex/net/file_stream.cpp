#include "net/file_stream.h"

#include <endian.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "korvex/tls.hpp"
#include "miscfunc.h"

namespace korvex::cli {
namespace {

// Before anything else in each direction. The digit changes with the format.
constexpr char kMagic[8] = {'k', 'o', 'r', 'v', 'e', 'x', '/', '1'};

struct Header {
    char magic[8];
    uint64_t size;  // big-endian
};

struct Answer {
    char magic[8];
    uint32_t error;  // big-endian
} __attribute__((packed));

// Reads the magic by itself first: so a stranger is recognised even if he sends less than a record.
template <typename Record>
Record receive_record(Connection &connection, const char *program) {
    Record record;
    connection.receive(&record, sizeof kMagic);
    if (std::memcmp(&record, kMagic, sizeof kMagic) != 0)
        throw Failure(kFailure, connection.peer() + " is not 'korvex " + program + "', or one side uses --tls alone");
    connection.receive(reinterpret_cast<char *>(&record) + sizeof kMagic, sizeof record - sizeof kMagic);
    return record;
}

template <typename Record>
void send_record(Connection &connection, Record record) {
    std::memcpy(record.magic, kMagic, sizeof kMagic);
    connection.send(&record, sizeof record);
}

}  // namespace

Connection::Connection(const SSL_Socket_Info &socket, std::string peer, int32_t timeout_ms, const Deadline *deadline)
    : socket_(socket), peer_(std::move(peer)), timeout_ms_(timeout_ms), deadline_(deadline) {}

// A lost peer gets no farewell: sending one could wait for it.
Connection::~Connection() {
    SSL_Socket_Destroy(&socket_, 1);
}

void Connection::close() {
    SSL_Socket_Destroy(&socket_, 0);
}

void Connection::verify_peer(const std::string &host) const {
    try {
        tls::verify_peer(socket_, host);
    } catch (const error &failure) {
        throw Failure(kFailure, host + ": " + failure.reason() + "; nothing was sent (--ca says whom to trust)");
    }
}

// Ctrl-Z and its end interrupt a receive that has a time-out; `done` tells where to go on. The library answers -ETIME for
// a peer that has closed, too: before half the time-out is over that is what it means.
void Connection::receive(void *buffer, size_t size) {
    const uint64_t start = Rough_Tick();
    size_t done = 0;
    while (done < size) {
        const auto rest = static_cast<int32_t>(size - done);
        int32_t received = 0;
        const int32_t code = Exactly_SSL_Recv_Ex(&socket_, static_cast<char *>(buffer) + done, rest, 0, &received);
        if (code < rest && code != -EINTR) {
            const bool early = Rough_Tick_Diff(start) < static_cast<uint64_t>(timeout_ms_) / 2;
            throw not_received(code == -ETIME && early ? 0 : code);
        }
        done += static_cast<size_t>(std::max(0, received));
    }
}

// An interrupted TLS send is continued by the same call.
void Connection::send(const void *data, size_t size) {
    int64_t code = 0;
    do
        code = Exactly_SSL_Send(&socket_, data, size, MSG_NOSIGNAL);
    while (code == -EINTR);
    if (code != static_cast<int64_t>(size))
        throw not_sent(static_cast<int32_t>(code));
}

// The count ends before an urgent byte: there splicing would wait for ever.
uint64_t Connection::wait_for_bytes() const {
    for (;;) {
        const int32_t ready = Is_Socket_Ready_To_Recv(socket(), timeout_ms_);
        if (ready <= 0)
            throw not_received(ready == 0 ? -ETIME : ready);
        int come = 0;
        if (ioctl(socket(), FIONREAD, &come) == 0 && come > 0)
            return static_cast<uint64_t>(come);
        if (sockatmark(socket()) == 1)
            throw Failure(kFailure, peer_ + " sends urgent bytes, as no 'korvex send' does");
        char byte = 0;
        const ssize_t peeked = recv(socket(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        if (peeked == 0 || (peeked < 0 && errno != EAGAIN))
            throw not_received(peeked == 0 ? 0 : -errno);
    }
}

// Does not wait. A session reads from its socket, so the socket must not block meanwhile.
void Connection::refuse_more_than(uint64_t announced) {
    const int flags = fcntl(socket(), F_GETFL);
    fcntl(socket(), F_SETFL, flags | O_NONBLOCK);
    char byte = 0;
    const int64_t more = SSL_Recv(&socket_, &byte, 1, MSG_PEEK);
    fcntl(socket(), F_SETFL, flags);
    if (more > 0)
        throw Failure(kFailure, peer_ + " sends more than the " + std::to_string(announced) + " bytes it announced");
}

ConnectionLost Connection::not_received(int32_t code) const {
    return lost(code, "nothing came from " + peer_);
}

ConnectionLost Connection::not_sent(int32_t code) const {
    return lost(code, peer_ + " took nothing");
}

// A peer that closed a TLS session without its farewell breaks the protocol.
ConnectionLost Connection::lost(int32_t code, const std::string &silent) const {
    if (deadline_ != nullptr && deadline_->is_over())
        return {-ETIME, deadline_->text()};
    const bool timed_out = code == -ETIME || code == -EAGAIN;
    if (code == 0 || ((timed_out || code == -EPROTO) && is_closed_by_peer()))
        return {0, peer_ + " closed the connection"};
    if (timed_out)
        return {code, silent + " for " + std::to_string(timeout_ms_) + " ms"};
    return {code, "the connection to " + peer_ + " is lost: " + error_text(-code)};
}

bool Connection::is_closed_by_peer() const {
    char byte = 0;
    return recv(socket(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

SSL_Socket_Info plain_socket(int socket) {
    return {.fdSocket = socket, .pBio = nullptr, .pSsl = nullptr, .pCtx = nullptr};
}

void send_header(Connection &connection, uint64_t size) {
    send_record(connection, Header{.magic = {}, .size = htobe64(size)});
}

uint64_t receive_header(Connection &connection) {
    return be64toh(receive_record<Header>(connection, "send").size);
}

void send_answer(Connection &connection, int error) {
    send_record(connection, Answer{.magic = {}, .error = htobe32(static_cast<uint32_t>(error))});
}

void receive_answer(Connection &connection) {
    const uint32_t error = be32toh(receive_record<Answer>(connection, "recv").error);
    if (error != 0)
        throw Failure(kFailure, connection.peer() + " reports: " + error_text(static_cast<int>(error)));
}

void send_report(Connection &connection, int error) {
    try {
        send_answer(connection, error);
    } catch (const ConnectionLost &) {  // whoever has gone asks no more
    }
}

void receive_report(Connection &connection) {
    try {
        receive_answer(connection);
    } catch (const ConnectionLost &) {  // the caller knows
    }
}

Failure broken_off(const Failure &failure, uint64_t done, uint64_t size) {
    return {failure.exit_status(),
            std::string(failure.what()) + " after " + std::to_string(done) + " of " + std::to_string(size) + " bytes"};
}

}  // namespace korvex::cli
