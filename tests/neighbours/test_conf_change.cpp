// Root changes a configuration in a folder of the neighbour's.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "conffile.h"
#include "world.h"

namespace neighbours {
namespace {

// One way to change "s/k" to "v".
struct Way {
    const char *name;
    std::function<int32_t(const char *path)> change;
};

void PrintTo(const Way &way, std::ostream *out) {
    *out << way.name;
}

int32_t edit_key(const char *path) {
    return Set_Conf_File_String_Value(path, "s", "k", "v");
}

// A section of the caller's, "[s]" with "k = v".
template <class Change>
int32_t with_section(Change change) {
    Sect_Node *section = nullptr;
    Create_Sect_Node(&section, "s");
    Create_Pair_Node(&section->pPairs, "k", "v");
    const int32_t result = change(section);
    Free_Sect_Node(section);
    return result;
}

const Way kWays[] = {
    {"Editor", edit_key},
    {"SectionSetter",
     [](const char *path) {
         return with_section([&](Sect_Node *section) { return Set_Conf_File_Section(path, "s", section); });
     }},
    {"SectionMerger",
     [](const char *path) {
         return with_section([&](Sect_Node *section) { return Update_Conf_File_Section(path, "s", section); });
     }},
    {"Pairs",
     [](const char *path) {
         return with_section([&](Sect_Node *section) { return Set_Conf_File_Pair_Values(path, "s", section->pPairs); });
     }},
    {"Update",
     [](const char *path) {
         return with_section([&](Sect_Node *section) { return Update_Conf_File(path, section); });
     }},
};

// The calls that name a file; those in between change nothing for who swaps names.
bool names_a_file(const SystemCall &call) {
    const std::string name = call.name();
    return name == "openat" || name == "newfstatat" || name == "renameat" || name == "unlinkat" ||
           name == "readlinkat" || name == "fchmod" || name == "unlink";
}

class ConfChange : public Neighbours, public testing::WithParamInterface<Way> {
  protected:
    std::string conf() const { return home("app.conf"); }
    // Where the victim writes the new text.
    std::string temporary(pid_t victim) const {
        return conf() + (is_editor() ? ".tmp" : ".tmp." + std::to_string(victim));
    }
    bool is_editor() const { return std::string(GetParam().name) == "Editor"; }

    // The neighbour's configuration, and a victim who changes it.
    Scene scene() {
        Scene scene;
        scene.prepare = [this] { prepare([] {}); };
        scene.victim = [this]() -> int64_t { return GetParam().change(conf().c_str()); };
        scene.judge = [this](const Answer &answer) { expect_nothing_gained(answer); };
        return scene;
    }

    void prepare(const std::function<void()> &plants) const {
        unlink("/var/lock/_app.conf.lck");
        renew();
        as_neighbour([&] {
            write_file(conf(), "[s]\nhis = 1\n");
            plants();
        });
    }

    // A file of root's in the neighbour's folder, which he can move but not read.
    void put_secret(const std::string &name) const {
        write_file(home(name), std::string("[s]\n") + Vault::kSecret + " = 1\n");
        chmod(home(name).c_str(), 0600);
    }

    void expect_nothing_gained(const Answer &answer) const {
        EXPECT_TRUE(answer.ended()) << answer.how();
        EXPECT_EQ(vault.changes(), "");
        EXPECT_EQ(neighbour.files_that_show(Vault::kSecret, home()), std::vector<std::string>{});
        EXPECT_EQ(privileged_files(home()), std::vector<std::string>{});
    }

    // The change went on as if nothing were planted.
    void expect_changed(const Answer &answer) const {
        expect_nothing_gained(answer);
        EXPECT_EQ(answer.result, 0);
        struct stat status {};
        ASSERT_EQ(lstat(conf().c_str(), &status), 0);
        EXPECT_TRUE(S_ISREG(status.st_mode));
        EXPECT_EQ(status.st_uid, 0U);
        EXPECT_NE(read_file(conf()).find("k = v\n"), std::string::npos);
    }

    // Plants at the temporary name, just before it is used for the first time.
    void plant_at_temporary(const std::function<void(const std::string &name)> &plant) {
        prepare([] {});
        bool planted = false;
        const Answer answer = run_root(scene().victim, [&](const SystemCall &call) {
            if (planted)
                return;
            planted = true;
            plant(temporary(call.process));
        });
        EXPECT_TRUE(planted);
        expect_changed(answer);
    }
};

TEST_P(ConfChange, set_id_program_does_not_become_roots) {
    prepare([this] { ASSERT_EQ(chmod(conf().c_str(), 06755), 0); });
    expect_changed(run_root(scene().victim));
}

TEST_P(ConfChange, set_id_bits_of_another_file_are_not_carried_over) {
    Scene swap = scene();
    const std::string tool = vault.file("tool", "root's tool", 06755);
    vault.remember();
    swap.prepare = [&] {
        prepare([] {});
        plant_hard_link(tool, home("tool"));
        vault.remember();
    };
    swap.attack = swap.retreat = [&] { exchange(home("tool"), conf()); };
    swap.when = names_a_file;
    swap.judge = [&](const Answer &answer) {
        EXPECT_TRUE(answer.ended()) << answer.how();
        // Root's own tool may be one of them, but no file that shows the neighbour's text.
        for (const std::string &name : privileged_files(home()))
            EXPECT_EQ(read_file(home(name)).find("his"), std::string::npos) << name;
    };
    EXPECT_GE(in_every_window(neighbour, swap), 10);
}

TEST_P(ConfChange, link_in_place_of_the_file_leads_nowhere) {
    vault.file("root.conf", std::string("[s]\n") + Vault::kSecret + " = 1\n", 0600);
    Scene swap = scene();
    swap.prepare = [&] { prepare([&] { plant_link(vault.path("root.conf"), home("link")); }); };
    swap.attack = swap.retreat = [&] { exchange(home("link"), conf()); };
    EXPECT_GE(at_every_call(neighbour, swap), 10);
    swap.when = names_a_file;
    EXPECT_GE(in_every_window(neighbour, swap), 10);
}

// Whoever reads the old text first does not get through. An update replaces the link itself, but not with its bits: everybody
// could write to the new file then.
TEST_P(ConfChange, link_from_the_start_is_not_followed_and_gives_no_bits) {
    const std::string file = vault.file("root.conf", std::string("[s]\n") + Vault::kSecret + " = 1\n", 0600);
    prepare([&] {
        unlink_name(conf());
        plant_link(file, conf());
    });
    const Answer answer = run_root(scene().victim);
    expect_nothing_gained(answer);
    struct stat status {};
    ASSERT_EQ(lstat(conf().c_str(), &status), 0);
    const std::string way = GetParam().name;
    if (way == "Update") {
        EXPECT_EQ(answer.result, 0);
        EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
        return;
    }
    EXPECT_EQ(answer.result, way == "Pairs" ? 0 : -ELOOP);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    ASSERT_GE(answer.messages.size(), 2U);
    EXPECT_EQ(answer.messages[0],
              "[debug] Cache_Conf_File(#): Can't open the conf file \"" + conf() + "\" error! (-40)\n");
    EXPECT_NE(answer.messages.back().find("error! (-40)\n"), std::string::npos) << answer.messages.back();
}

TEST_P(ConfChange, maze_in_place_of_the_file_leads_nowhere) {
    vault.file("root.conf", std::string("[s]\n") + Vault::kSecret + " = 1\n", 0600);
    Scene swap = scene();
    swap.prepare = [&] {
        prepare([&] { plant_link(plant_maze(home("maze"), vault.path("root.conf")), home("link")); });
    };
    swap.attack = [&] { exchange(home("link"), conf()); };
    swap.when = names_a_file;
    swap.judge = [&](const Answer &answer) {
        EXPECT_TRUE(answer.ended()) << answer.how();
        EXPECT_EQ(vault.changes(), "");
        EXPECT_FALSE(neighbour.can([&] {
            if (read_file(conf()).find(Vault::kSecret) == std::string::npos)
                throw std::runtime_error("nothing is shown");
        }));
    };
    EXPECT_GE(at_every_call(neighbour, swap), 4);
}

TEST_P(ConfChange, secret_in_the_same_folder_is_not_shown) {
    Scene swap = scene();
    swap.prepare = [&] {
        prepare([] {});
        put_secret("secret.conf");
    };
    swap.attack = swap.retreat = [&] { exchange(home("secret.conf"), conf()); };
    swap.when = names_a_file;
    EXPECT_GE(in_every_window(neighbour, swap), 10);
}

TEST_P(ConfChange, pipe_in_place_of_the_file_does_not_hang_root) {
    Scene swap = scene();
    swap.prepare = [&] { prepare([&] { plant_pipe(home("pipe")); }); };
    swap.attack = [&] { exchange(home("pipe"), conf()); };
    EXPECT_GE(at_every_call(neighbour, swap), 10);
}

TEST_P(ConfChange, folder_that_is_swapped_for_a_link_brings_nothing_into_roots) {
    vault.folder("etc");
    vault.file("etc/app.conf", "[s]\nroots = 1\n", 0600);
    Scene swap = scene();
    swap.prepare = [&] {
        unlink("/var/lock/_app.conf.lck");
        renew();
        write_file(vault.path("etc/app.conf"), "[s]\nroots = 1\n");
        chmod(vault.path("etc/app.conf").c_str(), 0600);
        as_neighbour([&] {
            make_folder(home("folder"));
            write_file(home("folder/app.conf"), "[s]\nhis = 1\n");
            plant_link(vault.path("etc"), home("link"));
        });
    };
    swap.victim = [&]() -> int64_t { return GetParam().change(home("folder/app.conf").c_str()); };
    swap.attack = swap.retreat = [&] { exchange(home("folder"), home("link")); };
    swap.when = names_a_file;
    swap.judge = [&](const Answer &answer) {
        EXPECT_TRUE(answer.ended()) << answer.how();
        // A folder that was a link when root came is the one that root was sent to. What counts is that the two do not mix.
        EXPECT_EQ(read_file(vault.path("etc/app.conf")).find("his"), std::string::npos);
        struct stat status {};
        EXPECT_EQ(stat(vault.path("etc/app.conf").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0600U);
        EXPECT_EQ(neighbour.files_that_show("roots", home()), std::vector<std::string>{});
    };
    EXPECT_GE(in_every_window(neighbour, swap), 10);
}

TEST_P(ConfChange, link_at_the_temporary_name_is_not_written_through) {
    const std::string file = vault.file("passwd", "root:0\n", 0644);
    plant_at_temporary([&](const std::string &name) { as_neighbour([&] { plant_link(file, name); }); });
}

TEST_P(ConfChange, hard_link_at_the_temporary_name_is_not_written_to) {
    const std::string file = vault.file("passwd", "root:0\n", 0644);
    plant_at_temporary([&](const std::string &name) { plant_hard_link(file, name); });
}

TEST_P(ConfChange, link_of_roots_that_was_moved_to_the_temporary_name_is_not_written_through) {
    const std::string file = vault.file("passwd", "root:0\n", 0644);
    plant_at_temporary([&](const std::string &name) {
        plant_link(file, home("roots"));
        as_neighbour([&] { replace(home("roots"), name); });
    });
}

TEST_P(ConfChange, pipe_at_the_temporary_name_does_not_hang_root) {
    plant_at_temporary([&](const std::string &name) { as_neighbour([&] { plant_pipe(name); }); });
}

TEST_P(ConfChange, socket_at_the_temporary_name_does_not_stop_root) {
    plant_at_temporary([&](const std::string &name) { as_neighbour([&] { plant_socket(name); }); });
}

TEST_P(ConfChange, file_at_the_temporary_name_does_not_become_the_configuration) {
    plant_at_temporary([&](const std::string &name) {
        as_neighbour([&] {
            write_file(name, "his\n");
            ASSERT_EQ(chmod(name.c_str(), 0666), 0);
        });
    });
}

TEST_P(ConfChange, what_is_planted_at_the_temporary_name_at_any_call_is_not_written_to) {
    const std::string file = vault.file("passwd", "root:0\n", 0644);
    pid_t victim = 0;
    Scene plant = scene();
    plant.when = [&](const SystemCall &call) {
        victim = call.process;
        return true;
    };
    plant.attack = [&] {
        plant_link(file, home("link"));
        replace(home("link"), temporary(victim));
    };
    EXPECT_GE(at_every_call(neighbour, plant), 10);
}

TEST_P(ConfChange, neighbour_who_plants_without_a_pause_gains_nothing) {
    const std::string file = vault.file("passwd", "root:0\n", 0644);
    prepare([] {});
    pid_t victim = 0;
    const Answer named = run_root([&]() -> int64_t { return GetParam().change(conf().c_str()); },
                                  [&](const SystemCall &call) { victim = call.process; });
    EXPECT_TRUE(named.ended());
    const Restless restless(neighbour, [&] {
        for (pid_t process = victim; process < victim + 64; process++)
            if (!exists(temporary(process)))
                plant_link(file, temporary(process));
    });
    for (int change = 0; change < 32; change++)
        expect_nothing_gained(run_root([&]() -> int64_t { return GetParam().change(conf().c_str()); }));
}

INSTANTIATE_TEST_SUITE_P(EachWay, ConfChange, testing::ValuesIn(kWays),
                         [](const auto &way) { return std::string(way.param.name); });

}  // namespace
}  // namespace neighbours
