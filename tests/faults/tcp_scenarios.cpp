// TCP connections and listeners, with calls of the system failing.
#include <netinet/in.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "fake_resolver.h"
#include "messages_socket.h"
#include "network.h"
#include "socket.h"
#include "socket_scenarios.h"
#include "tcp_world.h"

namespace faults {
namespace {

using socket_test::kPort;
using support::FakeResolver;

Scenario connecting(const char *variant, const support::FakeResult &peer, const char *listening_on, const char *local,
                    const Rules &scope_rules) {
    const auto body = [=](Trial &trial) {
        const FakeResolver resolver({peer});
        HandedOut socket;
        const socket_test::Listener listener(listening_on);  // closed first, which resets what nobody accepted
        trial.call([&] { return TCP_Socket_Connect(local, "nas.test", kPort, 60'000, socket.place()); });
        trial.check(socket.is_socket() == (trial.result() == 0), "a socket comes with success alone");
        trial.check(socket.is_socket() || socket.value() == -1, "a failure stores -1");
        trial.check(resolver.lists_in_use() == 0, "the resolver's list is given back");
    };
    const Rules rules = {
        giving_back(),
        Rule(Call::socket).says(msg::connect_no_socket),
        Rule(Call::setsockopt, 1).says(msg::connect_no_nodelay),
        Rule(Call::setsockopt, 2).says(msg::connect_no_recv_timeout),
        Rule(Call::setsockopt, 3).says(msg::connect_no_send_timeout),
        Rule(Call::bind).says(msg::connect_not_bound),
        Rule(Call::connect).says(msg::not_connected),
    };
    return {"TCP_Socket_Connect",
            variant,
            body,
            0,
            join({resolver_rules({msg::not_resolved("TCP_Socket_Connect")}), scope_rules, rules}),
            {},
            kResolverErrors};
}

Scenarios connect_scenarios() {
    using support::PeerNetwork;
    // A link-local address can't be reached where its interface is not found.
    const Rules needs_scope = {
        Rule(Call::open).with_code(-EINVAL).says({msg::scope_no_list, msg::not_connected}),
        Rule(Call::read).when_short().with_code(-EINVAL).says(msg::not_connected),
        Rule(Call::read).with_code(-EINVAL).says({msg::scope_empty_list, msg::not_connected}),
    };
    const Rules needs_none = {
        Rule(Call::open).is_overlooked().says(msg::scope_no_list),
        Rule(Call::read).when_short().is_overlooked(),
        Rule(Call::read).is_overlooked().says(msg::scope_empty_list),
    };
    return {
        connecting("IPv4, from an address", {AF_INET, "127.0.0.1"}, "127.0.0.1", "127.0.0.1", {}),
        connecting("IPv6", {AF_INET6, PeerNetwork::kNearIPv6}, "::", nullptr, needs_none),
        connecting("IPv6, link-local", {AF_INET6, PeerNetwork::kNearLinkLocal}, "::", nullptr, needs_scope),
    };
}

// Closes what a listening call handed out.
class ListeningSockets {
  public:
    static constexpr int32_t kRoom = 4;

    ListeningSockets() { sockets_.fill(kUntouched); }
    ~ListeningSockets() {
        for (const int32_t socket : sockets_)
            if (socket != -1 && socket != kUntouched)
                close(socket);
    }
    ListeningSockets(const ListeningSockets &) = delete;
    ListeningSockets &operator=(const ListeningSockets &) = delete;

    int32_t *data() { return sockets_.data(); }
    // Those before the -1.
    size_t count() const {
        size_t count = 0;
        while (count < sockets_.size() && sockets_[count] != -1)
            count++;
        return count;
    }
    bool hold_none() const {
        return sockets_[0] == -1 &&
               std::ranges::all_of(sockets_, [](int32_t one) { return one == -1 || one == kUntouched; });
    }

  private:
    std::array<int32_t, kRoom + 1> sockets_;
};

Scenario listening(const char *variant, const std::vector<support::FakeResult> &addresses, const Rules &rules) {
    const size_t all = addresses.size();
    const auto body = [addresses, all](Trial &trial) {
        const FakeResolver resolver(addresses);
        ListeningSockets sockets;
        trial.call([&] { return TCP_Socket_Listen("nas.test", kPort, 16, sockets.data(), ListeningSockets::kRoom); });

        const bool fails = trial.injection() != nullptr && trial.injection()->call != Call::close;
        if (trial.result() == 0)
            trial.check(sockets.count() == (fails ? all - 1 : all), "every address that can be had has its socket");
        else
            trial.check(sockets.hold_none(), "a failure leaves -1 in the place of every socket");
        trial.check(resolver.lists_in_use() == 0, "the resolver's list is given back");
    };
    const Rules common = {giving_back(), Rule(Call::listen).says(msg::not_listening)};
    return {"TCP_Socket_Listen",
            variant,
            body,
            0,
            join({resolver_rules({msg::not_resolved("TCP_Socket_Listen")}), common, rules}),
            {},
            kResolverErrors};
}

Scenarios listen_scenarios() {
    // Where another address can be had, one that fails is passed over.
    const Rules two = {
        Rule(Call::socket).is_overlooked().says(msg::listen_no_socket),
        Rule(Call::setsockopt, 1).is_overlooked().says(msg::listen_no_reuse),
        Rule(Call::setsockopt, 2).is_overlooked().says(msg::listen_no_nodelay),
        Rule(Call::setsockopt, 3).is_overlooked().says(msg::listen_no_reuse),
        Rule(Call::setsockopt, 4).is_overlooked().says(msg::listen_no_ipv6_only),
        Rule(Call::setsockopt, 5).is_overlooked().says(msg::listen_no_nodelay),
        Rule(Call::bind).is_overlooked().says(msg::listen_not_bound),
    };
    const Rules one = {
        Rule(Call::socket).says(msg::listen_no_socket),
        Rule(Call::setsockopt, 1).says(msg::listen_no_reuse),
        Rule(Call::setsockopt, 2).says(msg::listen_no_ipv6_only),
        Rule(Call::setsockopt, 3).says(msg::listen_no_nodelay),
        Rule(Call::bind).says(msg::listen_not_bound),
    };
    return {
        listening("two addresses", {{AF_INET, "0.0.0.0"}, {AF_INET6, "::"}}, two),
        listening("one address", {{AF_INET6, "::"}}, one),
    };
}

}  // namespace

Scenarios tcp_scenarios() {
    return join({connect_scenarios(), listen_scenarios()});
}

}  // namespace faults
