// korvex cp: copies a file, a link or a tree, and can be stopped.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>

#include "commands/commands.h"
#include "fileio.h"
#include "files/copy_progress.h"
#include "files/path_text.h"
#include "process/stop_signals.h"

namespace korvex::cli {
namespace {

struct CopyArguments {
    std::string source;
    std::string dest;
};

struct stat looked_up(const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        throw lookup_failure(path, -errno);
    return status;
}

// The library passes over a folder that it can't open, and a failed open would be taken for the copy's.
void refuse_unreadable(const std::string &source, const struct stat &status) {
    const int access = S_ISDIR(status.st_mode) ? R_OK | X_OK : R_OK;
    if (faccessat(AT_FDCWD, source.c_str(), access, AT_EACCESS) != 0)
        throw file_failure(source, -errno);
}

// Into DEST if that is a folder, else under that name. What has no name of its own ("/", "..") is copied as DEST.
std::string target_of(const CopyArguments &arguments) {
    if (Is_Folder(arguments.dest.c_str()) != 1)
        return arguments.dest;
    const std::string name = last_name(arguments.source);
    return name.empty() || name == "." || name == ".." ? arguments.dest : inside(arguments.dest, name);
}

// The library would find out only when its walk arrives there.
void refuse_inside_itself(const std::string &source, const std::string &target) {
    std::error_code error;
    const auto outer = std::filesystem::canonical(source, error);
    const auto inner = std::filesystem::weakly_canonical(without_end_slashes(target), error);
    if (!error && std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end())
        throw Failure(kFailure, target + ": lies inside " + source);
}

void refuse_same_file(const struct stat &source, const std::string &target) {
    struct stat there {};
    if (stat(target.c_str(), &there) == 0 && there.st_dev == source.st_dev && there.st_ino == source.st_ino)
        throw Failure(kFailure, target + ": is the file to copy itself");
}

Folder_Tree_State tree_state(const std::string &path, int32_t *stop) {
    Folder_Tree_State state{};
    State_Folder_Tree(path.c_str(), &state, stop);
    return state;
}

std::string done_text(uint64_t files, uint64_t folders, uint64_t bytes) {
    return "stopped: " + std::to_string(files) + " files and " + std::to_string(folders) + " folders copied (" +
           std::to_string(bytes) + " bytes)";
}

// What was added to a folder: a tree may be copied into one that is there.
template <typename Number>
Number grown(Number before, Number now) {
    return now > before ? now - before : 0;
}

void copy_tree(const std::string &source, const struct stat &status, const std::string &target, StopSignals &signals) {
    refuse_inside_itself(source, target);
    refuse_unreadable(source, status);
    const Folder_Tree_State before = tree_state(target, signals.flag());
    const Folder_Tree_State whole = CopyProgress::is_shown() ? tree_state(source, signals.flag()) : Folder_Tree_State{};

    int32_t code = 0;
    if (signals.signal() == 0) {
        const CopyProgress progress(
            whole.ullBytes, [&](int32_t *stop) { return grown(before.ullBytes, tree_state(target, stop).ullBytes); });
        code = Copy_Folder_Tree(source.c_str(), target.c_str(), signals.flag());
    }
    if (code < 0)
        throw file_failure(target, code);

    if (signals.signal() != 0) {
        const Folder_Tree_State now = tree_state(target, nullptr);
        throw Failure(128 + signals.signal(),
                      done_text(grown(before.cnFiles, now.cnFiles), grown(before.cnFolders, now.cnFolders),
                                grown(before.ullBytes, now.ullBytes)));
    }
}

void copy_file(const std::string &source, const struct stat &status, const std::string &target, StopSignals &signals) {
    refuse_same_file(status, target);
    refuse_unreadable(source, status);
    int64_t total = 0;
    int32_t code = 0;
    {
        const CopyProgress progress(static_cast<uint64_t>(status.st_size), [&total](int32_t *) {
            return static_cast<uint64_t>(__atomic_load_n(&total, __ATOMIC_RELAXED));
        });
        code = Copy_File(source.c_str(), target.c_str(), signals.flag(), &total);
    }
    if (code < 0)
        throw file_failure(target, code);
    // Stopped, the library has removed what was there of the copy. A signal behind the last byte stops nothing.
    if (code > 0)
        throw Failure(128 + signals.signal(), done_text(0, 0, 0));
}

int run_cp(const CopyArguments &arguments) {
    const struct stat status = looked_up(arguments.source);
    const std::string target = target_of(arguments);
    StopSignals signals;
    if (S_ISDIR(status.st_mode)) {
        copy_tree(arguments.source, status, target, signals);
    } else if (S_ISREG(status.st_mode)) {
        copy_file(arguments.source, status, target, signals);
    } else if (S_ISLNK(status.st_mode)) {
        if (const int32_t code = Copy_Symlink(arguments.source.c_str(), target.c_str()); code < 0)
            throw file_failure(target, code);
    } else {
        throw Failure(kFailure, arguments.source + ": neither a file nor a link nor a folder");
    }
    return kSuccess;
}

constexpr const char *kCpDetails =
    R"(Where DEST is a folder, SOURCE is copied into it. A file is copied with its permission bits, owner and time
and overwrites one that is there; a link is copied as a link; a folder with all files, links and folders
in it, without devices, pipes and sockets. A folder in the place of the copy is merged into, but the
folders inside it must not be there.

On a terminal a line on standard error shows the progress. Ctrl-C, SIGTERM and SIGHUP stop the copy: the
file in work is removed, what was copied before stays, and the tool says how much that is. The exit
status is 128 plus the signal's number then, so 130 for Ctrl-C.

Example:
  korvex cp /share/Public /backup)";

}  // namespace

void add_cp_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"cp", "Copy a file, a link or a tree", kCpDetails}, run_cp);
    add_path(command, "SOURCE", arguments.source, "What to copy");
    add_path(command, "DEST", arguments.dest, "The copy, or the folder that gets it");
}

}  // namespace korvex::cli
