// TLS contexts and sessions, with calls of the system and of OpenSSL failing.
#include "tls_scenarios.h"

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <memory>
#include <string>

#include "fake_resolver.h"
#include "messages_socket.h"
#include "port.h"
#include "socket.h"
#include "socket_scenarios.h"

namespace faults {
namespace {

using tls_test::certificates;
using tls_test::Peer;
using tls_test::Side;

bool is_untouched(const SSL_Socket_Info &session, int32_t socket) {
    const SSL_Socket_Info before = tls_test::untouched_record(socket);
    return session.fdSocket == before.fdSocket && session.pBio == before.pBio && session.pSsl == before.pSsl &&
           session.pCtx == before.pCtx;
}

// What a context fails of. `function`: whose own message follows; null for none.
Rules context_rules(const char *function) {
    const auto with_message = [function](std::vector<Message> messages) {
        if (function != nullptr)
            messages.push_back(msg::no_context(function));
        return messages;
    };
    return {
        Rule(Call::SSL_CTX_new).with_code(-ENOMEM).says(with_message({})),
        // A certificate that is refused without a system error is passed over.
        Rule(Call::SSL_CTX_use_certificate_chain_file).with(kNoErrno).is_overlooked(),
        Rule(Call::SSL_CTX_use_certificate_chain_file).says(with_message({msg::no_certificate})),
        Rule(Call::SSL_CTX_use_PrivateKey_file).with_code(-ENOENT).says(with_message({msg::no_key})),
        Rule(Call::SSL_CTX_load_verify_locations).with_code(-ENOENT).says(with_message({msg::no_authorities})),
    };
}

Rules session_rules(const char *function, Call handshake, const Message &no_handshake) {
    const Rules rules = {
        giving_back(),
        Rule({Call::SSL_new, Call::BIO_new_socket}).gives(-ENOMEM),
        Rule(handshake).with(kNoErrno).gives(-EPROTO).with_code(0).says(no_handshake),
        Rule(handshake).says(no_handshake),
    };
    return join({rules, context_rules(function)});
}

void make_context(Trial &trial) {
    const std::string file = certificates().host;
    const std::string authority = certificates().authority;
    SSL_CTX *context = reinterpret_cast<SSL_CTX *>(&trial);  // neither null nor a context
    trial.call([&] { return CTX_Initialize(file.c_str(), "", authority.c_str(), &context); });
    trial.check((context != nullptr) == (trial.result() == 0), "a context comes with success alone");
    CTX_Destroy(context);
}

// Opens a session on a socket whose peer shakes hands in a thread of its own.
void open_on_socket(Trial &trial, const Side &side) {
    tls_test::Wire wire;
    Peer peer(wire.give_theirs(), !side.server);
    SSL_Socket_Info session = tls_test::untouched_record(wire.ours);
    const std::string file = certificates().host;
    const std::string authority = certificates().authority;
    peer.begin_handshake();
    trial.call([&] { return side.open(file.c_str(), "", authority.c_str(), &session); });

    if (trial.result() != 0) {
        trial.check(is_untouched(session, wire.ours), "a failure leaves the record untouched");
        trial.check(send(wire.ours, "", 0, MSG_NOSIGNAL) == 0, "a failure leaves the socket open");
        shutdown(wire.ours, SHUT_RDWR);  // so that the peer does not wait on
        peer.end_handshake();
        return;
    }
    trial.check(peer.end_handshake() == 1, "the peer has its session, too");
    trial.check(session.fdSocket == wire.ours && session.pSsl != nullptr && session.pCtx != nullptr &&
                    session.pBio == SSL_get_rbio(session.pSsl),
                "the record is filled");
    wire.give_ours();
    SSL_Socket_Destroy(&session, 0);
}

// The peer accepts when the handshake begins, and so it waits for nobody where there is no connection.
void connect_to_host(Trial &trial) {
    const support::FakeResolver resolver({{AF_INET, "127.0.0.1"}});
    const tls_test::Port port(tls_test::Port::listening);
    SSL_Socket_Info session = tls_test::untouched_record(-1);
    const std::string file = certificates().host;
    const std::string authority = certificates().authority;
    std::unique_ptr<Peer> peer;
    const support::BeforeCall accepting(Call::SSL_connect, 1, [&] {
        const support::Undisturbed test_only;
        peer = std::make_unique<Peer>(port.accept_one(), true);
        peer->begin_handshake();
    });
    trial.call([&] {
        return SSL_Socket_Connect("nas.test", port.number(), 20'000, file.c_str(), "", authority.c_str(), &session);
    });

    trial.check(resolver.lists_in_use() == 0, "the resolver's list is given back");
    if (trial.result() != 0) {
        trial.check(is_untouched(session, -1), "a failure leaves the record untouched");
        return;
    }
    trial.check(peer != nullptr && peer->end_handshake() == 1, "the peer has its session, too");
    SSL_Socket_Destroy(&session, 0);
    trial.check(session.fdSocket == -1, "the record is empty afterwards");
}

Scenarios open_scenarios() {
    constexpr const char *kConnect = "SSL_Connect_Socket";
    constexpr const char *kAccept = "SSL_Accept_Socket";
    constexpr const char *kHost = "SSL_Socket_Connect";
    constexpr const char *kTcp = "TCP_Socket_Connect";
    // Without a certificate of its own a server finds no cipher to agree on.
    const Rules needs_certificate = {Rule(Call::SSL_CTX_use_certificate_chain_file)
                                         .with(kNoErrno)
                                         .gives(-EPROTO)
                                         .with_code(0)
                                         .says(msg::no_server_handshake(kAccept))};
    const Rules connecting = {
        Rule(Call::socket).says({msg::connect_no_socket, msg::tls_not_connected}),
        Rule(Call::setsockopt, 1).says({msg::connect_no_nodelay, msg::tls_not_connected}),
        Rule(Call::setsockopt, 2).says({msg::connect_no_recv_timeout, msg::tls_not_connected}),
        Rule(Call::setsockopt, 3).says({msg::connect_no_send_timeout, msg::tls_not_connected}),
        Rule(Call::connect).says({msg::not_connected, msg::tls_not_connected}),
    };
    return {
        {kConnect, "", [](Trial &trial) { open_on_socket(trial, tls_test::kClient); }, 0,
         session_rules(kConnect, Call::SSL_connect, msg::no_client_handshake(kConnect))},
        {kAccept, "", [](Trial &trial) { open_on_socket(trial, tls_test::kServer); }, 0,
         join({needs_certificate, session_rules(kAccept, Call::SSL_accept, msg::no_server_handshake(kAccept))})},
        {kHost,
         "",
         connect_to_host,
         0,
         join({resolver_rules({msg::not_resolved(kTcp), msg::tls_not_connected}), connecting,
               session_rules(kHost, Call::SSL_connect, msg::no_client_handshake(kHost))}),
         {},
         kResolverErrors},
    };
}

Scenarios destroy_scenarios() {
    const auto destroying = [](bool tls) {
        return [tls](Trial &trial) {
            Conversation conversation(tls);
            trial.call([&] {
                SSL_Socket_Destroy(conversation.session(), 0);
                return 0;
            });
            const SSL_Socket_Info &session = *conversation.session();
            trial.check(
                session.fdSocket == -1 && session.pBio == nullptr && session.pSsl == nullptr && session.pCtx == nullptr,
                "the record is empty");
        };
    };
    // It tells nobody of what fails.
    const Rules rules = {Rule({Call::SSL_shutdown, Call::close}).is_overlooked()};
    return {{"SSL_Socket_Destroy", "TLS", destroying(true), 0, rules},
            {"SSL_Socket_Destroy", "plain", destroying(false), 0, rules}};
}

}  // namespace

Scenarios tls_scenarios() {
    const Rules rules = context_rules(nullptr);
    return join({{{"CTX_Initialize", "", make_context, 0, rules}}, open_scenarios(), destroy_scenarios()});
}

}  // namespace faults
