// korvex: what a script or an administrator can do with the library.
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "cli.h"
#include "commands/commands.h"
#include "completion/candidates.h"
#include "output/habits.h"
#include "output/log_handle.h"

namespace korvex::cli {
namespace {

// A command, or a group of commands, by the word that it begins with.
struct Family {
    std::string_view name;
    void (*add)(CLI::App &program, Session &session);
};

constexpr std::array kFamilies{Family{"conf", add_conf_commands},    Family{"lock", add_lock_command},
                               Family{"log", add_log_command},       Family{"cp", add_cp_command},
                               Family{"du", add_du_command},         Family{"rm", add_rm_command},
                               Family{"temp", add_temp_command},     Family{"net", add_net_commands},
                               Family{"send", add_send_command},     Family{"recv", add_recv_command},
                               Family{"mounts", add_mounts_command}, Family{"shares", add_shares_command},
                               Family{"volume", add_volume_command}, Family{"blocks", add_blocks_command},
                               Family{"ps", add_ps_command},         Family{"units", add_units_commands},
                               Family{"doctor", add_doctor_command}, Family{"snapshot", add_snapshot_commands}};

bool has(const std::vector<std::string> &words, std::string_view word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

// Telling the parser of every command would be most of a short command's time, so it is told of those whose names are
// among the words. Help needs all of them, and so does an error about words that name none.
void add_commands(CLI::App &program, const std::vector<std::string> &words, Session &session) {
    const auto is_named = [&words](const Family &family) { return has(words, family.name); };
    const bool all =
        has(words, "--help") || has(words, "-h") || std::none_of(kFamilies.begin(), kFamilies.end(), is_named);
    for (const Family &family : kFamilies)
        if (all || is_named(family))
            family.add(program, session);
}

constexpr const char *kProgramDetails = R"(Exit status:
  0  success
  1  not found (file, section, key, host, volume, process), bad lines, files that differ, a condition that
     did not hold, the lock was not obtained, or a copy left something out
  2  wrong usage
  3  any other failure
'korvex lock' passes the exit status of its command on; 'korvex cp' and a change by 'korvex conf' that are
stopped by a signal exit with 128 plus the signal's number, so with 130 after Ctrl-C.

Example:
  korvex conf get /etc/config/share.conf workgroup -s global)";

struct GlobalOptions {
    bool verbose = false;
    std::string log_file;
};

void describe_program(CLI::App &program, GlobalOptions &options) {
    program.footer(kProgramDetails);
    program.require_subcommand(1);
    program.set_version_flag("--version", "korvex " KORVEX_VERSION, "Print the version and exit");
    program.add_flag("--verbose", options.verbose, "Show the library's own messages, on standard error");
    add_text(program, "--log-file", options.log_file, "Append the library's own messages to FILE (implies --verbose)")
        .type_name("FILE");
}

// The innermost command that the words named, as far as they could be parsed.
const CLI::App &named_command(const CLI::App &program) {
    const CLI::App *innermost = &program;
    while (!innermost->get_subcommands().empty())
        innermost = innermost->get_subcommands().front();
    return *innermost;
}

// "conf get"; empty for the program itself.
std::string command_name(const CLI::App &command) {
    if (command.get_parent() == nullptr)
        return "";
    const std::string group = command_name(*command.get_parent());
    return group.empty() ? command.get_name() : group + " " + command.get_name();
}

int report(const std::string &command, int exit_status, const std::string &text) {
    const std::string program = command.empty() ? "korvex" : "korvex " + command;
    print_error(command, text + (exit_status == kUsage ? " (see '" + program + " --help')" : ""));
    return exit_status;
}

std::string usage_text(const CLI::App &program, const CLI::ParseError &error) {
    const CLI::App &command = named_command(program);
    if (command.get_require_subcommand_min() > 0) {
        const std::vector<std::string> unknown = program.remaining(true);
        if (unknown.empty())
            return "a command is required";
        const bool is_option = unknown.front().starts_with('-');
        return (is_option ? "no such option: " : "no such command: ") + without_marks(unknown.front());
    }

    for (const std::string &word : program.remaining(true))
        if (const std::string_view hint = habit_hint(command_name(command), word); !hint.empty())
            return "no such option: " + without_marks(word) + "; " + std::string(hint);

    // "KEY is required" stays, "The following ..." begins in lower case, as all other errors do.
    std::string text = without_marks(error.what());
    if (text.starts_with("The "))
        text[0] = 't';
    return text;
}

// Results that did not reach their reader are a failure. A reader that went away ends the program as it ends others:
// by SIGPIPE, which waits for its release here.
void finish_output(const Session &session) {
    const bool flushed = std::fflush(stdout) == 0;
    const int error = errno;
    if (flushed && std::ferror(stdout) == 0)
        return;

    pthread_sigmask(SIG_SETMASK, &session.start_mask, nullptr);
    throw Failure(kFailure, std::string("standard output: ") + (flushed ? "write error" : error_text(error)));
}

// What the completion of the shells and the maker of the manual page ask: no user types it, so no help tells of it.
int answer(const std::string &question, const std::vector<std::string> &words, const CLI::App &program,
           const Session &session) {
    if (question == "--describe")
        completion::print_description(program);
    else
        completion::print_candidates(completion::candidates_for(program, words));
    finish_output(session);
    return kSuccess;
}

int run_program(const std::vector<std::string> &words, Session &session) {
    CLI::App program("Works with configuration files, locks, logs, files, volumes and the network of an appliance.",
                     "korvex");
    GlobalOptions options;
    describe_program(program, options);
    const std::string first = words.empty() ? "" : words.front();
    const bool is_question = first == "--complete" || first == "--describe";
    add_commands(program, is_question ? std::vector<std::string>() : words, session);

    try {
        if (is_question)
            return answer(first, {words.begin() + 1, words.end()}, program, session);

        const std::vector<std::string> quoted = quote_words(words);
        std::vector<std::string> reversed(quoted.rbegin(), quoted.rend());
        try {
            program.parse(reversed);
        } catch (const CLI::ParseError &error) {
            if (error.get_exit_code() != 0)
                throw Failure(kUsage, usage_text(program, error));
            program.exit(error);  // prints the help or the version
            finish_output(session);
            return kSuccess;
        }

        LibraryMessages messages;
        if (options.verbose || !options.log_file.empty())
            messages.show(options.log_file);
        const int exit_status = session.command();
        finish_output(session);
        return exit_status;
    } catch (const Failure &failure) {
        return report(command_name(named_command(program)), failure.exit_status(), failure.what());
    } catch (const std::exception &error) {
        return report(command_name(named_command(program)), kFailure, error.what());
    }
}

// SIGPIPE is blocked until the end: the reader of an error message that goes away must not end a command that holds a
// lock.
void block_sigpipe(Session &session) {
    sigset_t pipe_signal;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &session.start_mask);
}

}  // namespace
}  // namespace korvex::cli

int main(int argc, char **argv) {
    try {
        korvex::cli::Session session;
        korvex::cli::block_sigpipe(session);
        return korvex::cli::run_program({argv + (argc > 0 ? 1 : 0), argv + argc}, session);
    } catch (...) {  // no memory, not even for a message
        return korvex::cli::kFailure;
    }
}
