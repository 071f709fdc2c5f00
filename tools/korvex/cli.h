// What every command of the tool is made with: exit statuses, failures, and how a command is added.
#pragma once

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korvex::cli {

enum ExitStatus : int {
    kSuccess = 0,
    kNegativeAnswer = 1,  // no such file, section or key; bad lines; files that differ; a lock that was not obtained
    kUsage = 2,
    kFailure = 3,
};

// Ends a command: main prints the text as the one line on standard error and exits with the status.
class Failure : public std::runtime_error {
  public:
    Failure(int exit_status, const std::string &text) : std::runtime_error(text), exit_status_(exit_status) {}

    int exit_status() const { return exit_status_; }

  private:
    int exit_status_;
};

// What the commands share with main.
struct Session {
    // The signal mask that the process was started with: what a program run on the user's behalf gets.
    sigset_t start_mask{};
    // The command that the words chose, ready to run; returns the exit status.
    std::function<int()> command;
};

struct CommandText {
    const char *name;
    const char *summary;
    const char *details;  // the end of its --help: what there is to know, and an example
};

// Adds a command that is only a group of others.
CLI::App &add_group(CLI::App &parent, const CommandText &text);

// Adds an option or, where the name has no dash, a word in a fixed place. Use it for all that is text: see quote_words.
CLI::Option &add_text(CLI::App &command, const char *name, std::string &text, const char *summary);
CLI::Option &add_texts(CLI::App &command, const char *name, std::vector<std::string> &texts, const char *summary);
// A required path that is not empty, and several; add_file is for the FILE that nearly every command takes.
void add_path(CLI::App &command, const char *name, std::string &path, const char *summary);
void add_paths(CLI::App &command, std::vector<std::string> &paths, const char *summary);
void add_file(CLI::App &command, std::string &file, const char *summary);
CLI::Option &refuse_empty(CLI::Option &option);

// Adds a command: its words are parsed into an `Arguments`, which `run` gets if the command is the chosen one. The
// record lives as long as the command does.
template <typename Arguments>
std::pair<CLI::App &, Arguments &> add_command(CLI::App &parent, Session &session, const CommandText &text,
                                               int (*run)(const Arguments &)) {
    CLI::App &command = add_group(parent, text);
    auto arguments = std::make_shared<Arguments>();
    command.callback([&session, &command, arguments, run] {
        if (command.get_subcommands().empty())  // else it is one of those that the words chose
            session.command = [arguments, run] { return run(*arguments); };
    });
    return {command, *arguments};
}

// The parser reads a meaning of its own into words that begin with a bracket or a brace, and loses sight of "--" where
// a list of words may be empty. So the words that must be taken as they are get a mark in front, which add_text takes
// off again: all that follow "--" (which itself is dropped), and those that the parser would misread.
std::vector<std::string> quote_words(const std::vector<std::string> &words);
std::string unquote_word(const std::string &word);
// The parser's error messages, which quote the words that it was given.
std::string without_marks(std::string text);

// The system's text for an errno.
std::string error_text(int error);

// "FILE: " and the system's text for a negated errno.
Failure file_failure(const std::string &file, int32_t code);
// The same for a name that was looked up: one that does not exist is "not found".
Failure lookup_failure(const std::string &file, int32_t code);

// One line on standard error, "korvex: COMMAND: TEXT".
void print_error(const std::string &command, const std::string &text);

// Does something with each path in turn. A failure is printed and does not keep the others from their turn; the result
// is the highest exit status.
int for_each_path(const std::string &command, const std::vector<std::string> &paths,
                  const std::function<void(const std::string &path)> &work);

}  // namespace korvex::cli
