// The C++ layer beside the C calls that it makes: a key, a log line, a lock, a value through a queue. The layer is the side called "korvex"; it may
// take three hundredths more.
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "conffile.h"
#include "fileio.h"
#include "korvex/conf.hpp"
#include "korvex/lock.hpp"
#include "korvex/log.hpp"
#include "korvex/queue.hpp"
#include "links.h"
#include "ratios.h"
#include "sandbox.h"
#include "simplog.h"

namespace {

constexpr const char *kSection = "global";
constexpr const char *kKey = "workgroup";
constexpr std::string_view kLine = "client 192.168.1.20 asked for 7 shares";

void get_by_c(const char *path) {
    std::array<char, 512> value;
    auto size = static_cast<int32_t>(value.size());
    if (Get_Conf_File_String_Value(path, kSection, kKey, value.data(), &size) != 0)
        std::abort();
}

void get_by_layer(const char *path) {
    if (!korvex::conf::get(path, kSection, kKey))
        std::abort();
}

void lock_by_c(const char *path) {
    if (Get_File_Lock(path, 0) != 1)
        std::abort();
    Release_File_Lock(path);
}

// A value through a queue, from the allocation of its node to its end.
struct Node {
    Link_Node link;
    int64_t value;
};

class CQueue {
  public:
    CQueue() { Link_Queue_Init(&queue_, 0, &mutex_, &condition_); }
    void push_and_pop(int64_t value) {
        auto *node = static_cast<Node *>(std::malloc(sizeof(Node)));
        if (node == nullptr)
            std::abort();
        node->link.wSize = 0;
        node->value = value;
        Link_Node *popped = nullptr;
        if (Link_Queue_Push_Node(&queue_, &node->link) != 0 || Link_Queue_Pop_Node(&queue_, &popped) != 1)
            std::abort();
        std::free(popped);
    }

  private:
    Link_Queue queue_{};
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
};

void push_and_pop(korvex::queue<int64_t> &queue, int64_t value) {
    queue.push(value);
    if (!queue.pop())
        std::abort();
}

}  // namespace

int main(int argc, char **argv) try {
    support::enter_sandbox();
    const support::SmallDisk disk(int64_t{1} << 30);
    const std::string path = disk.file("app.conf", "[global]\nnetbios name = ATTIC\nworkgroup = HOME\n");
    korvex::log log(disk.path("app.log"));
    FILE *const stream = log.handle()->fpLog;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the only thread
    setenv("TZ", "UTC", 1);
    const auto empty_log = [stream] {
        if (ftruncate(fileno(stream), 0) != 0)
            std::abort();
    };

    bench::add("C++ get/korvex", [&] { get_by_layer(path.c_str()); });
    bench::add("C++ get/C call", [&] { get_by_c(path.c_str()); });
    bench::add(
        "C++ log line/korvex", [&] { log.write(kLine); }, empty_log);
    bench::add(
        "C++ log line/C call", [&] { Simp_Log_Write(log.handle(), "%s", kLine.data()); }, empty_log);
    bench::add("C++ lock and release/korvex", [&] { const korvex::file_lock lock(path, std::chrono::seconds(0)); });
    bench::add("C++ lock and release/C call", [&] { lock_by_c(path.c_str()); });
    CQueue c_queue;
    korvex::queue<int64_t> queue;
    bench::add("C++ queue push and pop/korvex", [&] { push_and_pop(queue, 7); });
    bench::add("C++ queue push and pop/C call", [&] { c_queue.push_and_pop(7); });
    return bench::run(argc, argv, "cpp", {{"C++", 0.97, {}}});
} catch (const std::exception &error) {
    std::fprintf(stderr, "cpp_bench: %s\n", error.what());
    return 1;
}
