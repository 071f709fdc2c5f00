// Removal for good by the appliance kernel's own call, as the library has it with KORVEX_APPLIANCE_UNLINK: this program
// has that build of the function. Other kernels give the number to another call, so it is not let through.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <vector>

#include "faults.h"
#include "miscfunc.h"
#include "sandbox.h"

using testing::ElementsAre;

namespace {

constexpr long kReallyUnlink = 451;

// The paths that the call was made with, and what it answers.
std::vector<long> g_asked;
long g_answer = 0;
int g_error = 0;

}  // namespace

extern "C" long syscall(long number, ...) noexcept {
    std::array<long, 6> words{};
    va_list arguments;
    va_start(arguments, number);
    for (long &word : words)
        word = va_arg(arguments, long);
    va_end(arguments);

    if (number != kReallyUnlink) {
        static auto *const real = reinterpret_cast<long (*)(long, ...)>(dlsym(RTLD_NEXT, "syscall"));
        return real(number, words[0], words[1], words[2], words[3], words[4], words[5]);
    }
    g_asked.push_back(words[0]);
    errno = g_error;
    return g_answer;
}

TEST(ApplianceUnlink, asks_the_kernel_and_hands_its_answer_on) {
    const struct {
        long answer;
        int error;
    } table[] = {{0, 0}, {-1, ENOENT}, {-1, ENOSYS}, {7, 0}, {LONG_MAX, 0}};
    const support::TempFolder folder;
    const std::string path = folder.file("file", "content");
    const support::CountCalls unlinks(support::Call::unlink);

    for (const auto &row : table) {
        SCOPED_TRACE(row.answer);
        g_asked.clear();
        g_answer = row.answer;
        g_error = row.error;
        errno = 0;
        EXPECT_EQ(Fenwa_Really_Unlink(path.c_str()), row.answer);
        EXPECT_EQ(errno, row.error);
        EXPECT_THAT(g_asked, ElementsAre(reinterpret_cast<long>(path.c_str())));
    }
    EXPECT_EQ(unlinks.count(), 0);
    EXPECT_TRUE(support::exists(path));
}

TEST(ApplianceUnlink, is_not_what_removes_an_entry_of_a_folder) {
    const support::TempFolder folder;
    const std::string path = folder.file("file", "content");
    g_asked.clear();

    EXPECT_EQ(Fenwa_Unlinkat(-1, folder.path().c_str(), "file", 0), 0);
    EXPECT_FALSE(support::exists(path));
    EXPECT_THAT(g_asked, testing::IsEmpty());
}
