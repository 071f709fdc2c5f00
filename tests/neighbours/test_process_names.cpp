// Process names: a user chooses those of his processes, and root reads them between the other fields of their status.
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <stdexcept>
#include <string>

#include "miscfunc.h"
#include "world.h"

namespace neighbours {
namespace {

constexpr const char *kPrey = "prey";

// A process of the neighbour, named as `name_of` its own id says, and its child named `kPrey`. Both end with this object.
class NamedParent {
  public:
    NamedParent(const Neighbour &neighbour, const std::function<std::string(pid_t)> &name_of) {
        if (pipe(ready_) != 0)
            throw std::runtime_error("no pipe");
        child_ = support::start_child([&] {
            neighbour.act([&] {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                prctl(PR_SET_NAME, name_of(getpid()).c_str());
                support::start_child([&] {
                    prctl(PR_SET_PDEATHSIG, SIGKILL);
                    prctl(PR_SET_NAME, kPrey);
                    tell();
                    return wait_for_the_end();
                });
                wait_for_the_end();
            });
            return 0;
        });
        char byte = 0;
        if (read(ready_[0], &byte, 1) != 1)
            throw std::runtime_error("the processes did not start");
    }
    ~NamedParent() {
        kill(child_, SIGKILL);
        support::wait_for(child_);
        close(ready_[0]);
        close(ready_[1]);
    }
    NamedParent(const NamedParent &) = delete;
    NamedParent &operator=(const NamedParent &) = delete;

  private:
    void tell() const {
        if (write(ready_[1], "r", 1) != 1)
            throw std::runtime_error("no word to the test");
    }
    [[noreturn]] static int wait_for_the_end() {
        for (;;)
            pause();
    }

    int ready_[2] = {-1, -1};
    pid_t child_ = 0;
};

// Who started kPrey, as root is told; a walk without end is ended by a signal.
Answer ask_for_ancestor() {
    return run_root([]() -> int64_t {
        alarm(20);
        int32_t pid = 77;
        const int32_t result = Get_Ancestry_Pid(kPrey, &pid);
        return result != 0 ? result : pid;
    });
}

TEST_F(Neighbours, process_that_names_itself_as_its_parent_does_not_catch_the_walk) {
    const NamedParent attack(neighbour, [](pid_t own) { return "a S " + std::to_string(own); });
    const Answer answer = ask_for_ancestor();
    EXPECT_TRUE(answer.ended()) << answer.how();
    EXPECT_EQ(answer.result, -1);
}

TEST_F(Neighbours, process_does_not_choose_its_ancestor) {
    const pid_t of_root = getpid();
    const NamedParent attack(neighbour, [=](pid_t) { return "a S " + std::to_string(of_root); });
    const Answer answer = ask_for_ancestor();
    EXPECT_TRUE(answer.ended()) << answer.how();
    EXPECT_EQ(answer.result, -1);
}

}  // namespace
}  // namespace neighbours
