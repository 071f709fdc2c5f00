// Something else at the path of a local socket that root listens on, between the moment when it is bound and the one when
// it is opened to everybody: a link to root's own file, another socket of root's.
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>
#include <system_error>

#include "socket.h"
#include "world.h"

namespace neighbours {
namespace {

// How root finds the socket's file: the system tells it, or, without the privilege, by the path.
enum class Root { told, untold };

class PlantedSocket : public Neighbours, public testing::WithParamInterface<Root> {
  protected:
    // The victim: listens on a path. Its result; the listener ends with the process.
    Body listening(const std::string &path) const {
        return [this, path]() -> int64_t {
            if (GetParam() == Root::untold && !support::refuse_system_call(SYS_ioctl, EPERM))
                return -1;
            int32_t listener = -1;
            return Domain_Socket_Listen(path.c_str(), &listener, 0);
        };
    }
    Scene scene(const std::function<void()> &prepare) const {
        Scene scene;
        scene.prepare = prepare;
        scene.victim = listening(home("socket"));
        scene.attack = [this] { replace(home("planted"), home("socket")); };
        scene.judge = [this](const Answer &answer) {
            EXPECT_TRUE(answer.ended()) << answer.how();
            EXPECT_TRUE(answer.result == 0 || answer.result == -EADDRINUSE) << answer.result;
            EXPECT_EQ(vault.changes(), "");
        };
        return scene;
    }
};

std::ostream &operator<<(std::ostream &out, Root root) {
    return out << (root == Root::told ? "told" : "untold");
}

INSTANTIATE_TEST_SUITE_P(To, PlantedSocket, testing::Values(Root::told, Root::untold), [](const auto &root) {
    return std::string(root.param == Root::told ? "privileged_root" : "root_without_the_privilege");
});

TEST_P(PlantedSocket, link_does_not_open_the_file_that_it_leads_to) {
    const std::string target = vault.file("shadow", Vault::kSecret);
    EXPECT_GE(at_every_call(neighbour, scene([&] {
                                renew();
                                as_neighbour([&] { plant_link(target, home("planted")); });
                            })),
              4);
}

TEST_P(PlantedSocket, name_of_another_socket_does_not_open_that_one) {
    const std::string other = vault.path("private");
    if (mknod(other.c_str(), S_IFSOCK | 0600, 0) != 0)
        throw std::system_error(errno, std::generic_category(), "mknod");
    Scene swapped = scene([&] {
        renew();
        plant_hard_link(other, home("planted"));
    });
    swapped.judge = [&](const Answer &answer) {
        EXPECT_TRUE(answer.ended()) << answer.how();
        struct stat status {};
        EXPECT_EQ(lstat(other.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFSOCK | 0600));  // its links come and go
    };
    EXPECT_GE(at_every_call(neighbour, swapped), 4);
}

// No look-up of the path is repeated, so a slow one wins nothing.
TEST_P(PlantedSocket, link_at_the_end_of_a_maze_does_not_open_the_file_that_it_leads_to) {
    const std::string target = vault.file("shadow", Vault::kSecret);
    renew();
    as_neighbour([&] {
        make_folder(home("f"));
        plant_maze(home("m"), home("f"));
    });
    const Restless attacker(neighbour, [&] {
        plant_link(target, home("planted"));
        replace(home("planted"), home("f/s"));
    });
    for (int turn = 0; turn < 100; turn++) {
        const Answer answer = run_root(listening(home("m/38/s")));
        EXPECT_TRUE(answer.ended()) << answer.how();
        ASSERT_EQ(vault.changes(), "");
    }
}

}  // namespace
}  // namespace neighbours
