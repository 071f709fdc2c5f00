// korvex log: appends stamped lines.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "commands/commands.h"
#include "output/log_handle.h"

namespace korvex::cli {
namespace {

struct LogArguments {
    std::string file;
    std::vector<std::string> text;
    int clock = 24;
    int date = 3;
};

// Longer messages are cut by the library where they do not fit its line together with the stamp.
constexpr size_t kLongestMessage = 16384;

void write_message(Simp_Log *log, const std::string &file, const std::string &message) {
    errno = 0;
    const int32_t code = Simp_Log_Write(log, "%s", message.c_str());
    if (code == -EIO && errno != 0)  // says more, such as that the disk is full
        throw file_failure(file, -errno);
    if (code < 0)
        throw file_failure(file, code);
}

// A line that is too long becomes several; a NUL byte, which would end it, a question mark.
void write_line(Simp_Log *log, const std::string &file, std::string line) {
    for (char &byte : line)
        if (byte == '\0')
            byte = '?';
    do {
        write_message(log, file, line.substr(0, kLongestMessage));
        line.erase(0, kLongestMessage);
    } while (!line.empty());
}

void write_text(Simp_Log *log, const LogArguments &arguments) {
    std::string text = arguments.text.front();
    for (size_t word = 1; word < arguments.text.size(); ++word)
        text += " " + arguments.text[word];

    size_t begin = 0;
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
        write_line(log, arguments.file, text.substr(begin, end - begin));
        begin = end + 1;
    }
    if (begin < text.size() || text.empty())
        write_line(log, arguments.file, text.substr(begin));
}

void write_standard_input(Simp_Log *log, const LogArguments &arguments) {
    char *line = nullptr;
    size_t capacity = 0;
    const std::unique_ptr<char *, void (*)(char **)> owner(&line, [](char **owned) { std::free(*owned); });
    for (ssize_t length = getline(&line, &capacity, stdin); length > 0; length = getline(&line, &capacity, stdin)) {
        const auto size = static_cast<size_t>(length);
        write_line(log, arguments.file, std::string(line, line[size - 1] == '\n' ? size - 1 : size));
    }
    if (std::ferror(stdin) != 0)
        throw file_failure("standard input", -errno);
}

int run_log(const LogArguments &arguments) {
    const LogHandle log = open_log(arguments.file, arguments.clock, arguments.date);
    if (arguments.text.empty())
        write_standard_input(log.get(), arguments);
    else
        write_text(log.get(), arguments);
    return kSuccess;
}

constexpr const char *kLogDetails =
    R"(Each line is stamped "[date time] ". Several processes may append to one log. A write waits up to
10 seconds while another program holds the log's lock, /var/lock/NAME.lck. Lines of more than 16384
bytes are written in pieces.

Date formats:
  1 2024/01/31   4 01/31/2024   7 31/01/2024
  2 2024.01.31   5 01.31.2024   8 31.01.2024
  3 2024-01-31   6 01-31-2024   9 31-01-2024

Example:
  korvex log /var/log/backup.log --clock 12 backup of attic done
  rsync -a /share/ /backup/ 2>&1 | korvex log /var/log/backup.log)";

}  // namespace

void add_log_command(CLI::App &program, Session &session) {
    auto [command, arguments] =
        add_command(program, session,
                    {"log", "Append a stamped line, or each line of standard input, to a log", kLogDetails}, run_log);
    add_file(command, arguments.file, "The log; it and the folders above it are made if need be");
    add_texts(command, "TEXT", arguments.text, "Words of the line; without any, standard input is read");
    command.add_option("--clock", arguments.clock, "Hour clock of the stamp: 12 or 24")
        ->check(CLI::IsMember({12, 24}))
        ->capture_default_str();
    command.add_option("--date", arguments.date, "Date format of the stamp: 1 to 9")
        ->check(CLI::Range(1, 9))
        ->capture_default_str();
}

}  // namespace korvex::cli
