#include "fake_resolver.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "faults.h"

namespace support {
namespace {

thread_local FakeResolver *t_resolver = nullptr;

addrinfo *make_result(const FakeResult &result, const char *service, const addrinfo *hints) {
    // One block each, so that a tool sees who reads a result after it was freed.
    auto *made = static_cast<addrinfo *>(std::calloc(1, sizeof(addrinfo) + sizeof(sockaddr_storage)));
    auto *address = reinterpret_cast<sockaddr_storage *>(made + 1);
    address->ss_family = static_cast<sa_family_t>(result.family);
    const in_port_t port = htons(static_cast<in_port_t>(service == nullptr ? 0 : std::atoi(service)));
    made->ai_family = result.family;
    made->ai_socktype = hints == nullptr ? 0 : hints->ai_socktype;
    made->ai_protocol = hints == nullptr ? 0 : hints->ai_protocol;
    made->ai_addr = reinterpret_cast<sockaddr *>(address);
    made->ai_addrlen = sizeof *address;

    if (result.family == AF_INET) {
        made->ai_addrlen = sizeof(sockaddr_in);
        reinterpret_cast<sockaddr_in *>(address)->sin_port = port;
        if (inet_pton(AF_INET, result.address.c_str(), &reinterpret_cast<sockaddr_in *>(address)->sin_addr) != 1)
            std::abort();
    } else if (result.family == AF_INET6) {
        made->ai_addrlen = sizeof(sockaddr_in6);
        reinterpret_cast<sockaddr_in6 *>(address)->sin6_port = port;
        if (inet_pton(AF_INET6, result.address.c_str(), &reinterpret_cast<sockaddr_in6 *>(address)->sin6_addr) != 1)
            std::abort();
    }
    return made;
}

std::string text_or_null(const char *text) {
    return text == nullptr ? "(null)" : text;
}

}  // namespace

FakeResolver::FakeResolver(std::vector<FakeResult> results) : results_(std::move(results)) {
    t_resolver = this;
}

FakeResolver::FakeResolver(int code, int error) : code_(code), error_(error) {
    t_resolver = this;
}

FakeResolver::~FakeResolver() {
    t_resolver = nullptr;
}

int FakeResolver::resolve(const char *name, const char *service, const addrinfo *hints, addrinfo **list) {
    const int before = errno;
    const addrinfo none{-1, -1, -1, -1, 0, nullptr, nullptr, nullptr};
    const addrinfo &asked = hints == nullptr ? none : *hints;
    questions_.push_back({text_or_null(name), text_or_null(service), asked.ai_family, asked.ai_socktype,
                          asked.ai_protocol, asked.ai_flags});

    if (code_ != 0) {
        errno = error_ < 0 ? before : error_;
        return code_;
    }

    *list = nullptr;
    for (addrinfo **end = list; const FakeResult &result : results_) {
        *end = make_result(result, service, hints);
        end = &(*end)->ai_next;
    }
    if (*list != nullptr)
        lists_.insert(*list);
    return 0;
}

bool FakeResolver::release(addrinfo *list) {
    if (lists_.erase(list) == 0)
        return false;

    while (list != nullptr)
        std::free(std::exchange(list, list->ai_next));
    return true;
}

}  // namespace support

// The definitions that the library's calls arrive at; see faults.cpp.
extern "C" __attribute__((visibility("default"))) int wrapped_getaddrinfo(const char *name, const char *service,
                                                                          const addrinfo *hints,
                                                                          addrinfo **list) __asm__("getaddrinfo");
extern "C" __attribute__((visibility("default"))) void wrapped_freeaddrinfo(addrinfo *list) __asm__("freeaddrinfo");

int wrapped_getaddrinfo(const char *name, const char *service, const addrinfo *hints, addrinfo **list) {
    using Function = int (*)(const char *, const char *, const addrinfo *, addrinfo **);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (support::must_fail(support::Call::getaddrinfo))
        return EAI_SYSTEM;
    if (support::t_resolver == nullptr)
        return real(name, service, hints, list);

    const support::Undisturbed quiet;
    return support::t_resolver->resolve(name, service, hints, list);
}

void wrapped_freeaddrinfo(addrinfo *list) {
    static const auto real = reinterpret_cast<void (*)(addrinfo *)>(dlsym(RTLD_NEXT, "freeaddrinfo"));
    support::must_fail(support::Call::freeaddrinfo);
    const support::Undisturbed quiet;
    if (support::t_resolver == nullptr || !support::t_resolver->release(list))
        real(list);
}
