// Transfer on connections of either kind, with calls of the system and of OpenSSL failing.
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <array>
#include <string>

#include "messages_socket.h"
#include "socket.h"
#include "socket_scenarios.h"
#include "tls_scenarios.h"

namespace faults {

Conversation::Conversation(bool tls) {
    if (tls) {
        tls_ = std::make_unique<tls_test::Connection>(tls_test::kServer);
        session_ = &tls_->session;
    } else {
        wire_ = std::make_unique<tls_test::Wire>();
        plain_.fdSocket = wire_->give_ours();
    }
}

void Conversation::feed(const std::string &bytes) const {
    const support::Undisturbed peer;
    if (tls_ != nullptr)
        tls_->peer.write(bytes);
    else
        EXPECT_EQ(send(wire_->theirs, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

std::string Conversation::take(size_t size) const {
    if (tls_ != nullptr)
        return tls_->peer.read(size);

    std::string bytes(size, '\0');
    EXPECT_EQ(recv(wire_->theirs, bytes.data(), size, MSG_WAITALL), static_cast<ssize_t>(size));
    return bytes;
}

void Conversation::end() const {
    if (tls_ != nullptr)
        tls_->peer.notify_close();
    else
        EXPECT_EQ(shutdown(wire_->theirs, SHUT_WR), 0);
}

namespace {

const std::string kBytes = "0123456789abcdef";
constexpr int32_t kWanted = 8;
constexpr int32_t kFirst = 3;  // bytes of the first piece, where the bytes come in two

// A call of each kind that has the same part.
struct Kind {
    const char *name;
    bool tls;
    Call receive;
    Call peek;
    Call send;
};
constexpr Kind kPlain{"plain", false, Call::recv, Call::recv, Call::send};
constexpr Kind kTls{"TLS", true, Call::SSL_read, Call::SSL_peek, Call::SSL_write};

bool fails_with(const Trial &trial, int error) {
    return trial.injection() != nullptr && trial.injection()->error == error;
}

// What one call answers: a failure is -1, and its reason in `errno`, which OpenSSL may owe.
template <typename Function>
void transfer_once(Trial &trial, Function function) {
    int error = 0;
    trial.call([&] {
        const int64_t result = function();
        error = errno;
        return result;
    });
    if (trial.result() < 0)
        trial.check(error == (fails_with(trial, kNoErrno) ? EPROTO : trial.injection()->error),
                    "the reason is in errno");
}

Scenario receiving_once(const Kind &kind, uint32_t flags) {
    const auto body = [kind, flags](Trial &trial) {
        Conversation conversation(kind.tls);
        conversation.feed(kBytes);
        std::array<char, kWanted> buffer{};
        transfer_once(trial, [&] { return SSL_Recv(conversation.session(), buffer.data(), buffer.size(), flags); });
        if (trial.result() > 0) {
            const auto count = static_cast<size_t>(trial.result());
            trial.check(std::string(buffer.data(), count) == kBytes.substr(0, count), "the bytes are those that came");
        }
    };
    const Rules rules = {Rule({kind.receive, kind.peek}).when_short().gives(1),
                         Rule({kind.receive, kind.peek}).gives(-1)};
    return {"SSL_Recv", std::string(kind.name) + (flags == 0 ? "" : ", looking ahead"), body, kWanted, rules};
}

Scenario sending_once(const Kind &kind) {
    const auto body = [kind](Trial &trial) {
        Conversation conversation(kind.tls);
        transfer_once(trial,
                      [&] { return SSL_Send(conversation.session(), kBytes.data(), kBytes.size(), MSG_NOSIGNAL); });
        if (trial.result() > 0) {
            const auto count = static_cast<size_t>(trial.result());
            trial.check(conversation.take(count) == kBytes.substr(0, count), "the bytes are those that were sent");
        }
    };
    return {"SSL_Send",
            kind.name,
            body,
            static_cast<int64_t>(kBytes.size()),
            {Rule(kind.send).when_short().gives(1), Rule(kind.send).gives(-1)}};
}

// The exact receives as one function; the plain one has no count to tell.
struct Receiver {
    const char *function;
    bool tells_count;
    Message timeout;

    int32_t operator()(SSL_Socket_Info *session, char *buffer, int32_t wait, int32_t *count) const {
        return tells_count ? Exactly_SSL_Recv_Ex(session, buffer, kWanted, wait, count)
                           : Exactly_SSL_Recv(session, buffer, kWanted, wait);
    }
};
constexpr Receiver kReceivers[] = {{"Exactly_SSL_Recv", false, msg::ssl_recv_timeout},
                                   {"Exactly_SSL_Recv_Ex", true, msg::ssl_recv_ex_timeout}};

// After EAGAIN the count falls by one, and the next byte lands one place earlier: before the buffer it is dropped.
std::string expected_bytes(const Trial &trial) {
    if (!fails_with(trial, EAGAIN))
        return kBytes.substr(0, kWanted);
    if (trial.injection()->nth == 1)
        return kBytes.substr(1, kWanted);
    return kBytes.substr(0, kFirst - 1) + kBytes.substr(kFirst, kWanted - kFirst + 1);
}

Rules receive_rules(const Kind &kind, const char *function, int64_t after_eagain) {
    return {
        Rule(kind.receive).when_short().is_overlooked(),
        Rule(kind.receive).with(EAGAIN).gives(after_eagain),
        Rule(kind.receive).with(kNoErrno).with_code(-EPROTO).says(msg::not_received(function)),
        Rule(kind.receive).says(msg::not_received(function)),
    };
}

Scenario receiving_in_pieces(const Kind &kind, const Receiver &receiver) {
    const auto body = [kind, receiver](Trial &trial) {
        Conversation conversation(kind.tls);
        conversation.feed(kBytes.substr(0, kFirst));
        std::array<char, kWanted> buffer{};
        int32_t count = kUntouched;
        const support::BeforeCall feeding(kind.receive, 2, [&] { conversation.feed(kBytes.substr(kFirst)); });
        trial.call([&] { return receiver(conversation.session(), buffer.data(), 1000, &count); });

        if (trial.result() == kWanted)
            trial.check(std::string(buffer.data(), kWanted) == expected_bytes(trial), "the bytes are those that came");
        if (trial.second() != nullptr)
            return;  // what has come by then depends on both
        const int32_t came = trial.injection() != nullptr && trial.injection()->nth > 1 ? kFirst : 0;
        if (receiver.tells_count)
            trial.check(count == (trial.result() < 0 ? came : kWanted), "the count is what has come");
        if (trial.result() < 0)
            trial.check(
                std::string(buffer.data(), static_cast<size_t>(came)) == kBytes.substr(0, static_cast<size_t>(came)),
                "what has come stays in the buffer");
    };
    return {receiver.function,
            std::string(kind.name) + ", in two pieces",
            body,
            kWanted,
            receive_rules(kind, receiver.function, kWanted),
            {},
            {{kind.receive, {EAGAIN}}}};
}

// Half of the bytes come; then time passes with each receive until it is over.
Scenario receiving_from_closed(const Kind &kind, const Receiver &receiver) {
    const auto body = [kind, receiver](Trial &trial) {
        Conversation conversation(kind.tls);
        conversation.feed(kBytes.substr(0, kFirst));
        conversation.end();
        std::array<char, kWanted> buffer{};
        int32_t count = kUntouched;
        const support::BeforeCall passing(kind.receive, 0, [&] { trial.clock().advance(1); });
        int error = 0;
        trial.call([&] {
            const int32_t result = receiver(conversation.session(), buffer.data(), 2, &count);
            error = errno;
            return result;
        });
        trial.check(trial.result() != -ETIME || error == ETIME, "errno tells of the time");
        if (receiver.tells_count)
            trial.check(count <= kFirst && (trial.injection() != nullptr || count == kFirst),
                        "the count is what has come");
    };
    return {receiver.function,
            std::string(kind.name) + ", from a closed peer",
            body,
            -ETIME,
            receive_rules(kind, receiver.function, -ETIME),
            {receiver.timeout},
            {{kind.receive, {EAGAIN}}}};
}

// A failure to look ahead is no end.
Scenario peeking(const Kind &kind) {
    const auto body = [kind](Trial &trial) {
        Conversation conversation(kind.tls);
        conversation.feed(kBytes);
        std::array<char, kWanted> buffer{};
        trial.call([&] { return Exactly_SSL_Peek(conversation.session(), buffer.data(), kWanted, 1000); });
        trial.check(std::string(buffer.data(), kWanted) == kBytes.substr(0, kWanted), "the bytes are those that came");
        std::array<char, kWanted> again{};
        trial.check(Exactly_SSL_Recv(conversation.session(), again.data(), kWanted, 1000) == kWanted && again == buffer,
                    "they are still there to be received");
    };
    return {"Exactly_SSL_Peek",     kind.name, body, kWanted, {Rule(kind.peek).is_overlooked()}, {},
            {{kind.peek, {EAGAIN}}}};
}

Scenario peeking_too_far(const Kind &kind) {
    const auto body = [kind](Trial &trial) {
        Conversation conversation(kind.tls);
        conversation.feed(kBytes.substr(0, kFirst));
        std::array<char, kWanted> buffer{};
        const support::BeforeCall passing(kind.peek, 0, [&] { trial.clock().advance(1); });
        trial.call([&] { return Exactly_SSL_Peek(conversation.session(), buffer.data(), kWanted, 2); });
    };
    return {"Exactly_SSL_Peek",
            std::string(kind.name) + ", more than comes",
            body,
            -ETIME,
            {Rule(kind.peek).is_overlooked()},
            {msg::ssl_peek_timeout},
            {{kind.peek, {EAGAIN}}}};
}

Scenario sending(const Kind &kind) {
    const auto body = [kind](Trial &trial) {
        Conversation conversation(kind.tls);
        trial.call(
            [&] { return Exactly_SSL_Send(conversation.session(), kBytes.data(), kBytes.size(), MSG_NOSIGNAL); });
        if (trial.result() > 0)
            trial.check(conversation.take(kBytes.size()) == kBytes, "the bytes are those that were sent");
    };
    const Rules rules = {
        Rule(kind.send).when_short().is_overlooked().says(msg::ssl_sent_in_part),
        Rule(kind.send).with(EAGAIN).with_code(-ETIME).says(msg::ssl_not_sent),
        Rule(kind.send).with(kNoErrno).with_code(-EPROTO).says(msg::ssl_not_sent),
        Rule(kind.send).says(msg::ssl_not_sent),
    };
    return {"Exactly_SSL_Send",     kind.name, body, static_cast<int64_t>(kBytes.size()), rules, {},
            {{kind.send, {EAGAIN}}}};
}

}  // namespace

Scenarios tls_transfer_scenarios() {
    Scenarios all;
    for (const Kind &kind : {kPlain, kTls}) {
        all.push_back(receiving_once(kind, 0));
        all.push_back(receiving_once(kind, MSG_PEEK));
        all.push_back(sending_once(kind));
        all.push_back(peeking(kind));
        all.push_back(peeking_too_far(kind));
        for (const Receiver &receiver : kReceivers) {
            all.push_back(receiving_in_pieces(kind, receiver));
            all.push_back(receiving_from_closed(kind, receiver));
        }
        all.push_back(sending(kind));
    }
    return all;
}

}  // namespace faults
