// Writing and sending a count of bytes through however short transfers.
#include <gmock/gmock.h>
#include <sys/mman.h>

#include <cerrno>
#include <filesystem>

#include "file_world.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Shows whether an out-value was stored.
constexpr uint64_t kUntouched = 77;

constexpr int64_t kLarge = 5ll << 30;

// The most that the kernel moves with one call.
constexpr int64_t kMostAtOnce = 0x7ffff000;

std::string write_error(const std::string &name, int result, int last, int64_t written, int64_t count) {
    return "[error] File_Write_Bulk(#): Can't write file error! (" + name + ", " + std::to_string(result) + ", " +
           std::to_string(last) + "," + std::to_string(written) + "/" + std::to_string(count) + ")\n";
}

std::string send_error(const std::string &name, int result, int last, int64_t sent, int64_t count, int64_t offset) {
    return "[error] File_Send_Bulk(#): Can't sendfile error! (" + name + ", " + std::to_string(result) + ", " +
           std::to_string(last) + "," + std::to_string(sent) + "/" + std::to_string(count) + ", " +
           std::to_string(offset) + ")\n";
}

class WriteBulk : public FileTest {
  protected:
    const std::string path_ = folder_.path("file");
    const Descriptor file_{path_, O_RDWR | O_CREAT};
    uint64_t written_ = kUntouched;
    LogCapture log_;
};

class SendBulk : public FileTest {
  protected:
    const std::string from_ = folder_.file("from", "0123456789");
    const std::string to_ = folder_.path("to");
    const Descriptor in_{from_, O_RDONLY};
    const Descriptor out_{to_, O_RDWR | O_CREAT};
    uint64_t sent_ = kUntouched;
    LogCapture log_;
};

}  // namespace

TEST_F(WriteBulk, writes_all_from_where_the_file_stands) {
    EXPECT_EQ(File_Write_Bulk(file_, "0123456789", 10, &written_), 0);
    EXPECT_EQ(written_, 10u);
    EXPECT_EQ(File_Write_Bulk(file_, "abc", 3, nullptr), 0);
    EXPECT_EQ(read_file(path_), "0123456789abc");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(WriteBulk, goes_on_after_each_short_write) {
    const ShortCall little(Call::write, 3, 1, 1000);
    const CountCalls writes(Call::write);
    EXPECT_EQ(File_Write_Bulk(file_, "0123456789", 10, &written_), 0);
    EXPECT_EQ(writes.count(), 4);
    EXPECT_EQ(written_, 10u);
    EXPECT_EQ(read_file(path_), "0123456789");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(WriteBulk, bad_arguments_are_refused_and_count_nothing) {
    const struct {
        int descriptor;
        const char *bytes;
        int64_t count;
    } table[] = {{file_, nullptr, 1}, {file_, nullptr, 0}, {file_, "x", -1}, {file_, "x", INT64_MIN},
                 {-1, "x", 1},        {-1, "x", 0},        {-100, "x", 1},   {INT32_MIN, "x", 1}};
    const CountCalls writes(Call::write);

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.descriptor << ", " << row.count);
        written_ = kUntouched;
        EXPECT_EQ(File_Write_Bulk(row.descriptor, row.bytes, row.count, &written_), -22);
        EXPECT_EQ(written_, 0u);
        EXPECT_EQ(File_Write_Bulk(row.descriptor, row.bytes, row.count, nullptr), -22);
    }
    EXPECT_EQ(writes.count(), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(WriteBulk, nothing_is_written_at_once) {
    const CountCalls writes(Call::write);
    for (const int descriptor : {int{file_}, kClosed}) {
        written_ = kUntouched;
        EXPECT_EQ(File_Write_Bulk(descriptor, "x", 0, &written_), 0);
        EXPECT_EQ(written_, 0u);
        EXPECT_EQ(File_Write_Bulk(descriptor, "x", 0, nullptr), 0);
    }
    EXPECT_EQ(writes.count(), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(WriteBulk, a_failed_write_tells_how_far_it_came) {
    for (const int error : {EINTR, EIO, EAGAIN, ENOSPC}) {
        SCOPED_TRACE(error);
        ASSERT_EQ(ftruncate(file_, 0), 0);
        lseek(file_, 0, SEEK_SET);
        const ShortCall little(Call::write, 4, 1, 1);
        const FailCall fault(Call::write, error, 2);
        const CountCalls writes(Call::write);
        EXPECT_EQ(File_Write_Bulk(file_, "0123456789", 10, &written_), -error);
        EXPECT_EQ(writes.count(), 2);
        EXPECT_EQ(written_, 4u);
        EXPECT_EQ(read_file(path_), "0123");
        EXPECT_THAT(log_.messages(), ElementsAre(write_error(path_, -error, -1, 4, 10)));
        log_.clear();
    }
}

TEST_F(WriteBulk, a_write_of_nothing_ends_it_with_the_error_of_the_moment) {
    for (const int error : {0, EXDEV}) {
        SCOPED_TRACE(error);
        const ShortCall little(Call::write, 3);
        const ShortCall nothing(Call::write, 0, 2);
        errno = error;
        EXPECT_EQ(File_Write_Bulk(file_, "0123456789", 10, &written_), -error);
        EXPECT_EQ(written_, 3u);
        EXPECT_THAT(log_.messages(), ElementsAre(write_error(path_, -error, 0, 3, 10)));
        log_.clear();
    }
    EXPECT_EQ(read_file(path_), "012012");
}

TEST_F(WriteBulk, errors_of_the_system_are_named) {
    const Descriptor read_only(path_, O_RDONLY);
    EXPECT_EQ(File_Write_Bulk(read_only, "abc", 3, &written_), -EBADF);
    EXPECT_EQ(written_, 0u);
    EXPECT_EQ(File_Write_Bulk(kClosed, "abc", 3, nullptr), -EBADF);
    EXPECT_THAT(log_.messages(),
                ElementsAre(write_error(path_, -EBADF, -1, 0, 3), write_error("(null)", -EBADF, -1, 0, 3)));
}

TEST_F(WriteBulk, a_full_pipe_ends_it) {
    const Pipe pipe;
    const int64_t room = fcntl(pipe.in, F_SETPIPE_SZ, 4096);
    ASSERT_GE(room, 4096);
    const std::string bytes(room + 1000, 'x');
    EXPECT_EQ(File_Write_Bulk(pipe.in, bytes.data(), room + 1000, &written_), -EAGAIN);
    EXPECT_EQ(written_, static_cast<uint64_t>(room));
    EXPECT_THAT(log_.messages(), ElementsAre(write_error(pipe.in.name(), -EAGAIN, -1, room, room + 1000)));
}

TEST_F(WriteBulk, a_full_disk_ends_it) {
    const SmallDisk disk(1 << 20);
    disk.fill_up_to(8192);
    const std::string path = disk.path("file");
    const Descriptor file(path, O_WRONLY | O_CREAT);
    const std::string bytes(100'000, 'y');

    EXPECT_EQ(File_Write_Bulk(file, bytes.data(), 100'000, &written_), -28);

    EXPECT_GT(written_, 0u);
    EXPECT_EQ(written_, std::filesystem::file_size(path));
    EXPECT_EQ(read_file(path), std::string(written_, 'y'));
    EXPECT_THAT(log_.messages(), ElementsAre(write_error(path, -28, -1, static_cast<int64_t>(written_), 100'000)));
}

TEST_F(WriteBulk, counts_beyond_32_bits) {
    constexpr int64_t count = (4ll << 30) + 4096;
    void *const nothing = mmap(nullptr, count, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(nothing, MAP_FAILED);
    const Descriptor sink("/dev/null", O_WRONLY);
    const CountCalls writes(Call::write);

    EXPECT_EQ(File_Write_Bulk(sink, nothing, count, &written_), 0);
    EXPECT_EQ(written_, static_cast<uint64_t>(count));
    EXPECT_GT(writes.count(), 1);
    EXPECT_THAT(log_.messages(), IsEmpty());

    const FailCall fault(Call::write, EIO, 2);
    EXPECT_EQ(File_Write_Bulk(sink, nothing, count, &written_), -EIO);
    EXPECT_EQ(written_, static_cast<uint64_t>(kMostAtOnce));
    EXPECT_THAT(log_.messages(), ElementsAre(write_error("/dev/null", -EIO, -1, kMostAtOnce, count)));
    munmap(nothing, count);
}

TEST_F(WriteBulk, an_error_overwrites_the_buffer_of_fullpath) {
    const Descriptor other("/dev/zero", O_RDONLY);
    const Descriptor full("/dev/full", O_WRONLY);
    const char *name = Fullpath(other);
    EXPECT_EQ(File_Write_Bulk(file_, "x", 1, nullptr), 0);
    EXPECT_STREQ(name, "/dev/zero");
    EXPECT_EQ(File_Write_Bulk(full, "x", 1, nullptr), -ENOSPC);
    EXPECT_STREQ(name, "/dev/full");
}

TEST_F(WriteBulk, errors_are_logged_from_level_1) {
    const Descriptor full("/dev/full", O_WRONLY);
    for (const int32_t level : {0, 1, 2}) {
        LogCapture log(level);
        EXPECT_EQ(File_Write_Bulk(full, "x", 1, nullptr), -ENOSPC);
        EXPECT_EQ(log.messages().size(), level == 0 ? 0u : 1u);
    }
}

TEST_F(SendBulk, moves_the_position_of_the_input_without_an_offset) {
    EXPECT_EQ(File_Send_Bulk(in_, out_, 4, nullptr, &sent_), 0);
    EXPECT_EQ(sent_, 4u);
    EXPECT_EQ(in_.position(), 4);
    EXPECT_EQ(File_Send_Bulk(in_, out_, 3, nullptr, nullptr), 0);
    EXPECT_EQ(in_.position(), 7);
    EXPECT_EQ(read_file(to_), "0123456");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SendBulk, advances_a_given_offset_and_leaves_the_position) {
    int64_t offset = 2;
    EXPECT_EQ(File_Send_Bulk(in_, out_, 5, &offset, &sent_), 0);
    EXPECT_EQ(offset, 7);
    EXPECT_EQ(sent_, 5u);
    EXPECT_EQ(in_.position(), 0);
    EXPECT_EQ(read_file(to_), "23456");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SendBulk, goes_on_after_each_short_send) {
    for (const bool with_offset : {false, true}) {
        ASSERT_EQ(ftruncate(out_, 0), 0);
        lseek(out_, 0, SEEK_SET);
        int64_t offset = 0;
        const ShortCall little(Call::sendfile, 3, 1, 1000);
        const CountCalls sends(Call::sendfile);
        EXPECT_EQ(File_Send_Bulk(in_, out_, 10, with_offset ? &offset : nullptr, &sent_), 0);
        EXPECT_EQ(sends.count(), 4);
        EXPECT_EQ(sent_, 10u);
        EXPECT_EQ(offset, with_offset ? 10 : 0);
        EXPECT_EQ(read_file(to_), "0123456789");
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SendBulk, passes_nothing_through_memory) {
    const CountCalls reads(Call::read);
    const CountCalls writes(Call::write);
    EXPECT_EQ(File_Send_Bulk(in_, out_, 10, nullptr, nullptr), 0);
    EXPECT_EQ(reads.count() + writes.count(), 0);
}

TEST_F(SendBulk, bad_arguments_are_refused_and_count_nothing) {
    const struct {
        int in;
        int out;
        int64_t count;
    } table[] = {{-1, out_, 1}, {in_, -1, 1}, {in_, out_, -1},       {-100, out_, 0},
                 {in_, -1, 0},  {-1, -1, -1}, {in_, out_, INT64_MIN}};
    const CountCalls sends(Call::sendfile);
    int64_t offset = 5;

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.in << ", " << row.out << ", " << row.count);
        sent_ = kUntouched;
        EXPECT_EQ(File_Send_Bulk(row.in, row.out, row.count, &offset, &sent_), -22);
        EXPECT_EQ(sent_, 0u);
        EXPECT_EQ(File_Send_Bulk(row.in, row.out, row.count, nullptr, nullptr), -22);
    }
    EXPECT_EQ(offset, 5);
    EXPECT_EQ(sends.count(), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SendBulk, nothing_is_sent_at_once) {
    const CountCalls sends(Call::sendfile);
    int64_t offset = 5;
    EXPECT_EQ(File_Send_Bulk(kClosed, kClosed, 0, &offset, &sent_), 0);
    EXPECT_EQ(sent_, 0u);
    EXPECT_EQ(offset, 5);
    EXPECT_EQ(sends.count(), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SendBulk, the_end_of_the_input_gives_the_error_of_the_moment) {
    for (const int error : {0, EXDEV}) {
        SCOPED_TRACE(error);
        int64_t offset = 6;
        errno = error;
        EXPECT_EQ(File_Send_Bulk(in_, out_, 10, &offset, &sent_), -error);
        EXPECT_EQ(sent_, 4u);
        EXPECT_EQ(offset, 10);
        EXPECT_THAT(log_.messages(), ElementsAre(send_error(from_, -error, 0, 4, 10, 10)));
        log_.clear();
    }
}

TEST_F(SendBulk, errors_name_the_input_and_the_offset) {
    int64_t negative = -7;
    const Descriptor write_only(from_, O_WRONLY);
    EXPECT_EQ(File_Send_Bulk(kClosed, out_, 3, nullptr, &sent_), -EBADF);
    EXPECT_EQ(sent_, 0u);
    EXPECT_EQ(File_Send_Bulk(in_, kClosed, 3, nullptr, nullptr), -EBADF);
    EXPECT_EQ(File_Send_Bulk(write_only, out_, 3, nullptr, nullptr), -EBADF);
    EXPECT_EQ(File_Send_Bulk(in_, out_, 3, &negative, nullptr), -EINVAL);
    EXPECT_THAT(log_.messages(),
                ElementsAre(send_error("(null)", -EBADF, -1, 0, 3, 0), send_error(from_, -EBADF, -1, 0, 3, 0),
                            send_error(from_, -EBADF, -1, 0, 3, 0), send_error(from_, -EINVAL, -1, 0, 3, -7)));
}

TEST_F(SendBulk, an_interrupted_send_is_not_repeated) {
    int64_t offset = 1;
    const ShortCall little(Call::sendfile, 4, 1, 1);
    const FailCall fault(Call::sendfile, EINTR, 2);
    const CountCalls sends(Call::sendfile);
    EXPECT_EQ(File_Send_Bulk(in_, out_, 9, &offset, &sent_), -EINTR);
    EXPECT_EQ(sends.count(), 2);
    EXPECT_EQ(sent_, 4u);
    EXPECT_THAT(log_.messages(), ElementsAre(send_error(from_, -EINTR, -1, 4, 9, 5)));
}

TEST_F(SendBulk, a_full_disk_ends_it) {
    const SmallDisk disk(1 << 20);
    disk.fill_up_to(8192);
    const std::string from = folder_.file("large", std::string(100'000, 'y'));
    const Descriptor in(from, O_RDONLY);
    const Descriptor out(disk.path("file"), O_WRONLY | O_CREAT);

    EXPECT_EQ(File_Send_Bulk(in, out, 100'000, nullptr, &sent_), -28);

    EXPECT_GT(sent_, 0u);
    EXPECT_EQ(sent_, std::filesystem::file_size(disk.path("file")));
    EXPECT_THAT(log_.messages(), ElementsAre(send_error(from, -28, -1, static_cast<int64_t>(sent_), 100'000, 0)));
}

TEST_F(SendBulk, reaches_beyond_4_gibibytes) {
    const SmallDisk disk(1 << 20);
    const Descriptor sparse(disk.path("sparse"), O_RDWR | O_CREAT);
    ASSERT_EQ(pwrite(sparse, "tail", 4, kLarge), 4);
    int64_t offset = kLarge;

    EXPECT_EQ(File_Send_Bulk(sparse, out_, 3, &offset, &sent_), 0);
    EXPECT_EQ(read_file(to_), "tai");
    EXPECT_EQ(offset, kLarge + 3);
    errno = 0;
    EXPECT_EQ(File_Send_Bulk(sparse, out_, kLarge, &offset, &sent_), 0);
    EXPECT_EQ(sent_, 1u);
    EXPECT_THAT(log_.messages(), ElementsAre(send_error(disk.path("sparse"), 0, 0, 1, kLarge, kLarge + 4)));
}
