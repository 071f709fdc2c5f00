// How a file goes from 'korvex send' to 'korvex recv': the connection, and what is said on it. korvex(1) has the
// format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "cli.h"
#include "process/deadline.h"
#include "socket.h"

namespace korvex::cli {

// The other side is silent or gone.
class ConnectionLost : public Failure {
  public:
    ConnectionLost(int32_t code, const std::string &text) : Failure(kFailure, text), code_(code) {}

    int32_t code() const { return code_; }  // negated errno; 0 where it has closed the connection

  private:
    int32_t code_;
};

// A connected socket, plain or with a TLS session. Its own time-outs say how long the other side may be silent.
class Connection {
  public:
    // Takes the socket over. `peer` is what errors call the other side. The deadline, if any, lives longer.
    Connection(const SSL_Socket_Info &socket, std::string peer, int32_t timeout_ms, const Deadline *deadline = nullptr);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    const std::string &peer() const { return peer_; }
    int socket() const { return socket_.fdSocket; }
    bool is_plain() const { return socket_.pCtx == nullptr; }
    // Throws unless the other side of a TLS session has shown a trusted certificate for this host.
    void verify_peer(const std::string &host) const;

    // Exactly so many bytes.
    void receive(void *buffer, size_t size);
    void send(const void *data, size_t size);
    // Waits until bytes have come on a plain connection, and tells how many.
    uint64_t wait_for_bytes() const;
    // Throws where bytes have come that nobody asked for.
    void refuse_more_than(uint64_t announced);
    // Ends a conversation that is over, with TLS's farewell.
    void close();

    ConnectionLost not_received(int32_t code) const;
    ConnectionLost not_sent(int32_t code) const;

  private:
    ConnectionLost lost(int32_t code, const std::string &silent) const;
    bool is_closed_by_peer() const;

    SSL_Socket_Info socket_;
    const std::string peer_;
    const int32_t timeout_ms_;
    const Deadline *const deadline_;
};

// A plain connection of a socket.
SSL_Socket_Info plain_socket(int socket);

// The sender's header, with the size of the file.
void send_header(Connection &connection, uint64_t size);
uint64_t receive_header(Connection &connection);

// The receiver answers twice: to the header ("go on") and to the last byte ("the file is complete"). In the place of either
// it may send an errno, which ends the transfer.
void send_answer(Connection &connection, int error);
// Throws what the receiver reports.
void receive_answer(Connection &connection);
// Sends the errno of a transfer that has failed, if the connection still works.
void send_report(Connection &connection, int error);
void receive_report(Connection &connection);

// Counts bytes that were moved, while the progress line reads the count.
inline void add_done(uint64_t &done, uint64_t bytes) {
    __atomic_store_n(&done, done + bytes, __ATOMIC_RELAXED);
}

// "ERROR after DONE of SIZE bytes".
Failure broken_off(const Failure &failure, uint64_t done, uint64_t size);

// How many bytes one step moves at most. The progress line is brought up to date between steps.
constexpr uint64_t kTlsPiece = 64 << 10;
constexpr uint64_t kPlainPiece = 1 << 20;

}  // namespace korvex::cli
