// A host without OpenSSL on a system without OpenSSL: TLS fails in order, and everything else works.
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "../tls/port.h"
#include "hidden_openssl.h"
#include "korvex_util.h"
#include "late_binding.h"

using namespace late_binding_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using tls_test::Port;

namespace {

char g_nowhere[3];

SSL_Socket_Info record_of_a_session(int descriptor) {
    return {descriptor, reinterpret_cast<BIO *>(&g_nowhere[0]), reinterpret_cast<SSL *>(&g_nowhere[1]),
            reinterpret_cast<SSL_CTX *>(&g_nowhere[2])};
}

void expect_untouched(const SSL_Socket_Info &record, int descriptor) {
    const SSL_Socket_Info expected = record_of_a_session(descriptor);
    EXPECT_EQ(record.fdSocket, expected.fdSocket);
    EXPECT_EQ(record.pBio, expected.pBio);
    EXPECT_EQ(record.pSsl, expected.pSsl);
    EXPECT_EQ(record.pCtx, expected.pCtx);
}

// What the function that needed it first has to tell.
std::string not_found(const char *function) {
    return "[error] " + std::string(function) + "(#): Can't find OpenSSL for TLS! (-95)\n";
}

void expect_empty(const SSL_Socket_Info &record) {
    EXPECT_EQ(record.fdSocket, -1);
    EXPECT_EQ(record.pBio, nullptr);
    EXPECT_EQ(record.pSsl, nullptr);
    EXPECT_EQ(record.pCtx, nullptr);
}

// Which of its two objects the system lacks.
class NoOpenssl : public testing::TestWithParam<std::vector<const char *>> {
  protected:
    void in_world_without(const std::function<void()> &body) const {
        in_fresh_process([&] {
            ASSERT_EQ(unshare(CLONE_NEWNS), 0);
            for (const char *name : GetParam())
                hide_from_the_system(name, folder_);
            const auto before = open_descriptors();
            body();
            EXPECT_EQ(open_descriptors(), before);
        });
    }

    const TempFolder folder_;
    const std::string file_ = folder_.file("host.pem", "no matter what");
};

std::string name_of_lack(const testing::TestParamInfo<std::vector<const char *>> &info) {
    if (info.param.size() == 2)
        return "neither";
    return std::string(info.param[0]) == KORVEX_LIBSSL ? "no_libssl" : "no_libcrypto";
}

INSTANTIATE_TEST_SUITE_P(All, NoOpenssl,
                         testing::Values(std::vector{KORVEX_LIBSSL, KORVEX_LIBCRYPTO}, std::vector{KORVEX_LIBSSL},
                                         std::vector{KORVEX_LIBCRYPTO}),
                         name_of_lack);

}  // namespace

TEST_P(NoOpenssl, contexts_are_not_supported) {
    in_world_without([&] {
        for (int round = 0; round < 3; round++) {
            LogCapture log(1);
            auto *context = reinterpret_cast<SSL_CTX *>(&g_nowhere);
            EXPECT_EQ(CTX_Initialize(file_.c_str(), "", file_.c_str(), &context), -EOPNOTSUPP);
            EXPECT_EQ(context, nullptr);
            EXPECT_THAT(log.messages(), ElementsAre(not_found("CTX_Initialize")));
        }
        // The arguments are checked all the same.
        LogCapture log;
        auto *context = reinterpret_cast<SSL_CTX *>(&g_nowhere);
        EXPECT_EQ(CTX_Initialize(file_.c_str(), "", nullptr, &context), -EINVAL);
        EXPECT_EQ(context, reinterpret_cast<SSL_CTX *>(&g_nowhere));
        EXPECT_THAT(log.messages(), IsEmpty());
        CTX_Destroy(nullptr);
    });
}

TEST_P(NoOpenssl, sessions_are_not_supported) {
    in_world_without([&] {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        const struct {
            const char *name;
            decltype(SSL_Connect_Socket) *open;
        } rows[] = {{"SSL_Connect_Socket", SSL_Connect_Socket}, {"SSL_Accept_Socket", SSL_Accept_Socket}};

        for (const auto &row : rows) {
            LogCapture log(1);
            SSL_Socket_Info record = record_of_a_session(ends[0]);
            EXPECT_EQ(row.open(file_.c_str(), "", file_.c_str(), &record), -EOPNOTSUPP);
            expect_untouched(record, ends[0]);
            EXPECT_THAT(log.messages(), ElementsAre(not_found("CTX_Initialize"),
                                                    StartsWith("[error] " + std::string(row.name) +
                                                               "(#): Can't Initialize_CTX error! (-95, ")));
        }
        close(ends[0]);
        close(ends[1]);
    });
}

TEST_P(NoOpenssl, connecting_leaves_nothing_open) {
    in_world_without([&] {
        const Port port(Port::listening);
        LogCapture log(1);
        SSL_Socket_Info record = record_of_a_session(-7);
        EXPECT_EQ(SSL_Socket_Connect("127.0.0.1", port.number(), 2000, file_.c_str(), "", file_.c_str(), &record),
                  -EOPNOTSUPP);
        expect_untouched(record, -7);
        EXPECT_THAT(log.messages(),
                    ElementsAre(not_found("CTX_Initialize"),
                                StartsWith("[error] SSL_Socket_Connect(#): Can't Initialize_CTX error! (-95, ")));
    });
}

TEST_P(NoOpenssl, plain_connections_work) {
    in_world_without([] {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        SSL_Socket_Info one{ends[0], nullptr, nullptr, nullptr};
        SSL_Socket_Info other{ends[1], nullptr, nullptr, nullptr};
        std::string text(6, '\0');
        int32_t count = 0;
        LogCapture log;
        EXPECT_EQ(SSL_Send(&one, "abcdef", 6, 0), 6);
        EXPECT_EQ(SSL_Recv(&other, text.data(), 6, MSG_PEEK), 6);
        EXPECT_EQ(Exactly_SSL_Peek(&other, text.data(), 6, 1000), 6);
        EXPECT_EQ(Exactly_SSL_Recv_Ex(&other, text.data(), 6, 1000, &count), 6);
        EXPECT_EQ(text, "abcdef");
        EXPECT_EQ(Exactly_SSL_Send(&other, "ghijkl", 6, 0), 6);
        EXPECT_EQ(Exactly_SSL_Recv(&one, text.data(), 6, 1000), 6);
        EXPECT_EQ(text, "ghijkl");
        SSL_Socket_Destroy(&one, 0);
        SSL_Socket_Destroy(&other, 1);
        expect_empty(one);
        expect_empty(other);
        SSL_Socket_Destroy(&one, 0);
        SSL_Socket_Destroy(nullptr, 0);
        EXPECT_THAT(log.messages(), IsEmpty());
    });
}

// No session can have been made here, but a host may be mistaken.
TEST_P(NoOpenssl, a_record_of_a_session_crashes_nothing) {
    in_world_without([] {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        SSL_Socket_Info record = record_of_a_session(ends[0]);
        char byte = 0;
        {
            LogCapture log(1);
            errno = 0;
            EXPECT_LT(SSL_Recv(&record, &byte, 1, 0), 0);
            EXPECT_EQ(errno, EOPNOTSUPP);
            EXPECT_LT(SSL_Recv(&record, &byte, 1, MSG_PEEK), 0);
            errno = 0;
            EXPECT_LT(SSL_Send(&record, "x", 1, 0), 0);
            EXPECT_EQ(errno, EOPNOTSUPP);
            EXPECT_THAT(log.messages(),
                        ElementsAre(not_found("SSL_Recv"), not_found("SSL_Recv"), not_found("SSL_Send")));
        }
        EXPECT_EQ(Exactly_SSL_Recv(&record, &byte, 1, -1), -EOPNOTSUPP);
        EXPECT_EQ(Exactly_SSL_Send(&record, "x", 1, 0), -EOPNOTSUPP);
        LogCapture log(1);
        SSL_Socket_Destroy(&record, 0);
        expect_empty(record);
        EXPECT_THAT(log.messages(), ElementsAre(not_found("SSL_Socket_Destroy"), not_found("CTX_Destroy")));
        close(ends[1]);
    });
}

TEST_P(NoOpenssl, the_rest_of_the_library_works) {
    in_world_without([&] {
        const std::string path = folder_.path("korvex.conf");
        EXPECT_EQ(Set_Conf_File_String_Value(path.c_str(), "net", "mtu", "1500"), 0);
        std::array<char, 16> value{};
        int32_t size = value.size();
        EXPECT_EQ(Get_Conf_File_String_Value(path.c_str(), "net", "mtu", value.data(), &size), 0);
        EXPECT_STREQ(value.data(), "1500");

        const Port port(Port::listening);
        int32_t descriptor = -1;
        EXPECT_EQ(TCP_Socket_Connect(nullptr, "127.0.0.1", port.number(), 2000, &descriptor), 0);
        EXPECT_EQ(close(descriptor), 0);
        EXPECT_EQ(Str_To_Bool("yes", 0), 1);
    });
}
