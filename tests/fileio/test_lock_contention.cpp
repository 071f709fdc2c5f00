// Many short-lived processes want one lock: at any time one live process at most holds it, and no work that was
// done under it is lost.
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <new>
#include <string>

#include "fileio.h"
#include "lock_waiters.h"

using namespace fileio_test;

namespace {

constexpr int kProcesses = 480;
constexpr int kAtOnce = 24;
constexpr int kWatchdog = 60'000;  // milliseconds; only a lock that is never let go lasts so long

// What becomes of a process that has taken the lock. Each leaves the critical section first, as far as the others can
// see; whoever dies leaves its lock behind.
enum class End { releases, exits, is_killed };

End end_of(int number) {
    return number % 7 == 3 ? End::exits : number % 11 == 5 ? End::is_killed : End::releases;
}

// Shared by all processes of a test.
struct Board {
    std::atomic<int> inside{0};  // the process that is in the critical section, 0 for none
    std::atomic<int> intruders{0};
    std::atomic<int> completed{0};
    std::atomic<int> without_lock{0};
};

class SharedBoard {
  public:
    SharedBoard()
        : board_(new (mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Board) {}
    ~SharedBoard() { munmap(board_, sizeof(Board)); }
    SharedBoard(const SharedBoard &) = delete;
    SharedBoard &operator=(const SharedBoard &) = delete;

    Board *operator->() const { return board_; }

  private:
    Board *board_;
};

class LockContention : public WaitingTest {
  protected:
    LockContention() { write_file(counter_, "0"); }

    // One process's life, from taking the lock to its end.
    int compete(int number) const {
        if (wait(kWatchdog) != 1) {
            board_->without_lock++;
            return 1;
        }
        if (board_->inside.exchange(getpid()) != 0)
            board_->intruders++;

        if (number % 2 == 0)
            count_one_more();

        int myself = getpid();
        if (!board_->inside.compare_exchange_strong(myself, 0))
            board_->intruders++;
        leave(end_of(number));
        return 0;
    }

    void count_one_more() const {
        const int count = std::atoi(read_file(counter_).c_str());
        sched_yield();  // lets an intruder, if there is one, read the same count
        write_file(counter_, std::to_string(count + 1));
        board_->completed++;
    }

    void leave(End end) const {
        if (end == End::exits)
            _exit(0);
        if (end == End::is_killed)
            raise(SIGKILL);
        if (GetParam().wait == Get_File_Lock)
            Release_File_Lock(path_.c_str());
        else
            Release_File_Lock_Ex(path_.c_str());
    }

    SharedBoard board_;
    const std::string counter_ = folder_.path("counter");
};

INSTANTIATE_TEST_SUITE_P(All, LockContention, testing::Values(kWaiters[0], kWaiters[1]), name_of);

}  // namespace

TEST_P(LockContention, one_live_process_at_most_holds_the_lock_and_no_work_is_lost) {
    std::map<pid_t, int> running;
    int started = 0;
    int failed = 0;

    // A process that ends is waited for at once and followed by the next: until it has been waited for, it counts as
    // alive, and so does the lock that it left behind.
    while (started < kProcesses || !running.empty()) {
        while (started < kProcesses && running.size() < kAtOnce) {
            const int number = started++;
            running[start_child([&] { return compete(number); })] = number;
        }

        int status = 0;
        const pid_t ended = waitpid(-1, &status, 0);
        ASSERT_GT(ended, 0);
        const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        failed += end_of(running.at(ended)) == End::is_killed ? !killed : status != 0;
        running.erase(ended);
    }

    EXPECT_EQ(failed, 0);
    EXPECT_EQ(board_->without_lock, 0);
    EXPECT_EQ(board_->intruders, 0);
    EXPECT_EQ(board_->completed, kProcesses / 2);
    EXPECT_EQ(read_file(counter_), std::to_string(board_->completed));
}
