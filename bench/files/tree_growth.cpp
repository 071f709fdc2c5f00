// How time and memory grow with the entries of a tree: measuring, copying and removing it, beside the programs of the
// system that do the same. Files are empty, 1,000 in a folder.
#include <algorithm>
#include <cstdio>
#include <string>

#include "commands.h"
#include "figures.h"
#include "growth.h"
#include "sandbox.h"
#include "tree_works.h"

namespace {

using bench::Command;

constexpr const char *kFamily = "growth of entries";
constexpr size_t kInFolder = 1'000;

void measure(const std::string &work, const std::string &side, size_t entries, const Command &command) {
    const bench::Spent spent = bench::run_command(command);
    bench::record_point({.family = kFamily,
                         .work = work,
                         .side = side,
                         .size = entries,
                         .value = spent.cost.processor / static_cast<double>(entries)});
    bench::record_point({.family = kFamily,
                         .work = work,
                         .side = side,
                         .size = entries,
                         .value = static_cast<double>(spent.peak) * 1024,
                         .unit = "B",
                         .measure = "memory"});
}

// Each side removes the copy that it made.
void measure_all(const support::SmallDisk &disk, size_t entries) {
    const std::string tree = disk.path("tree");
    const std::string copy = disk.path("copy");
    const std::string other = disk.path("other");
    const size_t in_folder = std::min(entries, kInFolder);
    bench::make_tree(tree, entries / in_folder, in_folder, 0);

    measure("measure", "korvex", entries, bench::work("measure", tree));
    measure("measure", "du -s", entries, {"du", "-s", tree});
    measure("copy", "korvex", entries, bench::work("copy", tree, copy));
    measure("remove", "korvex", entries, bench::work("remove", copy));
    measure("copy", "cp -a", entries, bench::cp_command(tree, other));
    measure("remove", "rm -rf", entries, {"rm", "-rf", other});
    bench::run_command(bench::work("remove", tree));
}

}  // namespace

int main(int argc, char **argv) {
    bench::work_if_asked(argc, argv);
    support::enter_sandbox();
    const support::SmallDisk disk(int64_t{8} << 30);
    std::puts("Processor time of an entry, and the peak of the resident memory of the whole process:");
    std::fflush(stdout);
    for (const size_t entries : bench::sizes({1'000, 10'000, 100'000, 1'000'000}))
        measure_all(disk, entries);
}
