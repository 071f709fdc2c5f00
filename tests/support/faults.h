// Failing and watching the system's functions. The test program defines them itself, so the library's calls arrive
// here first (see faults.cpp); what is not armed goes straight on to the real one.
//
// Everything here is armed for the calling thread only, and for as long as the object lives. Arm just around the call
// under test: the test's own calls count, too.
#pragma once

#include <sys/statfs.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

namespace support {

// The functions that can be armed. `open` stands for open and open64, `stat` for stat and stat64, `rename` for rename and
// renameat, `pipe` for pipe and pipe2, `recv` for recv and recvmsg, and so on. `opendir` stands for each way to open a
// folder that is then read: openat and openat2 with O_DIRECTORY, too. `rmdir` stands for unlinkat with AT_REMOVEDIR, too.
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
    free,
    pthread_mutex_init,
    pthread_mutex_destroy,
    pthread_mutex_lock,
    pthread_mutex_unlock,
    pthread_cond_broadcast,
    fopen,
    fdopen,
    fclose,
    fflush,
    fwrite,
    vsnprintf,
    sendfile,
    splice,
    readlink,
    lseek,
    ftruncate,
    openat,
    fstatat,
    statfs,
    realpath,
    dirfd,
    popen,
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
    getdents64,
    openat2,  // made by its number, which counts as no `syscall` then
    fcntl,
    pipe,
    poll,
    socket,
    setsockopt,
    bind,
    listen,
    connect,
    recv,
    send,
    ioctl,
    getifaddrs,
    freeifaddrs,
    getaddrinfo,
    freeaddrinfo,
    close,
    closedir,
    fread,
    fgets,
    getline,
    fmemopen,
    fscanf,
    fprintf,
    fputc,
    printf,
    setvbuf,
    pclose,
    setmntent,
    getmntent,
    syscall,
    nanosleep,
    strftime,
    localtime_r,
    inet_ntop,
    // OpenSSL's, in the program that defines them: see tests/faults/openssl_calls.cpp.
    SSL_CTX_new,
    SSL_CTX_use_certificate_chain_file,
    SSL_CTX_use_PrivateKey_file,
    SSL_CTX_load_verify_locations,
    SSL_new,
    BIO_new_socket,
    SSL_connect,
    SSL_accept,
    SSL_read,
    SSL_peek,
    SSL_write,
    SSL_shutdown,
    allocation,  // malloc, calloc or realloc: for a test that need not know which of them the library uses
    count_of_calls,
};

// The arguments of a call, by their place from 0.
class Arguments {
  public:
    template <typename... Types>
    static Arguments of(Types... values) {
        return Arguments({word(values)...});
    }

    template <typename Type>
    Type at(size_t place) const {
        if constexpr (std::is_pointer_v<Type>)
            return reinterpret_cast<Type>(words_[place]);
        else
            return static_cast<Type>(words_[place]);
    }

  private:
    using Words = std::array<uintptr_t, 6>;
    explicit Arguments(const Words &words) : words_(words) {}

    template <typename Type>
    static uintptr_t word(Type value) {
        if constexpr (std::is_pointer_v<Type>)
            return reinterpret_cast<uintptr_t>(value);
        else if constexpr (std::is_integral_v<Type>)
            return static_cast<uintptr_t>(value);
        else
            return 0;
    }

    Words words_;
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
// error of 0 makes calls that answer a number answer 0 instead: nothing moved, or success. A negative one leaves `errno`
// as it was. What gives something back (close, fclose, pclose, closedir, a mutex) does so all the same, and a stream that
// fails to write is marked, as libc does it. Several may be armed at a time; where two strike, the one armed last counts.
class FailCall {
  public:
    explicit FailCall(Call call, int error, int nth = 1, int times = 1);
    ~FailCall();
    FailCall(const FailCall &) = delete;
    FailCall &operator=(const FailCall &) = delete;

    // How many calls have failed so far: a test that expects a failure checks that it took place.
    int failed() const { return failed_; }

    // For the wrappers.
    const FailCall *striking();
    int error() const { return error_; }

  private:
    Call call_;
    int error_;
    Turns turns_;
    int failed_ = 0;
    FailCall *outer_;
};

// Makes the nth call (from 1) and the `times - 1` calls after it answer `value`, without reaching the system and with
// `errno` as it was.
class AnswerCall {
  public:
    explicit AnswerCall(Call call, int64_t value, int nth = 1, int times = 1);
    ~AnswerCall();
    AnswerCall(const AnswerCall &) = delete;
    AnswerCall &operator=(const AnswerCall &) = delete;

    // For the wrappers.
    bool answers() { return turns_.next(); }
    int64_t value() const { return value_; }

  private:
    Call call_;
    int64_t value_;
    Turns turns_;
    AnswerCall *outer_;
};

// Makes the nth `read`, `write`, `sendfile`, `splice`, `recv`, `send`, `fread` or `fwrite` (from 1) and the `times - 1`
// calls after it move at most `count` bytes: the system is asked for no more. With a count of 0 a call moves nothing and
// leaves `errno` as it was. A stream that is written short is marked as failed. Several may be armed at a time.
class ShortCall {
  public:
    explicit ShortCall(Call call, size_t count, int nth = 1, int times = 1);
    ~ShortCall();
    ShortCall(const ShortCall &) = delete;
    ShortCall &operator=(const ShortCall &) = delete;

    // Whether a call asked for more.
    bool struck() const { return struck_; }

    // For the wrappers.
    size_t shortened(size_t size);

  private:
    Call call_;
    size_t count_;
    Turns turns_;
    bool struck_ = false;
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

// Notes this thread's calls in their order.
class RecordCalls {
  public:
    RecordCalls();
    ~RecordCalls();
    RecordCalls(const RecordCalls &) = delete;
    RecordCalls &operator=(const RecordCalls &) = delete;

    const std::vector<Call> &calls() const { return calls_; }

    // For the wrappers.
    void note(Call call);

  private:
    std::vector<Call> calls_;
    RecordCalls *outer_;
};

// Runs `action` just before the nth call (from 1; 0 is every call) reaches the system, or would have; the action's own
// calls do not run it again, but count, and can be made to fail (see Undisturbed). The action may look at the arguments,
// and at `errno` as the caller left it.
class BeforeCall {
  public:
    BeforeCall(Call call, int nth, std::function<void()> action);
    BeforeCall(Call call, int nth, std::function<void(const Arguments &)> action);
    ~BeforeCall();
    BeforeCall(const BeforeCall &) = delete;
    BeforeCall &operator=(const BeforeCall &) = delete;

    bool ran() const { return ran_; }

    // For the wrappers.
    void arrive(const Arguments &arguments);

  private:
    Call call_;
    int64_t nth_;
    int64_t seen_ = 0;
    bool ran_ = false;
    std::function<void(const Arguments &)> action_;
    BeforeCall *outer_;
};

// While one lives, this thread's calls are neither counted nor watched nor made to fail: for the stand-ins of system
// functions, whose own calls are not the library's.
class Undisturbed {
  public:
    Undisturbed();
    ~Undisturbed();
    Undisturbed(const Undisturbed &) = delete;
    Undisturbed &operator=(const Undisturbed &) = delete;

  private:
    bool outer_;
};

// Whether this program stands for a kernel without openat2: the environment has KORVEX_TEST_WITHOUT_OPENAT2 then. The call
// is not counted there, since the library goes on to openat.
bool openat2_is_refused();

// The common head of every wrapper, for those that stand in files of their own: true when the call is to fail, and
// `errno` says why.
bool must_fail(Call call, const Arguments &arguments = Arguments::of());
// What is to answer a call that does not fail; null where that is the system.
const AnswerCall *answer_for(Call call);
// How many of the bytes that a call is to move it is let move.
size_t allowed(Call call, size_t size);

// Stops the clock of this thread: gettimeofday and time answer a time of its own, which nanosleep moves on without
// sleeping, and so a wait of ten seconds takes no time.
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

// Changes what `statfs` answers for as long as it lives: other file systems than this machine can mount.
class ChangeStatfs {
  public:
    using Change = std::function<void(const std::string &path, struct statfs &status)>;

    explicit ChangeStatfs(Change change);
    ~ChangeStatfs();
    ChangeStatfs(const ChangeStatfs &) = delete;
    ChangeStatfs &operator=(const ChangeStatfs &) = delete;

    // For the wrappers.
    void change(const std::string &path, struct statfs &status) const { change_(path, status); }

  private:
    Change change_;
    ChangeStatfs *outer_;
};

}  // namespace support
