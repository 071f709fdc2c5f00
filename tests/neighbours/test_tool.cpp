// The tool korvex in the hands of root, in folders and at locks that others can reach.
#include <sys/stat.h>
#include <unistd.h>

#include "world.h"

namespace neighbours {
namespace {

class Tool : public Neighbours {
  protected:
    static std::vector<std::string> korvex(std::vector<std::string> words) {
        words.insert(words.begin(), KORVEX_PROGRAM);
        return words;
    }
    mode_t mode(const std::string &path) const {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777;
    }
};

TEST_F(Tool, lock_files_are_never_writable_for_others_whatever_the_umask_is) {
    const std::string lock = "/var/lock/_app.conf.lck";
    const struct {
        std::vector<std::string> words;
        mode_t made;  // the bits of a file that the command makes
    } rows[] = {
        {{"conf", "set", home("app.conf"), "key", "value", "-s", "a"}, 0666},
        {{"conf", "set", home("app.conf"), "key", "value"}, 0666},
        {{"lock", home("app.conf"), "--", "touch", home("app.conf")}, 0666},
        {{"conf", "section", "replace", home("app.conf"), "a"}, 0666},
    };
    umask(0);
    for (const auto &[words, made] : rows) {
        SCOPED_TRACE(testing::PrintToString(words));
        int seen = 0;
        const Answer answer = run_root_program(korvex(words), [&](const SystemCall &) {
            if (!exists(lock))
                return;
            seen++;
            EXPECT_EQ(mode(lock) & (S_IWGRP | S_IWOTH), 0U);
        });
        EXPECT_EQ(answer.result, 0) << answer.output;
        EXPECT_GT(seen, 0);
        EXPECT_EQ(mode(home("app.conf")), made);
        unlink(home("app.conf").c_str());
    }
}

TEST_F(Tool, temporary_files_are_removed_from_the_folder_that_was_found_alone) {
    const std::string name = "$$@#!$$000000";
    vault.folder("spool");
    vault.file("spool/" + name, "root's, and in use");
    // A link that stands there when the folder is opened is the folder that was named.
    bool opened = false;
    Scene scene;
    scene.program = korvex({"temp", "--clean", home("left")});
    scene.when = [&](const SystemCall &call) {
        const bool after = opened;
        opened = opened || (call.name() == "openat" && call.text(1) == home("left"));
        return after;
    };
    scene.prepare = [&] {
        opened = false;
        renew();
        as_neighbour([&] {
            make_folder(home("left"));
            write_file(home("left/") + name, "");
            plant_link(vault.path("spool"), home("link"));
        });
    };
    scene.attack = [&] { exchange(home("left"), home("link")); };
    scene.judge = [&](const Answer &answer) {
        EXPECT_TRUE(answer.ended());
        EXPECT_EQ(answer.output, home("left/") + name + "\n");
        EXPECT_EQ(vault.changes(), "");
    };

    EXPECT_GT(at_every_call(neighbour, scene), 5);
}

TEST_F(Tool, status_of_a_planted_lock_opens_nothing_else) {
    const std::string lock = "/var/lock/_app.conf.lck";
    // Followed, it would be told as a lock: its first bytes as the time, the next ones as the holder.
    const std::string other = vault.file("other", "0123456789abcdef");
    for (const char *planted : {"link", "pipe"}) {
        SCOPED_TRACE(planted);
        Scene scene;
        scene.program = korvex({"lock", "--status", home("app.conf")});
        // From the first look at the lock on.
        bool looked = false;
        scene.when = [&](const SystemCall &call) {
            looked = looked || (call.name() == "newfstatat" && call.text(1) == lock);
            return looked;
        };
        scene.prepare = [&] {
            looked = false;
            renew();
            unlink(lock.c_str());
            as_neighbour([&] {
                write_file(lock, "");
                write_file(lock, "");
            });
        };
        scene.attack = [&] {
            unlink_name(lock);
            std::string(planted) == "link" ? plant_link(other, lock) : plant_pipe(lock);
        };
        scene.judge = [&](const Answer &answer) {
            EXPECT_TRUE(answer.ended());
            EXPECT_EQ(answer.result, 1) << answer.output;  // who asks for it has to wait
            EXPECT_TRUE(answer.output == "blocked by a " + std::string(planted) + "\n" ||
                        answer.output.starts_with("incomplete age "))
                << answer.output;
            EXPECT_EQ(vault.changes(), "");
        };
        EXPECT_GE(at_every_call(neighbour, scene), 4);
    }
}

TEST_F(Tool, bits_of_a_planted_file_stay_with_its_owner) {
    umask(077);
    as_neighbour([&] {
        write_file(home("app.conf"), "[a]\n");
        chmod(home("app.conf").c_str(), 0777);
    });
    write_file(home("own.conf"), "[a]\n");
    chmod(home("own.conf").c_str(), 0664);

    for (const char *name : {"app.conf", "own.conf"})
        EXPECT_EQ(run_root_program(korvex({"conf", "section", "replace", home(name), "b"})).result, 0);

    struct stat planted {};
    ASSERT_EQ(stat(home("app.conf").c_str(), &planted), 0);
    EXPECT_EQ(planted.st_uid, Neighbour::kUser);
    EXPECT_EQ(planted.st_mode & 07777, 0777U);
    struct stat own {};
    ASSERT_EQ(stat(home("own.conf").c_str(), &own), 0);
    EXPECT_EQ(own.st_uid, 0U);
    EXPECT_EQ(own.st_mode & 07777, 0664U);
}

}  // namespace
}  // namespace neighbours
