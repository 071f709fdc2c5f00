// korvex lock: taking a lock, running a command under it, and telling its state.
#include <fnmatch.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>

#include "run_korvex.h"

namespace {

using nlohmann::json;
using support::exists;
using support::read_file;
using support::write_file;

const std::string kLock = "/var/lock/_f.lck";

class LockCommand : public KorvexTest {
  protected:
    // Runs a shell script under the lock of "f".
    Outcome under_lock(const std::string &script, const Words &options = {}) const {
        Words words = {"lock", "f"};
        words.insert(words.end(), options.begin(), options.end());
        words.insert(words.end(), {"--", "sh", "-c", script});
        return korvex(words);
    }
};

TEST_F(LockCommand, the_command_runs_while_the_tool_holds_the_lock) {
    const Outcome outcome = under_lock("echo $PPID; cat " + kLock);
    EXPECT_EQ(outcome.exit_status, 0);
    const size_t line_end = outcome.out.find('\n');
    ASSERT_EQ(outcome.out.size(), line_end + 1 + 16);
    EXPECT_EQ(std::to_string(support::parse_lock(outcome.out.substr(line_end + 1)).holder),
              outcome.out.substr(0, line_end));
    EXPECT_FALSE(exists(kLock));
}

TEST_F(LockCommand, the_exit_status_is_passed_on_and_the_lock_released) {
    const struct {
        Words command;
        Outcome outcome;
    } rows[] = {
        {{"true"}, {0}},
        {{"sh", "-c", "exit 2"}, {2}},
        {{"sh", "-c", "exit 255"}, {255}},
        {{"sh", "-c", "kill -KILL $$"}, {137}},
        {{"sh", "-c", "kill -SEGV $$"}, {139}},
        {{"nosuchcommand", "-x"}, {127, "", "korvex: lock: nosuchcommand: No such file or directory\n"}},
        {{"./f"}, {126, "", "korvex: lock: ./f: Permission denied\n"}},
    };
    folder.file("f", "");
    for (const auto &[command, outcome] : rows) {
        SCOPED_TRACE(testing::PrintToString(command));
        Words words = {"lock", "f", "--"};
        words.insert(words.end(), command.begin(), command.end());
        EXPECT_EQ(korvex(words), outcome);
        EXPECT_FALSE(exists(kLock));
    }
}

TEST_F(LockCommand, the_words_of_the_command_are_taken_as_they_are) {
    EXPECT_EQ(korvex({"lock", "f", "--", "printf", "%s\n", "--wait", "[a,b]", "", "{}", "--", "lock", "-h"}),
              Outcome(0, "--wait\n[a,b]\n\n{}\n--\nlock\n-h\n"));
    EXPECT_EQ(korvex({"lock", "lock", "echo", "conf"}), Outcome(0, "conf\n"));
}

TEST_F(LockCommand, the_command_gets_standard_input_and_an_open_signal_mask) {
    EXPECT_EQ(KorvexProcess({"lock", "f", "--", "cat"}, folder.path(), "text").wait(), Outcome(0, "text"));
    EXPECT_EQ(under_lock("grep SigBlk /proc/self/status"), Outcome(0, "SigBlk:\t0000000000000000\n"));
}

TEST_F(LockCommand, the_command_inherits_no_descriptor_of_the_tool) {
    const Outcome outcome =
        under_lock("echo here > here; exec 3< here; readlink /proc/$$/fd/*", {"--log-file", "messages"});
    EXPECT_THAT(outcome.out, testing::HasSubstr(folder.path("here")));
    EXPECT_THAT(outcome.out, testing::Not(testing::HasSubstr(folder.path("messages"))));
    EXPECT_THAT(outcome.out, testing::Not(testing::HasSubstr(kLock)));
}

TEST_F(LockCommand, beside_uses_the_lock_at_the_file) {
    EXPECT_EQ(under_lock("ls; ls /var/lock", {"--beside"}), Outcome(0, "f.lck\n"));
    EXPECT_EQ(folder.names(), Words());
}

TEST_F(LockCommand, a_held_lock_is_not_obtained_and_its_holder_named) {
    const std::string content = lock_of(getpid(), 5000);
    write_file(kLock, content);
    const std::string holder = " ms, held by process " + std::to_string(getpid()) + " (test_korvex) for [0-9]* ms\n";
    for (const std::string wait : {"0", "30", "30ms", "0.03s"}) {
        const Outcome outcome = under_lock("echo ran", {"--wait", wait});
        EXPECT_EQ(outcome.exit_status, 1);
        const std::string pattern =
            "korvex: lock: f: lock not obtained within " + std::string(wait == "0" ? "0" : "30") + holder;
        EXPECT_EQ(fnmatch(pattern.c_str(), outcome.err.c_str(), 0), 0) << outcome.err << pattern;
    }
    EXPECT_EQ(read_file(kLock), content);
}

TEST_F(LockCommand, a_stale_lock_is_taken_over) {
    for (const std::string &content : {lock_of(support::dead_process()), lock_of(getpid(), 600001)}) {
        write_file(kLock, content);
        EXPECT_EQ(under_lock("echo ran", {"--wait", "0"}), Outcome(0, "ran\n"));
        EXPECT_FALSE(exists(kLock));
    }
}

TEST_F(LockCommand, a_lock_that_was_never_filled_is_taken_over) {
    write_file(kLock, "short");
    EXPECT_EQ(under_lock("echo ran", {"--wait", "0"}),
              Outcome(1, "", "korvex: lock: f: lock not obtained within 0 ms\n"));
    EXPECT_EQ(under_lock("echo ran"), Outcome(0, "ran\n"));
    EXPECT_FALSE(exists(kLock));
}

TEST_F(LockCommand, a_lock_that_another_process_took_over_is_left_alone) {
    const std::string content = lock_of(getpid());
    write_file(folder.path("other"), content);
    EXPECT_EQ(under_lock("cp other " + kLock), Outcome());
    EXPECT_EQ(read_file(kLock), content);
}

TEST_F(LockCommand, a_lock_that_cannot_be_made_is_a_failure_at_once) {
    EXPECT_EQ(korvex({"lock", "none/f", "--beside", "--wait", "-1", "--", "true"}),
              Outcome(3, "", "korvex: lock: can't create the lock 'none/f.lck': no such file or folder\n"));
    const std::string long_name(250, 'x');
    EXPECT_EQ(korvex({"lock", long_name, "--", "true"}),
              Outcome(3, "", "korvex: lock: can't lock '" + long_name + "': the path is too long\n"));
}

TEST_F(LockCommand, a_missing_right_a_read_only_and_a_full_disk_are_failures_at_once) {
    ASSERT_TRUE(support::can_be_nobody()) << "run this as root";
    chmod(folder.path().c_str(), 0777);
    const support::SmallDisk disk(16 << 10);
    const std::string file = disk.path("f");
    const Words words = {"lock", file, "--beside", "--wait", "-1", "--", "true"};
    const std::string top = file.substr(0, file.rfind('/'));
    chmod(top.c_str(), 0755);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  return korvex(words) ==
                                 Outcome(3, "",
                                         "korvex: lock: can't create the lock '" + file + ".lck': permission denied\n")
                             ? 0
                             : 1;
              }),
              0);
    disk.fill_up_to(0);
    EXPECT_EQ(korvex(words),
              Outcome(3, "", "korvex: lock: can't write the lock '" + file + ".lck': no space left on device\n"));
    ASSERT_EQ(mount(nullptr, top.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(korvex(words),
              Outcome(3, "", "korvex: lock: can't create the lock '" + file + ".lck': read-only file system\n"));
}

TEST_F(LockCommand, status_tells_the_state) {
    EXPECT_EQ(korvex({"lock", "--status", "f"}), Outcome(0, "free\n"));

    const std::string self = std::to_string(getpid());
    const pid_t dead = support::dead_process();
    const struct {
        std::string content;
        std::string pattern;
        int exit_status = 0;
    } rows[] = {
        {lock_of(getpid(), 5000), "held pid " + self + " age 5[0-9][0-9][0-9] ms\n", 1},
        {lock_of(dead, 5000), "stale pid " + std::to_string(dead) + " age [0-9]* ms (no such process)\n"},
        {lock_of(-1), "stale pid -1 age [0-9]* ms (no such process)\n"},
        {lock_of(getpid(), 600000), "stale pid " + self + " age 6[0-9]* ms (ten minutes old)\n"},
        {lock_of(getpid(), -900000), "stale pid " + self + " age -[0-9]* ms (dated in the future)\n"},
        {"short", "incomplete age [0-9]* ms\n", 1},
    };
    for (const auto &[content, pattern, exit_status] : rows) {
        write_file(kLock, content);
        const Outcome outcome = korvex({"lock", "--status", "f"});
        EXPECT_EQ(fnmatch(pattern.c_str(), outcome.out.c_str(), 0), 0) << outcome.out << pattern;
        EXPECT_EQ(outcome.exit_status, exit_status) << outcome.out;
        EXPECT_EQ(outcome.err, "");
        EXPECT_EQ(read_file(kLock), content);
    }
}

// Another user's link is not followed, or anybody could have any file judged.
TEST_F(LockCommand, what_is_no_lock_but_in_its_place_is_told_and_waited_for) {
    write_file(folder.path("target"), lock_of(support::dead_process()));
    const auto link_to = [](const std::string &target) {
        return symlink(target.c_str(), kLock.c_str()) == 0 ? lchown(kLock.c_str(), 65534, 65534) : -1;
    };
    const struct {
        std::string what;
        std::function<int()> make;
    } rows[] = {
        {"a folder", [] { return mkdir(kLock.c_str(), 0755); }},
        {"a link", [&] { return link_to(folder.path("target")); }},
        {"a link", [&] { return link_to("none"); }},
        {"a pipe", [] { return mkfifo(kLock.c_str(), 0666); }},
        {"a device", [] { return mknod(kLock.c_str(), S_IFCHR | 0666, makedev(1, 3)); }},
    };
    for (const auto &[what, make] : rows) {
        SCOPED_TRACE(what);
        ASSERT_EQ(make(), 0);
        EXPECT_EQ(korvex({"lock", "--status", "f"}), Outcome(1, "blocked by " + what + "\n"));
        EXPECT_EQ(under_lock("echo ran", {"--wait", "30"}),
                  Outcome(1, "", "korvex: lock: f: lock not obtained within 30 ms, blocked by " + what + "\n"));
        ASSERT_EQ(std::remove(kLock.c_str()), 0);
    }
    EXPECT_EQ(folder.names(), Words{"target"});
}

TEST_F(LockCommand, a_link_of_ones_own_in_the_place_of_the_lock_leads_to_it) {
    write_file(folder.path("target"), lock_of(support::dead_process()));
    ASSERT_EQ(symlink(folder.path("target").c_str(), kLock.c_str()), 0);
    EXPECT_EQ(korvex({"lock", "--status", "f"}), Outcome(1, "blocked by a link\n"));
    EXPECT_EQ(under_lock("echo ran", {"--wait", "0"}), Outcome(0, "ran\n"));
}

TEST_F(LockCommand, a_lock_is_not_writable_for_others_under_an_open_umask) {
    umask(0);
    EXPECT_EQ(under_lock("umask; stat -c %a " + kLock), Outcome(0, "0000\n755\n"));
    umask(077);
    EXPECT_EQ(under_lock("umask; stat -c %a " + kLock), Outcome(0, "0077\n700\n"));
}

TEST_F(LockCommand, status_reads_the_lock_beside_the_file) {
    write_file(folder.path("f.lck"), lock_of(support::dead_process()));
    EXPECT_EQ(korvex({"lock", "--status", "f"}), Outcome(0, "free\n"));
    EXPECT_TRUE(korvex({"lock", "--status", "--beside", "f"}).out.starts_with("stale pid "));
}

TEST_F(LockCommand, wrong_usage_is_refused) {
    const std::string hint = " (see 'korvex lock --help')\n";
    expect({
        {{"lock"}, {2, "", "korvex: lock: FILE is required" + hint}},
        {{"lock", "f"}, {2, "", "korvex: lock: COMMAND is required" + hint}},
        {{"lock", "f", "--"}, {2, "", "korvex: lock: COMMAND is required" + hint}},
        {{"lock", "--status", "f", "--", "true"}, {2, "", "korvex: lock: --status takes no COMMAND" + hint}},
        {{"lock", "", "--", "true"}, {2, "", "korvex: lock: FILE: an empty name" + hint}},
    });
    expect({
        {{"lock", "--list", "--status", "f"}, {2, "", "korvex: lock: --list and --status exclude each other" + hint}},
        {{"lock", "--list", "f", "--", "true"}, {2, "", "korvex: lock: --list takes no COMMAND" + hint}},
        {{"lock", "--status", "--json", "f"}, {2, "", "korvex: lock: --json is for --list" + hint}},
    });
    for (const std::string wait : {"x", "", "1 year", "s", "2147483648", "25d"})
        EXPECT_EQ(korvex({"lock", "f", "--wait=" + wait, "--", "true"}).exit_status, 2) << wait;
}

TEST_F(LockCommand, the_list_says_whose_each_lock_is_and_what_comes_of_it) {
    EXPECT_EQ(output_of({"lock", "--list"}), "kind  pid  user  program  since  state  next  name\n");
    const pid_t dead = support::dead_process();
    write_file(kLock, lock_of(getpid(), 5000));
    write_file("/var/lock/printer.lck", lock_of(dead, 5000));
    write_file("/var/lock/_half.lck", "short");
    mkdir("/var/lock/_x.lck", 0755);
    write_file(folder.path("g.lck"), lock_of(getpid(), 5000));

    const json list = json::parse(output_of({"lock", "--list", "--json", "g"}));
    ASSERT_EQ(list.size(), 5U);
    EXPECT_EQ(list[0]["name"], "f");
    EXPECT_EQ(list[0]["kind"], "common");
    EXPECT_EQ(list[0]["file"], kLock);
    EXPECT_EQ(list[0]["status"], "held");
    EXPECT_EQ(list[0]["pid"], getpid());
    EXPECT_EQ(list[0]["user"], "root");
    EXPECT_EQ(list[0]["program"], "test_korvex");
    EXPECT_GE(list[0]["age_ms"], 5000);
    EXPECT_EQ(list[0]["reason"], nullptr);
    EXPECT_THAT(list[0]["next"].get<std::string>(), testing::StartsWith("expires in 59"));
    EXPECT_EQ(list[1]["status"], "incomplete");
    EXPECT_EQ(list[1]["pid"], nullptr);
    EXPECT_EQ(list[2]["name"], "printer");
    EXPECT_EQ(list[2]["kind"], "watched");
    EXPECT_EQ(list[2]["status"], "stale");
    EXPECT_EQ(list[2]["reason"], "no such process");
    EXPECT_EQ(list[2]["user"], nullptr);
    EXPECT_EQ(list[2]["next"], "the next who waits takes it over");
    EXPECT_EQ(list[3]["status"], "blocked");
    EXPECT_EQ(list[3]["reason"], "a folder");
    EXPECT_EQ(list[4]["kind"], "side");
    EXPECT_EQ(list[4]["file"], "g.lck");

    const std::string table = output_of({"lock", "--list"});
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 5);
    const std::string held =
        "*common*" + std::to_string(getpid()) + "*root*test_korvex*20*-*-* *:*:*held*expires in 59? s*f\n*";
    EXPECT_EQ(fnmatch(held.c_str(), table.c_str(), 0), 0) << table;
    EXPECT_THAT(table, testing::HasSubstr("stale (no such process)"));
    EXPECT_THAT(table, testing::HasSubstr("blocked by a folder"));
}

TEST_F(LockCommand, it_excludes_other_holders) {
    folder.file("sum", "0");
    const std::string increment = "n=$(cat sum); echo $((n + 1)) > sum";
    std::vector<pid_t> children;
    for (int child = 0; child < 4; ++child)
        children.push_back(support::start_child([&] {
            for (int turn = 0; turn < 25; ++turn)
                if (under_lock(increment, {"--wait", "-1"}) != Outcome())
                    return 1;
            return 0;
        }));
    for (const pid_t child : children)
        EXPECT_EQ(support::wait_for(child), 0);
    EXPECT_EQ(read_file(folder.path("sum")), "100\n");
}

}  // namespace
