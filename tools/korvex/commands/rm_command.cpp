// korvex rm: removes files and trees.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "files/path_text.h"
#include "korvex/tree.hpp"
#include "output/shown_name.h"

namespace korvex::cli {
namespace {

struct RemoveArguments {
    std::vector<std::string> paths;
    bool yes = false;
};

// Whatever is not a clear yes is a no.
bool agreed_to_remove(const std::string &folder) {
    const tree_state state = measure_tree(folder);
    std::fprintf(stderr, "Remove the folder %s with %u files and %u folders? [y/N] ", shown(folder).c_str(),
                 state.files, state.folders > 0 ? state.folders - 1 : 0);
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

void refuse_what_has_no_name(const std::string &path) {
    const std::string name = last_name(path);
    if (name.empty() || name == "." || name == "..")
        throw Failure(kFailure, "refusing to remove " + path);
}

// Each thing that is still there gets a line of its own.
int remove(const std::string &given, bool ask) {
    refuse_what_has_no_name(given);
    const std::string path = without_end_slashes(given);
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        throw lookup_failure(given, -errno);
    if (S_ISDIR(status.st_mode) && ask && !agreed_to_remove(path))
        return kSuccess;

    const tree_report report = remove_tree(path);
    for (const left_out &entry : report.entries)
        print_error("rm", entry.path + ": not removed: " + entry.reason);
    return report.complete() ? kSuccess : kFailure;
}

int run_rm(const RemoveArguments &arguments) {
    const bool ask = !arguments.yes && isatty(STDIN_FILENO) == 1;
    int left = kSuccess;
    const int failed = for_each_path("rm", arguments.paths,
                                     [&](const std::string &path) { left = std::max(left, remove(path, ask)); });
    return std::max(left, failed);
}

constexpr const char *kRmDetails =
    R"(Removes each PATH, a folder with all that is in it; a link is removed, never what it leads to. On a
terminal it asks before it removes a folder, unless -y is given. "/", "." and ".." are refused. What can't be
removed is named with the reason, all else is removed, and the exit status is 3.

Example:
  korvex rm -y /share/Public/old)";

}  // namespace

void add_rm_command(CLI::App &program, Session &session) {
    auto [command, arguments] = add_command(program, session, {"rm", "Remove files and trees", kRmDetails}, run_rm);
    add_paths(command, arguments.paths, "Files and folders");
    command.add_flag("-y,--yes", arguments.yes, "Don't ask before a folder is removed");
}

}  // namespace korvex::cli
