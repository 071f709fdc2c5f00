// Time grows with the length of the text and no faster: every function that scans a text, on texts that would show a
// search repeated for each line. Each is measured at three sizes; the time for a byte stays the same where time grows
// linearly.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>
#include <vector>

#include "conffile.h"
#include "figures.h"
#include "sandbox.h"
#include "simplog.h"

namespace {

// The largest text of each shape; the others are a quarter and a sixteenth of it.
constexpr size_t kFullBytes = 50'000'000;
constexpr size_t kFullLines = 1'000'000;

struct Shape {
    const char *name;
    std::string (*text)(size_t part);  // of 1/part of the full size
};

std::string repeated(const std::string &piece, size_t times) {
    std::string text;
    text.reserve(piece.size() * times);
    for (size_t i = 0; i < times; ++i)
        text += piece;
    return text;
}

std::string numbered_sections(size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += "[section" + std::to_string(i) + "]\nkey = value\n";
    return text;
}

constexpr Shape kShapes[] = {
    {"one line of 50 MB", [](size_t part) { return "key = " + std::string(kFullBytes / part, 'v') + "\n"; }},
    {"one line of 50 MB, no \"=\"", [](size_t part) { return std::string(kFullBytes / part, 'v') + "\n"; }},
    {"one line of 50 MB, blanks", [](size_t part) { return "key = " + std::string(kFullBytes / part, ' ') + "\n"; }},
    {"50 MB of line feeds", [](size_t part) { return "a = b\n" + std::string(kFullBytes / part, '\n'); }},
    {"1,000,000 sections", [](size_t part) { return numbered_sections(kFullLines / part); }},
    {"1,000,000 keys", [](size_t part) { return repeated("key = value\n", kFullLines / part); }},
    {"1,000,000 \"[\" lines, no \"]\"", [](size_t part) { return repeated("[section\n", kFullLines / part); }},
};

// Asked for by the key functions; it stands nowhere, so that the whole text is searched.
constexpr const char *kMissingKey = "no such key";
constexpr const char *kMissingSection = "no such section";

struct Job {
    const char *name;
    void (*run)(const std::string &path);
};

void parse_stream(const std::string &path) {
    FILE *stream = std::fopen(path.c_str(), "r");
    Sect_Node *conf = nullptr;
    Parse_Conf_Stream(stream, &conf);
    Free_Sect_Node(conf);
    std::fclose(stream);
}

void get(const std::string &path, const char *section) {
    char value[64];
    int32_t size = sizeof value;
    Get_Conf_File_String_Value(path.c_str(), section, kMissingKey, value, &size);
}

// What every function but the stream parser begins with, for comparison.
void only_read(const std::string &path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const auto size = static_cast<size_t>(lseek(file, 0, SEEK_END));
    auto *text = static_cast<char *>(std::malloc(size));
    if (pread(file, text, size, 0) != static_cast<ssize_t>(size))
        std::printf("(not read) ");
    std::free(text);
    close(file);
}

constexpr Job kJobs[] = {
    {"read alone", only_read},
    {"Read_Conf_File",
     [](const std::string &path) {
         Sect_Node *conf = nullptr;
         Read_Conf_File(path.c_str(), &conf);
         Free_Sect_Node(conf);
     }},
    {"Parse_Conf_Stream", parse_stream},
    {"get, global section", [](const std::string &path) { get(path, nullptr); }},
    {"get, missing section", [](const std::string &path) { get(path, kMissingSection); }},
    // The line that is added has a form that no search is longer for.
    {"set, global section",
     [](const std::string &path) { Set_Conf_File_String_Value(path.c_str(), nullptr, kMissingKey, "value"); }},
    {"set, missing section",
     [](const std::string &path) { Set_Conf_File_String_Value(path.c_str(), kMissingSection, kMissingKey, "value"); }},
};

// Processor time, user and system: what else runs on the machine is not counted.
double cpu_seconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Seconds: the least of five runs, or of fewer where they take long, each on a fresh file.
double time_of(const Job &job, const support::SmallDisk &disk, const std::string &text) {
    constexpr double kLong = 1.0;
    double least = std::numeric_limits<double>::infinity();
    for (size_t run = 0; run < bench::rounds(5) && (run == 0 || least < kLong); ++run) {
        const std::string path = disk.file("scale.conf", text);
        const double start = cpu_seconds();
        job.run(path);
        least = std::min(least, cpu_seconds() - start);
    }
    return least;
}

// The largest size is compared with the smallest.
void keep(const std::string &job, size_t part, double seconds_a_byte, double smallest) {
    bench::record({.family = "scale",
                   .job = job,
                   .side = part == 1 ? "korvex, whole" : "korvex, 1/" + std::to_string(part),
                   .value = seconds_a_byte,
                   .unit = "s/B",
                   .ratio = seconds_a_byte / smallest,
                   .aim = "",
                   .measure = "processor"});
}

void measure_row(const Shape &shape, const Job &job, const support::SmallDisk &disk, const char *messages) {
    // A row that would take longer than this at its largest size is not linear, and has shown it by then.
    constexpr double kTooLong = 60.0;

    std::printf("%-28s %-24s", shape.name, job.name);
    double first = 0;
    double last = 0;
    for (const size_t part : {16u, 4u, 1u}) {
        if (last / first > 2 && last * kFullBytes * 1e-9 > kTooLong) {
            std::printf("   GROWS, largest size left out\n");
            return;
        }
        const std::string text = shape.text(part);
        last = time_of(job, disk, text) * 1e9 / static_cast<double>(text.size());
        if (part == 16)
            first = last;
        keep(std::string(shape.name) + ": " + job.name + messages, part, last * 1e-9, first * 1e-9);
        std::printf(" %9.3f", last);
        std::fflush(stdout);
    }
    std::printf("   %.2f\n", last / first);
}

void measure(const support::SmallDisk &disk, const char *only, const char *messages) {
    std::printf("%-28s %-24s %30s   %s\n", "text", "function", "ns a byte at 1/16, 1/4, 1", "largest : smallest");
    for (const Shape &shape : kShapes)
        for (const Job &job : kJobs)
            if (only == nullptr || std::string(shape.name).find(only) != std::string::npos)
                measure_row(shape, job, disk, messages);
}

// Messages cost time, too: with this log the library makes all of them, and they go nowhere.
Simp_Log *log_to_nowhere() {
    auto *log = static_cast<Simp_Log *>(std::calloc(1, sizeof(Simp_Log) + 1));
    log->fpLog = std::fopen("/dev/null", "w");
    log->idTimeFormat = 24;
    log->idDateFormat = 3;
    return log;
}

}  // namespace

// An argument measures only the texts whose name contains it.
int main(int argc, char **argv) {
    // Large blocks come fresh from the system at every size alike; by default malloc keeps those below 32 MB at hand,
    // and the largest size would seem to cost more for a byte.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);  // NOLINT(concurrency-mt-unsafe): the only thread
    support::enter_sandbox();
    const support::SmallDisk disk(int64_t{256} << 20);
    const char *only = argc > 1 ? argv[1] : nullptr;

    std::printf("No log:\n");
    measure(disk, only, "");
    std::printf("\nAll messages made:\n");
    g_ptslLog = log_to_nowhere();
    g_idLogLevel = 3;
    measure(disk, only, "; all messages");
}
