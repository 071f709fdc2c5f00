// Domain_To_IP_Addr and Is_IP_Localhost give the resolver's answer as they promise, and IPv6_Check_Subnet is the model's.
//
// No name is asked for: the resolver below takes numbers alone. It works in a network of its own with known addresses.
//
// Input: a line with the name, one with the errno that the resolver leaves when it fails, one with another family for it
// to answer ("0": the true one), one with a prefix length; two IPv6 addresses in 32 bytes.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

// Behind <netinet/in.h>, whose types it leaves alone then.
#include <linux/ipv6.h>
#include <linux/sockios.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "naive_network.h"
#include "socket.h"
#include "target.h"

namespace {

// What the resolver is told to do, and what it answered then.
struct Resolver {
    int error;
    int family;
    bool found;
    std::string text;
};

Resolver resolver;

std::string text_of(const addrinfo &entry) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (entry.ai_family == AF_INET)
        inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in *>(entry.ai_addr)->sin_addr, text.data(), text.size());
    else
        inet_ntop(AF_INET6, &reinterpret_cast<sockaddr_in6 *>(entry.ai_addr)->sin6_addr, text.data(), text.size());
    return text.data();
}

void check_question(const char *service, const addrinfo *hints) {
    if (std::strcmp(service, "0") != 0 || hints->ai_flags != AI_ALL || hints->ai_family != AF_UNSPEC ||
        hints->ai_socktype != SOCK_STREAM || hints->ai_protocol != IPPROTO_TCP)
        fuzz::fail("the resolver is asked for something else");
}

}  // namespace

// Stands before the C library's own.
extern "C" int getaddrinfo(const char *name, const char *service, const addrinfo *hints, addrinfo **list) {
    static const auto next = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    check_question(service, hints);
    addrinfo numeric = *hints;
    numeric.ai_flags |= AI_NUMERICHOST;
    const int result = next(name, service, &numeric, list);
    resolver.found = result == 0;
    errno = resolver.error;
    if (!resolver.found)
        return result;

    resolver.text = text_of(**list);
    if (resolver.family == AF_UNSPEC)
        resolver.family = (*list)->ai_family;
    (*list)->ai_family = resolver.family;
    return result;
}

namespace {

// ---- The network: two interfaces, the first with two names.

constexpr const char *kNames[] = {"lo", "lo:1", "net1"};
constexpr const char *kAllIPv4[] = {"127.0.0.1", "10.0.0.12", "10.9.0.1"};
constexpr const char *kFirstIPv6[] = {"::1", "fd00::12"};

void require(bool done, const char *what) {
    if (!done)
        fuzz::fail(std::string("can't make a network: ") + what + ": " + std::strerror(errno));
}

ifreq request_for(const char *name) {
    ifreq request{};
    std::snprintf(request.ifr_name, sizeof request.ifr_name, "%s", name);
    return request;
}

void switch_on(int socket, const char *name) {
    ifreq request = request_for(name);
    request.ifr_flags = IFF_UP;
    require(ioctl(socket, SIOCSIFFLAGS, &request) == 0, name);
}

void set_ipv4(int socket, const char *name, const char *text) {
    ifreq request = request_for(name);
    auto *address = reinterpret_cast<sockaddr_in *>(&request.ifr_addr);
    address->sin_family = AF_INET;
    inet_pton(AF_INET, text, &address->sin_addr);
    require(ioctl(socket, SIOCSIFADDR, &request) == 0, text);
}

void add_ipv6(const char *name, const char *text) {
    in6_ifreq request{};
    inet_pton(AF_INET6, text, &request.ifr6_addr);
    request.ifr6_prefixlen = 64;
    request.ifr6_ifindex = static_cast<int>(if_nametoindex(name));
    const int socket = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    require(ioctl(socket, SIOCSIFADDR, &request) == 0, text);
    close(socket);
}

bool make_network() {
    require(unshare(CLONE_NEWNET) == 0, "a namespace of its own");
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    require(ioctl(socket, SIOCBRADDBR, "net1") == 0, "a bridge");
    switch_on(socket, "lo");
    switch_on(socket, "net1");
    set_ipv4(socket, "lo:1", "10.0.0.12");
    set_ipv4(socket, "net1", "10.9.0.1");
    close(socket);
    add_ipv6("lo", "fd00::12");
    add_ipv6("net1", "fd09::1");
    return true;
}

// ---- The calls and what they should give.

struct Outcome {
    int32_t result;
    int32_t family;
    std::string text;
    naive::Messages messages;
    bool operator==(const Outcome &) const = default;
};

std::string shown(const Outcome &outcome) {
    std::string text = "result " + std::to_string(outcome.result) + ", family " + std::to_string(outcome.family) +
                       ", text " + fuzz::shown(outcome.text);
    for (const std::string &message : outcome.messages)
        text += "\n  message " + fuzz::shown(message);
    return text;
}

void compare(const Outcome &expected, const Outcome &got) {
    if (expected != got)
        fuzz::fail("expected " + shown(expected) + "\ngot " + shown(got));
}

Outcome resolve(const std::string &name) {
    // A block of exactly the size that is asked of callers.
    const auto text = std::make_unique<char[]>(INET6_ADDRSTRLEN);
    text[0] = 'x';
    int32_t family = AF_UNSPEC;
    const int32_t result = Domain_To_IP_Addr(name.c_str(), text.get(), &family);
    // What is in the buffer when no address was found is not promised.
    return {result, family, resolver.found ? text.get() : "", fuzz::take_messages()};
}

Outcome expected_resolution() {
    if (!resolver.found) {
        const int32_t code = resolver.error == 0 || resolver.error == EINTR ? -EHOSTUNREACH : -resolver.error;
        return {code,
                AF_UNSPEC,
                "",
                {"[debug] Domain_To_IP_Addr(#): Can't getaddrinfo error! (" + std::to_string(code) + ")\n"}};
    }
    if (resolver.family != AF_INET && resolver.family != AF_INET6)
        return {-EFAULT,
                resolver.family,
                "",
                {"[debug] Domain_To_IP_Addr(#): Unsupported family: " + std::to_string(resolver.family) + "\n"}};
    return {0, resolver.family, resolver.text, {}};
}

// The text that the resolver gave is enough where an address begins with it.
bool is_known(const Outcome &resolution) {
    const auto begins = [&](const char *address) { return std::string(address).starts_with(resolution.text); };
    if (resolution.family == AF_INET)
        return std::any_of(std::begin(kAllIPv4), std::end(kAllIPv4), begins);
    return std::any_of(std::begin(kFirstIPv6), std::end(kFirstIPv6), begins);
}

Outcome expected_test(const std::string &name, Outcome resolution) {
    if (name.empty())
        return {-EINVAL, 0, "", {}};
    if (resolution.result != 0) {
        resolution.messages.push_back("[error] Is_IP_Localhost(#): Can't translate donaim to IP! (" +
                                      std::to_string(resolution.result) + ")\n");
        return {0, 0, "", resolution.messages};
    }
    naive::Messages messages;
    for (size_t i = 0; i < std::size(kNames); ++i)
        messages.push_back("[debug] Scan_Network_Interface(#): Get the address of " + std::to_string(i) +
                           "-th netif: " + kNames[i] + "\n");
    return {is_known(resolution) ? 1 : 0, 0, "", messages};
}

void check_subnets(int32_t prefix, std::string_view input) {
    in6_addr first{};
    in6_addr second{};
    std::memcpy(&first, input.data(), std::min(input.size(), sizeof first));
    input.remove_prefix(std::min(input.size(), sizeof first));
    std::memcpy(&second, input.data(), std::min(input.size(), sizeof second));

    const int32_t expected = naive::check_subnet(first, second, prefix);
    const int32_t got = IPv6_Check_Subnet(&first, &second, prefix);
    if (expected != got)
        fuzz::fail("prefix " + std::to_string(prefix) + ": expected " + std::to_string(expected) + ", got " +
                   std::to_string(got));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    [[maybe_unused]] static const bool made = make_network();
    std::string_view input = fuzz::bytes(data, size);
    const std::string name = fuzz::take_argument(input);
    const int error = std::abs(std::atoi(fuzz::take_argument(input).c_str()) % 134);
    const int family = std::atoi(fuzz::take_argument(input).c_str()) % 46;
    check_subnets(std::atoi(fuzz::take_argument(input).c_str()), input);

    // A true address of the other family would be read as what it is not.
    const bool other = family != AF_INET && family != AF_INET6;
    resolver = {.error = error, .family = other ? family : AF_UNSPEC, .found = false, .text = ""};
    const Outcome got = resolve(name);
    const Outcome expected = expected_resolution();
    compare(expected, got);

    resolver = {.error = error, .family = other ? family : AF_UNSPEC, .found = false, .text = ""};
    const int32_t local = Is_IP_Localhost(name.c_str());
    compare(expected_test(name, expected), {local, 0, "", fuzz::take_messages()});
    return 0;
}
