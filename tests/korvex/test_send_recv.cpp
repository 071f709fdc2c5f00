// korvex send and korvex recv: whole files, by every way.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "terminal_process.h"
#include "transfer.h"

namespace {

using support::exists;
using support::read_file;
using support::write_file;
using testing::HasSubstr;

class SendRecv : public TransferTest {
  protected:
    // Sends `source` to `target`, and expects both sides to succeed without a word.
    void transfer(const Way &way, const std::string &source, const std::string &target) const {
        std::optional<KorvexProcess> receiver;
        start_receiver(receiver, with(way.recv, {target}));
        EXPECT_EQ(korvex(with(with({"send"}, way.send), {source})), Outcome()) << way.name;
        EXPECT_EQ(receiver->wait(), Outcome()) << way.name;
    }

    mode_t mode(const std::string &name) const {
        struct stat status {};
        EXPECT_EQ(lstat(path(name).c_str(), &status), 0) << name;
        return status.st_mode;
    }

    const Way plain = {"plain", {"127.0.0.1", kPortText}, {kPortText}};
    const Way local = {"local socket", {"--unix", "socket"}, {"--unix", "socket"}};
    const Way encrypted = {"TLS", with({"localhost", kPortText}, tls), with({kPortText}, tls)};
};

TEST_F(SendRecv, files_of_all_sizes_arrive_by_all_ways) {
    make_certificates();
    for (const size_t size : {0, 1, 65536 + 3, 20 << 20}) {
        const std::string sent = content(size);
        folder.file("sent", sent);
        for (const Way &way : {plain, local, encrypted}) {
            transfer(way, "sent", "got");
            EXPECT_TRUE(read_file(path("got")) == sent) << way.name << " " << size;
            unlink(path("got").c_str());
            EXPECT_EQ(folder.names(), Words{"sent"});
        }
    }
}

TEST_F(SendRecv, names_and_addresses_of_both_families_lead_to_the_receiver) {
    make_certificates();
    const Words locked = {"--tls",
                          "--cert",
                          safe_path("locked.pem"),
                          "--ca",
                          safe_path("cert.pem"),
                          "--password-file",
                          safe_path("pass.txt")};
    const Way ways[] = {
        {"IPv6", {"::1", kPortText}, {kPortText}},
        {"name", {"localhost", kPortText}, {kPortText}},
        {"one address", {"127.0.0.2", kPortText}, {"--host", "127.0.0.2", kPortText}},
        {"one IPv6 address", {"::1", kPortText}, {kPortText, "--host", "::1"}},
        {"keys with a pass phrase", with({"127.0.0.1", kPortText}, locked), with({kPortText}, locked)},
    };
    folder.file("sent", "content");
    for (const Way &way : ways) {
        transfer(way, "sent", "got");
        EXPECT_EQ(read_file(path("got")), "content") << way.name;
        unlink(path("got").c_str());
    }
}

TEST_F(SendRecv, one_address_alone_can_be_listened_on) {
    folder.file("sent", "content");
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, {"--host", "127.0.0.2", kPortText, "got"});
    EXPECT_EQ(korvex({"send", "127.0.0.1", kPortText, "sent"}),
              Outcome(3, "", "korvex: send: 127.0.0.1 port 4000: Connection refused\n"));
    EXPECT_EQ(korvex({"send", "127.0.0.2", kPortText, "sent"}), Outcome());
    EXPECT_EQ(receiver->wait(), Outcome());
}

TEST_F(SendRecv, a_file_that_is_replaced_keeps_its_permission_bits) {
    const mode_t mask_before = umask(0027);
    folder.file("sent", "new");
    folder.file("got", "what was there, and longer");
    chmod(path("got").c_str(), 0666);
    transfer(plain, "sent", "got");
    EXPECT_EQ(read_file(path("got")), "new");
    EXPECT_EQ(mode("got"), mode_t{S_IFREG | 0666});
    transfer(plain, "sent", "fresh");
    EXPECT_EQ(mode("fresh"), mode_t{S_IFREG | 0640});
    umask(mask_before);
}

TEST_F(SendRecv, a_link_is_itself_replaced) {
    folder.file("sent", "new");
    folder.file("other", "stays");
    ASSERT_EQ(symlink("other", path("got").c_str()), 0);
    transfer(plain, "sent", "got");
    EXPECT_EQ(mode("got") & S_IFMT, mode_t{S_IFREG});
    EXPECT_EQ(read_file(path("got")), "new");
    EXPECT_EQ(read_file(path("other")), "stays");
}

TEST_F(SendRecv, the_old_file_is_there_until_the_new_one_is_complete) {
    folder.file("got", "old");
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, {kPortText, "got"});
    const RawPeer sender = begun(3);
    sender.say("ne");
    EXPECT_EQ(read_file(path("got")), "old");
    EXPECT_EQ(folder.names().size(), 2U);
    sender.say("w");
    EXPECT_EQ(sender.hear(12), answer());
    EXPECT_EQ(read_file(path("got")), "new");
    EXPECT_EQ(receiver->wait(), Outcome());
    EXPECT_EQ(folder.names(), Words{"got"});
}

TEST_F(SendRecv, bytes_that_come_one_by_one_are_all_received) {
    const std::string sent = content(300);
    for (const int flags : {0, int{MSG_OOB}}) {  // urgent ones are like others on a local socket
        std::optional<KorvexProcess> receiver;
        start_receiver(receiver, {"--unix", path("socket"), "got"});
        const RawPeer sender = connect_to_receiver(path("socket"));
        sender.say(header(sent.size()));
        EXPECT_EQ(sender.hear(12), answer());
        for (const char byte : sent)
            ASSERT_EQ(send(sender.descriptor(), &byte, 1, flags), 1);
        EXPECT_EQ(sender.hear(12), answer());
        EXPECT_EQ(receiver->wait(), Outcome());
        EXPECT_TRUE(read_file(path("got")) == sent);
    }
}

TEST_F(SendRecv, a_socket_that_a_dead_receiver_left_is_taken_over) {
    folder.file("sent", "content");
    {
        std::optional<KorvexProcess> receiver;
        start_receiver(receiver, {"--unix", "socket", "got"});
        receiver->send(SIGKILL);
        EXPECT_EQ(receiver->wait(), Outcome(128 + SIGKILL));
        EXPECT_TRUE(exists(path("socket")));
    }
    transfer(local, "sent", "got");
    EXPECT_EQ(folder.names(), (Words{"got", "sent"}));
}

// Somebody else has put a socket of his own in its place.
TEST_F(SendRecv, the_socket_of_the_next_receiver_is_not_removed) {
    std::optional<KorvexProcess> first;
    start_receiver(first, {"--unix", "socket", "got"});
    unlink(path("socket").c_str());
    const RawPeer next(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(next.descriptor(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    first->send(SIGTERM);
    EXPECT_EQ(first->wait(), Outcome(128 + SIGTERM));
    EXPECT_TRUE(exists(path("socket")));
}

TEST_F(SendRecv, both_sides_show_their_progress_on_a_terminal) {
    folder.file("sent", std::string(3 << 20, 'x'));
    const std::pair<Way, std::string> rows[] = {{plain, "port 4000"}, {local, "socket"}};
    for (const auto &[way, where] : rows) {
        SCOPED_TRACE(way.name);
        TerminalProcess receiver(with(with({"recv"}, way.recv), {"got"}), folder.path());
        ASSERT_TRUE(receiver.shows("waiting for a sender on " + where + "\r\n"));
        const Outcome sent = TerminalProcess(with(with({"send"}, way.send), {"sent"}), folder.path()).wait();
        const Outcome got = receiver.wait();
        for (const Outcome &outcome : {sent, got}) {
            EXPECT_EQ(outcome.exit_status, 0);
            EXPECT_THAT(outcome.out, HasSubstr("\r0 byte of 3.00 MB, 0%, 0 byte/s"));
            EXPECT_THAT(outcome.out, HasSubstr("\r3.00 MB of 3.00 MB, 100%, "));
            EXPECT_TRUE(outcome.out.ends_with("/s\x1b[K\r\n")) << outcome.out;
        }
    }
}

}  // namespace
