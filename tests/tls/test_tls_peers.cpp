// Sessions with the command line tool of OpenSSL at the other end, in a process of its own.
#include <cerrno>
#include <string>
#include <vector>

#include "openssl_process.h"
#include "port.h"
#include "tls_world.h"

using namespace tls_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char *kHere = "127.0.0.1";
constexpr int32_t kTimeout = 20'000;

using Options = std::vector<std::string>;

Options operator+(Options one, const Options &other) {
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

class TlsPeers : public TlsTest {
  protected:
    ~TlsPeers() override { SSL_Socket_Destroy(&session_, 0); }

    int32_t connect(int port, const std::string &certificate = certificates().host) {
        return SSL_Socket_Connect(kHere, port, kTimeout, certificate.c_str(), "", files_.authority.c_str(), &session_);
    }

    // Waits for a client on the port, and opens a session with it.
    int32_t accept(const Port &port, const std::string &certificate) {
        session_.fdSocket = port.accept_one();
        set_receive_timeout(session_.fdSocket, kTimeout);
        return SSL_Accept_Socket(certificate.c_str(), "", files_.authority.c_str(), &session_);
    }

    Options client_options(const Port &port) const {
        return {"s_client", "-quiet", "-connect", kHere + (":" + std::to_string(port.number()))};
    }

    void send(const std::string &text) {
        EXPECT_EQ(Exactly_SSL_Send(&session_, text.data(), text.size(), 0), static_cast<int64_t>(text.size()));
    }
    std::string receive(size_t size) {
        std::string text(size, '\0');
        EXPECT_EQ(Exactly_SSL_Recv(&session_, text.data(), static_cast<int32_t>(size), kTimeout),
                  static_cast<int32_t>(size));
        return text;
    }
    // All until the peer ends.
    std::string receive_all() {
        std::string all;
        std::string block(4096, '\0');
        for (;;) {
            const int64_t length = SSL_Recv(&session_, block.data(), block.size(), 0);
            EXPECT_GE(length, 0);
            if (length <= 0)
                return all;
            all.append(block, 0, static_cast<size_t>(length));
        }
    }

    const CertificateFiles &files_ = certificates();
    SSL_Socket_Info session_ = kEmpty;
};

}  // namespace

TEST_F(TlsPeers, exchanges_lines_with_s_server) {
    const Options certificates[] = {
        {"-cert", files_.host, "-key", files_.host},
        {"-cert", files_.expired, "-key", files_.expired},
        {"-cert", files_.chain, "-key", files_.chain, "-cert_chain", files_.chain},
        {"-cert", files_.rsa(), "-key", files_.rsa()},
    };
    for (const char *version : {"-tls1_2", "-tls1_3"})
        for (const Options &certificate : certificates) {
            SCOPED_TRACE(version + (" " + certificate[1]));
            LogCapture log(1);
            OpensslServer server(Options{"-rev", "-naccept", "1", version} + certificate);
            ASSERT_EQ(connect(server.port()), 0);
            EXPECT_STREQ(SSL_get_version(session_.pSsl), version == std::string("-tls1_2") ? "TLSv1.2" : "TLSv1.3");
            send("straight ahead\n");
            EXPECT_EQ(receive(15), "daeha thgiarts\n");
            send("abc\nde\n");
            EXPECT_EQ(receive(7), "cba\ned\n");
            SSL_Socket_Destroy(&session_, 0);
            EXPECT_THAT(server.read_all(), HasSubstr("CONNECTION CLOSED"));
            EXPECT_EQ(server.exit_status(), 0);
            EXPECT_THAT(log.messages(), IsEmpty());
        }
}

TEST_F(TlsPeers, reads_a_page_of_s_server_to_its_end) {
    OpensslServer server({"-www", "-naccept", "1", "-cert", files_.host, "-key", files_.host});
    ASSERT_EQ(connect(server.port()), 0);
    send("GET / HTTP/1.0\r\n\r\n");
    const std::string page = receive_all();
    EXPECT_THAT(page, testing::StartsWith("HTTP/1.0 200 ok"));
    EXPECT_THAT(page, HasSubstr("</HTML>"));
}

TEST_F(TlsPeers, shows_its_certificate_to_an_s_server_that_wants_one) {
    for (const char *version : {"-tls1_2", "-tls1_3"}) {
        OpensslServer server({"-rev", "-naccept", "1", version, "-cert", files_.host, "-key", files_.host, "-Verify",
                              "3", "-verify_return_error", "-CAfile", files_.authority});
        ASSERT_EQ(connect(server.port(), files_.chain), 0);
        send("abc\n");
        EXPECT_EQ(receive(4), "cba\n");
        SSL_Socket_Destroy(&session_, 0);
        EXPECT_THAT(server.read_all(), HasSubstr("Peer certificate: CN = nas.test"));
    }
}

TEST_F(TlsPeers, is_refused_by_an_s_server_that_does_not_trust_it) {
    OpensslServer server({"-rev", "-naccept", "1", "-tls1_2", "-cert", files_.host, "-key", files_.host, "-Verify", "3",
                          "-verify_return_error", "-CAfile", files_.other_authority});
    LogCapture log(1);
    EXPECT_EQ(connect(server.port()), -EPROTO);
    EXPECT_THAT(log.messages(), ElementsAre("[error] SSL_Socket_Connect(#): SSL connect error! (-1, 0)\n"));
    expect_equal(session_, kEmpty);
}

TEST_F(TlsPeers, fails_where_s_server_shares_no_cipher) {
    OpensslServer server({"-rev", "-naccept", "1", "-tls1_2", "-cert", files_.host, "-key", files_.host, "-cipher",
                          "ECDHE-RSA-AES128-GCM-SHA256"});
    LogCapture log(1);
    EXPECT_EQ(connect(server.port()), -EPROTO);
    EXPECT_THAT(log.messages(), ElementsAre("[error] SSL_Socket_Connect(#): SSL connect error! (-1, 0)\n"));
    EXPECT_THAT(server.read_all(), HasSubstr("no shared cipher"));
}

TEST_F(TlsPeers, serves_an_s_client_that_checks_the_chain) {
    for (const char *version : {"-tls1_2", "-tls1_3"}) {
        SCOPED_TRACE(version);
        const Port port(Port::listening);
        LogCapture log(1);
        // Only the root is known to it: the intermediate certificate has to come from the session.
        OpensslProcess client(client_options(port) +
                              Options{version, "-verify", "4", "-verify_return_error", "-CAfile", files_.authority});
        ASSERT_EQ(accept(port, files_.chain), 0);
        client.write("from the client\n");
        EXPECT_EQ(receive(16), "from the client\n");
        send("from the server\n");
        EXPECT_THAT(client.read_until("from the server\n"), HasSubstr("from the server\n"));
        SSL_Socket_Destroy(&session_, 0);
        EXPECT_EQ(client.read_all(), "");
        EXPECT_EQ(client.exit_status(), 0);
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST_F(TlsPeers, is_refused_by_an_s_client_that_finds_it_expired) {
    for (const char *version : {"-tls1_2", "-tls1_3"}) {
        SCOPED_TRACE(version);
        const Port port(Port::listening);
        LogCapture log(1);
        OpensslProcess client(client_options(port) +
                              Options{version, "-verify", "4", "-verify_return_error", "-CAfile", files_.authority});
        EXPECT_EQ(accept(port, files_.expired), -EPROTO);
        EXPECT_THAT(log.messages(), ElementsAre(kServer.failed(-1, 0)));
        EXPECT_THAT(client.read_all(), HasSubstr("certificate has expired"));
        SSL_Socket_Destroy(&session_, 0);
    }
}

TEST_F(TlsPeers, fails_where_s_client_shares_no_cipher) {
    const Port port(Port::listening);
    LogCapture log(1);
    OpensslProcess client(client_options(port) + Options{"-tls1_2", "-cipher", "ECDHE-RSA-AES128-GCM-SHA256"});
    EXPECT_EQ(accept(port, files_.host), -EPROTO);
    EXPECT_THAT(log.messages(), ElementsAre(kServer.failed(-1, 0)));
}

TEST_F(TlsPeers, takes_all_that_s_client_sends_before_it_ends) {
    const Port port(Port::listening);
    OpensslProcess client(client_options(port) + Options{"-no_ign_eof"});
    ASSERT_EQ(accept(port, files_.host), 0);
    const std::string much(60'000, 'm');
    client.write(much);
    client.end_input();
    EXPECT_EQ(receive_all(), much);
    SSL_Socket_Destroy(&session_, 0);
    EXPECT_EQ(client.exit_status(), 0);
}
