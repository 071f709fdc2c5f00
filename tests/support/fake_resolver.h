// Answers of the resolver that are written down by the test.
#pragma once

#include <netdb.h>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace support {

// One result: an IPv4 or IPv6 address as text, or any text with another family.
struct FakeResult {
    int family;
    std::string address;
};

// What getaddrinfo was asked. A null name or service is "(null)"; without hints the numbers are -1.
struct FakeQuestion {
    std::string name;
    std::string service;
    int family;
    int type;
    int protocol;
    int flags;

    friend bool operator==(const FakeQuestion &, const FakeQuestion &) = default;
};

// Answers getaddrinfo for as long as it lives, for the calling thread only. FailCall and CountCalls work on getaddrinfo
// and freeaddrinfo with and without it.
class FakeResolver {
  public:
    // Knows every name, by the same results.
    explicit FakeResolver(std::vector<FakeResult> results);
    // Knows none: getaddrinfo returns `code`. `errno` becomes `error`, or stays as it was where that is negative.
    FakeResolver(int code, int error);
    ~FakeResolver();
    FakeResolver(const FakeResolver &) = delete;
    FakeResolver &operator=(const FakeResolver &) = delete;

    const std::vector<FakeQuestion> &questions() const { return questions_; }
    // Result lists that were handed out and not yet freed.
    size_t lists_in_use() const { return lists_.size(); }

    // For the wrappers.
    int resolve(const char *name, const char *service, const addrinfo *hints, addrinfo **list);
    bool release(addrinfo *list);

  private:
    std::vector<FakeResult> results_;
    int code_ = 0;
    int error_ = -1;
    std::vector<FakeQuestion> questions_;
    std::set<addrinfo *> lists_;
};

}  // namespace support
