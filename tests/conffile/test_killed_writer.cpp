// A process that is killed while it changes a file: the file stays whole, and the next one can go on.
#include <csignal>
#include <ctime>
#include <random>

#include "conf_file_test.h"

namespace {

constexpr int kKeys = 5;

// What the writer does, told step by step in shared memory, so that a kill at any moment leaves the truth behind.
struct Progress {
    int begun = 0;
    int done = 0;
    int failed = 0;
};

int load(const int &value) {
    return __atomic_load_n(&value, __ATOMIC_ACQUIRE);
}

void store(int &value, int number) {
    __atomic_store_n(&value, number, __ATOMIC_RELEASE);
}

void spin(int64_t nanoseconds) {
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return time.tv_sec * 1'000'000'000 + time.tv_nsec;
    };
    for (const int64_t end = now() + nanoseconds; now() < end;) {}
}

// Change number n sets key n % kKeys. The texts have lengths all over, so that a cut or mixed one would show.
std::string key_of(int number) {
    return "k" + std::to_string(number % kKeys);
}

std::string value_of(int number) {
    return std::to_string(number) + std::string(static_cast<size_t>(number * 131 % 9000), 'a' + number % 26) + ".";
}

class KilledWriter : public testing::TestWithParam<const char *> {
  protected:
    bool by_editor() const { return std::string(GetParam()) == "Editor"; }

    int32_t change(int number) const {
        if (by_editor())
            return Set_Conf_File_String_Value(file_, "s", key_of(number).c_str(), value_of(number).c_str());

        // Result 0 says nothing there, so the list is merged under the same lock.
        const lists::ConfList section = lists::make_conf({{"s", {{key_of(number), value_of(number)}}}});
        return Update_Conf_File_Section(file_, "s", section);
    }

    // Changes the file from `number` on until it is killed.
    pid_t start_writer(int number) {
        store(progress_->begun, number - 1);
        store(progress_->done, number - 1);
        return start_endless_child([this, number] {
            for (int next = number;; next++) {
                store(progress_->begun, next);
                if (change(next) != 0)
                    store(progress_->failed, next);
                store(progress_->done, next);
            }
            return 0;
        });
    }

    // Every key has the value of its last change that was done; the one change under way may be in the file or not.
    void expect_whole_file() const {
        const int done = load(progress_->done);
        const int begun = load(progress_->begun);
        const lists::Conf conf = lists::conf_in_file(path_);
        ASSERT_EQ(conf.size(), 1U);
        ASSERT_EQ(conf[0].name, "s");
        ASSERT_EQ(conf[0].pairs.size(), static_cast<size_t>(kKeys) + 1);
        EXPECT_EQ(conf[0].pairs.back(), (lists::Pair{"last", "1"})) << "the end of the file was lost";
        for (int key = 0; key < kKeys; key++) {
            const std::string &value = conf[0].pairs[static_cast<size_t>(key)].value;
            int last = done;
            while (last % kKeys != key)
                last--;
            if (begun != done && begun % kKeys == key && value == value_of(begun))
                continue;
            EXPECT_TRUE(value == value_of(last)) << "change " << begun << " begun, " << done << " done, key " << key
                                                 << " is " << value.substr(0, 40) << " of " << value.size() << " bytes";
        }
    }

    // The next writer gets the lock at once; only for a lock that was still empty it waits, on a clock of its own.
    void expect_next_writer_goes_on(int number) {
        const support::FakeClock clock;
        ASSERT_EQ(change(number), 0);
        EXPECT_LE(clock.sleeps(), 3000);
        store(progress_->begun, number);
        store(progress_->done, number);
        expect_whole_file();
        EXPECT_FALSE(support::exists("/var/lock/_app.conf.lck"));
        if (by_editor()) {
            EXPECT_EQ(folder_.names(), std::vector<std::string>{"app.conf"});
        }
    }

    support::TempFolder folder_;
    const std::string path_ = folder_.path("app.conf");
    const char *const file_ = path_.c_str();
    Shared<Progress> progress_;
};

TEST_P(KilledWriter, leaves_a_whole_file_and_a_lock_that_is_taken_over) {
    constexpr int kKills = 200;
    std::mt19937 random(20240115);
    std::uniform_int_distribution<int64_t> delay(0, 600'000);
    std::string text = "[s]\n";
    for (int number = kKeys; number < 2 * kKeys; number++)
        text += key_of(number) + " = " + value_of(number) + "\n";
    support::write_file(path_, text + "last = 1\n");

    int number = 2 * kKeys;
    int locks_left = 0;
    for (int kill_number = 0; kill_number < kKills && !HasFatalFailure(); kill_number++) {
        SCOPED_TRACE(testing::Message() << "kill " << kill_number);
        const pid_t writer = start_writer(number);
        while (load(progress_->begun) < number + kill_number % 3) {}
        spin(delay(random));
        ASSERT_EQ(kill(writer, SIGKILL), 0);
        ASSERT_EQ(support::wait_for(writer), 128 + SIGKILL);

        EXPECT_EQ(load(progress_->failed), 0) << "a change failed";
        locks_left += support::exists("/var/lock/_app.conf.lck");
        expect_whole_file();
        // The next writer makes the interrupted change again, so that the changes in the file have no gap.
        number = load(progress_->done) + 1;
        expect_next_writer_goes_on(number++);
    }
    std::printf("%d of %d kills left a lock behind\n", locks_left, kKills);
}

INSTANTIATE_TEST_SUITE_P(EachWay, KilledWriter, testing::Values("Editor", "SectionMerger"),
                         [](const auto &way) { return std::string(way.param); });

}  // namespace
