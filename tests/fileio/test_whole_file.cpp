// Reading and writing whole files and pieces of them.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <ostream>

#include "file_world.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int64_t kLarge = 5ll << 30;

// The two readers in one form, for what both promise.
int32_t read_line(const std::string &path, char *buffer, int64_t *length) {
    auto size = static_cast<int32_t>(*length);
    const int32_t result = Simple_Read_File(path.c_str(), buffer, &size);
    *length = size;
    return result;
}

int32_t read_piece(const std::string &path, char *buffer, int64_t *length) {
    return Read_File_To_Buffer(path.c_str(), buffer, length, 0);
}

struct Reader {
    const char *name;
    int32_t (*read)(const std::string &path, char *buffer, int64_t *length);

    friend std::ostream &operator<<(std::ostream &out, const Reader &reader) { return out << reader.name; }
};

class Reading : public FileTest, public testing::WithParamInterface<Reader> {};

INSTANTIATE_TEST_SUITE_P(All, Reading, testing::Values(Reader{"line", read_line}, Reader{"piece", read_piece}),
                         [](const auto &reader) { return std::string(reader.param.name); });

using LineFile = FileTest;
using PieceReading = FileTest;
using PieceWriting = FileTest;

// Write_File_From_Buffer of a text; `length` receives what it stored.
int32_t write_piece(const std::string &path, const std::string &bytes, int64_t offset, int64_t *length) {
    *length = static_cast<int64_t>(bytes.size());
    return Write_File_From_Buffer(path.c_str(), bytes.data(), length, offset);
}

std::string write_error(const std::string &path, int error, int64_t written, int64_t count) {
    return "[error] File_Write_Bulk(#): Can't write file error! (" + path + ", " + std::to_string(-error) + ", -1," +
           std::to_string(written) + "/" + std::to_string(count) + ")\n";
}

}  // namespace

TEST_P(Reading, a_failure_is_the_result_and_stores_nothing) {
    const struct {
        std::string path;
        int error;
    } table[] = {{folder_.path("nothing"), ENOENT},
                 {folder_.path(), EISDIR},
                 {folder_.file("file", "") + "/x", ENOTDIR},
                 {"", ENOENT},
                 {folder_.path(std::string(300, 'n')), ENAMETOOLONG}};
    LogCapture log;

    for (const auto &row : table) {
        SCOPED_TRACE(row.path);
        GuardedBuffer buffer;
        int64_t length = 10;
        EXPECT_EQ(GetParam().read(row.path, buffer.data(), &length), -row.error);
        EXPECT_EQ(length, 10);
        EXPECT_EQ(buffer.written(), 0u);
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_P(Reading, is_one_read_however_little_comes) {
    const std::string path = folder_.file("file", "0123456789");
    GuardedBuffer buffer;
    int64_t length = 8;
    const CountCalls reads(Call::read);
    {
        const ShortCall little(Call::read, 3);
        EXPECT_EQ(GetParam().read(path, buffer.data(), &length), 0);
    }
    EXPECT_EQ(length, 3);
    EXPECT_EQ(std::string(buffer.data(), 3), "012");

    const FailCall interrupted(Call::read, EINTR);
    EXPECT_EQ(GetParam().read(path, buffer.data(), &length), -EINTR);
    EXPECT_EQ(reads.count(), 2);
}

TEST_P(Reading, needs_no_permission_to_write) {
    if (!can_be_nobody())
        GTEST_SKIP() << "only a privileged program can become another user";
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
    for (const auto &[mode, result] : {std::pair{0444, 0}, {0200, -EACCES}}) {
        const std::string path = folder_.file("file", "x");
        std::filesystem::permissions(path, std::filesystem::perms(mode));
        EXPECT_EQ(in_child_as_nobody([&, expected = result] {
                      char buffer[10];
                      int64_t length = 10;
                      return GetParam().read(path, buffer, &length) == expected ? 0 : 1;
                  }),
                  0)
            << mode;
    }
}

TEST_F(LineFile, loses_one_line_feed_and_is_terminated_where_there_is_room) {
    const struct {
        std::string content;
        int32_t size;
        int32_t length;
        size_t touched;
        bool terminated;
    } table[] = {
        {"1\n", 16, 1, 2, true},
        {"1", 16, 1, 2, true},
        {"", 16, 0, 1, true},
        {"\n", 16, 0, 1, true},
        {"\n", 1, 0, 1, true},
        {"a\n\n", 16, 2, 3, true},
        {"\n\n", 16, 1, 2, true},
        {"a\r\n", 16, 2, 3, true},
        {"a\nb", 16, 3, 4, true},
        {"\na", 16, 2, 3, true},
        {"0123456789abcde\n", 16, 15, 16, true},
        {"0123456789abcdef", 16, 16, 16, false},
        {"0123456789abcdef\n", 16, 16, 16, false},
        {"0123456789abcd\nf\n", 16, 16, 16, false},
        {"0123456789abcde\nfgh", 16, 15, 16, true},
        {"0123456789abcd\n", 16, 14, 15, true},
        {std::string("a\0b\n", 4), 16, 3, 4, true},
        {std::string("a\n\0", 3), 16, 3, 4, true},
        {"x", 1, 1, 1, false},
        {"x\n", 1, 1, 1, false},
        {"x\n", 0, 0, 0, false},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.content + ", size " + std::to_string(row.size));
        const std::string path = folder_.file("file", row.content);
        GuardedBuffer buffer;
        int32_t length = row.size;
        EXPECT_EQ(Simple_Read_File(path.c_str(), buffer.data(), &length), 0);
        EXPECT_EQ(length, row.length);
        EXPECT_EQ(buffer.written(), row.touched);
        EXPECT_EQ(std::string(buffer.data(), row.length), row.content.substr(0, row.length));
        if (row.terminated) {
            EXPECT_EQ(buffer.data()[row.length], '\0');
        }
    }
}

TEST_F(LineFile, of_the_kernel_is_read) {
    char text[64];
    int32_t length = sizeof text;
    EXPECT_EQ(Simple_Read_File("/proc/sys/kernel/ostype", text, &length), 0);
    EXPECT_STREQ(text, "Linux");
    EXPECT_EQ(length, 5);
}

TEST_F(LineFile, bad_arguments_are_refused) {
    const std::string path = folder_.file("file", "text");
    GuardedBuffer buffer;
    int32_t length = 10;
    EXPECT_EQ(Simple_Read_File(nullptr, buffer.data(), &length), -22);
    EXPECT_EQ(Simple_Read_File(path.c_str(), nullptr, &length), -22);
    EXPECT_EQ(Simple_Read_File(path.c_str(), buffer.data(), nullptr), -22);
    EXPECT_EQ(length, 10);
    for (int32_t negative : {-1, INT32_MIN})
        EXPECT_EQ(Simple_Read_File(path.c_str(), buffer.data(), &negative), -22);
    EXPECT_EQ(buffer.written(), 0u);
}

TEST_F(PieceReading, keeps_every_byte_and_adds_none) {
    const std::string content("0123\n56\0\n\n", 10);
    const std::string path = folder_.file("file", content);
    const struct {
        int64_t size;
        int64_t offset;
        int64_t length;
    } table[] = {{10, 0, 10}, {400, 0, 10}, {4, 0, 4},  {5, 0, 5},     {3, 2, 3},
                 {20, 9, 1},  {1, 10, 0},   {1, 11, 0}, {5, kLarge, 0}};

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.size << " bytes from " << row.offset);
        GuardedBuffer buffer;
        int64_t length = row.size;
        EXPECT_EQ(Read_File_To_Buffer(path.c_str(), buffer.data(), &length, row.offset), 0);
        EXPECT_EQ(length, row.length);
        EXPECT_EQ(buffer.written(), static_cast<size_t>(row.length));
        if (row.length > 0) {
            EXPECT_EQ(std::string(buffer.data(), row.length), content.substr(row.offset, row.length));
        }
    }
}

TEST_F(PieceReading, reaches_beyond_4_gibibytes) {
    const SmallDisk disk(1 << 20);
    const std::string path = disk.path("sparse");
    int64_t length = 0;
    ASSERT_EQ(write_piece(path, "tail", kLarge, &length), 0);
    EXPECT_EQ(length, 4);
    EXPECT_EQ(std::filesystem::file_size(path), static_cast<uint64_t>(kLarge) + 4);

    char text[8] = {};
    length = sizeof text;
    EXPECT_EQ(Read_File_To_Buffer(path.c_str(), text, &length, kLarge + 1), 0);
    EXPECT_STREQ(text, "ail");
    EXPECT_EQ(length, 3);
}

TEST_F(PieceReading, bad_arguments_and_offsets_are_refused) {
    const std::string path = folder_.file("file", "text");
    GuardedBuffer buffer;
    int64_t length = 10;
    EXPECT_EQ(Read_File_To_Buffer(nullptr, buffer.data(), &length, 0), -22);
    EXPECT_EQ(Read_File_To_Buffer(path.c_str(), nullptr, &length, 0), -22);
    EXPECT_EQ(Read_File_To_Buffer(path.c_str(), buffer.data(), nullptr, 0), -22);
    EXPECT_EQ(Read_File_To_Buffer(path.c_str(), buffer.data(), &length, -1), -EINVAL);
    EXPECT_EQ(Read_File_To_Buffer(path.c_str(), buffer.data(), &length, INT64_MIN), -EINVAL);
    EXPECT_EQ(length, 10);
    for (int64_t less : {int64_t{0}, int64_t{-1}, INT64_MIN})
        EXPECT_EQ(Read_File_To_Buffer(path.c_str(), buffer.data(), &less, 0), -22);
    EXPECT_EQ(buffer.written(), 0u);
}

TEST_F(PieceReading, seeks_only_where_there_is_an_offset) {
    const std::string path = folder_.path("fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const Descriptor other_end(path, O_RDWR);
    ASSERT_EQ(write(other_end, "text", 4), 4);
    char text[8] = {};
    int64_t length = sizeof text;

    EXPECT_EQ(Read_File_To_Buffer(path.c_str(), text, &length, 1), -ESPIPE);
    EXPECT_EQ(length, 8);
    const FailCall no_seek(Call::lseek, EIO);
    EXPECT_EQ(Read_File_To_Buffer(path.c_str(), text, &length, 0), 0);
    EXPECT_STREQ(text, "text");
    EXPECT_EQ(length, 4);
    EXPECT_EQ(no_seek.failed(), 0);
}

TEST_F(PieceWriting, never_truncates) {
    const struct {
        int64_t offset;
        const char *bytes;
        std::string content;
    } table[] = {{0, "abc", "abc3456789"},
                 {4, "abc", "0123abc789"},
                 {8, "abc", "01234567abc"},
                 {10, "a\nb\n", "0123456789a\nb\n"},
                 {12, "a", std::string("0123456789\0\0a", 13)}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.bytes);
        const std::string path = folder_.file("file", "0123456789");
        int64_t length = 0;
        EXPECT_EQ(write_piece(path, row.bytes, row.offset, &length), 0);
        EXPECT_EQ(length, static_cast<int64_t>(strlen(row.bytes)));
        EXPECT_EQ(read_file(path), row.content);
    }
}

TEST_F(PieceWriting, makes_the_file_with_the_mode_that_the_umask_leaves) {
    int64_t length = 0;
    for (const mode_t mask : {0000, 0022, 0027, 0777}) {
        const std::string path = folder_.path(std::to_string(mask));
        const mode_t outer = umask(mask);
        EXPECT_EQ(write_piece(path, "x", 0, &length), 0);
        umask(outer);
        EXPECT_EQ(status_of(path).st_mode, S_IFREG | (0777 & ~mask)) << mask;
    }

    const std::string present = folder_.file("present", "");
    ASSERT_EQ(chmod(present.c_str(), 0640), 0);
    EXPECT_EQ(write_piece(present, "x", 0, &length), 0);
    EXPECT_EQ(status_of(present).st_mode & 07777, 0640u);
}

TEST_F(PieceWriting, goes_on_after_short_writes) {
    const std::string path = folder_.path("file");
    const ShortCall little(Call::write, 3, 1, 1000);
    const CountCalls writes(Call::write);
    int64_t length = 0;
    EXPECT_EQ(write_piece(path, "0123456789", 0, &length), 0);
    EXPECT_EQ(writes.count(), 4);
    EXPECT_EQ(length, 10);
    EXPECT_EQ(read_file(path), "0123456789");
}

TEST_F(PieceWriting, to_a_full_disk_stores_what_was_written) {
    const SmallDisk disk(1 << 20);
    disk.fill_up_to(8192);
    const std::string path = disk.path("file");
    LogCapture log(1);
    int64_t length = 0;

    EXPECT_EQ(write_piece(path, std::string(100'000, 'y'), 0, &length), -28);

    EXPECT_GT(length, 0);
    EXPECT_LT(length, 100'000);
    EXPECT_EQ(read_file(path), std::string(length, 'y'));
    EXPECT_THAT(log.messages(), ElementsAre(write_error(path, ENOSPC, length, 100'000)));

    log.clear();
    EXPECT_EQ(write_piece("/dev/full", "abc", 0, &length), -28);
    EXPECT_EQ(length, 0);
    EXPECT_THAT(log.messages(), ElementsAre(write_error("/dev/full", ENOSPC, 0, 3)));
}

TEST_F(PieceWriting, bad_arguments_are_refused_before_a_file_is_made) {
    const std::string path = folder_.path("file");
    int64_t length = 1;
    EXPECT_EQ(Write_File_From_Buffer(nullptr, "x", &length, 0), -22);
    EXPECT_EQ(Write_File_From_Buffer(path.c_str(), nullptr, &length, 0), -22);
    EXPECT_EQ(Write_File_From_Buffer(path.c_str(), "x", nullptr, 0), -22);
    EXPECT_EQ(length, 1);
    for (int64_t less : {int64_t{0}, int64_t{-1}, INT64_MIN})
        EXPECT_EQ(Write_File_From_Buffer(path.c_str(), "x", &less, 0), -22);
    EXPECT_THAT(folder_.names(), IsEmpty());
}

TEST_F(PieceWriting, gives_the_error_of_open_and_of_the_seek) {
    ASSERT_EQ(mkfifo(folder_.path("fifo").c_str(), 0600), 0);
    const Descriptor other_end(folder_.path("fifo"), O_RDWR);
    const std::string present = folder_.file("present", "0123");
    const struct {
        std::string path;
        int64_t offset;
        int error;
    } table[] = {{folder_.path("none/file"), 0, ENOENT}, {folder_.path(), 0, EISDIR},
                 {present + "/x", 0, ENOTDIR},           {present, -1, EINVAL},
                 {present, INT64_MIN, EINVAL},           {folder_.path("fifo"), 1, ESPIPE}};
    LogCapture log;

    for (const auto &row : table) {
        SCOPED_TRACE(row.path);
        int64_t length = 0;
        EXPECT_EQ(write_piece(row.path, "ab", row.offset, &length), -row.error);
        EXPECT_EQ(length, 2);
    }
    EXPECT_EQ(read_file(present), "0123");
    EXPECT_THAT(log.messages(), IsEmpty());
    int64_t length = 0;
    EXPECT_EQ(write_piece(folder_.path("fifo"), "ab", 0, &length), 0);
}
