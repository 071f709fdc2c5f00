// settingsd under load, and killed again and again: what was acknowledged is there, and the log is whole.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <sstream>

#include "settingsd_world.h"

namespace {

constexpr int kClients = 64;
constexpr int kKills = 5;
// Each change writes the file anew, which takes many times as long where the build is instrumented.
#ifdef KORVEX_INSTRUMENTED
constexpr int kSets = 20;
#elif defined SETTINGSD_CPP  // a transaction reads and compares the whole file as well
constexpr int kSets = 50;
#else
constexpr int kSets = 200;
#endif
constexpr int kChanges = kClients * kSets;

std::string key_of(int client, int set) {
    return "client " + std::to_string(client) + " key " + std::to_string(set);
}

std::string value_of(int client, int set) {
    return "value " + std::to_string(set) + " of client " + std::to_string(client);
}

class SettingsdLoad : public SettingsdTest {
  protected:
    SettingsdLoad() { make_certificate(); }

    std::unique_ptr<Program> start_load() const {
        const Words words = joined({"--clients", std::to_string(kClients), "--sets", std::to_string(kSets)},
                                   joined({"--socket", "socket", "--conf", "conf"}, tls_address()));
        return std::make_unique<Program>(SETTINGS_LOAD_PROGRAM, words, folder.path());
    }

    // Waits until the file holds that many changes.
    void wait_for_changes(int64_t number) const {
        const auto there = [this] {
            const std::string text = support::exists(folder.path("conf")) ? conf() : "";
            return std::count(text.begin(), text.end(), '=');
        };
        while (there() < number)
            usleep(10'000);
    }

    // The file holds every change, each once, and nothing else.
    void expect_all_changes() const {
        std::map<std::string, std::string> expected;
        for (int client = 0; client < kClients; client++)
            for (int set = 0; set < kSets; set++)
                expected[key_of(client, set)] = value_of(client, set);

        std::istringstream lines(conf());
        std::string line;
        std::getline(lines, line);
        EXPECT_EQ(line, "[settings]");
        while (std::getline(lines, line)) {
            if (line.empty())
                continue;
            const size_t equals = line.find(" = ");
            ASSERT_NE(equals, std::string::npos) << line;
            const auto found = expected.find(line.substr(0, equals));
            ASSERT_NE(found, expected.end()) << line;
            EXPECT_EQ(line.substr(equals + 3), found->second);
            expected.erase(found);
        }
        EXPECT_EQ(expected.size(), 0U) << "lost, such as " << expected.begin()->first;
    }

    // How often each change is in the log.
    std::map<std::string, int> logged_changes() const {
        std::map<std::string, int> changes;
        std::istringstream lines(log());
        for (std::string line; std::getline(lines, line);)
            if (const size_t place = line.find("] set "); place != std::string::npos)
                changes[line.substr(place + 6)]++;
        return changes;
    }

    // A change is in the log before it is acknowledged; one that was made again is there twice.
    void expect_all_logged() const {
        const std::map<std::string, int> changes = logged_changes();
        EXPECT_EQ(changes.size(), static_cast<size_t>(kChanges));
        for (int client = 0; client < kClients; client++)
            for (int set = 0; set < kSets; set++)
                EXPECT_TRUE(changes.contains(key_of(client, set))) << key_of(client, set);
    }

    void expect_all_acknowledged(const Outcome &outcome) const {
        EXPECT_EQ(outcome.exit_status, 0) << outcome;
        EXPECT_EQ(outcome.err, "");
        const std::string half = std::to_string(kChanges / 2);
        const std::string all = std::to_string(kChanges);
        for (const std::string &line :
             {"local: " + half + " of " + half + " changes acknowledged", "TLS: " + half + " of " + half + " changes",
              "get: " + all + " of " + all + " acknowledged", "file: " + all + " of " + all + " acknowledged"})
            EXPECT_THAT(outcome.out, testing::HasSubstr(line));
    }
};

TEST_F(SettingsdLoad, loses_nothing_that_it_acknowledged_however_often_it_is_killed) {
    std::printf("%d clients, %d changes each, %d kills\n", kClients, kSets, kKills);
    auto daemon = start(tls_words());
    const auto load = start_load();
    int locks_left = 0;
    for (int kill = 1; kill <= kKills; kill++) {
        wait_for_changes(int64_t{kChanges} * kill / (kKills + 1));
        daemon->send(SIGKILL);
        EXPECT_EQ(daemon->wait().exit_status, 128 + SIGKILL);
        locks_left += support::exists("/var/lock/_conf.lck");
        daemon = start(tls_words());
    }

    const Outcome outcome = load->wait();
    std::printf("%s%d of %d kills left a lock behind\n", outcome.out.c_str(), locks_left, kKills);
    expect_all_acknowledged(outcome);
    // Both halves have lost their connections on the way.
    EXPECT_THAT(outcome.out, testing::Not(testing::HasSubstr(" " + std::to_string(kClients / 2) + " connections")));
    expect_all_changes();
    expect_clean_stop(*daemon);
    expect_all_logged();
}

TEST_F(SettingsdLoad, loses_nothing_when_it_is_stopped_and_started) {
    auto daemon = start(tls_words());
    const auto load = start_load();
    for (int stop = 1; stop <= 3; stop++) {
        wait_for_changes(int64_t{kChanges} * stop / 4);
        expect_clean_stop(*daemon);
        EXPECT_FALSE(support::exists("/var/lock/_conf.lck"));
        daemon = start(tls_words());
    }
    expect_all_acknowledged(load->wait());
    expect_all_changes();
    expect_clean_stop(*daemon);
    // What a stopped daemon did, it also said: no change was made twice.
    for (const auto &[key, times] : logged_changes())
        EXPECT_EQ(times, 1) << key;
}

}  // namespace
