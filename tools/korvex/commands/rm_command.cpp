// korvex rm: removes files and trees.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "fileio.h"
#include "files/path_text.h"
#include "output/shown_name.h"

namespace korvex::cli {
namespace {

struct RemoveArguments {
    std::vector<std::string> paths;
    bool yes = false;
};

// Whatever is not a clear yes is a no.
bool agreed_to_remove(const std::string &folder) {
    Folder_Tree_State state{};
    State_Folder_Tree(folder.c_str(), &state, nullptr);
    std::fprintf(stderr, "Remove the folder %s with %u files and %u folders? [y/N] ", shown(folder).c_str(),
                 state.cnFiles, state.cnFolders > 0 ? state.cnFolders - 1 : 0);
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

void refuse_what_has_no_name(const std::string &path) {
    const std::string name = last_name(path);
    if (name.empty() || name == "." || name == "..")
        throw Failure(kFailure, path + ": is not removed");
}

void remove(const std::string &given, bool ask) {
    refuse_what_has_no_name(given);
    const std::string path = without_end_slashes(given);
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        throw lookup_failure(given, -errno);

    const bool folder = S_ISDIR(status.st_mode);
    if (folder && ask && !agreed_to_remove(path))
        return;
    const int32_t code = folder ? Remove_Folder_Tree(path.c_str(), nullptr) : Remove_File(path.c_str());
    if (code < 0)
        throw file_failure(given, code);
}

int run_rm(const RemoveArguments &arguments) {
    const bool ask = !arguments.yes && isatty(STDIN_FILENO) == 1;
    return for_each_path("rm", arguments.paths, [ask](const std::string &path) { remove(path, ask); });
}

constexpr const char *kRmDetails =
    R"(Removes each PATH, a folder with all that is in it; a link is removed, never what it leads to. On a
terminal it asks before it removes a folder, unless -y is given. A PATH that can't be removed is reported,
and the others get their turn; "/", "." and ".." are never removed.

Example:
  korvex rm -y /share/Public/old)";

}  // namespace

void add_rm_command(CLI::App &program, Session &session) {
    auto [command, arguments] = add_command(program, session, {"rm", "Remove files and trees", kRmDetails}, run_rm);
    add_paths(command, arguments.paths, "Files and folders");
    command.add_flag("-y,--yes", arguments.yes, "Don't ask before a folder is removed");
}

}  // namespace korvex::cli
