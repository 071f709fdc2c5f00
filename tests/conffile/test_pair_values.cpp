// Setting several keys of one section of a file.
#include <algorithm>

#include "conf_file_test.h"

using lists::Conf;
using lists::make_pairs;
using lists::Messages;
using lists::PairList;
using lists::Pairs;
using support::Call;
using support::FailCall;
using testing::AllOf;
using testing::Contains;
using testing::EndsWith;
using testing::StartsWith;

namespace {

class PairValues : public ConfFileTest {
  protected:
    int32_t set(const char *section, const Pairs &pairs) const {
        const PairList given = make_pairs(pairs);
        const int32_t result = Set_Conf_File_Pair_Values(file_, section, given);
        EXPECT_EQ(lists::pairs_of(given), pairs) << "the caller's pairs were changed";
        return result;
    }

    static std::string debug(const std::string &text) { return "[debug] Set_Conf_File_Pair_Values(#): " + text + "\n"; }

    // The call says these messages, answers 0 all the same, and leaves the file as it was.
    void expect_only_said(const Messages &messages, const std::function<int32_t()> &call) const {
        const FileState before = state_of(path_);
        EXPECT_EQ(observe(call), (Outcome{0, messages}));
        EXPECT_EQ(state_of(path_), before);
        EXPECT_EQ(folder_.names(), std::vector<std::string>{"app.conf"});
    }
    int32_t set() const { return set("a", {{"x", "a longer value"}, {"n", "2"}}); }

    // What is said over all runs with one allocation failing; each run leaves the file as it was or writes it whole.
    Messages said_without_memory(const std::string &text, const std::function<int32_t()> &call) {
        Messages said;
        for (int nth = 1; nth < 100; nth++) {
            SCOPED_TRACE(nth);
            if (text.empty())
                unlink(file_);
            else
                write(text);
            int failed = 0;
            const Outcome outcome = observe([&] {
                const FailCall fault(Call::allocation, ENOMEM, nth);
                const int32_t result = call();
                failed = fault.failed();
                return result;
            });
            EXPECT_EQ(outcome.result, 0);
            expect_nothing_left();
            if (failed == 0)
                return said;
            said.insert(said.end(), outcome.messages.begin(), outcome.messages.end());
            // Other messages stand for memory that is not vital: the reader goes on with what it has read.
            if (!outcome.messages.empty() && outcome.messages.back().starts_with("[debug] Set_Conf_File_Pair_Values")) {
                EXPECT_EQ(support::exists(path_) ? content() : "", text);
            }
        }
        return said;
    }
};

TEST_F(PairValues, sets_known_keys_in_place_and_adds_what_is_missing) {
    struct Row {
        const char *before;
        const char *section;
        Pairs pairs;
        const char *after;
    };
    const Row rows[] = {
        {"[a]\nx=1\ny=2\nx=3\n[a]\nx=4\n",
         "a",
         {{"x", "one"}, {"n", "5"}},
         "[a]\nx = one\ny = 2\nx = 3\nn = 5\n\n[a]\nx = 4\n\n"},
        {"[a]\nx=1", "a", {{"n", "1"}, {"n", "22"}, {"n", "3"}}, "[a]\nx = 1\nn = 3\n\n"},
        {"# c\n[a]\n\n;d\nx=1\nbad\n", "b", {{"y", "2"}, {"z", ""}}, "[a]\nx = 1\n\n[b]\ny = 2\nz = \n\n"},
        {"g=0\n[a]\nx=1\n", "", {{"g", "1"}, {"h", "2"}}, "g = 1\nh = 2\n\n[a]\nx = 1\n\n"},
        {"[]\nx=1\n", "", {{"x", "2"}}, "x = 2\n\n"},
        // A new global section comes last and has no header, so it reads as part of the section before it.
        {"[a]\nx=1\n", "", {{"g", "1"}, {"h", "2"}}, "[a]\nx = 1\n\ng = 1\nh = 2\n\n"},
        // In a file without sections each given pair is taken as it is, also a key that repeats.
        {"", "a", {{"n", "1"}, {"n", "2"}}, "[a]\nn = 1\nn = 2\n\n"},
        {"\n# only a comment\nbad\n", "a", {{"n", "1"}, {"n", "2"}}, "[a]\nn = 1\nn = 2\n\n"},
        {"", "", {{"n", "1"}, {"m", ""}}, "n = 1\nm = \n\n"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.before));
        write(row.before);
        const int32_t result = set(row.section, row.pairs);
        EXPECT_EQ(result, 0);
        EXPECT_EQ(content(), row.after);
        expect_nothing_left();
    }
}

TEST_F(PairValues, creates_a_missing_file) {
    const mode_t outer = umask(027);
    EXPECT_EQ(observe([this] { return set("a", {{"n", "1"}, {"n", "2"}}); }), (Outcome{0, {}}));
    umask(outer);
    EXPECT_EQ(content(), "[a]\nn = 1\nn = 2\n\n");
    EXPECT_EQ(mode_of(path_), 0640U);

    unlink(file_);
    EXPECT_EQ(set("", {{"g", "1"}}), 0);
    EXPECT_EQ(content(), "g = 1\n\n");
}

TEST_F(PairValues, keeps_the_mode_and_replaces_a_link) {
    const std::string real = folder_.file("real", "[a]\n");
    ASSERT_EQ(symlink("real", file_), 0);
    EXPECT_EQ(set(), 0);
    EXPECT_TRUE(S_ISREG(status_of(path_).st_mode));
    EXPECT_EQ(support::read_file(real), "[a]\n");

    ASSERT_EQ(chmod(file_, 02640), 0);
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(mode_of(path_), 02640U);
}

TEST_F(PairValues, takes_a_pair_without_value_for_a_removal) {
    write("[a]\nx = 1\ny = 2\n");
    const PairList given = make_pairs({{"x", ""}});
    given->pszValue = nullptr;
    EXPECT_EQ(Set_Conf_File_Pair_Values(file_, "a", given), 0);
    EXPECT_EQ(content(), "[a]\ny = 2\n\n");
}

TEST_F(PairValues, refuses_null_arguments) {
    write("[a]\n");
    const FileState before = state_of(path_);
    const PairList given = make_pairs({{"x", "1"}});
    EXPECT_EQ(observe([&] { return Set_Conf_File_Pair_Values(nullptr, "a", given); }), (Outcome{-EINVAL, {}}));
    EXPECT_EQ(observe([&] { return Set_Conf_File_Pair_Values(file_, nullptr, given); }), (Outcome{-EINVAL, {}}));
    EXPECT_EQ(observe([&] { return Set_Conf_File_Pair_Values(file_, "a", nullptr); }), (Outcome{-EINVAL, {}}));
    EXPECT_EQ(state_of(path_), before);
}

TEST_F(PairValues, only_says_that_it_has_no_lock) {
    write("[a]\n");
    const support::FakeClock clock;
    const std::string no_lock = debug("Can't get file lock of " + path_ + " error!");
    {
        const ForeignLock lock(lock_, clock.now());
        const Messages timed_out = {
            "[error] Get_File_Lock(#): Get lock file \"" + lock_ + "\" timeout! (10001 < 10000)\n", no_lock};
        const FileState before = state_of(path_);
        EXPECT_EQ(observe([this] { return set(); }), (Outcome{0, timed_out}));
        EXPECT_EQ(state_of(path_), before);
    }
    const std::string too_long = folder_.path(std::string(241, 'n'));
    const PairList given = make_pairs({{"x", "1"}});
    EXPECT_EQ(observe([&] { return Set_Conf_File_Pair_Values(too_long.c_str(), "a", given); }),
              (Outcome{0, {debug("Can't get file lock of " + too_long + " error!")}}));
    EXPECT_FALSE(support::exists(too_long));
}

TEST_F(PairValues, only_says_that_the_file_cant_be_read) {
    ASSERT_EQ(mkdir(file_, 0), 0);
    ASSERT_EQ(chmod(file_, 0755), 0);
    EXPECT_EQ(
        observe([this] { return set(); }),
        (Outcome{
            0,
            {"[debug] Cache_Conf_File(#): The specified file \"" + path_ + "\" is not a regular file error! (41ED)\n",
             "[debug] Read_Conf_File(#): Can't cache the specified conf file \"" + path_ + "\" error (-123)!\n",
             debug("Can't parse the conf file " + path_ + " error! (-123)")}}));
    ASSERT_EQ(rmdir(file_), 0);

    write("[a]\nx = 1\n");
    expect_only_said({"[debug] Cache_Conf_File(#): Can't stat the conf file \"" + path_ + "\" error! (-13)\n",
                      "[debug] Read_Conf_File(#): Can't cache the specified conf file \"" + path_ + "\" error (-13)!\n",
                      debug("Can't parse the conf file " + path_ + " error! (-13)")},
                     [this] {
                         const FailCall fault(Call::fstatat, EACCES);
                         return set();
                     });
}

TEST_F(PairValues, only_says_that_the_file_cant_be_written) {
    write("[a]\nx = 1\n");
    const std::string temporary = path_ + ".tmp." + std::to_string(getpid());
    expect_only_said({"[error] Update_Conf_File(#): Can't rename conf file \"" + temporary + "\" error! (-18)\n",
                      debug("Can't update the conf file \"" + path_ + "\" error! (-18)")},
                     [this] {
                         const FailCall fault(Call::rename, EXDEV);
                         return set();
                     });
    ASSERT_EQ(mkdir(temporary.c_str(), 0755), 0);
    const Outcome outcome = observe([this] { return set(); });
    EXPECT_EQ(rmdir(temporary.c_str()), 0);
    EXPECT_EQ(outcome,
              (Outcome{0,
                       {"[error] Write_Conf_File(#): Can't open file " + temporary + " error! (-21)\n",
                        "[error] Update_Conf_File(#): Can't write conf file \"" + temporary + "\" error! (-21)\n",
                        debug("Can't update the conf file \"" + path_ + "\" error! (-21)")}}));
    EXPECT_EQ(content(), "[a]\nx = 1\n");

    const std::string missing = folder_.path("missing/app.conf");
    const PairList given = make_pairs({{"x", "1"}});
    EXPECT_EQ(Set_Conf_File_Pair_Values(missing.c_str(), "a", given), 0);
}

TEST_F(PairValues, only_says_that_it_has_no_memory_for_a_new_file) {
    const Messages said =
        said_without_memory("", [this, given = std::make_shared<PairList>(make_pairs({{"x", "1"}, {"y", "2"}}))] {
            return Set_Conf_File_Pair_Values(file_, "a", *given);
        });
    EXPECT_THAT(said, Contains(debug("Can'r create a sect node error! (-12, a)")));
    EXPECT_THAT(said, Contains(debug("Can't create a pair node error! (-12, x, 1)")));
    EXPECT_THAT(said, Contains(debug("Can't create a pair node error! (-12, y, 2)")));
}

TEST_F(PairValues, only_says_that_it_has_no_memory_for_a_change) {
    const PairList given = make_pairs({{"x", "longer"}, {"new", "2"}});
    const Messages said =
        said_without_memory("[a]\nx = 1\n", [&] { return Set_Conf_File_Pair_Values(file_, "a", given); });
    for (const auto &[key, value] : lists::pairs_of(given))
        EXPECT_THAT(said, Contains(AllOf(StartsWith("[debug] Set_Conf_File_Pair_Values(#): Can't set conf string 0x"),
                                         EndsWith("/a/" + key + "/" + value + " error! (-12)\n"))));
}

TEST_F(PairValues, says_its_debug_messages_at_level_three_only) {
    write("[a]\n");
    EXPECT_EQ(observe(
                  [this] {
                      const FailCall fault(Call::fstatat, EACCES);
                      return set();
                  },
                  2),
              (Outcome{0, {}}));
}

TEST_F(PairValues, holds_the_lock_from_the_read_to_the_mode) {
    expect_lock_from_read_to_mode([this] { return set(); });
}

}  // namespace
