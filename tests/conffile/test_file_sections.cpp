// Whole sections of a file: fetching, replacing, removing, merging.
#include "conf_file_test.h"

using lists::Conf;
using lists::ConfList;
using lists::make_conf;
using lists::Pairs;
using support::Call;
using support::FailCall;
using testing::AnyOf;
using testing::HasSubstr;

namespace {

const std::string kText = "# c\ng=0\n[a]\nx=1\n\n;d\n[b]\ny = 2\n[a]\nx = 3\n";
const Conf kConf = {{"", {{"g", "0"}}}, {"a", {{"x", "1"}}}, {"b", {{"y", "2"}}}, {"a", {{"x", "3"}}}};

std::string debug(const std::string &function, const std::string &text) {
    return "[debug] " + function + "(#): " + text + "\n";
}

class FileSections : public ConfFileTest {
  protected:
    // What every one of the functions says of a file that can't be read, after what the reading itself says.
    lists::Messages unreadable(const std::string &function, const std::string &cause, int error) const {
        const std::string code = std::to_string(-error);
        lists::Messages messages = {
            debug("Cache_Conf_File", cause),
            debug("Read_Conf_File", "Can't cache the specified conf file \"" + path_ + "\" error (" + code + ")!")};
        if (!function.empty())
            messages.push_back(debug(function, "Can't parse the conf file " + path_ + " error! (" + code + ")"));
        return messages;
    }

    void make_folder() const { ASSERT_TRUE(mkdir(file_, 0755) == 0 && chmod(file_, 0755) == 0); }
    lists::Messages is_a_folder(const std::string &function) const {
        return unreadable(function, "The specified file \"" + path_ + "\" is not a regular file error! (41ED)",
                          ENOMEDIUM);
    }

    // What the changing functions say when the new file can't be opened, renamed or given its mode.
    void expect_update_failures(const std::string &function, const std::function<int32_t()> &call) const {
        const std::string temporary = path_ + ".tmp." + std::to_string(getpid());
        struct Row {
            Call fails;
            int nth;
            int error;
            lists::Messages messages;
        };
        const Row rows[] = {
            {Call::openat,
             3,  // after the folder and the old file
             EACCES,
             {"[error] Write_Conf_File(#): Can't open file " + temporary + " error! (-13)\n",
              "[error] Update_Conf_File(#): Can't write conf file \"" + temporary + "\" error! (-13)\n"}},
            {Call::rename,
             1,
             EXDEV,
             {"[error] Update_Conf_File(#): Can't rename conf file \"" + temporary + "\" error! (-18)\n"}},
            {Call::fchmod, kLastMode, EPERM, {"[error] Update_Conf_File(#): Can't chmod to " + path_ + "! (-1)\n"}},
        };
        for (const Row &row : rows) {
            SCOPED_TRACE(row.messages[0]);
            write(kText);
            lists::Messages messages = row.messages;
            messages.push_back(debug(
                function, "Can't update the conf file \"" + path_ + "\" error! (" + std::to_string(-row.error) + ")"));
            EXPECT_EQ(observe([&] {
                          const FailCall fault(row.fails, row.error, row.nth);
                          return call();
                      }),
                      (Outcome{-row.error, messages}));
            if (row.fails != Call::fchmod) {
                EXPECT_EQ(content(), kText);
            }
            expect_nothing_left();
        }
    }

    // Somebody else holds the lock: the call gives up after ten seconds and touches nothing.
    void expect_locked_out(const std::string &function, const std::function<int32_t()> &call) const {
        write(kText);
        const FileState before = state_of(path_);
        const support::FakeClock clock;
        const ForeignLock lock(lock_, clock.now());
        EXPECT_EQ(observe(call),
                  (Outcome{-ENOLCK,
                           {"[error] Get_File_Lock(#): Get lock file \"" + lock_ + "\" timeout! (10001 < 10000)\n",
                            debug(function, "Can't get file lock of " + path_ + " error!")}}));
        EXPECT_EQ(state_of(path_), before);
    }

    // Runs a change with each allocation failing: the file is as it was, or as it should be.
    void expect_all_or_nothing(const std::function<int32_t()> &call, const std::string &after) const {
        int failures = 0;
        with_each_allocation_failing([this] { write(kText); }, call,
                                     [&](int32_t result) {
                                         EXPECT_THAT(result, AnyOf(0, -ENOMEM));
                                         if (result != 0) {
                                             EXPECT_EQ(content(), kText);
                                         } else {
                                             // Without memory for a section's node the reading ends there.
                                             EXPECT_TRUE(content() == after || content().size() < after.size());
                                         }
                                         expect_nothing_left();
                                         failures += result != 0;
                                     });
        EXPECT_GE(failures, 1);
        write(kText);
        EXPECT_EQ(call(), 0);
        EXPECT_EQ(content(), after);
    }
};

class SectionReader : public FileSections {
  protected:
    int32_t get(const char *section) { return Get_Conf_File_Section(file_, section, section_.head()); }
    // A section from before the call, which must not be there after a failure.
    Sect_Node *const stale_ = reinterpret_cast<Sect_Node *>(this);
    ConfList section_;
};

TEST_F(SectionReader, hands_out_the_first_section_of_the_name_alone) {
    const std::pair<const char *, Conf> rows[] = {{"", {kConf[0]}}, {"a", {kConf[1]}}, {"b", {kConf[2]}}};
    for (const auto &[name, expected] : rows) {
        SCOPED_TRACE(name);
        write(kText);
        const FileState before = state_of(path_);
        section_ = ConfList();
        EXPECT_EQ(observe([&, wanted = name] { return get(wanted); }), (Outcome{0, {}}));
        EXPECT_EQ(lists::conf_of(section_), expected);
        EXPECT_EQ(state_of(path_), before);
    }
}

TEST_F(SectionReader, hands_out_a_section_without_pairs) {
    write("[a]\n[b]\ny = 2\n");
    EXPECT_EQ(get("a"), 0);
    EXPECT_EQ(lists::conf_of(section_), (Conf{{"a", {}}}));
}

TEST_F(SectionReader, takes_a_header_without_a_name_for_the_global_section) {
    write("[a]\nx = 1\n[]\ny = 2\n");
    EXPECT_EQ(get(""), 0);
    EXPECT_EQ(lists::conf_of(section_), (Conf{{"", {{"y", "2"}}}}));
}

TEST_F(SectionReader, tells_that_there_is_no_such_section) {
    struct Row {
        const char *text;
        const char *section;
    };
    const Row rows[] = {{"", "a"},      {"", ""},        {"[a]\nx = 1\n", ""}, {"# c\n\n[a]\n", ""}, {"x = 1\n", "a"},
                        {"[a]\n", "A"}, {"[a ]\n", "a"}, {"[ab]\n", "a"},      {"[a\n", "a"}};
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        write(row.text);
        *section_.head() = stale_;
        EXPECT_EQ(get(row.section), -ENOANO);
        EXPECT_EQ(*section_.head(), nullptr);
    }
}

TEST_F(SectionReader, refuses_null_arguments) {
    write(kText);
    EXPECT_EQ(observe([this] { return Get_Conf_File_Section(nullptr, "a", section_.head()); }), (Outcome{-EINVAL, {}}));
    EXPECT_EQ(observe([this] { return get(nullptr); }), (Outcome{-EINVAL, {}}));
    EXPECT_EQ(observe([this] { return Get_Conf_File_Section(file_, "a", nullptr); }), (Outcome{-EINVAL, {}}));
}

TEST_F(SectionReader, reports_what_the_reading_reports) {
    *section_.head() = stale_;
    EXPECT_EQ(observe([this] { return get("a"); }), (Outcome{-ENOENT, {}}));
    EXPECT_EQ(*section_.head(), nullptr);

    make_folder();
    *section_.head() = stale_;
    EXPECT_EQ(observe([this] { return get("a"); }), (Outcome{-ENOMEDIUM, is_a_folder("")}));
    EXPECT_EQ(*section_.head(), nullptr);
}

TEST_F(SectionReader, takes_no_lock_and_waits_for_none) {
    write(kText);
    const support::FakeClock clock;
    const ForeignLock lock(lock_, clock.now());
    EXPECT_EQ(get("b"), 0);
    EXPECT_EQ(clock.sleeps(), 0);
}

class SectionSetter : public FileSections {
  protected:
    ~SectionSetter() override { node_->pNext = nullptr; }

    int32_t set(const char *name, Sect_Node *section) const { return Set_Conf_File_Section(file_, name, section); }
    int32_t set() const { return set("a", node_); }

    // Pairs that are set, in a node that is the first of a chain: only this one node is to be written.
    const Pairs pairs_ = {{"n", "1"}, {"n", "2"}, {"empty", ""}};
    ConfList chain_ = make_conf({{"a", pairs_}, {"behind", {{"not", "written"}}}});
    Sect_Node *const node_ = chain_;
    ConfList behind_{node_->pNext};
    const std::string lines_ = "n = 1\nn = 2\nempty = \n\n";

    void expect_node_is_the_callers() const {
        EXPECT_EQ(node_->pNext, nullptr);
        EXPECT_EQ(lists::conf_of(node_), (Conf{{"a", pairs_}}));
    }
};

TEST_F(SectionSetter, replaces_the_first_section_of_the_name_in_its_place) {
    write(kText);
    EXPECT_EQ(observe([this] { return set(); }), (Outcome{0, {}}));
    EXPECT_EQ(content(), "g = 0\n\n[a]\n" + lines_ + "[b]\ny = 2\n\n[a]\nx = 3\n\n");
    expect_node_is_the_callers();
}

TEST_F(SectionSetter, replaces_the_first_and_the_last_section) {
    write("[a]\nx = 1\n[b]\ny = 2\n");
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(content(), "[a]\n" + lines_ + "[b]\ny = 2\n\n");
    write("[b]\ny = 2\n[a]\nx = 1\n");
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(content(), "[b]\ny = 2\n\n[a]\n" + lines_);
    expect_node_is_the_callers();
}

TEST_F(SectionSetter, appends_a_new_section) {
    const std::pair<const char *, std::string> rows[] = {
        {"x=1\n[b]\ny=2", "x = 1\n\n[b]\ny = 2\n\n[a]\n" + lines_},
        {"", "[a]\n" + lines_},
        {"\n# only a comment\nnonsense\n", "[a]\n" + lines_},
    };
    for (const auto &[before, after] : rows) {
        SCOPED_TRACE(testing::PrintToString(before));
        write(before);
        node_->pNext = behind_;
        EXPECT_EQ(set(), 0);
        EXPECT_EQ(content(), after);
        expect_node_is_the_callers();
    }
}

TEST_F(SectionSetter, creates_a_missing_file) {
    const mode_t outer = umask(027);
    EXPECT_EQ(observe([this] { return set(); }), (Outcome{0, {}}));
    umask(outer);
    EXPECT_EQ(content(), "[a]\n" + lines_);
    EXPECT_EQ(mode_of(path_), 0640U);
    expect_node_is_the_callers();
}

TEST_F(SectionSetter, renames_the_section_to_the_nodes_own_name) {
    write(kText);
    EXPECT_EQ(set("b", node_), 0);
    EXPECT_EQ(lists::conf_in_file(path_), (Conf{kConf[0], kConf[1], {"a", pairs_}, kConf[3]}));
    EXPECT_EQ(set("new", node_), 0);
    EXPECT_EQ(lists::conf_in_file(path_), (Conf{kConf[0], kConf[1], {"a", pairs_}, kConf[3], {"a", pairs_}}));
    expect_node_is_the_callers();
}

TEST_F(SectionSetter, names_and_unnames_the_global_section) {
    write("g = 0\n[b]\ny = 2\n");
    EXPECT_EQ(set("", node_), 0);
    EXPECT_EQ(content(), "[a]\n" + lines_ + "[b]\ny = 2\n\n");

    const ConfList global = make_conf({{"", {{"g", "1"}}}});
    EXPECT_EQ(set("a", global), 0);
    EXPECT_EQ(content(), "g = 1\n\n[b]\ny = 2\n\n");

    // A file without a global section gets it at the end, where it has no header and so reads as part of the last.
    write("[b]\ny = 2\n");
    EXPECT_EQ(set("", global), 0);
    EXPECT_EQ(content(), "[b]\ny = 2\n\ng = 1\n\n");
    EXPECT_EQ(lists::conf_in_file(path_), (Conf{{"b", {{"y", "2"}, {"g", "1"}}}}));
}

TEST_F(SectionSetter, writes_a_section_without_pairs) {
    const ConfList empty = make_conf({{"a", {}}});
    write(kText);
    EXPECT_EQ(set("a", empty), 0);
    EXPECT_EQ(content(), "g = 0\n\n[a]\n\n[b]\ny = 2\n\n[a]\nx = 3\n\n");
}

TEST_F(SectionSetter, removes_the_first_section_of_the_name) {
    struct Row {
        const char *name;
        std::string after;
    };
    const Row rows[] = {
        {"a", "g = 0\n\n[b]\ny = 2\n\n[a]\nx = 3\n\n"},
        {"", "[a]\nx = 1\n\n[b]\ny = 2\n\n[a]\nx = 3\n\n"},
        {"b", "g = 0\n\n[a]\nx = 1\n\n[a]\nx = 3\n\n"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        write(kText);
        EXPECT_EQ(observe([&] { return set(row.name, nullptr); }), (Outcome{0, {}}));
        EXPECT_EQ(content(), row.after);
    }
    write("[a]\nx = 1\n");
    EXPECT_EQ(set("a", nullptr), 0);
    EXPECT_EQ(content(), "");
}

TEST_F(SectionSetter, does_not_rewrite_the_file_without_the_section_to_remove) {
    for (const char *text : {"# c\n[b]\ny=2", "", "\n\n# only a comment\n"}) {
        SCOPED_TRACE(testing::PrintToString(text));
        write(text);
        const FileState before = state_of(path_);
        EXPECT_EQ(observe([this] { return set("a", nullptr); }), (Outcome{-ENOANO, {}}));
        EXPECT_EQ(observe([this] { return set("", nullptr); }), (Outcome{-ENOANO, {}}));
        EXPECT_EQ(state_of(path_), before);
        expect_nothing_left();
    }
}

TEST_F(SectionSetter, finds_nothing_to_remove_from_a_missing_file) {
    EXPECT_EQ(observe([this] { return set("a", nullptr); }), (Outcome{-ENOENT, {}}));
    EXPECT_FALSE(support::exists(path_));
}

TEST_F(SectionSetter, leaves_the_chain_alone_where_nothing_was_changed) {
    node_->pNext = behind_;
    EXPECT_EQ(observe([this] { return Set_Conf_File_Section(nullptr, "a", node_); }), (Outcome{-EINVAL, {}}));
    EXPECT_EQ(observe([this] { return set(nullptr, node_); }), (Outcome{-EINVAL, {}}));
    EXPECT_EQ(node_->pNext, behind_);

    expect_locked_out("Set_Conf_File_Section", [this] { return set(); });
    EXPECT_EQ(node_->pNext, behind_);

    ASSERT_EQ(unlink(file_), 0);
    make_folder();
    EXPECT_EQ(observe([this] { return set(); }), (Outcome{-ENOMEDIUM, is_a_folder("Set_Conf_File_Section")}));
    EXPECT_EQ(node_->pNext, behind_);
    EXPECT_EQ(lists::conf_of(node_), (Conf{{"a", pairs_}, {"behind", {{"not", "written"}}}}));
}

TEST_F(SectionSetter, gives_the_node_back_after_a_failed_update) {
    expect_update_failures("Set_Conf_File_Section", [this] {
        node_->pNext = behind_;
        const int32_t result = set();
        expect_node_is_the_callers();
        return result;
    });
}

TEST_F(SectionSetter, survives_every_allocation_that_fails) {
    expect_all_or_nothing([this] { return set(); }, "g = 0\n\n[a]\n" + lines_ + "[b]\ny = 2\n\n[a]\nx = 3\n\n");
    expect_node_is_the_callers();
}

TEST_F(SectionSetter, keeps_the_mode_and_replaces_a_link) {
    write(kText);
    ASSERT_EQ(chmod(file_, 02640), 0);
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(mode_of(path_), 02640U);

    ASSERT_EQ(rename(file_, folder_.path("real").c_str()), 0);
    ASSERT_EQ(symlink("real", file_), 0);
    const FileState real = state_of(folder_.path("real"));
    EXPECT_EQ(set("b", nullptr), 0);
    EXPECT_TRUE(S_ISREG(status_of(path_).st_mode));
    EXPECT_EQ(state_of(folder_.path("real")), real);
}

TEST_F(SectionSetter, refuses_paths_too_long_for_a_temporary_name) {
    write(kText);
    const FileState before = state_of(path_);
    const size_t suffix = (".tmp." + std::to_string(getpid())).size();
    EXPECT_EQ(Set_Conf_File_Section(path_of_length(4096 - suffix).c_str(), "a", node_), -ENAMETOOLONG);
    EXPECT_EQ(state_of(path_), before);
    EXPECT_EQ(Set_Conf_File_Section(path_of_length(4095 - suffix).c_str(), "a", node_), 0);
    EXPECT_NE(content(), kText);
}

TEST_F(SectionSetter, holds_the_lock_from_the_read_to_the_mode) {
    expect_lock_from_read_to_mode([this] { return set(); });
}

class SectionMerger : public FileSections {
  protected:
    int32_t merge(const char *name, const Conf &conf) const {
        const ConfList given = make_conf(conf);
        const int32_t result = Update_Conf_File_Section(file_, name, given);
        EXPECT_EQ(lists::conf_of(given), conf) << "the caller's node was changed";
        return result;
    }
    int32_t merge() const { return merge("a", {{"other", {{"x", "a longer value"}, {"n", "1"}}}}); }
    const std::string merged_ = "g = 0\n\n[a]\nx = a longer value\nn = 1\n\n[b]\ny = 2\n\n[a]\nx = 3\n\n";
};

TEST_F(SectionMerger, sets_known_keys_in_place_and_appends_new_ones) {
    write("[s]\nk1 = 1\nk2 = 2\nk1 = again\n[t]\nk1 = 1\n");
    EXPECT_EQ(observe([this] { return merge("s", {{"s", {{"k1", "one"}, {"k9", "nine"}}}}); }), (Outcome{0, {}}));
    EXPECT_EQ(content(), "[s]\nk1 = one\nk2 = 2\nk1 = again\nk9 = nine\n\n[t]\nk1 = 1\n\n");
    EXPECT_EQ(merge("s", {{"s", {{"k1", "1"}, {"k8", "a"}, {"k8", "b"}, {"k9", ""}}}}), 0);
    EXPECT_EQ(content(), "[s]\nk1 = 1\nk2 = 2\nk1 = again\nk9 = \nk8 = b\n\n[t]\nk1 = 1\n\n");
}

TEST_F(SectionMerger, looks_at_neither_the_nodes_name_nor_what_follows_it) {
    write(kText);
    EXPECT_EQ(merge("a", {{"other", {{"x", "9"}}}, {"b", {{"y", "9"}}}}), 0);
    EXPECT_EQ(content(), "g = 0\n\n[a]\nx = 9\n\n[b]\ny = 2\n\n[a]\nx = 3\n\n");
    EXPECT_EQ(merge("", {{"b", {{"h", "1"}}}}), 0);
    EXPECT_EQ(content(), "g = 0\nh = 1\n\n[a]\nx = 9\n\n[b]\ny = 2\n\n[a]\nx = 3\n\n");
}

TEST_F(SectionMerger, rewrites_the_file_for_a_node_without_pairs) {
    write(kText);
    EXPECT_EQ(merge("b", {{"b", {}}}), 0);
    EXPECT_EQ(content(), "g = 0\n\n[a]\nx = 1\n\n[b]\ny = 2\n\n[a]\nx = 3\n\n");
}

TEST_F(SectionMerger, creates_no_section_and_does_not_rewrite_the_file) {
    for (const char *text : {"# c\n[b]\ny=2", "", "# only a comment\n"}) {
        SCOPED_TRACE(testing::PrintToString(text));
        write(text);
        const FileState before = state_of(path_);
        EXPECT_EQ(observe([this] { return merge(); }), (Outcome{-ENOANO, {}}));
        EXPECT_EQ(observe([this] { return merge("", {{"", {{"x", "1"}}}}); }), (Outcome{-ENOANO, {}}));
        EXPECT_EQ(state_of(path_), before);
        expect_nothing_left();
    }
}

TEST_F(SectionMerger, refuses_null_arguments) {
    write(kText);
    const FileState before = state_of(path_);
    const ConfList given = make_conf({kConf[1]});
    EXPECT_EQ(observe([&] { return Update_Conf_File_Section(nullptr, "a", given); }), (Outcome{-EINVAL, {}}));
    EXPECT_EQ(observe([&] { return Update_Conf_File_Section(file_, nullptr, given); }), (Outcome{-EINVAL, {}}));
    EXPECT_EQ(observe([&] { return Update_Conf_File_Section(file_, "a", nullptr); }), (Outcome{-EINVAL, {}}));
    EXPECT_EQ(state_of(path_), before);
}

TEST_F(SectionMerger, reports_a_file_that_is_missing_or_unreadable) {
    EXPECT_EQ(
        observe([this] { return merge(); }),
        (Outcome{-ENOENT, {debug("Update_Conf_File_Section", "Can't parse the conf file " + path_ + " error! (-2)")}}));
    EXPECT_FALSE(support::exists(path_));
    make_folder();
    EXPECT_EQ(observe([this] { return merge(); }), (Outcome{-ENOMEDIUM, is_a_folder("Update_Conf_File_Section")}));
}

TEST_F(SectionMerger, gives_up_without_the_lock) {
    expect_locked_out("Update_Conf_File_Section", [this] { return merge(); });
}

TEST_F(SectionMerger, reports_a_failed_update) {
    const ConfList given = make_conf({kConf[1]});
    expect_update_failures("Update_Conf_File_Section", [&] { return Update_Conf_File_Section(file_, "a", given); });
}

TEST_F(SectionMerger, writes_nothing_when_a_pair_cant_be_set) {
    write("[a]\nx = 1\n");
    const FileState before = state_of(path_);
    const ConfList given = make_conf({{"a", {{"x", "2"}, {"new", "value"}}}});
    const lists::Messages expected = {
        debug("Set_Pair_String_Value", "Can't create a pair node error! (-12, new, value)"),
        "[error] Update_Conf_File_Section(#): Can't set pair string new value! (-12)\n"};
    bool met = false;
    for (int nth = 1; !met && nth < 20; nth++) {
        write("[a]\nx = 1\n");
        const Outcome outcome = observe([&] {
            const FailCall fault(Call::allocation, ENOMEM, nth);
            return Update_Conf_File_Section(file_, "a", given);
        });
        met = outcome == Outcome{-ENOMEM, expected};
        if (met) {
            EXPECT_EQ(content(), before.content);
        }
    }
    EXPECT_TRUE(met) << "the pair's own allocation never failed with these messages";
}

TEST_F(SectionMerger, survives_every_allocation_that_fails) {
    const ConfList given = make_conf({{"a", {{"x", "a longer value"}, {"n", "1"}}}});
    expect_all_or_nothing(
        [&] {
            const int32_t result = Update_Conf_File_Section(file_, "a", given);
            return result == -ENOANO ? -ENOMEM : result;  // the section was behind the one that did not fit
        },
        merged_);
}

TEST_F(SectionMerger, keeps_the_mode) {
    write(kText);
    ASSERT_EQ(chmod(file_, 0600), 0);
    EXPECT_EQ(merge(), 0);
    EXPECT_EQ(mode_of(path_), 0600U);
    EXPECT_EQ(content(), merged_);
}

TEST_F(SectionMerger, holds_the_lock_from_the_read_to_the_mode) {
    expect_lock_from_read_to_mode([this] { return merge(); });
}

}  // namespace
