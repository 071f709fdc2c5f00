// The tool from its start to its end beside the programs that an administrator would take for the same job.
//
// Each side is a process of its own. Where a file is changed or made, the program looks at it before a figure counts.
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "conffile.h"
#include "rounds.h"
#include "sample.h"
#include "sandbox.h"

namespace {

using bench::Command;

constexpr size_t kRounds = 100;
constexpr size_t kSlowRounds = 20;  // with the peers that are interpreted

// Told by the build: empty where it was not there.
struct Program {
    const char *name;
    const char *path;
};

constexpr Program kTool = {"korvex", BENCH_TOOL};
constexpr Program kGit = {"git config", BENCH_GIT};
constexpr Program kCrudini = {"crudini", BENCH_CRUDINI};
constexpr Program kAugtool = {"augtool", BENCH_AUGTOOL};
constexpr Program kFlock = {"flock", BENCH_FLOCK};
constexpr Program kCp = {"cp", BENCH_CP};

// A job on a file, which is as it was before each run and is looked at behind it.
struct Job {
    std::string name;
    std::function<void()> prepare;
    std::function<bool()> is_done;
    std::vector<bench::Side> sides = {};
};

bench::Cost run_side(const Job &job, const std::string &side, const Command &command) {
    job.prepare();
    const bench::Cost cost = bench::run_command(command).cost;
    if (!job.is_done())
        throw std::runtime_error(side + " did not do its job: " + job.name);
    return cost;
}

// The program's path and the words behind it; one that is not there is left out.
void add_side(Job &job, const Program &program, const Command &words, const char *aim = "") {
    if (*program.path == '\0')
        return;
    Command command = {program.path};
    command.insert(command.end(), words.begin(), words.end());
    job.sides.push_back({program.name, [&job, program, command] { return run_side(job, program.name, command); }, aim});
}

void compare(const Job &job, size_t rounds) {
    bench::compare({.family = "tool", .job = job.name, .messages = 1, .sides = job.sides, .rounds = rounds});
}

std::string node(const std::string &path) {
    return "/files" + path + "/sect5/key5";
}

void compare_reading(const std::string &path) {
    Job job = {.name = "conf get, a key of 100", .prepare = [] {}, .is_done = [] { return true; }};
    add_side(job, kTool, {"conf", "get", path, "key5", "-s", "sect5"});
    add_side(job, kGit, {"config", "--file", path, "--get", "sect5.key5"}, "0.8x");
    add_side(job, kCrudini, {"--get", path, "sect5", "key5"});
    add_side(job, kAugtool, {"-At", "Puppet.lns incl " + path, "get", node(path)});
    compare(job, kSlowRounds);
}

void compare_changing(const std::string &path) {
    const std::string before = support::read_file(path);
    Job job = {.name = "conf set, a key of 100",
               .prepare = [path, before] { support::write_file(path, before); },
               .is_done =
                   [path] {
                       char value[64];
                       int32_t size = sizeof value;
                       return Get_Conf_File_String_Value(path.c_str(), "sect5", "key5", value, &size) == 0 &&
                              std::string(value, static_cast<size_t>(size)) == "new";
                   }};
    add_side(job, kTool, {"conf", "set", path, "key5", "new", "-s", "sect5"});
    add_side(job, kGit, {"config", "--file", path, "sect5.key5", "new"});
    add_side(job, kCrudini, {"--set", path, "sect5", "key5", "new"});
    add_side(job, kAugtool, {"-sAt", "Puppet.lns incl " + path, "set", node(path), "new"});
    compare(job, kSlowRounds);
}

// flock needs a file to lock; the tool's lock is a file that it makes.
void compare_locking(const std::string &path) {
    Job job = {.name = "lock, and run true", .prepare = [] {}, .is_done = [] { return true; }};
    add_side(job, kTool, {"lock", path, "--", "true"});
    add_side(job, kFlock, {path, "true"});
    compare(job, kRounds);
}

void compare_copying(const std::string &source, const std::string &target) {
    const std::string content = support::read_file(source);
    Job job = {.name = "cp of a small file",
               .prepare = [target] { std::remove(target.c_str()); },
               .is_done = [target, content] { return support::read_file(target) == content; }};
    add_side(job, kTool, {"cp", source, target});
    add_side(job, kCp, {"-p", source, target});
    compare(job, kRounds);
}

}  // namespace

int main() {
    for (const Program &program : {kGit, kCrudini, kAugtool, kFlock, kCp})
        if (*program.path == '\0')
            std::printf("%s is left out: it was not installed when this was built\n", program.name);
    support::enter_sandbox();
    const support::SmallDisk disk(16 << 20);
    const std::string path = disk.file("app.conf", bench::sample_text(10, 10));
    std::puts(
        "Medians of processor time from start to end and of the ratios of a round; above 1, korvex is the faster one:");
    compare_reading(path);
    compare_changing(path);
    compare_locking(path);
    compare_copying(path, disk.path("copy.conf"));
}
