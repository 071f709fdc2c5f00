// A host without OpenSSL: the system's is loaded by the first call that needs it, and by no other.
#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "../tls/openssl_process.h"
#include "../tls/port.h"
#include "late_binding.h"

using namespace late_binding_test;
using testing::IsEmpty;
using tls_test::OpensslProcess;
using tls_test::OpensslServer;
using tls_test::Port;

namespace {

constexpr SSL_Socket_Info kEmpty{-1, nullptr, nullptr, nullptr};

std::string exchange(SSL_Socket_Info &session, const std::string &text, size_t answer_size) {
    EXPECT_EQ(Exactly_SSL_Send(&session, text.data(), text.size(), 0), static_cast<int64_t>(text.size()));
    std::string answer(answer_size, '\0');
    EXPECT_EQ(Exactly_SSL_Recv(&session, answer.data(), static_cast<int32_t>(answer_size), 20'000),
              static_cast<int32_t>(answer_size));
    return answer;
}

}  // namespace

TEST(SystemOpenssl, is_not_loaded_by_calls_that_do_not_need_it) {
    in_fresh_process([] {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        SSL_Socket_Info one{ends[0], nullptr, nullptr, nullptr};
        SSL_Socket_Info other{ends[1], nullptr, nullptr, nullptr};
        std::array<char, 8> buffer{};

        EXPECT_EQ(SSL_Send(&one, "abc", 3, 0), 3);
        EXPECT_EQ(Exactly_SSL_Send(&one, "def", 3, 0), 3);
        EXPECT_EQ(Exactly_SSL_Peek(&other, buffer.data(), 3, 1000), 3);
        EXPECT_EQ(SSL_Recv(&other, buffer.data(), 3, 0), 3);
        EXPECT_EQ(Exactly_SSL_Recv(&other, buffer.data(), 3, 1000), 3);
        SSL_Socket_Destroy(&one, 0);
        SSL_Socket_Destroy(&other, 1);
        SSL_Socket_Destroy(&other, 0);
        SSL_Socket_Destroy(nullptr, 0);
        CTX_Destroy(nullptr);
        SSL_CTX *context = nullptr;
        EXPECT_EQ(CTX_Initialize("/nowhere", "", nullptr, &context), -EINVAL);
        EXPECT_EQ(SSL_Connect_Socket("/nowhere", "", "", &one), -EINVAL);
        EXPECT_EQ(SSL_Accept_Socket("/nowhere", "", "", &one), -EINVAL);
        EXPECT_EQ(SSL_Socket_Connect(nullptr, 1, 0, "", "", "", &one), -EINVAL);
        const Port refusing(Port::refusing);
        EXPECT_EQ(SSL_Socket_Connect("127.0.0.1", refusing.number(), 1000, "", "", "", &one), -ECONNREFUSED);
        EXPECT_THAT(mapped_openssl(), IsEmpty());
    });
}

TEST(SystemOpenssl, serves_a_client) {
    in_fresh_process([] {
        const CertificateFile file;
        OpensslServer server({"-rev", "-naccept", "1", "-cert", file.path(), "-key", file.path()});
        ASSERT_THAT(mapped_openssl(), IsEmpty());

        LogCapture log;
        SSL_Socket_Info session = kEmpty;
        ASSERT_EQ(SSL_Socket_Connect("127.0.0.1", server.port(), 20'000, file.path().c_str(), "", file.path().c_str(),
                                     &session),
                  0);
        EXPECT_EQ(exchange(session, "straight ahead\n", 15), "daeha thgiarts\n");
        SSL_Socket_Destroy(&session, 0);
        EXPECT_EQ(mapped_files("libssl.so").size(), 1U);
        EXPECT_EQ(mapped_files("libcrypto.so").size(), 1U);
        EXPECT_THAT(log.messages(), IsEmpty());
    });
}

TEST(SystemOpenssl, serves_a_server) {
    in_fresh_process([] {
        const CertificateFile file;
        const Port port(Port::listening);
        OpensslProcess client(
            {"s_client", "-quiet", "-connect", "127.0.0.1:" + std::to_string(port.number()), "-CAfile", file.path()});
        ASSERT_THAT(mapped_openssl(), IsEmpty());

        SSL_Socket_Info session{port.accept_one(), nullptr, nullptr, nullptr};
        client.write("from the client\n");
        ASSERT_EQ(SSL_Accept_Socket(file.path().c_str(), "", file.path().c_str(), &session), 0);
        EXPECT_EQ(exchange(session, "from the server\n", 16), "from the client\n");
        EXPECT_THAT(client.read_until("from the server\n"), testing::EndsWith("from the server\n"));
        SSL_Socket_Destroy(&session, 0);
        EXPECT_EQ(client.exit_status(), 0);
        EXPECT_EQ(mapped_openssl().size(), 2U);
    });
}

// As the plug-ins of other programs load it.
TEST(SystemOpenssl, may_have_been_loaded_out_of_sight) {
    in_fresh_process([] {
        ASSERT_NE(dlopen(KORVEX_LIBSSL, RTLD_NOW | RTLD_LOCAL), nullptr) << dlerror();
        const std::set<std::string> before = mapped_openssl();
        ASSERT_EQ(before.size(), 2U);
        ASSERT_EQ(dlsym(RTLD_DEFAULT, "SSL_new"), nullptr);

        const CertificateFile file;
        SSL_CTX *context = nullptr;
        EXPECT_EQ(CTX_Initialize(file.path().c_str(), "", file.path().c_str(), &context), 0);
        CTX_Destroy(context);
        EXPECT_EQ(mapped_openssl(), before);
    });
}
