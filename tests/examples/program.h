// Runs a program as a user does: as a process of its own, in a folder of its own.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <ostream>
#include <string>
#include <vector>

struct Outcome {
    int exit_status = 0;  // 128 plus the signal's number where a signal ended it
    std::string out = {};
    std::string err = {};

    bool operator==(const Outcome &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const Outcome &outcome);

using Words = std::vector<std::string>;
Words joined(Words words, const Words &more);

// One run; what still runs at the end of the object's life is killed.
class Program {
  public:
    Program(const std::string &path, const Words &words, const std::string &folder);
    ~Program();
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    pid_t pid() const { return pid_; }
    void send(int signal) const { kill(pid_, signal); }
    // Whether it has not ended; it can still be waited for.
    bool runs() const;
    Outcome wait();

  private:
    pid_t pid_ = 0;
    int out_;
    int err_;
};
