// korvex send and korvex recv: signals at any moment leave no temporary file and no socket.
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

#include "terminal_process.h"
#include "transfer.h"

namespace {

using support::exists;
using support::read_file;

void wait_until_in(pid_t pid, std::initializer_list<long> calls) {
    for (;;) {
        const std::string state = support::read_file("/proc/" + std::to_string(pid) + "/syscall");
        for (const long call : calls)
            if (state.starts_with(std::to_string(call) + " "))
                return;
        usleep(1000);
    }
}

class TransferSignals : public TransferTest {
  protected:
    // Stops the process while it waits in one of these system calls, and lets it go on.
    template <typename... Calls>
    void stop_and_continue(const KorvexProcess &process, Calls... calls) const {
        wait_until_in(process.pid(), {calls...});
        process.send(SIGSTOP);
        int status = 0;
        ASSERT_EQ(waitpid(process.pid(), &status, WUNTRACED), process.pid());
        ASSERT_TRUE(WIFSTOPPED(status));
        process.send(SIGCONT);
        ASSERT_EQ(waitpid(process.pid(), &status, WCONTINUED), process.pid());
    }
};

TEST_F(TransferSignals, a_receiver_that_waits_leaves_no_socket) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::optional<KorvexProcess> receiver;
        start_receiver(receiver, {"--unix", "socket", "got"});
        EXPECT_TRUE(exists(path("socket")));
        receiver->send(signal);
        EXPECT_EQ(receiver->wait(), Outcome(128 + signal));
        EXPECT_EQ(folder.names(), Words());
    }
}

TEST_F(TransferSignals, a_receiver_in_the_middle_of_a_file_leaves_the_old_one_alone) {
    folder.file("got", "old");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::optional<KorvexProcess> receiver;
        start_receiver(receiver, {kPortText, "got"});
        const RawPeer sender = begun(10);
        sender.say("123");
        EXPECT_EQ(folder.names().size(), 2U);
        receiver->send(signal);
        EXPECT_EQ(receiver->wait(), Outcome(128 + signal));
        EXPECT_EQ(folder.names(), Words{"got"});
        EXPECT_EQ(read_file(path("got")), "old");
    }
}

TEST_F(TransferSignals, ctrl_c_on_a_terminal_ends_either_side) {
    folder.file("sent", content(20 << 20));
    listen();
    {
        TerminalProcess sender({"send", "127.0.0.1", kPortText, "sent"}, folder.path());
        const RawPeer receiver = accept_sender();
        receiver.say(answer());
        ASSERT_TRUE(sender.shows(" of 20.00 MB, "));
        sender.type("\x03");
        EXPECT_EQ(sender.wait().exit_status, 128 + SIGINT);
    }
    TerminalProcess receiver({"recv", "--unix", path("socket"), "got"}, folder.path());
    ASSERT_TRUE(receiver.shows("waiting for a sender on " + path("socket") + "\r\n"));
    const RawPeer sender = connect_to_receiver(path("socket"));
    sender.say(header(10));
    ASSERT_TRUE(receiver.shows("0 byte of 10 byte, 0%"));
    receiver.type("\x03");
    EXPECT_EQ(receiver.wait().exit_status, 128 + SIGINT);
    EXPECT_EQ(folder.names(), Words{"sent"});
}

TEST_F(TransferSignals, a_signal_at_any_moment_leaves_the_whole_file_or_nothing) {
    const std::string whole = content(1 << 20);
    for (int turn = 0; turn < 40; ++turn) {
        SCOPED_TRACE(turn);
        std::optional<KorvexProcess> receiver;
        start_receiver(receiver, {"--unix", path("socket"), "got"});
        const RawPeer sender = connect_to_receiver(path("socket"));
        sender.say(header(whole.size()));
        ASSERT_EQ(sender.hear(12), answer());
        sender.say(whole);
        usleep(static_cast<useconds_t>(turn * 100));  // some moment of what follows, each turn a later one
        receiver->send(SIGTERM);
        const int exit_status = receiver->wait().exit_status;
        EXPECT_TRUE(exit_status == 0 || exit_status == 128 + SIGTERM) << exit_status;
        EXPECT_TRUE(sender.hear(12) != answer() || exists(path("got")));
        EXPECT_TRUE(!exists(path("got")) || read_file(path("got")) == whole);
        unlink(path("got").c_str());
        ASSERT_EQ(folder.names(), Words());
    }
}

TEST_F(TransferSignals, a_signal_that_was_ignored_at_the_start_stays_ignored) {
    std::signal(SIGHUP, SIG_IGN);
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, {kPortText, "got"});
    std::signal(SIGHUP, SIG_DFL);
    const RawPeer sender = begun(3);
    receiver->send(SIGHUP);
    sender.say("new");
    EXPECT_EQ(receiver->wait(), Outcome());
    EXPECT_EQ(read_file(path("got")), "new");
}

// Receives and sends with a time-out are interrupted by it.
TEST_F(TransferSignals, a_receiver_can_be_stopped_and_continued) {
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, {kPortText, "got"});
    const RawPeer sender = connect_to_receiver();
    sender.say(header(3).substr(0, 11));
    stop_and_continue(*receiver, SYS_recvfrom);
    sender.say(header(3).substr(11));
    EXPECT_EQ(sender.hear(12), answer());
    sender.say("n");
    stop_and_continue(*receiver, SYS_select, SYS_pselect6);
    sender.say("ew");
    EXPECT_EQ(sender.hear(12), answer());
    EXPECT_EQ(receiver->wait(), Outcome());
    EXPECT_EQ(read_file(path("got")), "new");
}

TEST_F(TransferSignals, a_sender_can_be_stopped_and_continued) {
    const std::string whole = content(20 << 20);
    folder.file("sent", whole);
    listen();
    KorvexProcess sender({"send", "127.0.0.1", kPortText, "sent"}, folder.path());
    const RawPeer receiver = accept_sender();
    EXPECT_EQ(receiver.hear(16), header(whole.size()));
    stop_and_continue(sender, SYS_recvfrom);
    receiver.say(answer());
    stop_and_continue(sender, SYS_sendfile);
    EXPECT_TRUE(receiver.hear(whole.size()) == whole);
    receiver.say(answer());
    EXPECT_EQ(sender.wait(), Outcome());
}

TEST_F(TransferSignals, both_sides_of_a_tls_session_can_be_stopped_and_continued) {
    make_certificates();
    const std::string pem = safe_path("cert.pem");
    const std::string whole = content(20 << 20);
    folder.file("sent", whole);
    std::string got(whole.size(), ' ');
    char word[16];
    {
        listen();
        KorvexProcess sender(with({"send", "127.0.0.1", kPortText, "sent"}, tls), folder.path());
        const RawPeer accepted = accept_sender();
        SSL_Socket_Info session = session_on(dup(accepted.descriptor()));
        ASSERT_EQ(SSL_Accept_Socket(pem.c_str(), "", pem.c_str(), &session), 0);
        ASSERT_EQ(Exactly_SSL_Recv(&session, word, 16, -1), 16);
        stop_and_continue(sender, SYS_read);
        ASSERT_EQ(Exactly_SSL_Send(&session, answer().data(), 12, 0), 12);
        stop_and_continue(sender, SYS_write);
        ASSERT_EQ(Exactly_SSL_Recv(&session, got.data(), got.size(), -1), got.size());
        EXPECT_TRUE(got == whole);
        ASSERT_EQ(Exactly_SSL_Send(&session, answer().data(), 12, 0), 12);
        EXPECT_EQ(sender.wait(), Outcome());
        SSL_Socket_Destroy(&session, 0);
        stop_listening();
    }
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, with({kPortText, "got"}, tls));
    SSL_Socket_Info session = session_on(-1);
    ASSERT_EQ(SSL_Socket_Connect("127.0.0.1", kPort, 0, pem.c_str(), "", pem.c_str(), &session), 0);
    ASSERT_EQ(Exactly_SSL_Send(&session, header(6).data(), 16, 0), 16);
    ASSERT_EQ(Exactly_SSL_Recv(&session, word, 12, -1), 12);
    ASSERT_EQ(Exactly_SSL_Send(&session, "123", 3, 0), 3);
    stop_and_continue(*receiver, SYS_read);
    ASSERT_EQ(Exactly_SSL_Send(&session, "456", 3, 0), 3);
    ASSERT_EQ(Exactly_SSL_Recv(&session, word, 12, -1), 12);
    EXPECT_EQ(std::string(word, 12), answer());
    SSL_Socket_Destroy(&session, 0);
    EXPECT_EQ(receiver->wait(), Outcome());
    EXPECT_EQ(read_file(path("got")), "123456");
}

}  // namespace
