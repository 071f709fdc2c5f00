// Runs the tool on a terminal of its own, as a user who types does.
#pragma once

#include <string>

#include "run_korvex.h"

class TerminalProcess {
  public:
    TerminalProcess(const Words &words, const std::string &folder);
    ~TerminalProcess();
    TerminalProcess(const TerminalProcess &) = delete;
    TerminalProcess &operator=(const TerminalProcess &) = delete;

    // Waits until the text has appeared on the screen. False when the tool has ended without it.
    bool shows(const std::string &text);
    // "\x03" is Ctrl-C, "\x04" the end of the input.
    void type(const std::string &keys) const;
    // Waits for its end. All that appeared is in `out`, with "\r\n" for each line feed.
    Outcome wait();

  private:
    bool read_more();

    pid_t pid_ = 0;
    int screen_ = -1;
    std::string shown_;
};
