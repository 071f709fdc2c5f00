// korvex log: appends stamped lines.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
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

// The log, under its name: where somebody has renamed or removed the file meanwhile, as programs that rotate logs do, the
// next line goes to a new one.
class NamedLog {
  public:
    explicit NamedLog(const LogArguments &arguments) : arguments_(arguments), log_(opened()) {}

    // A line that is too long becomes several; a NUL byte, which would end it, a question mark.
    void write_line(std::string line) {
        std::replace(line.begin(), line.end(), '\0', '?');
        do {
            write_message(line.substr(0, kLongestMessage));
            line.erase(0, kLongestMessage);
        } while (!line.empty());
    }

  private:
    LogHandle opened() const { return open_log(arguments_.file, arguments_.clock, arguments_.date); }

    bool is_moved_away() const {
        struct stat open_file {};
        struct stat named {};
        if (fstat(fileno(log_->fpLog), &open_file) != 0)
            return false;
        if (stat(log_->szFilename, &named) != 0)
            return errno == ENOENT;
        return named.st_dev != open_file.st_dev || named.st_ino != open_file.st_ino;
    }

    void write_message(const std::string &message) {
        if (is_moved_away())
            log_ = opened();
        errno = 0;
        const int32_t code = Simp_Log_Write(log_.get(), "%s", message.c_str());
        if (code == -EIO && errno != 0)  // says more, such as that the disk is full
            throw file_failure(arguments_.file, -errno);
        if (code < 0)
            throw file_failure(arguments_.file, code);
    }

    const LogArguments &arguments_;
    LogHandle log_;
};

void write_text(NamedLog &log, const std::vector<std::string> &words) {
    std::string text = words.front();
    for (size_t word = 1; word < words.size(); ++word)
        text += " " + words[word];

    size_t begin = 0;
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
        log.write_line(text.substr(begin, end - begin));
        begin = end + 1;
    }
    if (begin < text.size() || text.empty())
        log.write_line(text.substr(begin));
}

void write_standard_input(NamedLog &log) {
    char *line = nullptr;
    size_t capacity = 0;
    const std::unique_ptr<char *, void (*)(char **)> owner(&line, [](char **owned) { std::free(*owned); });
    for (ssize_t length = getline(&line, &capacity, stdin); length > 0; length = getline(&line, &capacity, stdin)) {
        const auto size = static_cast<size_t>(length);
        log.write_line(std::string(line, line[size - 1] == '\n' ? size - 1 : size));
    }
    if (std::ferror(stdin) != 0)
        throw file_failure("standard input", -errno);
}

int run_log(const LogArguments &arguments) {
    NamedLog log(arguments);
    if (arguments.text.empty())
        write_standard_input(log);
    else
        write_text(log, arguments.text);
    return kSuccess;
}

constexpr const char *kLogDetails =
    R"(Each line is stamped "[date time] ". Several processes may append to one log. A write waits up to
10 seconds while another program holds the log's lock, /var/lock/NAME.lck. Lines of more than 16384
bytes are written in pieces. Where the log was renamed or removed meanwhile, as by a program that rotates
logs, the next line begins a new one.

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
