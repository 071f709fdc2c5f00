// Removal for good by the appliance kernel's own call, as the library has it with KORVEX_APPLIANCE_UNLINK: this program
// has that build of the function. Other kernels give the number to another call, so it is not let through.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <vector>

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
