// korvex cp: copies a file, a link or a tree, and can be stopped.
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "commands/commands.h"
#include "files/path_text.h"
#include "files/progress_line.h"
#include "korvex/file.hpp"
#include "korvex/tree.hpp"
#include "process/stop_signals.h"

namespace korvex::cli {
namespace {

struct CopyArguments {
    std::string source;
    std::string dest;
    std::string preserve;

    korvex::preserve keep() const { return preserve.empty() ? korvex::preserve::usual : korvex::preserve::all; }
};

struct stat looked_up(const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        throw lookup_failure(path, -errno);
    return status;
}

// Into DEST if that is a folder, else under that name. What has no name of its own ("/", "..") is copied as DEST.
std::string target_of(const CopyArguments &arguments) {
    struct stat status {};
    if (stat(arguments.dest.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        return arguments.dest;
    const std::string name = last_name(arguments.source);
    return name.empty() || name == "." || name == ".." ? arguments.dest : inside(arguments.dest, name);
}

// --- what was not done ---

void add_lost(std::string &text, uint64_t count, std::string_view what) {
    if (count > 0)
        text.append(text.empty() ? "" : ", ").append(what).append(" ").append(std::to_string(count));
}

// One line for all of it.
void tell_of_lost(const not_carried &lost) {
    std::string text;
    add_lost(text, lost.access_lists, "access lists:");
    add_lost(text, lost.attributes, "extended attributes:");
    add_lost(text, lost.set_id_bits, "set-id bits:");
    add_lost(text, lost.hard_links, "hard links:");
    if (!text.empty())
        print_error("cp", "not carried over (--preserve=all does): " + text);
}

int tell_of_left_out(const tree_report &report) {
    for (const left_out &entry : report.entries)
        print_error("cp", entry.path + (entry.code == errc::not_carried_over ? ": " : ": not copied: ") + entry.reason);
    return report.complete() ? kSuccess : kNegativeAnswer;
}

// --- the copies ---

// Nothing where there is no folder, or none that can be read.
tree_state state_of(const std::string &path) {
    try {
        return measure_tree(path);
    } catch (const error &) {
        return {};
    }
}

// What was added to a folder: a tree may be copied into one that is there.
template <typename Number>
Number grown(Number before, Number now) {
    return now > before ? now - before : 0;
}

Failure stopped(int signal, const tree_state &before, const tree_state &now) {
    return {128 + signal, "stopped: " + std::to_string(grown(before.files, now.files)) + " files and " +
                              std::to_string(grown(before.folders, now.folders)) + " folders copied (" +
                              std::to_string(grown(before.bytes, now.bytes)) + " bytes)"};
}

// Runs a copy under a progress line.
template <typename Copy>
auto with_progress(uint64_t whole, const Copy &copy) {
    std::atomic<std::int64_t> done = 0;
    const ProgressLine progress(whole, [&done](int32_t *) { return static_cast<uint64_t>(done.load()); });
    return copy(&done);
}

int copy_one_tree(const CopyArguments &arguments, const std::string &target, const StopSignals &signals) {
    const tree_state before = state_of(target);
    try {
        const uint64_t whole = ProgressLine::is_shown() ? measure_tree(arguments.source, signals.token()).bytes : 0;
        const tree_report report = with_progress(whole, [&](std::atomic<std::int64_t> *done) {
            return korvex::copy_tree(
                arguments.source, target,
                {.stop = signals.token(), .durable = false, .keep = arguments.keep(), .progress = done});
        });
        tell_of_lost(report.lost);
        return tell_of_left_out(report);
    } catch (const error &failure) {
        if (failure.code() != errc::canceled)
            throw;
        throw stopped(signals.signal(), before, state_of(target));
    }
}

int copy_one_file(const CopyArguments &arguments, uint64_t size, const std::string &target,
                  const StopSignals &signals) {
    try {
        tell_of_lost(with_progress(size, [&](std::atomic<std::int64_t> *done) {
            return korvex::copy_file(
                arguments.source, target,
                {.stop = signals.token(), .progress = done, .durable = false, .keep = arguments.keep()});
        }));
        return kSuccess;
    } catch (const error &failure) {
        if (failure.code() != errc::canceled)
            throw;
        throw stopped(signals.signal(), {}, {});
    }
}

int copy_one_link(const std::string &source, const std::string &target) {
    try {
        korvex::copy_link(source, target);
        return kSuccess;
    } catch (const error &failure) {
        throw Failure(kFailure, target + ": " + failure.reason());
    }
}

int run_cp(const CopyArguments &arguments) {
    const struct stat status = looked_up(arguments.source);
    const std::string target = target_of(arguments);
    const StopSignals signals;
    switch (status.st_mode & S_IFMT) {
        case S_IFDIR:
            return copy_one_tree(arguments, target, signals);
        case S_IFREG:
            return copy_one_file(arguments, static_cast<uint64_t>(status.st_size), target, signals);
        case S_IFLNK:
            return copy_one_link(arguments.source, target);
        default:
            throw Failure(kFailure, arguments.source + ": neither a file nor a link nor a folder");
    }
}

constexpr const char *kCpDetails =
    R"(Where DEST is a folder, SOURCE is copied into it. A file is copied with its permission bits, owner and time,
and the holes in it stay holes; a link is copied as a link; a folder with all files, links and folders in it.
A folder in the place of the copy is merged into, but the folders and links inside it must not be there.

A file that is there is replaced when its copy is complete: after a failure or a signal it is what it was.
What can't be copied from a folder (a pipe, a device, a socket, what can't be read) is named, the rest is
copied, and the exit status is 1.

--preserve=all carries access lists, extended attributes, set-id bits and hard links, too. Without it one
line on standard error says what of these was not carried, where there was any.

On a terminal a line on standard error shows the progress. Ctrl-C, SIGTERM and SIGHUP stop the copy: the
file in work is removed, what was copied before stays, and the tool says how much that is. The exit
status is 128 plus the signal's number then, so 130 for Ctrl-C.

Example:
  korvex cp /share/Public /backup
  korvex cp --preserve=all /etc/config /backup)";

}  // namespace

void add_cp_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session, {"cp", "Copy a file, a link or a tree", kCpDetails}, run_cp);
    add_path(command, "SOURCE", arguments.source, "What to copy");
    add_path(command, "DEST", arguments.dest, "The copy, or the folder that gets it");
    add_text(command, "--preserve", arguments.preserve, "Carry access lists, attributes, set-id bits and hard links")
        .check(CLI::IsMember({"all"}).description(""))
        ->type_name("all");
}

}  // namespace korvex::cli
