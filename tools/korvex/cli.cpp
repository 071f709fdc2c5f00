#include "cli.h"

#include <system_error>

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

void add_file(CLI::App &command, std::string &file, const char *summary) {
    add_text(command, "FILE", file, summary).required()->check([](const std::string &name) {
        return std::string(name.empty() ? "an empty name" : "");
    });
}

CLI::Option &add_texts(CLI::App &command, const char *name, std::vector<std::string> &texts, const char *summary) {
    return *command.add_option(name, texts, summary)->transform(unquote_word)->type_name("");
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

std::string one_line(std::string_view text) {
    std::string line;
    for (const char byte : text) {
        const auto code = static_cast<unsigned char>(byte);
        if (byte == '\n')
            line += "\\n";
        else if (byte == '\r')
            line += "\\r";
        else if (byte == '\t')
            line += "\\t";
        else if (code < 0x20 || code == 0x7f) {
            constexpr std::string_view digits = "0123456789abcdef";
            line += {'\\', 'x', digits[code >> 4], digits[code & 15]};
        } else {
            line += byte;
        }
    }
    return line;
}

std::string error_text(int error) {
    return std::generic_category().message(error);
}

Failure file_failure(const std::string &file, int32_t code) {
    return {kFailure, file + ": " + error_text(-code)};
}

}  // namespace korvex::cli
