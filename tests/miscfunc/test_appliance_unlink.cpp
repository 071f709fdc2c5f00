// Removal for good by the appliance kernel's own call, as the library has it with KORVEX_APPLIANCE_UNLINK: this program
// has that build of the function. Other kernels give the number to another call, so it is not let through.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "base/handles.h"
#include "base/really_unlink.h"
#include "faults.h"
#include "miscfunc.h"
#include "sandbox.h"

using support::AnswerCall;
using support::Arguments;
using support::BeforeCall;
using support::Call;
using support::CountCalls;
using support::FailCall;
using testing::ElementsAre;

namespace {

constexpr long kReallyUnlink = 451;

// What the kernel is asked, by number and first argument.
class Asked {
  public:
    std::vector<std::pair<long, long>> calls;

  private:
    BeforeCall watch_{Call::syscall, 0, [this](const Arguments &arguments) {
                          calls.emplace_back(arguments.at<long>(0), arguments.at<long>(1));
                      }};
};

class ApplianceUnlink : public testing::Test {
  protected:
    void expect_asked(long result, int error) {
        SCOPED_TRACE(result);
        const Asked asked;
        errno = 0;
        EXPECT_EQ(Fenwa_Really_Unlink(path_.c_str()), result);
        EXPECT_EQ(errno, error);
        EXPECT_THAT(asked.calls, ElementsAre(std::pair(kReallyUnlink, reinterpret_cast<long>(path_.c_str()))));
    }

    const support::TempFolder folder_;
    const std::string path_ = folder_.file("file", "content");
};

}  // namespace

TEST_F(ApplianceUnlink, asks_the_kernel_and_hands_its_answer_on) {
    const CountCalls unlinks(Call::unlink);
    for (const long answer : {0L, 7L, LONG_MAX}) {
        const AnswerCall answering(Call::syscall, answer);
        expect_asked(answer, 0);
    }
    for (const int error : {ENOENT, ENOSYS}) {
        const FailCall failing(Call::syscall, error);
        expect_asked(-1, error);
    }
    EXPECT_EQ(unlinks.count(), 0);
    EXPECT_TRUE(support::exists(path_));
}

TEST_F(ApplianceUnlink, is_not_what_removes_an_entry_of_a_folder) {
    const CountCalls asked(Call::syscall);
    EXPECT_EQ(Fenwa_Unlinkat(-1, folder_.path().c_str(), "file", 0), 0);
    EXPECT_FALSE(support::exists(path_));
    EXPECT_EQ(asked.count(), 0);
}

TEST_F(ApplianceUnlink, of_a_held_folders_entry_goes_by_a_path_through_the_folder) {
    const korvex::UniqueFd folder(open(folder_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(folder);
    std::string asked;
    const BeforeCall reading(Call::syscall, 0, [&](const Arguments &arguments) {
        EXPECT_EQ(arguments.at<long>(0), kReallyUnlink);
        asked = arguments.at<const char *>(1);
    });
    const AnswerCall first(Call::syscall, 0);
    EXPECT_EQ(korvex::really_unlink_at(folder.get(), "file"), 0);
    EXPECT_EQ(asked, "/proc/self/fd/" + std::to_string(folder.get()) + "/file");
    EXPECT_EQ(access(asked.c_str(), F_OK), 0);

    const AnswerCall second(Call::syscall, 0);
    EXPECT_EQ(korvex::really_unlink_at(AT_FDCWD, path_.c_str()), 0);
    EXPECT_EQ(asked, path_);
}

TEST_F(ApplianceUnlink, refuses_an_entry_whose_path_is_too_long) {
    const CountCalls asked(Call::syscall);
    EXPECT_EQ(korvex::really_unlink_at(0, std::string(PATH_MAX, 'x').c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(asked.count(), 0);
}
