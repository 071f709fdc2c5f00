// Runs the tool as a user does: as a process of its own, in a folder of its own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <csignal>
#include <ostream>
#include <string>
#include <vector>

#include "lock_content.h"
#include "miscfunc.h"
#include "sandbox.h"

struct Outcome {
    int exit_status = 0;  // 128 plus the signal's number where a signal ended the tool
    std::string out = {};
    std::string err = {};

    bool operator==(const Outcome &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const Outcome &outcome);

using Words = std::vector<std::string>;

// The tool's name and the words, as `exec` takes them; valid as long as the words are.
std::vector<char *> argv_of(const Words &words);

// One run that has been started.
class KorvexProcess {
  public:
    // Standard output goes to the descriptor `out` instead of into the outcome where one is given.
    KorvexProcess(const Words &words, const std::string &folder, const std::string &input = "", int out = -1);
    ~KorvexProcess();
    KorvexProcess(const KorvexProcess &) = delete;
    KorvexProcess &operator=(const KorvexProcess &) = delete;

    pid_t pid() const { return pid_; }
    void send(int signal) const { kill(pid_, signal); }
    Outcome wait();

  private:
    pid_t pid_ = 0;
    int out_;
    int err_;
};

// The content of a lock that a process took some time ago.
inline std::string lock_of(pid_t holder, int64_t age_ms = 0) {
    return support::lock_bytes(static_cast<int64_t>(Rough_Tick()) - age_ms, holder);
}

// A command line and what it leads to.
struct CommandLine {
    Words words;
    Outcome outcome;
};

// What the tests of a command need: a folder in which the tool runs.
class KorvexTest : public testing::Test {
  protected:
    KorvexTest() { support::empty_lock_folder(); }

    Outcome korvex(const Words &words, const std::string &input = "") const {
        return KorvexProcess(words, folder.path(), input).wait();
    }

    // What a run prints that succeeds and reports nothing.
    std::string output_of(const Words &words) const {
        const Outcome outcome = korvex(words);
        EXPECT_EQ(outcome.exit_status, 0) << testing::PrintToString(words);
        EXPECT_EQ(outcome.err, "") << testing::PrintToString(words);
        return outcome.out;
    }

    void expect(const std::vector<CommandLine> &lines) const {
        for (const auto &[words, outcome] : lines)
            EXPECT_EQ(korvex(words), outcome) << testing::PrintToString(words);
    }

    support::TempFolder folder;
};
