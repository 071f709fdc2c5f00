// Names of temporary files, and opening them.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <ostream>
#include <vector>

#include "file_world.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// Shows whether a descriptor was stored.
constexpr int32_t kUntouched = 77;
constexpr int32_t kMillion = 1'000'000;
const std::string kMarker = "$$@#!$$";

std::string with_digits(int32_t number, size_t digits) {
    const std::string text = std::to_string(number);
    return std::string(digits - std::min(digits, text.size()), '0') + text;
}

std::string temp_name(int32_t number, size_t digits = 3) {
    return kMarker + with_digits(number, digits);
}

// A folder part of `length` bytes, an even number, that leads to the current folder.
std::string long_way(size_t length) {
    std::string path;
    while (path.size() < length)
        path += "./";
    return path;
}

std::string too_small(const std::string &function, int32_t needed, int32_t size) {
    return "[error] " + function + "(#): ERROR: The provided buffer is too small (" + std::to_string(needed) + ", " +
           std::to_string(size) + ").\n";
}

struct Created {
    int32_t result = kUntouched;
    int32_t descriptor = kUntouched;
    GuardedBuffer name;

    ~Created() {
        if (result == 0)
            close(descriptor);
    }
};

// Both functions that open a file, in one form: `folder` counts in one of them, the current folder in the other.
struct Opener {
    const char *name;
    size_t digits;
    bool at;
    bool removes_the_last;

    int32_t needed(size_t folder_part) const { return static_cast<int32_t>(folder_part + 8 + digits); }
    std::string candidate(int32_t number) const { return temp_name(number, digits); }
    int32_t open(int folder, const char *path, int32_t flags, uint32_t mode, int32_t size, char *name_out,
                 int32_t *descriptor) const {
        return at ? Open_Unique_Temp_File_At(folder, path, flags, mode, size, name_out, descriptor)
                  : Open_Unique_Temp_File(path, flags, mode, size, name_out, descriptor);
    }

    friend std::ostream &operator<<(std::ostream &out, const Opener &opener) { return out << opener.name; }
};

constexpr Opener kOpeners[] = {
    {"Open_Unique_Temp_File_At", 3, true, false},
    {"Open_Unique_Temp_File", 6, false, true},
};

// The next calls to open a file fail, by whichever function the library does it.
struct OpenFails {
    OpenFails(int error, int times) : open(Call::open, error, 1, times), openat(Call::openat, error, 1, times) {}
    int failed() const { return open.failed() + openat.failed(); }

    FailCall open;
    FailCall openat;
};

// The current folder is empty.
class TempName : public FileTest {
  protected:
    TempName() { EXPECT_EQ(chdir(folder_.path().c_str()), 0); }
    ~TempName() override { EXPECT_EQ(chdir("/"), 0); }

    std::string generate(int folder, const std::string &path, int32_t size = 400) {
        GuardedBuffer name;
        EXPECT_EQ(Generate_Temp_Filename(folder, path.c_str(), name.data(), size), 0) << path;
        EXPECT_EQ(name.written(), name.text().size() + 1);
        return name.text();
    }

    const Descriptor here_{folder_.path(), O_RDONLY | O_DIRECTORY};
    LogCapture log_;
};

class TempFile : public TempName, public testing::WithParamInterface<Opener> {
  protected:
    void open(Created &file, const std::string &path, int32_t size = 400, int32_t flags = O_RDWR,
              uint32_t mode = 0600) {
        file.result = opener_.open(here_, path.c_str(), flags, mode, size, file.name.data(), &file.descriptor);
    }
    std::string message(const char *level, const std::string &text) const {
        return std::string("[") + level + "] " + opener_.name + "(#): " + text;
    }
    std::string exceeded(const std::string &path) const {
        if (opener_.at)
            return message("error",
                           "ERROR: The number of the temporal filename has exceeded the maximum. (" + path + ")\n");
        return message("error", "The number of the temporal filename has exceeded the maximum! (" + path + ")\n");
    }
    std::string cant_open(const std::string &path, int error) const {
        const std::string code = std::to_string(-error);
        if (opener_.at)
            return message("debug", "Can't open the destination file " + path + " error! (" + code + ")\n");
        return message("debug", "Can't open the destination file " + path + "! (" + code + ")\n");
    }

    const Opener opener_ = GetParam();
};

INSTANTIATE_TEST_SUITE_P(All, TempFile, testing::ValuesIn(kOpeners),
                         [](const auto &opener) { return std::string(opener.param.name); });

}  // namespace

TEST(TempMark, is_told_by_the_base_name) {
    const struct {
        const char *path;
        int32_t result;
    } table[] = {{"$$@#!$$000", 0},  {"$$@#!$$", 0},       {"/tmp/$$@#!$$000001", 0},  {"/tmp/$$@#!$$abc", 0},
                 {"a/b/$$@#!$$", 0}, {"$$@#!$", 1},        {"/tmp/$$@#!$", 1},         {"$$@#!$ $", 1},
                 {"x$$@#!$$000", 1}, {"/$$@#!$$000/x", 1}, {"/$$@#!$$000/", 1},        {"", 1},
                 {"/", 1},           {"$@#!$$000", 1},     {"$$@#!$$000/$$@#!$$1", 0}, {"$$#@!$$000", 1}};

    for (const auto &row : table)
        EXPECT_EQ(Check_Temp_Filename(row.path), row.result) << row.path;
    EXPECT_EQ(Check_Temp_Filename(nullptr), -22);
}

TEST_F(TempName, keeps_the_folder_part_alone) {
    std::filesystem::create_directories("a/b");
    const std::pair<std::string, std::string> table[] = {
        {"file", ""},     {"", ""},        {"a/file", "a/"},       {"a/b/file", "a/b/"},
        {"a/b/", "a/b/"}, {"a//x", "a//"}, {"./$$@#!$$007", "./"}, {"/tmp/x", "/tmp/"},
        {"/x", "/"}};

    for (const auto &[path, folder] : table) {
        EXPECT_EQ(generate(here_, path), folder + kMarker + "000");
        EXPECT_EQ(generate(AT_FDCWD, path, static_cast<int32_t>(folder.size()) + 11), folder + kMarker + "000");
    }
    EXPECT_THAT(folder_.names(), ElementsAre("a"));
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TempName, is_the_lowest_that_is_free) {
    folder_.file(temp_name(0), "");
    EXPECT_EQ(symlink("nothing", folder_.path(temp_name(1)).c_str()), 0);
    std::filesystem::create_directory(folder_.path(temp_name(2)));
    folder_.file(temp_name(4), "");
    folder_.file(kMarker + "3", "");
    EXPECT_EQ(generate(here_, "file"), temp_name(3));
    EXPECT_EQ(generate(AT_FDCWD, folder_.path("x")), folder_.path(temp_name(3)));
    EXPECT_EQ(chdir("/"), 0);
    EXPECT_EQ(generate(here_, "file"), temp_name(3));
    EXPECT_EQ(generate(AT_FDCWD, "file"), temp_name(0));
}

TEST_F(TempName, is_free_when_it_can_not_be_looked_up) {
    folder_.file("file", "");
    folder_.file(temp_name(0), "");
    EXPECT_EQ(generate(here_, "none/x"), "none/" + temp_name(0));
    EXPECT_EQ(generate(here_, "file/x"), "file/" + temp_name(0));
    EXPECT_EQ(generate(kClosed, "x"), temp_name(0));
    EXPECT_EQ(generate(kClosed, folder_.path("x")), folder_.path(temp_name(1)));
    const FailCall fault(Call::fstatat, EACCES);
    EXPECT_EQ(generate(here_, "x"), temp_name(0));
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TempName, bad_arguments_are_refused) {
    GuardedBuffer name;
    EXPECT_EQ(Generate_Temp_Filename(-1, "x", name.data(), 400), -22);
    EXPECT_EQ(Generate_Temp_Filename(here_, nullptr, name.data(), 400), -22);
    EXPECT_EQ(Generate_Temp_Filename(here_, "x", nullptr, 400), -22);
    EXPECT_EQ(name.written(), 0u);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TempName, needs_room_for_the_folder_part_and_11_bytes) {
    const CountCalls lookups(Call::fstatat);
    for (const std::string &folder : {std::string(), std::string("/tmp/"), long_way(200)}) {
        const auto needed = static_cast<int32_t>(folder.size()) + 11;
        for (const int32_t size : {needed - 1, needed - 8, needed - 11, 1, 0, -1, INT32_MIN}) {
            SCOPED_TRACE(testing::Message() << folder << ", " << size);
            GuardedBuffer name;
            EXPECT_EQ(Generate_Temp_Filename(here_, (folder + "file").c_str(), name.data(), size), -75);
            EXPECT_LE(name.written(), static_cast<size_t>(std::max(size, 0)));
            EXPECT_THAT(log_.messages(), ElementsAre(too_small("Generate_Temp_Filename", needed, size)));
            log_.clear();
        }
    }
    EXPECT_EQ(lookups.count(), 0);
}

TEST_F(TempName, that_has_no_room_leaves_the_folder_part) {
    const std::string folder = "/tmp/of/some/length/";
    const std::pair<int32_t, std::string> table[] = {
        {30, folder}, {21, folder}, {20, folder.substr(0, 19)}, {2, "/"}, {1, ""},
    };
    for (const auto &[size, left] : table) {
        SCOPED_TRACE(size);
        GuardedBuffer name;
        EXPECT_EQ(Generate_Temp_Filename(here_, (folder + "file").c_str(), name.data(), size), -EOVERFLOW);
        EXPECT_EQ(name.text(), left);
        EXPECT_EQ(name.written(), left.size() + 1);
    }
    for (const int32_t size : {0, -1, INT32_MIN}) {
        GuardedBuffer name;
        EXPECT_EQ(Generate_Temp_Filename(here_, (folder + "file").c_str(), name.data(), size), -EOVERFLOW);
        EXPECT_EQ(name.written(), 0u);
    }
    const std::string long_folder = long_way(5'000);
    std::string name(6'000, 'x');
    EXPECT_EQ(Generate_Temp_Filename(here_, (long_folder + "file").c_str(), name.data(), 6'000), -ENAMETOOLONG);
    EXPECT_EQ(name.c_str(), long_folder);
}

TEST_F(TempName, that_is_not_found_leaves_the_last_one_tried) {
    GuardedBuffer name;
    {
        const FailCall all(Call::fstatat, 0, 1, kMillion);
        EXPECT_EQ(Generate_Temp_Filename(here_, "a/x", name.data(), 400), -ERANGE);
    }
    EXPECT_EQ(name.text(), "a/" + temp_name(999'999));

    const FailCall all(Call::fstatat, 0, 1, 10'000);
    GuardedBuffer small;
    EXPECT_EQ(Generate_Temp_Filename(here_, "a/x", small.data(), 14), -EOVERFLOW);
    EXPECT_EQ(small.text(), "a/" + temp_name(9'999));
}

TEST_F(TempName, with_more_digits_needs_more_room) {
    for (const auto &[taken, digits] : {std::pair{999, 3}, {1000, 4}, {9'999, 4}, {10'000, 5}, {100'000, 6}}) {
        for (const int32_t room : {0, 1, 2, 3, 4}) {
            SCOPED_TRACE(testing::Message() << taken << " names, room for " << room << " more digits");
            const FailCall exists(Call::fstatat, 0, 1, taken);
            GuardedBuffer name;
            const bool fits = digits <= 3 + room;
            EXPECT_EQ(Generate_Temp_Filename(here_, "x", name.data(), 11 + room), fits ? 0 : -EOVERFLOW);
            EXPECT_LE(name.written(), 11u + room);
            EXPECT_TRUE(!fits || name.text() == temp_name(taken)) << name.text();
        }
    }
}

TEST_F(TempName, is_one_of_a_million) {
    {
        const FailCall all_but_one(Call::fstatat, 0, 1, kMillion - 1);
        EXPECT_EQ(generate(here_, "a/x"), "a/" + temp_name(999'999));
    }
    const FailCall all(Call::fstatat, 0, 1, kMillion);
    GuardedBuffer name;
    EXPECT_EQ(Generate_Temp_Filename(here_, "a/x", name.data(), 400), -34);
    EXPECT_EQ(all.failed(), kMillion);
    EXPECT_THAT(log_.messages(),
                ElementsAre("[error] Generate_Temp_Filename(#): ERROR: The number of the temporal filename has "
                            "exceeded the maximum. (a/$$@#!$$999999)\n"));
}

TEST_P(TempFile, is_made_under_the_lowest_number) {
    std::filesystem::create_directory("sub");
    const std::pair<std::string, std::string> table[] = {
        {"file", ""}, {"sub/x", "sub/"}, {"sub/", "sub/"}, {"", ""}, {folder_.path("sub/x"), folder_.path("sub/")}};
    const int32_t numbers[] = {0, 0, 1, 1, 2};

    for (size_t i = 0; i < std::size(table); i++) {
        SCOPED_TRACE(table[i].first);
        const std::string expected = table[i].second + opener_.candidate(numbers[i]);
        Created file;
        open(file, table[i].first, opener_.needed(table[i].second.size()));
        ASSERT_EQ(file.result, 0);
        EXPECT_EQ(file.name.text(), expected);
        EXPECT_EQ(file.name.written(), expected.size() + 1);
        EXPECT_EQ(Fullpath(file.descriptor), std::filesystem::absolute(expected).string());
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_P(TempFile, is_never_one_that_exists) {
    folder_.file(opener_.candidate(0), "kept");
    EXPECT_EQ(symlink("nothing", folder_.path(opener_.candidate(1)).c_str()), 0);
    std::filesystem::create_directory(folder_.path(opener_.candidate(2)));
    folder_.file(opener_.candidate(4), "");

    Created file;
    open(file, "x", 400, O_RDWR | O_TRUNC);
    EXPECT_EQ(file.result, 0);
    EXPECT_EQ(file.name.text(), opener_.candidate(3));
    EXPECT_EQ(read_file(opener_.candidate(0)), "kept");
    EXPECT_FALSE(exists("nothing"));
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_P(TempFile, has_the_flags_and_the_low_bits_of_the_mode) {
    const struct {
        int32_t flags;
        uint32_t mode;
        mode_t mask;
        mode_t expected;
    } table[] = {{O_RDWR, 0600, 0022, 0600},           {O_WRONLY, 0666, 0022, 0644},
                 {O_RDONLY, 07777, 0, 0777},           {O_RDWR | O_APPEND | O_CLOEXEC, 0xFFFFF000u | 0640, 0, 0640},
                 {O_RDWR | O_CREAT | O_EXCL, 0, 0, 0}, {O_WRONLY, 0777, 0777, 0}};

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << std::oct << row.flags << ", " << row.mode);
        const mode_t outer = umask(row.mask);
        Created file;
        open(file, "x", 400, row.flags, row.mode);
        umask(outer);
        ASSERT_EQ(file.result, 0);
        EXPECT_EQ(status_of(file.name.text()).st_mode, S_IFREG | row.expected);
        constexpr int seen = O_ACCMODE | O_APPEND;
        EXPECT_EQ(fcntl(file.descriptor, F_GETFL) & seen, row.flags & seen);
        EXPECT_EQ(fcntl(file.descriptor, F_GETFD), (row.flags & O_CLOEXEC) != 0 ? FD_CLOEXEC : 0);
    }
}

TEST_P(TempFile, lies_relative_to_the_descriptor_where_there_is_one) {
    const TempFolder other;
    EXPECT_EQ(chdir(other.path().c_str()), 0);
    Created file;
    open(file, "x");
    EXPECT_EQ(file.result, 0);
    EXPECT_THAT((opener_.at ? folder_ : other).names(), ElementsAre(opener_.candidate(0)));

    Created current;
    current.result = opener_.open(AT_FDCWD, "x", O_RDWR, 0600, 400, current.name.data(), &current.descriptor);
    EXPECT_EQ(current.result, 0);
    EXPECT_THAT(other.names(), SizeIs(opener_.at ? 1 : 2));
}

TEST_P(TempFile, bad_arguments_are_refused) {
    GuardedBuffer name;
    int32_t descriptor = kUntouched;
    EXPECT_EQ(opener_.open(here_, "x", O_RDWR, 0600, 400, name.data(), nullptr), -22);
    EXPECT_EQ(opener_.open(here_, nullptr, O_RDWR, 0600, 400, name.data(), &descriptor), -22);
    const int32_t without_a_folder = Open_Unique_Temp_File_At(-1, "x", O_RDWR, 0600, 400, name.data(), &descriptor);
    EXPECT_EQ(without_a_folder, -22);
    EXPECT_EQ(name.written(), 0u);
    EXPECT_THAT(folder_.names(), IsEmpty());
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_P(TempFile, has_no_descriptor_when_it_is_refused) {
    int32_t descriptor = kUntouched;
    EXPECT_EQ(opener_.open(here_, nullptr, O_RDWR, 0600, 0, nullptr, &descriptor), -22);
    EXPECT_EQ(descriptor, -1);
    if (opener_.at) {
        descriptor = kUntouched;
        EXPECT_EQ(opener_.open(-1, "x", O_RDWR, 0600, 0, nullptr, &descriptor), -22);
        EXPECT_EQ(descriptor, -1);
    }
}

TEST_P(TempFile, needs_room_for_its_name) {
    for (const std::string &folder : {std::string(), folder_.path() + "/", long_way(200)}) {
        const int32_t needed = opener_.needed(folder.size());
        for (const int32_t size : {needed - 1, needed - 8, 1, 0, -1, INT32_MIN}) {
            SCOPED_TRACE(testing::Message() << folder << ", " << size);
            Created file;
            open(file, folder + "file", size);
            EXPECT_EQ(file.result, -75);
            EXPECT_EQ(file.descriptor, -1);
            EXPECT_LE(file.name.written(), static_cast<size_t>(std::max(size, 0)));
            EXPECT_THAT(log_.messages(), ElementsAre(too_small(opener_.name, needed, size)));
            log_.clear();
        }
    }
    EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_P(TempFile, needs_no_room_where_the_name_is_not_asked_for) {
    for (const int32_t size : {0, -5, 1, INT32_MIN}) {
        int32_t descriptor = kUntouched;
        EXPECT_EQ(opener_.open(here_, "x", O_RDWR, 0600, size, nullptr, &descriptor), 0);
        EXPECT_GE(descriptor, 0);
        close(descriptor);
    }
    EXPECT_THAT(folder_.names(),
                ElementsAre(opener_.candidate(0), opener_.candidate(1), opener_.candidate(2), opener_.candidate(3)));
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_P(TempFile, that_can_not_be_opened_is_not_tried_under_other_numbers) {
    for (const int error : {EACCES, ENOSPC, EINTR, EMFILE}) {
        SCOPED_TRACE(error);
        const OpenFails fault(error, 100);
        Created file;
        open(file, "sub/x");
        EXPECT_EQ(file.result, -error);
        EXPECT_EQ(file.descriptor, -1);
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_THAT(log_.messages(), ElementsAre(cant_open("sub/" + opener_.candidate(0), error)));
        log_.clear();
    }
    folder_.file(opener_.candidate(0), "");
    for (const auto &[path, error] : {std::pair{"none/x", ENOENT}, {"$$@#!$$000/x", opener_.at ? ENOTDIR : ENOENT}}) {
        Created file;
        open(file, path);
        EXPECT_EQ(file.result, -error) << path;
        EXPECT_EQ(file.descriptor, -1);
    }
}

TEST_P(TempFile, needs_permission_to_write_to_the_folder) {
    if (!can_be_nobody())
        GTEST_SKIP() << "only a privileged program can become another user";
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0555));
    EXPECT_EQ(in_child_as_nobody([&] {
                  Created file;
                  open(file, "x");
                  return file.result == -13 && file.descriptor == -1 ? 0 : 1;
              }),
              0);
    EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_P(TempFile, with_more_digits_never_writes_past_the_size) {
    for (const auto &[taken, room] :
         {std::pair{999, 0}, {1000, 0}, {1000, 1}, {10'000, 1}, {10'000, 2}, {999'999, 3}}) {
        SCOPED_TRACE(testing::Message() << taken << " names, room for " << room << " more digits");
        const OpenFails fault(EEXIST, taken);
        const int32_t size = opener_.needed(0) + (opener_.digits == 3 ? room : 0);
        const std::string expected = opener_.candidate(taken);
        Created file;
        open(file, "x", size);
        EXPECT_LE(file.name.written(), static_cast<size_t>(size));
        if (expected.size() < static_cast<size_t>(size)) {
            EXPECT_EQ(file.result, 0);
            EXPECT_EQ(file.name.text(), expected);
            unlink(expected.c_str());
        } else {
            EXPECT_EQ(file.result, -EOVERFLOW);
            EXPECT_EQ(file.descriptor, -1);
        }
        EXPECT_THAT(folder_.names(), IsEmpty());
    }
}

TEST_P(TempFile, of_a_million_taken_names_only_the_function_without_a_descriptor_removes_the_last) {
    const std::string last = temp_name(999'999);
    folder_.file(last, "");
    folder_.file(temp_name(999'998), "");
    {
        const OpenFails fault(EEXIST, kMillion + 10);
        Created file;
        open(file, folder_.path("x"));
        EXPECT_EQ(file.result, -34);
        EXPECT_EQ(file.descriptor, -1);
        EXPECT_EQ(fault.failed(), kMillion);
    }
    EXPECT_THAT(log_.messages(), ElementsAre(exceeded(folder_.path(last))));
    EXPECT_TRUE(exists(temp_name(999'998)));
    EXPECT_EQ(exists(last), !opener_.removes_the_last);

    const OpenFails others(EEXIST, kMillion - 1);
    Created next;
    open(next, folder_.path("x"));
    EXPECT_EQ(next.result, opener_.removes_the_last ? 0 : -34);
}

TEST_P(TempFile, of_a_million_taken_names_the_last_is_removed_after_the_message) {
    folder_.file(temp_name(999'999), "");
    const OpenFails fault(EEXIST, kMillion);
    const BeforeCall removal(Call::unlink, 1, [&] { EXPECT_THAT(log_.messages(), SizeIs(1)); });
    const FailCall kept(Call::unlink, EROFS);
    Created file;
    open(file, "x");
    EXPECT_EQ(file.result, -ERANGE);
    EXPECT_EQ(removal.ran(), opener_.removes_the_last);
    EXPECT_EQ(kept.failed(), opener_.removes_the_last ? 1 : 0);
    EXPECT_THAT(log_.messages(), ElementsAre(exceeded(temp_name(999'999))));
}

// A path has 4096 bytes with its end.
TEST_P(TempFile, that_lies_too_deep_is_refused) {
    std::vector<char> name(6000);
    const size_t longest = (4095 - 7 - opener_.digits) / 2 * 2;
    for (const auto &[length, result] :
         {std::pair{longest, 0}, {longest + 2, -36}, {size_t{4094}, -36}, {size_t{4096}, -36}, {size_t{5000}, -36}}) {
        SCOPED_TRACE(length);
        for (char *out : {name.data(), static_cast<char *>(nullptr)}) {
            int32_t descriptor = kUntouched;
            const std::string folder = long_way(length);
            EXPECT_EQ(opener_.open(here_, (folder + "x").c_str(), O_RDWR, 0600, 6000, out, &descriptor), result);
            EXPECT_EQ(descriptor == -1, result != 0);
            if (descriptor >= 0)
                close(descriptor);
            if (result == 0 && out != nullptr) {
                EXPECT_EQ(std::string(out), folder + opener_.candidate(0));
            }
        }
    }
    EXPECT_THAT(folder_.names(), SizeIs(2));
}

TEST_P(TempFile, drops_an_ending_of_any_length) {
    Created file;
    open(file, "./" + std::string(6000, 'n'));
    EXPECT_EQ(file.result, 0);
    EXPECT_EQ(file.name.text(), "./" + opener_.candidate(0));
}

TEST_P(TempFile, of_several_processes_never_meet) {
    constexpr int processes = 4;
    constexpr int files = 50;
    std::vector<pid_t> children;
    for (int i = 0; i < processes; i++)
        children.push_back(start_child([&] {
            for (int n = 0; n < files; n++) {
                Created file;
                open(file, "x");
                if (file.result != 0)
                    return 1;
            }
            return 0;
        }));
    for (const pid_t child : children)
        EXPECT_EQ(wait_for(child), 0);

    std::vector<std::string> expected;
    for (int32_t number = 0; number < processes * files; number++)
        expected.push_back(opener_.candidate(number));
    EXPECT_EQ(folder_.names(), expected);
}

TEST_P(TempFile, failures_are_logged_at_their_level) {
    for (const int32_t level : {0, 1, 2, 3}) {
        LogCapture log(level);
        Created refused;
        open(refused, "none/x");
        EXPECT_THAT(log.messages(), SizeIs(level == 3 ? 1 : 0));
        log.clear();
        Created small;
        open(small, "x", 0);
        EXPECT_THAT(log.messages(), SizeIs(level == 0 ? 0 : 1));
    }
}
