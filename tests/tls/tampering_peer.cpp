#include "tampering_peer.h"

#include <sys/socket.h>

#include <utility>

namespace tls_test {

TamperingPeer::TamperingPeer(int descriptor, bool server, int version, Tamper tamper)
    : descriptor_(descriptor), tamper_(std::move(tamper)), context_(peer_context({version})) {
    SSL_CTX_set_num_tickets(context_, 0);  // so that all it sends is of the handshake
    ssl_ = SSL_new(context_);
    SSL_set_bio(ssl_, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    if (server)
        SSL_set_accept_state(ssl_);
    else
        SSL_set_connect_state(ssl_);
    thread_ = std::thread([this] { run(); });
}

TamperingPeer::~TamperingPeer() {
    thread_.join();
    SSL_free(ssl_);
    SSL_CTX_free(context_);
}

void TamperingPeer::run() {
    for (;;) {
        const int result = SSL_do_handshake(ssl_);
        const bool waits = result != 1 && SSL_get_error(ssl_, result) == SSL_ERROR_WANT_READ;
        if (!send_outgoing() || !waits || !receive_incoming())
            break;
    }
    shutdown(descriptor_, SHUT_WR);
    while (receive_incoming()) {}
}

bool TamperingPeer::send_outgoing() {
    std::string bytes(1 << 16, '\0');
    const int length = BIO_read(SSL_get_wbio(ssl_), bytes.data(), static_cast<int>(bytes.size()));
    bytes.resize(length < 0 ? 0 : static_cast<size_t>(length));

    const std::string instead = tamper_(bytes, sent_);
    sent_ += bytes.size();
    const ssize_t gone = send(descriptor_, instead.data(), instead.size(), MSG_NOSIGNAL);
    return gone == static_cast<ssize_t>(bytes.size());
}

bool TamperingPeer::receive_incoming() {
    std::string bytes(1 << 14, '\0');
    const ssize_t length = recv(descriptor_, bytes.data(), bytes.size(), 0);
    if (length <= 0)
        return false;

    BIO_write(SSL_get_rbio(ssl_), bytes.data(), static_cast<int>(length));
    return true;
}

}  // namespace tls_test
