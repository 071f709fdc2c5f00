// A transaction on a disk that is full, and what a power cut would find.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "../neighbours/stepper.h"
#include "conffile.h"
#include "failure_of.h"
#include "korvex/conf.hpp"
#include "lock_content.h"
#include "sandbox.h"
#include "transaction_world.h"

namespace {

namespace conf = korvex::conf;
namespace world = transaction_world;
using testing::AnyOf;
using testing::Eq;

// Some pages of a disk, with line ends that make the last step write all of it once more.
std::string large_text() {
    std::string text = "[s]\r\nk = old\r\n";
    for (int line = 0; line < 1000; line++)
        text += "key" + std::to_string(line) + " = some value\r\n";
    return text;
}

std::string changed(std::string text) {
    return text.replace(text.find("old"), 3, "a new and longer one");
}

void change(const std::string &path) {
    conf::set(path, "s", "k", "a new and longer one");
}

class FullDisk : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(support::can_be_nobody()) << "run this as root";
        support::empty_lock_folder();
    }

    // What must hold after a change that failed, or took place.
    void judge(const std::string &path, const world::Attributes &before, bool is_done) const {
        EXPECT_TRUE(support::read_file(path) == (is_done ? changed(large_text()) : large_text()));
        EXPECT_EQ(world::attributes_of(path), before);
        EXPECT_TRUE(std::filesystem::is_empty("/var/lock"));
    }
};

TEST_F(FullDisk, leaves_the_old_file_however_much_room_there_is) {
    constexpr int64_t kPage = 4096;
    int refused = 0;
    bool is_done = false;
    for (int64_t pages = 0; !is_done && pages < 64 && !HasFailure(); pages++) {
        SCOPED_TRACE(testing::Message() << pages << " pages are free");
        const support::SmallDisk disk(1 << 20);
        const std::string path = disk.file("app.conf", large_text());
        world::make_special(path);
        const world::Attributes before = world::attributes_of(path);
        disk.fill_up_to(pages * kPage);
        try {
            change(path);
            is_done = true;
        } catch (const korvex::error &failure) {
            EXPECT_EQ(failure.code(), std::errc::no_space_on_device) << failure.what();
            refused++;
        }
        judge(path, before, is_done);
        EXPECT_EQ(world::leftovers(disk), std::vector<std::string>());

        unlink(disk.path("filler").c_str());
        change(path);
        judge(path, before, true);
    }
    EXPECT_TRUE(is_done);
    EXPECT_GT(refused, 10);
}

TEST_F(FullDisk, without_room_for_another_file_leaves_the_old_one) {
    const support::TempFolder folder;
    for (const char *inodes : {"nr_inodes=2", "nr_inodes=3", "nr_inodes=4"}) {
        ASSERT_EQ(mount("korvex-test", folder.path().c_str(), "tmpfs", 0, inodes), 0);
        const std::string path = folder.file("app.conf", large_text());
        const world::Attributes before = world::attributes_of(path);
        bool is_done = false;
        try {
            change(path);
            is_done = true;
        } catch (const korvex::error &failure) {
            EXPECT_EQ(failure.code(), std::errc::no_space_on_device) << failure.what();
        }
        judge(path, before, is_done);
        EXPECT_EQ(is_done, inodes == std::string("nr_inodes=4"));
        EXPECT_EQ(folder.names(), std::vector<std::string>{"app.conf"});
        umount(folder.path().c_str());
    }
}

// A limit on the sizes of files cuts each write short in turn, those of lock files among them.
TEST_F(FullDisk, or_a_limit_of_sizes_leaves_the_old_file) {
    const support::SmallDisk disk(1 << 20);
    const std::string path = disk.path("app.conf");
    const rlim_t final_size = changed(large_text()).size();
    std::vector<rlim_t> limits = {0, 1, 15, 16, 17, 100, 4095, 4096, 4097};
    for (rlim_t limit = 5000; limit < final_size; limit += 3000)
        limits.push_back(limit);
    limits.insert(limits.end(), {final_size - 1, final_size, final_size + 1});
    for (const rlim_t limit : limits) {
        SCOPED_TRACE(testing::Message() << "limit " << limit);
        support::write_file(path, large_text());
        world::make_special(path);
        const world::Attributes before = world::attributes_of(path);
        const int status = support::in_child([&] {
            signal(SIGXFSZ, SIG_IGN);
            const rlimit sizes{limit, limit};
            setrlimit(RLIMIT_FSIZE, &sizes);
            try {
                change(path);
                return 0;
            } catch (const korvex::error &failure) {
                // A lock that is cut short gives no reason.
                return failure.code() == std::errc::file_too_large || failure.code() == std::errc::io_error ? 1 : 2;
            }
        });
        EXPECT_EQ(status, limit < final_size ? 1 : 0);
        judge(path, before, status == 0);
        EXPECT_EQ(disk.names(), std::vector<std::string>{"app.conf"});
    }
}

// What the disk is known to have, as the system calls tell it. The worst case is assumed: nothing is there before it is
// synced, and a rename takes effect at once.
class PowerCut {
  public:
    explicit PowerCut(std::string path) : path_(std::move(path)), folder_(std::filesystem::path(path_).parent_path()) {}

    void before(const neighbours::SystemCall &call) {
        switch (call.number) {
            case SYS_write:
            case SYS_pwrite64:
            case SYS_ftruncate:
            case SYS_fchmod:
            case SYS_fchown:
            case SYS_fsetxattr:
            case SYS_fremovexattr:
                unsynced_[inode_of(call)] = call.name();
                break;
            case SYS_fsync:
                sync(call);
                break;
            case SYS_rename:
                rename(call.text(0), call.text(1), call);
                break;
            case SYS_renameat:
            case SYS_renameat2:
                rename(call.text(1), call.text(3), call);
                break;
            case SYS_unlink:
                EXPECT_FALSE(is_folder_unsynced_ && call.text(0).ends_with("/_app.conf.lck"))
                    << "the lock goes before the folder is on the disk";
                break;
            default:
                break;
        }
    }

    void at_end() const {
        EXPECT_EQ(renames_, 1);
        EXPECT_FALSE(is_folder_unsynced_);
    }
    int syncs() const { return syncs_; }

  private:
    static ino_t inode_of(const neighbours::SystemCall &call) {
        struct stat status {};
        const std::string path = "/proc/" + std::to_string(call.process) + "/fd/" + std::to_string(call.arguments[0]);
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_ino;
    }
    static ino_t inode_of(const std::string &path) {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_ino;
    }

    void sync(const neighbours::SystemCall &call) {
        syncs_++;
        const ino_t file = inode_of(call);
        unsynced_.erase(file);
        synced_[file] = true;
        if (file == inode_of(folder_))
            is_folder_unsynced_ = false;
    }

    void rename(const std::string &from, const std::string &to, const neighbours::SystemCall &call) {
        if (std::filesystem::path(to).filename() != std::filesystem::path(path_).filename())
            return;
        renames_++;
        is_folder_unsynced_ = true;
        const ino_t file = inode_of(folder_ + "/" + std::filesystem::path(from).filename().string());
        EXPECT_TRUE(synced_[file]) << call.how() << ": never synced";
        EXPECT_EQ(unsynced_[file], "") << call.how() << ": changed since it was synced";
    }

    const std::string path_;
    const std::string folder_;
    std::map<ino_t, std::string> unsynced_;  // by what call
    std::map<ino_t, bool> synced_;
    bool is_folder_unsynced_ = false;
    int renames_ = 0;
    int syncs_ = 0;
};

class PowerCutTransaction : public testing::Test {
  protected:
    void record(const neighbours::Body &body, PowerCut &power) const {
        const neighbours::Answer answer =
            neighbours::run_root(body, [&](const neighbours::SystemCall &call) { power.before(call); });
        EXPECT_TRUE(answer.ended()) << answer.how();
        power.at_end();
    }

    support::SmallDisk folder_{1 << 20};
    const std::string path_ = folder_.path("app.conf");
};

TEST_F(PowerCutTransaction, finds_no_name_of_what_is_not_on_the_disk) {
    ASSERT_TRUE(support::can_be_nobody()) << "run this as root";
    for (const std::string &text : {std::string("[s]\nk = old\n"), large_text(), std::string()}) {
        for (const char *backup : {"", "~"}) {
            unlink(path_.c_str());
            if (!text.empty()) {
                support::write_file(path_, text);
                world::make_special(path_);
            }
            PowerCut power(path_);
            record(
                [&] {
                    conf::set(path_, "s", "k", "new", {.backup = backup});
                    return 0;
                },
                power);
            EXPECT_EQ(power.syncs(), 2) << "the file and its folder, and no more";
        }
    }
}

TEST_F(PowerCutTransaction, is_not_cared_for_by_who_says_so) {
    support::write_file(path_, "[s]\nk = old\n");
    std::vector<std::string> calls = neighbours::run_root([&] {
                                         conf::set(path_, "s", "k", "new", {.durable = false});
                                         return 0;
                                     }).calls;
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "system call " + std::to_string(SYS_fsync)), 0);
    EXPECT_EQ(conf::get(path_, "s", "k"), "new");
}

// Setters of the C interface and transactions, eight processes at once.
TEST(ManyWriters, lose_nothing) {
    constexpr int kProcesses = 8;
    constexpr int kRounds = 40;
    support::empty_lock_folder();
    const support::SmallDisk disk(1 << 22);
    const std::string path = disk.file("app.conf", "[count]\nn = 0\n");
    const auto work = [&](int process) {
        for (int round = 0; round < kRounds; round++) {
            const std::string key = "p" + std::to_string(process) + "r" + std::to_string(round);
            if (process % 2 == 0) {
                if (Set_Conf_File_String_Value(path.c_str(), "keys", key.c_str(), "set") != 0)
                    return 1;
                continue;
            }
            conf::transaction edit(path, {.wait = korvex::forever, .durable = false});
            edit.set("count", "n", edit.get_as<int>("count", "n").value() + 1);
            edit.set("keys", key, "set");
            edit.commit();
        }
        return 0;
    };
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; process++)
        children.push_back(support::start_child([&, process] { return work(process); }));
    for (const pid_t child : children)
        EXPECT_EQ(support::wait_for(child), 0);

    EXPECT_EQ(conf::get_as<int>(path, "count", "n"), kProcesses / 2 * kRounds);
    for (int process = 0; process < kProcesses; process++)
        for (int round = 0; round < kRounds; round++) {
            const std::string key = "p" + std::to_string(process) + "r" + std::to_string(round);
            EXPECT_EQ(conf::get(path, "keys", key), "set") << key;
        }
    EXPECT_EQ(disk.names(), std::vector<std::string>{"app.conf"});
}

}  // namespace
