// Copying bytes between descriptors: the strict copy, and the one for a source that is still growing.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include "trees.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int64_t kChunk = 32768;

struct Copier {
    const char *name;
    int32_t (*copy)(int32_t in, int64_t *in_offset, int32_t out, int64_t *out_offset, int64_t count, int32_t *stop,
                    int64_t *total);
    bool waits;  // for a source that ends early

    std::string error(const std::string &text) const { return std::string("[error] ") + name + "(#): " + text + "\n"; }
    std::string read_error(int64_t chunk, int32_t result, int64_t got) const {
        if (waits)
            return error("Can't read " + std::to_string(got) + " byte from the source file error! ");
        return error("Can't read " + std::to_string(chunk) + " byte from the source file error! (" +
                     std::to_string(result) + ", " + std::to_string(got) + ")");
    }
    std::string write_error(int64_t chunk, int32_t result, int64_t written) const {
        return error("Can't write " + std::to_string(chunk) + " byte to the destination file error! (" +
                     std::to_string(result) + ", " + std::to_string(written) + ")");
    }

    friend std::ostream &operator<<(std::ostream &out, const Copier &copier) { return out << copier.name; }
};

constexpr Copier kStrict{"Copy_File_Data", Copy_File_Data, false};
constexpr Copier kPatient{"Copy_File_Data_MROV", Copy_File_Data_MROV, true};

// A file that is open for as long as the object lives.
class OpenFile {
  public:
    OpenFile(const std::string &path, int flags) : descriptor_(open(path.c_str(), flags | O_CLOEXEC, 0644)) {
        check(descriptor_ >= 0, "open " + path);
    }
    ~OpenFile() { close(descriptor_); }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;

    int get() const { return descriptor_; }
    int64_t position() const { return lseek(descriptor_, 0, SEEK_CUR); }

  private:
    int descriptor_;
};

// Two ends of a pipe or a pair of sockets.
struct Channel {
    explicit Channel(bool sockets = false) {
        check((sockets ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends)) == 0, "make a channel");
    }
    ~Channel() {
        close(ends[0]);
        close(ends[1]);
    }
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    void feed(const std::string &text) { check(write(ends[1], text.data(), text.size()) >= 0, "feed a channel"); }

    int ends[2];
};

// The patient copy of a file of 40,000 bytes that is to have `count`.
struct PatientFile {
    int32_t copy(int64_t count) {
        return Copy_File_Data_MROV(in.get(), &offset, out.get(), nullptr, count, &stop, &total);
    }

    // All counts are those of the bytes that came over.
    void expect_copied(int64_t count) const {
        EXPECT_EQ(read_file(folder.path("target")), bytes(static_cast<size_t>(count)));
        EXPECT_EQ(total, count);
        EXPECT_EQ(offset, count);
    }

    TempFolder folder;
    const std::string source = folder.file("source", bytes(40'000));
    const OpenFile in{source, O_RDONLY};
    const OpenFile out{folder.path("target"), O_WRONLY | O_CREAT};
    int64_t offset = 0;
    int64_t total = 0;
    int32_t stop = 0;
};

class DataCopyTest : public testing::TestWithParam<Copier> {
  protected:
    ~DataCopyTest() override { EXPECT_EQ(open_descriptors(), before_); }

    int32_t copy(const OpenFile &in, const OpenFile &out, int64_t count) {
        return GetParam().copy(in.get(), nullptr, out.get(), nullptr, count, &stop_, &total_);
    }
    std::string source(size_t size) const { return folder_.file("source", bytes(size)); }
    std::string copied() const { return read_file(target_); }

    TempFolder folder_;
    const std::string target_ = folder_.path("target");
    int32_t stop_ = 0;
    int64_t total_ = 7;

  private:
    const std::map<int, std::string> before_ = open_descriptors();
};

using DataCopy = DataCopyTest;

std::string copier_name(const testing::TestParamInfo<Copier> &info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, DataCopy, testing::Values(kStrict, kPatient), copier_name);

}  // namespace

TEST_P(DataCopy, bad_arguments_are_refused) {
    const OpenFile in(source(10), O_RDONLY);
    const OpenFile out(target_, O_RDWR | O_CREAT);
    const struct {
        const char *what;
        int in;
        int64_t in_offset;
        int out;
        int64_t out_offset;
        int64_t count;
    } table[] = {
        {"no input", -1, 0, out.get(), 0, 5},
        {"folder for input", AT_FDCWD, 0, out.get(), 0, 5},
        {"no output", in.get(), 0, -1, 0, 5},
        {"lowest output", in.get(), 0, INT32_MIN, 0, 5},
        {"input offset", in.get(), -1, out.get(), 0, 5},
        {"output offset", in.get(), 0, out.get(), -1, 5},
        {"count", in.get(), 0, out.get(), 0, -1},
        {"lowest count", in.get(), 0, out.get(), 0, INT64_MIN},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.what);
        LogCapture log;
        int64_t in_offset = row.in_offset;
        int64_t out_offset = row.out_offset;

        EXPECT_EQ(GetParam().copy(row.in, &in_offset, row.out, &out_offset, row.count, &stop_, &total_), -EINVAL);

        EXPECT_EQ(in_offset, row.in_offset);
        EXPECT_EQ(out_offset, row.out_offset);
        EXPECT_EQ(total_, 7);
        EXPECT_EQ(copied(), "");
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST_P(DataCopy, every_size_is_copied_whole_and_added_to_the_total) {
    for (const int64_t size : {int64_t{0}, int64_t{1}, kChunk - 1, kChunk, kChunk + 1, 2 * kChunk, int64_t{100'001}}) {
        SCOPED_TRACE(size);
        LogCapture log;
        const OpenFile in(source(static_cast<size_t>(size)), O_RDONLY);
        const OpenFile out(target_, O_WRONLY | O_CREAT | O_TRUNC);
        total_ = 7;

        EXPECT_EQ(copy(in, out, size), 0);

        EXPECT_EQ(copied(), bytes(static_cast<size_t>(size)));
        EXPECT_EQ(total_, 7 + size);
        EXPECT_EQ(in.position(), size);
        EXPECT_EQ(out.position(), size);
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST_P(DataCopy, a_copy_begins_at_the_file_positions_and_ends_at_the_count) {
    const OpenFile in(source(100), O_RDONLY);
    const OpenFile out(folder_.file("target", "0123456789"), O_WRONLY);
    lseek(in.get(), 20, SEEK_SET);
    lseek(out.get(), 4, SEEK_SET);

    EXPECT_EQ(GetParam().copy(in.get(), nullptr, out.get(), nullptr, 3, nullptr, nullptr), 0);

    EXPECT_EQ(copied(), "0123" + bytes(100).substr(20, 3) + "789");
}

TEST_P(DataCopy, given_offsets_are_sought_and_advance) {
    const OpenFile in(source(50'000), O_RDONLY);
    const OpenFile out(target_, O_WRONLY | O_CREAT);
    int64_t in_offset = 5;
    int64_t out_offset = 3;

    EXPECT_EQ(GetParam().copy(in.get(), &in_offset, out.get(), &out_offset, 40'000, &stop_, &total_), 0);

    EXPECT_EQ(in_offset, 40'005);
    EXPECT_EQ(out_offset, 40'003);
    EXPECT_EQ(total_, 40'007);
    EXPECT_EQ(copied(), std::string(3, '\0') + bytes(50'000).substr(5, 40'000));
}

TEST_P(DataCopy, one_offset_alone_leaves_the_other_side_at_its_position) {
    const OpenFile in(source(50), O_RDONLY);
    const OpenFile out(target_, O_WRONLY | O_CREAT);
    int64_t in_offset = 40;
    int64_t out_offset = 0;

    EXPECT_EQ(GetParam().copy(in.get(), &in_offset, out.get(), nullptr, 5, &stop_, nullptr), 0);
    EXPECT_EQ(GetParam().copy(in.get(), nullptr, out.get(), &out_offset, 3, nullptr, &total_), 0);

    EXPECT_EQ(in_offset, 45);
    EXPECT_EQ(out_offset, 3);
    EXPECT_EQ(copied(), bytes(50).substr(45, 3) + bytes(50).substr(43, 2));
}

TEST_P(DataCopy, a_count_of_zero_or_a_set_flag_copies_nothing) {
    const struct {
        int64_t count;
        int32_t stop;
    } table[] = {{0, 0}, {0, 5}, {10, 5}, {10, -5}, {10, INT32_MIN}};

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.count << " bytes, flag " << row.stop);
        const OpenFile in(source(50), O_RDONLY);
        const OpenFile out(target_, O_WRONLY | O_CREAT);
        int64_t in_offset = 4;
        int64_t out_offset = 9;
        stop_ = row.stop;

        EXPECT_EQ(GetParam().copy(in.get(), &in_offset, out.get(), &out_offset, row.count, &stop_, &total_), row.stop);

        EXPECT_EQ(in_offset, 4);
        EXPECT_EQ(out_offset, 9);
        EXPECT_EQ(in.position(), 4);
        EXPECT_EQ(total_, 7);
        EXPECT_EQ(copied(), "");
    }
}

TEST_P(DataCopy, an_end_that_cannot_be_sought_is_reported) {
    Channel channel;
    const OpenFile in(source(50), O_RDONLY);
    const OpenFile out(target_, O_WRONLY | O_CREAT);
    int64_t offset = 12;
    LogCapture log;

    EXPECT_EQ(GetParam().copy(channel.ends[0], &offset, out.get(), nullptr, 5, &stop_, &total_), -ESPIPE);
    EXPECT_EQ(GetParam().copy(in.get(), nullptr, channel.ends[1], &offset, 5, &stop_, &total_), -ESPIPE);

    EXPECT_THAT(log.messages(), ElementsAre(GetParam().error("Can't seek the source file to offset 12 error!"),
                                            GetParam().error("Can't seek the destination file to offset 12 error!")));
    EXPECT_EQ(offset, 12);
    EXPECT_EQ(in.position(), 0);
}

TEST_P(DataCopy, an_end_that_cannot_be_sought_without_an_errno_gives_the_flag) {
    const OpenFile in(source(50), O_RDONLY);
    const OpenFile out(target_, O_WRONLY | O_CREAT);
    int64_t offset = 12;
    stop_ = 5;
    const AnswerCall failure(Call::lseek, -1, 1, 2);

    errno = 0;
    EXPECT_EQ(GetParam().copy(in.get(), &offset, out.get(), nullptr, 5, &stop_, &total_), 5);
    EXPECT_EQ(GetParam().copy(in.get(), nullptr, out.get(), &offset, 5, &stop_, &total_), 5);
}

TEST_P(DataCopy, without_memory_for_the_buffer_nothing_is_read) {
    const OpenFile in(source(50), O_RDONLY);
    const OpenFile out(target_, O_WRONLY | O_CREAT);
    LogCapture log;
    {
        const FailCall fault(Call::allocation, ENOMEM);
        EXPECT_EQ(copy(in, out, 50), -ENOMEM);
        EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_THAT(log.messages(),
                ElementsAre(GetParam().error("Can't allocate 32768 byte buffer for copying data error!")));
    EXPECT_EQ(in.position(), 0);
    EXPECT_EQ(total_, 7);
}

TEST_P(DataCopy, one_buffer_serves_all_chunks) {
    const OpenFile in(source(10 * kChunk), O_RDONLY);
    const OpenFile out(target_, O_WRONLY | O_CREAT);
    const CountCalls blocks(Call::allocation);
    const CountCalls reads(Call::read);

    EXPECT_EQ(copy(in, out, 10 * kChunk), 0);

    EXPECT_EQ(blocks.count(), 1);
    EXPECT_EQ(reads.count(), 10);
}

TEST_P(DataCopy, a_source_that_cannot_be_read_is_reported) {
    const OpenFile in(source(50), O_WRONLY);
    const OpenFile folder(folder_.path(), O_RDONLY);
    const OpenFile out(target_, O_WRONLY | O_CREAT);
    LogCapture log;

    EXPECT_EQ(copy(in, out, 40'000), -EBADF);
    EXPECT_EQ(copy(folder, out, 10), -EISDIR);

    EXPECT_THAT(log.messages(),
                ElementsAre(GetParam().read_error(kChunk, -EBADF, -1), GetParam().read_error(10, -EISDIR, -1)));
    EXPECT_EQ(total_, 7);
}

TEST_P(DataCopy, what_came_before_a_failed_read_counts) {
    const OpenFile in(source(100'000), O_RDONLY);
    const OpenFile out(target_, O_WRONLY | O_CREAT);
    int64_t in_offset = 1;
    int64_t out_offset = 0;
    LogCapture log;
    {
        const FailCall fault(Call::read, EIO, 2);
        EXPECT_EQ(GetParam().copy(in.get(), &in_offset, out.get(), &out_offset, 99'000, &stop_, &total_), -EIO);
    }
    EXPECT_THAT(log.messages(), ElementsAre(GetParam().read_error(kChunk, -EIO, -1)));
    EXPECT_EQ(in_offset, 1 + kChunk);
    EXPECT_EQ(out_offset, kChunk);
    EXPECT_EQ(total_, 7 + kChunk);
    EXPECT_EQ(copied(), bytes(100'000).substr(1, kChunk));
}

TEST_P(DataCopy, a_full_disk_is_reported_by_both_layers) {
    const SmallDisk disk(1 << 20);
    disk.fill_up_to(40'960);
    const OpenFile in(source(100'000), O_RDONLY);
    const OpenFile out(disk.path("target"), O_WRONLY | O_CREAT);
    int64_t in_offset = 0;
    LogCapture log;

    EXPECT_EQ(GetParam().copy(in.get(), &in_offset, out.get(), nullptr, 100'000, &stop_, &total_), -ENOSPC);

    const int64_t size = status_of(disk.path("target")).st_size;
    const int64_t written = size - kChunk;
    EXPECT_EQ(total_, 7 + kChunk);  // of a chunk that was not written whole nothing counts
    EXPECT_EQ(in_offset, kChunk);
    EXPECT_THAT(log.messages(),
                ElementsAre("[error] File_Write_Bulk(#): Can't write file error! (" + disk.path("target") +
                                ", -28, -1," + std::to_string(written) + "/32768)\n",
                            GetParam().write_error(kChunk, -ENOSPC, written)));
}

TEST_P(DataCopy, a_flag_set_during_a_chunk_ends_the_copy_after_it) {
    for (const int32_t value : {1, 7, -7, INT32_MAX}) {
        SCOPED_TRACE(value);
        LogCapture log;
        const OpenFile in(source(200'000), O_RDONLY);
        const OpenFile out(target_, O_WRONLY | O_CREAT | O_TRUNC);
        int64_t in_offset = 0;
        stop_ = 0;
        total_ = 0;
        {
            const BeforeCall setter(Call::write, 2, [&] { stop_ = value; });
            EXPECT_EQ(GetParam().copy(in.get(), &in_offset, out.get(), nullptr, 200'000, &stop_, &total_), value);
        }
        EXPECT_EQ(total_, 2 * kChunk);
        EXPECT_EQ(in_offset, 2 * kChunk);
        EXPECT_EQ(copied(), bytes(200'000).substr(0, 2 * kChunk));
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST_P(DataCopy, a_failure_goes_before_the_flag) {
    const OpenFile in(source(50), O_WRONLY);
    const OpenFile out(target_, O_WRONLY | O_CREAT);
    const BeforeCall setter(Call::read, 1, [&] { stop_ = 5; });

    EXPECT_EQ(copy(in, out, 50), -EBADF);
}

TEST_P(DataCopy, a_socket_can_be_written_to) {
    const OpenFile in(source(50), O_RDONLY);
    const Channel channel(true);

    EXPECT_EQ(GetParam().copy(in.get(), nullptr, channel.ends[1], nullptr, 50, nullptr, nullptr), 0);

    std::string received(51, '\0');
    EXPECT_EQ(read(channel.ends[0], received.data(), received.size()), 50);
    EXPECT_EQ(received.substr(0, 50), bytes(50));
}

TEST_P(DataCopy, no_path_loses_memory) {
    const OpenFile in(source(50), O_RDWR);
    const OpenFile out(target_, O_RDWR | O_CREAT);
    const OpenFile unreadable(target_, O_WRONLY);
    const OpenFile unwritable(source(50), O_RDONLY);
    int64_t offset = 0;

    EXPECT_FALSE(loses_memory([&] {
        offset = 0;
        EXPECT_EQ(GetParam().copy(in.get(), &offset, out.get(), nullptr, 50, nullptr, nullptr), 0);
        offset = 0;
        EXPECT_EQ(GetParam().copy(unreadable.get(), nullptr, out.get(), nullptr, 50, nullptr, nullptr), -EBADF);
        EXPECT_EQ(GetParam().copy(in.get(), &offset, unwritable.get(), nullptr, 50, nullptr, nullptr), -EBADF);
    }));
}

TEST(StrictCopyOf, a_source_that_ends_early_is_an_error_with_the_errno_of_the_moment) {
    for (const int error : {0, EXDEV}) {
        SCOPED_TRACE(error);
        const TempFolder folder;
        const OpenFile in(folder.file("source", bytes(40'000)), O_RDONLY);
        const OpenFile out(folder.path("target"), O_WRONLY | O_CREAT);
        int64_t in_offset = 0;
        int64_t total = 0;
        LogCapture log;

        errno = error;
        EXPECT_EQ(Copy_File_Data(in.get(), &in_offset, out.get(), nullptr, 50'000, nullptr, &total), -error);

        EXPECT_THAT(log.messages(), ElementsAre(kStrict.read_error(50'000 - kChunk, -error, 40'000 - kChunk)));
        EXPECT_EQ(total, kChunk);
        EXPECT_EQ(in_offset, kChunk);
        EXPECT_EQ(read_file(folder.path("target")), bytes(40'000).substr(0, kChunk));
    }
}

TEST(StrictCopyOf, a_short_source_without_an_errno_gives_the_flag) {
    const TempFolder folder;
    const OpenFile in(folder.file("source", "abc"), O_RDONLY);
    const OpenFile out(folder.path("target"), O_WRONLY | O_CREAT);
    int32_t stop = 0;
    const BeforeCall setter(Call::read, 1, [&] { stop = 9; });

    errno = 0;
    EXPECT_EQ(Copy_File_Data(in.get(), nullptr, out.get(), nullptr, 4, &stop, nullptr), 9);

    EXPECT_EQ(read_file(folder.path("target")), "");
}

TEST(StrictCopyOf, a_pipe_that_gives_less_at_once_ends) {
    const TempFolder folder;
    const OpenFile out(folder.path("target"), O_WRONLY | O_CREAT);
    Channel channel;
    channel.feed("abc");
    LogCapture log;

    errno = 0;
    EXPECT_EQ(Copy_File_Data(channel.ends[0], nullptr, out.get(), nullptr, 10, nullptr, nullptr), 0);

    EXPECT_THAT(log.messages(), ElementsAre(kStrict.read_error(10, 0, 3)));
    EXPECT_EQ(read_file(folder.path("target")), "");
}

TEST(PatientCopyOf, short_reads_are_taken_as_they_are) {
    const TempFolder folder;
    const OpenFile out(folder.path("target"), O_WRONLY | O_CREAT);
    Channel channel;
    channel.feed("abc");
    int64_t total = 0;
    LogCapture log;
    {
        const BeforeCall feeder(Call::read, 2, [&] { channel.feed("DEFG"); });
        EXPECT_EQ(Copy_File_Data_MROV(channel.ends[0], nullptr, out.get(), nullptr, 5, nullptr, &total), 0);
    }
    EXPECT_EQ(read_file(folder.path("target")), "abcDE");
    EXPECT_EQ(total, 5);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(PatientCopyOf, a_write_that_fails_is_reported_with_the_bytes_asked_for_not_those_that_came) {
    PatientFile file;
    LogCapture log;
    const FailCall fault(Call::write, ENOSPC, 2);

    EXPECT_EQ(file.copy(50'000), -ENOSPC);

    // The second chunk asks for 17,232 bytes and gets 7,232.
    EXPECT_EQ(log.messages().size(), 2U);
    EXPECT_EQ(log.messages().back(), kPatient.write_error(17'232, -ENOSPC, 0));
}

TEST(PatientCopyOf, a_source_that_grows_is_followed_to_the_count) {
    PatientFile file;
    LogCapture log;
    {
        // Two reads take what there is; the next ones find the end, and then more.
        const BeforeCall growth(Call::read, 5, [&] { write_file(file.source, bytes(60'000)); });
        EXPECT_EQ(file.copy(60'000), 0);
        EXPECT_TRUE(growth.ran());
    }
    file.expect_copied(60'000);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(PatientCopyOf, the_end_is_waited_at_until_another_thread_sets_the_flag) {
    PatientFile file;
    LogCapture log;
    std::thread stopper([&] {
        while (__atomic_load_n(&file.total, __ATOMIC_RELAXED) < 40'000)
            sched_yield();
        __atomic_store_n(&file.stop, 11, __ATOMIC_RELAXED);
    });

    EXPECT_EQ(file.copy(50'000), 11);

    stopper.join();
    file.expect_copied(40'000);
    EXPECT_THAT(log.messages(), IsEmpty());
}
