// korvex ps: the processes of a name, and who started them.
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "commands/commands.h"
#include "miscfunc.h"

namespace korvex::cli {
namespace {

struct PsArguments {
    std::string name;
    std::string parent;
    std::string ancestor;
};

struct FreePids {
    void operator()(int32_t *pids) const { std::free(pids); }
};

Failure no_process(const std::string &name) {
    return {kNotFound, name + ": no such process"};
}

// The tool itself is not meant, whatever its name.
int print_pids(const std::string &name) {
    int32_t *array = nullptr;
    int32_t count = 0;
    const int32_t code = Get_All_Pids(name.c_str(), &array, &count);
    const std::unique_ptr<int32_t, FreePids> owner(array);
    if (code < 0 && code != -ENODATA)
        throw file_failure("/proc", code);

    int others = 0;
    for (int32_t i = 0; i < count; ++i)
        if (array[i] != getpid())
            others += std::printf("%d\n", array[i]) > 0;
    if (others == 0)
        throw no_process(name);
    return kSuccess;
}

int print_parent(const std::string &text) {
    int32_t pid = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, pid);
    if (error != std::errc() || stop != end || pid < 1)
        throw Failure(kUsage, "--parent: '" + text + "' is no process id");

    int32_t parent = 0;
    if (Get_Parent_Pid(pid, &parent) < 0)
        throw no_process(text);
    if (parent < 0)
        throw Failure(kFailure, text + ": its parent can't be told");
    std::printf("%d\n", parent);
    return kSuccess;
}

int print_ancestor(const std::string &name) {
    int32_t pid = 0;
    const int32_t code = Get_Ancestry_Pid(name.c_str(), &pid);
    if (code == -ENODATA)
        throw no_process(name);
    if (code < 0)
        throw file_failure("/proc", code);
    // Not printed: a script may hand the number on to kill, for which 0 and -1 stand for many processes.
    if (pid < 1)
        throw Failure(kFailure, name + ": its ancestor can't be told");
    std::printf("%d\n", pid);
    return kSuccess;
}

int run_ps(const PsArguments &arguments) {
    if (!arguments.name.empty() + !arguments.parent.empty() + !arguments.ancestor.empty() != 1)
        throw Failure(kUsage, "exactly one of NAME, --parent and --ancestor is required");
    if (!arguments.name.empty())
        return print_pids(arguments.name);
    return arguments.parent.empty() ? print_ancestor(arguments.ancestor) : print_parent(arguments.parent);
}

constexpr const char *kPsDetails =
    R"(Prints the ids of the processes of a name, one a line, without this one. NAME is a command name as in
/proc/PID/comm, at most 15 characters; or a path that begins with "/", which every program matches whose
command line begins with it. Exit status 1 where there is none.

--parent prints the parent of a process, 0 where it has none. --ancestor prints the process just below
process 1 from which the first process of a name comes. Neither can be told where a process on the way has a
blank in its name: exit status 3.

Example:
  korvex ps smbd
  korvex ps --ancestor /usr/sbin/smbd)";

}  // namespace

void add_ps_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"ps", "Find processes, their parents and ancestors", kPsDetails}, run_ps);
    refuse_empty(add_text(command, "NAME", arguments.name, "Name or path of a program"));
    refuse_empty(*add_text(command, "--parent", arguments.parent, "Print the parent of process PID").type_name("PID"));
    refuse_empty(*add_text(command, "--ancestor", arguments.ancestor, "Print who started the first process of NAME")
                      .type_name("NAME"));
}

}  // namespace korvex::cli
