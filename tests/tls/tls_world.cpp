#include "tls_world.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace tls_test {
namespace {

constexpr int kWatchdog = 20'000;

void make_local_pair(int *ends) {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::runtime_error("no socket pair");
}

void make_tcp_pair(int *ends) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *general = reinterpret_cast<sockaddr *>(&address);

    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ends[0] = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, general, size) != 0 || listen(listener, 1) != 0 || getsockname(listener, general, &size) != 0 ||
        connect(ends[0], general, size) != 0)
        throw std::runtime_error("no TCP connection");
    ends[1] = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    close(listener);
}

void set_timeout(int descriptor, int option, int milliseconds) {
    const timeval time{milliseconds / 1000, milliseconds % 1000 * 1000};
    EXPECT_EQ(setsockopt(descriptor, SOL_SOCKET, option, &time, sizeof time), 0);
}

}  // namespace

const Side kClient{"SSL_Connect_Socket", SSL_Connect_Socket, false, "SSL connect error!"};
const Side kServer{"SSL_Accept_Socket", SSL_Accept_Socket, true, "SSL accept error!"};

std::string Side::failed(int result, int error) const {
    return "[error] " + std::string(name) + "(#): " + failure + " (" + std::to_string(result) + ", " +
           std::to_string(error) + ")\n";
}

std::string Side::no_context(int code, int error) const {
    return "[error] " + std::string(name) + "(#): Can't Initialize_CTX error! (" + std::to_string(code) + ", " +
           std::to_string(error) + ")\n";
}

Wire::Wire(Kind kind) {
    std::array<int, 2> ends{-1, -1};
    (kind == tcp ? make_tcp_pair : make_local_pair)(ends.data());
    ours = ends[0];
    theirs = ends[1];
    for (const int end : ends) {
        set_receive_timeout(end, kWatchdog);
        set_send_timeout(end, kWatchdog);
    }
}

Wire::~Wire() {
    for (const int end : {ours, theirs})
        if (end >= 0)
            close(end);
}

void set_receive_timeout(int descriptor, int milliseconds) {
    set_timeout(descriptor, SO_RCVTIMEO, milliseconds);
}

void set_send_timeout(int descriptor, int milliseconds) {
    set_timeout(descriptor, SO_SNDTIMEO, milliseconds);
}

void set_nonblocking(int descriptor) {
    EXPECT_EQ(fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK), 0);
}

void reset_connection(int descriptor) {
    const linger at_once{1, 0};
    EXPECT_EQ(setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once), 0);
    close(descriptor);
}

SSL_CTX *peer_context(const PeerSetup &setup) {
    SSL_CTX *context = SSL_CTX_new(TLS_method());
    const char *file = setup.certificate.c_str();
    if (SSL_CTX_use_certificate_chain_file(context, file) != 1 ||
        SSL_CTX_use_PrivateKey_file(context, file, SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_load_verify_locations(context, certificates().authority.c_str(), nullptr) != 1)
        throw std::runtime_error("no context for the peer");

    SSL_CTX_set_min_proto_version(context, setup.version);
    SSL_CTX_set_max_proto_version(context, setup.version);
    if (setup.asks_for_certificate)
        SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    return context;
}

Peer::Peer(int descriptor, bool server, const PeerSetup &setup)
    : descriptor_(descriptor), context_(peer_context(setup)), ssl_(SSL_new(context_)), server_(server) {
    SSL_set_fd(ssl_, descriptor_);
}

Peer::~Peer() {
    if (handshake_.joinable())
        handshake_.join();
    SSL_free(ssl_);
    SSL_CTX_free(context_);
    vanish();
}

void Peer::begin_handshake() {
    handshake_ = std::thread([this] { result_ = server_ ? SSL_accept(ssl_) : SSL_connect(ssl_); });
}

int Peer::end_handshake() {
    handshake_.join();
    return result_;
}

void Peer::write(const std::string &bytes) const {
    EXPECT_EQ(SSL_write(ssl_, bytes.data(), static_cast<int>(bytes.size())), static_cast<int>(bytes.size()));
}

std::string Peer::read(size_t size) const {
    std::string bytes(size, '\0');
    size_t got = 0;
    while (got < size) {
        const int more = SSL_read(ssl_, bytes.data() + got, static_cast<int>(size - got));
        if (more <= 0)
            break;
        got += static_cast<size_t>(more);
    }
    bytes.resize(got);
    return bytes;
}

void Peer::vanish() {
    if (descriptor_ >= 0)
        close(std::exchange(descriptor_, -1));
}

void Peer::reset() {
    reset_connection(std::exchange(descriptor_, -1));
}

Connection::Connection(const Side &side, const PeerSetup &setup, Wire::Kind kind)
    : wire_(kind), peer(wire_.give_theirs(), !side.server, setup), session(kEmpty) {
    session.fdSocket = wire_.ours;
    peer.begin_handshake();
    const int32_t result = open_session(side, session);
    if (result == 0)
        wire_.give_ours();
    else
        shutdown(wire_.ours, SHUT_RDWR);  // so that the peer does not wait on
    const int handshake = peer.end_handshake();
    if (result != 0 || handshake != 1)
        throw std::runtime_error("no session");
}

Connection::~Connection() {
    SSL_Socket_Destroy(&session, 0);
}

SSL_Socket_Info untouched_record(int descriptor) {
    static char nowhere[3];
    return {descriptor, reinterpret_cast<BIO *>(&nowhere[0]), reinterpret_cast<SSL *>(&nowhere[1]),
            reinterpret_cast<SSL_CTX *>(&nowhere[2])};
}

void expect_equal(const SSL_Socket_Info &actual, const SSL_Socket_Info &expected) {
    EXPECT_EQ(actual.fdSocket, expected.fdSocket);
    EXPECT_EQ(actual.pBio, expected.pBio);
    EXPECT_EQ(actual.pSsl, expected.pSsl);
    EXPECT_EQ(actual.pCtx, expected.pCtx);
}

void expect_usable(int from, int to) {
    char byte = 0;
    EXPECT_EQ(send(from, "!", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(recv(to, &byte, 1, 0), 1);
    EXPECT_EQ(byte, '!');
}

void expect_closed_by_peer(int descriptor) {
    char byte = 0;
    EXPECT_EQ(recv(descriptor, &byte, 1, 0), 0);
}

TlsTest::TlsTest() {
    signal(SIGPIPE, SIG_IGN);
    before_ = open_descriptors();
}

TlsTest::~TlsTest() {
    EXPECT_EQ(open_descriptors(), before_);
}

std::string name_of(const testing::TestParamInfo<Side> &info) {
    return info.param.name;
}

}  // namespace tls_test
