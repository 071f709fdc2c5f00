// Root copies, measures and removes a tree in a folder of the neighbour, who swaps folders and files of it for links and
// for folders that are not his.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "fileio.h"
#include "world.h"

namespace neighbours {
namespace {

// With the parameter, on a kernel that does not know openat2.
class Walks : public Neighbours, public testing::WithParamInterface<bool> {
  protected:
    // As long as the secret: of a file that is exchanged for another one, a copy takes as much as it first had.
    static constexpr const char *kHis = "his own words";

    // What root does, on the kernel of this test.
    Body as_root(const Body &body) const {
        return [=]() -> int64_t {
            if (GetParam() && !support::refuse_system_call(SYS_openat2, ENOSYS))
                return -ENOTRECOVERABLE;
            return body();
        };
    }

    // A tree of the neighbour's: a folder and a file, of each of which he has another kind at hand.
    void plant_tree() const {
        renew();
        as_neighbour([this] {
            for (const char *folder : {"tree", "tree/sub"})
                make_folder(home(folder));
            for (const char *file : {"tree/file", "tree/sub/file"})
                write_file(home(file), kHis);
            plant_link(vault.path("private"), home("link to folder"));
            plant_link(vault.path("secret"), home("link to file"));
            plant_pipe(home("pipe"));
        });
    }

    // A folder of root's with secrets in it, which everybody who gets there may read.
    void SetUp() override {
        vault.folder("private");
        for (const char *file : {"private/file", "private/second", "private/third"})
            vault.file(file, Vault::kSecret, 0644);
        vault.folder("private/folder");
        vault.remember();
    }

    // Runs the attack at each call.
    void expect_harmless(Scene &scene, int least_turns) {
        scene.judge = [this, judge = scene.judge](const Answer &answer) {
            EXPECT_TRUE(answer.ended()) << answer.how();
            EXPECT_EQ(vault.changes(), "");
            if (judge)
                judge(answer);
        };
        EXPECT_GE(at_every_call(neighbour, scene), least_turns);
    }
    // And in each window between two of the calls that go down into a folder, or make one.
    void expect_harmless_in_windows(Scene &scene, int least_turns) {
        expect_harmless(scene, least_turns);
        scene.retreat = scene.attack;
        scene.when = [](const SystemCall &call) {
            return call.number == SYS_openat || call.number == SYS_openat2 || call.number == SYS_mkdirat ||
                   call.number == SYS_unlinkat;
        };
        EXPECT_GE(in_every_window(neighbour, scene), least_turns);
    }

    void expect_no_secret_copied(const std::string &victim, const std::string &planted) {
        Scene scene;
        scene.prepare = [this] { plant_tree(); };
        scene.victim = as_root(
            [this]() -> int64_t { return Copy_Folder_Tree(home("tree").c_str(), home("copy").c_str(), nullptr); });
        scene.attack = [=, this] { exchange(home(victim), home(planted)); };
        scene.judge = [this](const Answer &) {
            for (const std::string &file : neighbour.files_that_show(Vault::kSecret, home("copy")))
                ADD_FAILURE() << file << " shows the secret";
        };
        expect_harmless_in_windows(scene, 10);
    }

    // A tree of his that root restores from a place of its own into his folder.
    void store_tree() {
        for (const char *folder : {"stored", "stored/sub", "stored/sub/folder"})
            vault.folder(folder);
        for (const char *file : {"stored/sub/second", "stored/sub/new"})
            vault.file(file, "his own", 0644);
        for (const char *entry : {"stored", "stored/sub", "stored/sub/folder", "stored/sub/second", "stored/sub/new"})
            ASSERT_EQ(chown(vault.path(entry).c_str(), Neighbour::kUser, Neighbour::kGroup), 0);
        vault.remember();
    }
    Body restoring() const {
        return as_root([this]() -> int64_t {
            return Copy_Folder_Tree(vault.path("stored").c_str(), home("restored").c_str(), nullptr);
        });
    }
};

INSTANTIATE_TEST_SUITE_P(OnKernels, Walks, testing::Bool(), [](const testing::TestParamInfo<bool> &parameter) {
    return std::string(parameter.param ? "without_openat2" : "with_openat2");
});

TEST_P(Walks, restored_tree_does_not_go_through_a_folder_swapped_for_a_link) {
    store_tree();
    Scene scene;
    scene.prepare = [this] { plant_tree(); };
    scene.victim = restoring();
    scene.attack = [this] { exchange(home("restored/sub"), home("link to folder")); };
    expect_harmless_in_windows(scene, 10);
}

TEST_P(Walks, restored_tree_does_not_go_through_its_top_swapped_for_a_link) {
    store_tree();
    Scene scene;
    scene.prepare = [this] { plant_tree(); };
    scene.victim = restoring();
    scene.attack = [this] { exchange(home("restored"), home("link to folder")); };
    expect_harmless(scene, 10);
}

// A folder of root's that lies in the neighbour's: he may give it another name, but not look into it.
TEST_P(Walks, restored_tree_does_not_give_away_a_folder_of_roots_swapped_for_a_new_one) {
    store_tree();
    Scene scene;
    scene.prepare = [this] {
        plant_tree();
        as_neighbour([this] { make_folder(home("restored")); });
        mkdir(home("restored/roots").c_str(), 0700);
        write_file(home("restored/roots/secret"), Vault::kSecret);
    };
    scene.victim = restoring();
    scene.attack = [this] { exchange(home("restored/sub"), home("restored/roots")); };
    scene.judge = [this](const Answer &) {
        for (const std::string &file : neighbour.files_that_show(Vault::kSecret, home("restored")))
            ADD_FAILURE() << file << " shows the secret";
        for (const char *name : {"restored/sub", "restored/roots"})
            if (exists(home(name) + "/secret")) {
                EXPECT_FALSE(exists(home(name) + "/new")) << "a file was copied into root's own folder";
                struct stat status {};
                EXPECT_EQ(stat(home(name).c_str(), &status), 0);
                EXPECT_EQ(status.st_uid, 0U);
                EXPECT_EQ(status.st_mode, mode_t{S_IFDIR | 0700});
            }
    };
    expect_harmless_in_windows(scene, 10);
}

TEST_P(Walks, restored_tree_does_not_write_through_what_is_planted_at_its_files) {
    store_tree();
    for (const char *planted : {"link to file", "pipe"}) {
        SCOPED_TRACE(planted);
        Scene scene;
        scene.prepare = [this] { plant_tree(); };
        scene.victim = restoring();
        scene.attack = [=, this] {
            if (exists(home("restored/sub/new")))
                exchange(home("restored/sub/new"), home(planted));
            else
                replace(home(planted), home("restored/sub/new"));
        };
        expect_harmless(scene, 10);
    }
}

TEST_P(Walks, copy_does_not_hold_what_a_file_swapped_for_a_link_leads_to) {
    expect_no_secret_copied("tree/sub/file", "link to file");
}

TEST_P(Walks, copy_does_not_hold_what_a_folder_swapped_for_a_link_leads_to) {
    expect_no_secret_copied("tree/sub", "link to folder");
}

TEST_P(Walks, copy_does_not_wait_at_a_pipe_swapped_for_a_file) {
    expect_no_secret_copied("tree/sub/file", "pipe");
}

TEST_P(Walks, measuring_does_not_count_what_a_folder_swapped_for_a_link_leads_to) {
    Scene scene;
    scene.prepare = [this] { plant_tree(); };
    scene.victim = as_root([this]() -> int64_t {
        Folder_Tree_State state{};
        const int32_t result = State_Folder_Tree(home("tree").c_str(), &state, nullptr);
        return result != 0 ? result : state.cnFiles;
    });
    scene.attack = [this] { exchange(home("tree/sub"), home("link to folder")); };
    scene.judge = [](const Answer &answer) { EXPECT_LE(answer.result, 2); };
    expect_harmless(scene, 8);
}

TEST_P(Walks, removal_does_not_go_through_a_folder_swapped_for_a_link) {
    Scene scene;
    scene.prepare = [this] { plant_tree(); };
    scene.victim = as_root([this]() -> int64_t { return Remove_Folder_Tree(home("tree").c_str(), nullptr); });
    scene.attack = [this] { exchange(home("tree/sub"), home("link to folder")); };
    expect_harmless_in_windows(scene, 8);
}

TEST_P(Walks, removal_does_not_go_through_its_top_swapped_for_a_link) {
    Scene scene;
    scene.prepare = [this] { plant_tree(); };
    scene.victim = as_root([this]() -> int64_t { return Remove_Folder_Tree(home("tree").c_str(), nullptr); });
    scene.attack = [this] { exchange(home("tree"), home("link to folder")); };
    expect_harmless(scene, 8);
}

// The walk comes back up to a folder that is no longer on the way down from the top.
TEST_P(Walks, removal_does_not_come_back_up_into_another_folder) {
    Scene scene;
    scene.prepare = [this] {
        plant_tree();
        as_neighbour([this] {
            for (const char *folder : {"tree/sub/folder", "tree/sub/folder/deep"})
                make_folder(home(folder));
        });
    };
    scene.victim = as_root([this]() -> int64_t { return Remove_Folder_Tree(home("tree").c_str(), nullptr); });
    scene.attack = [this] { exchange(home("tree/sub"), home("link to folder")); };
    expect_harmless_in_windows(scene, 8);
}

}  // namespace
}  // namespace neighbours
