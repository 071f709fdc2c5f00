// Root copies single entries into a folder of the neighbour, or from there.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

#include "fileio.h"
#include "world.h"

namespace neighbours {
namespace {

class Copies : public Neighbours {
  protected:
    void SetUp() override {
        vault.file("new", "from root", 0644);
        vault.file("kept", "kept", 0644);
        vault.folder("folder");
        vault.remember();
    }

    // Everything that could be at the name of the copy.
    void plant_all() const {
        renew();
        as_neighbour([this] {
            write_file(home("file"), "his own words");  // as long as the secret
            plant_link(vault.path("kept"), home("link"));
            plant_link(vault.path("made by root"), home("dangling"));
            plant_link(home("link"), home("link to link"));
            plant_pipe(home("pipe"));
            plant_socket(home("socket"));
        });
    }
    Body copying() const {
        return [this]() -> int64_t {
            return Copy_File(vault.path("new").c_str(), home("file").c_str(), nullptr, nullptr);
        };
    }
    void expect_harmless(const Answer &answer) const {
        EXPECT_TRUE(answer.ended()) << answer.how();
        EXPECT_EQ(vault.changes(), "");
    }

    static constexpr const char *kPlanted[] = {"link", "dangling", "link to link", "pipe", "socket"};
};

TEST_F(Copies, planted_destination_is_one_that_cannot_be_opened) {
    const struct {
        const char *name;
        int error;
    } table[] = {{"link", ELOOP}, {"dangling", ELOOP}, {"link to link", ELOOP}, {"pipe", ENXIO}, {"socket", ENXIO}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        plant_all();

        const Answer answer = run_root([&]() -> int64_t {
            return Copy_File(vault.path("new").c_str(), home(row.name).c_str(), nullptr, nullptr);
        });

        expect_harmless(answer);
        EXPECT_EQ(answer.result, -row.error);
        EXPECT_FALSE(exists(home(row.name)));  // as any destination of a copy that fails
        EXPECT_EQ(answer.messages,
                  std::vector<std::string>{"[error] Copy_File_At(#): Can't open the destination file " +
                                           home(row.name) + " error! (-" + std::to_string(row.error) + ")\n"});
    }
}

TEST_F(Copies, planted_device_is_not_written_to) {
    plant_all();
    EXPECT_EQ(mknod(home("device").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
    EXPECT_EQ(chown(home("device").c_str(), Neighbour::kUser, Neighbour::kGroup), 0);

    EXPECT_EQ(Copy_File(vault.path("new").c_str(), home("device").c_str(), nullptr, nullptr), -ENXIO);
}

TEST_F(Copies, file_of_another_user_is_overwritten) {
    plant_all();
    EXPECT_EQ(Copy_File(vault.path("new").c_str(), home("file").c_str(), nullptr, nullptr), 0);
    EXPECT_EQ(read_file(home("file")), "from root");
}

TEST_F(Copies, links_of_root_are_followed_in_anothers_folder) {
    plant_all();
    ASSERT_EQ(symlink("by root/second", home("first").c_str()), 0);
    ASSERT_EQ(mkdir(home("by root").c_str(), 0755), 0);
    ASSERT_EQ(symlink(vault.path("through").c_str(), home("by root/second").c_str()), 0);

    EXPECT_EQ(Copy_File(vault.path("new").c_str(), home("first").c_str(), nullptr, nullptr), 0);

    EXPECT_EQ(read_file(vault.path("through")), "from root");
}

TEST_F(Copies, destination_swapped_for_something_planted_is_not_used) {
    for (const char *planted : kPlanted) {
        SCOPED_TRACE(planted);
        Scene scene;
        scene.prepare = [this] { plant_all(); };
        scene.victim = copying();
        scene.attack = scene.retreat = [=, this] { exchange(home("file"), home(planted)); };
        scene.judge = [this](const Answer &answer) { expect_harmless(answer); };
        EXPECT_GE(at_every_call(neighbour, scene), 8);
        EXPECT_GE(in_every_window(neighbour, scene), 30);
    }
}

TEST_F(Copies, something_planted_at_a_free_name_is_not_used) {
    for (const char *planted : kPlanted) {
        SCOPED_TRACE(planted);
        Scene scene;
        scene.prepare = [this] {
            plant_all();
            unlink_name(home("file"));
        };
        scene.victim = copying();
        scene.attack = [=, this] { replace(home(planted), home("file")); };
        scene.judge = [this](const Answer &answer) { expect_harmless(answer); };
        EXPECT_GE(at_every_call(neighbour, scene), 8);
    }
}

// Root's own link, and root's own pipe, would be followed and waited for: what is swapped for them is not.
TEST_F(Copies, what_is_swapped_for_roots_own_link_is_not_followed) {
    for (const char *planted : {"link", "dangling", "pipe"}) {
        SCOPED_TRACE(planted);
        Scene scene;
        scene.prepare = [this] {
            plant_all();
            unlink_name(home("file"));
            unlink(vault.path("through").c_str());
            write_file(vault.path("through"), "old");
            vault.remember();
            EXPECT_EQ(symlink(vault.path("through").c_str(), home("file").c_str()), 0);
        };
        scene.victim = copying();
        scene.attack = scene.retreat = [=, this] { exchange(home("file"), home(planted)); };
        scene.judge = [this](const Answer &answer) {
            EXPECT_TRUE(answer.ended()) << answer.how();
            EXPECT_EQ(read_file(vault.path("kept")), "kept");
            EXPECT_FALSE(exists(vault.path("made by root")));
        };
        EXPECT_GE(at_every_call(neighbour, scene), 8);
        EXPECT_GE(in_every_window(neighbour, scene), 30);
    }
}

TEST_F(Copies, source_swapped_for_a_link_or_a_pipe_is_not_read) {
    for (const char *planted : {"secret", "pipe"}) {
        SCOPED_TRACE(planted);
        Scene scene;
        scene.prepare = [this] {
            plant_all();
            as_neighbour([this] { plant_link(vault.path("secret"), home("secret")); });
        };
        scene.victim = [this]() -> int64_t {
            return Copy_File(home("file").c_str(), home("copy").c_str(), nullptr, nullptr);
        };
        scene.attack = scene.retreat = [=, this] { exchange(home("file"), home(planted)); };
        // A link that is there at the first look is followed, as the caller named it.
        scene.when = [](const SystemCall &call) { return call.index > 1; };
        scene.judge = [this](const Answer &answer) {
            expect_harmless(answer);
            EXPECT_TRUE(neighbour.files_that_show(Vault::kSecret, home()).empty());
        };
        EXPECT_GE(at_every_call(neighbour, scene), 8);
        EXPECT_GE(in_every_window(neighbour, scene), 30);
    }
}

// A file of root's that lies in the neighbour's folder: he may give it another name, but not read it.
TEST_F(Copies, file_of_roots_swapped_for_a_new_link_or_folder_is_not_given_away) {
    const struct {
        const char *source;
        int32_t (*copy)(const char *, const char *);
    } table[] = {{"a link", Copy_Symlink}, {"a folder", Copy_Folder}};
    ASSERT_EQ(symlink("anywhere", vault.path("a link").c_str()), 0);
    ASSERT_EQ(lchown(vault.path("a link").c_str(), Neighbour::kUser, Neighbour::kGroup), 0);
    vault.folder("a folder");
    ASSERT_EQ(chown(vault.path("a folder").c_str(), Neighbour::kUser, Neighbour::kGroup), 0);
    vault.remember();

    for (const auto &row : table)
        for (const char *roots : {"roots file", "roots folder"}) {
            SCOPED_TRACE(std::string(row.source) + " and " + roots);
            Scene scene;
            scene.prepare = [this] {
                plant_all();
                write_file(home("roots file"), Vault::kSecret);
                chmod(home("roots file").c_str(), 0600);
                mkdir(home("roots folder").c_str(), 0700);
                write_file(home("roots folder/secret"), Vault::kSecret);
            };
            scene.victim = [&]() -> int64_t { return row.copy(vault.path(row.source).c_str(), home("new").c_str()); };
            scene.attack = scene.retreat = [=, this] { exchange(home("new"), home(roots)); };
            scene.judge = [this](const Answer &answer) {
                expect_harmless(answer);
                EXPECT_TRUE(neighbour.files_that_show(Vault::kSecret, home()).empty());
            };
            EXPECT_GE(at_every_call(neighbour, scene), 2);
            EXPECT_GE(in_every_window(neighbour, scene), 1);
        }
}

}  // namespace
}  // namespace neighbours
