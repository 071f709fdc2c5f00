#include "exact_stream.h"

#include <unistd.h>

namespace tls_test {

Stream::Stream(Kind kind, Wire::Kind wire) : kind_(kind) {
    if (kind == Kind::tls) {
        record_ = &connection_.emplace(kServer, PeerSetup{}, wire).session;
        set_nonblocking(connection_->peer.descriptor());
    } else {
        wire_.emplace(wire);
        set_nonblocking(wire_->theirs);
        plain_.fdSocket = wire_->give_ours();
    }
    set_nonblocking(record_->fdSocket);
}

Stream::~Stream() {
    SSL_Socket_Destroy(record_, 0);
}

void Stream::vanish() {
    if (connection_)
        connection_->peer.vanish();
    else
        close(wire_->give_theirs());
}

void Stream::reset() {
    if (connection_)
        connection_->peer.reset();
    else
        reset_connection(wire_->give_theirs());
}

void Stream::feed(const std::string &bytes) const {
    if (connection_)
        connection_->peer.write(bytes);
    else
        EXPECT_EQ(send(wire_->theirs, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
}

void Stream::end() const {
    if (connection_)
        connection_->peer.notify_close();
    else
        EXPECT_EQ(shutdown(wire_->theirs, SHUT_WR), 0);
}

std::string Stream::drain(size_t size) const {
    if (connection_)
        return connection_->peer.read(size);

    std::string bytes(size, '\0');
    const ssize_t length = recv(wire_->theirs, bytes.data(), size, 0);
    bytes.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return bytes;
}

std::string Stream::rest() {
    std::string bytes(4096, '\0');
    const int64_t length = SSL_Recv(record_, bytes.data(), bytes.size(), 0);
    bytes.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return bytes;
}

BeforeReceive::BeforeReceive(const Stream &stream, std::function<void()> action) {
    const auto counted = [receives = receives_, action = std::move(action)] {
        ++*receives;
        action();
    };
    if (stream.kind() == Kind::plain) {
        plain_.emplace(Call::recv, 0, counted);
        return;
    }

    reading_.emplace([counted](SSL *ssl, void *buffer, int size) {
        counted();
        return SSL_read(ssl, buffer, size);
    });
    peeking_.emplace([counted](SSL *ssl, void *buffer, int size) {
        counted();
        return SSL_peek(ssl, buffer, size);
    });
}

}  // namespace tls_test
