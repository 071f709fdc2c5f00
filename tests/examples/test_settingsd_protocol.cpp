// settingsd and peers that do not keep to the protocol, break off, dawdle, or come in crowds.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>

#include "settingsd_world.h"

namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

class SettingsdProtocol : public SettingsdTest {
  protected:
    void expect_served() const { EXPECT_EQ(peer().ask(request('L', "")), Reply(kDone, "")); }
};

TEST_F(SettingsdProtocol, answers_what_is_no_request_and_closes) {
    const struct {
        std::string bytes;
        Reply reply;
    } rows[] = {
        {"GET / HTTP/1.1\r\n\r\n", {kBadRequest, "bad request"}},
        {std::string(8, '\0'), {kBadRequest, "bad request"}},
        {std::string(8, '\xff'), {kBadRequest, "bad request"}},
        {"KS\2L\0\0\0\0"s, {kBadRequest, "bad request"}},
        {header('S', 4097), {kTooLong, "too long"}},
        {header('L', 0x10000), {kTooLong, "too long"}},
        {header('S', 0x7fffffff), {kTooLong, "too long"}},
        {header('S', 0x80000000), {kTooLong, "too long"}},
        {header('S', 0xfffffff7), {kTooLong, "too long"}},
        {header('S', 0xffffffff), {kTooLong, "too long"}},
        {header('S', 0xffffffff) + "k=v", {kTooLong, "too long"}},
    };
    const auto daemon = start();
    for (const auto &[bytes, reply] : rows) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        const Peer hostile = peer();
        EXPECT_EQ(hostile.ask(bytes), reply);
        EXPECT_EQ(hostile.rest(), "");
        expect_served();
    }
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdProtocol, answers_a_bad_text_and_goes_on) {
    const Reply key{kBadRequest, "not a key"};
    const Reply value{kBadRequest, "not a value"};
    const struct {
        std::string bytes;
        Reply reply;
    } rows[] = {
        {request('X', ""), {kBadRequest, "unknown command"}},
        {request('\0', "k"), {kBadRequest, "unknown command"}},
        {request('\xff', std::string(4096, 'x')), {kBadRequest, "unknown command"}},
        {request('G', ""), key},
        {request('G', std::string(256, 'k')), key},
        {request('G', "k\0"s), key},
        {request('G', "a=b"), key},
        {request('U', ""), key},
        {request('U', "a\nb"), key},
        {request('S', ""), key},
        {request('S', "no value"), key},
        {request('S', "=v"), key},
        {request('S', " k=v"), key},
        {request('S', "k =v"), key},
        {request('S', "k\t=v"), key},
        {request('S', "[k]=v"), key},
        {request('S', ";k=v"), key},
        {request('S', "#k=v"), key},
        {request('S', "k\0k=v"s), key},
        {request('S', "k\n[other]\nk=v"), key},
        {request('S', "k\x7f=v"), key},
        {request('S', std::string(256, 'k') + "=v"), key},
        {request('S', "k= v"), value},
        {request('S', "k=v\t"), value},
        {request('S', "k=v\n"), value},
        {request('S', "k=v\n[other]\nk=v"), value},
        {request('S', "k=v\0"s), value},
        {request('G', "k"), {kNoKey, "no such key"}},
        {request('U', "k"), {kNoKey, "no such key"}},
    };
    const auto daemon = start();
    const Peer careless = peer();
    for (const auto &[bytes, reply] : rows)
        EXPECT_EQ(careless.ask(bytes), reply) << testing::PrintToString(bytes);
    EXPECT_EQ(careless.ask(request('L', "")), Reply(kDone, ""));
    EXPECT_FALSE(support::exists(folder.path("conf")));
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdProtocol, takes_the_longest_key_and_the_longest_request) {
    const std::string key(255, 'k');
    const std::string value(4096 - 255 - 1, 'v');
    const auto daemon = start();
    const Peer talker = peer();
    EXPECT_EQ(talker.ask(request('S', key + "=" + value)), Reply(kDone, ""));
    EXPECT_EQ(talker.ask(request('G', key)), Reply(kDone, value));
    EXPECT_EQ(talker.ask(request('L', "")), Reply(kDone, key + "=" + value + "\n"));
    EXPECT_EQ(conf(), "[settings]\n" + key + " = " + value + "\n");
}

TEST_F(SettingsdProtocol, makes_requests_out_however_they_are_cut) {
    const auto daemon = start();
    const Peer slow = peer();
    for (const char byte : request('S', "slow=yes"))
        EXPECT_TRUE(slow.send({&byte, 1}));
    EXPECT_EQ(slow.reply(), Reply(kDone, ""));

    const Peer quick = peer();
    EXPECT_TRUE(quick.send(request('S', "quick=1") + request('S', "quick=2") + request('G', "quick")));
    EXPECT_EQ(quick.reply(), Reply(kDone, ""));
    EXPECT_EQ(quick.reply(), Reply(kDone, ""));
    EXPECT_EQ(quick.reply(), Reply(kDone, "2"));
}

TEST_F(SettingsdProtocol, survives_peers_that_break_off) {
    const std::string whole = request('S', "half=way");
    const auto daemon = start(joined(local_words(), {"--workers", "1"}));
    for (size_t size = 0; size < whole.size(); size++) {
        EXPECT_TRUE(peer().send(whole.substr(0, size)));
        expect_served();
    }
    // Gone before its answer comes: done all the same.
    EXPECT_TRUE(peer().send(whole));
    while (peer().ask(request('G', "half")) != Reply(kDone, "way")) {}
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdProtocol, closes_on_silent_peers) {
    constexpr auto kTimeout = milliseconds(200);
    const std::string whole = request('S', "silent=yes");
    const auto daemon = start(joined(local_words(), {"--workers", "1", "--timeout", "200"}));
    for (const size_t size : {0, 1, 7, 8, 12}) {
        SCOPED_TRACE(size);
        const auto begin = steady_clock::now();
        const Peer silent = peer();
        EXPECT_TRUE(silent.send(whole.substr(0, size)));
        EXPECT_EQ(silent.rest(), "");
        // The kernel's receive time-out counts in ticks of its own.
        EXPECT_GE(steady_clock::now() - begin, kTimeout - milliseconds(20));
    }
    expect_clean_stop(*daemon);
    EXPECT_FALSE(support::exists(folder.path("conf")));
}

TEST_F(SettingsdProtocol, closes_on_a_peer_that_sends_a_byte_now_and_then) {
    const auto daemon = start(joined(local_words(), {"--workers", "1", "--timeout", "200"}));
    const Peer dripping = peer();
    EXPECT_TRUE(dripping.send(header('S', 4096)));
    int sent = 0;
    for (; sent < 4095 && dripping.send("x"); sent++)
        usleep(10'000);  // far below the time-out, which each byte starts anew
    EXPECT_LT(sent, 4095);
    expect_served();
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdProtocol, serves_more_peers_than_it_has_workers) {
    const auto daemon = start(joined(local_words(), {"--workers", "1"}));
    std::vector<Peer> crowd;
    for (int i = 0; i < 60; i++)
        crowd.push_back(peer());
    for (int round = 0; round < 3; round++) {
        for (size_t i = 0; i < crowd.size(); i++)
            EXPECT_TRUE(crowd[i].send(request('S', "key" + std::to_string(i) + "=" + std::to_string(round))));
        for (const Peer &one : crowd)
            EXPECT_EQ(one.reply(), Reply(kDone, ""));
    }
    EXPECT_EQ(crowd[59].ask(request('G', "key0")), Reply(kDone, "2"));
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdProtocol, has_idle_peers_wait_outside_when_it_is_full) {
    const auto daemon = start(joined(local_words(), {"--timeout", "1500"}));
    const std::string descriptors = "/proc/" + std::to_string(daemon->pid()) + "/fd";
    std::vector<Peer> crowd;
    for (int i = 0; i < 600; i++)
        crowd.push_back(peer());
    std::ptrdiff_t most = 0;
    for (; !crowd.front().has_ended(); usleep(1000))
        most = std::max(most, std::distance(begin(std::filesystem::directory_iterator(descriptors)), {}));
    EXPECT_GE(most, 512);
    EXPECT_LT(most, 530);
    // The last ones are served once the first ones have been silent for too long.
    EXPECT_EQ(crowd.back().ask(request('L', "")), Reply(kDone, ""));
    expect_clean_stop(*daemon);
}

TEST_F(SettingsdProtocol, survives_garbage_instead_of_tls) {
    make_certificate();
    const auto daemon = start(joined(tls_words(), {"--workers", "1"}));
    const std::string garbage[] = {
        "",
        "G",
        "GET / HTTP/1.1\r\n\r\n",
        request('L', ""),
        std::string(70'000, '\0'),
        std::string(70'000, '\xff'),
        "\x16\x03\x01\xff\xff"s + std::string(65'535, 'x'),  // a handshake record of a size that there is not
        "\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03"s,     // the beginning of a hello
    };
    for (const std::string &bytes : garbage) {
        SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 40)));
        Peer::tcp(kPort).send(bytes);
        EXPECT_EQ(tls_settings({"list"}), Outcome(0));
    }
    // One that says nothing takes a worker's time, but not all of it.
    const Peer silent = Peer::tcp(kPort);
    EXPECT_EQ(tls_settings({"set", "tls", "alive"}), Outcome(0));
    EXPECT_EQ(peer().ask(request('L', "")), Reply(kDone, "tls=alive\n"));
    expect_clean_stop(*daemon);
}

}  // namespace
