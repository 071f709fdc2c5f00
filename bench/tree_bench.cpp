// Folder trees and large files beside the programs of the system that do the same jobs: measuring beside `du -s`,
// removing beside `rm -rf`, copying beside `cp -a`, and copying one large file beside a bare loop of read and write.
//
// Both sides run as processes of their own on equal trees, one after the other, and change places in each pair. The
// library's side is this program again, with a job and its paths as arguments; so starting up counts on both sides.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "commands.h"
#include "figures.h"
#include "fileio.h"
#include "sandbox.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kPairs = 7;
constexpr size_t kLargePairs = 15;  // a gigabyte of fresh memory costs one time more, another time less

using bench::Command;

// ---- What a started process does. Each job takes a source and a target, of which most need only the first.

int make_tree(const std::string &path, int folders, int files) {
    const std::string content(100, 'x');
    fs::create_directory(path);
    for (int folder = 0; folder < folders; ++folder) {
        const std::string name = path + "/folder" + std::to_string(folder);
        fs::create_directory(name);
        for (int file = 0; file < files; ++file)
            support::write_file(name + "/file" + std::to_string(file), content);
    }
    return 0;
}

int measure_tree(const char *path) {
    Folder_Tree_State state{};
    const int32_t result = State_Folder_Tree(path, &state, nullptr);
    std::printf("%u files, %u folders, %llu bytes\n", state.cnFiles, state.cnFolders,
                static_cast<unsigned long long>(state.ullBytes));
    return result;
}

// What the large copy is compared with: nothing is looked at, and nothing is kept but the bytes.
int bare_copy(const char *source, const char *target) {
    std::array<char, 32'768> buffer;
    const int in = open(source, O_RDONLY | O_CLOEXEC);
    const int out = open(target, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ssize_t count = 0;
    while ((count = read(in, buffer.data(), buffer.size())) > 0)
        if (write(out, buffer.data(), static_cast<size_t>(count)) != count)
            return 1;
    close(out);
    close(in);
    return static_cast<int>(count);
}

int copy_data(const char *source, const char *target) {
    const int in = open(source, O_RDONLY | O_CLOEXEC);
    const int out = open(target, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const auto size = static_cast<int64_t>(fs::file_size(source));
    return Copy_File_Data(in, nullptr, out, nullptr, size, nullptr, nullptr);
}

using Work = int (*)(const char *source, const char *target);

struct NamedWork {
    std::string_view name;
    Work run;
};

constexpr NamedWork kWorks[] = {
    {"make", [](const char *path, const char *files) { return make_tree(path, 100, std::stoi(files)); }},
    {"measure", [](const char *path, const char *) { return measure_tree(path); }},
    {"remove", [](const char *path, const char *) { return Remove_Folder_Tree(path, nullptr); }},
    {"copy", [](const char *source, const char *target) { return Copy_Folder_Tree(source, target, nullptr); }},
    {"copy-file", [](const char *source, const char *target) { return Copy_File(source, target, nullptr, nullptr); }},
    {"copy-data", copy_data},
    {"bare-copy", bare_copy},
};

// ---- The comparison.

Command korvex(const std::string &job, const std::string &source, const std::string &target = "") {
    return {"/proc/self/exe", job, source, target};
}

struct Program {
    std::string name;
    Command command;
};

struct Comparison {
    std::string job;
    Program ours;
    Program peer;
    std::function<void()> prepare;  // before each run of a side
    std::function<bool()> is_done;  // whether the run did what it should
    const char *aim = "1x";
    size_t pairs = kPairs;
};

bench::Cost run_side(const Comparison &comparison, const Program &side) {
    comparison.prepare();
    const bench::Cost cost = bench::run_command(side.command).cost;
    if (!comparison.is_done())
        throw std::runtime_error(side.name + " did not do its job: " + comparison.job);
    return cost;
}

void compare(const Comparison &comparison) {
    const auto side = [&](const Program &program) {
        return bench::Side{program.name, [&] { return run_side(comparison, program); }};
    };
    std::vector<bench::Side> sides = {side(comparison.ours), side(comparison.peer)};
    sides[1].aim = comparison.aim;
    bench::compare(
        {.family = "trees", .job = comparison.job, .messages = 1, .sides = sides, .rounds = comparison.pairs});
}

// ---- The jobs.

// A tree as text: equal texts, equal trees, as far as a measuring shows it.
std::string measured(const std::string &path) {
    Folder_Tree_State state{};
    State_Folder_Tree(path.c_str(), &state, nullptr);
    return std::to_string(state.cnFiles) + " " + std::to_string(state.cnFolders) + " " +
           std::to_string(state.ullBytes) + " " + std::to_string(state.ullBlocks);
}

void compare_measuring(const support::SmallDisk &disk, const std::string &shape, int folders, int files) {
    const std::string tree = disk.path("tree");
    make_tree(tree, folders, files);
    compare({.job = "measure " + shape,
             .ours = {"korvex", korvex("measure", tree)},
             .peer = {"du -s", {"du", "-s", tree}},
             .prepare = [] {},
             .is_done = [] { return true; }});
    fs::remove_all(tree);
}

void compare_removal(const support::SmallDisk &disk, const std::string &shape, int folders, int files) {
    const std::string tree = disk.path("tree");
    compare({.job = "remove " + shape,
             .ours = {"korvex", korvex("remove", tree)},
             .peer = {"rm -rf", {"rm", "-rf", tree}},
             .prepare = [&] { make_tree(tree, folders, files); },
             .is_done = [&] { return !fs::exists(tree); }});
}

void compare_copy(const support::SmallDisk &disk) {
    const std::string source = disk.path("tree");
    const std::string target = disk.path("copy");
    make_tree(source, 200, 100);
    const std::string expected = measured(source);
    compare({.job = "copy 200 folders of 100 files",
             .ours = {"korvex", korvex("copy", source, target)},
             .peer = {"cp -a", {"cp", "-a", "--no-preserve=xattr,context", "--reflink=never", source, target}},
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
                 .ours = {"korvex", korvex(job, source, target)},
                 .peer = {"bare read and write of 32 KiB", korvex("bare-copy", source, target)},
                 .prepare = [&] { fs::remove(target); },
                 .is_done = [&] { return fs::file_size(target) == fs::file_size(source); },
                 .aim = "0.97x",
                 .pairs = kLargePairs});
    fs::remove(source);
    fs::remove(target);
}

// ---- Memory.

// The first program is the library's.
void show_peak(const std::string &job, const std::vector<Program> &programs) {
    double ours = NAN;
    for (const auto &[name, command] : programs) {
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
    show_peak("measure an empty folder", {{"korvex", korvex("measure", empty)}});
    show_peak("measure 100,000 subfolders", {{"korvex", korvex("measure", wide)}, {"du -s", {"du", "-s", wide}}});
    show_peak("copy 100,000 subfolders", {{"korvex", korvex("copy", wide, copy)}});
    show_peak("remove 100,000 subfolders", {{"korvex", korvex("remove", wide)}, {"rm -rf", {"rm", "-rf", copy}}});

    const std::string file = disk.path("file");
    for (const size_t megabytes : {1u, 1024u}) {
        write_large_file(file, megabytes);
        show_peak("copy a file of " + std::to_string(megabytes) + " MiB",
                  {{"korvex", korvex("copy-file", file, copy)}});
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
             compare_removal(disk, "100 folders of 1,000 files", 100, 1000);
             compare_removal(disk, "10,000 folders of 10 files", 10'000, 10);
         }},
        {"3 copy", [&] { compare_copy(disk); }},
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
    if (argc == 4) {
        for (const NamedWork &work : kWorks)
            if (work.name == argv[1])
                return work.run(argv[2], argv[3]) != 0 ? 1 : 0;
        return 1;
    }
    support::enter_sandbox();
    std::puts("Medians of processor time and of the ratios of a pair; above 1, korvex is the faster one:");
    compare_all(argc > 1 ? argv[1] : "");
}
