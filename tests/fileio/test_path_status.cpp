// Questions about descriptors and paths, and the times of files.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>
#include <utility>

#include "file_world.h"

using namespace fileio_test;
using testing::IsEmpty;

namespace {

// Shows whether an out-value was stored.
constexpr uint32_t kUntouched = 77;

constexpr int kBadFolders[] = {-1, -2, -99, -101, INT32_MIN};

int64_t nanoseconds(const timespec &time) {
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

// The current folder, with a name of every sort in it.
class Names : public FileTest {
  protected:
    Names() {
        folder_.file("file", "12345");
        std::filesystem::create_directory(folder_.path("folder"));
        for (const auto &[target, name] : {std::pair{"folder", "to_folder"},
                                           {"file", "to_file"},
                                           {"nothing", "dangling"},
                                           {"loop", "loop"},
                                           {"to_folder", "to_link"}})
            EXPECT_EQ(symlink(target, folder_.path(name).c_str()), 0);
        EXPECT_EQ(chdir(folder_.path().c_str()), 0);
        EXPECT_EQ(mkfifo(folder_.path("fifo").c_str(), 0600), 0);
    }

    ~Names() override { EXPECT_EQ(chdir("/"), 0); }

    const Descriptor here_{folder_.path(), O_RDONLY | O_DIRECTORY};
    const std::string too_long_ = std::string(300, 'n');
};

using Readiness = FileTest;
using DescriptorPath = FileTest;
using FolderTest = Names;
using FileExists = Names;
using FileSize = Names;
using FileTime = Names;

}  // namespace

TEST_F(Readiness, tells_what_can_be_read_without_waiting) {
    Pipe pipe;
    EXPECT_EQ(Is_FD_Ready_To_Read(pipe.out, 0), 0);
    EXPECT_EQ(Is_FD_Ready_To_Read(pipe.out, 20), 0);
    EXPECT_EQ(Is_FD_Ready_To_Read(pipe.in, 0), 0);

    pipe.put("x");
    EXPECT_EQ(Is_FD_Ready_To_Read(pipe.out, 0), 1);
    EXPECT_EQ(Is_FD_Ready_To_Read(pipe.out, 100'000), 1);
    EXPECT_EQ(pipe.take(), "x");
    EXPECT_EQ(Is_FD_Ready_To_Read(pipe.out, 0), 0);

    pipe.in.reset();
    EXPECT_EQ(Is_FD_Ready_To_Read(pipe.out, 100'000), 1);
    EXPECT_EQ(Is_FD_Ready_To_Read(Descriptor(folder_.file("file", ""), O_RDONLY), 0), 1);
}

TEST_F(Readiness, waits_for_seconds_and_the_rest_of_the_time) {
    const Pipe pipe;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Is_FD_Ready_To_Read(pipe.out, 1'200), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1'199));
}

TEST_F(Readiness, ends_the_wait_when_something_comes) {
    const Pipe pipe;
    std::thread writer([&] { pipe.put("x"); });
    EXPECT_EQ(Is_FD_Ready_To_Read(pipe.out, INT32_MAX), 1);
    writer.join();
}

TEST_F(Readiness, takes_a_descriptor_of_any_number) {
    const Pipe pipe;
    const Descriptor high(as_high_number(pipe.out));
    ASSERT_GE(high, 2000);
    EXPECT_EQ(Is_FD_Ready_To_Read(high, 0), 0);
    pipe.put("x");
    EXPECT_EQ(Is_FD_Ready_To_Read(high, 0), 1);
    EXPECT_EQ(Is_FD_Ready_To_Read(high - 1, 0), -EBADF);
}

TEST_F(Readiness, gives_the_error_of_select) {
    const Pipe pipe;
    for (const int descriptor : {kClosed, -1, -100, INT32_MIN})
        EXPECT_EQ(Is_FD_Ready_To_Read(descriptor, 0), -EBADF) << descriptor;
    for (const int32_t timeout : {-1, -1000})
        EXPECT_EQ(Is_FD_Ready_To_Read(pipe.out, timeout), -EINVAL) << timeout;

    const FailCall fault(Call::select, EINTR);
    EXPECT_EQ(Is_FD_Ready_To_Read(pipe.out, 0), -EINTR);
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(DescriptorPath, is_stored_without_a_terminator_and_cut_to_the_size) {
    const std::string path = folder_.file("file", "");
    const Descriptor file(path, O_RDONLY);
    const auto length = static_cast<int32_t>(path.size());

    for (const int32_t size : {1, 5, length - 1, length, length + 1, 400}) {
        SCOPED_TRACE(size);
        GuardedBuffer buffer;
        const int32_t stored = std::min(size, length);
        EXPECT_EQ(Get_FD_Path(file, buffer.data(), size), stored);
        EXPECT_EQ(buffer.written(), static_cast<size_t>(stored));
        EXPECT_EQ(std::string(buffer.data(), stored), path.substr(0, stored));
    }
}

TEST_F(DescriptorPath, names_whatever_is_open) {
    const Pipe pipe;
    const std::string gone = folder_.file("gone", "");
    const Descriptor file(gone, O_RDWR);
    EXPECT_STREQ(Fullpath(file), gone.c_str());
    unlink(gone.c_str());
    EXPECT_EQ(Fullpath(file), gone + " (deleted)");
    EXPECT_EQ(Fullpath(pipe.in), pipe.in.name());
    EXPECT_EQ(Fullpath(Descriptor(folder_.path(), O_PATH)), folder_.path());
    EXPECT_STREQ(Fullpath(Descriptor("/dev/null", O_RDONLY)), "/dev/null");
    EXPECT_EQ(in_child([&] { return std::string(Fullpath(pipe.in)) == pipe.in.name() ? 0 : 1; }), 0);
}

TEST_F(DescriptorPath, bad_arguments_are_refused) {
    const Descriptor file("/dev/null", O_RDONLY);
    GuardedBuffer buffer;
    EXPECT_EQ(Get_FD_Path(file, nullptr, 100), -22);
    EXPECT_EQ(Get_FD_Path(file, buffer.data(), -1), -22);
    EXPECT_EQ(Get_FD_Path(file, buffer.data(), INT32_MIN), -22);
    for (const int descriptor : {-1, -100, INT32_MIN, kClosed, INT32_MAX}) {
        SCOPED_TRACE(descriptor);
        EXPECT_EQ(Get_FD_Path(descriptor, buffer.data(), 100), -22);
        EXPECT_EQ(Fullpath(descriptor), nullptr);
    }
    EXPECT_EQ(Get_FD_Path(file, buffer.data(), 0), -EINVAL);
    EXPECT_EQ(buffer.written(), 0u);
}

TEST_F(DescriptorPath, gives_the_error_of_readlink) {
    const Descriptor file("/dev/null", O_RDONLY);
    const struct {
        int error;
        int32_t result;
    } table[] = {{ENOENT, -EINVAL}, {EACCES, -EACCES}, {ENOMEM, -ENOMEM}};

    for (const auto &row : table) {
        GuardedBuffer buffer;
        const FailCall fault(Call::readlink, row.error, 1, 2);
        EXPECT_EQ(Get_FD_Path(file, buffer.data(), 100), row.result);
        EXPECT_EQ(Fullpath(file), nullptr);
        EXPECT_EQ(fault.failed(), 2);
        EXPECT_EQ(buffer.written(), 0u);
    }
}

TEST_F(DescriptorPath, may_be_long_but_not_longer_than_the_system_can_tell) {
    const std::string step(200, 'd');
    std::string path = folder_.path();
    int here = open(path.c_str(), O_PATH);
    while (path.size() + step.size() < 5000) {
        ASSERT_EQ(mkdirat(here, step.c_str(), 0700), 0);
        const int next = openat(here, step.c_str(), O_PATH);
        close(std::exchange(here, next));
        path += "/" + step;
        const char *told = Fullpath(here);
        EXPECT_EQ(std::string(told == nullptr ? "" : told), path.size() < 4096 ? path : "");
    }
    char buffer[8192];
    EXPECT_EQ(Get_FD_Path(here, buffer, sizeof buffer), -ENAMETOOLONG);
    close(here);
}

TEST_F(DescriptorPath, has_one_buffer_for_all_calls_and_threads) {
    const Descriptor first(folder_.file("a_longer_name", ""), O_RDONLY);
    const Descriptor second(folder_.file("name", ""), O_RDONLY);

    const char *path = Fullpath(first);
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(path, folder_.path("a_longer_name"));
    std::thread([&] { EXPECT_EQ(Fullpath(second), path); }).join();
    EXPECT_EQ(path, folder_.path("name"));
}

TEST_F(FolderTest, follows_links) {
    const struct {
        const char *name;
        int32_t result;
    } table[] = {{"folder", 1},        {"to_folder", 1},      {"to_link", 1},     {"", 1},
                 {"folder/", 1},       {"file", 0},           {"to_file", 0},     {"fifo", 0},
                 {"nothing", -ENOENT}, {"dangling", -ENOENT}, {"loop", -ELOOP},   {"file/x", -ENOTDIR},
                 {"file/", -ENOTDIR},  {"folder/x", -ENOENT}, {"to_folder/..", 1}};

    for (const auto &row : table)
        EXPECT_EQ(Is_Folder(folder_.path(row.name).c_str()), row.result) << row.name;
    EXPECT_EQ(Is_Folder(nullptr), -22);
    EXPECT_EQ(Is_Folder(""), -ENOENT);
    EXPECT_EQ(Is_Folder("."), 1);
    EXPECT_EQ(Is_Folder(too_long_.c_str()), -ENAMETOOLONG);

    const FailCall fault(Call::stat, EIO);
    EXPECT_EQ(Is_Folder("."), -EIO);
}

TEST_F(FolderTest, of_a_name_does_not_follow_links) {
    const struct {
        const char *name;
        int32_t result;
        uint32_t folder;
    } table[] = {{"folder", 0, 1},
                 {".", 0, 1},
                 {"to_folder/.", 0, 1},
                 {"to_folder", 0, 0},
                 {"to_link", 0, 0},
                 {"file", 0, 0},
                 {"to_file", 0, 0},
                 {"dangling", 0, 0},
                 {"loop", 0, 0},
                 {"fifo", 0, 0},
                 {"nothing", -ENOENT, kUntouched},
                 {"", -ENOENT, kUntouched},
                 {"file/x", -ENOTDIR, kUntouched}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        uint32_t folder = kUntouched;
        EXPECT_EQ(Check_Folder_At(here_, row.name, &folder), row.result);
        EXPECT_EQ(folder, row.folder);

        for (const bool here : {true, false}) {
            folder = kUntouched;
            EXPECT_EQ(here ? Check_Folder(row.name, &folder) : Check_Folder_At(AT_FDCWD, row.name, &folder),
                      row.result);
            EXPECT_EQ(folder, row.folder);
        }
    }
}

TEST_F(FolderTest, of_a_name_refuses_bad_arguments) {
    uint32_t folder = kUntouched;
    for (const int bad : kBadFolders)
        EXPECT_EQ(Check_Folder_At(bad, folder_.path().c_str(), &folder), -22) << bad;
    EXPECT_EQ(Check_Folder_At(here_, nullptr, &folder), -22);
    EXPECT_EQ(Check_Folder_At(here_, ".", nullptr), -22);
    EXPECT_EQ(Check_Folder(nullptr, &folder), -22);
    EXPECT_EQ(Check_Folder(".", nullptr), -22);
    EXPECT_EQ(Check_Folder_At(kClosed, ".", &folder), -EBADF);
    EXPECT_EQ(Check_Folder_At(here_, too_long_.c_str(), &folder), -ENAMETOOLONG);
    EXPECT_EQ(Check_Folder_At(Descriptor(folder_.path("file"), O_RDONLY), "x", &folder), -ENOTDIR);

    const FailCall fault(Call::fstatat, EIO);
    EXPECT_EQ(Check_Folder_At(here_, ".", &folder), -EIO);
    EXPECT_EQ(folder, kUntouched);
}

TEST_F(FileExists, whatever_its_type) {
    const struct {
        const char *name;
        int32_t result;
    } table[] = {{"file", 1},       {"folder", 1},     {"to_folder", 1}, {"dangling", 1},
                 {"loop", 1},       {"fifo", 1},       {".", 1},         {"nothing", 0},
                 {"", 0},           {"dangling/x", 0}, {"folder/x", 0},  {"file/x", -ENOTDIR},
                 {"loop/x", -ELOOP}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Check_File_At(here_, row.name), row.result);
        EXPECT_EQ(Check_File_At(AT_FDCWD, row.name), row.result);
        EXPECT_EQ(Check_File(row.name), row.result);
    }
}

TEST_F(FileExists, refuses_bad_arguments) {
    for (const int bad : kBadFolders)
        EXPECT_EQ(Check_File_At(bad, folder_.path().c_str()), -22) << bad;
    EXPECT_EQ(Check_File_At(here_, nullptr), -22);
    EXPECT_EQ(Check_File(nullptr), -22);
    EXPECT_EQ(Check_File_At(kClosed, "file"), -EBADF);
    EXPECT_EQ(Check_File_At(kClosed, folder_.path("file").c_str()), 1);
    EXPECT_EQ(Check_File_At(here_, too_long_.c_str()), -ENAMETOOLONG);

    const FailCall fault(Call::fstatat, EACCES);
    EXPECT_EQ(Check_File_At(here_, "file"), -EACCES);
}

TEST_F(FileSize, follows_links_and_counts_beyond_32_bits) {
    constexpr uint64_t large = 5ull << 30;
    const SmallDisk disk(1 << 20);
    const std::string sparse = disk.file("sparse", "");
    ASSERT_EQ(truncate(sparse.c_str(), large), 0);
    const std::pair<std::string, uint64_t> table[] = {
        {folder_.path("file"), 5},
        {folder_.path("to_file"), 5},
        {folder_.file("empty", ""), 0},
        {sparse, large},
        {"/dev/null", 0},
        {folder_.path("folder"), status_of(folder_.path("folder")).st_size}};

    for (const auto &[path, expected] : table) {
        uint64_t size = kUntouched;
        EXPECT_EQ(Get_File_Size(path.c_str(), &size), 0) << path;
        EXPECT_EQ(size, expected) << path;
    }
}

TEST_F(FileSize, gives_the_error_of_stat) {
    uint64_t size = kUntouched;
    EXPECT_EQ(Get_File_Size(nullptr, &size), -22);
    EXPECT_EQ(Get_File_Size("/dev/null", nullptr), -22);
    EXPECT_EQ(Get_File_Size(nullptr, nullptr), -22);
    EXPECT_EQ(Get_File_Size(folder_.path("nothing").c_str(), &size), -ENOENT);
    EXPECT_EQ(Get_File_Size(folder_.path("dangling").c_str(), &size), -ENOENT);
    EXPECT_EQ(Get_File_Size(folder_.path("file/x").c_str(), &size), -ENOTDIR);
    EXPECT_EQ(size, kUntouched);
}

TEST_F(FileTime, both_times_are_set_to_the_nanosecond) {
    const timespec times[2] = {{1'000'000'000, 123'456'789}, {1'500'000'000, 987'654'321}};
    const timespec other[2] = {{7, 8}, {9, 10}};
    const auto expect_times = [&](const std::string &name, const timespec *expected) {
        EXPECT_EQ(nanoseconds(status_of(folder_.path(name)).st_atim), nanoseconds(expected[0])) << name;
        EXPECT_EQ(nanoseconds(status_of(folder_.path(name)).st_mtim), nanoseconds(expected[1])) << name;
    };

    EXPECT_EQ(Set_File_Time_At(here_, "file", times, 0), 0);
    expect_times("file", times);
    EXPECT_EQ(Set_File_Time_At(AT_FDCWD, folder_.path("folder").c_str(), times, 0), 0);
    expect_times("folder", times);

    EXPECT_EQ(Set_File_Time_At(here_, "to_file", other, AT_SYMLINK_NOFOLLOW), 0);
    expect_times("to_file", other);
    expect_times("file", times);
    EXPECT_EQ(Set_File_Time_At(here_, "to_file", other, 0), 0);
    expect_times("file", other);
}

TEST_F(FileTime, without_a_path_is_that_of_the_descriptor_itself) {
    const timespec times[2] = {{1'000'000'000, 1}, {1'500'000'000, 2}};
    const Descriptor file(folder_.path("file"), O_RDONLY);

    EXPECT_EQ(Set_File_Time_At(here_, nullptr, times, 0), 0);
    EXPECT_EQ(Set_File_Time_At(file, nullptr, times, 0), 0);
    for (const std::string &path : {folder_.path(), folder_.path("file")}) {
        EXPECT_EQ(nanoseconds(status_of(path).st_atim), nanoseconds(times[0])) << path;
        EXPECT_EQ(nanoseconds(status_of(path).st_mtim), nanoseconds(times[1])) << path;
    }

    EXPECT_EQ(Set_File_Modified_Time_At(file, nullptr, 5, 6, 0), 0);
    EXPECT_EQ(nanoseconds(status_of(folder_.path("file")).st_mtim), 6'000'000'005);
    EXPECT_EQ(nanoseconds(status_of(folder_.path("file")).st_atim), 6'000'000'005);
}

TEST_F(FileTime, modified_takes_nanoseconds_before_seconds_and_sets_both) {
    const SmallDisk disk(1 << 20);
    const std::string path = disk.file("file", "");
    const Descriptor here(disk.path(""), O_RDONLY);
    ASSERT_EQ(symlink("file", disk.path("link").c_str()), 0);
    const struct {
        uint32_t part;
        uint32_t seconds;
    } table[] = {{1, 2}, {0, 0}, {999'999'999, 1'700'000'000}, {3, 0x80000000u}, {4, UINT32_MAX}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.seconds);
        const int64_t expected = row.seconds * 1'000'000'000ll + row.part;
        EXPECT_EQ(Set_File_Modified_Time_At(here, "link", row.part, row.seconds, 0), 0);
        EXPECT_EQ(nanoseconds(status_of(path).st_mtim), expected);
        EXPECT_EQ(nanoseconds(status_of(path).st_atim), expected);
    }

    EXPECT_EQ(Set_File_Modified_Time_At(here, "link", 11, 12, AT_SYMLINK_NOFOLLOW), 0);
    EXPECT_EQ(nanoseconds(status_of(disk.path("link")).st_mtim), 12'000'000'011);
    EXPECT_EQ(nanoseconds(status_of(path).st_mtim), 0xFFFFFFFFll * 1'000'000'000 + 4);
}

TEST_F(FileTime, gives_the_error_of_the_system) {
    const timespec good[2] = {{1, 1}, {1, 1}};
    const timespec bad[2] = {{1, 1}, {1, 1'000'000'000}};
    const struct {
        int folder;
        const char *name;
        const timespec *times;
        int32_t flags;
        int32_t result;
    } table[] = {{here_, "nothing", good, 0, -ENOENT},
                 {here_, "dangling", good, 0, -ENOENT},
                 {here_, "file/x", good, 0, -ENOTDIR},
                 {here_, "file", bad, 0, -EINVAL},
                 {here_, "file", good, 0x4000000, -EINVAL},
                 {kClosed, "file", good, 0, -EBADF},
                 {kClosed, nullptr, good, 0, -EBADF},
                 {AT_FDCWD, nullptr, good, 0, -EFAULT},
                 {here_, "", good, 0, -ENOENT}};
    const int64_t before = nanoseconds(status_of(folder_.path("file")).st_mtim);

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.folder << ", " << (row.name != nullptr ? row.name : "null"));
        EXPECT_EQ(Set_File_Time_At(row.folder, row.name, row.times, row.flags), row.result);
        EXPECT_EQ(Set_File_Modified_Time_At(row.folder, row.name, row.times[1].tv_nsec, 1, row.flags), row.result);
    }
    EXPECT_EQ(nanoseconds(status_of(folder_.path("file")).st_mtim), before);
}

TEST_F(FileTime, refuses_a_bad_descriptor_with_and_without_a_path) {
    const timespec times[2] = {};
    const std::string path = folder_.path("file");
    for (const int bad : kBadFolders)
        for (const char *name : {path.c_str(), static_cast<const char *>(nullptr)}) {
            EXPECT_EQ(Set_File_Time_At(bad, name, times, 0), -22) << bad;
            EXPECT_EQ(Set_File_Modified_Time_At(bad, name, 0, 0, 0), -22) << bad;
        }
    EXPECT_NE(status_of(path).st_mtim.tv_sec, 0);
}

TEST_F(Names, nothing_is_logged) {
    LogCapture log;
    uint32_t folder = 0;
    uint64_t size = 0;
    const timespec times[2] = {};
    char byte = 0;
    int32_t length = 1;
    Is_FD_Ready_To_Read(kClosed, 0);
    Get_FD_Path(kClosed, &byte, 1);
    Fullpath(kClosed);
    Set_File_Time_At(here_, "nothing", times, 0);
    Set_File_Modified_Time_At(here_, "nothing", 0, 0, 0);
    Is_Folder("nothing");
    Check_Folder_At(here_, "nothing", &folder);
    Check_File_At(here_, "file/x");
    Get_File_Size("nothing", &size);
    Simple_Read_File("nothing", &byte, &length);
    EXPECT_THAT(log.messages(), IsEmpty());
}
