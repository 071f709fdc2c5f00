#include "commands.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "sandbox.h"

namespace bench {
namespace {

double seconds(const timeval &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

int execute(Command command) {
    std::vector<char *> arguments;
    for (std::string &argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    if (std::freopen("/dev/null", "w", stdout) != nullptr)
        execvp(arguments[0], arguments.data());
    return 127;
}

}  // namespace

Spent run_command(const Command &command) {
    rusage usage{};
    // The processor time of this process is of no interest: it is that of the child which counts.
    Cost cost = cost_of(CLOCK_THREAD_CPUTIME_ID, [&] {
        const pid_t child = support::start_child([&] { return execute(command); });
        int status = 0;
        if (wait4(child, &status, 0, &usage) != child || status != 0)
            throw std::runtime_error(command[0] + " failed");
    });
    cost.processor = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    return {.cost = cost, .peak = usage.ru_maxrss};
}

}  // namespace bench
