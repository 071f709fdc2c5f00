#include "calls.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace faults {
namespace {

#define NAMED(call) Call::call, #call

const std::vector<CallFacts> &all_facts() {
    static const std::vector<CallFacts> facts = {
        {NAMED(malloc), {ENOMEM}},
        {NAMED(calloc), {ENOMEM}},
        {NAMED(realloc), {ENOMEM}},
        {NAMED(allocation), {}},  // one of those three
        {NAMED(free), {}},
        {NAMED(open), {EACCES, EMFILE}},
        {NAMED(openat), {EACCES, EMFILE}},
        {NAMED(close), {EIO, EINTR}, Nature::gives_back},
        {NAMED(read), {EIO, EINTR}, Nature::moves_bytes},
        {NAMED(write), {ENOSPC, EINTR}, Nature::moves_bytes},
        {NAMED(sendfile), {EIO, EINVAL}, Nature::moves_bytes},
        {NAMED(splice), {EIO, EINVAL}, Nature::moves_bytes},
        {NAMED(lseek), {ESPIPE, EINVAL}},
        {NAMED(ftruncate), {EIO, EPERM}},
        {NAMED(stat), {ENOENT, EACCES}},
        {NAMED(lstat), {ENOENT, EACCES}},
        {NAMED(fstat), {EIO, EOVERFLOW}},
        {NAMED(fstatat), {ENOENT, EACCES}},
        {NAMED(statfs), {EIO, EACCES}},
        {NAMED(flock), {EWOULDBLOCK, EOPNOTSUPP}, Nature::gives_back},
        {NAMED(unlink), {ENOENT, EACCES}, Nature::gives_back},
        {NAMED(unlinkat), {ENOENT, EACCES}, Nature::gives_back},
        {NAMED(rmdir), {EBUSY, EACCES}, Nature::gives_back},
        {NAMED(rename), {EXDEV, EACCES}},
        {NAMED(mkdir), {ENOSPC, EACCES}},
        {NAMED(mkdirat), {ENOSPC, EACCES}},
        {NAMED(symlinkat), {ENOSPC, EACCES}},
        {NAMED(chmod), {EPERM, EROFS}},
        {NAMED(fchmod), {EPERM, EROFS}},
        {NAMED(fchmodat), {EPERM, EROFS}},
        {NAMED(fchown), {EPERM, EROFS}},
        {NAMED(fchownat), {EPERM, EROFS}},
        {NAMED(syscall), {EPERM, ENOSYS}},  // the library sets times by it
        {NAMED(readlink), {ENOENT, EACCES}},
        {NAMED(readlinkat), {EINVAL, EACCES}},
        {NAMED(realpath), {ENOENT, EACCES}},
        {NAMED(opendir), {EACCES, EMFILE}},
        {NAMED(readdir), {EBADF, EIO}},
        {NAMED(getdents64), {EBADF, EIO}},
        {NAMED(openat2), {EACCES, EMFILE, ENOSYS}},  // without it the way goes step by step
        {NAMED(dirfd), {EINVAL, ENOTSUP}},
        {NAMED(closedir), {EBADF, EIO}, Nature::gives_back},
        {NAMED(fcntl), {EINVAL, EAGAIN}},
        {NAMED(pipe), {EMFILE, ENFILE}},
        {NAMED(select), {EINTR, ENOMEM}},
        {NAMED(poll), {EINTR, ENOMEM}},
        {NAMED(kill), {EPERM, ESRCH}},
        {NAMED(nanosleep), {EINTR, EINVAL}},
        {NAMED(pthread_mutex_init), {EAGAIN, ENOMEM}},
        {NAMED(pthread_mutex_destroy), {EBUSY, EINVAL}, Nature::gives_back},
        {NAMED(pthread_mutex_lock), {EINVAL, EDEADLK}},
        {NAMED(pthread_mutex_unlock), {EINVAL, EPERM}, Nature::gives_back},
        {NAMED(pthread_cond_broadcast), {EINVAL, EPERM}},
        {NAMED(fopen), {EACCES, EMFILE}},
        {NAMED(fdopen), {EINVAL, ENOMEM}},
        {NAMED(fclose), {ENOSPC, EIO}, Nature::gives_back},
        {NAMED(fflush), {ENOSPC, EIO}},
        {NAMED(fread), {EIO, EINTR}, Nature::moves_bytes},
        {NAMED(fwrite), {ENOSPC, EIO}, Nature::moves_bytes},
        {NAMED(fgets), {EIO, EINTR}},
        {NAMED(getline), {EIO, ENOMEM}},
        {NAMED(fmemopen), {ENOMEM}},
        {NAMED(fscanf), {EIO, EINTR}},
        {NAMED(fprintf), {ENOSPC, EIO}},
        {NAMED(fputc), {ENOSPC, EIO}},
        {NAMED(printf), {ENOSPC, EIO}},
        {NAMED(vsnprintf), {EOVERFLOW, ENOMEM}},
        {NAMED(setvbuf), {EINVAL, ENOMEM}},
        {NAMED(popen), {EMFILE, ENOMEM}},
        {NAMED(pclose), {ECHILD, EINTR}, Nature::gives_back},
        {NAMED(setmntent), {ENOENT, EMFILE}},
        {NAMED(getmntent), {ENOMEM}},
        {NAMED(strftime), {ERANGE, EOVERFLOW}},
        {NAMED(localtime_r), {EOVERFLOW, ENOMEM}},
        {NAMED(inet_ntop), {}},  // the family is known and the room enough wherever the library calls it
        {NAMED(socket), {EMFILE, EAFNOSUPPORT}},
        {NAMED(setsockopt), {EINVAL, ENOPROTOOPT}},
        {NAMED(bind), {EADDRINUSE, EACCES}},
        {NAMED(listen), {EADDRINUSE, EOPNOTSUPP}},
        {NAMED(connect), {ECONNREFUSED, ENETUNREACH}},
        {NAMED(recv), {ECONNRESET, EINTR}, Nature::moves_bytes},
        {NAMED(send), {EPIPE, EINTR}, Nature::moves_bytes},
        {NAMED(ioctl), {ENODEV, EPERM}},
        {NAMED(getifaddrs), {ENOMEM, EMFILE}},
        {NAMED(freeifaddrs), {}},
        {NAMED(getaddrinfo), {EMFILE, EIO}},
        {NAMED(freeaddrinfo), {}},
        {NAMED(SSL_CTX_new), {ENOMEM, kNoErrno}},
        {NAMED(SSL_CTX_use_certificate_chain_file), {EACCES, kNoErrno}},
        {NAMED(SSL_CTX_use_PrivateKey_file), {EACCES, kNoErrno}},
        {NAMED(SSL_CTX_load_verify_locations), {EACCES, kNoErrno}},
        {NAMED(SSL_new), {ENOMEM, kNoErrno}},
        {NAMED(BIO_new_socket), {ENOMEM, kNoErrno}},
        {NAMED(SSL_connect), {ECONNRESET, kNoErrno}},
        {NAMED(SSL_accept), {ECONNRESET, kNoErrno}},
        {NAMED(SSL_read), {ECONNRESET, kNoErrno}, Nature::moves_bytes},
        {NAMED(SSL_peek), {ECONNRESET, kNoErrno}, Nature::moves_bytes},
        {NAMED(SSL_write), {EPIPE, kNoErrno}, Nature::moves_bytes},
        {NAMED(SSL_shutdown), {EPIPE, kNoErrno}, Nature::gives_back},
    };
    return facts;
}

}  // namespace

const CallFacts &facts_of(Call call) {
    for (const CallFacts &facts : all_facts())
        if (facts.call == call)
            return facts;

    std::fprintf(stderr, "call %d is not in the table of calls\n", static_cast<int>(call));
    std::abort();
}

}  // namespace faults
