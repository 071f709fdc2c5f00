// An uncontended lock and its release, beside the system calls that they consist of and beside liblockfile, which writes
// a file of its own and links it to the lock's name; and the wait for a lock that nobody holds, beside the one call that
// tells so.
#ifdef BENCH_LOCKFILE
#include <lockfile.h>
#endif
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "fileio.h"
#include "ratios.h"
#include "sandbox.h"

namespace {

void bare_lock(const char *path) {
    const char content[16] = {};
    const int file = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0777);
    if (write(file, content, sizeof content) != sizeof content)
        std::abort();
    close(file);
    unlink(path);
}

#ifdef BENCH_LOCKFILE
// With the holder's process number in it, as the library's locks have.
void liblockfile_lock(const char *path) {
    if (lockfile_create(path, 0, L_PID) != L_SUCCESS || lockfile_remove(path) != 0)
        std::abort();
}
#endif

}  // namespace

int main(int argc, char **argv) {
    support::enter_sandbox();
    const support::SmallDisk disk(1 << 20);
    const std::string path = disk.path("bench.conf");
    const std::string side_lock = path + ".lck";

    bench::add("held lock and release/korvex", [&] {
        Get_File_Lock(path.c_str(), 0);
        Release_File_Lock(path.c_str());
    });
    bench::add("held lock and release/open+write+close+unlink", [] { bare_lock("/var/lock/_bench.conf.lck"); });
    bench::add("side lock and release/korvex", [&] {
        Get_File_Lock_Ex(path.c_str(), 0);
        Release_File_Lock_Ex(path.c_str());
    });
    bench::add("side lock and release/open+write+close+unlink", [&] { bare_lock(side_lock.c_str()); });
#ifdef BENCH_LOCKFILE
    bench::add("held lock and release/liblockfile", [] { liblockfile_lock("/var/lock/_bench.conf.lck"); });
    bench::add("side lock and release/liblockfile", [&] { liblockfile_lock(side_lock.c_str()); });
#else
    std::puts("liblockfile is left out: built without it");
#endif
    bench::add("watched lock is free/korvex", [&] { Check_File_Lock(path.c_str(), 0); });
    bench::add("watched lock is free/stat", [] {
        struct stat status;
        (void)stat("/var/lock/bench.conf.lck", &status);
    });
    return bench::run(argc, argv, "locks");
}
