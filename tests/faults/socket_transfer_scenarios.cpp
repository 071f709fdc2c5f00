// Waiting for plain sockets, and exact transfer on them, with calls of the system failing.
#include <sys/socket.h>

#include <array>
#include <functional>
#include <string>

#include "descriptors.h"
#include "messages_socket.h"
#include "socket.h"
#include "socket_scenarios.h"
#include "stream_pair.h"

namespace faults {
namespace {

using socket_test::Stream;
using support::BeforeCall;
using support::Descriptor;

const std::string kBytes = "0123456789abcdef";
constexpr int32_t kWanted = 8;

Scenarios ready_scenarios() {
    const auto readable = [](Trial &trial) {
        const Stream stream;
        stream.put("!");
        trial.call([&] { return Is_Socket_Ready_To_Recv(stream.out, 1000); });
    };
    const auto high_number = [](Trial &trial) {
        const Stream stream;
        stream.put("!");
        const Descriptor high(support::as_high_number(stream.out));
        trial.call([&] { return Is_Socket_Ready_To_Recv(high, 1000); });
    };
    const auto writable = [](Trial &trial) {
        const Stream stream;
        trial.call([&] { return Is_Socket_Ready_To_Send(stream.in, 1000); });
    };
    const auto high_writable = [](Trial &trial) {
        const Stream stream;
        const Descriptor high(support::as_high_number(stream.in));
        trial.call([&] { return Is_Socket_Ready_To_Send(high, 1000); });
    };
    const auto any = [](Trial &trial) {
        const Stream silent;
        const Stream stream;
        stream.put("!");
        const std::array<int32_t, 2> sockets{silent.out, stream.out};
        int32_t ready = kUntouched;
        int32_t index = kUntouched;
        trial.call([&] { return Is_Any_Socket_Ready(sockets.data(), 2, 1000, &ready, &index); });
        const bool done = trial.result() == 1;
        trial.check(ready == (done ? sockets[1] : kUntouched) && index == (done ? 1 : kUntouched),
                    "the ready socket is told with success alone");
    };
    return {
        {"Is_Socket_Ready_To_Recv", "", readable, 1}, {"Is_Socket_Ready_To_Recv", "above 1023", high_number, 1},
        {"Is_Socket_Ready_To_Send", "", writable, 1}, {"Is_Socket_Ready_To_Send", "above 1023", high_writable, 1},
        {"Is_Any_Socket_Ready", "", any, 1},
    };
}

// Receives what comes in two pieces: the second one just before the second receive.
void receive_in_pieces(Trial &trial) {
    const Stream stream;
    stream.put(kBytes.substr(0, 3));
    std::array<char, kWanted> buffer{};
    const BeforeCall feeding(Call::recv, 2, [&] {
        const support::Undisturbed peer;
        stream.put(kBytes.substr(3));
    });
    trial.call([&] { return Exactly_Recv(stream.out, buffer.data(), kWanted, 1000); });

    const std::string got(buffer.data(), buffer.size());
    if (trial.result() == kWanted)
        trial.check(got == kBytes.substr(0, kWanted), "the bytes are those that were sent");
    else
        trial.check(got.substr(0, 3) == kBytes.substr(0, 3) || got[0] == '\0', "what has come stays in the buffer");
}

// The peer closes after half of the bytes, and time passes with each receive.
void receive_from_closed(Trial &trial) {
    Stream stream;
    stream.put(kBytes.substr(0, kWanted / 2));
    stream.in.reset();
    std::array<char, kWanted> buffer{};
    const BeforeCall passing(Call::recv, 0, [&] { trial.clock().advance(1); });
    trial.call([&] { return Exactly_Recv(stream.out, buffer.data(), kWanted, 2); });
}

Scenarios recv_scenarios() {
    const Rules rules = {Rule(Call::recv).when_short().is_overlooked(),
                         Rule(Call::recv).says(msg::not_received("Exactly_Recv"))};
    const std::map<Call, std::vector<int>> errors = {{Call::recv, {EAGAIN}}};
    return {
        {"Exactly_Recv", "in two pieces", receive_in_pieces, kWanted, rules, {}, errors},
        {"Exactly_Recv", "from a closed peer", receive_from_closed, -ETIME, rules, {msg::recv_timeout}, errors},
    };
}

void send_bytes(Trial &trial) {
    const Stream stream;
    trial.call([&] { return Exactly_Send(stream.in, kBytes.data(), kBytes.size(), MSG_NOSIGNAL); });
    if (trial.result() > 0)
        trial.check(stream.take() == kBytes, "the bytes are those that were sent");
}

Scenarios send_scenarios() {
    const Rules rules = {Rule(Call::send).when_short().is_overlooked(), Rule(Call::send).says(msg::not_sent)};
    return {{"Exactly_Send",
             "",
             send_bytes,
             static_cast<int64_t>(kBytes.size()),
             rules,
             {},
             {{Call::send, {EAGAIN, ECONNRESET}}}}};
}

}  // namespace

Scenarios socket_transfer_scenarios() {
    return join({ready_scenarios(), recv_scenarios(), send_scenarios()});
}

}  // namespace faults
