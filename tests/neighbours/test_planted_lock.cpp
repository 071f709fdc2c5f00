// What a neighbour puts at the name of a lock. Anybody may take a lock, and keep it for its time; nobody may make root
// open, read or wait for something else by it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <ostream>

#include "fileio.h"
#include "lock_content.h"
#include "world.h"

namespace neighbours {
namespace {

using support::lock_bytes;
using testing::ElementsAre;
using testing::HasSubstr;

// Notes whether anybody opens or reads a file.
class Watch {
  public:
    explicit Watch(const std::string &file) : descriptor_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        EXPECT_GE(inotify_add_watch(descriptor_, file.c_str(), IN_OPEN | IN_ACCESS), 0);
    }
    ~Watch() { close(descriptor_); }
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    // Since the last time that this was asked.
    bool touched() const {
        std::array<char, 4096> events{};
        bool any = false;
        while (read(descriptor_, events.data(), events.size()) > 0)
            any = true;
        return any;
    }

  private:
    int descriptor_;
};

struct Wait {
    const char *name;
    int32_t (*wait)(const char *path, int32_t timeout);
};

std::ostream &operator<<(std::ostream &out, const Wait &wait) {
    return out << wait.name;
}

constexpr Wait kWaits[] = {
    {"Get_File_Lock", Get_File_Lock},
    {"Get_File_Lock_Ex", Get_File_Lock_Ex},
    {"Check_File_Lock", Check_File_Lock},
};

class PlantedLock : public Neighbours, public testing::WithParamInterface<Wait> {
  protected:
    static constexpr int32_t kTimeout = 2;  // a few passes, and so a few hundred turns

    PlantedLock() {
        chmod("/var/lock", 0777);
        support::empty_lock_folder();
    }

    std::string path() const { return home("app.conf"); }
    std::string lock() const {
        if (GetParam().wait == Get_File_Lock_Ex)
            return home("app.conf.lck");
        return GetParam().wait == Get_File_Lock ? "/var/lock/_app.conf.lck" : "/var/lock/app.conf.lck";
    }
    // What is swapped with the lock: it must lie on the same file system.
    std::string other() const { return lock() + ".other"; }

    Body waiting(int32_t timeout = kTimeout) const {
        return [this, timeout]() -> int64_t { return GetParam().wait(path().c_str(), timeout); };
    }

    void clear() const {
        renew();
        unlink(lock().c_str());
        unlink(other().c_str());
    }
    Scene swapping(const Watch &watch);
    // A lock of the first process, which lives.
    void put_live_lock(const std::string &name) const {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        write_file(name, lock_bytes(now.tv_sec * 1000, 1));
    }
};

// A wait for the lock, which is swapped for the other meanwhile. What is watched must not be touched.
Scene PlantedLock::swapping(const Watch &watch) {
    Scene scene;
    scene.victim = waiting();
    scene.attack = scene.retreat = [this] { exchange(lock(), other()); };
    scene.judge = [this, &watch](const Answer &answer) {
        EXPECT_TRUE(answer.ended()) << answer.how();
        EXPECT_FALSE(watch.touched());
        EXPECT_EQ(vault.changes(), "");
    };
    return scene;
}

std::string name_of(const testing::TestParamInfo<Wait> &info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, PlantedLock, testing::ValuesIn(kWaits), name_of);

// The bytes say that a holder has ended: who reads them removes the lock, and tells four of the bytes in his log.
TEST_P(PlantedLock, link_does_not_make_root_open_what_it_leads_to) {
    const std::string secret = vault.file("secret", lock_bytes(1'700'000'000'000, 999'999));
    const Watch watch(secret);
    as_neighbour([&] { plant_link(secret, lock()); });

    const Answer answer = run_root(waiting());

    EXPECT_TRUE(answer.ended()) << answer.how();
    EXPECT_EQ(answer.result, 0);
    EXPECT_FALSE(watch.touched());
    EXPECT_THAT(answer.messages, ElementsAre(HasSubstr("timeout!")));
    EXPECT_EQ(vault.changes(), "");
}

TEST_P(PlantedLock, link_to_a_pipe_does_not_make_root_take_what_is_in_it) {
    const std::string pipe = vault.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int inside = open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const std::string bytes = lock_bytes(1'700'000'000'000, 999'999);
    ASSERT_EQ(write(inside, bytes.data(), bytes.size()), 16);
    vault.remember();
    const Watch watch(pipe);
    as_neighbour([&] { plant_link(pipe, lock()); });

    const Answer answer = run_root(waiting());

    EXPECT_TRUE(answer.ended()) << answer.how();
    EXPECT_FALSE(watch.touched());
    std::array<char, 16> left{};
    EXPECT_EQ(read(inside, left.data(), left.size()), 16);
    close(inside);
}

TEST_P(PlantedLock, file_swapped_for_a_link_at_any_moment_does_not_lead_root_on) {
    const std::string secret = vault.file("secret", lock_bytes(1'700'000'000'000, 999'999));
    const Watch watch(secret);
    Scene scene = swapping(watch);
    scene.prepare = [&] {
        clear();
        as_neighbour([&] {
            put_live_lock(lock());
            plant_link(secret, other());
        });
        (void)watch.touched();
    };
    scene.when = [](const SystemCall &call) { return call.index <= 14; };  // two passes

    EXPECT_GE(at_every_call(neighbour, scene), 8);
    EXPECT_GE(in_every_window(neighbour, scene), 20);
}

// Root's own link is followed, but it stands in a folder of the neighbour's, who swaps it for his own.
TEST_P(PlantedLock, link_of_roots_swapped_for_another_does_not_lead_root_on) {
    const std::string secret = vault.file("secret", lock_bytes(1'700'000'000'000, 999'999));
    const std::string agreed = vault.file("agreed", "");
    const Watch watch(secret);
    Scene scene = swapping(watch);
    scene.prepare = [&] {
        clear();
        put_live_lock(agreed);
        vault.remember();
        ASSERT_EQ(symlink(agreed.c_str(), lock().c_str()), 0);
        as_neighbour([&] { plant_link(secret, other()); });
        (void)watch.touched();
    };
    scene.when = [](const SystemCall &call) { return call.index <= 22; };

    EXPECT_GE(at_every_call(neighbour, scene), 10);
    EXPECT_GE(in_every_window(neighbour, scene), 40);
}

TEST_P(PlantedLock, pipe_at_any_moment_does_not_hold_root) {
    Scene scene;
    scene.prepare = [&] {
        clear();
        as_neighbour([&] {
            put_live_lock(lock());
            plant_pipe(other());
        });
    };
    scene.victim = waiting();
    scene.attack = scene.retreat = [&] { exchange(lock(), other()); };
    scene.judge = [&](const Answer &answer) {
        EXPECT_TRUE(answer.ended()) << answer.how();
        EXPECT_EQ(answer.result, 0);
    };
    scene.when = [](const SystemCall &call) { return call.index <= 14; };

    EXPECT_GE(at_every_call(neighbour, scene), 8);
    EXPECT_GE(in_every_window(neighbour, scene), 20);
}

// A stale lock that goes and comes back by one rename: no moment is without one.
TEST_P(PlantedLock, stale_lock_that_is_replaced_all_the_time_does_not_keep_root_beyond_the_time_out) {
    as_neighbour([&] { write_file(lock(), lock_bytes(0, 999'999)); });
    int calls = 0;

    const Answer answer = run_root(waiting(20), [&](const SystemCall &) {
        if (calls++ < 5000)  // a victim that nothing ends is to fail the test, not to hang it
            as_neighbour([&] {
                write_file(other(), lock_bytes(0, 999'999));
                replace(other(), lock());
            });
    });

    EXPECT_TRUE(answer.ended()) << answer.how();
    EXPECT_EQ(answer.result, 0);
    EXPECT_LT(calls, 5000);
    EXPECT_THAT(answer.messages, ElementsAre(HasSubstr("timeout!")));
}

TEST_P(PlantedLock, flock_that_is_never_given_back_does_not_keep_a_stale_lock) {
    as_neighbour([&] { write_file(lock(), lock_bytes(0, 999'999)); });
    const Restless keeper(neighbour, [&] {
        const int file = open(lock().c_str(), O_RDONLY | O_CLOEXEC);
        if (file >= 0 && flock(file, LOCK_EX | LOCK_NB) == 0)
            pause();
        close(file);
    });
    // The neighbour has it when the victim begins.
    const int file = open(lock().c_str(), O_RDONLY | O_CLOEXEC);
    while (flock(file, LOCK_EX | LOCK_NB) == 0)
        flock(file, LOCK_UN);
    close(file);

    const Answer answer = run_root(waiting(10'000));

    EXPECT_TRUE(answer.ended()) << answer.how();
    EXPECT_THAT(answer.messages, ElementsAre(HasSubstr("is not existed!")));
}

TEST_P(PlantedLock, folder_does_not_fill_the_log) {
    as_neighbour([&] { make_folder(lock()); });

    const Answer answer = run_root(waiting(2500));

    EXPECT_TRUE(answer.ended()) << answer.how();
    EXPECT_THAT(answer.messages, ElementsAre(HasSubstr("timeout!")));
    rmdir(lock().c_str());
}

}  // namespace
}  // namespace neighbours
