// From names to address texts.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "fake_resolver.h"
#include "faults.h"
#include "guarded_buffer.h"
#include "heap.h"
#include "log_capture.h"
#include "own_hosts.h"
#include "sandbox.h"
#include "socket.h"

using socket_test::OwnHosts;
using support::Call;
using support::CountCalls;
using support::FailCall;
using support::FakeQuestion;
using support::FakeResolver;
using support::GuardedBuffer;
using support::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string failure(int code) {
    return "[debug] Domain_To_IP_Addr(#): Can't getaddrinfo error! (" + std::to_string(code) + ")\n";
}

struct Resolved {
    int32_t result;
    std::string address;
    int32_t family;

    friend bool operator==(const Resolved &, const Resolved &) = default;
    friend std::ostream &operator<<(std::ostream &out, const Resolved &resolved) {
        return out << resolved.result << " \"" << resolved.address << "\" " << resolved.family;
    }
};

// Resolves, and checks that the text is all that is written.
Resolved resolve(const char *name) {
    GuardedBuffer buffer;
    Resolved resolved{0, "", -77};
    resolved.result = Domain_To_IP_Addr(name, buffer.data(), &resolved.family);
    EXPECT_LE(buffer.written(), 46u);
    if (resolved.result == 0)
        resolved.address = buffer.text();
    return resolved;
}

}  // namespace

TEST(AddressOfName, null_arguments_are_refused) {
    LogCapture log;
    const CountCalls questions(Call::getaddrinfo);
    char address[46];
    int32_t family = 0;

    EXPECT_EQ(Domain_To_IP_Addr(nullptr, address, &family), -EINVAL);
    EXPECT_EQ(Domain_To_IP_Addr("127.0.0.1", nullptr, &family), -EINVAL);
    EXPECT_EQ(Domain_To_IP_Addr("127.0.0.1", address, nullptr), -EINVAL);

    EXPECT_EQ(questions.count(), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(AddressOfName, a_numeric_address_is_its_own) {
    LogCapture log;
    const struct {
        const char *name;
        const char *address;
        int32_t family;
    } table[] = {
        {"127.0.0.1", "127.0.0.1", AF_INET},
        {"255.255.255.255", "255.255.255.255", AF_INET},
        {"0.0.0.0", "0.0.0.0", AF_INET},
        {"127.1", "127.0.0.1", AF_INET},
        {"0x0a000001", "10.0.0.1", AF_INET},
        {"::1", "::1", AF_INET6},
        {"::", "::", AF_INET6},
        {"FE80:0:0::00AB", "fe80::ab", AF_INET6},
        {"2001:0db8:1:2:3:4:5:6", "2001:db8:1:2:3:4:5:6", AF_INET6},
        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", AF_INET6},
        {"::ffff:192.168.100.200", "::ffff:192.168.100.200", AF_INET6},
        {"fe80::1%1", "fe80::1", AF_INET6},
    };
    for (const auto &row : table)
        EXPECT_EQ(resolve(row.name), (Resolved{0, row.address, row.family})) << row.name;
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(AddressOfName, a_name_has_the_address_that_the_system_knows) {
    const OwnHosts hosts("10.1.2.3 four\nfd00::6 six\n10.9.9.9 both\nfd00::9 both\n");

    EXPECT_EQ(resolve("four"), (Resolved{0, "10.1.2.3", AF_INET}));
    EXPECT_EQ(resolve("six"), (Resolved{0, "fd00::6", AF_INET6}));

    // Which one is first is the system's choice.
    const addrinfo hints{AI_ALL, AF_UNSPEC, SOCK_STREAM, IPPROTO_TCP, 0, nullptr, nullptr, nullptr};
    addrinfo *list = nullptr;
    ASSERT_EQ(getaddrinfo("both", "0", &hints, &list), 0);
    const int32_t family = list->ai_family;
    freeaddrinfo(list);
    EXPECT_EQ(resolve("both"), (Resolved{0, family == AF_INET ? "10.9.9.9" : "fd00::9", family}));
}

TEST(AddressOfName, an_unknown_name_gives_what_the_system_left) {
    const OwnHosts hosts("10.1.2.3 four\n");
    const addrinfo hints{AI_ALL, AF_UNSPEC, SOCK_STREAM, IPPROTO_TCP, 0, nullptr, nullptr, nullptr};
    for (const char *name : {"five", "four.five", "10.0.0.256", "fe80::g", "::1%nowhere", "a b"}) {
        SCOPED_TRACE(name);
        addrinfo *list = nullptr;
        errno = 0;
        ASSERT_NE(getaddrinfo(name, "0", &hints, &list), 0);
        const int code = errno == 0 || errno == EINTR ? -EHOSTUNREACH : -errno;

        LogCapture log;
        EXPECT_EQ(resolve(name).result, code);
        EXPECT_THAT(log.messages(), ElementsAre(failure(code)));
    }
}

TEST(AddressOfName, the_resolver_is_asked_for_stream_addresses_of_any_family) {
    const FakeResolver resolver({{AF_INET, "10.0.0.1"}});
    EXPECT_EQ(resolve("some.host"), (Resolved{0, "10.0.0.1", AF_INET}));
    EXPECT_THAT(resolver.questions(),
                ElementsAre(FakeQuestion{"some.host", "0", AF_UNSPEC, SOCK_STREAM, IPPROTO_TCP, AI_ALL}));
}

TEST(AddressOfName, only_the_first_result_counts_and_all_are_freed) {
    const struct {
        std::vector<support::FakeResult> results;
        Resolved expected;
    } table[] = {
        {{{AF_INET, "10.0.0.1"}}, {0, "10.0.0.1", AF_INET}},
        {{{AF_INET6, "fd00::1"}}, {0, "fd00::1", AF_INET6}},
        {{{AF_INET, "10.0.0.1"}, {AF_INET6, "fd00::1"}, {AF_UNIX, ""}}, {0, "10.0.0.1", AF_INET}},
        {{{AF_INET6, "fd00::1"}, {AF_INET, "10.0.0.1"}}, {0, "fd00::1", AF_INET6}},
        {{{AF_INET, "255.255.255.255"}, {AF_INET, "10.0.0.2"}}, {0, "255.255.255.255", AF_INET}},
        {{{AF_UNIX, "x"}, {AF_INET, "10.0.0.1"}}, {-EFAULT, "", AF_UNIX}},
        {{{AF_UNSPEC, "x"}, {AF_INET6, "fd00::1"}}, {-EFAULT, "", AF_UNSPEC}},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.expected);
        const FakeResolver resolver(row.results);
        const CountCalls frees(Call::freeaddrinfo);
        EXPECT_EQ(resolve("host"), row.expected);
        EXPECT_EQ(resolver.lists_in_use(), 0u);
        EXPECT_EQ(frees.count(), 1);
    }
}

TEST(AddressOfName, another_family_empties_the_text_and_is_told) {
    for (const int family : {AF_UNSPEC, AF_UNIX, AF_PACKET, AF_VSOCK}) {
        SCOPED_TRACE(family);
        const FakeResolver resolver({{family, ""}});
        LogCapture log;
        char address[46] = "10.0.0.1";
        int32_t found = -77;

        EXPECT_EQ(Domain_To_IP_Addr("host", address, &found), -EFAULT);
        EXPECT_STREQ(address, "");
        EXPECT_EQ(found, family);
        EXPECT_THAT(log.messages(),
                    ElementsAre("[debug] Domain_To_IP_Addr(#): Unsupported family: " + std::to_string(family) + "\n"));
    }
}

TEST(AddressOfName, a_failure_is_told_by_errno_alone) {
    const struct {
        int code;
        int error;
        int32_t expected;
    } table[] = {
        {EAI_NONAME, 0, -EHOSTUNREACH}, {EAI_AGAIN, EINTR, -EHOSTUNREACH}, {EAI_AGAIN, ENETUNREACH, -ENETUNREACH},
        {EAI_SYSTEM, EMFILE, -EMFILE},  {EAI_MEMORY, ENOMEM, -ENOMEM},     {EAI_FAIL, EHOSTUNREACH, -EHOSTUNREACH},
        {EAI_SYSTEM, EACCES, -EACCES},  {EAI_FAMILY, 0, -EHOSTUNREACH},    {EAI_BADFLAGS, EAGAIN, -EAGAIN},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.code << ' ' << row.error);
        const FakeResolver resolver(row.code, row.error);
        const CountCalls frees(Call::freeaddrinfo);
        LogCapture log;

        EXPECT_EQ(resolve("host").result, row.expected);
        EXPECT_THAT(log.messages(), ElementsAre(failure(row.expected)));
        // There is no list to be freed.
        EXPECT_EQ(frees.count(), 0);
    }
}

TEST(AddressOfName, an_error_from_before_is_not_the_resolvers) {
    const FakeResolver resolver(EAI_NONAME, -1);
    for (const int stale : {ENOENT, EINTR, EMFILE}) {
        errno = stale;
        EXPECT_EQ(resolve("host").result, -EHOSTUNREACH) << stale;
    }
}

TEST(AddressOfName, failures_are_debug_messages) {
    LogCapture log(1);
    {
        const FakeResolver resolver(EAI_NONAME, 0);
        EXPECT_EQ(resolve("host").result, -EHOSTUNREACH);
    }
    const FakeResolver resolver({{AF_UNIX, ""}});
    EXPECT_EQ(resolve("host").result, -EFAULT);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(AddressOfName, loses_nothing) {
    const auto descriptors = support::open_descriptors();
    const OwnHosts hosts("10.1.2.3 four\nfd00::6 six\n");
    for (const char *name : {"four", "six", "10.0.0.1", "::1", "unknown"})
        EXPECT_FALSE(support::loses_memory([&] { resolve(name); })) << name;
    EXPECT_EQ(support::open_descriptors(), descriptors);
}

TEST(AddressOfName, threads_that_resolve_other_families_do_not_meet) {
    const OwnHosts hosts("10.1.2.3 four\nfd00::6 six\n");
    std::vector<std::thread> threads;
    for (const char *name : {"six", "four", "six"})
        threads.emplace_back([name] {
            for (int round = 0; round < 200; round++)
                EXPECT_EQ(resolve(name).address, *name == 'f' ? "10.1.2.3" : "fd00::6");
        });
    for (std::thread &thread : threads)
        thread.join();
}
