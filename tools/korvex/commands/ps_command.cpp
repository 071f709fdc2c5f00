// korvex ps: the processes of a name, and who started them.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "korvex/file.hpp"
#include "korvex/process.hpp"
#include "miscfunc.h"
#include "output/shown_name.h"
#include "output/table.h"

namespace korvex::cli {
namespace {

struct PsArguments {
    std::string name;
    std::string parent;
    std::string ancestor;
    bool names = false;
    bool json = false;
};

Failure no_process(const std::string &name) {
    return {kNegativeAnswer, name + ": no such process"};
}

// --- what is known of a process ---

// A file of its folder in /proc; empty where it has ended.
std::string told_by(int32_t pid, const char *file) {
    try {
        std::string text = read_file("/proc/" + std::to_string(pid) + "/" + file);
        while (text.ends_with('\n') || text.ends_with('\0'))
            text.pop_back();
        return text;
    } catch (const error &) {
        return "";
    }
}

// The words of its command line, with blanks between them.
std::string command_line_of(int32_t pid) {
    std::string line = told_by(pid, "cmdline");
    std::replace(line.begin(), line.end(), '\0', ' ');
    return line;
}

Json json_of(int32_t pid) {
    const std::optional<pid_t> parent = parent_of(pid);
    return {{"pid", pid},
            {"name", text_or_null(told_by(pid, "comm"))},
            {"parent", parent ? Json(*parent) : Json()},
            {"command", text_or_null(command_line_of(pid))}};
}

int print(const std::vector<int32_t> &pids, const PsArguments &arguments) {
    auto list = Json::array();
    for (const int32_t pid : pids) {
        if (arguments.json)
            list.push_back(json_of(pid));
        else if (arguments.names)
            std::printf("%d %s\n", pid, shown(told_by(pid, "comm")).c_str());
        else
            std::printf("%d\n", pid);
    }
    if (arguments.json)
        print_json(list);
    return kSuccess;
}

// --- which ---

// The tool itself is not meant, whatever its name.
std::vector<int32_t> pids_named(const std::string &name) {
    std::vector<int32_t> pids = processes_named(name);
    std::erase(pids, getpid());
    if (pids.empty())
        throw no_process(name);
    return pids;
}

int32_t parent_of_text(const std::string &text) {
    int32_t pid = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, pid);
    if (error != std::errc() || stop != end || pid < 1)
        throw Failure(kUsage, "--parent: '" + text + "' is not a process id");

    int32_t parent = 0;
    if (Get_Parent_Pid(pid, &parent) < 0)
        throw no_process(text);
    if (parent < 0)
        throw Failure(kFailure, text + ": can't tell its parent");
    return parent;
}

int32_t ancestor_of_name(const std::string &name) {
    int32_t pid = 0;
    const int32_t code = Get_Ancestry_Pid(name.c_str(), &pid);
    if (code == -ENODATA)
        throw no_process(name);
    if (code < 0)
        throw file_failure("/proc", code);
    // Not printed: a script may hand the number on to kill, for which 0 and -1 stand for many processes.
    if (pid < 1)
        throw Failure(kFailure, name + ": can't tell its ancestor");
    return pid;
}

int run_ps(const PsArguments &arguments) {
    if (!arguments.name.empty() + !arguments.parent.empty() + !arguments.ancestor.empty() != 1)
        throw Failure(kUsage, "exactly one of NAME, --parent and --ancestor is required");
    if (!arguments.name.empty())
        return print(pids_named(arguments.name), arguments);
    return print({arguments.parent.empty() ? ancestor_of_name(arguments.ancestor) : parent_of_text(arguments.parent)},
                 arguments);
}

constexpr const char *kPsDetails =
    R"(Prints the ids of the processes of a name, one a line, without this one. NAME is a command name as in
/proc/PID/comm, at most 15 characters; or a path that begins with "/", which every program matches whose
command line begins with it. Exit status 1 where there is none.

--parent prints the parent of a process, 0 where it has none. --ancestor prints the process just below
process 1 from which the first process of a name comes. Neither can be told where a process on the way has a
blank in its name: exit status 3.

--names adds the name to each id. --json prints an array of objects with "pid", "name", "parent" and
"command" (the command line), null where it is not known.

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
    command.add_flag("--names", arguments.names, "Print the name behind each id");
    command.add_flag("--json", arguments.json, "Print JSON");
}

}  // namespace korvex::cli
