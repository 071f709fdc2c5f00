// Questions about processes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <string>

#include "korvex/process.hpp"
#include "sandbox.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A child with a name of its own, which lives until the object goes.
class named_child {
  public:
    explicit named_child(const std::string &name) {
        EXPECT_EQ(pipe(ready_.data()), 0);
        EXPECT_EQ(pipe(end_.data()), 0);
        child_ = support::start_child([&] {
            prctl(PR_SET_NAME, name.c_str());
            close(end_[1]);
            char byte = 'r';
            if (write(ready_[1], &byte, 1) != 1)
                return 1;
            return read(end_[0], &byte, 1) == 0 ? 0 : 1;
        });
        char byte = 0;
        EXPECT_EQ(read(ready_[0], &byte, 1), 1);
    }
    ~named_child() {
        close(end_[1]);
        support::wait_for(child_);
        close(end_[0]);
        close(ready_[0]);
        close(ready_[1]);
    }
    pid_t pid() const { return child_; }

  private:
    std::array<int, 2> ready_{};
    std::array<int, 2> end_{};
    pid_t child_ = -1;
};

TEST(Process, exists_while_it_lives) {
    EXPECT_TRUE(korvex::process_exists(getpid()));
    EXPECT_FALSE(korvex::process_exists(support::dead_process()));
}

TEST(Process, of_another_user_exists_too) {
    if (!support::can_be_nobody())
        FAIL() << "this test needs root";
    EXPECT_EQ(support::in_child_as_nobody([] { return korvex::process_exists(1) ? 0 : 1; }), 0);
}

TEST(Process, has_a_parent) {
    EXPECT_EQ(korvex::parent_of(getpid()), getppid());
    EXPECT_EQ(korvex::parent_of(support::dead_process()), std::nullopt);
    EXPECT_EQ(korvex::parent_of(-1), std::nullopt);
}

TEST(Process, is_found_by_its_name) {
    const named_child child("korvex-cpp-one");
    EXPECT_THAT(korvex::processes_named("korvex-cpp-one"), ElementsAre(child.pid()));
    EXPECT_THAT(korvex::processes_named("korvex-cpp-none"), IsEmpty());
}

TEST(Process, has_an_ancestor_only_if_it_is_there) {
    const named_child child("korvex-cpp-two");
    EXPECT_TRUE(korvex::ancestor_of("korvex-cpp-two"));
    EXPECT_EQ(korvex::ancestor_of("korvex-cpp-none"), std::nullopt);
}

}  // namespace
