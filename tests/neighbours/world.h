// Attacks of an ordinary user on root: the world that each test stands in, and how a test is written.
//
// The program runs in namespaces of its own (mounts, processes, network), so nothing of the machine can be harmed, and
// every process of a test ends with it. A test derives from `Neighbours` and gets
//
//   home()       a folder that the neighbour (user and group 65534) owns, with mode 0755. He may do there as he likes.
//   vault        root's own files outside of it. `vault.changes()` tells what was done to them: "" is what a test wants.
//   neighbour    does things as that user: see Neighbour.
//   run_root()   the victim: a function that runs as root in a process of its own (stepper.h). It is stopped before each
//                of its system calls, and the attack acts there. So what is possible at all happens every time, and no
//                test depends on luck or speed.
//   at_every_call, in_every_window (every_call.h): the same attack at each system call in turn.
//   Restless     an attacker in a busy loop, or one that waits for inotify, for races within one system call.
//
// What a neighbour plants and swaps (links, pipes, files, RENAME_EXCHANGE, mazes of links) stands in plants.h.
// support::refuse_system_call, in a victim's body, stands for a kernel without that call. Of what an attack leads to,
// `vault.changes()`, `neighbour.files_that_show(Vault::kSecret, home())` and `privileged_files(home())` tell.
//
// The kernel's own protections (fs.protected_symlinks, _fifos, _regular, _hardlinks) are no help to a root that works in
// a user's folder, and a test must not lean on them. They can't be switched off for a namespace. The first three hold
// only in folders that everybody may write to and that have the sticky bit: no folder of this world has it, /var/lock
// included. The fourth forbids a user to make a hard link of a file that is not his: `plant_hard_link` makes it as root.
//
// A pattern to copy:
//
//   TEST_F(Neighbours, pipe_in_place_of_the_file_does_not_hang_the_reader) {
//       Scene scene;
//       scene.prepare = [&] { renew(); as_neighbour([&] { write_file(home("app.conf"), "[a]\n"); }); };
//       scene.victim = [&]() -> int64_t { return Count_Sections(home("app.conf").c_str()); };
//       scene.attack = [&] { unlink_name(home("app.conf")); plant_pipe(home("app.conf")); };   // as the neighbour
//       scene.judge = [&](const Answer &answer) {
//           EXPECT_TRUE(answer.ended()) << answer.how();
//           EXPECT_EQ(vault.changes(), "");
//       };
//       EXPECT_GT(at_every_call(neighbour, scene), 3);
//   }
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "plants.h"
#include "refused_call.h"
#include "sandbox.h"
#include "stepper.h"

namespace neighbours {

using support::exists;
using support::read_file;
using support::write_file;

// Enters the namespaces and runs `body` there, as a process that is not the first one. Its exit status is returned; all
// that it left running ends.
int in_private_world(const std::function<int()> &body);

// The user who attacks. He is in no group but his own, and has no capability.
class Neighbour {
  public:
    static constexpr uid_t kUser = 65534;
    static constexpr gid_t kGroup = 65534;

    // Runs `body` as that user, and waits for its end. What it throws fails the test.
    void act(const std::function<void()> &body) const;
    // The same where failing is an answer, too: whether `body` ended without throwing.
    bool can(const std::function<void()> &body) const;

    // The names below `folder` (relative, sorted) of the files that he can read and that hold `text`.
    std::vector<std::string> files_that_show(const std::string &text, const std::string &folder) const;
};

// A process of the neighbour that does something again and again, until the object goes: for races within one system
// call, which no stop can order. What `body` throws is passed over: half of his attempts fail.
class Restless {
  public:
    Restless(const Neighbour &neighbour, const std::function<void()> &body);
    // The same, but once for each event of inotify that `mask` names in `folder`.
    Restless(const Neighbour &neighbour, const std::string &folder, uint32_t mask, const std::function<void()> &body);
    ~Restless();
    Restless(const Restless &) = delete;
    Restless &operator=(const Restless &) = delete;

  private:
    pid_t process_;
};

// A folder of root's, and all that was put into it, as it was when it was put there.
class Vault {
  public:
    // What no copy may show to the neighbour.
    static constexpr const char *kSecret = "root's secret";

    explicit Vault(std::string folder) : folder_(std::move(folder)) {}

    std::string path() const { return folder_; }
    std::string path(const std::string &name) const { return folder_ + "/" + name; }
    // Puts a file, a folder there. Returns its path.
    std::string file(const std::string &name, const std::string &content, mode_t mode = 0600);
    std::string folder(const std::string &name, mode_t mode = 0755);
    // Notes how everything is now.
    void remember();

    // A line for each entry that is new, gone or no longer as it was: content, time, kind, mode, owner, group, link count.
    std::string changes() const;

  private:
    std::string folder_;
    std::map<std::string, std::string> entries_;
};

// Below `folder`: the regular files of root's with a set-user-id bit, and those of root's group with a set-group-id bit.
std::vector<std::string> privileged_files(const std::string &folder);

class Neighbours : public testing::Test {
  protected:
    Neighbours();
    ~Neighbours() override;

    std::string home() const { return disk_ + "/home"; }
    std::string home(const std::string &name) const { return home() + "/" + name; }
    // Makes the neighbour's folder empty, for the next turn of an attack.
    void renew() const;
    void as_neighbour(const std::function<void()> &body) const { neighbour.act(body); }

    const Neighbour neighbour{};

  private:
    const std::string disk_;  // before the vault, which lies on it

  protected:
    Vault vault;
};

}  // namespace neighbours

#include "every_call.h"
