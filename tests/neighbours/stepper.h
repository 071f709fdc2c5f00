// The victim: root's process, stopped between its system calls.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace neighbours {

// A system call that the victim is about to make.
class SystemCall {
  public:
    int64_t index;                      // 1 is the first of the victim's
    int64_t number;                     // SYS_openat, ...
    std::array<uint64_t, 6> arguments;  // as the kernel gets them

    std::string name() const;  // "openat"; the number where it is not among the usual ones
    // The text that an argument (from 0) points to; empty for a null pointer.
    std::string text(size_t argument) const;
    // For messages: "call 7 (openat)".
    std::string how() const;

    pid_t process;  // the victim
};

// What came of the victim.
struct Answer {
    int64_t result = 0;                 // what its body returned; of a program its exit status
    int signal = 0;                     // that ended it, or 0
    std::string stuck;                  // the system call that it did not come back from, and was killed in; else empty
    std::vector<std::string> messages;  // of the library, without stamp and line: see support::LogCapture
    std::string output;                 // of a program: what it wrote, errors included
    std::vector<std::string> calls;     // the names of its system calls, in their order

    // It came to its end by itself.
    bool ended() const { return signal == 0 && stuck.empty(); }
    // For messages.
    std::string how() const;
};

// The victim's work. It runs as root in a child of the test.
using Body = std::function<int64_t()>;
// Is told each system call that the victim is about to make, while it stands still. Runs as root in the test's process.
using BeforeCall = std::function<void(const SystemCall &)>;

// Runs the victim. Only the system calls of its body count, made by the thread that runs it. A victim that stays in one
// system call for longer than ten seconds is stuck: it is killed, and the answer says so. (Sleeping in many short ones
// is not being stuck.)
Answer run_root(const Body &body, const BeforeCall &before = {});
// The same with a program, by its path: all that it does from its start on, the loader's calls included.
Answer run_root_program(const std::vector<std::string> &arguments, const BeforeCall &before = {});

}  // namespace neighbours
