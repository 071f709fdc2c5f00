// Folder trees and large files beside the programs of the system that do the same jobs, and beside std::filesystem:
// measuring, removing and copying trees of 100,000 files and more, and copying one large file beside a bare loop of read and
// write.
//
// All sides run as processes of their own on equal trees, one after the other, and change places in each round. The
// library's side is this program again, with a job and its paths as arguments, and so is that of std::filesystem; so
// starting up counts on all sides.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "figures.h"
#include "rounds.h"
#include "sandbox.h"
#include "tree_works.h"

namespace {

namespace fs = std::filesystem;

using bench::Command;
using bench::make_tree;
using bench::measured;
using bench::work;

constexpr size_t kRounds = 7;
constexpr size_t kLargeRounds = 15;  // a gigabyte of fresh memory costs one time more, another time less

// ---- The comparison.

struct Program {
    std::string name;
    Command command;
    std::string aim = {};
};

struct Comparison {
    std::string job;
    std::vector<Program> programs;  // the library's first
    std::function<void()> prepare;  // before each run of a side
    std::function<bool()> is_done;  // whether the run did what it should
    size_t rounds = kRounds;
};

bench::Cost run_side(const Comparison &comparison, const Program &side) {
    comparison.prepare();
    const bench::Cost cost = bench::run_command(side.command).cost;
    if (!comparison.is_done())
        throw std::runtime_error(side.name + " did not do its job: " + comparison.job);
    return cost;
}

void compare(const Comparison &comparison) {
    std::vector<bench::Side> sides;
    for (const Program &program : comparison.programs)
        sides.push_back({program.name, [&] { return run_side(comparison, program); }, program.aim});
    bench::compare(
        {.family = "trees", .job = comparison.job, .messages = 1, .sides = sides, .rounds = comparison.rounds});
}

// ---- The jobs.

void compare_measuring(const support::SmallDisk &disk, const std::string &shape, size_t folders, size_t files) {
    const std::string tree = disk.path("tree");
    make_tree(tree, folders, files);
    compare({.job = "measure " + shape,
             .programs = {{"korvex", work("measure", tree)},
                          {"du -s", {"du", "-s", tree}, "1x"},
                          {"find -printf %s", {"find", tree, "-printf", "%s\n"}},
                          {"std::filesystem", work("fs-measure", tree)}},
             .prepare = [] {},
             .is_done = [] { return true; }});
    fs::remove_all(tree);
}

// Making the trees is what takes long here, so only the first shape has all peers.
void compare_removal(const support::SmallDisk &disk, const std::string &shape, size_t folders, size_t files,
                     bool all_peers) {
    const std::string tree = disk.path("tree");
    std::vector<Program> programs = {{"korvex", work("remove", tree)}, {"rm -rf", {"rm", "-rf", tree}, "1x"}};
    if (all_peers) {
        programs.push_back({"find -delete", {"find", tree, "-delete"}});
        programs.push_back({"std::filesystem", work("fs-remove", tree)});
    }
    compare({.job = "remove " + shape,
             .programs = programs,
             .prepare = [&] { make_tree(tree, folders, files); },
             .is_done = [&] { return !fs::exists(tree); }});
}

// std::filesystem keeps neither owners nor times.
void compare_copy(const support::SmallDisk &disk, const std::string &shape, size_t folders, size_t files) {
    const std::string source = disk.path("tree");
    const std::string target = disk.path("copy");
    make_tree(source, folders, files);
    const std::string expected = measured(source);
    compare({.job = "copy " + shape,
             .programs = {{"korvex", work("copy", source, target)},
                          {"cp -a", bench::cp_command(source, target), "1x"},
                          {"std::filesystem, not owner and time", work("fs-copy", source, target)}},
             .prepare = [&] { fs::remove_all(target); },
             .is_done = [&] { return measured(target) == expected; }});
    fs::remove_all(source);
    fs::remove_all(target);
}

void write_large_file(const std::string &path, size_t megabytes) {
    const std::string megabyte(1 << 20, 'x');
    FILE *file = std::fopen(path.c_str(), "w");
    for (size_t i = 0; i < megabytes; ++i)
        std::fwrite(megabyte.data(), 1, megabyte.size(), file);
    std::fclose(file);
}

void compare_large_copy(const support::SmallDisk &disk) {
    const std::string source = disk.path("large");
    const std::string target = disk.path("copy");
    write_large_file(source, 1024);
    for (const auto &[job, function] : {std::pair("copy-file", "Copy_File"), {"copy-data", "Copy_File_Data"}})
        compare({.job = "copy 1 GiB, " + std::string(function),
                 .programs = {{"korvex", work(job, source, target)},
                              {"bare read and write of 32 KiB", work("bare-copy", source, target), "0.97x"}},
                 .prepare = [&] { fs::remove(target); },
                 .is_done = [&] { return fs::file_size(target) == fs::file_size(source); },
                 .rounds = kLargeRounds});
    fs::remove(source);
    fs::remove(target);
}

// ---- Memory.

// The first program is the library's.
void show_peak(const std::string &job, const std::vector<Program> &programs) {
    double ours = NAN;
    for (const auto &[name, command, aim] : programs) {
        const auto peak = static_cast<double>(bench::run_command(command).peak);
        ours = std::isnan(ours) ? peak : ours;
        std::printf("%s, %s: %.0f KiB\n", job.c_str(), name.c_str(), peak);
        std::fflush(stdout);
        bench::record({.family = "trees",
                       .job = job,
                       .side = name,
                       .value = peak * 1024,
                       .unit = "B",
                       .ratio = peak / ours,
                       .aim = "",
                       .measure = "memory"});
    }
}

void show_peaks(const support::SmallDisk &disk) {
    const std::string empty = disk.path("empty");
    const std::string wide = disk.path("wide");
    const std::string copy = disk.path("copy");
    std::printf("\nPeak of the resident memory of the whole process:\n");
    make_tree(empty, 0, 0);
    make_tree(wide, 100'000, 0);
    show_peak("measure an empty folder", {{"korvex", work("measure", empty)}});
    show_peak("measure 100,000 subfolders", {{"korvex", work("measure", wide)}, {"du -s", {"du", "-s", wide}}});
    show_peak("copy 100,000 subfolders", {{"korvex", work("copy", wide, copy)}});
    show_peak("remove 100,000 subfolders", {{"korvex", work("remove", wide)}, {"rm -rf", {"rm", "-rf", copy}}});

    const std::string file = disk.path("file");
    for (const size_t megabytes : {1u, 1024u}) {
        write_large_file(file, megabytes);
        show_peak("copy a file of " + std::to_string(megabytes) + " MiB", {{"korvex", work("copy-file", file, copy)}});
    }
}

void compare_all(const std::string &only) {
    const support::SmallDisk disk(int64_t{4} << 30);
    const std::map<std::string, std::function<void()>> jobs = {
        {"1 measure",
         [&] {
             compare_measuring(disk, "100 folders of 1,000 files", 100, 1000);
             compare_measuring(disk, "one folder of 100,000 files", 1, 100'000);
             compare_measuring(disk, "10,000 folders of 10 files", 10'000, 10);
         }},
        {"2 remove",
         [&] {
             compare_removal(disk, "100 folders of 1,000 files", 100, 1000, true);
             compare_removal(disk, "10,000 folders of 10 files", 10'000, 10, false);
         }},
        {"3 copy", [&] { compare_copy(disk, "100 folders of 1,000 files", 100, 1000); }},
        {"4 large", [&] { compare_large_copy(disk); }},
        {"5 peaks", [&] { show_peaks(disk); }},
    };
    for (const auto &[name, job] : jobs)
        if (name.find(only) != std::string::npos)
            job();
}

}  // namespace

// Without arguments, all comparisons; with one, those whose name contains it.
int main(int argc, char **argv) {
    bench::work_if_asked(argc, argv);
    support::enter_sandbox();
    std::puts("Medians of processor time and of the ratios of a pair; above 1, korvex is the faster one:");
    compare_all(argc > 1 ? argv[1] : "");
}
