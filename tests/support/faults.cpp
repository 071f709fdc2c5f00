#include "faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "heap_watch.h"
#include "wrap.h"

namespace support {
namespace {

constexpr size_t kCalls = static_cast<size_t>(Call::count_of_calls);

thread_local ChangeStatfs *t_statfs = nullptr;
thread_local std::array<FailCall *, kCalls> t_failing{};
thread_local std::array<AnswerCall *, kCalls> t_answering{};
thread_local std::array<ShortCall *, kCalls> t_shortening{};
thread_local std::array<BeforeCall *, kCalls> t_watching{};
thread_local std::array<int64_t, kCalls> t_counts{};
thread_local RecordCalls *t_recording = nullptr;
thread_local FakeClock *t_clock = nullptr;
thread_local bool t_undisturbed = false;

size_t index(Call call) {
    return static_cast<size_t>(call);
}

// To read it: not to hold it alone, and not by a descriptor of the same folder.
bool opens_folder(const char *path, uint64_t flags) {
    return (flags & O_DIRECTORY) != 0 && (flags & O_PATH) == 0 && std::strcmp(path, ".") != 0;
}

Call opening_call(const char *path, int flags) {
    return opens_folder(path, static_cast<uint64_t>(flags)) ? Call::opendir : Call::openat;
}

Call numbered_call(long number, long second, long third) {
    if (number != SYS_openat2)
        return Call::syscall;
    const auto *how = reinterpret_cast<const open_how *>(third);
    return opens_folder(reinterpret_cast<const char *>(second), how->flags) ? Call::opendir : Call::openat2;
}

int64_t real_nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

bool arrives(Call call, const Arguments &arguments) {
    if (t_undisturbed)
        return false;

    t_counts[index(call)]++;
    if (t_recording != nullptr)
        t_recording->note(call);

    if (BeforeCall *watcher = std::exchange(t_watching[index(call)], nullptr)) {
        watcher->arrive(arguments);
        t_watching[index(call)] = watcher;
    }

    FailCall *innermost = t_failing[index(call)];
    const FailCall *fault = innermost == nullptr ? nullptr : innermost->striking();
    if (fault == nullptr)
        return false;

    if (fault->error() >= 0)
        errno = fault->error();
    return true;
}

}  // namespace

bool openat2_is_refused() {
    static const bool refused = std::getenv("KORVEX_TEST_WITHOUT_OPENAT2") != nullptr;
    return refused;
}

const AnswerCall *answer_for(Call call) {
    AnswerCall *answering = t_undisturbed ? nullptr : t_answering[index(call)];
    return answering != nullptr && answering->answers() ? answering : nullptr;
}

size_t allowed(Call call, size_t size) {
    ShortCall *shortening = t_undisturbed ? nullptr : t_shortening[index(call)];
    return shortening == nullptr ? size : shortening->shortened(size);
}

bool must_fail(Call call, const Arguments &arguments) {
    const bool allocates = call == Call::malloc || call == Call::calloc || call == Call::realloc;
    const bool fails = arrives(call, arguments);
    return (allocates && arrives(Call::allocation, arguments)) || fails;
}

FailCall::FailCall(Call call, int error, int nth, int times)
    : call_(call), error_(error), turns_(nth, times), outer_(t_failing[index(call)]) {
    t_failing[index(call)] = this;
}

FailCall::~FailCall() {
    t_failing[index(call_)] = outer_;
}

const FailCall *FailCall::striking() {
    const FailCall *outer = outer_ == nullptr ? nullptr : outer_->striking();
    if (!turns_.next())
        return outer;

    failed_++;
    return this;
}

AnswerCall::AnswerCall(Call call, int64_t value, int nth, int times)
    : call_(call), value_(value), turns_(nth, times), outer_(t_answering[index(call)]) {
    t_answering[index(call)] = this;
}

AnswerCall::~AnswerCall() {
    t_answering[index(call_)] = outer_;
}

ShortCall::ShortCall(Call call, size_t count, int nth, int times)
    : call_(call), count_(count), turns_(nth, times), outer_(t_shortening[index(call)]) {
    t_shortening[index(call)] = this;
}

ShortCall::~ShortCall() {
    t_shortening[index(call_)] = outer_;
}

size_t ShortCall::shortened(size_t size) {
    const size_t left = outer_ == nullptr ? size : outer_->shortened(size);
    if (!turns_.next() || left <= count_)
        return left;

    struck_ = true;
    return count_;
}

CountCalls::CountCalls(Call call) : call_(call), start_(t_counts[index(call)]) {}

int64_t CountCalls::count() const {
    return t_counts[index(call_)] - start_;
}

RecordCalls::RecordCalls() : outer_(t_recording) {
    t_recording = this;
}

RecordCalls::~RecordCalls() {
    t_recording = outer_;
}

void RecordCalls::note(Call call) {
    const Undisturbed growing;
    calls_.push_back(call);
}

BeforeCall::BeforeCall(Call call, int nth, std::function<void()> action)
    : BeforeCall(call, nth, [action = std::move(action)](const Arguments &) { action(); }) {}

BeforeCall::BeforeCall(Call call, int nth, std::function<void(const Arguments &)> action)
    : call_(call), nth_(nth), action_(std::move(action)), outer_(t_watching[index(call)]) {
    t_watching[index(call)] = this;
}

BeforeCall::~BeforeCall() {
    t_watching[index(call_)] = outer_;
}

void BeforeCall::arrive(const Arguments &arguments) {
    if (++seen_ == nth_ || nth_ == 0) {
        ran_ = true;
        action_(arguments);
    }
}

Undisturbed::Undisturbed() : outer_(std::exchange(t_undisturbed, true)) {}

Undisturbed::~Undisturbed() {
    t_undisturbed = outer_;
}

FakeClock::FakeClock(uint64_t milliseconds) : nanoseconds_(static_cast<int64_t>(milliseconds) * 1'000'000) {
    t_clock = this;
}

FakeClock::FakeClock() : nanoseconds_(real_nanoseconds()) {
    t_clock = this;
}

FakeClock::~FakeClock() {
    t_clock = nullptr;
}

uint64_t FakeClock::now() const {
    return static_cast<uint64_t>(nanoseconds_ / 1'000'000);
}

void FakeClock::advance(int64_t milliseconds) {
    nanoseconds_ += milliseconds * 1'000'000;
}

void FakeClock::slept(int64_t nanoseconds) {
    nanoseconds_ += nanoseconds;
    sleeps_++;
}

ChangeStatfs::ChangeStatfs(Change change) : change_(std::move(change)), outer_(t_statfs) {
    t_statfs = this;
}

ChangeStatfs::~ChangeStatfs() {
    t_statfs = outer_;
}

}  // namespace support

// One function of the system that stands for several calls here.
#define WRAP_BY(which, symbol, result, failed, parameters, arguments)                                      \
    extern "C" __attribute__((visibility("default"))) result wrapped_##symbol parameters __asm__(#symbol); \
    result wrapped_##symbol parameters {                                                                   \
        using Function = result(*) parameters;                                                             \
        static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, #symbol));                    \
        const support::Call call = which;                                                                  \
        if (support::must_fail(call, support::Arguments::of arguments))                                    \
            return failed;                                                                                 \
        if (const support::AnswerCall *answer = support::answer_for(call))                                 \
            return support::as<result>(answer->value());                                                   \
        return real arguments;                                                                             \
    }

// The wrappers of what is no stream: see wrap.h.
WRAP(calloc, calloc, void *, nullptr, (size_t number, size_t size), (number, size))
WRAP(realloc, realloc, void *, nullptr, (void *block, size_t size), (block, size))
WRAP_TRANSFER(read, read, (int descriptor, void *buffer, size_t size), (descriptor, buffer, size))
WRAP_TRANSFER(write, write, (int descriptor, const void *buffer, size_t size), (descriptor, buffer, size))
WRAP_TRANSFER(sendfile, sendfile, (int out, int in, off_t *offset, size_t size), (out, in, offset, size))
WRAP_TRANSFER(sendfile, sendfile64, (int out, int in, off_t *offset, size_t size), (out, in, offset, size))
WRAP_TRANSFER(splice, splice, (int in, off_t *in_offset, int out, off_t *out_offset, size_t size, unsigned int flags),
              (in, in_offset, out, out_offset, size, flags))
WRAP(readlink, readlink, ssize_t, -1, (const char *path, char *buffer, size_t size), (path, buffer, size))
WRAP(realpath, realpath, char *, nullptr, (const char *path, char *resolved), (path, resolved))
WRAP(realpath, __realpath_chk, char *, nullptr, (const char *path, char *resolved, size_t room), (path, resolved, room))
WRAP(dirfd, dirfd, int, -1, (void *folder), (folder))
WRAP(lseek, lseek, off_t, -1, (int descriptor, off_t offset, int whence), (descriptor, offset, whence))
WRAP(lseek, lseek64, off_t, -1, (int descriptor, off_t offset, int whence), (descriptor, offset, whence))
WRAP(ftruncate, ftruncate, int, -1, (int descriptor, off_t length), (descriptor, length))
WRAP(ftruncate, ftruncate64, int, -1, (int descriptor, off_t length), (descriptor, length))
WRAP(fstatat, fstatat, int, NOTHING_OR_FAILED, (int folder, const char *path, void *status, int flags),
     (folder, path, status, flags))
WRAP(fstatat, fstatat64, int, NOTHING_OR_FAILED, (int folder, const char *path, void *status, int flags),
     (folder, path, status, flags))
WRAP(select, select, int, -1, (int count, fd_set *in, fd_set *out, fd_set *except, timeval *timeout),
     (count, in, out, except, timeout))
WRAP(stat, stat, int, -1, (const char *path, void *status), (path, status))
WRAP(stat, stat64, int, -1, (const char *path, void *status), (path, status))
WRAP(lstat, lstat, int, -1, (const char *path, void *status), (path, status))
WRAP(lstat, lstat64, int, -1, (const char *path, void *status), (path, status))
WRAP(fstat, fstat, int, -1, (int descriptor, void *status), (descriptor, status))
WRAP(fstat, fstat64, int, -1, (int descriptor, void *status), (descriptor, status))
WRAP(flock, flock, int, -1, (int descriptor, int operation), (descriptor, operation))
WRAP(unlink, unlink, int, -1, (const char *path), (path))
WRAP(rmdir, rmdir, int, -1, (const char *path), (path))
WRAP(rename, rename, int, -1, (const char *from, const char *to), (from, to))
WRAP(rename, renameat, int, -1, (int folder, const char *from, int to_folder, const char *to),
     (folder, from, to_folder, to))
WRAP(mkdir, mkdir, int, -1, (const char *path, mode_t mode), (path, mode))
WRAP(chmod, chmod, int, -1, (const char *path, mode_t mode), (path, mode))
WRAP(kill, kill, int, -1, (pid_t process, int number), (process, number))
// The functions of the threads answer the error itself.
WRAP(pthread_mutex_init, pthread_mutex_init, int, errno, (void *mutex, const void *attributes), (mutex, attributes))
WRAP(pthread_mutex_destroy, pthread_mutex_destroy, int, errno, (void *mutex), (mutex))
WRAP(pthread_mutex_lock, pthread_mutex_lock, int, errno, (void *mutex), (mutex))
WRAP_GIVING_BACK(pthread_mutex_unlock, pthread_mutex_unlock, int, errno, (void *mutex), (mutex))
WRAP(pthread_cond_broadcast, pthread_cond_broadcast, int, errno, (void *condition), (condition))

WRAP_TRANSFER(read, __read_chk, (int descriptor, void *buffer, size_t size, size_t room),
              (descriptor, buffer, size, room))
WRAP(strftime, strftime, size_t, 0, (char *text, size_t size, const char *format, const tm *parts),
     (text, size, format, parts))
WRAP(localtime_r, localtime_r, tm *, nullptr, (const time_t *time, tm *parts), (time, parts))
WRAP(inet_ntop, inet_ntop, const char *, nullptr, (int family, const void *address, char *text, socklen_t size),
     (family, address, text, size))
WRAP_GIVING_BACK(close, close, int, -1, (int descriptor), (descriptor))
WRAP_GIVING_BACK(closedir, closedir, int, -1, (void *folder), (folder))
WRAP(fchmod, fchmod, int, -1, (int descriptor, mode_t mode), (descriptor, mode))
WRAP(fchown, fchown, int, -1, (int descriptor, uid_t owner, gid_t group), (descriptor, owner, group))
WRAP(fchmodat, fchmodat, int, -1, (int folder, const char *name, mode_t mode, int flags), (folder, name, mode, flags))
WRAP(fchownat, fchownat, int, -1, (int folder, const char *name, uid_t owner, gid_t group, int flags),
     (folder, name, owner, group, flags))
WRAP(mkdirat, mkdirat, int, -1, (int folder, const char *name, mode_t mode), (folder, name, mode))
WRAP(symlinkat, symlinkat, int, -1, (const char *target, int folder, const char *name), (target, folder, name))
WRAP(readlinkat, readlinkat, ssize_t, -1, (int folder, const char *name, char *buffer, size_t size),
     (folder, name, buffer, size))
WRAP(readlinkat, __readlinkat_chk, ssize_t, -1, (int folder, const char *name, char *buffer, size_t size, size_t room),
     (folder, name, buffer, size, room))
WRAP(opendir, opendir, void *, nullptr, (const char *path), (path))
WRAP(readdir, readdir, void *, nullptr, (void *folder), (folder))
WRAP(readdir, readdir64, void *, nullptr, (void *folder), (folder))
WRAP(getdents64, getdents64, ssize_t, -1, (int folder, void *buffer, size_t size), (folder, buffer, size))
WRAP(pipe, pipe, int, -1, (int *ends), (ends))
WRAP(pipe, pipe2, int, -1, (int *ends, int flags), (ends, flags))
WRAP(poll, poll, int, -1, (pollfd * entries, nfds_t count, int timeout), (entries, count, timeout))
WRAP(poll, __poll_chk, int, -1, (pollfd * entries, nfds_t count, int timeout, size_t room),
     (entries, count, timeout, room))
WRAP(socket, socket, int, -1, (int family, int type, int protocol), (family, type, protocol))
WRAP(setsockopt, setsockopt, int, -1, (int descriptor, int level, int option, const void *value, socklen_t size),
     (descriptor, level, option, value, size))
WRAP(bind, bind, int, -1, (int descriptor, const sockaddr *address, socklen_t size), (descriptor, address, size))
WRAP(listen, listen, int, -1, (int descriptor, int backlog), (descriptor, backlog))
WRAP(connect, connect, int, -1, (int descriptor, const sockaddr *address, socklen_t size), (descriptor, address, size))
WRAP_TRANSFER(recv, recv, (int descriptor, void *buffer, size_t size, int flags), (descriptor, buffer, size, flags))
WRAP_TRANSFER(recv, __recv_chk, (int descriptor, void *buffer, size_t size, size_t room, int flags),
              (descriptor, buffer, size, room, flags))

extern "C" __attribute__((visibility("default"))) ssize_t wrapped_recvmsg(int descriptor, msghdr *message,
                                                                          int flags) __asm__("recvmsg");
ssize_t wrapped_recvmsg(int descriptor, msghdr *message, int flags) {
    static const auto real = reinterpret_cast<ssize_t (*)(int, msghdr *, int)>(dlsym(RTLD_NEXT, "recvmsg"));
    if (support::must_fail(support::Call::recv, support::Arguments::of(descriptor, message, flags)))
        return NOTHING_OR_FAILED;
    if (const support::AnswerCall *answer = support::answer_for(support::Call::recv))
        return answer->value();

    size_t left = 0;
    for (size_t i = 0; i < message->msg_iovlen; i++)
        left += message->msg_iov[i].iov_len;
    left = support::allowed(support::Call::recv, left);
    for (size_t i = 0; i < message->msg_iovlen; i++) {
        message->msg_iov[i].iov_len = std::min(message->msg_iov[i].iov_len, left);
        left -= message->msg_iov[i].iov_len;
    }
    return real(descriptor, message, flags);
}

WRAP_TRANSFER(send, send, (int descriptor, const void *buffer, size_t size, int flags),
              (descriptor, buffer, size, flags))

// open, openat and fcntl take their last argument optionally; passing one that is not looked at is harmless.
WRAP(open, open, int, -1, (const char *path, int flags, mode_t mode), (path, flags, mode))
WRAP(open, open64, int, -1, (const char *path, int flags, mode_t mode), (path, flags, mode))
WRAP_BY(support::opening_call(path, flags), openat, int, -1, (int folder, const char *path, int flags, mode_t mode),
        (folder, path, flags, mode))
WRAP_BY(support::opening_call(path, flags), openat64, int, -1, (int folder, const char *path, int flags, mode_t mode),
        (folder, path, flags, mode))
// What a fortified build calls where no mode is given.
WRAP(open, __open64_2, int, -1, (const char *path, int flags), (path, flags))
WRAP_BY(support::opening_call(path, flags), __openat64_2, int, -1, (int folder, const char *path, int flags),
        (folder, path, flags))
WRAP_BY((flags & AT_REMOVEDIR) != 0 ? support::Call::rmdir : support::Call::unlinkat, unlinkat, int, -1,
        (int folder, const char *name, int flags), (folder, name, flags))
WRAP(fcntl, fcntl, int, -1, (int descriptor, int command, uintptr_t argument), (descriptor, command, argument))
WRAP(fcntl, fcntl64, int, -1, (int descriptor, int command, uintptr_t argument), (descriptor, command, argument))

extern "C" __attribute__((visibility("default"))) int wrapped_gettimeofday(timeval *now,
                                                                           void *zone) __asm__("gettimeofday");
int wrapped_gettimeofday(timeval *now, void *zone) {
    static const auto real = reinterpret_cast<int (*)(timeval *, void *)>(dlsym(RTLD_NEXT, "gettimeofday"));
    if (support::t_clock == nullptr)
        return real(now, zone);

    now->tv_sec = support::t_clock->nanoseconds() / 1'000'000'000;
    now->tv_usec = support::t_clock->nanoseconds() % 1'000'000'000 / 1000;
    return 0;
}

extern "C" __attribute__((visibility("default"))) time_t wrapped_time(time_t *now) __asm__("time");
time_t wrapped_time(time_t *now) {
    static const auto real = reinterpret_cast<time_t (*)(time_t *)>(dlsym(RTLD_NEXT, "time"));
    if (support::t_clock == nullptr)
        return real(now);

    const time_t seconds = support::t_clock->nanoseconds() / 1'000'000'000;
    if (now != nullptr)
        *now = seconds;
    return seconds;
}

extern "C" __attribute__((visibility("default"))) int wrapped_nanosleep(const timespec *request,
                                                                        timespec *remaining) __asm__("nanosleep");
int wrapped_nanosleep(const timespec *request, timespec *remaining) {
    static const auto real = reinterpret_cast<int (*)(const timespec *, timespec *)>(dlsym(RTLD_NEXT, "nanosleep"));
    if (support::must_fail(support::Call::nanosleep))
        return -1;
    if (support::t_clock == nullptr)
        return real(request, remaining);

    support::t_clock->slept(request->tv_sec * 1'000'000'000 + request->tv_nsec);
    return 0;
}

// Of the calls that the library makes by their number.
extern "C" __attribute__((visibility("default"))) long wrapped_syscall(long number, long first, long second, long third,
                                                                       long fourth, long fifth,
                                                                       long sixth) __asm__("syscall");
long wrapped_syscall(long number, long first, long second, long third, long fourth, long fifth, long sixth) {
    static const auto real =
        reinterpret_cast<long (*)(long, long, long, long, long, long, long)>(dlsym(RTLD_NEXT, "syscall"));
    if (number == SYS_openat2 && support::openat2_is_refused())
        return real(number, first, second, third, fourth, fifth, sixth);
    const support::Call call = support::numbered_call(number, second, third);
    if (support::must_fail(call, support::Arguments::of(number, first, second, third, fourth, fifth)))
        return -1;
    if (const support::AnswerCall *answer = support::answer_for(call))
        return answer->value();
    return real(number, first, second, third, fourth, fifth, sixth);
}

#define WRAP_STATFS(symbol)                                                                                         \
    extern "C" __attribute__((visibility("default"))) int wrapped_##symbol(const char *path,                        \
                                                                           struct statfs *status) __asm__(#symbol); \
    int wrapped_##symbol(const char *path, struct statfs *status) {                                                 \
        using Function = int (*)(const char *, struct statfs *);                                                    \
        static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, #symbol));                             \
        if (support::must_fail(support::Call::statfs))                                                              \
            return -1;                                                                                              \
        const int result = real(path, status);                                                                      \
        if (result == 0 && support::t_statfs != nullptr)                                                            \
            support::t_statfs->change(path, *status);                                                               \
        return result;                                                                                              \
    }

WRAP(statfs, fstatfs, int, -1, (int descriptor, struct statfs *status), (descriptor, status))
WRAP(statfs, fstatfs64, int, -1, (int descriptor, struct statfs *status), (descriptor, status))
WRAP_STATFS(statfs)
WRAP_STATFS(statfs64)

extern "C" __attribute__((visibility("default"))) void *wrapped_malloc(size_t size) __asm__("malloc");
void *wrapped_malloc(size_t size) {
    static const auto real = reinterpret_cast<void *(*)(size_t)>(dlsym(RTLD_NEXT, "malloc"));
    if (support::HeapWatch *watch = support::HeapWatch::current())
        watch->ask(size);
    if (support::must_fail(support::Call::malloc))
        return nullptr;

    void *block = real(size);
    if (const support::HeapWatch *watch = support::HeapWatch::current())
        watch->fill(block, size);
    return block;
}

extern "C" __attribute__((visibility("default"))) void wrapped_free(void *block) __asm__("free");
void wrapped_free(void *block) {
    // The look-up frees the text of an earlier one that failed, which has to wait until it is done.
    static void (*real)(void *) = nullptr;
    static void *waiting = nullptr;
    static bool looking_up = false;
    if (looking_up) {
        waiting = block;
        return;
    }
    if (real == nullptr) {
        looking_up = true;
        real = reinterpret_cast<void (*)(void *)>(dlsym(RTLD_NEXT, "free"));
        looking_up = false;
        real(waiting);
    }

    if (support::HeapWatch *watch = support::HeapWatch::current())
        watch->take_back(block);
    (void)support::must_fail(support::Call::free);  // it can be counted and watched, but not fail
    real(block);
}
