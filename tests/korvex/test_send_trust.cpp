// korvex send --tls: whom it gives a file to.
#include <cstdlib>

#include "network.h"
#include "transfer.h"

namespace {

using testing::HasSubstr;

class SendTrust : public TransferTest {
  protected:
    SendTrust() {
        support::run_command(std::string(KORVEX_CERTIFICATE_SCRIPT) + " " + folder_.path() + " || cat " +
                             folder_.path("make.log"));
        folder.file("sent", "content");
    }
    std::string file(const std::string &name) const { return folder_.path(name); }

    // Sends to a receiver with a certificate, by the receiver's address; the receiver's result is dropped.
    Outcome sent(const std::string &certificate, const Words &options) const {
        std::optional<KorvexProcess> receiver;
        start_receiver(receiver, {kPortText, "got", "--tls", "--cert", file(certificate), "--ca", file("root.crt")});
        const Outcome outcome =
            korvex(with({"send", "--tls", "--cert", file("good.pem"), "127.0.0.1", kPortText, "sent"}, options));
        receiver->wait();
        return outcome;
    }
    static Outcome refused(const std::string &reason) {
        return {3, "", "korvex: send: 127.0.0.1: " + reason + "; nothing was sent (--ca says whom to trust)\n"};
    }

  private:
    const support::TempFolder folder_;
};

TEST_F(SendTrust, a_receiver_with_a_trusted_certificate_for_the_host_gets_the_file) {
    EXPECT_EQ(sent("good.pem", {"--ca", file("root.crt")}), Outcome());
    EXPECT_EQ(support::read_file(path("got")), "content");
}

TEST_F(SendTrust, nobody_else_gets_a_byte) {
    const struct {
        const char *certificate;
        const char *authority;
        const char *reason;
    } rows[] = {
        {"good.pem", "other.crt", ""},
        {"nas.test.pem", "root.crt", "the peer's certificate is for another name"},
        {"expired.pem", "root.crt", "the peer's certificate has expired"},
        {"early.pem", "root.crt", "the peer's certificate is not valid yet"},
        {"self.pem", "root.crt", ""},
    };
    for (const auto &[certificate, authority, reason] : rows) {
        SCOPED_TRACE(certificate);
        const Outcome outcome = sent(certificate, {"--ca", file(authority)});
        if (*reason != '\0') {
            EXPECT_EQ(outcome, refused(reason));
        }
        EXPECT_EQ(outcome.exit_status, 3);
        EXPECT_THAT(outcome.err, HasSubstr("; nothing was sent (--ca says whom to trust)\n"));
        EXPECT_EQ(folder.names(), Words{"sent"});
    }
}

TEST_F(SendTrust, the_name_counts_that_was_given) {
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, {kPortText, "got", "--tls", "--cert", file("good.pem"), "--ca", file("root.crt")});
    const Outcome outcome =
        korvex({"send", "--tls", "--cert", file("good.pem"), "--ca", file("root.crt"), "localhost", kPortText, "sent"});
    EXPECT_EQ(outcome, Outcome(3, "",
                               "korvex: send: localhost: the peer's certificate is for another name; nothing was sent "
                               "(--ca says whom to trust)\n"));
}

TEST_F(SendTrust, without_ca_the_authorities_of_the_system_count) {
    setenv("SSL_CERT_FILE", file("root.crt").c_str(), 1);
    EXPECT_EQ(sent("good.pem", {}), Outcome());
    EXPECT_EQ(support::read_file(path("got")), "content");
    unlink(path("got").c_str());

    setenv("SSL_CERT_FILE", file("other.crt").c_str(), 1);
    EXPECT_EQ(sent("good.pem", {}).exit_status, 3);
    EXPECT_EQ(folder.names(), Words{"sent"});

    setenv("SSL_CERT_FILE", file("none.crt").c_str(), 1);
    EXPECT_EQ(korvex({"send", "--tls", "--cert", file("good.pem"), "127.0.0.1", kPortText, "sent"}),
              Outcome(1, "", "korvex: send: " + file("none.crt") + ": No such file or directory\n"));
    unsetenv("SSL_CERT_FILE");
}

TEST_F(SendTrust, no_verify_sends_to_anybody_and_says_so) {
    const Outcome loud{0, "",
                       "korvex: send: WARNING: --no-verify: the receiver's certificate is not checked; whoever takes "
                       "its place on the way gets the file\n"};
    for (const char *certificate : {"self.pem", "expired.pem", "nas.test.pem"})
        EXPECT_EQ(sent(certificate, {"--ca", file("root.crt"), "--no-verify"}), loud) << certificate;
    EXPECT_EQ(support::read_file(path("got")), "content");
}

TEST_F(SendTrust, wrong_words_are_refused) {
    const std::string help = " (see 'korvex send --help')\n";
    expect({
        {{"send", "h", "1", "sent", "--no-verify"}, {2, "", "korvex: send: --no-verify is for --tls" + help}},
        {{"send", "h", "1", "sent", "--tls"}, {2, "", "korvex: send: --tls needs --cert" + help}},
    });
    EXPECT_EQ(korvex({"recv", "1", "got", "--tls", "--no-verify"}).exit_status, 2);
}

}  // namespace
