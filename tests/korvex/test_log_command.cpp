// korvex log, and where the library's own messages go.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <regex>
#include <sstream>
#include <utility>

#include "run_korvex.h"

namespace {

using support::read_file;
using support::write_file;

const std::string kStamp = R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] )";

Words lines_of(const std::string &text) {
    Words lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// The lines of a log without their stamps; a line that is not stamped as it should be is marked.
Words messages(const std::string &log, const std::string &stamp = kStamp) {
    const std::regex pattern("^" + stamp);
    Words lines = lines_of(log);
    for (std::string &line : lines) {
        std::smatch match;
        line = std::regex_search(line, match, pattern) ? match.suffix().str() : "unstamped: " + line;
    }
    return lines;
}

Words sorted(Words lines) {
    std::sort(lines.begin(), lines.end());
    return lines;
}

class LogCommand : public KorvexTest {
  protected:
    Words logged(const std::string &stamp = kStamp) const { return messages(read_file(folder.path("log")), stamp); }
};

// One run that gets its lines one by one.
class LogPipe {
  public:
    explicit LogPipe(const support::TempFolder &folder) {
        mkfifo(folder.path("lines").c_str(), 0600);
        process_ = support::start_child([&] {
            const int lines = open(folder.path("lines").c_str(), O_RDONLY);
            dup2(lines, STDIN_FILENO);
            const std::string log = folder.path("log");
            execl(KORVEX_PROGRAM, KORVEX_PROGRAM, "log", log.c_str(), nullptr);
            return 99;
        });
        lines_ = open(folder.path("lines").c_str(), O_WRONLY | O_CLOEXEC);
    }
    ~LogPipe() { close(lines_); }
    LogPipe(const LogPipe &) = delete;
    LogPipe &operator=(const LogPipe &) = delete;

    // Returns when the line is in the log.
    void say(const std::string &line, const std::string &log) const {
        ASSERT_EQ(write(lines_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        while (!support::exists(log) || read_file(log).find(line) == std::string::npos)
            usleep(1000);
    }
    int end() {
        close(std::exchange(lines_, -1));
        return support::wait_for(process_);
    }
    int end_by(int signal) {
        kill(process_, signal);
        return end();
    }

  private:
    pid_t process_;
    int lines_;
};

TEST_F(LogCommand, words_become_one_line) {
    EXPECT_EQ(korvex({"log", "log", "backup", "of", "attic"}), Outcome());
    EXPECT_EQ(korvex({"log", "log", "[a,b]", "{}", "%s%n", "conf"}), Outcome());
    EXPECT_EQ(korvex({"log", "log", "--", "--clock", "-x"}), Outcome());
    EXPECT_EQ(korvex({"log", "log", ""}), Outcome());
    EXPECT_EQ(logged(), (Words{"backup of attic", "[a,b] {} %s%n conf", "--clock -x", ""}));
}

TEST_F(LogCommand, each_line_is_stamped) {
    EXPECT_EQ(korvex({"log", "log", "one\n\ntwo\n"}), Outcome());
    EXPECT_EQ(korvex({"log", "log"}, "three\n\n  four"), Outcome());
    EXPECT_EQ(korvex({"log", "log"}, ""), Outcome());
    EXPECT_EQ(logged(), (Words{"one", "", "two", "three", "", "  four"}));
}

TEST_F(LogCommand, nothing_of_a_line_is_lost) {
    const std::string long_line(40000, 'x');
    EXPECT_EQ(korvex({"log", "log"}, long_line + "\n" + std::string("a\0b\n", 4)), Outcome());
    EXPECT_EQ(logged(), (Words{std::string(16384, 'x'), std::string(16384, 'x'), std::string(7232, 'x'), "a?b"}));
}

TEST_F(LogCommand, the_stamp_has_the_clock_and_date_that_were_asked_for) {
    const std::string date[] = {R"(\d{4}/\d\d/\d\d)", R"(\d{4}\.\d\d\.\d\d)", R"(\d{4}-\d\d-\d\d)",
                                R"(\d\d/\d\d/\d{4})", R"(\d\d\.\d\d\.\d{4})", R"(\d\d-\d\d-\d{4})",
                                R"(\d\d/\d\d/\d{4})", R"(\d\d\.\d\d\.\d{4})", R"(\d\d-\d\d-\d{4})"};
    for (int format = 1; format <= 9; ++format) {
        EXPECT_EQ(korvex({"log", "log", "--date", std::to_string(format), "--clock", "12", "text"}), Outcome());
        EXPECT_EQ(logged(R"(\[)" + date[format - 1] + R"( \d\d:\d\d:\d\d [ap]m\] )"), Words{"text"}) << format;
        unlink(folder.path("log").c_str());
    }
}

TEST_F(LogCommand, missing_folders_are_made_but_no_file_is_removed_for_them) {
    EXPECT_EQ(korvex({"log", "a/b/log", "text"}), Outcome());
    EXPECT_EQ(messages(read_file(folder.path("a/b/log"))), Words{"text"});

    folder.file("f", "precious");
    EXPECT_EQ(korvex({"log", "f/log", "text"}), Outcome(3, "", "korvex: log: f/log: Not a directory\n"));
    EXPECT_EQ(korvex({"log", "f/a/log", "text"}), Outcome(3, "", "korvex: log: f/a/log: Not a directory\n"));
    EXPECT_EQ(read_file(folder.path("f")), "precious");
}

TEST_F(LogCommand, a_log_that_cannot_be_written_is_a_failure) {
    EXPECT_EQ(korvex({"log", "/dev/full", "text"}),
              Outcome(3, "", "korvex: log: /dev/full: No space left on device\n"));
    EXPECT_EQ(korvex({"log", ".", "text"}), Outcome(3, "", "korvex: log: .: Is a directory\n"));
}

TEST_F(LogCommand, a_full_or_read_only_disk_and_a_missing_right_are_told) {
    ASSERT_TRUE(support::can_be_nobody()) << "run this as root";
    const support::SmallDisk disk(64 << 10);
    const std::string log = disk.file("log", "old\n");
    disk.fill_up_to(0);
    EXPECT_EQ(korvex({"log", log, std::string(8000, 'x')}),
              Outcome(3, "", "korvex: log: " + log + ": No space left on device\n"));
    ASSERT_EQ(mount(nullptr, log.substr(0, log.rfind('/')).c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(korvex({"log", log, "text"}), Outcome(3, "", "korvex: log: " + log + ": Read-only file system\n"));

    folder.file("log", "");
    chmod(folder.path("log").c_str(), 0600);
    chmod(folder.path().c_str(), 0755);
    EXPECT_EQ(
        support::in_child_as_nobody([&] {
            return korvex({"log", "log", "text"}) == Outcome(3, "", "korvex: log: log: Permission denied\n") ? 0 : 1;
        }),
        0);
}

TEST_F(LogCommand, a_signal_leaves_whole_lines) {
    LogPipe pipe(folder);
    pipe.say("one\n", folder.path("log"));
    EXPECT_EQ(pipe.end_by(SIGTERM), 128 + SIGTERM);
    EXPECT_EQ(logged(), Words{"one"});
}

TEST_F(LogCommand, it_waits_for_another_programs_lock) {
    write_file("/var/lock/log.lck", lock_of(getpid()));
    KorvexProcess process({"log", "log", "late"}, folder.path());
    while (!support::exists(folder.path("log")))
        usleep(1000);
    EXPECT_EQ(read_file(folder.path("log")), "");
    unlink("/var/lock/log.lck");
    EXPECT_EQ(process.wait(), Outcome());
    EXPECT_EQ(logged(), Words{"late"});
}

TEST_F(LogCommand, two_processes_share_a_log) {
    std::string input;
    for (int line = 0; line < 500; ++line)
        input += "line " + std::to_string(line) + "\n";
    KorvexProcess one({"log", "log"}, folder.path(), input);
    KorvexProcess two({"log", "log"}, folder.path(), input);
    EXPECT_EQ(one.wait(), Outcome());
    EXPECT_EQ(two.wait(), Outcome());

    EXPECT_EQ(sorted(logged()), sorted(lines_of(input + input)));
}

TEST_F(LogCommand, verbose_shows_the_librarys_messages_on_standard_error) {
    folder.file("f", "bad\n");
    const std::string message = R"(\[error\] Parse_Conf_Cache\(\d+\): Bad key-value definition line: "bad"!\n)";
    for (const Words &words : {Words{"--verbose", "conf", "list", "f"}, Words{"conf", "list", "f", "--verbose"}}) {
        const Outcome outcome = korvex(words);
        EXPECT_EQ(outcome.exit_status, 0);
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(std::regex_match(outcome.err, std::regex(kStamp + message))) << outcome.err;
    }
    EXPECT_EQ(korvex({"conf", "list", "f"}), Outcome());
}

TEST_F(LogCommand, messages_and_the_error_line_stand_one_behind_the_other) {
    const Outcome outcome = korvex({"--verbose", "conf", "get", "none", "k"});
    EXPECT_EQ(outcome.exit_status, 1);
    EXPECT_TRUE(outcome.err.starts_with("[")) << outcome.err;
    EXPECT_TRUE(outcome.err.ends_with(" error! (-2)\nkorvex: conf get: none: no such file\n")) << outcome.err;
}

TEST_F(LogCommand, log_file_takes_the_librarys_messages) {
    write_file("/var/lock/_f.lck", lock_of(support::dead_process()));
    EXPECT_EQ(korvex({"conf", "set", "f", "k", "v", "--log-file", "log"}), Outcome());
    ASSERT_EQ(logged().size(), 1U);
    const std::regex removal(R"(\[debug\] Get_File_Lock\(\d+\): Remove "/var/lock/_f\.lck" because proc \d+ is not )"
                             R"(existed!)");
    EXPECT_TRUE(std::regex_match(logged()[0], removal)) << logged()[0];
}

TEST_F(LogCommand, a_reader_of_messages_that_went_away_does_not_end_a_change) {
    write_file("/var/lock/_f.lck", lock_of(support::dead_process()));
    const int exit_status = support::in_child([&] {
        int pipe_ends[2];
        if (pipe(pipe_ends) != 0 || dup2(pipe_ends[1], STDERR_FILENO) < 0 || chdir(folder.path().c_str()) != 0)
            return 99;
        close(pipe_ends[0]);
        execl(KORVEX_PROGRAM, "korvex", "--verbose", "conf", "set", "f", "k", "v", nullptr);
        return 99;
    });
    EXPECT_EQ(exit_status, 0);
    EXPECT_EQ(korvex({"conf", "get", "f", "k"}), Outcome(0, "v\n"));
    EXPECT_FALSE(support::exists("/var/lock/_f.lck"));
}

TEST_F(LogCommand, a_log_that_is_rotated_meanwhile_begins_anew) {
    const std::string log = folder.path("log");
    LogPipe pipe(folder);
    pipe.say("one\n", log);
    ASSERT_EQ(std::rename(log.c_str(), folder.path("log.1").c_str()), 0);
    pipe.say("two\n", log);
    ASSERT_EQ(unlink(log.c_str()), 0);
    pipe.say("three\n", log);
    ASSERT_EQ(std::rename(log.c_str(), folder.path("log.2").c_str()), 0);
    write_file(log, "");  // made by whoever rotated it
    pipe.say("four\n", log);
    EXPECT_EQ(pipe.end(), 0);
    EXPECT_EQ(messages(read_file(folder.path("log.1"))), Words{"one"});
    EXPECT_EQ(messages(read_file(folder.path("log.2"))), Words{"three"});
    EXPECT_EQ(logged(), Words{"four"});
}

}  // namespace
