// korvex recv: what is no file from 'korvex send', or can't be taken, is an error and leaves nothing.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "transfer.h"

namespace {

using support::read_file;
using support::write_file;
using testing::MatchesRegex;

class RecvRefusals : public TransferTest {
  protected:
    RecvRefusals() { folder.file("got", "old"); }

    // The receiver says so in one line, and only the old file is there.
    void expect_refusal(KorvexProcess &receiver, const std::string &text) const {
        EXPECT_EQ(receiver.wait(), Outcome(3, "", "korvex: recv: " + text + "\n"));
        expect_old_file();
    }
    void expect_old_file() const {
        EXPECT_EQ(folder.names(), Words{"got"});
        EXPECT_EQ(read_file(path("got")), "old");
    }
    // As begun(), by TLS.
    SSL_Socket_Info begun_session(uint64_t size) const {
        SSL_Socket_Info sender = session_on(-1);
        const std::string pem = safe_path("cert.pem");
        EXPECT_EQ(SSL_Socket_Connect("127.0.0.1", kPort, 0, pem.c_str(), "", pem.c_str(), &sender), 0);
        char answered[12];
        EXPECT_EQ(Exactly_SSL_Send(&sender, header(size).data(), 16, 0), 16);
        EXPECT_EQ(Exactly_SSL_Recv(&sender, answered, sizeof answered, -1), 12);
        return sender;
    }
};

TEST_F(RecvRefusals, what_does_not_begin_as_korvex_send_does_is_refused) {
    const std::string stranger = "the sender is not 'korvex send', or one side uses --tls alone";
    const std::string closed = "the sender closed the connection";
    const struct {
        std::string bytes;
        std::string text;
    } rows[] = {
        {"GET / HTTP/1.1\r\nHost: nas\r\n\r\n", stranger},
        {"korvex/2" + big_endian(1, 8), stranger},
        {"01234567", stranger},
        {"korvex/1", closed},
        {header(1).substr(0, 15), closed},
        {"kor", closed},
        {"", closed},
    };
    for (const auto &[bytes, text] : rows) {
        SCOPED_TRACE(bytes);
        std::optional<KorvexProcess> receiver;
        start_receiver(receiver, {kPortText, "got"});
        const RawPeer sender = connect_to_receiver();
        sender.say(bytes);
        shutdown(sender.descriptor(), SHUT_WR);  // fails where the receiver has gone already
        EXPECT_EQ(sender.hear(12), "");
        expect_refusal(*receiver, text);
    }
}

TEST_F(RecvRefusals, a_size_that_the_disk_has_no_room_for_is_refused_and_the_sender_told) {
    const support::SmallDisk disk(1 << 20);
    const struct {
        uint64_t size;
        uint32_t error;
    } rows[] = {
        {(1 << 20) + 1, ENOSPC},
        {INT64_MAX, ENOSPC},
        {uint64_t{1} << 63, EFBIG},
        {UINT64_MAX, EFBIG},
    };
    const std::string target = disk.path("new");
    for (const auto &[size, error] : rows) {
        SCOPED_TRACE(size);
        std::optional<KorvexProcess> receiver;
        start_receiver(receiver, {kPortText, target});
        const RawPeer sender = connect_to_receiver();
        sender.say(header(size));
        EXPECT_EQ(sender.hear(13), answer(error));
        expect_refusal(*receiver,
                       target + ": " + std::to_string(size) + " bytes are announced, and there is room for 1048576");
        EXPECT_EQ(disk.names(), Words());
    }
}

TEST_F(RecvRefusals, a_disk_that_fills_up_on_the_way_ends_it_and_the_sender_is_told) {
    const support::SmallDisk disk(4 << 20);
    const std::string target = disk.path("new");
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, {kPortText, target});
    const RawPeer sender = begun(2 << 20);
    disk.fill_up_to(1 << 20);
    sender.say(content(2 << 20));
    EXPECT_EQ(sender.hear(13), answer(ENOSPC));
    expect_refusal(*receiver, target + ": No space left on device");
    EXPECT_EQ(disk.names(), Words{"filler"});
}

TEST_F(RecvRefusals, a_sender_that_closes_early_is_an_error_by_all_ways) {
    make_certificates();
    const std::string text = "the sender closed the connection after 3 of 10 bytes";
    std::optional<KorvexProcess> receiver;
    {
        start_receiver(receiver, {kPortText, "new"});
        begun(10).say("123");
        EXPECT_EQ(receiver->wait(), Outcome(3, "", "korvex: recv: " + text + "\n"));
    }
    {
        start_receiver(receiver, {"--unix", path("socket"), "new"});
        const RawPeer sender = connect_to_receiver(path("socket"));
        sender.say(header(10));
        EXPECT_EQ(sender.hear(12), answer());
        sender.say("123");
        ASSERT_EQ(shutdown(sender.descriptor(), SHUT_WR), 0);
        EXPECT_EQ(receiver->wait(), Outcome(3, "", "korvex: recv: " + text + "\n"));
    }
    for (const int32_t without_farewell : {0, 1}) {
        start_receiver(receiver, with({kPortText, "new"}, tls));
        SSL_Socket_Info sender = begun_session(10);
        ASSERT_EQ(Exactly_SSL_Send(&sender, "123", 3, 0), 3);
        SSL_Socket_Destroy(&sender, without_farewell);
        // A piece of a TLS transfer counts when it is whole.
        EXPECT_EQ(receiver->wait(),
                  Outcome(3, "", "korvex: recv: the sender closed the connection after 0 of 10 bytes\n"));
    }
    expect_old_file();
}

TEST_F(RecvRefusals, a_connection_that_breaks_is_an_error) {
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, {kPortText, "got"});
    RawPeer sender = begun(10);
    const linger at_once = {.l_onoff = 1, .l_linger = 0};
    ASSERT_EQ(setsockopt(sender.descriptor(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once), 0);
    sender.hang_up();
    expect_refusal(*receiver, "the connection to the sender is lost: Connection reset by peer after 0 of 10 bytes");
}

// They would hide what is behind them.
TEST_F(RecvRefusals, urgent_bytes_are_refused) {
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, {kPortText, "got"});
    const RawPeer sender = begun(10);
    sender.say("123");
    ASSERT_EQ(send(sender.descriptor(), "4", 1, MSG_OOB), 1);
    sender.say("567890");
    expect_refusal(*receiver, "the sender sends urgent bytes, as no 'korvex send' does");
}

TEST_F(RecvRefusals, a_silent_sender_is_given_up_at_each_step) {
    make_certificates();
    const std::string silent = "korvex: recv: nothing came from the sender for MS";
    const struct {
        Words words;
        std::string said;
        std::string text;
    } rows[] = {
        {{}, "", silent},
        {{}, "korve", silent},
        {{}, header(10), silent + " after 0 of 10 bytes"},
        {{}, header(10) + "1234567", silent + " after 7 of 10 bytes"},
        {{}, header(1 << 20) + std::string(99, 'x'), silent + " after 99 of 1048576 bytes"},
        {tls, "", silent},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.said);
        expect_time_out(row.text, [&](const std::string &ms) {
            std::optional<KorvexProcess> receiver;
            start_receiver(receiver, with({kPortText, "new", "--timeout", ms}, row.words));
            const RawPeer sender = connect_to_receiver();
            sender.say(row.said);
            return receiver->wait();
        });
    }
    expect_old_file();
}

TEST_F(RecvRefusals, bytes_beyond_the_announced_ones_are_refused_by_all_ways) {
    make_certificates();
    const std::string text = "the sender sends more than the 3 bytes it announced";
    std::optional<KorvexProcess> receiver;
    {
        start_receiver(receiver, {kPortText, "got"});
        const RawPeer sender = begun(3);
        sender.say("123more");
        expect_refusal(*receiver, text);
    }
    {
        start_receiver(receiver, {"--unix", path("socket"), "got"});
        const RawPeer sender = connect_to_receiver(path("socket"));
        sender.say(header(3));
        EXPECT_EQ(sender.hear(12), answer());
        sender.say("123m");
        expect_refusal(*receiver, text);
    }
    start_receiver(receiver, with({kPortText, "got"}, tls));
    SSL_Socket_Info sender = begun_session(3);
    ASSERT_EQ(Exactly_SSL_Send(&sender, "123more", 7, 0), 7);
    expect_refusal(*receiver, text);
    SSL_Socket_Destroy(&sender, 1);
}

TEST_F(RecvRefusals, a_transfer_that_takes_too_long_is_given_up_though_bytes_come) {
    make_certificates();
    const std::string text = "korvex: recv: the transfer took longer than MS";
    const struct {
        Words words;
        std::string said;
        std::string text;
    } rows[] = {
        {{}, "", text},
        {{}, header(1 << 30), text + " after [0-9]+ of 1073741824 bytes"},
        {tls, "", text},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.said);
        expect_time_out(row.text, [&](const std::string &ms) {
            std::optional<KorvexProcess> receiver;
            start_receiver(receiver, with({kPortText, "new", "--max-time", ms}, row.words));
            const RawPeer sender = connect_to_receiver();
            sender.say(row.said);
            // Byte by byte, so that no time-out of the socket's is ever over.
            while (!row.said.empty() && send(sender.descriptor(), "x", 1, MSG_NOSIGNAL) == 1)
                usleep(1000);
            return receiver->wait();
        });
    }
    expect_old_file();
}

TEST_F(RecvRefusals, without_a_sender_the_time_out_ends_the_wait) {
    const Words rows[] = {{kPortText}, {"--unix", "socket"}};
    for (const Words &where : rows) {
        const uint64_t start = Rough_Tick();
        EXPECT_EQ(korvex(with(with({"recv"}, where), {"got", "--timeout", "200"})),
                  Outcome(3, "", "korvex: recv: no sender for 200 ms\n"));
        EXPECT_GE(Rough_Tick_Diff(start), 200U);
        expect_old_file();
    }
}

TEST_F(RecvRefusals, one_side_with_tls_alone_is_an_error_on_both) {
    make_certificates();
    folder.file("sent", "content");
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, {kPortText, "new"});
    EXPECT_EQ(korvex(with({"send", "127.0.0.1", kPortText, "sent"}, tls)).exit_status, 3);
    EXPECT_EQ(receiver->wait(),
              Outcome(3, "", "korvex: recv: the sender is not 'korvex send', or one side uses --tls alone\n"));

    start_receiver(receiver, with({kPortText, "new"}, tls));
    EXPECT_EQ(korvex({"send", "127.0.0.1", kPortText, "sent"}).exit_status, 3);
    EXPECT_EQ(receiver->wait(), Outcome(3, "", "korvex: recv: no TLS session with the sender: Protocol error\n"));
    EXPECT_FALSE(support::exists(path("new")));
}

TEST_F(RecvRefusals, what_cannot_become_the_target_is_refused_before_anybody_is_waited_for) {
    mkdir(path("folder").c_str(), 0755);
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    ASSERT_EQ(symlink("pipe", path("to_pipe").c_str()), 0);
    expect({
        {{"recv", kPortText, "none/x"}, {3, "", "korvex: recv: none/x: No such file or directory\n"}},
        {{"recv", kPortText, "got/x"}, {3, "", "korvex: recv: got/x: Not a directory\n"}},
        {{"recv", kPortText, "folder"}, {3, "", "korvex: recv: folder: Is a directory\n"}},
        {{"recv", kPortText, "x/"}, {3, "", "korvex: recv: x/: Is a directory\n"}},
        {{"recv", kPortText, "pipe"}, {3, "", "korvex: recv: pipe: exists and is not a file\n"}},
        {{"recv", kPortText, "to_pipe"}, {3, "", "korvex: recv: to_pipe: exists and is not a file\n"}},
        {{"recv", "--unix", "got", "x"}, {3, "", "korvex: recv: got: exists and is not a socket\n"}},
        {{"recv", "--unix", "none/socket", "x"}, {3, "", "korvex: recv: none/socket: No such file or directory\n"}},
        {{"recv", "--unix", std::string(200, 's'), "x"},
         {3, "", "korvex: recv: " + std::string(200, 's') + ": File name too long\n"}},
        {{"recv", "--host", "10.1.2.3", kPortText, "x"},
         {3, "", "korvex: recv: 10.1.2.3 port 4000: Cannot assign requested address\n"}},
    });
    EXPECT_EQ(folder.names(), (Words{"folder", "got", "pipe", "to_pipe"}));
    EXPECT_EQ(read_file(path("got")), "old");
}

TEST_F(RecvRefusals, a_folder_that_may_not_be_written_to_is_refused) {
    if (!support::can_be_nobody())
        GTEST_SKIP() << "only a privileged program can become another user";
    const support::TempFolder place;
    chmod(folder.path().c_str(), 0755);
    chmod(place.path().c_str(), 0777);
    const int exit_status = support::in_child_as_nobody([&] {
        const Outcome outcome = korvex({"recv", kPortText, "got"});
        write_file(place.path("error"), outcome.err);
        return outcome.exit_status;
    });
    EXPECT_EQ(exit_status, 3);
    EXPECT_EQ(read_file(place.path("error")), "korvex: recv: got: Permission denied\n");
    expect_old_file();
}

TEST_F(RecvRefusals, a_read_only_file_system_is_refused) {
    const support::SmallDisk disk(64 << 10);
    const std::string target = disk.file("got", "old");
    ASSERT_EQ(mount(nullptr, disk.path("").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(korvex({"recv", kPortText, target}),
              Outcome(3, "", "korvex: recv: " + target + ": Read-only file system\n"));
    EXPECT_EQ(read_file(target), "old");
}

// The folder goes while the sender is waited for.
TEST_F(RecvRefusals, a_target_that_can_no_longer_be_made_is_told_to_the_sender) {
    const std::string target = path("d/new");
    mkdir(path("d").c_str(), 0755);
    std::optional<KorvexProcess> receiver;
    start_receiver(receiver, {kPortText, target});
    rmdir(path("d").c_str());
    const RawPeer sender = connect_to_receiver();
    sender.say(header(1));
    EXPECT_EQ(sender.hear(13), answer(ENOENT));
    expect_refusal(*receiver, target + ": No such file or directory");
}

}  // namespace
