// Splicing from and to pipes: progress, patience and stop flags.
#include <gmock/gmock.h>

#include <cerrno>
#include <functional>
#include <thread>
#include <vector>

#include "file_world.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr uint64_t kNow = 1'700'000'000'123;
constexpr int64_t kChunk = 131'072;
constexpr int64_t kLarge = 5ll << 30;

// In tests where the time-out plays no part.
constexpr int32_t kPatient = -1;

std::string retry(int64_t requested, int64_t left, uint64_t elapsed, int32_t timeout) {
    return "[debug] Splice_Ext(#): Splice can't receive " + std::to_string(requested) +
           " bytes at once, it will retry later. (bytes left: " + std::to_string(left) +
           "; time elapsed: " + std::to_string(elapsed) + " ms; timeout: " + std::to_string(timeout) + " ms)\n";
}

// `last` is what the last `splice` returned.
std::string timed_out(int64_t left, int32_t timeout, int last) {
    return "[error] Splice_Ext(#): Can't finish the 'splice' of " + std::to_string(left) + " bytes in " +
           std::to_string(timeout) + " milliseconds. (-62, " + std::to_string(last) + ")\n";
}

std::string timed_out_at(int64_t offset, int64_t left, int32_t timeout, int last) {
    return "[error] Splice_Ext(#): Can't finish the 'splice' of " + std::to_string(left) + " bytes in " +
           std::to_string(timeout) + " milliseconds. (-62, " + std::to_string(last) + ", " + std::to_string(offset) +
           ")\n";
}

std::string splice_error(int64_t left, int result) {
    return "[error] Splice_Ext(#): Can't splice " + std::to_string(left) + " bytes from the socket error! (" +
           std::to_string(result) + ", -1)\n";
}

std::string stopped(int32_t value) {
    return "[error] Splice_Ext(#): Break 'splice' with iRet: " + std::to_string(value) + ".\n";
}

std::string data_error(const std::string &in, const std::string &out, int64_t chunk, int result) {
    return "[error] Splice_File_Data(#): Can't splice the file '" + in + "' into '" + out + "' error! (" +
           std::to_string(chunk) + ", " + std::to_string(result) + ")\n";
}

class SpliceTest : public FileTest {
  protected:
    // From the socket into the pipe.
    int32_t splice_ext(int64_t count, int32_t timeout, uint32_t flags = 0) {
        return Splice_Ext(socket_.out, nullptr, pipe_.in, nullptr, count, flags, timeout, &stop_);
    }
    int32_t splice_data(int64_t count, int32_t timeout = kPatient) {
        return Splice_File_Data(socket_.out, nullptr, pipe_.in, nullptr, count, timeout, &stop_, &total_);
    }
    // Sets the stop flag from another thread, once this one has found nothing to do a few times.
    int32_t stopped_by_another_thread(int32_t value, const std::function<int32_t()> &body) {
        int passes = 0;
        std::thread other;
        const BeforeCall idle(Call::splice, 0, [&] {
            if (++passes == 3)
                other = std::thread([this, value] { __atomic_store_n(&stop_, value, __ATOMIC_RELAXED); });
        });
        const int32_t result = body();
        other.join();
        return result;
    }

    Connection socket_;
    Pipe pipe_;
    int32_t stop_ = 0;
    int64_t total_ = 0;
    LogCapture log_;
};

using SpliceExt = SpliceTest;

// A file of some chunks is spliced into a pipe with room for all of it.
class SpliceData : public SpliceTest {
  protected:
    static constexpr int64_t kSize = 2 * kChunk + 1000;

    SpliceData() { EXPECT_GE(fcntl(pipe_.in, F_SETPIPE_SZ, 1 << 20), kSize); }

    int32_t splice_file(int64_t *offset) {
        return Splice_File_Data(file_, offset, pipe_.in, nullptr, kSize, kPatient, &stop_, &total_);
    }

    const std::string path_ = folder_.file("file", std::string(kSize, 'x'));
    const Descriptor file_{path_, O_RDONLY};
};

}  // namespace

TEST_F(SpliceExt, moves_what_is_there_at_once) {
    const FakeClock clock(kNow);
    socket_.put("0123456789");
    EXPECT_EQ(splice_ext(4, 0), 0);
    EXPECT_EQ(splice_ext(6, 0), 0);
    EXPECT_EQ(pipe_.take(), "0123456789");
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SpliceExt, advances_the_offsets_and_leaves_the_positions) {
    const SmallDisk disk(1 << 20);
    const Descriptor in(folder_.file("in", "0123456789"), O_RDONLY);
    const Descriptor out(disk.path("out"), O_RDWR | O_CREAT);
    int64_t in_offset = 3;
    int64_t out_offset = kLarge;

    EXPECT_EQ(Splice_Ext(in, &in_offset, pipe_.in, nullptr, 5, 0, 0, &stop_), 0);
    EXPECT_EQ(Splice_Ext(pipe_.out, nullptr, out, &out_offset, 5, 0, 0, &stop_), 0);

    EXPECT_EQ(in_offset, 8);
    EXPECT_EQ(out_offset, kLarge + 5);
    EXPECT_EQ(in.position(), 0);
    EXPECT_EQ(out.position(), 0);
    char text[8] = {};
    EXPECT_EQ(pread(out, text, sizeof text, kLarge), 5);
    EXPECT_STREQ(text, "34567");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SpliceExt, nothing_is_moved_at_once_even_when_stopped) {
    const FakeClock clock(kNow);
    stop_ = 5;
    EXPECT_EQ(splice_ext(0, 0), 0);
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SpliceExt, gives_up_once_more_than_the_time_has_passed_at_a_grain_of_50_ms) {
    const struct {
        int32_t timeout;
        int sleeps;
    } table[] = {{0, 1}, {1, 1}, {49, 1}, {50, 2}, {99, 2}, {100, 3}, {101, 3}, {10'000, 201}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.timeout);
        const FakeClock clock(kNow);
        EXPECT_EQ(splice_ext(10, row.timeout), -62);
        EXPECT_EQ(clock.sleeps(), row.sleeps);
        EXPECT_EQ(clock.now(), kNow + row.sleeps * 50);

        std::vector<std::string> expected;
        for (int pass = 0; pass < row.sleeps; pass++)
            expected.push_back(retry(10, 10, pass * 50, row.timeout));
        expected.push_back(timed_out(10, row.timeout, -1));
        EXPECT_EQ(log_.messages(), expected);
        log_.clear();
    }
}

TEST_F(SpliceExt, waits_for_a_closed_peer_as_for_a_silent_one) {
    const FakeClock clock(kNow);
    socket_.put("012");
    socket_.in.reset();
    EXPECT_EQ(splice_ext(10, 20), -62);
    EXPECT_EQ(clock.sleeps(), 1);
    EXPECT_EQ(pipe_.take(), "012");
    EXPECT_THAT(log_.messages(), ElementsAre(retry(10, 7, 0, 20), retry(10, 7, 0, 20), timed_out(7, 20, 0)));
}

TEST_F(SpliceExt, tells_the_output_offset_when_it_gives_up) {
    const FakeClock clock(kNow);
    const SmallDisk disk(1 << 20);
    const Descriptor out(disk.path("out"), O_RDWR | O_CREAT);
    int64_t offset = kLarge;
    pipe_.put("012");

    EXPECT_EQ(Splice_Ext(pipe_.out, nullptr, out, &offset, 10, SPLICE_F_NONBLOCK, 0, &stop_), -62);

    EXPECT_EQ(offset, kLarge + 3);
    EXPECT_THAT(log_.messages(),
                ElementsAre(retry(10, 7, 0, 0), retry(10, 7, 0, 0), timed_out_at(kLarge + 3, 7, 0, -1)));
}

TEST_F(SpliceExt, counts_beyond_32_bits) {
    const FakeClock clock(kNow);
    socket_.put("012");
    EXPECT_EQ(splice_ext(kLarge, 0), -62);
    EXPECT_THAT(log_.messages(), ElementsAre(retry(kLarge, kLarge - 3, 0, 0), retry(kLarge, kLarge - 3, 0, 0),
                                             timed_out(kLarge - 3, 0, -1)));
}

TEST_F(SpliceExt, measures_the_time_without_progress_and_not_the_whole) {
    const FakeClock clock(kNow);
    int passes = 0;
    const BeforeCall trickle(Call::splice, 0, [&] {
        if (++passes % 3 == 0)
            socket_.put("x");
    });

    EXPECT_EQ(splice_ext(10, 100), 0);

    EXPECT_EQ(pipe_.take(), std::string(10, 'x'));
    EXPECT_EQ(clock.now(), kNow + 10 * 100);
    std::vector<std::string> expected;
    for (int64_t left = 10; left > 0; left--) {
        expected.push_back(retry(10, left, 0, 100));
        expected.push_back(retry(10, left, 50, 100));
        if (left > 1)
            expected.push_back(retry(10, left - 1, 50, 100));
    }
    EXPECT_EQ(log_.messages(), expected);
}

TEST_F(SpliceExt, the_time_begins_anew_with_the_last_progress) {
    const FakeClock clock(kNow);
    const BeforeCall once(Call::splice, 3, [&] { socket_.put("x"); });
    EXPECT_EQ(splice_ext(10, 100), -62);
    EXPECT_EQ(clock.now(), kNow + 100 + 150);
}

TEST_F(SpliceExt, a_negative_time_never_ends) {
    for (const int32_t timeout : {-1, -50, INT32_MIN}) {
        SCOPED_TRACE(timeout);
        constexpr int64_t year = 365ll * 24 * 60 * 60 * 1000;
        FakeClock clock(kNow);
        int passes = 0;
        const BeforeCall each(Call::splice, 0, [&] {
            clock.advance(year);
            if (++passes == 30)
                socket_.put("0123456789");
        });
        EXPECT_EQ(splice_ext(10, timeout), 0);
        EXPECT_EQ(passes, 30);
    }
}

TEST_F(SpliceExt, a_clock_that_is_set_back_is_a_time_out) {
    FakeClock clock(kNow);
    const BeforeCall set_back(Call::splice, 2, [&] { clock.advance(-1000); });
    EXPECT_EQ(splice_ext(10, INT32_MAX), -62);
    EXPECT_EQ(clock.sleeps(), 1);
}

TEST_F(SpliceExt, a_stop_flag_counts_while_nothing_comes) {
    const FakeClock clock(kNow);
    for (const int32_t value : {5, -7, 1, INT32_MIN}) {
        stop_ = value;
        EXPECT_EQ(splice_ext(10, kPatient), value);
        EXPECT_EQ(splice_ext(10, 0), value);
        EXPECT_THAT(log_.messages(), ElementsAre(stopped(value), stopped(value)));
        log_.clear();
    }
    socket_.put("0123456789");
    EXPECT_EQ(splice_ext(10, kPatient), 0);
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SpliceExt, a_stop_flag_counts_before_the_time_out) {
    FakeClock clock(kNow);
    const BeforeCall late(Call::splice, 2, [&] {
        clock.advance(1000);
        stop_ = 5;
    });
    EXPECT_EQ(splice_ext(10, 100), 5);
    EXPECT_THAT(log_.messages(), ElementsAre(retry(10, 10, 0, 100), stopped(5)));
}

TEST_F(SpliceExt, is_stopped_by_another_thread) {
    EXPECT_EQ(stopped_by_another_thread(5, [this] { return splice_ext(10, kPatient); }), 5);
    EXPECT_EQ(log_.messages().back(), stopped(5));
}

TEST_F(SpliceExt, goes_on_without_a_pause_after_a_short_splice) {
    const FakeClock clock(kNow);
    socket_.put("0123456789");
    const ShortCall little(Call::splice, 4, 1, 1000);
    stop_ = 5;
    EXPECT_EQ(splice_ext(10, 70), 0);
    EXPECT_EQ(pipe_.take(), "0123456789");
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_THAT(log_.messages(), ElementsAre(retry(10, 6, 0, 70), retry(10, 2, 0, 70)));
}

TEST_F(SpliceExt, a_hard_error_ends_it) {
    const FakeClock clock(kNow);
    for (const int error : {EINTR, EIO, EPIPE, EINVAL}) {
        SCOPED_TRACE(error);
        socket_.put("0123");
        const FailCall fault(Call::splice, error, 2);
        stop_ = 5;
        EXPECT_EQ(splice_ext(10, kPatient), -error);
        EXPECT_THAT(log_.messages(), ElementsAre(retry(10, 6, 0, kPatient), splice_error(6, -error)));
        log_.clear();
    }
    EXPECT_EQ(clock.sleeps(), 0);
}

TEST_F(SpliceExt, an_error_without_an_errno_gives_the_flag) {
    for (const int32_t value : {0, 5, -7}) {
        SCOPED_TRACE(value);
        const AnswerCall failure(Call::splice, -1);
        stop_ = value;
        errno = 0;
        EXPECT_EQ(splice_ext(10, kPatient), value);
        EXPECT_THAT(log_.messages(), ElementsAre(splice_error(10, value)));
        log_.clear();
    }
}

TEST_F(SpliceExt, descriptors_that_can_not_be_spliced_are_errors) {
    const Descriptor file(folder_.file("file", "text"), O_RDWR);
    const struct {
        int in;
        int out;
        int error;
    } table[] = {{kClosed, pipe_.in, EBADF}, {-1, pipe_.in, EBADF},       {file, kClosed, EBADF},
                 {file, file, EINVAL},       {pipe_.in, pipe_.in, EBADF}, {socket_.out, file, EINVAL}};

    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << row.in << " into " << row.out);
        EXPECT_EQ(Splice_Ext(row.in, nullptr, row.out, nullptr, 4, 0, kPatient, &stop_), -row.error);
        EXPECT_THAT(log_.messages(), ElementsAre(splice_error(4, -row.error)));
        log_.clear();
    }
}

TEST_F(SpliceExt, passes_its_flags_on) {
    const FakeClock clock(kNow);
    const Pipe waiting(0);
    const Descriptor file(folder_.path("file"), O_RDWR | O_CREAT);

    EXPECT_EQ(Splice_Ext(waiting.out, nullptr, file, nullptr, 4, SPLICE_F_NONBLOCK, 0, &stop_), -62);
    EXPECT_EQ(Splice_Ext(waiting.out, nullptr, file, nullptr, 4, 0x1000, 0, &stop_), -EINVAL);
}

TEST_F(SpliceExt, waits_for_room_in_the_output) {
    const FakeClock clock(kNow);
    const int room = fcntl(pipe_.in, F_SETPIPE_SZ, 4096);
    pipe_.put(std::string(room, 'a'));
    const Descriptor file(folder_.file("file", "0123"), O_RDONLY);
    const BeforeCall reader(Call::splice, 3, [&] { pipe_.take(); });

    EXPECT_EQ(Splice_Ext(file, nullptr, pipe_.in, nullptr, 4, 0, 100, &stop_), 0);
    EXPECT_EQ(pipe_.take(), "0123");
    EXPECT_EQ(clock.sleeps(), 2);
}

TEST_F(SpliceExt, logs_retries_at_level_3_and_errors_from_level_1) {
    for (const auto &[level, count] : {std::pair{0, 0u}, {1, 1u}, {2, 1u}, {3, 2u}}) {
        const FakeClock clock(kNow);
        LogCapture log(level);
        EXPECT_EQ(splice_ext(10, 0), -62);
        EXPECT_THAT(log.messages(), SizeIs(count)) << level;
    }
}

TEST_F(SpliceData, moves_in_chunks_of_128_kibibytes_and_adds_to_the_total) {
    total_ = 1000;
    std::vector<int64_t> totals;
    const BeforeCall watch(Call::splice, 0, [&] {
        if (totals.empty() || totals.back() != total_)
            totals.push_back(total_);
    });
    int64_t offset = 0;

    EXPECT_EQ(splice_file(&offset), 0);

    EXPECT_THAT(totals, ElementsAre(1000, 1000 + kChunk, 1000 + 2 * kChunk));
    EXPECT_EQ(total_, 1000 + kSize);
    EXPECT_EQ(offset, kSize);
    EXPECT_EQ(file_.position(), 0);
    EXPECT_EQ(pipe_.take(), std::string(kSize, 'x'));
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SpliceData, needs_neither_a_stop_flag_nor_a_total) {
    EXPECT_EQ(Splice_File_Data(file_, nullptr, pipe_.in, nullptr, kSize, 0, nullptr, nullptr), 0);
    EXPECT_EQ(file_.position(), kSize);
    EXPECT_EQ(pipe_.take().size(), static_cast<size_t>(kSize));

    const FakeClock clock(kNow);
    EXPECT_EQ(Splice_File_Data(socket_.out, nullptr, pipe_.in, nullptr, 10, 100, nullptr, nullptr), -62);
    EXPECT_EQ(clock.sleeps(), 3);
}

TEST_F(SpliceData, bad_arguments_are_refused) {
    int64_t negative = -1;
    int64_t good = 0;
    const struct {
        int in;
        int64_t *in_offset;
        int out;
        int64_t *out_offset;
        int64_t count;
    } table[] = {{-1, nullptr, pipe_.in, nullptr, 1},          {-100, nullptr, pipe_.in, nullptr, 1},
                 {file_, &negative, pipe_.in, nullptr, 1},     {file_, nullptr, -1, nullptr, 1},
                 {pipe_.out, nullptr, file_, &negative, 1},    {file_, &good, pipe_.in, nullptr, -1},
                 {file_, &good, pipe_.in, nullptr, INT64_MIN}, {-1, nullptr, pipe_.in, nullptr, 0}};
    const CountCalls calls(Call::splice);

    for (const int32_t stop : {0, 5})
        for (const auto &row : table) {
            SCOPED_TRACE(testing::Message() << row.in << ", " << row.out << ", " << row.count);
            stop_ = stop;
            EXPECT_EQ(Splice_File_Data(row.in, row.in_offset, row.out, row.out_offset, row.count, 0, &stop_, &total_),
                      -22);
        }
    EXPECT_EQ(calls.count(), 0);
    EXPECT_EQ(total_, 0);
    EXPECT_EQ(negative, -1);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SpliceData, does_nothing_for_no_bytes_and_when_stopped_before) {
    const CountCalls calls(Call::splice);
    EXPECT_EQ(Splice_File_Data(kClosed, nullptr, kClosed, nullptr, 0, 0, nullptr, nullptr), 0);
    EXPECT_EQ(splice_data(0), 0);
    for (const int32_t value : {5, -7}) {
        stop_ = value;
        EXPECT_EQ(splice_data(0), value);
        EXPECT_EQ(splice_data(10), value);
    }
    EXPECT_EQ(calls.count(), 0);
    EXPECT_EQ(total_, 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SpliceData, a_stop_flag_counts_after_each_chunk) {
    const struct {
        int nth;
        int64_t moved;
    } table[] = {{1, kChunk}, {2, 2 * kChunk}, {3, kSize}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.nth);
        stop_ = 0;
        total_ = 0;
        int64_t offset = 0;
        const BeforeCall stop(Call::splice, row.nth, [&] { stop_ = 9; });
        EXPECT_EQ(splice_file(&offset), 9);
        EXPECT_EQ(total_, row.moved);
        EXPECT_EQ(offset, row.moved);
        EXPECT_EQ(pipe_.take().size(), static_cast<size_t>(row.moved));
    }
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SpliceData, a_stop_flag_counts_while_nothing_comes) {
    socket_.put("0123");
    const int32_t result = stopped_by_another_thread(5, [this] { return splice_data(10); });

    EXPECT_EQ(result, 5);
    EXPECT_EQ(total_, 0);
    EXPECT_EQ(pipe_.take(), "0123");
    const auto messages = log_.messages();
    ASSERT_GE(messages.size(), 2u);
    EXPECT_EQ(messages[messages.size() - 2], stopped(5));
    EXPECT_EQ(messages.back(), data_error(socket_.out.name(), socket_.out.name(), 10, 5));
}

TEST_F(SpliceData, names_the_input_twice_and_the_chunk_when_it_fails) {
    const struct {
        int nth;
        int64_t chunk;
        int64_t moved;
    } table[] = {{1, kChunk, 0}, {2, kChunk, kChunk}, {3, 1000, 2 * kChunk}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.nth);
        total_ = 7;
        int64_t offset = 0;
        const FailCall fault(Call::splice, EIO, row.nth);
        EXPECT_EQ(splice_file(&offset), -EIO);
        EXPECT_EQ(total_, 7 + row.moved);
        EXPECT_EQ(offset, row.moved);
        EXPECT_THAT(log_.messages(),
                    ElementsAre(splice_error(row.chunk, -EIO), data_error(path_, path_, row.chunk, -EIO)));
        log_.clear();
        pipe_.take();
    }
}

TEST_F(SpliceData, a_descriptor_without_a_name_is_null) {
    EXPECT_EQ(Splice_File_Data(file_, nullptr, kClosed, nullptr, 1, 0, nullptr, nullptr), -EBADF);
    EXPECT_EQ(Splice_File_Data(kClosed, nullptr, kClosed, nullptr, 1, 0, nullptr, nullptr), -EBADF);
    EXPECT_THAT(log_.messages(), ElementsAre(splice_error(1, -EBADF), data_error(path_, "(null)", 1, -EBADF),
                                             splice_error(1, -EBADF), data_error("(null)", "(null)", 1, -EBADF)));
}

TEST_F(SpliceData, an_error_overwrites_the_buffer_of_fullpath) {
    const Descriptor other("/dev/zero", O_RDONLY);
    const char *name = Fullpath(other);
    EXPECT_EQ(Splice_File_Data(file_, nullptr, file_, nullptr, 1, 0, nullptr, nullptr), -EBADF);
    EXPECT_EQ(name, path_);
}

TEST_F(SpliceData, gives_up_after_the_time_without_progress) {
    const FakeClock clock(kNow);
    socket_.put("0123");
    EXPECT_EQ(splice_data(10, 100), -62);
    EXPECT_EQ(clock.sleeps(), 3);
    EXPECT_EQ(total_, 0);
    const std::string name = socket_.out.name();
    EXPECT_THAT(log_.messages(),
                ElementsAre(retry(10, 6, 0, 100), retry(10, 6, 0, 100), retry(10, 6, 50, 100), retry(10, 6, 100, 100),
                            timed_out(6, 100, -1), data_error(name, name, 10, -62)));
}

TEST_F(SpliceData, waits_inside_the_system_where_the_descriptors_do) {
    const Pipe waiting(0);
    const Descriptor file(folder_.path("out"), O_RDWR | O_CREAT);
    const std::string status = "/proc/self/task/" + std::to_string(gettid()) + "/stat";

    std::thread writer([&] {
        while (read_file(status).find(") S ") == std::string::npos)
            std::this_thread::yield();
        waiting.put("0123");
    });
    EXPECT_EQ(Splice_File_Data(waiting.out, nullptr, file, nullptr, 4, 0, nullptr, nullptr), 0);
    writer.join();

    EXPECT_EQ(read_file(folder_.path("out")), "0123");
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(SpliceData, leads_from_a_socket_through_a_pipe_into_a_file) {
    constexpr int64_t piece = 60'000;
    constexpr int64_t size = 10 * piece;
    std::string sent(size, '\0');
    for (size_t i = 0; i < sent.size(); i++)
        sent[i] = static_cast<char>(i * 31 + i / 256);
    std::thread sender([&] {
        for (size_t done = 0; done < sent.size();) {
            const ssize_t length = write(socket_.in, sent.data() + done, sent.size() - done);
            done += length > 0 ? static_cast<size_t>(length) : 0;
            std::this_thread::yield();
        }
    });

    const Descriptor high_pipe(as_high_number(pipe_.in));
    const Descriptor file(folder_.path("out"), O_RDWR | O_CREAT);
    int64_t offset = 0;
    while (total_ < size) {
        ASSERT_EQ(Splice_File_Data(socket_.out, nullptr, high_pipe, nullptr, piece, kPatient, &stop_, nullptr), 0);
        ASSERT_EQ(Splice_File_Data(pipe_.out, nullptr, file, &offset, piece, kPatient, &stop_, &total_), 0);
    }
    sender.join();
    EXPECT_EQ(read_file(folder_.path("out")), sent);
}
