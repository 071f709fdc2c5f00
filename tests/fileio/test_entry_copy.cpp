// Copying one file, one link or one folder without what is in it, and removing a file.
#include <gmock/gmock.h>

#include <csignal>

#include "trees.h"

using namespace fileio_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class FileCopy : public TreeTest {
  protected:
    FileCopy() { make_tree(folder_.path(), {{"source", S_IFREG | 0640, bytes(50), kThen}}); }

    int32_t copy() { return Copy_File(source_.c_str(), target_.c_str(), &stop_, &total_); }
    // Puts a file where the copy is to go.
    void occupy() const { write_file(target_, "old content that is longer than any of the new ones" + bytes(100)); }
    // A copy that fails with `result` leaves nothing behind.
    void expect_undone(int32_t result) {
        errno = 0;
        EXPECT_EQ(copy(), result);
        EXPECT_FALSE(exists(target_));
        EXPECT_EQ(read_file(source_), source_content_);
    }

    const std::string source_content_ = bytes(50);
    const std::string source_ = path("source");
    const std::string target_ = path("target");
    int32_t stop_ = 0;
    int64_t total_ = 7;
};

using LinkCopy = TreeTest;
using FolderCopy = TreeTest;
using FileRemoval = TreeTest;

// A file's entry as its copy has it.
Entry copy_of(const std::string &path, const std::string &shown) {
    Entry entry = entry_of(path, shown);
    entry.mode &= S_IFMT | 0777;
    return entry;
}

std::string copy_error(const std::string &text) {
    return "[error] Copy_File_At(#): " + text + "\n";
}

std::string cannot_open_source(const std::string &name, int error) {
    return copy_error("Can't open the source file " + name + " error! (" + std::to_string(-error) + ", " +
                      std::to_string(error) + ")");
}

std::string cannot_open_target(const std::string &name, int error) {
    return copy_error("Can't open the destination file " + name + " error! (" + std::to_string(-error) + ")");
}

}  // namespace

TEST_F(FileCopy, a_null_name_is_refused) {
    LogCapture log;
    EXPECT_EQ(Copy_File(nullptr, target_.c_str(), &stop_, &total_), -EINVAL);
    EXPECT_EQ(Copy_File(source_.c_str(), nullptr, &stop_, &total_), -EINVAL);
    EXPECT_EQ(Copy_File_At(AT_FDCWD, nullptr, AT_FDCWD, nullptr, nullptr, nullptr), -EINVAL);
    EXPECT_THAT(folder_.names(), ElementsAre("source"));
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(FileCopy, content_permissions_owner_and_time_are_those_of_the_source) {
    const Umask narrow(077);
    const Plan table[] = {
        {"empty", S_IFREG | 0644, ""},
        {"chunk", S_IFREG | 0666, bytes(32768), 0},
        {"big", S_IFREG | 0600, bytes(100'001), 1},
        {"nothing allowed", S_IFREG | 0, bytes(5), kSecond - 1},
        {"set user", S_IFREG | 04755, bytes(5), -kSecond},
        {"set group", S_IFREG | 02711, bytes(5), -kSecond / 2},
        {"sticky", S_IFREG | 01777, bytes(5), 3'000'000'000 * kSecond + 123},
        {"all bits", S_IFREG | 07777, bytes(5), 5'000'000'000 * kSecond},
        {"given away", S_IFREG | 0640, bytes(5), kThen, 1234, 56789},
        {"given away with bits", S_IFREG | 06770, bytes(5), kThen, 65534, 0},
    };

    for (const Plan &row : table) {
        SCOPED_TRACE(row.path);
        LogCapture log;
        const TempFolder place;
        make_tree(place.path(), {row});
        total_ = 7;

        EXPECT_EQ(Copy_File(place.path(row.path).c_str(), place.path("target").c_str(), &stop_, &total_), 0);

        EXPECT_EQ(nanoseconds(status_of(place.path("target")).st_atim), row.modified);
        EXPECT_EQ(entry_of(place.path("target"), "file"), copy_of(place.path(row.path), "file"));
        EXPECT_EQ(total_, 7 + static_cast<int64_t>(row.content.size()));
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST_F(FileCopy, flag_and_total_may_be_null) {
    EXPECT_EQ(Copy_File(source_.c_str(), target_.c_str(), nullptr, nullptr), 0);
    EXPECT_EQ(entry_of(target_, ""), copy_of(source_, ""));
}

TEST_F(FileCopy, names_are_relative_to_their_folders) {
    make_tree(folder_.path(), {{"a", S_IFDIR | 0755}, {"a/f", S_IFREG | 0600, "in a"}, {"b", S_IFDIR | 0755}});
    const OpenFolder a(path("a"));
    const OpenFolder b(path("b"));

    EXPECT_EQ(Copy_File_At(a.get(), "f", b.get(), "g", nullptr, nullptr), 0);
    EXPECT_EQ(Copy_File_At(a.get(), source_.c_str(), b.get(), target_.c_str(), nullptr, nullptr), 0);

    EXPECT_EQ(read_file(path("b/g")), "in a");
    EXPECT_EQ(read_file(target_), source_content_);

    for (const int32_t closed : {-1, 9999}) {
        const std::string absolute = path("c" + std::to_string(closed));
        EXPECT_EQ(Copy_File_At(closed, source_.c_str(), closed, absolute.c_str(), nullptr, nullptr), 0);
        EXPECT_EQ(entry_of(absolute, ""), copy_of(source_, ""));
    }

    LogCapture log;
    EXPECT_EQ(Copy_File_At(-1, "f", b.get(), "h", nullptr, nullptr), -EBADF);
    EXPECT_EQ(Copy_File_At(a.get(), "f", -1, "h", nullptr, nullptr), -EBADF);
    EXPECT_THAT(log.messages(),
                ElementsAre(copy_error("Can't stat the source file f error! (-9)"), cannot_open_target("h", EBADF)));
}

TEST_F(FileCopy, an_existing_target_is_overwritten_in_place) {
    make_tree(folder_.path(), {{"target", S_IFREG | 0777, bytes(5000), 0, 77, 88}});
    EXPECT_EQ(link(target_.c_str(), path("other name").c_str()), 0);
    const ino_t inode = status_of(target_).st_ino;

    EXPECT_EQ(copy(), 0);

    EXPECT_EQ(entry_of(target_, ""), copy_of(source_, ""));
    EXPECT_EQ(status_of(target_).st_ino, inode);
    EXPECT_EQ(read_file(path("other name")), source_content_);
}

TEST_F(FileCopy, a_target_that_is_a_link_is_written_through) {
    for (const char *real : {"existing", "new"}) {
        SCOPED_TRACE(real);
        folder_.file("existing", bytes(900));
        EXPECT_EQ(symlink(real, target_.c_str()), 0);

        EXPECT_EQ(copy(), 0);

        EXPECT_EQ(entry_of(path(real), ""), copy_of(source_, ""));
        EXPECT_TRUE(S_ISLNK(status_of(target_).st_mode));
        EXPECT_EQ(unlink(target_.c_str()), 0);
    }
}

TEST_F(FileCopy, a_pipe_of_ones_own_is_written_to) {
    // The second time as where there is no /proc, by way of which it is opened.
    for (const bool no_proc : {false, true}) {
        EXPECT_EQ(mkfifo(target_.c_str(), 0600), 0);
        std::string got;
        std::thread reader([&] { got = read_file(target_); });
        {
            const FailCall fault(Call::open, ENOENT, 1, no_proc ? 1 : 0);
            EXPECT_EQ(copy(), 0);
            EXPECT_EQ(fault.failed(), no_proc ? 1 : 0);
        }
        reader.join();
        EXPECT_EQ(got, source_content_);
        EXPECT_EQ(unlink(target_.c_str()), 0);
    }
}

TEST_F(FileCopy, a_source_that_is_no_longer_what_was_found_cannot_be_opened) {
    make_tree(folder_.path(),
              {{"other", S_IFREG | 0600, "other"}, {"link", S_IFLNK, "other"}, {"pipe", S_IFIFO | 0600}});
    const struct {
        const char *name;
        int error;
    } table[] = {{"other", ESTALE}, {"link", ELOOP}, {"pipe", ESTALE}};
    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        const auto swap = [&] { swap_names(source_, path(row.name)); };
        occupy();
        LogCapture log;
        {
            const BeforeCall swapper(Call::openat, 1, swap);
            EXPECT_EQ(copy(), -row.error);
        }
        swap();
        EXPECT_FALSE(exists(target_));
        EXPECT_THAT(log.messages(), ElementsAre(cannot_open_source(source_, row.error)));
    }
}

TEST_F(FileCopy, a_lease_on_the_source_is_waited_for) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGIO);
    int ready[2];
    check(pipe(ready) == 0, "make a pipe");
    const pid_t holder = start_child([&] {
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        const int file = open(source_.c_str(), O_RDWR);
        check(fcntl(file, F_SETLEASE, F_WRLCK) == 0, "take a lease");
        check(write(ready[1], "x", 1) == 1, "tell of it");
        int number = 0;
        sigwait(&signals, &number);  // somebody wants to read
        return fcntl(file, F_SETLEASE, F_UNLCK) == 0 ? 0 : 1;
    });
    char told = 0;
    check(read(ready[0], &told, 1) == 1, "hear of the lease");
    close(ready[0]);
    close(ready[1]);

    EXPECT_EQ(copy(), 0);

    EXPECT_EQ(wait_for(holder), 0);
    EXPECT_EQ(read_file(target_), source_content_);
}

TEST_F(FileCopy, a_target_that_is_exchanged_before_its_time_is_set_is_a_failure) {
    write_file(path("other"), "other");
    set_time(path("other"), 5);
    // Source, new target, and then the hold by which times are set.
    const BeforeCall thief(Call::openat, 3, [this] { swap_names(target_, path("other")); });
    EXPECT_EQ(copy(), -ESTALE);
    EXPECT_TRUE(thief.ran());
    EXPECT_FALSE(exists(target_));
    EXPECT_EQ(read_file(path("other")), source_content_);
}

TEST_F(FileCopy, a_kernel_that_sets_no_times_by_a_descriptor_alone_serves) {
    const FailCall fault(Call::syscall, EINVAL);
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(fault.failed(), 1);
    EXPECT_EQ(entry_of(target_, ""), copy_of(source_, ""));
}

TEST_F(FileCopy, a_source_that_is_a_link_gives_as_many_bytes_as_its_own_size) {
    EXPECT_EQ(symlink("source", path("link").c_str()), 0);
    set_time(path("link"), kThen + 17);

    EXPECT_EQ(Copy_File(path("link").c_str(), target_.c_str(), &stop_, &total_), 0);

    EXPECT_EQ(read_file(target_), source_content_.substr(0, 6));
    EXPECT_EQ(status_of(target_).st_mode, mode_t{S_IFREG | 0777});
    EXPECT_EQ(modified(target_), kThen + 17);
}

TEST_F(FileCopy, file_systems_can_be_crossed) {
    const SmallDisk disk(1 << 20);
    EXPECT_EQ(Copy_File(source_.c_str(), disk.path("target").c_str(), &stop_, &total_), 0);
    EXPECT_EQ(entry_of(disk.path("target"), ""), copy_of(source_, ""));
}

TEST_F(FileCopy, a_missing_source_leaves_the_target_alone) {
    occupy();
    const Entry before = entry_of(target_, "");
    LogCapture log;

    EXPECT_EQ(Copy_File(path("none").c_str(), target_.c_str(), &stop_, &total_), -ENOENT);

    EXPECT_EQ(entry_of(target_, ""), before);
    EXPECT_THAT(log.messages(), ElementsAre(copy_error("Can't stat the source file " + path("none") + " error! (-2)")));
}

TEST_F(FileCopy, a_source_that_cannot_be_opened_costs_the_target) {
    const struct {
        const char *target_of_link;
        int error;
    } table[] = {{"nowhere", ENOENT}, {"link", ELOOP}, {"source/x", ENOTDIR}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.target_of_link);
        const std::string link = path("link");
        EXPECT_EQ(symlink(row.target_of_link, link.c_str()), 0);
        occupy();
        LogCapture log;

        EXPECT_EQ(Copy_File(link.c_str(), target_.c_str(), &stop_, &total_), -row.error);

        EXPECT_FALSE(exists(target_));
        EXPECT_THAT(log.messages(), ElementsAre(cannot_open_source(link, row.error)));
        EXPECT_EQ(unlink(link.c_str()), 0);
    }
}

TEST_F(FileCopy, a_target_that_cannot_be_opened_is_reported) {
    const struct {
        std::string target;
        int error;
    } table[] = {
        {path("none/target"), ENOENT},
        {path("source/target"), ENOTDIR},
        {folder_.path(), EISDIR},
        {path(std::string(256, 'n')), ENAMETOOLONG},
        {"", ENOENT},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.target);
        LogCapture log;
        EXPECT_EQ(Copy_File(source_.c_str(), row.target.c_str(), &stop_, &total_), -row.error);
        EXPECT_THAT(log.messages(), ElementsAre(cannot_open_target(row.target, row.error)));
    }
    EXPECT_THAT(folder_.names(), ElementsAre("source"));
}

TEST_F(FileCopy, a_target_that_cannot_be_opened_for_want_of_descriptors_is_removed) {
    occupy();
    LogCapture log;
    {
        const DescriptorLimit limit(1);
        EXPECT_EQ(copy(), -EMFILE);
    }
    EXPECT_FALSE(exists(target_));
    EXPECT_THAT(log.messages(), ElementsAre(cannot_open_target(target_, EMFILE)));
}

TEST_F(FileCopy, a_folder_for_a_source_fails_at_the_first_read) {
    EXPECT_EQ(mkdir(path("dir").c_str(), 0755), 0);
    const std::string size = std::to_string(status_of(path("dir")).st_size);
    LogCapture log;

    EXPECT_EQ(Copy_File(path("dir").c_str(), target_.c_str(), &stop_, &total_), -EISDIR);

    EXPECT_FALSE(exists(target_));
    EXPECT_THAT(log.messages(), ElementsAre("[error] Copy_File_Data(#): Can't read " + size +
                                            " byte from the source file error! (-21, -1)\n"));
}

TEST_F(FileCopy, any_failing_step_removes_the_target) {
    const struct {
        Call call;
        const char *what;
    } table[] = {{Call::read, "read"}, {Call::write, "write"}, {Call::fchmod, "fchmod"}, {Call::fchown, "fchown"}};

    for (const auto &row : table)
        for (const bool occupied : {false, true}) {
            SCOPED_TRACE(testing::Message() << row.what << (occupied ? " over a file" : " of a new file"));
            if (occupied)
                occupy();
            const FailCall fault(row.call, EDQUOT);
            expect_undone(-EDQUOT);
            EXPECT_EQ(fault.failed(), 1);
        }
}

TEST_F(FileCopy, no_owner_is_set_after_a_mode_that_could_not_be) {
    const FailCall fault(Call::fchmod, EPERM);
    const CountCalls owners(Call::fchown);
    expect_undone(-EPERM);
    EXPECT_EQ(owners.count(), 0);
}

TEST_F(FileCopy, an_fchmod_failure_with_errno_0_is_ignored) {
    const AnswerCall failure(Call::fchmod, -1);
    const CountCalls owners(Call::fchown);
    errno = 0;
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(owners.count(), 1);
}

TEST_F(FileCopy, a_time_that_cannot_be_set_removes_the_target) {
    LogCapture log;
    with_refused_system_call(SYS_utimensat, EPERM, [this] { expect_undone(-EPERM); });
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(FileCopy, a_target_that_vanishes_on_the_way_is_a_failure) {
    const BeforeCall thief(Call::fchown, 1, [this] { EXPECT_EQ(unlink(target_.c_str()), 0); });
    expect_undone(-ENOENT);
}

TEST_F(FileCopy, without_memory_nothing_is_left) {
    occupy();
    const FailCall fault(Call::allocation, ENOMEM);
    expect_undone(-ENOMEM);
    EXPECT_EQ(fault.failed(), 1);
}

TEST_F(FileCopy, a_full_disk_leaves_the_room_free_again) {
    const SmallDisk disk(1 << 20);
    disk.fill_up_to(81'920);
    const std::string big = folder_.file("big", bytes(200'000));
    const std::string target = disk.path("target");
    LogCapture log;

    EXPECT_EQ(Copy_File(big.c_str(), target.c_str(), &stop_, &total_), -ENOSPC);

    EXPECT_THAT(disk.names(), ElementsAre("filler"));
    EXPECT_EQ(total_, 7 + 65'536);
    EXPECT_THAT(
        log.messages(),
        ElementsAre("[error] File_Write_Bulk(#): Can't write file error! (" + target + ", -28, -1,16384/32768)\n",
                    "[error] Copy_File_Data(#): Can't write 32768 byte to the destination file error! (-28, "
                    "16384)\n"));
}

TEST_F(FileCopy, a_source_that_shrinks_during_the_copy_gives_a_short_one) {
    folder_.file("source", bytes(100'000));
    set_time(source_, kThen);
    LogCapture log;
    const BeforeCall shrink(Call::read, 2, [this] { EXPECT_EQ(truncate(source_.c_str(), 40'000), 0); });

    errno = 0;
    EXPECT_EQ(copy(), 0);

    EXPECT_EQ(read_file(target_), bytes(32768));
    EXPECT_EQ(modified(target_), kThen);
    EXPECT_EQ(status_of(target_).st_mode, mode_t{S_IFREG | 0640});
    EXPECT_EQ(total_, 7 + 32768);
    EXPECT_THAT(log.messages(), ElementsAre("[error] Copy_File_Data(#): Can't read 32768 byte from the source file "
                                            "error! (0, 7232)\n"));
}

TEST_F(FileCopy, a_source_that_grows_during_the_copy_is_taken_at_its_first_size) {
    const BeforeCall growth(Call::read, 1, [this] { folder_.file("source", bytes(90'000)); });
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(read_file(target_), bytes(50));
}

TEST_F(FileCopy, a_set_flag_stops_before_the_first_byte) {
    for (const int32_t value : {1, 5, -5, INT32_MAX})
        for (const size_t size : {size_t{0}, size_t{50}, size_t{100'000}}) {
            SCOPED_TRACE(testing::Message() << value << " at " << size << " bytes");
            folder_.file("source", bytes(size));
            occupy();
            stop_ = value;

            EXPECT_EQ(copy(), value);

            EXPECT_FALSE(exists(target_));
            EXPECT_EQ(total_, 7);
        }
}

TEST_F(FileCopy, a_flag_set_during_the_copy_stops_it_and_removes_the_target) {
    folder_.file("source", bytes(200'000));
    LogCapture log;
    const BeforeCall setter(Call::read, 2, [this] { stop_ = 5; });

    EXPECT_EQ(copy(), 5);

    EXPECT_FALSE(exists(target_));
    EXPECT_EQ(total_, 7 + 65'536);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(FileCopy, a_flag_set_after_the_last_byte_removes_the_target_too) {
    for (const Call call : {Call::fchmod, Call::fchown}) {
        stop_ = 0;
        const BeforeCall setter(call, 1, [this] { stop_ = 5; });
        EXPECT_EQ(copy(), 5);
        EXPECT_TRUE(setter.ran());
        EXPECT_FALSE(exists(target_));
    }
}

TEST_F(FileCopy, another_thread_can_stop_it) {
    EXPECT_EQ(truncate(source_.c_str(), int64_t{1} << 40), 0);  // a hole that takes minutes to read
    std::thread stopper([this] {
        while (__atomic_load_n(&total_, __ATOMIC_RELAXED) < 1'000'000)
            sched_yield();
        __atomic_store_n(&stop_, 6, __ATOMIC_RELAXED);
    });
    const SmallDisk disk(int64_t{1} << 30);

    EXPECT_EQ(Copy_File(source_.c_str(), disk.path("target").c_str(), &stop_, &total_), 6);

    stopper.join();
    EXPECT_THAT(disk.names(), IsEmpty());
}

TEST_F(FileCopy, a_file_is_never_copied_onto_itself) {
    const struct {
        const char *from;
        const char *to;
    } table[] = {{"source", "source"}, {"source", "./source"}, {"source", "hard"}, {"hard", "source"},
                 {"source", "soft"},   {"source", "softer"},   {"soft", "source"}, {"soft", "soft"},
                 {"soft", "hard"},     {"softer", "soft"}};

    for (const int32_t stop : {0, 5})
        for (const auto &row : table) {
            SCOPED_TRACE(testing::Message() << row.from << " to " << row.to << ", flag " << stop);
            const TempFolder place;
            make_tree(
                place.path(),
                {{"source", S_IFREG | 0640, bytes(50)}, {"soft", S_IFLNK, "source"}, {"softer", S_IFLNK, "soft"}});
            check(link(place.path("source").c_str(), place.path("hard").c_str()) == 0, "link");
            const std::vector<Entry> before = list_tree(place.path());
            stop_ = stop;

            EXPECT_EQ(Copy_File(place.path(row.from).c_str(), place.path(row.to).c_str(), &stop_, &total_), -EINVAL);

            EXPECT_EQ(list_tree(place.path()), before);
            EXPECT_EQ(total_, 7);
        }
}

TEST_F(FileCopy, an_unprivileged_user_copies_his_own_files) {
    without_rights([this] {
        const std::string mine = folder_.file("mine", bytes(10));
        set_time(mine, kThen);
        EXPECT_EQ(Copy_File(mine.c_str(), target_.c_str(), nullptr, nullptr), 0);
        EXPECT_EQ(entry_of(target_, ""), copy_of(mine, ""));
    });
}

TEST_F(FileCopy, an_unprivileged_user_cannot_keep_the_owner_and_so_gets_no_copy) {
    EXPECT_EQ(chmod(source_.c_str(), 0644), 0);
    without_rights([this] {
        LogCapture log;
        occupy();
        expect_undone(-EPERM);
        EXPECT_THAT(log.messages(), IsEmpty());
    });
}

TEST_F(FileCopy, an_unreadable_source_costs_the_target) {
    without_rights([this] {
        LogCapture log;
        occupy();
        EXPECT_EQ(copy(), -EACCES);
        EXPECT_FALSE(exists(target_));
        EXPECT_THAT(log.messages(), ElementsAre(cannot_open_source(source_, EACCES)));
    });
}

TEST_F(FileCopy, a_target_of_another_user_is_not_opened_and_so_removed) {
    make_tree(folder_.path(), {{"target", S_IFREG | 0666, "open to all"}, {"mine", S_IFREG | 0666, "x"}});
    without_rights([this] {
        LogCapture log;
        EXPECT_EQ(Copy_File(path("mine").c_str(), target_.c_str(), nullptr, nullptr), -EPERM);
        EXPECT_FALSE(exists(target_));
        EXPECT_THAT(log.messages(), ElementsAre(cannot_open_target(target_, EPERM)));
    });
}

TEST_F(FileCopy, errors_are_logged_at_level_1) {
    LogCapture log(1);
    EXPECT_EQ(Copy_File(path("none").c_str(), target_.c_str(), &stop_, &total_), -ENOENT);
    EXPECT_EQ(log.messages().size(), 1U);
}

TEST_F(LinkCopy, a_null_name_is_refused) {
    LogCapture log;
    EXPECT_EQ(Copy_Symlink(nullptr, path("to").c_str()), -EINVAL);
    EXPECT_EQ(Copy_Symlink(path("from").c_str(), nullptr), -EINVAL);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(LinkCopy, target_owner_and_time_are_those_of_the_link_itself) {
    folder_.file("file", "content");
    const Plan table[] = {
        {"from", S_IFLNK, "nowhere"},
        {"from", S_IFLNK, "file", 1},
        {"from", S_IFLNK, "/", kSecond - 1},
        {"from", S_IFLNK, "a\nb \x80\xff'\"", 4'294'967'295 * kSecond + 999'999'999, 12, 34},
        {"from", S_IFLNK, std::string(4095, 'x'), kThen, 65534, 65534},
    };

    for (const Plan &row : table) {
        SCOPED_TRACE(row.content);
        LogCapture log;
        make_tree(folder_.path(), {row});

        EXPECT_EQ(Copy_Symlink(path("from").c_str(), path("to").c_str()), 0);

        EXPECT_EQ(nanoseconds(status_of(path("to")).st_atim), row.modified);
        EXPECT_EQ(entry_of(path("to"), ""), entry_of(path("from"), ""));
        EXPECT_THAT(log.messages(), IsEmpty());
        std::filesystem::remove(path("from"));
        std::filesystem::remove(path("to"));
    }
    EXPECT_NE(modified(path("file")), kThen);
}

TEST_F(LinkCopy, seconds_have_32_bits) {
    make_tree(folder_.path(),
              {{"before 1970", S_IFLNK, "x", -kSecond}, {"far", S_IFLNK, "x", 5'000'000'000 * kSecond}});
    EXPECT_EQ(Copy_Symlink(path("before 1970").c_str(), path("a").c_str()), 0);
    EXPECT_EQ(Copy_Symlink(path("far").c_str(), path("b").c_str()), 0);
    EXPECT_EQ(modified(path("a")), 4'294'967'295 * kSecond);
    EXPECT_EQ(modified(path("b")), (5'000'000'000 - 4'294'967'296) * kSecond);
}

TEST_F(LinkCopy, names_are_relative_to_their_folders) {
    make_tree(folder_.path(), {{"a", S_IFDIR | 0755}, {"a/l", S_IFLNK, "t"}, {"b", S_IFDIR | 0755}});
    const OpenFolder a(path("a"));
    const OpenFolder b(path("b"));
    EXPECT_EQ(Copy_Symlink_At(a.get(), "l", b.get(), "m"), 0);
    EXPECT_EQ(entry_of(path("b/m"), ""), entry_of(path("a/l"), ""));

    const std::string in_a = std::to_string(a.get());
    LogCapture log;
    EXPECT_EQ(Copy_Symlink_At(a.get(), "none", b.get(), "n"), -ENOENT);
    EXPECT_EQ(Copy_Symlink_At(a.get(), ".", b.get(), "n"), -EINVAL);
    EXPECT_EQ(Copy_Symlink_At(a.get(), "l", b.get(), "m"), -EEXIST);
    EXPECT_THAT(
        log.messages(),
        ElementsAre("[debug] Copy_Symlink_At(#): Can't stat a symbolic link (" + in_a + ",none) error! (-2)\n",
                    "[debug] Copy_Symlink_At(#): Can't read a symbolic link (" + in_a + ",.) error! (-22)\n",
                    "[error] Copy_Symlink_At(#): symlinkat(t, " + std::to_string(b.get()) + ", m) error! (-17)\n"));
}

TEST_F(LinkCopy, only_a_link_that_cannot_be_made_is_an_error) {
    folder_.file("file", "");
    LogCapture log(1);
    EXPECT_EQ(Copy_Symlink(path("none").c_str(), path("to").c_str()), -ENOENT);
    EXPECT_EQ(Copy_Symlink(path("file").c_str(), path("to").c_str()), -EINVAL);
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_THAT(folder_.names(), ElementsAre("file"));
}

TEST_F(LinkCopy, the_first_steps_that_fail_make_no_link) {
    make_tree(folder_.path(), {{"from", S_IFLNK, "t"}});
    const struct {
        Call call;
        const char *message;
    } table[] = {
        {Call::readlinkat, "[debug] Copy_Symlink_At(#): Can't read a symbolic link (-100,FROM) error! (-5)\n"},
        {Call::symlinkat, "[error] Copy_Symlink_At(#): symlinkat(t, -100, TO) error! (-5)\n"},
    };

    const WorkingFolder here(folder_.path());
    EXPECT_EQ(rename("from", "FROM"), 0);
    for (const auto &row : table) {
        LogCapture log;
        const FailCall fault(row.call, EIO);
        EXPECT_EQ(Copy_Symlink("FROM", "TO"), -EIO);
        EXPECT_THAT(log.messages(), ElementsAre(row.message));
        EXPECT_FALSE(exists("TO"));
    }
}

TEST_F(LinkCopy, a_time_that_cannot_be_set_does_not_keep_it_from_its_owner) {
    make_tree(folder_.path(), {{"from", S_IFLNK, "t", kThen, 12, 34}});
    LogCapture log;
    with_refused_system_call(SYS_utimensat, EROFS,
                             [this] { EXPECT_EQ(Copy_Symlink(path("from").c_str(), path("to").c_str()), -EROFS); });

    Entry expected = entry_of(path("from"), "");
    expected.modified = modified(path("to"));
    EXPECT_EQ(entry_of(path("to"), ""), expected);
    EXPECT_THAT(log.messages(),
                ElementsAre("[error] Copy_Symlink_At(#): Can't utimensat(-100, " + path("to") + ") error! (-30)\n"));
}

TEST_F(LinkCopy, of_two_failures_that_of_the_owner_is_the_result) {
    make_tree(folder_.path(), {{"from", S_IFLNK, "t", kThen, 12, 34}});
    LogCapture log;
    with_refused_system_call(SYS_utimensat, EROFS, [this] {
        const FailCall fault(Call::fchownat, EDQUOT);
        EXPECT_EQ(Copy_Symlink(path("from").c_str(), path("to").c_str()), -EDQUOT);
    });
    EXPECT_TRUE(exists(path("to")));
    EXPECT_THAT(
        log.messages(),
        ElementsAre("[error] Copy_Symlink_At(#): Can't utimensat(-100, " + path("to") + ") error! (-30)\n",
                    "[error] Copy_Symlink_At(#): Can't fchownat(-100, " + path("to") + ", 12, 34) error! (-122)\n"));
}

TEST_F(LinkCopy, an_unprivileged_user_gets_the_link_but_not_its_owner) {
    make_tree(folder_.path(), {{"from", S_IFLNK, "t"}});
    without_rights([this] {
        LogCapture log;
        EXPECT_EQ(Copy_Symlink(path("from").c_str(), path("to").c_str()), -EPERM);
        EXPECT_EQ(modified(path("to")), kThen);
        EXPECT_EQ(status_of(path("to")).st_uid, 65534U);
        EXPECT_THAT(log.messages(), ElementsAre("[error] Copy_Symlink_At(#): Can't fchownat(-100, " + path("to") +
                                                ", 0, 0) error! (-1)\n"));
    });
}

TEST_F(FolderCopy, a_null_name_is_refused) {
    LogCapture log;
    EXPECT_EQ(Copy_Folder(nullptr, path("to").c_str()), -EINVAL);
    EXPECT_EQ(Copy_Folder(folder_.path().c_str(), nullptr), -EINVAL);
    EXPECT_THAT(folder_.names(), IsEmpty());
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(FolderCopy, mode_owner_and_time_are_those_of_the_source_and_it_is_empty) {
    const Umask narrow(077);
    for (const mode_t mode : {0755, 0, 01777, 02775, 04711, 07777})
        for (const uid_t owner : {0, 1234}) {
            SCOPED_TRACE(testing::Message() << std::oct << mode << " of " << owner);
            LogCapture log;
            const TempFolder place;
            make_tree(place.path(),
                      {{"from", S_IFDIR | mode, "", kThen, owner, owner + 1}, {"from/x", S_IFREG | 0600}});

            EXPECT_EQ(Copy_Folder(place.path("from").c_str(), place.path("to").c_str()), 0);

            EXPECT_EQ(nanoseconds(status_of(place.path("to")).st_atim), kThen);
            EXPECT_EQ(list_tree(place.path("to")), std::vector<Entry>{entry_of(place.path("from"), "")});
            EXPECT_THAT(log.messages(), IsEmpty());
        }
}

TEST_F(FolderCopy, the_type_of_the_source_is_not_looked_at) {
    make_tree(folder_.path(), {{"file", S_IFREG | 0751, "x", kThen, 1, 2},
                               {"dir", S_IFDIR | 0700, "", 5},
                               {"link", S_IFLNK, "dir", kThen + 1, 3, 4}});
    EXPECT_EQ(Copy_Folder(path("file").c_str(), path("a").c_str()), 0);
    EXPECT_EQ(Copy_Folder(path("link").c_str(), path("b").c_str()), 0);
    EXPECT_EQ(entry_of(path("a"), ""), (Entry{"", S_IFDIR | 0751, 1, 2, kThen, 0, 0, ""}));
    EXPECT_EQ(entry_of(path("b"), ""), (Entry{"", S_IFDIR | 0777, 3, 4, kThen + 1, 0, 0, ""}));
}

TEST_F(FolderCopy, an_existing_target_is_left_alone) {
    make_tree(folder_.path(), {{"from", S_IFDIR | 0755},
                               {"dir", S_IFDIR | 0700, "", 5, 1, 2},
                               {"file", S_IFREG | 0600, "x"},
                               {"link", S_IFLNK, "nowhere"}});
    const std::vector<Entry> before = list_tree(folder_.path());

    for (const char *name : {"dir", "file", "link", "from"}) {
        LogCapture log;
        EXPECT_EQ(Copy_Folder(path("from").c_str(), path(name).c_str()), -EEXIST);
        EXPECT_EQ(list_tree(folder_.path()), before);
        EXPECT_THAT(log.messages(), ElementsAre("[error] Copy_Folder_At(#): Can't mkdirat the folder (-100, " +
                                                path(name) + ", 40755) error! (-17)\n"));
    }
}

TEST_F(FolderCopy, names_are_relative_to_their_folders) {
    make_tree(folder_.path(), {{"a", S_IFDIR | 0755}, {"a/d", S_IFDIR | 0700}, {"b", S_IFDIR | 0755}});
    const OpenFolder a(path("a"));
    const OpenFolder b(path("b"));
    EXPECT_EQ(Copy_Folder_At(a.get(), "d", b.get(), "e"), 0);
    EXPECT_EQ(entry_of(path("b/e"), ""), entry_of(path("a/d"), ""));

    const std::string message =
        "[debug] Copy_Folder_At(#): Can't stat a folder (" + std::to_string(a.get()) + ",none) error! (-2)\n";
    LogCapture debug;
    EXPECT_EQ(Copy_Folder_At(a.get(), "none", b.get(), "f"), -ENOENT);
    EXPECT_THAT(debug.messages(), ElementsAre(message));
}

TEST_F(FolderCopy, a_mode_or_owner_that_cannot_be_set_is_ignored) {
    const struct {
        Call call;
        std::string message;
    } table[] = {
        {Call::fchmodat, "Can't fchmodat the folder (-100, " + path("to") + ", 40775) error! (5)\n"},
        {Call::fchownat, "Can't fchownat the folder (-100, " + path("to") + ", 12, 34) error! (5)\n"},
    };

    const Umask narrow(027);
    make_tree(folder_.path(), {{"from", S_IFDIR | 0775, "", kThen, 12, 34}});
    for (const auto &row : table) {
        SCOPED_TRACE(row.message);
        LogCapture log;
        const FailCall fault(row.call, EIO);

        EXPECT_EQ(Copy_Folder(path("from").c_str(), path("to").c_str()), 0);

        Entry expected = entry_of(path("from"), "");
        if (row.call == Call::fchmodat)
            expected.mode = S_IFDIR | 0750;
        else
            expected.owner = expected.group = 0;
        EXPECT_EQ(entry_of(path("to"), ""), expected);
        EXPECT_THAT(log.messages(), ElementsAre("[error] Copy_Folder_At(#): " + row.message));
        std::filesystem::remove(path("to"));
    }
}

TEST_F(FolderCopy, a_time_that_cannot_be_set_is_the_result_but_the_folder_stays) {
    make_tree(folder_.path(), {{"from", S_IFDIR | 0755}});
    LogCapture log;
    with_refused_system_call(SYS_utimensat, EROFS,
                             [this] { EXPECT_EQ(Copy_Folder(path("from").c_str(), path("to").c_str()), -EROFS); });
    EXPECT_TRUE(exists(path("to")));
    EXPECT_THAT(log.messages(), ElementsAre("[error] Copy_Folder_At(#): Can't chtime the folder (-100, " + path("to") +
                                            ") error! (-30)\n"));
}

TEST_F(FolderCopy, an_unprivileged_user_gets_all_but_the_owner) {
    make_tree(folder_.path(), {{"from", S_IFDIR | 0755}});
    without_rights([this] {
        LogCapture log(1);
        EXPECT_EQ(Copy_Folder(path("from").c_str(), path("to").c_str()), 0);
        EXPECT_EQ(modified(path("to")), kThen);
        EXPECT_EQ(status_of(path("to")).st_uid, 65534U);
        EXPECT_THAT(log.messages(), ElementsAre("[error] Copy_Folder_At(#): Can't fchownat the folder (-100, " +
                                                path("to") + ", 0, 0) error! (1)\n"));
    });
}

TEST_F(FileRemoval, removes_a_name_of_any_type_but_a_folder) {
    make_tree(folder_.path(), {{"dir", S_IFDIR | 0755},
                               {"file", S_IFREG | 0600, "x"},
                               {"link", S_IFLNK, "file"},
                               {"dangling", S_IFLNK, "none"},
                               {"fifo", S_IFIFO | 0600},
                               {"dir/file", S_IFREG | 0600}});
    const OpenFolder dir(path("dir"));
    LogCapture log;

    EXPECT_EQ(Remove_File(path("link").c_str()), 0);
    EXPECT_TRUE(exists(path("file")));
    EXPECT_EQ(Remove_File(path("file").c_str()), 0);
    EXPECT_EQ(Remove_File(path("dangling").c_str()), 0);
    EXPECT_EQ(Remove_File(path("fifo").c_str()), 0);
    EXPECT_EQ(Remove_File_At(dir.get(), "file"), 0);
    EXPECT_THAT(folder_.names(), ElementsAre("dir"));

    EXPECT_EQ(Remove_File(path("file").c_str()), -ENOENT);
    EXPECT_EQ(Remove_File(path("dir").c_str()), -EISDIR);
    EXPECT_EQ(Remove_File_At(dir.get(), "file"), -ENOENT);
    EXPECT_EQ(Remove_File_At(-1, "file"), -EBADF);
    EXPECT_THAT(log.messages(), IsEmpty());
}
