// Copying folder trees. Random trees beside another program's copies: test_tree_differential.cpp.
#include <gmock/gmock.h>

#include "trees.h"

using namespace fileio_test;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

class TreeCopy : public TreeTest {
  protected:
    int32_t copy() { return Copy_Folder_Tree(source_.c_str(), target_.c_str(), &stop_); }

    const std::string source_ = path("source");
    const std::string target_ = path("target");
    int32_t stop_ = 0;
};

std::string tree_error(const std::string &text) {
    return "[error] Copy_Folder_Tree_At(#): " + text + "\n";
}

std::string tree_debug(const std::string &text) {
    return "[debug] Copy_Folder_Tree_At(#): " + text + "\n";
}

// What the copy of a tree should look like, but for the times of folders that are not empty: a copied folder keeps the
// time of its last change, which no test can know.
std::vector<Entry> expected_copy(std::vector<Entry> entries) {
    std::erase_if(entries, [](const Entry &entry) {
        return !S_ISREG(entry.mode) && !S_ISDIR(entry.mode) && !S_ISLNK(entry.mode);
    });
    for (Entry &entry : entries) {
        if (S_ISREG(entry.mode))
            entry.mode &= S_IFMT | 0777;
        if (S_ISDIR(entry.mode) && !entry.path.empty())
            entry.modified = 0;
    }
    return entries;
}

std::vector<Entry> without_folder_times(std::vector<Entry> entries) {
    for (Entry &entry : entries)
        if (S_ISDIR(entry.mode) && !entry.path.empty())
            entry.modified = 0;
    return entries;
}

void expect_copied(const std::string &source, const std::string &target) {
    EXPECT_EQ(without_folder_times(list_tree(target)), expected_copy(list_tree(source)));
}

}  // namespace

TEST_F(TreeCopy, bad_arguments_are_refused) {
    make_tree(source_, {});
    LogCapture log;
    for (const int32_t bad : {-1, -99, -101, INT32_MIN}) {
        EXPECT_EQ(Copy_Folder_Tree_At(bad, source_.c_str(), AT_FDCWD, target_.c_str(), &stop_), -EINVAL);
        EXPECT_EQ(Copy_Folder_Tree_At(AT_FDCWD, source_.c_str(), bad, target_.c_str(), &stop_), -EINVAL);
    }
    EXPECT_EQ(Copy_Folder_Tree(nullptr, target_.c_str(), nullptr), -EINVAL);
    EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), nullptr, &stop_), -EINVAL);
    EXPECT_EQ(Copy_Folder_Tree_At(9999, "source", AT_FDCWD, target_.c_str(), &stop_), -EINVAL);  // not open

    EXPECT_THAT(folder_.names(), ElementsAre("source"));
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeCopy, everything_is_copied_but_what_is_no_file_link_or_folder) {
    const Umask narrow(077);
    make_tree(source_, kVariousPlans);
    LogCapture log;

    EXPECT_EQ(copy(), 0);

    expect_copied(source_, target_);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeCopy, the_flag_may_be_null) {
    make_tree(source_, kVariousPlans);
    EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), target_.c_str(), nullptr), 0);
    expect_copied(source_, target_);
}

TEST_F(TreeCopy, every_way_to_name_the_folders_serves) {
    make_tree(source_, {{"f", S_IFREG | 0640, "content"}, {"d", S_IFDIR | 0755}, {"d/g", S_IFREG | 0640}});
    EXPECT_EQ(symlink("source", path("link").c_str()), 0);
    EXPECT_EQ(mkdir(path("t").c_str(), 0755), 0);
    const OpenFolder home(folder_.path());
    const OpenFolder source(source_);
    const OpenFolder t(path("t"));
    const WorkingFolder here(path("t"));
    const struct {
        const char *what;
        int source_folder;
        std::string source;
        int target_folder;
        std::string target;
    } table[] = {
        {"descriptors", home.get(), "source", t.get(), "x"},
        {"relative to here", AT_FDCWD, "../source", AT_FDCWD, "x"},
        {"slashes at the ends", AT_FDCWD, source_ + "///", t.get(), "x/"},
        {"the descriptor's own folder", source.get(), ".", t.get(), "./x"},
        {"absolute names beside descriptors", t.get(), source_, home.get(), path("t/x")},
        {"absolute name, closed descriptor", 9999, source_, t.get(), "x"},
        {"through a link at the top", home.get(), "link", t.get(), "x"},
    };

    for (const auto &row : table) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(
            Copy_Folder_Tree_At(row.source_folder, row.source.c_str(), row.target_folder, row.target.c_str(), nullptr),
            0);
        expect_copied(source_, path("t/x"));
        std::filesystem::remove_all(path("t/x"));
    }
}

TEST_F(TreeCopy, a_source_that_is_no_folder_is_refused) {
    make_tree(folder_.path(), kNoFolderPlans);
    for (const NoFolder &row : kNoFolders) {
        SCOPED_TRACE(row.name);
        const std::string source = path(row.name);
        LogCapture log;
        EXPECT_EQ(Copy_Folder_Tree(source.c_str(), target_.c_str(), &stop_), -row.error);
        EXPECT_THAT(log.messages(),
                    ElementsAre(tree_debug(row.is_there ? "The source path " + source + " is not a folder error!, -20"
                                                        : row.cant_look_at(source))));
        EXPECT_FALSE(exists(target_));
    }
}

TEST_F(TreeCopy, an_empty_name_names_nothing) {
    make_tree(source_, {{"f", S_IFREG | 0644}});
    const WorkingFolder here(source_);
    EXPECT_EQ(Copy_Folder_Tree("", target_.c_str(), &stop_), -ENOENT);
    EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), "", &stop_), -ENOENT);
    EXPECT_THAT(paths_in(folder_.path()), ElementsAre("source", "source/f"));
}

TEST_F(TreeCopy, a_target_that_is_no_folder_is_refused) {
    make_tree(source_, {{"f", S_IFREG | 0644}});
    make_tree(folder_.path(), {{"dir", S_IFDIR | 0755},
                               {"file", S_IFREG | 0600, "x"},
                               {"link", S_IFLNK, "dir"},
                               {"dangling", S_IFLNK, "none"}});
    const std::vector<Entry> before = list_tree(folder_.path());

    for (const char *name : {"file", "link", "dangling"}) {
        SCOPED_TRACE(name);
        LogCapture log;
        EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), path(name).c_str(), &stop_), -ENOTDIR);
        EXPECT_EQ(list_tree(folder_.path()), before);
        EXPECT_THAT(log.messages(), ElementsAre(tree_debug("The destination path (-100, " + path(name) +
                                                           ") is not a folder error!, -20")));
    }
}

TEST_F(TreeCopy, a_target_that_cannot_be_made_is_an_error) {
    make_tree(source_, {{"", S_IFDIR | 0755}});
    LogCapture log(1);
    EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), path("none/target").c_str(), &stop_), -ENOENT);
    EXPECT_THAT(log.messages(), ElementsAre(tree_error("Can't mkdirat the dst folder (-100, " + path("none/target") +
                                                       ", 40755) error! (-2)")));
}

TEST_F(TreeCopy, mode_and_owner_of_the_top_must_be_set) {
    make_tree(source_, {{"", S_IFDIR | 0755, "", kThen, 12, 34}, {"f", S_IFREG | 0644}});
    const struct {
        Call call;
        std::string message;
    } table[] = {
        {Call::fchmodat, "Can't fchmodat the dest folder (-100, " + target_ + ", 16877) error! (-5)"},
        {Call::fchownat, "Can't fchownat the dest folder (-100, " + target_ + ", 12, 34) error! (-5)"},
    };

    for (const auto &row : table) {
        LogCapture log;
        const FailCall fault(row.call, EIO);
        EXPECT_EQ(copy(), -EIO);
        EXPECT_THAT(paths_in(target_), IsEmpty());
        EXPECT_THAT(log.messages(), ElementsAre(tree_error(row.message)));
        std::filesystem::remove_all(target_);
    }
}

TEST_F(TreeCopy, an_existing_top_folder_becomes_like_the_source) {
    make_tree(source_, kVariousPlans);
    make_tree(target_,
              {{"", S_IFDIR | 0700, "", 5}, {"file", S_IFREG | 0777, bytes(99'999)}, {"more", S_IFREG | 0600}});

    EXPECT_EQ(copy(), 0);

    EXPECT_EQ(read_file(target_ + "/more"), "");
    EXPECT_EQ(unlink((target_ + "/more").c_str()), 0);
    set_time(target_, modified(source_));
    expect_copied(source_, target_);
}

TEST_F(TreeCopy, the_top_folders_own_are_not_set_where_they_fit) {
    make_tree(source_, {{"", S_IFDIR | 02750, "", kThen, 12, 34}});
    make_tree(target_, {{"", S_IFDIR | 02750, "", 5, 12, 34}});
    const CountCalls modes(Call::fchmodat);
    const CountCalls owners(Call::fchownat);

    EXPECT_EQ(copy(), 0);

    EXPECT_EQ(modes.count(), 0);
    EXPECT_EQ(owners.count(), 0);
    EXPECT_EQ(modified(target_), kThen);
}

TEST_F(TreeCopy, a_folder_below_the_top_must_not_exist) {
    make_tree(source_, {{"", S_IFDIR | 0755}, {"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0644}});
    make_tree(target_, {{"d", S_IFDIR | 0700, "", 5}});
    LogCapture log;

    EXPECT_EQ(copy(), -EEXIST);

    EXPECT_THAT(paths_in(target_), ElementsAre("d"));
    EXPECT_EQ(modified(target_ + "/d"), 5);
    EXPECT_NE(modified(target_), modified(source_));
    EXPECT_THAT(log.messages(), ElementsAre("[error] Copy_Folder_At(#): Can't mkdirat the folder (-100, " + target_ +
                                                "/d, 40755) error! (-17)\n",
                                            tree_debug("Can't create folder (-100, " + target_ + ") error! (-17)")));
}

TEST_F(TreeCopy, a_link_must_not_exist) {
    make_tree(source_, {{"l", S_IFLNK, "x"}});
    make_tree(target_, {{"l", S_IFREG | 0600, "kept"}});
    LogCapture log;

    EXPECT_EQ(copy(), -EEXIST);

    EXPECT_EQ(read_file(target_ + "/l"), "kept");
    EXPECT_THAT(log.messages(),
                ElementsAre("[error] Copy_Symlink_At(#): symlinkat(x, -100, " + target_ + "/l) error! (-17)\n",
                            tree_debug("Can't create symlink (-100, " + target_ + ") error! (-17)")));
}

TEST_F(TreeCopy, a_file_that_cannot_be_copied_ends_the_walk) {
    make_tree(source_, {{"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0644}});
    make_tree(target_, {{"other", S_IFREG | 0644}});
    LogCapture log;
    const FailCall fault(Call::fchown, EDQUOT);

    EXPECT_EQ(copy(), -EDQUOT);

    EXPECT_THAT(paths_in(target_), ElementsAre("d", "other"));
    EXPECT_THAT(log.messages(), ElementsAre(tree_debug("Can't copy file (" + source_ + "/d/f -> -100, " + target_ +
                                                       ") error! (-122)")));
}

TEST_F(TreeCopy, only_the_top_gets_the_time_of_its_source) {
    make_tree(source_, {{"", S_IFDIR | 0755, "", 1},
                        {"full", S_IFDIR | 0755, "", 2},
                        {"full/f", S_IFREG | 0644},
                        {"empty", S_IFDIR | 0755, "", 3}});
    const int64_t start = now();

    EXPECT_EQ(copy(), 0);

    EXPECT_EQ(modified(target_), 1);
    EXPECT_EQ(nanoseconds(status_of(target_).st_atim), 1);
    EXPECT_GE(modified(target_ + "/full"), start);
    EXPECT_EQ(modified(target_ + "/empty"), 3);
}

TEST_F(TreeCopy, the_top_has_the_time_of_each_subfolder_on_the_way) {
    make_tree(source_,
              {{"", S_IFDIR | 0755, "", 1}, {"a", S_IFDIR | 0755, "", kThen + 2}, {"b", S_IFDIR | 0755, "", 3}});
    int64_t seen = 0;
    const BeforeCall last_folder(Call::opendir, 3, [&] { seen = modified(target_); });

    EXPECT_EQ(copy(), 0);

    EXPECT_TRUE(seen == kThen + 2 || seen == 3) << seen;
    EXPECT_EQ(modified(target_), 1);
}

TEST_F(TreeCopy, folder_times_have_32_bits_and_file_times_all) {
    make_tree(source_, {{"", S_IFDIR | 0755, "", -kSecond},
                        {"d", S_IFDIR | 0755, "", 5'000'000'000 * kSecond},
                        {"f", S_IFREG | 0644, "", 5'000'000'000 * kSecond}});
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(modified(target_), 4'294'967'295 * kSecond);
    EXPECT_EQ(modified(target_ + "/d"), 705'032'704 * kSecond);
    EXPECT_EQ(modified(target_ + "/f"), 5'000'000'000 * kSecond);
}

TEST_F(TreeCopy, a_time_of_the_top_that_cannot_be_set_is_the_result) {
    make_tree(source_, {});
    LogCapture log;
    with_refused_system_call(SYS_utimensat, EROFS, [this] { EXPECT_EQ(copy(), -EROFS); });
    EXPECT_THAT(log.messages(),
                ElementsAre(tree_debug("Can't chtime the folder (-100, " + target_ + ") error! (-30)")));
}

TEST_F(TreeCopy, a_time_on_the_way_that_cannot_be_set_does_not_end_it) {
    make_tree(source_, {{"", S_IFDIR | 0755, "", kThen}, {"a", S_IFDIR | 0755}, {"b", S_IFDIR | 0755}});
    LogCapture log;
    // Each new subfolder gets a time of its own first; the third time is that of the top when the first one is left.
    const FailCall fault(Call::syscall, EROFS, 3);

    EXPECT_EQ(copy(), 0);

    EXPECT_THAT(log.messages(),
                ElementsAre(tree_debug("Can't chtime the folder (-100, " + target_ + ") error! (-30)")));
    EXPECT_THAT(paths_in(target_), ElementsAre("a", "b"));
    EXPECT_EQ(modified(target_), kThen);
}

TEST_F(TreeCopy, a_time_on_the_way_that_cannot_be_set_is_the_result_of_a_stopped_walk) {
    make_tree(source_, {{"a", S_IFDIR | 0755}, {"b", S_IFDIR | 0755}});
    const FailCall fault(Call::syscall, EROFS, 3);
    const BeforeCall setter(Call::opendir, 2, [this] { stop_ = 5; });
    EXPECT_EQ(copy(), -EROFS);
}

TEST_F(TreeCopy, a_folder_that_cannot_be_opened_is_left_out) {
    make_tree(source_, {{"", S_IFDIR | 0755, "", kThen}, {"d", S_IFDIR | 0700}, {"d/f", S_IFREG | 0644}});
    LogCapture log;
    const FailCall fault(Call::opendir, EMFILE, 2);

    EXPECT_EQ(copy(), 0);

    EXPECT_THAT(paths_in(target_), ElementsAre("d"));
    EXPECT_EQ(modified(target_), kThen);
    EXPECT_EQ(log.messages().size(), 1U);
    EXPECT_THAT(log.messages(), ElementsAre(tree_debug("Can't opendir " + source_ + "/d/ (24)")));
}

TEST_F(TreeCopy, a_folder_that_is_no_longer_what_was_found_is_left_out) {
    make_tree(folder_.path(), {{"other", S_IFDIR | 0755}, {"other/g", S_IFREG | 0644}, {"link", S_IFLNK, "other"}});
    make_tree(source_, {{"d", S_IFDIR | 0700}, {"d/f", S_IFREG | 0644}});
    for (const char *name : {"other", "link"}) {
        SCOPED_TRACE(name);
        LogCapture log;
        {
            const BeforeCall swapper(Call::opendir, 2, [&] { swap_names(source_ + "/d", path(name)); });
            EXPECT_EQ(copy(), 0);
        }
        swap_names(source_ + "/d", path(name));
        EXPECT_THAT(paths_in(target_), ElementsAre("d"));
        EXPECT_THAT(log.messages(),
                    ElementsAre(StartsWith("[debug] Copy_Folder_Tree_At(#): Can't opendir " + source_ + "/d/ (")));
        std::filesystem::remove_all(target_);
    }
}

TEST_F(TreeCopy, a_folder_of_the_copy_that_is_exchanged_is_not_copied_into) {
    make_tree(folder_.path(), {{"other", S_IFDIR | 0755}, {"link", S_IFLNK, "other"}});
    const struct {
        std::vector<Plan> plans;
        std::string message;
        std::string summary;
    } table[] = {
        {{{"d/f", S_IFREG | 0644}}, "[error] Copy_File_At(#): Can't open the destination file ", "Can't copy file ("},
        {{{"d/l", S_IFLNK, "x"}}, "[error] Copy_Symlink_At(#): symlinkat(x, -100, ", "Can't create symlink ("},
        {{{"d/e", S_IFDIR | 0755}},
         "[error] Copy_Folder_At(#): Can't mkdirat the folder (-100, ",
         "Can't create folder ("},
    };
    for (const auto &row : table)
        for (const char *name : {"other", "link"}) {
            SCOPED_TRACE(row.message + name);
            std::filesystem::remove_all(source_);
            make_tree(source_, {{"d", S_IFDIR | 0755}});
            make_tree(source_, row.plans);
            LogCapture log;
            {
                const BeforeCall swapper(Call::opendir, 2, [&] { swap_names(target_ + "/d", path(name)); });
                EXPECT_LT(copy(), 0);
            }
            swap_names(target_ + "/d", path(name));
            EXPECT_THAT(paths_in(path("other")), IsEmpty());
            EXPECT_THAT(log.messages(), ElementsAre(StartsWith(row.message + target_ + "/d/"),
                                                    StartsWith("[debug] Copy_Folder_Tree_At(#): " + row.summary)));
            std::filesystem::remove_all(target_);
        }
}

TEST_F(TreeCopy, a_top_folder_that_cannot_be_opened_gives_an_empty_copy) {
    make_tree(source_, {{"", S_IFDIR | 0755, "", kThen}, {"f", S_IFREG | 0644}});
    const FailCall fault(Call::opendir, EACCES);
    EXPECT_EQ(copy(), 0);
    EXPECT_THAT(paths_in(target_), IsEmpty());
    EXPECT_EQ(modified(target_), kThen);
}

TEST_F(TreeCopy, a_walk_stopped_after_a_folder_that_cannot_be_opened_gives_the_positive_errno) {
    make_tree(source_, {{"a", S_IFDIR | 0700}, {"b", S_IFDIR | 0700}});
    const FailCall fault(Call::opendir, EACCES, 2);
    const BeforeCall setter(Call::opendir, 2, [this] { stop_ = 5; });
    EXPECT_EQ(copy(), EACCES);
}

TEST_F(TreeCopy, a_folder_that_cannot_be_opened_is_the_result_of_a_stopped_walk_whatever_was_skipped_since) {
    for (const std::string folder : {"a", "b", "c"})
        make_tree(source_,
                  {{folder, S_IFDIR | 0755}, {folder + "/one", S_IFIFO | 0644}, {folder + "/two", S_IFSOCK | 0644}});
    // The first subfolder can't be opened, and the flag comes with the last entry of the second.
    const FailCall fault(Call::opendir, EACCES, 2);
    int skipped = 0;
    const BeforeCall setter(Call::fstatat, 0, [&](const Arguments &arguments) {
        const std::string name = arguments.at<const char *>(1);
        skipped += name == "one" || name == "two" ? 1 : 0;
        stop_ = skipped == 2 ? 5 : 0;
    });
    EXPECT_EQ(copy(), EACCES);
}

TEST_F(TreeCopy, a_stop_at_the_last_folder_comes_too_late) {
    make_tree(source_, {{"", S_IFDIR | 0755, "", kThen}, {"a", S_IFDIR | 0700}});
    const FailCall fault(Call::opendir, EACCES, 2);
    const BeforeCall setter(Call::opendir, 2, [this] { stop_ = 5; });
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(modified(target_), kThen);
}

TEST_F(TreeCopy, a_folder_that_cannot_be_read_to_its_end_ends_the_walk) {
    make_tree(source_, {{"", S_IFDIR | 0755, "", kThen}, {"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0644}});
    // The first is for the new top folder, which must be empty.
    for (const int nth : {2, 3, 4, 5}) {
        SCOPED_TRACE(nth);
        LogCapture log;
        const FailCall fault(Call::getdents64, EIO, nth);

        EXPECT_EQ(copy(), -EIO);

        EXPECT_THAT(log.messages(), IsEmpty());
        EXPECT_NE(modified(target_), kThen);
        std::filesystem::remove_all(target_);
    }
}

TEST_F(TreeCopy, an_errno_of_before_is_no_failure_of_reading) {
    make_tree(source_, {{"d", S_IFDIR | 0755}});
    errno = EIO;
    EXPECT_EQ(copy(), 0);
    EXPECT_THAT(paths_in(target_), ElementsAre("d"));
}

TEST_F(TreeCopy, an_entry_that_vanishes_ends_the_walk) {
    make_tree(source_, {{"a", S_IFREG | 0644}, {"b", S_IFREG | 0644}, {"c", S_IFREG | 0644}});
    LogCapture log;
    const BeforeCall thief(Call::fstatat, 0, [this](const Arguments &arguments) {
        if (std::string("abc").find(arguments.at<const char *>(1)) != std::string::npos)
            for (const char *name : {"/a", "/b", "/c"})
                unlink((source_ + name).c_str());
    });

    EXPECT_EQ(copy(), -ENOENT);

    EXPECT_THAT(log.messages(), ElementsAre(AllOf(HasSubstr("[debug] Copy_Folder_Tree_At(#): Can't fstat file "),
                                                  HasSubstr(" error! (-2)\n"))));
}

TEST_F(TreeCopy, a_set_flag_leaves_an_empty_top_folder) {
    make_tree(source_, kVariousPlans);
    stop_ = 5;

    EXPECT_EQ(copy(), 0);

    EXPECT_THAT(paths_in(target_), IsEmpty());
    Entry expected = entry_of(source_, "");
    expected.modified = modified(target_);
    EXPECT_EQ(entry_of(target_, ""), expected);
    EXPECT_NE(expected.modified, modified(source_));
}

TEST_F(TreeCopy, a_flag_set_between_entries_ends_with_0) {
    const mode_t types[] = {S_IFLNK, S_IFDIR | 0755};
    const Call calls[] = {Call::symlinkat, Call::mkdirat};
    for (const int i : {0, 1}) {
        std::vector<Plan> plans{{"", S_IFDIR | 0755, "", kThen}};
        for (const char *name : {"a", "b", "c", "d"})
            plans.push_back({name, types[i], "x"});
        make_tree(source_, plans);
        stop_ = 0;
        {
            // The top folder itself is the first that is made.
            const BeforeCall setter(calls[i], 2 + i, [this] { stop_ = 5; });
            EXPECT_EQ(copy(), 0);
        }
        EXPECT_THAT(paths_in(target_), SizeIs(2));
        std::filesystem::remove_all(source_);
        std::filesystem::remove_all(target_);
    }
}

TEST_F(TreeCopy, a_walk_that_is_stopped_with_folders_to_go_does_not_set_the_time) {
    make_tree(source_, {{"", S_IFDIR | 0755, "", kThen}, {"a", S_IFDIR | 0755, "", 1}, {"b", S_IFDIR | 0755, "", 2}});
    const BeforeCall setter(Call::opendir, 2, [this] { stop_ = 5; });
    EXPECT_EQ(copy(), 0);
    EXPECT_NE(modified(target_), kThen);
}

TEST_F(TreeCopy, a_flag_set_during_a_file_is_the_result) {
    for (const int32_t value : {5, -5, INT32_MAX}) {
        SCOPED_TRACE(value);
        make_tree(source_, {{"a", S_IFDIR | 0755},
                            {"a/f", S_IFREG | 0644, bytes(90'000)},
                            {"b", S_IFDIR | 0755},
                            {"b/f", S_IFREG | 0644, bytes(90'000)}});
        stop_ = 0;
        const BeforeCall setter(Call::write, 2, [&] { stop_ = value; });
        EXPECT_EQ(copy(), value);
        EXPECT_THAT(paths_in(target_), ElementsAre("a", "b"));
        std::filesystem::remove_all(target_);
    }
}

TEST_F(TreeCopy, a_flag_set_during_a_file_is_the_result_in_the_last_folder_too) {
    make_tree(source_, {{"f", S_IFREG | 0644, bytes(90'000)}});
    const BeforeCall setter(Call::write, 2, [this] { stop_ = 5; });
    EXPECT_EQ(copy(), 5);
    EXPECT_THAT(paths_in(target_), IsEmpty());
}

TEST_F(TreeCopy, another_thread_can_stop_it) {
    make_tree(source_,
              {{"a", S_IFDIR | 0755}, {"a/f", S_IFREG | 0644}, {"b", S_IFDIR | 0755}, {"b/f", S_IFREG | 0644}});
    for (const char *hole : {"/a/f", "/b/f"})
        check(truncate((source_ + hole).c_str(), int64_t{1} << 40) == 0, "make a hole");
    const SmallDisk disk(int64_t{1} << 30);
    const std::string target = disk.path("target");
    std::thread stopper([&] {
        while (!exists(target + "/a/f") && !exists(target + "/b/f"))
            sched_yield();
        __atomic_store_n(&stop_, 6, __ATOMIC_RELAXED);
    });

    EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), target.c_str(), &stop_), 6);

    stopper.join();
    EXPECT_THAT(paths_in(target), ElementsAre("a", "b"));
}

TEST_F(TreeCopy, a_failure_at_any_call_ends_it_and_leaks_nothing) {
    const struct {
        Call call;
        const char *what;
    } table[] = {{Call::mkdirat, "mkdirat"}, {Call::symlinkat, "symlinkat"}, {Call::readlinkat, "readlinkat"},
                 {Call::read, "read"},       {Call::write, "write"},         {Call::fchmod, "fchmod"},
                 {Call::fchown, "fchown"}};
    make_tree(source_, kVariousPlans);

    for (const auto &row : table)
        for (int nth = 1;; nth++) {
            SCOPED_TRACE(testing::Message() << row.what << ", call " << nth);
            ASSERT_LT(nth, 100);
            const FailCall fault(row.call, EDQUOT, nth);
            const int32_t result = copy();
            std::filesystem::remove_all(target_);
            if (fault.failed() == 0) {
                EXPECT_EQ(result, 0);
                EXPECT_GT(nth, 2);
                break;
            }
            EXPECT_EQ(result, -EDQUOT);
        }
}

TEST_F(TreeCopy, below_the_top_modes_and_owners_of_folders_may_fail) {
    make_tree(source_, {{"a", S_IFDIR | 0711, "", kThen, 1, 2}, {"a/b", S_IFDIR | 0711, "", kThen, 1, 2}});
    for (const Call call : {Call::fchmodat, Call::fchownat}) {
        // The top's mode is the first to be set; its owner fits already.
        const FailCall fault(call, EPERM, call == Call::fchmodat ? 2 : 1, 100);
        EXPECT_EQ(copy(), 0);
        EXPECT_EQ(fault.failed(), 2);
        EXPECT_THAT(paths_in(target_), ElementsAre("a", "a/b"));
        std::filesystem::remove_all(target_);
    }
}

TEST_F(TreeCopy, without_memory_it_ends) {
    make_tree(source_, kVariousPlans);
    int ended = 0;
    for (int nth = 1;; nth++) {
        SCOPED_TRACE(nth);
        ASSERT_LT(nth, 200);
        int32_t result = 0;
        bool failed = false;
        {
            const FailCall fault(Call::allocation, ENOMEM, nth);
            result = copy();
            failed = fault.failed() > 0;
        }
        std::filesystem::remove_all(target_);
        if (!failed)
            break;
        // A folder that the system has no memory to open is left out.
        EXPECT_TRUE(result == -ENOMEM || result == 0) << result;
        ended += result == -ENOMEM ? 1 : 0;
    }
    EXPECT_GE(ended, 3 + 6);  // a block for each folder below the top, and one for each file with content
}

TEST_F(TreeCopy, no_path_loses_memory) {
    make_tree(source_, {{"a", S_IFDIR | 0755},
                        {"b", S_IFDIR | 0755},
                        {"b/c", S_IFDIR | 0755},
                        {"b/c/d", S_IFDIR | 0755},
                        {"b/c/f", S_IFREG | 0644, "x"},
                        {"e", S_IFDIR | 0755},
                        {"e/g", S_IFREG | 0644, "x"}});
    EXPECT_FALSE(loses_memory([this] {
        const FailCall fault(Call::fchown, EPERM, 2);
        EXPECT_EQ(copy(), -EPERM);
        std::filesystem::remove_all(target_);
    }));
    EXPECT_FALSE(loses_memory([this] {
        stop_ = 0;
        const BeforeCall setter(Call::opendir, 3, [this] { stop_ = 5; });
        EXPECT_EQ(copy(), 0);
        std::filesystem::remove_all(target_);
    }));
}

TEST_F(TreeCopy, a_full_disk_ends_it_and_what_was_copied_stays) {
    const SmallDisk disk(1 << 20);
    make_tree(source_, {{"", S_IFDIR | 0755, "", kThen}});
    for (int i = 0; i < 40; i++)
        write_file(source_ + "/" + std::to_string(i), bytes(50'000));

    EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), disk.path("target").c_str(), &stop_), -ENOSPC);

    const auto copied = paths_in(disk.path("target"));
    EXPECT_GE(copied.size(), 10U);
    for (const std::string &name : copied)
        EXPECT_EQ(read_file(disk.path("target/" + name)), bytes(50'000));
}

TEST_F(TreeCopy, a_target_inside_the_source_ends_it) {
    const std::vector<Plan> plans{
        {"f", S_IFREG | 0644, "x"}, {"d", S_IFDIR | 0755}, {"d/e", S_IFDIR | 0755}, {"d/e/old", S_IFREG | 0644, "y"}};
    for (const char *target : {"source/new", "source/d/new", "source/d/e", "source/d/e/new", "link/new", "link/e",
                               "source/../source/d/e/."}) {
        SCOPED_TRACE(target);
        const TempFolder place;
        make_tree(place.path("source"), plans);
        EXPECT_EQ(symlink("source/d", place.path("link").c_str()), 0);
        LogCapture log;

        EXPECT_EQ(Copy_Folder_Tree(place.path("source").c_str(), place.path(target).c_str(), &stop_), -EINVAL);

        EXPECT_THAT(log.messages(), Contains(tree_debug("The destination (-100, " + place.path(target) +
                                                        ") lies inside the source error! (-22)")));
        EXPECT_EQ(read_file(place.path("source/f")), "x");
        EXPECT_EQ(read_file(place.path("source/d/e/old")), "y");
        EXPECT_LT(list_tree(place.path()).size(), 16U);
    }
}

TEST_F(TreeCopy, a_tree_is_never_copied_onto_itself) {
    make_tree(source_, {{"f", S_IFREG | 0644, "x"}});
    const std::vector<Entry> before = list_tree(source_);
    EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), source_.c_str(), &stop_), -EINVAL);
    EXPECT_EQ(list_tree(source_), before);
}

TEST_F(TreeCopy, file_systems_can_be_crossed) {
    const SmallDisk disk(1 << 20);
    make_tree(source_, kVariousPlans);
    EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), disk.path("target").c_str(), &stop_), 0);
    expect_copied(source_, disk.path("target"));
}

TEST_F(TreeCopy, names_that_do_not_fit_are_refused_before_anything_is_made) {
    make_tree(source_, {});
    const std::string longest(5000, 'x');
    std::string slashes = source_;
    slashes.resize(5000, '/');
    EXPECT_EQ(Copy_Folder_Tree(longest.c_str(), target_.c_str(), &stop_), -ENAMETOOLONG);
    EXPECT_EQ(Copy_Folder_Tree(slashes.c_str(), target_.c_str(), &stop_), -ENAMETOOLONG);
    EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), longest.c_str(), &stop_), -ENAMETOOLONG);
    EXPECT_THAT(folder_.names(), ElementsAre("source"));
}

TEST_F(TreeCopy, a_path_of_4095_bytes_is_copied_and_one_more_ends_it) {
    const std::string name(200, 'n');
    const int depth = static_cast<int>((4095 - 200 - source_.size()) / 201);
    const size_t rest = 4095 - source_.size() - static_cast<size_t>(depth) * 201 - 1;
    const OpenFolder home(folder_.path());

    for (const size_t extra : {0U, 1U}) {
        SCOPED_TRACE(extra);
        make_tree(source_, {});
        make_deep(source_, name, depth, std::string(rest + extra, 'f'));
        EXPECT_EQ(Copy_Folder_Tree_At(AT_FDCWD, source_.c_str(), home.get(), "target", &stop_),
                  extra == 0 ? 0 : -ENAMETOOLONG);
        EXPECT_TRUE(exists(target_ + "/" + name + "/" + name));
        std::filesystem::remove_all(source_);
        std::filesystem::remove_all(target_);
    }
}

TEST_F(TreeCopy, a_target_path_that_does_not_fit_ends_it) {
    make_tree(source_, {});
    make_deep(source_, std::string(200, 'n'), 20, "file");
    const std::string target = path(std::string(200, 't'));

    EXPECT_EQ(Copy_Folder_Tree(source_.c_str(), target.c_str(), &stop_), -ENAMETOOLONG);

    EXPECT_THAT(folder_.names(), SizeIs(2));
    EXPECT_TRUE(exists(target + "/" + std::string(200, 'n')));
}

TEST_F(TreeCopy, two_hundred_levels_take_six_descriptors) {
    make_tree(source_, {{"", S_IFDIR | 0755}});
    make_deep(source_, "d", 200, "file");
    LogCapture log;
    {
        const DescriptorLimit limit(6);  // on either side the top, the folder and the file
        EXPECT_EQ(copy(), 0);
    }
    expect_copied(source_, target_);
    EXPECT_EQ(paths_in(target_).size(), 201U);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeCopy, a_hundred_thousand_entries_are_copied) {
    const SmallDisk disk(int64_t{1} << 30);
    const std::string source = make_tree(disk.path("source"), {});
    for (int i = 0; i < 100'000; i++)
        close(open((source + "/" + std::to_string(i)).c_str(), O_WRONLY | O_CREAT, 0644));
    size_t peak = 0;
    const size_t before = heap_in_use();
    const BeforeCall late(Call::fchown, 99'000, [&] { peak = heap_in_use(); });

    EXPECT_EQ(Copy_Folder_Tree(source.c_str(), disk.path("target").c_str(), &stop_), 0);

    EXPECT_TRUE(late.ran());
    EXPECT_LT(peak, before + 256 * 1024);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(disk.path("target")), {}), 100'000);
}

TEST_F(TreeCopy, an_unprivileged_user_copies_his_own_tree) {
    without_rights([this] {
        make_tree(source_,
                  {{"", S_IFDIR | 0755}, {"d", S_IFDIR | 0700}, {"d/f", S_IFREG | 0400, "x"}, {"l", S_IFLNK, "x"}});
        EXPECT_EQ(copy(), 0);
        expect_copied(source_, target_);
    });
}

TEST_F(TreeCopy, an_unreadable_folder_is_copied_empty) {
    without_rights([this] {
        make_tree(source_, {{"", S_IFDIR | 0755},
                            {"locked", S_IFDIR | 0, "", kThen},
                            {"open", S_IFDIR | 0755},
                            {"open/f", S_IFREG | 0600}});
        LogCapture log;
        EXPECT_EQ(copy(), 0);
        EXPECT_THAT(log.messages(), ElementsAre(tree_debug("Can't opendir " + source_ + "/locked/ (13)")));
        EXPECT_EQ(status_of(target_ + "/locked").st_mode, mode_t{S_IFDIR});
        EXPECT_EQ(modified(target_ + "/locked"), kThen);
        EXPECT_TRUE(exists(target_ + "/open/f"));
    });
}

TEST_F(TreeCopy, a_folder_whose_entries_cannot_be_looked_at_ends_it) {
    without_rights([this] {
        make_tree(source_, {{"", S_IFDIR | 0755}, {"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0600}});
        EXPECT_EQ(chmod((source_ + "/d").c_str(), 0444), 0);
        EXPECT_EQ(copy(), -EACCES);
    });
}

TEST_F(TreeCopy, an_unreadable_file_ends_it) {
    without_rights([this] {
        make_tree(source_, {{"", S_IFDIR | 0755}, {"f", S_IFREG | 0, "x"}});
        LogCapture log;
        EXPECT_EQ(copy(), -EACCES);
        EXPECT_THAT(paths_in(target_), IsEmpty());
        EXPECT_THAT(
            log.messages(),
            ElementsAre("[error] Copy_File_At(#): Can't open the source file " + source_ + "/f error! (-13, 13)\n",
                        tree_debug("Can't copy file (" + source_ + "/f -> -100, " + target_ + ") error! (-13)")));
    });
}

TEST_F(TreeCopy, only_the_owner_of_a_new_top_folder_that_is_not_root_must_be_set) {
    make_tree(path("roots"), {{"", S_IFDIR | 0755}});
    make_tree(path("other's"), {{"", S_IFDIR | 0755, "", kThen, 12, 34}});
    without_rights([this] {
        LogCapture log(1);
        EXPECT_EQ(Copy_Folder_Tree(path("roots").c_str(), path("a").c_str(), nullptr), 0);
        EXPECT_EQ(status_of(path("a")).st_uid, 65534U);
        EXPECT_THAT(log.messages(), IsEmpty());

        EXPECT_EQ(Copy_Folder_Tree(path("other's").c_str(), path("b").c_str(), nullptr), -EPERM);
        EXPECT_THAT(log.messages(), ElementsAre(tree_error("Can't fchownat the dest folder (-100, " + path("b") +
                                                           ", 12, 34) error! (-1)")));
        EXPECT_TRUE(exists(path("b")));
    });
}
