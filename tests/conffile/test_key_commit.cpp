// Setting one key of a file: its lock, its temporary file, and how the new text takes the old one's place.
#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>

#include "conf_file_test.h"
#include "fileio.h"

using lists::Messages;
using support::BeforeCall;
using support::Call;
using support::FailCall;
using support::SmallDisk;
using testing::AnyOf;
using testing::ElementsAre;

namespace {

const std::string kText = "# c\n[a]\nx = 1\n";
const std::string kNewText = "# c\n[a]\nx = 2\n";

class KeyCommit : public ConfFileTest {
  protected:
    int32_t set() const { return Set_Conf_File_String_Value(file_, "a", "x", "2"); }

    // Fails the nth call of a function during a change.
    int32_t set_with(Call call, int error, int nth = 1) const {
        const FailCall fault(call, error, nth);
        const int32_t result = set();
        EXPECT_EQ(fault.failed(), 1);
        return result;
    }

    std::string message(const std::string &text, int error) const {
        return "Set_Conf_File_String_Value(#): " + text + " error! (" + std::to_string(-error) + ")\n";
    }

    const std::string temporary_ = path_ + ".tmp";
};

TEST_F(KeyCommit, holds_the_lock_until_the_new_file_has_its_mode) {
    write(kText);
    const auto lock_is_held = [this] {
        ASSERT_TRUE(support::exists(lock_));
        const std::string lock = support::read_file(lock_);
        ASSERT_EQ(lock.size(), 16U);
        int32_t holder = 0;
        lock.copy(reinterpret_cast<char *>(&holder), sizeof holder, 8);
        EXPECT_EQ(holder, getpid());
    };
    const BeforeCall at_rename(Call::rename, 1, [&] {
        lock_is_held();
        EXPECT_EQ(support::read_file(temporary_), kNewText) << "renamed before it was written";
        EXPECT_EQ(content(), kText);
    });
    const BeforeCall at_fchmod(Call::fchmod, kLastMode, [&] {
        lock_is_held();
        EXPECT_EQ(content(), kNewText);
    });
    EXPECT_EQ(set(), 0);
    EXPECT_TRUE(at_rename.ran());
    EXPECT_TRUE(at_fchmod.ran());
}

TEST_F(KeyCommit, holds_the_lock_until_the_temporary_file_is_removed) {
    write(kText);
    const BeforeCall at_removal(Call::unlinkat, 1, [&] {
        EXPECT_TRUE(support::exists(lock_));
        EXPECT_TRUE(support::exists(temporary_));
    });
    EXPECT_EQ(Set_Conf_File_String_Value(file_, "a", "missing", nullptr), -ENODATA);
    EXPECT_TRUE(at_removal.ran());
}

TEST_F(KeyCommit, reads_the_file_under_the_lock) {
    write(kText);
    // A holder that changes the file before it lets go: nothing of its change may be lost.
    const support::FakeClock clock;
    support::write_file(lock_, std::string(16, '\0'));  // process 0: stale, so it is removed at the first pass
    const BeforeCall at_removal(Call::unlink, 1, [&] { write("[a]\nx = 1\ny = new\n"); });
    EXPECT_EQ(set(), 0);
    EXPECT_TRUE(at_removal.ran());
    EXPECT_EQ(content(), "[a]\nx = 2\ny = new\n");
}

TEST_F(KeyCommit, gives_up_after_ten_seconds_of_somebody_elses_lock) {
    write(kText);
    const FileState before = state_of(path_);
    const support::FakeClock clock;
    const ForeignLock lock(lock_, clock.now());
    const Outcome locked{-ENOLCK,
                         {"[error] Get_File_Lock(#): Get lock file \"" + lock_ + "\" timeout! (10001 < 10000)\n",
                          "[debug] Set_Conf_File_String_Value(#): Can't get file lock of " + path_ + " error!\n"}};
    EXPECT_EQ(observe([this] { return set(); }), locked);
    EXPECT_EQ(observe([this] { return Set_Conf_File_String_Value(file_, "a", "x", nullptr); }), locked);
    EXPECT_EQ(observe([this] { return Set_Conf_File_Integer_Value(file_, "a", "x", 2); }), locked);
    EXPECT_EQ(clock.sleeps(), 3 * 10001);
    EXPECT_EQ(state_of(path_), before);
    EXPECT_EQ(folder_.names(), std::vector<std::string>{"app.conf"});
}

TEST_F(KeyCommit, does_not_wait_for_the_watched_or_the_side_lock) {
    write(kText);
    const support::FakeClock clock;
    const ForeignLock watched("/var/lock/app.conf.lck", clock.now());
    const ForeignLock side(path_ + ".lck", clock.now());
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(clock.sleeps(), 0);
}

TEST_F(KeyCommit, takes_over_the_lock_of_a_process_that_has_ended) {
    write(kText);
    const int32_t dead = support::dead_process();
    std::string lock(16, '\0');
    const auto now = static_cast<uint64_t>(time(nullptr)) * 1000;
    lock.replace(0, 8, reinterpret_cast<const char *>(&now), 8);
    lock.replace(8, 4, reinterpret_cast<const char *>(&dead), 4);
    support::write_file(lock_, lock);
    support::write_file(temporary_, std::string(100'000, 'x'));

    EXPECT_EQ(observe([this] { return set(); }),
              (Outcome{0,
                       {"[debug] Get_File_Lock(#): Remove \"" + lock_ + "\" because proc " + std::to_string(dead) +
                        " is not existed!\n"}}));
    EXPECT_EQ(content(), kNewText) << "what the ended process left in the temporary file counted";
}

TEST_F(KeyCommit, gives_up_without_a_folder_for_locks) {
    write(kText);
    const FileState before = state_of(path_);
    const support::FakeClock clock;
    const HiddenFolder no_locks("/var");
    EXPECT_EQ(set(), -ENOLCK);
    EXPECT_EQ(clock.sleeps(), 10001);
    EXPECT_EQ(state_of(path_), before);
}

TEST_F(KeyCommit, refuses_names_too_long_for_a_lock) {
    const std::string fits = folder_.file(std::string(240, 'n'), kText);
    const std::string too_long = folder_.file(std::string(241, 'n'), kText);
    EXPECT_EQ(Set_Conf_File_String_Value(fits.c_str(), "a", "x", "2"), 0);
    EXPECT_EQ(support::read_file(fits), kNewText);
    EXPECT_EQ(observe([&] { return Set_Conf_File_String_Value(too_long.c_str(), "a", "x", "2"); }),
              (Outcome{-ENOLCK,
                       {"[debug] Set_Conf_File_String_Value(#): Can't get file lock of " + too_long + " error!\n"}}));
    EXPECT_EQ(support::read_file(too_long), kText);
}

TEST_F(KeyCommit, refuses_paths_too_long_for_a_temporary_name) {
    write(kText);
    for (const size_t length : {4092, 4093, 4095, 4096, 5000}) {
        SCOPED_TRACE(length);
        const FileState before = state_of(path_);
        EXPECT_EQ(Set_Conf_File_String_Value(path_of_length(length).c_str(), "a", "x", "2"), -ENAMETOOLONG);
        EXPECT_EQ(state_of(path_), before);
        expect_nothing_left();
    }
    EXPECT_EQ(Set_Conf_File_String_Value(path_of_length(4091).c_str(), "a", "x", "2"), 0);
    EXPECT_EQ(content(), kNewText);
}

TEST_F(KeyCommit, refuses_a_missing_file_whose_temporary_name_is_too_long) {
    EXPECT_EQ(Set_Conf_File_String_Value(path_of_length(4092).c_str(), "a", "x", "2"), -ENAMETOOLONG);
    EXPECT_EQ(Set_Conf_File_String_Value(path_of_length(4092).c_str(), "a", "x", nullptr), -ENOENT);
    EXPECT_TRUE(folder_.names().empty());
}

TEST_F(KeyCommit, keeps_the_permission_bits) {
    for (const mode_t mode : {0600U, 0640U, 0444U, 0777U, 02640U, 04711U, 01666U, 0U}) {
        SCOPED_TRACE(mode);
        write(kText);
        ASSERT_EQ(chmod(file_, mode), 0);
        EXPECT_EQ(set(), 0);
        EXPECT_EQ(mode_of(path_), mode);
        EXPECT_EQ(content(), kNewText);
        ASSERT_EQ(unlink(file_), 0);
    }
}

TEST_F(KeyCommit, keeps_the_permission_bits_that_were_there_before_it_waited) {
    write(kText);
    ASSERT_EQ(chmod(file_, 0600), 0);
    const BeforeCall at_lock(Call::open, 1, [this] { chmod(file_, 0644); });
    EXPECT_EQ(set(), 0);
    EXPECT_TRUE(at_lock.ran());
    EXPECT_EQ(mode_of(path_), 0600U);
}

TEST_F(KeyCommit, gives_a_new_file_what_the_umask_leaves) {
    const mode_t outer = umask(027);
    const support::CountCalls chmods(Call::fchmod);
    EXPECT_EQ(set(), 0);
    umask(outer);
    EXPECT_EQ(mode_of(path_), 0640U);
    EXPECT_EQ(chmods.count(), 0);
}

TEST_F(KeyCommit, keeps_the_bits_of_the_file_that_it_read_where_the_first_look_failed) {
    write(kText);
    ASSERT_EQ(chmod(file_, 0640), 0);
    const mode_t outer = umask(0);
    EXPECT_EQ(set_with(Call::lstat, EACCES), 0);
    umask(outer);
    EXPECT_EQ(mode_of(path_), 0640U);
    EXPECT_EQ(content(), kNewText);
}

TEST_F(KeyCommit, replaces_a_symbolic_link_by_a_file) {
    const std::string real = folder_.file("real", kText);
    ASSERT_EQ(chmod(real.c_str(), 0600), 0);
    const FileState before = state_of(real);
    ASSERT_EQ(symlink("real", file_), 0);
    EXPECT_EQ(set(), 0);
    EXPECT_TRUE(S_ISREG(status_of(path_).st_mode));
    EXPECT_EQ(mode_of(path_), 0777U) << "the bits of the link itself";
    EXPECT_EQ(content(), kNewText);
    EXPECT_EQ(state_of(real), before);
}

TEST_F(KeyCommit, replaces_a_dangling_symbolic_link_by_a_new_file) {
    ASSERT_EQ(symlink("nowhere", file_), 0);
    EXPECT_EQ(set(), 0);
    EXPECT_TRUE(S_ISREG(status_of(path_).st_mode));
    EXPECT_EQ(content(), "[a]\nx = 2\n");
    EXPECT_FALSE(support::exists(folder_.path("nowhere")));
}

TEST_F(KeyCommit, leaves_other_names_of_the_file_as_they_were) {
    write(kText);
    const std::string other = folder_.path("other");
    ASSERT_EQ(link(file_, other.c_str()), 0);
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(support::read_file(other), kText);
    EXPECT_EQ(content(), kNewText);
}

TEST_F(KeyCommit, works_on_a_name_in_the_current_folder) {
    write(kText);
    ASSERT_EQ(chdir(folder_.path().c_str()), 0);
    EXPECT_EQ(Set_Conf_File_String_Value("app.conf", "a", "x", "2"), 0);
    EXPECT_EQ(chdir("/"), 0);
    EXPECT_EQ(content(), kNewText);
}

TEST_F(KeyCommit, leaves_the_file_as_it_was_when_a_step_fails) {
    struct Row {
        Call call;
        int error;
        Messages messages;
    };
    const Row rows[] = {
        {Call::fstatat,
         EACCES,
         {"[debug] Cache_Conf_File(#): Can't stat the conf file \"" + path_ + "\" error! (-13)\n",
          "[debug] " + message("Can't cache file \"" + path_ + "\"", EACCES)}},
        {Call::read,
         EIO,
         {"[debug] Cache_Conf_File(#): Read \"" + path_ + "\" 14 bytes but got -1 bytes error! (-5)\n",
          "[debug] " + message("Can't cache file \"" + path_ + "\"", EIO)}},
        {Call::rename,
         EXDEV,
         {"[error] Set_Conf_File_String_Value(#): Can't rename from " + temporary_ + " to " + path_ + "! (-18)\n"}},
    };
    write(kText);
    const FileState before = state_of(path_);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.messages.back());
        EXPECT_EQ(observe([&] { return set_with(row.call, row.error); }), (Outcome{-row.error, row.messages}));
        EXPECT_EQ(state_of(path_), before);
        expect_nothing_left();
    }
}

TEST_F(KeyCommit, reports_errors_at_level_one) {
    write(kText);
    EXPECT_EQ(observe([this] { return set_with(Call::rename, EXDEV); }, 1).messages.size(), 1U);
    EXPECT_EQ(observe([this] { return set_with(Call::fchmod, EPERM, kLastMode); }, 1).messages.size(), 1U);
    EXPECT_EQ(observe([this] { return set_with(Call::read, EIO); }, 2), (Outcome{-EIO, {}}));
}

TEST_F(KeyCommit, has_changed_the_file_when_only_the_mode_fails) {
    write(kText);
    EXPECT_EQ(observe([this] { return set_with(Call::fchmod, EPERM, kLastMode); }),
              (Outcome{-EPERM, {"[error] Set_Conf_File_String_Value(#): Can't chmod to " + path_ + "! (-1)\n"}}));
    EXPECT_EQ(content(), kNewText);
}

TEST_F(KeyCommit, is_not_misled_by_a_folder_under_the_temporary_name) {
    write(kText);
    const FileState before = state_of(path_);
    ASSERT_EQ(mkdir(temporary_.c_str(), 0755), 0);
    EXPECT_EQ(observe([this] { return set(); }),
              (Outcome{-EISDIR, {"[debug] " + message("Can't open tmp file \"" + temporary_ + "\"", EISDIR)}}));
    EXPECT_EQ(state_of(path_), before);
    EXPECT_EQ(rmdir(temporary_.c_str()), 0) << "the folder was removed";
}

TEST_F(KeyCommit, refuses_what_is_no_regular_file) {
    ASSERT_EQ(mkdir(file_, 0755), 0);
    for (const char *value : {"2", static_cast<const char *>(nullptr)}) {
        const Outcome outcome = observe([&] { return Set_Conf_File_String_Value(file_, "a", "x", value); });
        EXPECT_EQ(outcome.result, -ENOMEDIUM);
        EXPECT_THAT(outcome.messages,
                    ElementsAre("[debug] Cache_Conf_File(#): The specified file \"" + path_ +
                                    "\" is not a regular file error! (41ED)\n",
                                "[debug] " + message("Can't cache file \"" + path_ + "\"", ENOMEDIUM)));
    }
    EXPECT_TRUE(S_ISDIR(status_of(path_).st_mode));
}

TEST_F(KeyCommit, reports_a_missing_folder) {
    const std::string path = folder_.path("missing/app.conf");
    EXPECT_EQ(
        observe([&] { return Set_Conf_File_String_Value(path.c_str(), "a", "x", "2"); }),
        (Outcome{-ENOENT,
                 {"[debug] Set_Conf_File_String_Value(#): Can't open tmp file \"" + path + ".tmp\" error! (-2)\n"}}));
}

TEST_F(KeyCommit, reports_files_and_folders_that_may_not_be_used) {
    write(kText);
    const auto refused = [this](const std::string &said) {
        const Outcome outcome = observe([this] { return set(); });
        EXPECT_EQ(outcome.result, -EACCES);
        EXPECT_EQ(outcome.messages.back(), "[debug] " + message(said, EACCES));
        expect_nothing_left();
    };
    EXPECT_EQ(support::in_child([&] {
                  give_up_privileges();
                  chmod(folder_.path().c_str(), 0500);
                  refused("Can't open tmp file \"" + temporary_ + "\"");
                  chmod(folder_.path().c_str(), 0700);
                  chmod(file_, 0);
                  refused("Can't cache file \"" + path_ + "\"");
                  return HasFailure() ? 1 : 0;
              }),
              0);
    EXPECT_EQ(content(), kText);
}

TEST_F(KeyCommit, survives_every_allocation_that_fails) {
    const std::string text = kText + std::string(10'000, '#');
    int failures = 0;
    with_each_allocation_failing([&] { write(text); }, [this] { return set(); },
                                 [&](int32_t result) {
                                     EXPECT_THAT(result, AnyOf(0, -ENOMEM));
                                     EXPECT_EQ(content(),
                                               result == 0 ? kNewText + std::string(10'000, '#') + "\n" : text);
                                     expect_nothing_left();
                                     failures += result != 0;
                                 });
    EXPECT_GE(failures, 1);
}

TEST_F(KeyCommit, survives_every_system_call_that_fails) {
    for (const Call call : {Call::open, Call::openat, Call::read, Call::write, Call::stat, Call::fstatat, Call::fstat,
                            Call::fdopen, Call::fflush, Call::unlink, Call::unlinkat, Call::rename, Call::flock}) {
        for (int nth = 1; nth < 10; nth++) {
            SCOPED_TRACE(testing::Message() << "call " << static_cast<int>(call) << ", " << nth);
            write(kText);
            const support::FakeClock clock;
            int32_t result = 0;
            {
                const FailCall fault(call, EIO, nth);
                result = set();
                if (fault.failed() == 0)
                    break;
            }
            EXPECT_EQ(content(), result == 0 ? kNewText : kText);
            if (call == Call::unlink)
                unlink(lock_.c_str());  // the one removal that failed
            expect_nothing_left();
        }
    }
}

class FullDisk : public KeyCommit {
  protected:
    // Leaves `room` bytes on a small disk and expects a change of a file on it to fail whole.
    static void expect_untouched(const std::string &text, int64_t room, const char *section, const char *key,
                                 const std::string &value) {
        const SmallDisk disk(1 << 20);
        const std::string path = disk.file("app.conf", text);
        ASSERT_EQ(chmod(path.c_str(), 0640), 0);
        disk.fill_up_to(room);
        const FileState before = state_of(path);
        EXPECT_EQ(observe([&] { return Set_Conf_File_String_Value(path.c_str(), section, key, value.c_str()); }),
                  (Outcome{-1, {}}));
        EXPECT_EQ(state_of(path), before);
        EXPECT_EQ(disk.names(), (std::vector<std::string>{"app.conf", "filler"}));
    }
};

TEST_F(FullDisk, leaves_a_small_file_as_it_was) {
    expect_untouched(kText, 0, "a", "x", "2");
    expect_untouched(kText, 0, "a", "new", "2");
    expect_untouched(kText, 0, "new", "x", "2");
    expect_untouched("", 0, "a", "x", "2");
    expect_untouched(std::string(4080, '#') + "\n[a]\nx = 1\n", 4096, "a", "x", std::string(100, 'v'));
}

TEST_F(FullDisk, leaves_a_large_file_as_it_was) {
    const std::string text = std::string(200'000, '#') + "\n[a]\nx = 1\n" + std::string(200'000, '#');
    for (const int64_t room : {0, 4096, 204'800, 400'000}) {
        SCOPED_TRACE(room);
        expect_untouched(text, room, "a", "x", "2");
    }
    expect_untouched(kText, 40'960, "a", "x", std::string(50'000, 'v'));
    expect_untouched(text, 0, "new", "x", "2");
}

TEST_F(FullDisk, creates_no_file) {
    const SmallDisk disk(64 << 10);
    disk.fill_up_to(0);
    const std::string path = disk.path("app.conf");
    EXPECT_EQ(observe([&] { return Set_Conf_File_String_Value(path.c_str(), "a", "x", "2"); }), (Outcome{-1, {}}));
    EXPECT_EQ(disk.names(), std::vector<std::string>{"filler"});
}

TEST_F(FullDisk, still_lets_a_line_be_removed_where_the_rest_fits) {
    const SmallDisk disk(64 << 10);
    const std::string path = disk.file("app.conf", kText + "y = " + std::string(20'000, 'v') + "\n");
    disk.fill_up_to(8192);
    EXPECT_EQ(Set_Conf_File_String_Value(path.c_str(), "a", "y", nullptr), 0);
    EXPECT_EQ(support::read_file(path), kText);
}

TEST_F(FullDisk, counts_a_limit_on_the_size_of_files_as_one) {
    const std::string text = kText + std::string(100'000, '#');
    write(text);
    EXPECT_EQ(support::in_child([this] {
                  signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{50'000, 50'000};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  return set() == -1 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(content(), text);
}

TEST_F(KeyCommit, loses_nothing_when_processes_write_at_once) {
    constexpr int kWriters = 8;
    constexpr int kKeys = 50;
    std::vector<pid_t> writers;
    for (int writer = 0; writer < kWriters; writer++) {
        writers.push_back(support::start_child([this, writer] {
            const std::string section = "s" + std::to_string(writer % 3);
            for (int key = 0; key < kKeys; key++) {
                const std::string name = "k" + std::to_string(writer) + "." + std::to_string(key);
                // Two ways of the same: the editor, and the list of pairs under the same lock.
                const lists::PairList pair = lists::make_pairs({{name, std::to_string(key)}});
                if (key % 5 == 4 ? Set_Conf_File_Pair_Values(file_, section.c_str(), pair) != 0
                                 : Set_Conf_File_Integer_Value(file_, section.c_str(), name.c_str(), key) != 0)
                    return 1;
            }
            return 0;
        }));
    }
    for (const pid_t writer : writers)
        EXPECT_EQ(support::wait_for(writer), 0);

    std::map<std::string, std::string> found;
    for (const lists::Section &section : lists::conf_in_file(path_))
        for (const lists::Pair &pair : section.pairs)
            EXPECT_TRUE(found.emplace(section.name + "/" + pair.key, pair.value).second) << pair << " stands twice";
    EXPECT_EQ(found.size(), static_cast<size_t>(kWriters * kKeys));
    for (int writer = 0; writer < kWriters; writer++)
        for (int key = 0; key < kKeys; key++)
            EXPECT_EQ(
                found["s" + std::to_string(writer % 3) + "/k" + std::to_string(writer) + "." + std::to_string(key)],
                std::to_string(key));
}

TEST_F(KeyCommit, shows_readers_a_whole_file_at_any_moment) {
    const std::string before(70'000, 'a');
    const std::string after(200'000, 'b');
    write("[s]\nk = " + before + "\n[end]\nk = 1\n");
    Shared<int> stop;
    const pid_t writer = start_endless_child([&] {
        int32_t result = 0;
        while (result == 0 && __atomic_load_n(stop.get(), __ATOMIC_RELAXED) == 0) {
            result |= Set_Conf_File_String_Value(file_, "s", "k", after.c_str());
            result |= Set_Conf_File_String_Value(file_, "s", "k", before.c_str());
        }
        return result == 0 ? 0 : 1;
    });

    std::string buffer(after.size() + 1, '\0');
    std::map<char, int> seen;
    int32_t result = 0;
    for (int reads = 0; result == 0 && reads < 1'000'000 && (reads < 2000 || seen.size() < 2); reads++) {
        auto size = static_cast<int32_t>(buffer.size());
        result = Get_Conf_File_String_Value(file_, "s", "k", buffer.data(), &size);
        const std::string &whole = buffer[0] == 'a' ? before : after;
        if (result == 0 && buffer.compare(0, static_cast<size_t>(size), whole) != 0) {
            ADD_FAILURE() << "read " << size << " bytes from " << buffer[0];
            break;
        }
        seen[buffer[0]]++;

        int64_t end = 0;
        result |= Get_Conf_File_Int64_Value(file_, "end", "k", &end);
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(seen.size(), 2U) << "the writer never got to change the file";
    __atomic_store_n(stop.get(), 1, __ATOMIC_RELAXED);
    EXPECT_EQ(support::wait_for(writer), 0);
}

}  // namespace
