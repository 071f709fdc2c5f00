// The permission bits of a file that is changed: at no moment are they, or those of the new text's file beside it, wider
// than they were.
#include <csignal>

#include "conf_file_test.h"

using support::BeforeCall;
using support::Call;

namespace {

constexpr unsigned kBits = 0640;
const std::string kOldText = "[s]\nold = 1\n";

// One way to change a file, and what a change leaves of the keys that are there.
struct Way {
    const char *name;
    std::function<int32_t(const char *path, const std::string &key, const std::string &value)> change;
};

void PrintTo(const Way &way, std::ostream *out) {
    *out << way.name;
}

int32_t edit_key(const char *path, const std::string &key, const std::string &value) {
    return Set_Conf_File_String_Value(path, "s", key.c_str(), value.c_str());
}

int32_t set_section(const char *path, const std::string &key, const std::string &value) {
    lists::ConfList section = lists::make_conf({{"s", {{key, value}}}});
    return Set_Conf_File_Section(path, "s", section);
}

int32_t merge_section(const char *path, const std::string &key, const std::string &value) {
    return Update_Conf_File_Section(path, "s", lists::make_conf({{"s", {{key, value}}}}));
}

int32_t set_pairs(const char *path, const std::string &key, const std::string &value) {
    return Set_Conf_File_Pair_Values(path, "s", lists::make_pairs({{key, value}}));
}

int32_t update_file(const char *path, const std::string &key, const std::string &value) {
    return Update_Conf_File(path, lists::make_conf({{"s", {{key, value}}}}));
}

const Way kWays[] = {{"Editor", edit_key},
                     {"SectionSetter", set_section},
                     {"SectionMerger", merge_section},
                     {"Pairs", set_pairs},
                     {"Update", update_file}};

// What a name's bits have that the old file's don't. 0 where it is gone by now.
unsigned too_wide(const std::string &path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U & ~kBits : 0;
}

class PermissionBits : public testing::TestWithParam<Way> {
  protected:
    PermissionBits() { umask(0); }  // what is forgotten shows

    void SetUp() override { renew(); }

    void renew() const {
        unlink(file_);
        support::write_file(path_, kOldText);
        ASSERT_EQ(chmod(file_, kBits), 0);
    }

    int32_t change(const std::string &key = "k", const std::string &value = "v") const {
        return GetParam().change(file_, key, value);
    }

    void expect_narrow(const std::string &when) const {
        for (const std::string &name : folder_.names())
            EXPECT_EQ(too_wide(folder_.path(name)), 0U) << name << " " << when;
    }

    // The calls of one change, each with its number among those of its kind.
    std::vector<std::pair<Call, int>> calls_of_a_change() const {
        const support::RecordCalls recording;
        EXPECT_EQ(change(), 0);
        const support::Undisturbed counting;
        std::map<Call, int> seen;
        std::vector<std::pair<Call, int>> calls;
        for (const Call call : recording.calls())
            calls.emplace_back(call, ++seen[call]);
        return calls;
    }

    support::TempFolder folder_;
    const std::string path_ = folder_.path("app.conf");
    const char *const file_ = path_.c_str();
};

TEST_P(PermissionBits, are_right_before_the_first_byte_and_when_the_file_is_renamed) {
    umask(077);  // takes from the new file what its readers need
    const auto looking = [this] {
        for (const std::string &name : folder_.names())
            EXPECT_EQ(mode_of(folder_.path(name)), kBits) << name;
    };
    const BeforeCall at_flush(Call::fflush, 1, looking);  // until then no byte of so small a text is in the file
    const BeforeCall at_rename(Call::rename, 1, looking);
    EXPECT_EQ(change(), 0);
    EXPECT_TRUE(at_flush.ran());
    EXPECT_TRUE(at_rename.ran());
    EXPECT_EQ(mode_of(path_), kBits);
}

TEST_P(PermissionBits, are_never_wider_at_any_call_of_a_change) {
    int new_files_seen = 0;
    for (const auto &[call, nth] : calls_of_a_change()) {
        renew();
        const BeforeCall look(call, nth, [&] {
            const support::Undisturbed looking;
            expect_narrow("before call " + std::to_string(static_cast<int>(call)));
            new_files_seen += folder_.names().size() > 1;
        });
        EXPECT_EQ(change(), 0);
        EXPECT_TRUE(look.ran());
        expect_narrow("at the end");
    }
    EXPECT_GE(new_files_seen, 4) << "the new text's file was hardly ever there";
}

TEST_P(PermissionBits, are_never_wider_after_a_kill_at_any_call_of_a_change) {
    int new_files_left = 0;
    for (const auto &[call, nth] : calls_of_a_change()) {
        renew();
        const pid_t changer = start_endless_child([this, call = call, nth = nth] {
            const BeforeCall end(call, nth, [] { raise(SIGKILL); });
            return change();
        });
        EXPECT_EQ(support::wait_for(changer), 128 + SIGKILL);
        expect_narrow("after a kill before call " + std::to_string(static_cast<int>(call)));
        EXPECT_EQ(mode_of(path_), kBits);
        new_files_left += folder_.names().size() > 1;

        // The next change takes nothing over from the killed one but the lock.
        unlink("/var/lock/_app.conf.lck");
        EXPECT_EQ(change(), 0);
        expect_narrow("after the next change");
    }
    EXPECT_GE(new_files_left, 4) << "the new text's file was hardly ever there";
}

TEST_P(PermissionBits, stay_when_four_processes_change_the_file) {
    constexpr int kWriters = 4;
    std::vector<pid_t> writers;
    for (int writer = 0; writer < kWriters; writer++)
        writers.push_back(support::start_child([this, writer] {
            for (int number = 0; number < 100; number++)
                if (change("k" + std::to_string(writer), std::to_string(number)) != 0)
                    return 1;
            return 0;
        }));
    for (const pid_t writer : writers)
        EXPECT_EQ(support::wait_for(writer), 0);
    EXPECT_EQ(mode_of(path_), kBits);
}

// Looks without a pause, as fast as it can, until thousands of changes are done and it saw the new text's file often.
TEST_P(PermissionBits, are_never_wider_for_a_watcher_of_thousands_of_changes) {
    struct Progress {
        int changes = 0;
        int stop = 0;
        int ended = 0;
    };
    Shared<Progress> progress;
    const pid_t changer = start_endless_child([&] {
        int result = 0;
        while (result == 0 && __atomic_load_n(&progress->stop, __ATOMIC_ACQUIRE) == 0) {
            result = change("k", std::to_string(progress->changes));
            __atomic_add_fetch(&progress->changes, 1, __ATOMIC_RELEASE);
        }
        __atomic_store_n(&progress->ended, 1, __ATOMIC_RELEASE);
        return result == 0 ? 0 : 1;
    });
    const std::string temporary =
        std::string(GetParam().name) == "Editor" ? path_ + ".tmp" : path_ + ".tmp." + std::to_string(changer);
    int seen = 0;
    const auto enough = [&] { return seen >= 20 && __atomic_load_n(&progress->changes, __ATOMIC_ACQUIRE) >= 2000; };
    unsigned wide = 0;
    while (!enough() && wide == 0 && __atomic_load_n(&progress->ended, __ATOMIC_ACQUIRE) == 0) {
        wide = too_wide(path_) | too_wide(temporary);
        seen += support::exists(temporary);
    }
    EXPECT_EQ(wide, 0U) << "after " << progress->changes << " changes";
    __atomic_store_n(&progress->stop, 1, __ATOMIC_RELEASE);
    EXPECT_EQ(support::wait_for(changer), 0);
    EXPECT_EQ(mode_of(path_), kBits);
}

TEST_P(PermissionBits, are_what_the_umask_leaves_where_there_was_no_file) {
    unlink(file_);
    umask(023);
    if (std::string(GetParam().name) == "SectionMerger") {
        EXPECT_EQ(change(), -ENOENT) << "a merge needs a section to merge into";
        return;
    }
    EXPECT_EQ(change(), 0);
    EXPECT_EQ(mode_of(path_), 0644U);
}

TEST_P(PermissionBits, of_a_file_left_by_a_killed_process_are_no_matter) {
    // Its readers may still hold it open: the new text must not go there.
    const std::string temporary =
        std::string(GetParam().name) == "Editor" ? path_ + ".tmp" : path_ + ".tmp." + std::to_string(getpid());
    support::write_file(temporary, "left\n");
    ASSERT_EQ(chmod(temporary.c_str(), 0666), 0);
    const std::string other_name = folder_.path("other");
    ASSERT_EQ(link(temporary.c_str(), other_name.c_str()), 0);

    EXPECT_EQ(change(), 0);
    EXPECT_EQ(mode_of(path_), kBits);
    EXPECT_EQ(support::read_file(other_name), "left\n");
}

INSTANTIATE_TEST_SUITE_P(EachWay, PermissionBits, testing::ValuesIn(kWays),
                         [](const auto &way) { return std::string(way.param.name); });

class EditedBits : public ConfFileTest {};

TEST_F(EditedBits, are_not_widened_again_after_a_wait_for_the_lock) {
    write("[a]\nx = 1\n");
    ASSERT_EQ(chmod(file_, 0644), 0);
    const BeforeCall at_lock(Call::open, 1, [this] { chmod(file_, 0600); });
    EXPECT_EQ(Set_Conf_File_String_Value(file_, "a", "x", "2"), 0);
    EXPECT_TRUE(at_lock.ran());
    EXPECT_EQ(mode_of(path_), 0600U);
}

TEST_F(EditedBits, are_those_of_a_file_that_somebody_made_during_the_wait_for_the_lock) {
    const mode_t outer = umask(0);
    const BeforeCall at_lock(Call::open, 1, [this] {
        write("[a]\nx = 1\n");
        chmod(file_, 0600);
    });
    EXPECT_EQ(Set_Conf_File_String_Value(file_, "a", "x", "2"), 0);
    umask(outer);
    EXPECT_EQ(mode_of(path_), 0600U);
}

}  // namespace
