// One call of the library between two marks, for the count_*_syscalls.sh to look at under strace.
//
// The call is made once before the first mark, so that what a process pays only once (the first use of the heap, the
// time zone) is not counted.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>

#include "conffile.h"
#include "fileio.h"
#include "miscfunc.h"
#include "sample.h"
#include "sandbox.h"
#include "simplog.h"
#include "sysinfo.h"

namespace {

void mark(const char *name) {
    (void)access(name, F_OK);  // of a file that does not exist: all that it does is to appear in the trace
}

void set(const std::string &path) {
    Set_Conf_File_String_Value(path.c_str(), "sect5", "key5", "another value");
}

void get(const std::string &path) {
    char value[256];
    int32_t size = sizeof value;
    Get_Conf_File_String_Value(path.c_str(), "sect5", "key5", value, &size);
}

void lock(const std::string &path) {
    Get_File_Lock(path.c_str(), 0);
    Release_File_Lock(path.c_str());
}

void list_interfaces() {
    Netif_Info *interfaces = nullptr;
    int32_t count = 0;
    Scan_Network_Interface(&interfaces, &count);
    std::printf("%d interfaces\n", count);
    Free_Network_Interface(interfaces);
}

void search_processes() {
    int32_t *pids = nullptr;
    int32_t count = 0;
    Get_All_Pids("sleep", &pids, &count);
    std::printf("%d found\n", count);
    std::free(pids);
}

}  // namespace

int main(int argc, char **argv) {
    support::enter_sandbox();
    const support::SmallDisk disk(1 << 20);
    // 39 keys in each of 10 sections: a little over 10,000 bytes.
    const std::string path = disk.file("app.conf", bench::sample_text(10, 39));
    Simp_Log *log = nullptr;
    Simp_Log_Create(disk.path("app.log").c_str(), &log, 24, 3, 0);
    Simp_Log_Open(log, 0);

    const std::map<std::string, std::function<void()>> calls = {
        {"set", [&] { set(path); }},
        {"get", [&] { get(path); }},
        {"log", [&] { Simp_Log_Write(log, "client %s asked for %d shares", "192.168.1.20", 7); }},
        {"lock", [&] { lock(path); }},
        {"interfaces", list_interfaces},
        {"processes", search_processes},
    };
    const auto call = calls.find(argc == 2 ? argv[1] : "");
    if (call == calls.end()) {
        std::fprintf(stderr, "usage: %s set|get|log|lock|interfaces|processes\n", argv[0]);
        return 2;
    }
    call->second();
    mark("/korvex-begin");
    call->second();
    mark("/korvex-end");
    Simp_Log_Release(log);
}
