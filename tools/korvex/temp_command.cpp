// korvex temp: makes temporary files, and finds those that were left behind.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "commands.h"
#include "fileio.h"
#include "path_text.h"

namespace korvex::cli {
namespace {

struct TempArguments {
    std::string path;
    std::string mode;
    std::string list;
    std::string clean;
};

uint32_t mode_of(const std::string &text) {
    uint32_t mode = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, mode, 8);
    if (error != std::errc() || stop != end || mode > 0777)
        throw Failure(kUsage, "--mode: '" + text + "' is not an octal number from 0 to 777");
    return mode;
}

int create(const std::string &path, uint32_t mode) {
    char name[PATH_MAX];
    int32_t file = -1;
    const int32_t code = Open_Unique_Temp_File(path.c_str(), O_RDWR | O_CLOEXEC, mode, sizeof name, name, &file);
    if (code < 0)
        throw lookup_failure(path, code);
    close(file);
    std::printf("%s\n", name);
    return kSuccess;
}

// Only regular files: the library makes no others under such a name.
std::vector<std::string> leftovers(const std::string &folder) {
    std::vector<std::string> paths;
    std::error_code error;
    std::filesystem::directory_iterator entries(folder, error);
    for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
        const std::string path = inside(folder, entries->path().filename().string());
        std::error_code gone;
        if (Check_Temp_Filename(path.c_str()) == 0 &&
            std::filesystem::is_regular_file(std::filesystem::symlink_status(path, gone)))
            paths.push_back(path);
    }
    if (error)
        throw lookup_failure(folder, -error.value());
    std::sort(paths.begin(), paths.end());
    return paths;
}

int run_temp(const TempArguments &arguments) {
    const bool create_one = !arguments.path.empty();
    if (create_one + !arguments.list.empty() + !arguments.clean.empty() != 1)
        throw Failure(kUsage, "exactly one of PATH, --list and --clean is required");
    if (!create_one && !arguments.mode.empty())
        throw Failure(kUsage, "--mode is for a PATH");
    if (create_one)
        return create(arguments.path, mode_of(arguments.mode.empty() ? "0600" : arguments.mode));

    const bool clean = !arguments.clean.empty();
    return for_each_path("temp", leftovers(clean ? arguments.clean : arguments.list), [clean](const std::string &path) {
        const int32_t code = clean ? Remove_File(path.c_str()) : 0;
        if (code < 0)
            throw file_failure(path, code);
        std::printf("%s\n", path.c_str());
    });
}

constexpr const char *kTempDetails =
    R"(Creates an empty file with a name of its own in the folder of PATH, and prints the name. What follows the
last "/" of PATH is not used, so a folder is named with a "/" at its end. The program that asked for the file
renames or removes it; what a crash left behind is found with --list and removed with --clean, which prints
what it removed. --clean can't tell a file that is still in use.

Example:
  korvex temp /share/Public/report.pdf
  korvex temp --clean /share/Public)";

}  // namespace

void add_temp_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"temp", "Make a temporary file, or find those left behind", kTempDetails}, run_temp);
    refuse_empty(add_text(command, "PATH", arguments.path, "The file that it will stand for"));
    add_text(command, "--mode", arguments.mode, "Permission bits, less the umask [0600]").type_name("OCTAL");
    refuse_empty(
        *add_text(command, "--list", arguments.list, "Print the temporary files in FOLDER").type_name("FOLDER"));
    refuse_empty(
        *add_text(command, "--clean", arguments.clean, "Remove the temporary files in FOLDER").type_name("FOLDER"));
}

}  // namespace korvex::cli
