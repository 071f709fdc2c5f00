#include "cli.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "korvex/error.hpp"
#include "output/shown_name.h"

namespace korvex::cli {
namespace {

constexpr char kMark = '\x01';

bool misread(const std::string &word) {
    return !word.empty() && std::string_view("[{%\x01").find(word.front()) != std::string_view::npos;
}

}  // namespace

CLI::App &add_group(CLI::App &parent, const CommandText &text) {
    CLI::App &command = *parent.add_subcommand(text.name, text.summary);
    command.footer(text.details);
    command.fallthrough();  // the global options may follow the command
    return command;
}

CLI::Option &add_text(CLI::App &command, const char *name, std::string &text, const char *summary) {
    return *command.add_option(name, text, summary)->transform(unquote_word)->type_name(name[0] == '-' ? "TEXT" : "");
}

CLI::Option &add_texts(CLI::App &command, const char *name, std::vector<std::string> &texts, const char *summary) {
    return *command.add_option(name, texts, summary)->transform(unquote_word)->type_name("");
}

CLI::Option &refuse_empty(CLI::Option &option) {
    return *option.check([](const std::string &name) { return std::string(name.empty() ? "an empty name" : ""); });
}

void add_path(CLI::App &command, const char *name, std::string &path, const char *summary) {
    refuse_empty(*add_text(command, name, path, summary).required());
}

void add_paths(CLI::App &command, std::vector<std::string> &paths, const char *summary) {
    refuse_empty(*add_texts(command, "PATH", paths, summary).required());
}

void add_file(CLI::App &command, std::string &file, const char *summary) {
    add_path(command, "FILE", file, summary);
}

std::vector<std::string> quote_words(const std::vector<std::string> &words) {
    std::vector<std::string> quoted;
    bool after_dashes = false;
    for (const std::string &word : words) {
        if (!after_dashes && word == "--") {
            after_dashes = true;
            continue;
        }
        quoted.push_back(after_dashes || misread(word) ? kMark + word : word);
    }
    return quoted;
}

std::string unquote_word(const std::string &word) {
    return !word.empty() && word.front() == kMark ? word.substr(1) : word;
}

std::string without_marks(std::string text) {
    std::erase(text, kMark);
    return text;
}

std::string error_text(int error) {
    return std::generic_category().message(error);
}

Failure file_failure(const std::string &file, int32_t code) {
    return {kFailure, file + ": " + error_text(-code)};
}

Failure lookup_failure(const std::string &file, int32_t code) {
    const bool missing = code == -ENOENT || code == -ENOTDIR;
    return {missing ? kNegativeAnswer : kFailure, file + ": " + error_text(-code)};
}

// In one write: processes that share standard error don't mix their lines. Nobody is left to tell if it fails.
void print_error(const std::string &command, const std::string &text) {
    const std::string line = "korvex: " + (command.empty() ? "" : command + ": ") + shown(text) + "\n";
    std::fflush(stdout);
    (void)!write(STDERR_FILENO, line.data(), line.size());
}

int for_each_path(const std::string &command, const std::vector<std::string> &paths,
                  const std::function<void(const std::string &path)> &work) {
    int exit_status = kSuccess;
    for (const std::string &path : paths) {
        try {
            work(path);
        } catch (const Failure &failure) {
            print_error(command, failure.what());
            exit_status = std::max(exit_status, failure.exit_status());
        } catch (const error &failure) {
            print_error(command, failure.what());
            exit_status = std::max<int>(exit_status, kFailure);
        }
    }
    return exit_status;
}

}  // namespace korvex::cli
