// A transaction is killed before each of its system calls in turn: the file is the old one or the new one, whole, with
// its attributes, nobody can read what is left, and the next transaction gets through.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <map>
#include <ostream>
#include <string>

#include "../neighbours/stepper.h"
#include "faults.h"
#include "korvex/conf.hpp"
#include "lock_content.h"
#include "sandbox.h"
#include "transaction_world.h"

namespace {

namespace conf = korvex::conf;
namespace world = transaction_world;

// One way to change a file, and what it is before and after.
struct Job {
    const char *name;
    std::string before;  // empty: there is no file
    std::string after;
    conf::transaction_options options;
};

void PrintTo(const Job &job, std::ostream *out) {
    *out << job.name;
}

void change(const std::string &path, const conf::transaction_options &options) {
    conf::transaction edit(path, options);
    edit.set("s", "k", "new");
    edit.set("s", "l", "more");
    edit.erase("s", "gone");
    edit.commit();
}

const Job kJobs[] = {
    {"plain", "[s]\nk = old\ngone = 1\n", "[s]\nk = new\nl = more\n\n", {}},
    {"dressed", "\xEF\xBB\xBF\r\n[s]\r\nk = old\r\ngone = 1", "\xEF\xBB\xBF\r\n[s]\r\nk = new\r\nl = more", {}},
    {"backup", "[s]\nk = old\ngone = 1\n", "[s]\nk = new\nl = more\n\n", {.backup = "~"}},
    {"new_file", "", "[s]\nk = new\nl = more\n\n", {}},
};

class KilledTransaction : public testing::TestWithParam<Job> {
  protected:
    void SetUp() override { ASSERT_TRUE(support::can_be_nobody()) << "run this as root"; }

    // All anew: the file with all its attributes, and no lock.
    void prepare() {
        for (const std::string &name : folder_.names())
            unlink(folder_.path(name).c_str());
        support::empty_lock_folder();
        if (GetParam().before.empty())
            return;
        support::write_file(path_, GetParam().before);
        world::make_special(path_);
        attributes_ = world::attributes_of(path_);
    }

    // Changes the file until the call `last` (from 1), before which it is killed. False where it has no such call.
    bool change_until(int64_t last) {
        const neighbours::Answer answer = neighbours::run_root(
            [this] {
                change(path_, GetParam().options);
                return 0;
            },
            [&](const neighbours::SystemCall &call) {
                look();
                if (call.index == last) {
                    where_ = call.how();
                    kill(call.process, SIGKILL);
                }
            });
        EXPECT_EQ(answer.stuck, "");
        return answer.signal == SIGKILL;
    }

    // At any moment: whatever lies there is for nobody who could not read the file before.
    void look() const {
        for (const std::string &name : world::leftovers(folder_)) {
            struct stat status {};
            if (!name.starts_with("$$") || stat(folder_.path(name).c_str(), &status) != 0)
                continue;
            const bool is_private = (status.st_mode & 077U) == 0;
            const bool is_dressed = status.st_uid == attributes_.owner && status.st_gid == attributes_.group;
            const bool is_like_new = GetParam().before.empty() && (status.st_mode & 0777U) == 0644U;
            const bool is_like_old = is_dressed && (status.st_mode & 0777U) == attributes_.bits;
            EXPECT_TRUE(is_private || is_like_old || is_like_new)
                << name << " has bits " << std::oct << (status.st_mode & 07777U);
        }
    }

    void expect_old_or_new_file() {
        const bool is_there = support::exists(path_);
        const std::string text = is_there ? support::read_file(path_) : "";
        EXPECT_TRUE(text == GetParam().before || text == GetParam().after) << text;
        outcomes_[text == GetParam().after]++;
        if (!GetParam().before.empty()) {
            EXPECT_TRUE(is_there);
            EXPECT_EQ(world::attributes_of(path_), attributes_);
        }
        if (support::exists(path_ + "~")) {
            EXPECT_EQ(support::read_file(path_ + "~"), GetParam().before);
        }
        for (const std::string &name : world::leftovers(folder_))
            EXPECT_TRUE(Check_Temp_Filename(name.c_str()) == 0 || name == "app.conf~") << name;
    }

    // The lock of the killed one is taken over; only for one that was never filled it waits, on a clock of its own.
    void expect_next_one_gets_through() {
        const support::FakeClock clock;
        ASSERT_NO_THROW(conf::set(path_, "next", "n", "1"));
        EXPECT_EQ(conf::get(path_, "next", "n"), "1");
        EXPECT_FALSE(support::exists("/var/lock/_app.conf.lck"));
    }

    support::SmallDisk folder_{1 << 20};
    const std::string path_ = folder_.path("app.conf");
    world::Attributes attributes_;
    std::string where_;
    std::map<bool, int> outcomes_;
};

TEST_P(KilledTransaction, leaves_the_old_file_or_the_new_one) {
    for (int64_t last = 1; !HasFailure(); last++) {
        prepare();
        if (!change_until(last))
            break;
        SCOPED_TRACE("killed before " + where_);
        expect_old_or_new_file();
        expect_next_one_gets_through();
    }
    EXPECT_EQ(support::read_file(path_), GetParam().after) << "unharmed";
    EXPECT_GT(outcomes_[false], 20);
    EXPECT_GT(outcomes_[true], 0);
    std::printf("%d kills left the old file, %d the new one\n", outcomes_[false], outcomes_[true]);
}

INSTANTIATE_TEST_SUITE_P(EachWay, KilledTransaction, testing::ValuesIn(kJobs),
                         [](const auto &job) { return std::string(job.param.name); });

}  // namespace
