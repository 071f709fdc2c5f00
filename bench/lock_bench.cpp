// An uncontended lock and its release, beside the system calls that they consist of; and the wait for a lock that
// nobody holds, beside the one call that tells so.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
    bench::add("watched lock is free/korvex", [&] { Check_File_Lock(path.c_str(), 0); });
    bench::add("watched lock is free/stat", [] {
        struct stat status;
        (void)stat("/var/lock/bench.conf.lck", &status);
    });
    return bench::run(argc, argv, "locks");
}
