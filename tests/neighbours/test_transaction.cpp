// Root edits a configuration in a user's folder by a transaction of the C++ layer. The user swaps what root works on.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "korvex/conf.hpp"
#include "world.h"

namespace neighbours {
namespace {

namespace conf = korvex::conf;

constexpr const char *kText = "[s]\nk = old\n";
constexpr const char *kMarker = "$$@#!$$";

class TransactionInHome : public Neighbours {
  protected:
    TransactionInHome() {
        vault.file("secret.conf", std::string("[s]\nk = ") + Vault::kSecret + "\n");
        vault.folder("folder");
        vault.file("folder/app.conf", std::string("[s]\nk = ") + Vault::kSecret + "\n");
        vault.remember();
        scene_.prepare = [this] {
            renew();
            as_neighbour([this] {
                write_file(home("app.conf"), kText);
                make_folder(home("spare"));
                write_file(home("spare/app.conf"), "[s]\nk = planted\n");
            });
        };
        scene_.victim = [this]() -> int64_t { return edit({}); };
        scene_.judge = [this](const Answer &answer) {
            EXPECT_TRUE(answer.ended()) << answer.how();
            EXPECT_EQ(vault.changes(), "");
            EXPECT_TRUE(neighbour.files_that_show(Vault::kSecret, home()).empty());
            EXPECT_TRUE(privileged_files(home()).empty());
        };
    }

    // Two edits and their commit; 0, or what it failed with.
    int64_t edit(const conf::transaction_options &options) const {
        try {
            conf::transaction edit(home("app.conf"), options);
            edit.set("s", "k", "new");
            edit.set("s", "l", "more");
            edit.commit();
            return 0;
        } catch (const korvex::error &failure) {
            return failure.code().value();
        }
    }

    // The private copies that are there; `suffix` is what the editor's own temporary file has.
    std::vector<std::string> copies(const std::string &suffix = "") const {
        std::vector<std::string> found;
        for (const auto &entry : std::filesystem::directory_iterator(home()))
            if (entry.path().filename().string().starts_with(kMarker) && !entry.path().string().ends_with(".tmp"))
                found.push_back(entry.path().string() + suffix);
        return found;
    }

    void attack_everywhere(int least) { EXPECT_GE(at_every_call(neighbour, scene_), least); }

    Scene scene_;
};

TEST_F(TransactionInHome, is_not_shown_another_file_in_its_copys_place) {
    scene_.attack = [this] {
        const std::string copy = copies().at(0);
        unlink_name(copy);
        plant_link(vault.path("secret.conf"), copy);
    };
    attack_everywhere(30);
}

TEST_F(TransactionInHome, does_not_write_where_a_name_beside_its_copy_leads) {
    scene_.attack = [this] { plant_link(vault.path("secret.conf"), copies(".tmp").at(0)); };
    attack_everywhere(30);
}

TEST_F(TransactionInHome, does_not_follow_a_link_in_place_of_the_file) {
    scene_.attack = [this] {
        unlink_name(home("app.conf"));
        plant_link(vault.path("secret.conf"), home("app.conf"));
    };
    attack_everywhere(30);
}

TEST_F(TransactionInHome, gives_nobodys_text_what_is_roots) {
    // A program of root's, with privileges, by a hard link in place of the file.
    scene_.prepare = [this, prepare = scene_.prepare] {
        prepare();
        write_file(vault.path("program"), "program");
        chmod(vault.path("program").c_str(), 06755);
        plant_hard_link(vault.path("program"), home("program"));
    };
    for (const bool is_forced : {false, true}) {
        scene_.victim = [this, is_forced]() -> int64_t { return edit({.force = is_forced}); };
        scene_.attack = [this] { replace(home("program"), home("app.conf")); };
        scene_.judge = [this](const Answer &answer) {
            EXPECT_TRUE(answer.ended()) << answer.how();
            EXPECT_EQ(read_file(vault.path("program")), "program");
            // One that was there from the beginning is edited as what it is.
            for (const std::string &file : privileged_files(home()))
                EXPECT_TRUE(read_file(home(file)).starts_with("program")) << file;
        };
        attack_everywhere(30);
    }
}

TEST_F(TransactionInHome, keeps_to_the_folder_that_it_found) {
    scene_.victim = [this]() -> int64_t {
        try {
            conf::set(home("spare/app.conf"), "s", "k", "new");
            return 0;
        } catch (const korvex::error &failure) {
            return failure.code().value();
        }
    };
    // From the moment on at which the folder is open: before that, the path is what root named.
    scene_.when = [](const SystemCall &call) { return call.index > 1; };
    scene_.attack = [this] {
        std::filesystem::rename(home("spare"), home("moved"));
        plant_link(vault.path("folder"), home("spare"));
    };
    attack_everywhere(20);
}

}  // namespace
}  // namespace neighbours
