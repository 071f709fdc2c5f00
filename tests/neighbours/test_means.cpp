// The means of this suite against victims that make the classic mistakes: an attack that is possible is won every time.
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <regex>

#include "world.h"

namespace neighbours {
namespace {

class Means : public Neighbours {
  protected:
    // A file that is swapped for a link to root's secret.
    Scene swapped_file() {
        Scene scene;
        scene.prepare = [this] {
            renew();
            as_neighbour([this] {
                write_file(home("file"), "his own");
                plant_link(vault.path("secret"), home("link"));
            });
        };
        scene.attack = scene.retreat = [this] { exchange(home("file"), home("link")); };
        scene.judge = [this](const Answer &answer) {
            EXPECT_TRUE(answer.ended());
            EXPECT_EQ(vault.changes(), "");
            shown += neighbour.files_that_show(Vault::kSecret, home()).empty() ? 0 : 1;
        };
        return scene;
    }

    int shown = 0;  // in how many turns the secret could be read afterwards
};

// Looks, then opens: the mistake that a swap between the two is made for.
int64_t careless_look_and_read(const std::string &path, const std::string &copy) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return -ELOOP;
    const int in = open(path.c_str(), O_RDONLY);
    const int out = open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::array<char, 100> bytes{};
    const ssize_t length = read(in, bytes.data(), bytes.size());
    return write(out, bytes.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
}

TEST_F(Means, swap_between_look_and_open_is_won) {
    Scene scene = swapped_file();
    scene.victim = [this] { return careless_look_and_read(home("file"), home("copy")); };

    EXPECT_GE(at_every_call(neighbour, scene), 5);
    EXPECT_EQ(shown, 1);  // between the look and the open, and nowhere else
}

TEST_F(Means, looking_a_second_time_is_beaten_in_a_window) {
    Scene scene = swapped_file();
    scene.victim = [this]() -> int64_t {
        const int64_t result = careless_look_and_read(home("file"), home("copy"));
        struct stat status {};
        if (lstat(home("file").c_str(), &status) != 0 || !S_ISREG(status.st_mode))
            return unlink(home("copy").c_str());
        return result;
    };

    EXPECT_GE(at_every_call(neighbour, scene), 5);
    EXPECT_EQ(shown, 0);
    EXPECT_GE(in_every_window(neighbour, scene), 10);
    EXPECT_GE(shown, 3);
}

TEST_F(Means, victim_that_hangs_at_a_pipe_is_reported) {
    as_neighbour([&] { plant_pipe(home("pipe")); });

    const Answer answer = run_root([&]() -> int64_t { return open(home("pipe").c_str(), O_RDONLY); });

    EXPECT_FALSE(answer.ended());
    EXPECT_EQ(answer.how(), "was stuck in openat, its call 1");
}

TEST_F(Means, calls_are_told_with_their_names_and_texts) {
    std::string told;

    const Answer answer = run_root(
        [&]() -> int64_t {
            return mkdir(home("new").c_str(), 0700) == 0 && access(home("new").c_str(), F_OK) == 0 ? 5 : 6;
        },
        [&](const SystemCall &call) { told += call.how() + " " + call.text(0) + "\n"; });

    EXPECT_EQ(answer.result, 5);
    EXPECT_EQ(told, "call 1 (mkdir) " + home("new") + "\ncall 2 (access) " + home("new") + "\n");
}

TEST_F(Means, ends_by_a_signal_are_told) {
    EXPECT_EQ(run_root([]() -> int64_t { return raise(SIGKILL); }).how(), "was ended by signal 9");
}

TEST_F(Means, programs_are_followed_from_their_start) {
    const Answer answer = run_root_program({"/bin/sh", "-c", "echo told; exit 3"});

    EXPECT_EQ(answer.result, 3);
    EXPECT_EQ(answer.output, "told\n");
    EXPECT_EQ(answer.calls.at(0), "execve");
}

TEST_F(Means, system_calls_can_be_refused) {
    const Answer answer = run_root([&]() -> int64_t {
        support::refuse_system_call(SYS_mkdir, ENOSYS);
        return mkdir(home("new").c_str(), 0700) == 0 ? 0 : -errno;
    });

    EXPECT_EQ(answer.result, -ENOSYS);
}

TEST_F(Means, neighbour_has_no_way_of_his_own) {
    EXPECT_FALSE(neighbour.can([&] { read_file(vault.path("secret")); }));
    EXPECT_FALSE(neighbour.can([&] { write_file(vault.path("new"), ""); }));
    EXPECT_TRUE(neighbour.can([&] { write_file(home("new"), ""); }));
    EXPECT_TRUE(neighbour.can([] { write_file("/var/lock/new", ""); }));
}

TEST_F(Means, every_change_of_the_vault_is_told) {
    vault.file("edited", "before", 0644);
    vault.file("removed", "");
    vault.file("opened", "", 0600);
    vault.file("set", "", 0600);
    vault.folder("folder");

    write_file(vault.path("edited"), "after");
    unlink(vault.path("removed").c_str());
    chmod(vault.path("opened").c_str(), 0666);
    const timespec times[] = {{7, 0}, {7, 0}};
    utimensat(AT_FDCWD, vault.path("set").c_str(), times, 0);
    write_file(vault.path("folder/planted"), "x");

    // The times that nobody chose are left out.
    const std::string file = "owner 0, group 0, links 1, content ";
    EXPECT_EQ(std::regex_replace(vault.changes(), std::regex(", time [0-9]{2,}\\.[0-9]+"), ""),
              "edited was mode 100644, " + file + "\"before\", is mode 100644, " + file + "\"after\"\n" +
                  "opened was mode 100600, " + file + "\"\", is mode 100666, " + file + "\"\"\n" + "removed is gone\n" +
                  "set was mode 100600, " + file + "\"\", is mode 100600, " + file + "\"\", time 7.0\n" +
                  "folder/planted is new: mode 100644, " + file + "\"x\"\n");
}

TEST_F(Means, privileged_files_are_found) {
    write_file(home("tool"), "");
    chmod(home("tool").c_str(), 04755);
    as_neighbour([&] {
        write_file(home("his"), "");
        chmod(home("his").c_str(), 06755);
    });

    EXPECT_EQ(privileged_files(home()), std::vector<std::string>{"tool"});
}

TEST_F(Means, maze_leads_to_its_target) {
    as_neighbour([&] {
        write_file(home("file"), "found");
        plant_maze(home("maze"), home("file"));
    });
    // Where something is mounted on the machine meanwhile, the kernel begins the look-up anew, and counts the links twice:
    // it may then give up as at the 41st. A maze that is too long ends by the test's time limit.
    std::array<char, 5> text{};
    int end = -1;
    do
        end = open(home("maze/38").c_str(), O_RDONLY | O_CLOEXEC);
    while (end < 0 && errno == ELOOP);
    ASSERT_EQ(read(end, text.data(), text.size()), 5);
    EXPECT_EQ(std::string(text.data(), text.size()), "found");
    close(end);
}

TEST_F(Means, restless_neighbour_swaps_until_he_is_stopped) {
    as_neighbour([&] {
        write_file(home("one"), "1");
        write_file(home("other"), "2");
    });
    {
        const Restless restless(neighbour, [&] { exchange(home("one"), home("other")); });
        while (read_file(home("one")) != "2") {}
        while (read_file(home("one")) != "1") {}
    }
    const std::string last = read_file(home("one"));
    EXPECT_EQ(read_file(home("one")), last);
}

TEST_F(Means, events_wake_the_neighbour) {
    const Restless restless(neighbour, home(), IN_CREATE, [&] { replace(home("new"), home("taken")); });

    as_neighbour([&] { write_file(home("new"), "x"); });
    while (!exists(home("taken"))) {}
}

}  // namespace
}  // namespace neighbours
