// korvex temp: makes temporary files, and finds those that were left behind.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "fileio.h"
#include "files/path_text.h"
#include "output/shown_name.h"

namespace korvex::cli {
namespace {

struct TempArguments {
    std::string path;
    std::string mode;
    std::string list;
    std::string clean;
    bool null = false;
};

// A line for people, or exactly the name and a NUL.
void print_name(const std::string &name, bool null) {
    if (null)
        std::fwrite(name.c_str(), 1, name.size() + 1, stdout);
    else
        std::printf("%s\n", shown(name).c_str());
}

uint32_t mode_of(const std::string &text) {
    uint32_t mode = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, mode, 8);
    if (error != std::errc() || stop != end || mode > 0777)
        throw Failure(kUsage, "--mode: '" + text + "' is not an octal number from 0 to 777");
    return mode;
}

// A script gets the name as it is: what it goes on with is this file.
int create(const TempArguments &arguments, uint32_t mode) {
    char name[PATH_MAX];
    int32_t file = -1;
    const int32_t code =
        Open_Unique_Temp_File(arguments.path.c_str(), O_RDWR | O_CLOEXEC, mode, sizeof name, name, &file);
    if (code < 0)
        throw lookup_failure(arguments.path, code);
    close(file);
    if (arguments.null || isatty(STDOUT_FILENO) == 1)
        print_name(name, arguments.null);
    else
        std::printf("%s\n", name);
    return kSuccess;
}

struct CloseFolder {
    void operator()(DIR *folder) const { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

// Opened once: a folder that somebody exchanges for a link between the look and the removal is not followed.
Folder opened(const std::string &path) {
    Folder folder(opendir(path.c_str()));
    if (!folder)
        throw lookup_failure(path, -errno);
    return folder;
}

bool is_leftover(DIR *folder, const char *name) {
    struct stat status {};
    return Check_Temp_Filename(name) == 0 && fstatat(dirfd(folder), name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(status.st_mode);
}

// Only regular files: the library makes no others under such a name.
std::vector<std::string> leftovers_in(DIR *folder, const std::string &path) {
    std::vector<std::string> names;
    errno = 0;
    for (const dirent *entry = readdir(folder); entry != nullptr; entry = readdir(folder)) {
        if (is_leftover(folder, entry->d_name))
            names.emplace_back(entry->d_name);
        errno = 0;
    }
    if (errno != 0)
        throw lookup_failure(path, -errno);
    std::sort(names.begin(), names.end());
    return names;
}

// In the opened folder, whatever its path leads to by now.
int32_t remove_from(DIR *folder, const std::string &name) {
    return Remove_File(("/proc/self/fd/" + std::to_string(dirfd(folder)) + "/" + name).c_str());
}

int list_or_clean(const std::string &path, bool clean, bool null) {
    const Folder folder = opened(path);
    return for_each_path("temp", leftovers_in(folder.get(), path), [&](const std::string &name) {
        const int32_t code = clean ? remove_from(folder.get(), name) : 0;
        if (code < 0)
            throw file_failure(inside(path, name), code);
        print_name(inside(path, name), null);
    });
}

int run_temp(const TempArguments &arguments) {
    const bool create_one = !arguments.path.empty();
    if (create_one + !arguments.list.empty() + !arguments.clean.empty() != 1)
        throw Failure(kUsage, "exactly one of PATH, --list and --clean is required");
    if (!create_one && !arguments.mode.empty())
        throw Failure(kUsage, "--mode is for a PATH");
    if (create_one)
        return create(arguments, mode_of(arguments.mode.empty() ? "0600" : arguments.mode));

    const bool clean = !arguments.clean.empty();
    return list_or_clean(clean ? arguments.clean : arguments.list, clean, arguments.null);
}

constexpr const char *kTempDetails =
    R"(Creates an empty file with a name of its own in the folder of PATH, and prints the name. What follows the
last "/" of PATH is not used, so a folder is named with a "/" at its end. The program that asked for the file
renames or removes it; what a crash left behind is found with --list and removed with --clean, which prints
what it removed. --clean can't tell a file that is still in use.

Control characters in a name, and marks that turn the order of writing, are shown escaped: "\n", "\x1b",
"\u202e"; not in the name of a new file where standard output is no terminal. -0 prints each name as it is,
with a NUL byte at its end.

Example:
  korvex temp /share/Public/report.pdf
  korvex temp --clean /share/Public
  korvex temp --list /share/Public -0 | xargs -0 ls -l)";

}  // namespace

void add_temp_command(CLI::App &program, Session &session) {
    auto [command, arguments] = add_command(
        program, session, {"temp", "Make a temporary file, or find those left behind", kTempDetails}, run_temp);
    refuse_empty(add_text(command, "PATH", arguments.path, "The file that it will stand for"));
    add_text(command, "--mode", arguments.mode, "Permission bits, less the umask [0600]").type_name("OCTAL");
    refuse_empty(
        *add_text(command, "--list", arguments.list, "Print the temporary files in FOLDER").type_name("FOLDER"));
    refuse_empty(
        *add_text(command, "--clean", arguments.clean, "Remove the temporary files in FOLDER").type_name("FOLDER"));
    command.add_flag("-0,--null", arguments.null, "End each name with a NUL byte, and print it as it is");
}

}  // namespace korvex::cli
