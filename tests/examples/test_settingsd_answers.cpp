// settingsd and long answers: whole for who takes them, and no burden for the others when one does not.
#include <unistd.h>

#include "settingsd_world.h"
#include "socket.h"

namespace {

class SettingsdAnswers : public SettingsdTest {
  protected:
    // Fills the file with settings whose list is longer than any socket's buffers, and returns that list.
    std::string fill_file(int keys) const {
        std::string text = "[settings]\n";
        std::string list;
        for (int i = 0; i < keys; i++) {
            const std::string key = "key " + std::to_string(i);
            const std::string value(3600, static_cast<char>('a' + i % 26));
            text += key + " = " + value + "\n";
            list += key + "=" + value + "\n";
        }
        folder.file("conf", text);
        return list;
    }

    // Makes a TLS session, which asks for the list.
    void ask_by_tls(SSL_Socket_Info &session) const {
        const std::string certificate = folder.path("cert.pem");
        const char *file = certificate.c_str();
        ASSERT_EQ(SSL_Socket_Connect("127.0.0.1", kPort, 60'000, file, "open, please", file, &session), 0);
        const std::string list = request('L', "");
        ASSERT_EQ(Exactly_SSL_Send(&session, list.data(), list.size(), 0), static_cast<int64_t>(list.size()));
    }
};

TEST_F(SettingsdAnswers, come_whole_over_either_kind_of_connection) {
    make_certificate();
    const std::string list = fill_file(500);
    const auto daemon = start(tls_words());
    EXPECT_EQ(settings({"list"}), Outcome(0, list));
    EXPECT_EQ(tls_settings({"list"}), Outcome(0, list));
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdAnswers, are_refused_where_they_would_be_too_long) {
    fill_file(600);
    const auto daemon = start();
    const Peer talker = peer();
    EXPECT_EQ(talker.ask(request('L', "")), Reply(kTooLong, "too long"));
    EXPECT_EQ(talker.ask(request('G', "key 1")), Reply(kDone, std::string(3600, 'b')));
    support::write_file(folder.path("conf"), "[settings]\nlong = " + std::string(4097, 'v') + "\n");
    EXPECT_EQ(talker.ask(request('G', "long")), Reply(kTooLong, "too long"));
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdAnswers, still_go_out_when_the_daemon_is_stopped) {
    const std::string list = fill_file(500);
    const auto daemon = start(joined(local_words(), {"--timeout", "600000"}));
    const Peer slow = peer();
    EXPECT_TRUE(slow.send(request('L', "")));
    slow.wait_until_answered();
    daemon->send(SIGTERM);
    while (support::exists(folder.path("socket")))
        usleep(1000);
    EXPECT_EQ(slow.reply(), Reply(kDone, list));
    EXPECT_EQ(daemon->wait(), Outcome());
}

TEST_F(SettingsdAnswers, that_nobody_takes_hold_no_worker_for_long) {
    make_certificate();
    fill_file(500);
    const auto daemon = start(joined(tls_words(), {"--workers", "1", "--timeout", "200"}));
    const Peer never = peer();
    EXPECT_TRUE(never.send(request('L', "")));
    never.wait_until_answered();
    EXPECT_EQ(settings({"get", "key 0"}), Outcome(0, std::string(3600, 'a') + "\n"));
    EXPECT_LT(never.rest().size(), 500U * 3600U);

    SSL_Socket_Info session{.fdSocket = -1, .pBio = nullptr, .pSsl = nullptr, .pCtx = nullptr};
    ask_by_tls(session);
    EXPECT_EQ(Is_Socket_Ready_To_Recv(session.fdSocket, 60'000), 1);
    EXPECT_EQ(settings({"get", "key 1"}), Outcome(0, std::string(3600, 'b') + "\n"));
    SSL_Socket_Destroy(&session, 1);

    const Peer at_the_end = peer();
    EXPECT_TRUE(at_the_end.send(request('L', "")));
    at_the_end.wait_until_answered();
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdAnswers, to_peers_that_are_gone_do_no_harm) {
    make_certificate();
    fill_file(500);
    const auto daemon = start(tls_words());
    for (int turn = 0; turn < 10; turn++) {
        EXPECT_TRUE(peer().send(request('L', "")));
        SSL_Socket_Info session{.fdSocket = -1, .pBio = nullptr, .pSsl = nullptr, .pCtx = nullptr};
        ask_by_tls(session);
        SSL_Socket_Destroy(&session, 1);
    }
    EXPECT_EQ(settings({"get", "key 0"}), Outcome(0, std::string(3600, 'a') + "\n"));
    EXPECT_EQ(tls_settings({"get", "key 1"}), Outcome(0, std::string(3600, 'b') + "\n"));
    expect_clean_stop(*daemon);
}

}  // namespace
