// How the time of a key grows with the number of keys in a file: reading all, and reading and changing the last one. A
// peer that takes long is not asked for larger files.
#include <cstdio>
#include <set>
#include <string>

#include "figures.h"
#include "growth.h"
#include "peers.h"
#include "sample.h"
#include "sandbox.h"

namespace {

constexpr size_t kInSection = 100;
constexpr double kTooLong = 1.0;  // seconds

void keep(const char *work, const char *side, size_t keys, double seconds) {
    bench::record_point({.family = "growth of keys",
                         .work = work,
                         .side = side,
                         .size = keys,
                         .value = seconds / static_cast<double>(keys)});
}

void measure_reading(const std::string &path, size_t keys, std::set<std::string> &too_slow) {
    for (const bench::Peer *peer = bench::peers(); peer != nullptr; peer = peer->next) {
        if (!peer->stores || too_slow.count(peer->name) != 0)
            continue;
        const double seconds = bench::processor_seconds([&] { peer->parse(path.c_str()); });
        keep("read all", peer->name, keys, seconds);
        if (seconds > kTooLong)
            too_slow.insert(peer->name);
    }
}

void measure_last_key(const std::string &path, size_t keys) {
    const bench::Peer &korvex = bench::korvex_peer();
    const std::string section = bench::section_name(keys / kInSection - 1);
    const std::string key = bench::key_name(kInSection - 1);
    const auto get = [&] { return korvex.get(path.c_str(), section.c_str(), key.c_str()); };
    keep("get the last", "korvex", keys, bench::processor_seconds([&] { get(); }));
    keep("set the last", "korvex", keys,
         bench::processor_seconds([&] { korvex.set(path.c_str(), section.c_str(), key.c_str(), "a new value"); }));
    if (get() != "a new value")
        std::printf("the last key was not changed\n");
}

}  // namespace

int main() {
    support::enter_sandbox();
    const support::SmallDisk disk(int64_t{256} << 20);
    std::set<std::string> too_slow;
    std::puts("Processor time, by the number of keys in the file:");
    for (const size_t keys : bench::sizes({1'000, 10'000, 100'000, 1'000'000})) {
        const std::string path = disk.file("growth.conf", bench::sample_text(keys / kInSection, kInSection));
        measure_reading(path, keys, too_slow);
        measure_last_key(path, keys);
    }
}
