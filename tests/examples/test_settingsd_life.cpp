// settingsd from its start to its end: what it starts with, what it takes over, what it leaves behind.
#include <unistd.h>

#include <fstream>

#include "fileio.h"
#include "lock_content.h"
#include "miscfunc.h"
#include "settingsd_world.h"
#include "socket.h"

namespace {

using support::exists;
using support::read_file;
using support::write_file;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class SettingsdLife : public SettingsdTest {
  protected:
    Outcome run(const Words &words) const { return Program(SETTINGSD_PROGRAM, words, folder.path()).wait(); }

    void expect_served() const { EXPECT_EQ(settings({"set", "alive", "yes"}), Outcome(0)); }

    // A daemon is killed; its socket's file stays.
    void kill_hard(Program &daemon) const {
        daemon.send(SIGKILL);
        EXPECT_EQ(daemon.wait().exit_status, 128 + SIGKILL);
        EXPECT_TRUE(exists(folder.path("socket")));
    }
};

// What a waiter for the lock of `conf` finds.
std::string lock_of(pid_t holder) {
    return support::lock_bytes(static_cast<int64_t>(Rough_Tick()), holder);
}

const std::string kLock = "/var/lock/_conf.lck";

TEST_F(SettingsdLife, ends_on_either_signal_without_a_trace) {
    make_certificate();
    for (const int signal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signal);
        const auto daemon = start(tls_words());
        EXPECT_EQ(settings({"set", "a", "1"}), Outcome(0));
        EXPECT_EQ(tls_settings({"list"}), Outcome(0, "a=1\n"));
        expect_clean_stop(*daemon, signal);
        EXPECT_EQ(folder.names(), (Words{"ca.pem", "cert.pem", "conf", "key.pem", "log", "pass"}));
        EXPECT_FALSE(exists(kLock));
    }
}

TEST_F(SettingsdLife, waits_for_nobody_at_its_end) {
    make_certificate();
    const auto daemon = start(joined(tls_words(), {"--workers", "4", "--timeout", "600000"}));
    const std::string whole = request('S', "half=way");
    const Peer idle = peer();
    const Peer talked = peer();
    EXPECT_EQ(talked.ask(request('L', "")), Reply(kDone, ""));
    const Peer at_header = peer();
    EXPECT_TRUE(at_header.send(whole.substr(0, 3)));
    const Peer at_text = peer();
    EXPECT_TRUE(at_text.send(whole.substr(0, 12)));
    const Peer at_handshake = Peer::tcp(kPort);
    EXPECT_TRUE(at_handshake.send("\x16\x03\x01"));
    SSL_Socket_Info session{.fdSocket = -1, .pBio = nullptr, .pSsl = nullptr, .pCtx = nullptr};
    const std::string certificate = folder.path("cert.pem");
    ASSERT_EQ(SSL_Socket_Connect("127.0.0.1", kPort, 60'000, certificate.c_str(), "open, please", certificate.c_str(),
                                 &session),
              0);
    expect_clean_stop(*daemon);
    for (const Peer *each : {&idle, &talked, &at_header, &at_text})
        EXPECT_EQ(each->rest(), "");
    at_handshake.rest();
    SSL_Socket_Destroy(&session, 0);
}

TEST_F(SettingsdLife, answers_at_its_end_what_it_has_begun) {
    write_file(kLock, lock_of(getpid()));
    const auto daemon = start();
    const Peer patient = peer();
    EXPECT_TRUE(patient.send(request('S', "begun=done")));
    patient.wait_until_read();
    daemon->send(SIGTERM);
    while (exists(folder.path("socket")))
        usleep(1000);
    unlink(kLock.c_str());
    EXPECT_EQ(patient.reply(), Reply(kDone, ""));
    EXPECT_EQ(daemon->wait(), Outcome());
    EXPECT_EQ(conf(), "[settings]\nbegun = done\n");
}

TEST_F(SettingsdLife, replaces_the_socket_of_a_killed_daemon) {
    const auto first = start();
    EXPECT_EQ(settings({"set", "a", "1"}), Outcome(0));
    kill_hard(*first);
    const auto second = start();
    EXPECT_EQ(settings({"get", "a"}), Outcome(0, "1\n"));
    expect_clean_stop(*second);
}

TEST_F(SettingsdLife, gives_way_to_a_second_daemon_on_its_path) {
    const auto first = start();
    EXPECT_EQ(settings({"set", "a", "1"}), Outcome(0));
    const auto second = start();
    EXPECT_EQ(first->wait(), Outcome());
    EXPECT_TRUE(exists(folder.path("socket"))) << "it is the second one's now";
    EXPECT_THAT(log(), HasSubstr("stopping: socket is no longer this daemon's\n"));
    EXPECT_EQ(settings({"get", "a"}), Outcome(0, "1\n"));
    expect_clean_stop(*second);
}

TEST_F(SettingsdLife, leaves_the_path_to_the_daemon_that_has_the_port) {
    make_certificate();
    const auto first = start(tls_words());
    EXPECT_EQ(run(tls_words()),
              Outcome(1, "",
                      "settingsd: can't listen on " +
                          told("port 4711: Address already in use\n", "'all addresses': address already in use\n")));
    expect_served();
    EXPECT_EQ(tls_settings({"get", "alive"}), Outcome(0, "yes\n"));
    expect_clean_stop(*first);
}

TEST_F(SettingsdLife, removes_nothing_but_a_socket) {
    folder.file("socket", "precious");
    EXPECT_EQ(run(local_words()),
              Outcome(1, "",
                      "settingsd: can't listen on " + told("socket: Socket operation on non-socket\n",
                                                           "'socket': what is there is not a socket\n")));
    EXPECT_EQ(read_file(folder.path("socket")), "precious");
}

TEST_F(SettingsdLife, takes_over_the_lock_of_a_dead_process) {
    const auto daemon = start();
    for (const std::string &content : {lock_of(support::dead_process()), std::string("half")}) {
        SCOPED_TRACE(testing::PrintToString(content));
        write_file(kLock, content);
        expect_served();
        EXPECT_FALSE(exists(kLock));
    }
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdLife, tells_that_another_process_holds_the_file) {
    const auto daemon = start();
    expect_served();
    const std::string content = lock_of(getpid());
    write_file(kLock, content);
    const Peer changing = peer();
    EXPECT_TRUE(changing.send(request('S', "alive=no")));
    EXPECT_EQ(settings({"get", "alive"}), Outcome(0, "yes\n")) << "reading needs no lock";
    EXPECT_EQ(changing.reply(), Reply(kBusy, "the settings are locked by another process"));
    EXPECT_EQ(read_file(kLock), content);
    EXPECT_EQ(conf(), "[settings]\nalive = yes\n");
    unlink(kLock.c_str());
    EXPECT_EQ(changing.ask(request('S', "alive=no")), Reply(kDone, ""));
}

TEST_F(SettingsdLife, acknowledges_nothing_that_could_not_be_written) {
    const support::SmallDisk disk(64 * 1024);
    Words words = local_words();
    words[3] = disk.path("conf");
    const auto daemon = start(words);
    EXPECT_EQ(settings({"set", "key", "old"}), Outcome(0));
    disk.fill_up_to(0);
    EXPECT_EQ(settings({"set", "key", "new"}), Outcome(3, "", "settings: failed\n"));
    EXPECT_EQ(settings({"get", "key"}), Outcome(0, "old\n"));
    EXPECT_THAT(log(), HasSubstr(told("] can't set a key of " + words[3] + "! (-1)\n",
                                      "] can't write '" + disk.path("$$@#!$$000") + "': no space left on device\n")));
    unlink(disk.path("filler").c_str());
    EXPECT_EQ(settings({"set", "key", "new"}), Outcome(0));
    EXPECT_EQ(settings({"get", "key"}), Outcome(0, "new\n"));
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdLife, drops_the_half_line_that_a_killed_daemon_left_in_the_log) {
    const std::string whole = "[2024-01-31 13:04:05] set a\n";
    const struct {
        std::string before;
        std::string kept;
    } rows[] = {
        {"", ""},
        {whole, whole},
        {whole + "[2024-01-31 13:0", whole},
        {whole + whole + "[2024-01-31 13:04:05] set", whole + whole},
        {whole + std::string(16'400, 'x'), whole},
        {std::string(20'000, 'x') + "\n" + whole + "[", std::string(20'000, 'x') + "\n" + whole},
    };
    for (const auto &[before, kept] : rows) {
        folder.file("log", before);
        const auto daemon = start();
        EXPECT_EQ(log().substr(0, log().find("] process ") - 20), kept);
        daemon->send(SIGTERM);
        EXPECT_EQ(daemon->wait(), Outcome());
    }
}

TEST_F(SettingsdLife, refuses_a_command_line_that_it_can_not_make_out) {
    const std::string log_path = folder.path("log");
    const struct {
        Words words;
        std::string err;
    } rows[] = {
        {{}, "settingsd: --socket is missing. See settingsd --help\n"},
        {{"--socket", "s"}, "settingsd: --conf is missing. See settingsd --help\n"},
        {{"--socket", "s", "--conf", "c"}, "settingsd: --log is missing. See settingsd --help\n"},
        {{"--socket", "s", "--conf", "c", "--log", "l"}, "settingsd: --log: l: not an absolute path\n"},
        {{"--socket", "s", "--conf", "c", "--log", log_path, "--port", "1"},
         "settingsd: --cert is missing. See settingsd --help\n"},
        {{"--port", "0"}, "settingsd: --port: 0: not a port\n"},
        {{"--port", "65536"}, "settingsd: --port: 65536: not a port\n"},
        {{"--port", "80x"}, "settingsd: --port: 80x: not a port\n"},
        {{"--port", ""}, "settingsd: --port: : not a port\n"},
        {{"--workers", "0"}, "settingsd: --workers: 0: not a number from 1 to 64\n"},
        {{"--workers", "65"}, "settingsd: --workers: 65: not a number from 1 to 64\n"},
        {{"--timeout", "99"}, "settingsd: --timeout: 99: not a number from 100 to 600000\n"},
        {{"--password-file", "none"}, "settingsd: --password-file: none: can't be read\n"},
        {{"--socket", "s", "--conf", "c", "--log", log_path, "more"},
         "settingsd: what is 'more' for? See settingsd --help\n"},
    };
    for (const auto &[words, err] : rows)
        EXPECT_EQ(run(words), Outcome(2, "", err)) << testing::PrintToString(words);
    EXPECT_THAT(run({"--color"}).err, HasSubstr("unrecognized option '--color'"));
    EXPECT_THAT(run({"--conf"}).err, HasSubstr("option '--conf' requires an argument"));
    EXPECT_EQ(folder.names(), Words());

    const Outcome help = run({"--help"});
    EXPECT_EQ(help.exit_status, 0);
    EXPECT_THAT(help.out, testing::StartsWith("usage: settingsd --socket PATH --conf FILE --log FILE"));
}

TEST_F(SettingsdLife, does_not_start_without_what_it_needs) {
    make_certificate();
    folder.file("wrong", "sesame\n");
    folder.file("text", "no certificate\n");
    const auto cert = [](const std::string &file) {
        return told("can't use the certificate " + file + ": No such file or directory. See the log",
                    "can't use the credentials '" + file +
                        "': the certificate, its key, its pass phrase or the authorities can't be loaded");
    };
    const auto path = [](const std::string &name) { return told(name, "'" + name + "'"); };
    const std::string missing = told("No such file or directory", "no such file or folder");
    const struct {
        std::string option;
        std::string argument;
        std::string err;
    } rows[] = {
        {"--password-file", "wrong", cert("cert.pem")},
        {"--cert", "none.pem", cert("none.pem")},
        {"--cert", "ca.pem", cert("ca.pem")},
        {"--cert", "text", cert("text")},
        {"--ca", "none.pem", cert("cert.pem")},
        {"--host", "192.0.2.1",
         told("can't listen on port 4711: Cannot assign", "can't listen on '192.0.2.1': cannot assign") +
             " requested address"},
        {"--socket", "none/socket", "can't listen on " + path("none/socket") + ": " + missing},
        {"--socket", std::string(108, 's'),
         "can't listen on " + path(std::string(108, 's')) + ": " + told("File name too long", "the path is too long")},
        {"--log", "/proc/none/log",
         told("can't open the log ", "can't make the log ") + path("/proc/none/log") + ": " + missing},
        {"--log", folder.path(),
         "can't open the log " + path(folder.path()) + ": " + told("Is", "is") + " a directory"},
    };
    for (const auto &[option, argument, err] : rows) {
        EXPECT_EQ(run(joined(tls_words(), {option, argument})), Outcome(1, "", "settingsd: " + err + "\n"))
            << option << " " << argument;
        EXPECT_FALSE(exists(folder.path("socket")));
    }
}

}  // namespace
