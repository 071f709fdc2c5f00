// Failing and watching the system's functions. The test program defines them itself, so the library's calls arrive
// here first (see faults.cpp); what is not armed goes straight on to the real one.
//
// Everything here is armed for the calling thread only, and for as long as the object lives. Arm just around the call
// under test: the test's own calls count, too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace support {

// The functions that can be armed. `open` stands for open and open64, `stat` for stat and stat64, and so on.
enum class Call {
    malloc,
    calloc,
    realloc,
    open,
    read,
    write,
    stat,
    lstat,
    fstat,
    flock,
    unlink,
    rmdir,
    rename,
    mkdir,
    chmod,
    kill,
    dirfd,
    popen,
    free,
    pthread_mutex_init,
    pthread_mutex_destroy,
    pthread_mutex_lock,
    pthread_mutex_unlock,
    pthread_cond_broadcast,
    fopen,
    fclose,
    fflush,
    fwrite,
    vsnprintf,
    sendfile,
    splice,
    readlink,
    lseek,
    openat,
    fstatat,
    select,
    fchmod,
    fchown,
    fchmodat,
    fchownat,
    unlinkat,
    mkdirat,
    symlinkat,
    readlinkat,
    opendir,
    readdir,
    allocation,  // malloc, calloc or realloc: for a test that need not know which of them the library uses
    count_of_calls,
};

// The nth call (from 1) and the `times - 1` calls after it.
class Turns {
  public:
    Turns(int nth, int times) : first_(nth), last_(int64_t{nth} + times - 1) {}

    // Counts a call, and tells whether it is one of them.
    bool next() {
        seen_++;
        return seen_ >= first_ && seen_ <= last_;
    }

  private:
    int64_t first_;
    int64_t last_;
    int64_t seen_ = 0;
};

// Makes the nth call (from 1) and the `times - 1` calls after it fail with `error`, without reaching the system. An
// error of 0 makes calls that answer a number answer 0 instead: nothing moved, or success.
class FailCall {
  public:
    explicit FailCall(Call call, int error, int nth = 1, int times = 1);
    ~FailCall();
    FailCall(const FailCall &) = delete;
    FailCall &operator=(const FailCall &) = delete;

    // How many calls have failed so far: a test that expects a failure checks that it took place.
    int failed() const { return failed_; }

    // For the wrappers.
    bool strikes();
    int error() const { return error_; }

  private:
    Call call_;
    int error_;
    Turns turns_;
    int failed_ = 0;
    FailCall *outer_;
};

// Makes the nth `read`, `write`, `sendfile` or `splice` (from 1) and the `times - 1` calls after it move at most `count`
// bytes: the system is asked for no more. With a count of 0 a call moves nothing and leaves `errno` as it was. Several may
// be armed at a time.
class ShortCall {
  public:
    explicit ShortCall(Call call, size_t count, int nth = 1, int times = 1);
    ~ShortCall();
    ShortCall(const ShortCall &) = delete;
    ShortCall &operator=(const ShortCall &) = delete;

    // For the wrappers.
    size_t shortened(size_t size);

  private:
    Call call_;
    size_t count_;
    Turns turns_;
    ShortCall *outer_;
};

// Counts the calls of a function.
class CountCalls {
  public:
    explicit CountCalls(Call call);
    int64_t count() const;

  private:
    Call call_;
    int64_t start_;
};

// Runs `action` just before the nth call (from 1; 0 is every call) reaches the system; calls from inside the action run
// undisturbed.
class BeforeCall {
  public:
    BeforeCall(Call call, int nth, std::function<void()> action);
    ~BeforeCall();
    BeforeCall(const BeforeCall &) = delete;
    BeforeCall &operator=(const BeforeCall &) = delete;

    bool ran() const { return ran_; }

    // For the wrappers.
    void arrive();

  private:
    Call call_;
    int64_t nth_;
    int64_t seen_ = 0;
    bool ran_ = false;
    std::function<void()> action_;
    BeforeCall *outer_;
};

// Stops the clock of this thread: gettimeofday answers a time of its own, which nanosleep moves on without sleeping,
// and so a wait of ten seconds takes no time.
class FakeClock {
  public:
    explicit FakeClock(uint64_t milliseconds);  // the time at the start, since the epoch
    FakeClock();                                // starts at the real time
    ~FakeClock();
    FakeClock(const FakeClock &) = delete;
    FakeClock &operator=(const FakeClock &) = delete;

    uint64_t now() const;                // milliseconds since the epoch
    void advance(int64_t milliseconds);  // may be negative: a clock that is set back
    int sleeps() const { return sleeps_; }

    // For the wrappers.
    void slept(int64_t nanoseconds);
    int64_t nanoseconds() const { return nanoseconds_; }

  private:
    int64_t nanoseconds_;
    int sleeps_ = 0;
};

}  // namespace support
