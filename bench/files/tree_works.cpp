#include "tree_works.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "fileio.h"
#include "sandbox.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

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

int measure_by_filesystem(const char *path) {
    uintmax_t files = 0;
    uintmax_t folders = 0;
    uintmax_t bytes = 0;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(path)) {
        const bool is_folder = entry.is_directory();
        ++(is_folder ? folders : files);
        bytes += is_folder ? 0 : entry.file_size();
    }
    std::printf("%ju files, %ju folders, %ju bytes\n", files, folders, bytes);
    return 0;
}

int copy_by_filesystem(const char *source, const char *target) {
    fs::copy(source, target, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    return 0;
}

using Work = int (*)(const char *source, const char *target);

struct NamedWork {
    std::string_view name;
    Work run;
};

constexpr NamedWork kWorks[] = {
    {"make",
     [](const char *path, const char *files) {
         make_tree(path, 100, std::stoul(files));
         return 0;
     }},
    {"measure", [](const char *path, const char *) { return measure_tree(path); }},
    {"remove", [](const char *path, const char *) { return Remove_Folder_Tree(path, nullptr); }},
    {"copy", [](const char *source, const char *target) { return Copy_Folder_Tree(source, target, nullptr); }},
    {"copy-file", [](const char *source, const char *target) { return Copy_File(source, target, nullptr, nullptr); }},
    {"copy-data", copy_data},
    {"fs-measure", [](const char *path, const char *) { return measure_by_filesystem(path); }},
    {"fs-remove", [](const char *path, const char *) { return fs::remove_all(path) > 0 ? 0 : 1; }},
    {"fs-copy", copy_by_filesystem},
    {"bare-copy", bare_copy},
};

}  // namespace

void make_tree(const std::string &path, size_t folders, size_t files, size_t bytes) {
    const std::string content(bytes, 'x');
    fs::create_directory(path);
    for (size_t folder = 0; folder < folders; ++folder) {
        const std::string name = path + "/folder" + std::to_string(folder);
        fs::create_directory(name);
        for (size_t file = 0; file < files; ++file)
            support::write_file(name + "/file" + std::to_string(file), content);
    }
}

std::string measured(const std::string &path) {
    Folder_Tree_State state{};
    State_Folder_Tree(path.c_str(), &state, nullptr);
    return std::to_string(state.cnFiles) + " " + std::to_string(state.cnFolders) + " " +
           std::to_string(state.ullBytes) + " " + std::to_string(state.ullBlocks);
}

Command work(const std::string &job, const std::string &source, const std::string &target) {
    return {"/proc/self/exe", job, source, target};
}

void work_if_asked(int argc, char **argv) {
    if (argc != 4)
        return;
    for (const NamedWork &work : kWorks)
        if (work.name == argv[1])
            std::exit(work.run(argv[2], argv[3]) != 0 ? 1 : 0);  // NOLINT(concurrency-mt-unsafe): the only thread
    std::exit(1);                                                // NOLINT(concurrency-mt-unsafe)
}

Command cp_command(const std::string &source, const std::string &target) {
    return {"cp", "-a", "--no-preserve=xattr,context", "--reflink=never", source, target};
}

}  // namespace bench
