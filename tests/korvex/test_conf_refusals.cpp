// korvex conf: what stands in the way of a change, and that the file is then as it was.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <list>

#include "run_korvex.h"
#include "terminal_process.h"

namespace {

using support::read_file;

constexpr const char *kText = "[s]\nk = v\n";
constexpr const char *kInput = "k = new\n";

// Every command that changes a file, with the words up to FILE and those behind.
struct Change {
    Words before;
    Words after;
};
const Change kChanges[] = {
    {{"conf", "set"}, {"k", "new", "-s", "s"}}, {{"conf", "unset"}, {"k", "-s", "s"}},
    {{"conf", "section", "replace"}, {"s"}},    {{"conf", "section", "merge"}, {"s"}},
    {{"conf", "section", "remove"}, {"s"}},
};

Words words_of(const Change &change, const std::string &file) {
    Words words = change.before;
    words.push_back(file);
    words.insert(words.end(), change.after.begin(), change.after.end());
    return words;
}

// "korvex: conf set: "
std::string speaker(const Change &change) {
    std::string text = "korvex:";
    for (const std::string &word : change.before)
        text += " " + word;
    return text + ": ";
}

// A file system of its own in the place of a folder, as long as it lives.
class MountedOver {
  public:
    MountedOver(std::string folder, unsigned long flags, const char *options) : folder_(std::move(folder)) {
        EXPECT_EQ(mount("korvex-test", folder_.c_str(), "tmpfs", flags, options), 0) << folder_;
    }
    ~MountedOver() { umount2(folder_.c_str(), MNT_DETACH); }
    MountedOver(const MountedOver &) = delete;
    MountedOver &operator=(const MountedOver &) = delete;

  private:
    std::string folder_;
};

class ConfRefusals : public KorvexTest {
  protected:
    void expect_refusal(const std::string &name, int exit_status, const std::string &text) const {
        for (const Change &change : kChanges)
            EXPECT_EQ(korvex(words_of(change, name), kInput),
                      Outcome(exit_status, "", speaker(change) + name + ": " + text + "\n"));
    }

    const std::string file = folder.file("f", kText);
};

// --- the lock ---

TEST_F(ConfRefusals, a_lock_folder_that_is_read_only_is_said_to_be) {
    const MountedOver locks("/var/lock", MS_RDONLY, "");
    expect_refusal("f", 3, "can't create the lock '/var/lock/_f.lck': Read-only file system");
    EXPECT_EQ(read_file(file), kText);
}

TEST_F(ConfRefusals, a_lock_folder_that_is_full_is_said_to_be) {
    const MountedOver locks("/var/lock", 0, "size=4096");
    support::write_file("/var/lock/filler", std::string(4096, 'x'));
    expect_refusal("f", 3, "can't write the lock '/var/lock/_f.lck': No space left on device");
    EXPECT_EQ(read_file(file), kText);
}

TEST_F(ConfRefusals, a_lock_folder_that_is_missing_is_said_to_be) {
    const MountedOver parent(std::filesystem::canonical("/var/lock").parent_path().string(), 0, "");
    expect_refusal("f", 3, "can't create the lock '/var/lock/_f.lck': no such file or folder");
    EXPECT_EQ(read_file(file), kText);
}

TEST_F(ConfRefusals, who_holds_the_lock_is_named) {
    support::write_file("/var/lock/_f.lck", lock_of(getpid(), 120'000));
    std::list<KorvexProcess> processes;
    for (const Change &change : kChanges)
        processes.emplace_back(words_of(change, "f"), folder.path(), kInput);
    auto process = processes.begin();
    for (const Change &change : kChanges) {
        const Outcome outcome = (process++)->wait();
        EXPECT_EQ(outcome.exit_status, 1);
        EXPECT_THAT(outcome.err, testing::MatchesRegex(
                                     speaker(change) + "f: lock not obtained within 10 seconds, held by process " +
                                     std::to_string(getpid()) + " \\(test_korvex\\) for 2 minutes 1[0-9] seconds\n"));
    }
    EXPECT_EQ(read_file(file), kText);
}

// Once it blocks the signal, the tool has its own way with it.
void wait_until_it_blocks(pid_t pid, int signal) {
    for (;;) {
        const std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
        const size_t mask = status.find("SigBlk:\t");
        ASSERT_EQ(status.find("State:\tZ"), std::string::npos) << "it has ended";
        if (mask != std::string::npos && (std::stoull(status.substr(mask + 8), nullptr, 16) >> (signal - 1) & 1) != 0)
            return;
        usleep(1000);
    }
}

TEST_F(ConfRefusals, a_signal_ends_the_wait_and_leaves_nothing) {
    support::write_file("/var/lock/_f.lck", lock_of(getpid()));
    // A shell starts what it runs in the background with SIGINT ignored, and so it would stay for the tool.
    const auto before = std::signal(SIGINT, SIG_DFL);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        for (const Change &change : kChanges) {
            KorvexProcess process(words_of(change, "f"), folder.path(), kInput);
            wait_until_it_blocks(process.pid(), signal);
            process.send(signal);
            EXPECT_EQ(process.wait(),
                      Outcome(128 + signal, "", speaker(change) + "stopped by a signal; nothing was changed\n"));
        }
    std::signal(SIGINT, before);
    EXPECT_EQ(read_file(file), kText);
    EXPECT_EQ(folder.names(), Words{"f"});
}

// Wherever it comes, the file is the old one or the new one, and nothing else is there.
TEST_F(ConfRefusals, a_signal_at_any_moment_leaves_the_old_file_or_the_new_one) {
    constexpr int kMoments = 60;
    const std::string large = kText + std::string("# ") + std::string(200'000, 'x') + "\n";
    const std::string changed = "[s]\nk = new" + large.substr(std::string(kText).size() - 1);
    for (int moment = 0; moment < kMoments; ++moment) {
        folder.file("f", large);
        KorvexProcess process({"conf", "set", "f", "k", "new", "-s", "s"}, folder.path());
        usleep(static_cast<useconds_t>(moment) * 500);
        process.send(SIGTERM);
        const Outcome outcome = process.wait();
        ASSERT_THAT(outcome.exit_status, testing::AnyOf(0, 128 + SIGTERM)) << outcome;
        const std::string text = read_file(file);
        if (outcome.exit_status == 0) {
            EXPECT_EQ(text, changed);
        } else {
            EXPECT_TRUE(text == large || text == changed);
        }
        EXPECT_EQ(folder.names(), Words{"f"});
        EXPECT_TRUE(std::filesystem::is_empty("/var/lock"));
    }
}

// --- the file ---

TEST_F(ConfRefusals, a_read_only_file_system_is_said_to_be) {
    const support::SmallDisk disk(1 << 16);
    const std::string there = disk.file("f", kText);
    ASSERT_EQ(mount("", disk.path("").c_str(), "", MS_REMOUNT | MS_RDONLY, ""), 0);
    expect_refusal(there, 3, "can't make a file beside '" + there + "': Read-only file system");
    EXPECT_EQ(read_file(there), kText);
}

TEST_F(ConfRefusals, a_full_disk_leaves_the_file_and_no_other) {
    const support::SmallDisk disk(1 << 16);
    const std::string there = disk.file("f", kText);
    disk.fill_up_to(0);
    for (const Change &change : kChanges) {
        // Of one page the text that is left when the section is gone needs none.
        if (change.before.back() != "remove") {
            EXPECT_EQ(korvex(words_of(change, there), kInput),
                      Outcome(3, "", speaker(change) + there + ": No space left on device\n"));
        }
    }
    EXPECT_EQ(read_file(there), kText);
    EXPECT_EQ(korvex({"conf", "set", disk.path("new"), "k", "v"}),
              Outcome(3, "", "korvex: conf set: " + disk.path("new") + ": No space left on device\n"));
    EXPECT_EQ(disk.names(), (Words{"f", "filler"}));
}

TEST_F(ConfRefusals, a_missing_right_leaves_the_file) {
    const support::SmallDisk disk(1 << 16);
    const std::string there = disk.file("f", kText);
    ASSERT_EQ(chmod(there.c_str(), 0666), 0);
    const auto refused_as_nobody = [&](const std::string &text) {
        for (const Change &change : kChanges) {
            const int result = support::in_child_as_nobody([&] {
                const Outcome outcome = KorvexProcess(words_of(change, there), "/", kInput).wait();
                if (outcome == Outcome(3, "", speaker(change) + there + ": " + text + "\n"))
                    return 0;
                std::cerr << outcome << "\n";
                return 1;
            });
            EXPECT_EQ(result, 0) << text;
        }
        EXPECT_EQ(read_file(there), kText);
        EXPECT_EQ(disk.names(), Words{"f"});
    };

    ASSERT_EQ(chmod(disk.path("").c_str(), 0755), 0);
    refused_as_nobody("can't make a file beside '" + there + "': Permission denied");
    ASSERT_EQ(chmod(disk.path("").c_str(), 0777), 0);
    refused_as_nobody("can't replace '" + there + "': the new file can't be given its owner: operation not permitted");
    ASSERT_EQ(chmod(there.c_str(), 0600), 0);
    refused_as_nobody("Permission denied");
}

TEST_F(ConfRefusals, what_is_no_file_is_refused) {
    expect_refusal(".", 3, "Is a directory");
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    expect_refusal("pipe", 3, "not a regular file");
    std::filesystem::create_symlink("loop", folder.path("loop"));
    expect_refusal("loop", 3, "Too many levels of symbolic links");
    ASSERT_EQ(symlink(file.c_str(), folder.path("theirs").c_str()), 0);
    ASSERT_EQ(lchown(folder.path("theirs").c_str(), 1234, 1234), 0);
    expect_refusal("theirs", 3, "it is a link that belongs to another user");
    EXPECT_EQ(read_file(file), kText);
}

TEST_F(ConfRefusals, the_folder_that_is_missing_is_named) {
    std::filesystem::create_directory(folder.path("a"));
    std::filesystem::create_symlink("a/none/f", folder.path("link"));
    expect({
        {{"conf", "set", "a/b/c/f", "k", "v"}, {3, "", "korvex: conf set: a/b/c/f: no such folder: 'a/b'\n"}},
        {{"conf", "set", "link", "k", "v"}, {3, "", "korvex: conf set: link: no such folder: 'a/none'\n"}},
        {{"conf", "get", "a/b/c/f", "k"}, {1, "", "korvex: conf get: a/b/c/f: no such folder: 'a/b'\n"}},
        {{"conf", "unset", "b/f", "k"}, {1, "", "korvex: conf unset: b/f: no such folder: 'b'\n"}},
        {{"conf", "check", "b/f"}, {1, "", "korvex: conf check: b/f: no such folder: 'b'\n"}},
    });
    EXPECT_EQ(std::filesystem::is_empty(folder.path("a")), true);
}

// --- no terminal, and one ---

TEST_F(ConfRefusals, a_terminal_changes_nothing_that_is_printed) {
    for (const Words &words : {Words{"conf", "get", "f", "k", "-s", "s"}, Words{"conf", "list", "f"},
                               Words{"conf", "set", "f", "k", "w", "-s", "s", "--dry-run"}}) {
        std::string expected;
        for (const char byte : output_of(words))
            expected += byte == '\n' ? std::string("\r\n") : std::string(1, byte);
        EXPECT_EQ(TerminalProcess(words, folder.path()).wait().out, expected);
    }
}

}  // namespace
