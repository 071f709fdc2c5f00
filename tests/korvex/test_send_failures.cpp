// korvex send: whatever keeps the file from being complete on the other side is an error.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "transfer.h"

namespace {

using testing::MatchesRegex;

class SendFailures : public TransferTest {
  protected:
    SendFailures() {
        folder.file("sent", "0123456789");
        listen();
    }

    const Words to_test = {"send", "127.0.0.1", kPortText};
    KorvexProcess started(const Words &more) const { return KorvexProcess(with(to_test, more), folder.path()); }
    static Outcome failure(const std::string &text) { return {3, "", "korvex: send: " + text + "\n"}; }
};

TEST_F(SendFailures, nobody_who_listens_is_an_error) {
    folder.file("file", "");
    expect({
        {{"send", "127.0.0.1", "4001", "sent"}, failure("127.0.0.1 port 4001: Connection refused")},
        {{"send", "10.1.2.3", "4000", "sent"}, failure("10.1.2.3 port 4000: Network is unreachable")},
        {{"send", "--unix", "none", "sent"}, failure("none: No such file or directory")},
        {{"send", "--unix", "file", "sent"}, failure("file: Connection refused")},
        {{"send", "no such host", "4000", "sent"}, {1, "", "korvex: send: no such host: no address\n"}},
    });
}

TEST_F(SendFailures, what_is_no_file_is_not_sent) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    expect({
        {with(to_test, {"none"}), {1, "", "korvex: send: none: No such file or directory\n"}},
        {with(to_test, {"pipe"}), failure("pipe: is not a file")},
        {with(to_test, {"."}), failure(".: is not a file")},
    });
}

TEST_F(SendFailures, a_receiver_that_answers_otherwise_is_an_error) {
    const std::string stranger = "the receiver is not 'korvex recv', or one side uses --tls alone";
    const std::string closed = "the receiver closed the connection";
    const struct {
        std::string said;
        std::string text;
    } rows[] = {
        {"HTTP/1.1 400 Bad Request\r\n\r\n", stranger},
        {"SSH-2.0-", stranger},
        {"korvex/1", closed},
        {answer().substr(0, 11), closed},
        {"", closed},
        {answer(ENOSPC), "the receiver reports: No space left on device"},
        {answer() + answer(EIO), "the receiver reports: Input/output error"},
        {answer() + stranger, stranger},
        {answer(), closed},
    };
    for (const auto &[said, text] : rows) {
        SCOPED_TRACE(said);
        KorvexProcess sender = started({"sent"});
        const RawPeer receiver = accept_sender();
        EXPECT_EQ(receiver.hear(16), header(10));
        receiver.say(said);
        // A sender that has heard enough may be gone by now.
        const int said_farewell = shutdown(receiver.descriptor(), SHUT_WR);
        ASSERT_TRUE(said_farewell == 0 || errno == ENOTCONN);
        EXPECT_EQ(sender.wait(), failure(text));
    }
}

TEST_F(SendFailures, a_receiver_that_gives_up_on_the_way_is_quoted) {
    folder.file("sent", content(20 << 20));
    KorvexProcess sender = started({"sent"});
    RawPeer receiver = accept_sender();
    receiver.hear(16);
    receiver.say(answer());
    receiver.hear(1000);
    receiver.say(answer(EDQUOT));
    receiver.hang_up();
    EXPECT_EQ(sender.wait(), failure("the receiver reports: Disk quota exceeded"));
}

TEST_F(SendFailures, a_receiver_that_goes_away_on_the_way_is_an_error_and_no_signal) {
    folder.file("sent", content(20 << 20));
    KorvexProcess sender = started({"sent"});
    RawPeer receiver = accept_sender();
    receiver.hear(16);
    receiver.say(answer());
    receiver.hear(1000);
    receiver.hang_up();
    const Outcome outcome = sender.wait();
    EXPECT_EQ(outcome.exit_status, 3);
    EXPECT_THAT(outcome.err, MatchesRegex("korvex: send: the connection to the receiver is lost: (Connection reset by "
                                          "peer|Broken pipe) after [0-9]+ of 20971520 bytes\n"));
}

TEST_F(SendFailures, a_silent_receiver_is_given_up_at_each_step) {
    folder.file("big", content(20 << 20));
    const std::string silent = "korvex: send: nothing came from the receiver for MS";
    const struct {
        const char *file;
        std::string said;
        std::string text;
    } rows[] = {
        {"sent", "", silent},
        {"sent", "korvex", silent},
        {"sent", answer(), silent},
        {"big", answer(), "korvex: send: the receiver took nothing for MS after [0-9]+ of 20971520 bytes"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.said);
        expect_time_out(row.text, [&](const std::string &ms) {
            KorvexProcess sender = started({row.file, "--timeout", ms});
            const RawPeer receiver = accept_sender();
            receiver.say(row.said);
            return sender.wait();
        });
    }
}

TEST_F(SendFailures, a_handshake_that_is_not_answered_is_given_up) {
    make_certificates();
    KorvexProcess sender = started(with({"sent", "--timeout", "150"}, tls));
    const RawPeer receiver = accept_sender();
    EXPECT_EQ(sender.wait(), failure("127.0.0.1 port 4000: no answer for 150 ms"));
}

TEST_F(SendFailures, a_file_that_becomes_shorter_is_an_error) {
    KorvexProcess sender = started({"sent"});
    const RawPeer receiver = accept_sender();
    EXPECT_EQ(receiver.hear(16), header(10));
    ASSERT_EQ(truncate(path("sent").c_str(), 4), 0);
    receiver.say(answer());
    EXPECT_EQ(receiver.hear(100), "0123");
    EXPECT_EQ(sender.wait(), failure("sent: became shorter while it was sent"));
}

TEST_F(SendFailures, a_file_that_grows_is_sent_as_it_was) {
    KorvexProcess sender = started({"sent"});
    const RawPeer receiver = accept_sender();
    EXPECT_EQ(receiver.hear(16), header(10));
    folder.file("sent", "0123456789 and more");
    receiver.say(answer() + answer());
    EXPECT_EQ(receiver.hear(100), "0123456789");
    EXPECT_EQ(sender.wait(), Outcome());
}

TEST_F(SendFailures, wrong_words_are_refused_in_one_line) {
    auto usage = [](const std::string &command, const std::string &text) {
        return Outcome{2, "", "korvex: " + command + ": " + text + " (see 'korvex " + command + " --help')\n"};
    };
    const Words pem = {"--cert", "c", "--ca", "c"};
    const std::string range = "' is not a number from 1 to 65535";
    expect({
        {{"send"}, usage("send", "HOST is required")},
        {{"send", "h"}, usage("send", "PORT is required")},
        {{"send", "h", "1"}, usage("send", "FILE is required")},
        {{"send", "--unix", "s"}, usage("send", "FILE is required")},
        {{"send", "--unix", "s", "1", "sent"}, usage("send", "--unix takes FILE alone")},
        {{"send", "--unix", "s", "h", "1", "sent"}, usage("send", "--unix takes FILE alone")},
        {{"send", "h", "0", "sent"}, usage("send", "PORT: '0" + range)},
        {{"send", "h", "65536", "sent"}, usage("send", "PORT: '65536" + range)},
        {{"send", "h", "http", "sent"}, usage("send", "PORT: 'http" + range)},
        {{"send", "h", "1", "sent", "--timeout", "99"},
         usage("send", "--timeout: Value 99 not in range 100 to 2147483647")},
        {{"recv"}, usage("recv", "PORT is required")},
        {{"recv", "1"}, usage("recv", "FILE is required")},
        {{"recv", "-1", "f"}, usage("recv", "PORT: '-1" + range)},
        {{"recv", "--", "-1", "f"}, usage("recv", "PORT: '-1" + range)},
        {{"recv", "--unix", "s", "1", "f"}, usage("recv", "--unix takes FILE alone")},
        {{"recv", "--unix", "s", "--host", "h", "f"}, usage("recv", "--host is for PORT")},
        {with({"recv", "1", "f"}, pem), usage("recv", "--cert, --ca and --password-file are for --tls")},
        {{"recv", "1", "f", "--tls", "--cert", "c"}, usage("recv", "--tls needs --cert and --ca")},
        {with({"recv", "--unix", "s", "f", "--tls"}, pem), usage("recv", "--tls is not for --unix")},
    });
}

TEST_F(SendFailures, certificates_are_tried_before_anybody_is_asked) {
    make_certificates();
    folder.file("wrong.txt", "open barley\n");
    folder.file("empty.txt", "");
    folder.file("long.txt", std::string(2000, 'x'));
    const struct {
        std::string cert;
        std::string ca;
        std::string password;
        int exit_status;
    } rows[] = {
        {"none.pem", "cert.pem", "", 1},
        {"cert.pem", "none.pem", "", 1},
        {"locked.pem", "cert.pem", "none.txt", 1},
        {"cert.only", "cert.pem", "", 3},
        {"cert.pem", "key.pem", "", 3},
        {"locked.pem", "cert.pem", "", 3},
        {"locked.pem", "cert.pem", "wrong.txt", 3},
        {"locked.pem", "cert.pem", "empty.txt", 3},
        {"locked.pem", "cert.pem", "long.txt", 3},
    };
    for (const auto &[cert, ca, password, exit_status] : rows) {
        SCOPED_TRACE(cert + " " + ca + " " + password);
        Words words = {"--tls", "--cert", safe_path(cert), "--ca", safe_path(ca)};
        if (!password.empty())
            words = with(words, {"--password-file", password});
        const std::string text =
            exit_status == 3
                ? safe_path(cert) + ": no key for this certificate and pass phrase, or no certificate in " +
                      safe_path(ca)
                : (password.empty() ? safe_path("none.pem") : password) + ": No such file or directory";
        for (const Words &command : {with(to_test, {"sent"}), Words{"recv", kPortText, "got"}})
            EXPECT_EQ(korvex(with(command, words)),
                      Outcome(exit_status, "", "korvex: " + command.front() + ": " + text + "\n"));
    }
}

}  // namespace
