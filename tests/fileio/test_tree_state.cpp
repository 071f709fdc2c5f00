// Measuring folder trees.
#include <gmock/gmock.h>

#include "trees.h"

using namespace fileio_test;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

bool operator==(const Folder_Tree_State &a, const Folder_Tree_State &b) {
    return a.cnFiles == b.cnFiles && a.cnFolders == b.cnFolders && a.ullBytes == b.ullBytes &&
           a.ullBlocks == b.ullBlocks;
}

std::ostream &operator<<(std::ostream &out, const Folder_Tree_State &state) {
    return out << state.cnFiles << " files, " << state.cnFolders << " folders, " << state.ullBytes << " bytes, "
               << state.ullBlocks << " blocks";
}

namespace {

class TreeState : public TreeTest {
  protected:
    int32_t measure() { return State_Folder_Tree(top_.c_str(), &state_, &stop_); }

    const std::string top_ = path("top");
    Folder_Tree_State state_{};
    int32_t stop_ = 0;
};

std::string state_debug(const std::string &text) {
    return "[debug] State_Folder_Tree_At(#): " + text + "\n";
}

// What there is to count, taken from the listing.
Folder_Tree_State expected_state(const std::string &top) {
    Folder_Tree_State state{};
    for (const Entry &entry : list_tree(top)) {
        const auto blocks = static_cast<uint64_t>(status_of(top + "/" + entry.path).st_blocks);
        if (S_ISDIR(entry.mode)) {
            state.cnFolders++;
            state.ullBlocks += blocks;
        } else if (S_ISREG(entry.mode) || S_ISLNK(entry.mode)) {
            state.cnFiles++;
            state.ullBytes += static_cast<uint64_t>(entry.size);
            state.ullBlocks += blocks;
        }
    }
    return state;
}

}  // namespace

TEST_F(TreeState, bad_arguments_are_refused) {
    make_tree(top_, {});
    LogCapture log;
    for (const int32_t bad : {-1, -99, -101, INT32_MIN})
        EXPECT_EQ(State_Folder_Tree_At(bad, top_.c_str(), &state_, &stop_), -EINVAL);
    EXPECT_EQ(State_Folder_Tree(nullptr, &state_, nullptr), -EINVAL);
    EXPECT_EQ(State_Folder_Tree(top_.c_str(), nullptr, &stop_), -EINVAL);
    EXPECT_EQ(State_Folder_Tree_At(9999, "top", &state_, &stop_), -EINVAL);  // not open
    EXPECT_EQ(state_, Folder_Tree_State{});
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeState, a_file_of_10_bytes_and_an_empty_folder_are_1_file_2_folders_and_10_bytes) {
    make_tree(top_, {{"f", S_IFREG | 0644, "0123456789"}, {"d", S_IFDIR | 0755}});
    EXPECT_EQ(measure(), 0);
    EXPECT_EQ(state_.cnFiles, 1U);
    EXPECT_EQ(state_.cnFolders, 2U);
    EXPECT_EQ(state_.ullBytes, 10U);
    EXPECT_EQ(state_.ullBlocks, expected_state(top_).ullBlocks);
}

TEST_F(TreeState, files_links_and_folders_are_counted_and_nothing_else) {
    make_tree(top_, kVariousPlans);
    check(link((top_ + "/file").c_str(), (top_ + "/d/file again").c_str()) == 0, "link");
    check(truncate((top_ + "/d/e/f").c_str(), int64_t{1} << 40) == 0, "make a hole");
    LogCapture log;
    EXPECT_EQ(measure(), 0);

    // Only now, since the listing reads the files.
    check(truncate((top_ + "/d/e/f").c_str(), 0) == 0, "close the hole");
    Folder_Tree_State expected = expected_state(top_);
    expected.ullBytes += uint64_t{1} << 40;
    expected.ullBlocks = state_.ullBlocks;
    EXPECT_EQ(state_, expected);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeState, blocks_are_counted_of_all_that_is_counted) {
    make_tree(top_, kVariousPlans);
    EXPECT_EQ(measure(), 0);
    EXPECT_EQ(state_, expected_state(top_));
}

TEST_F(TreeState, it_only_adds) {
    make_tree(top_, {{"f", S_IFREG | 0644, "x"}});
    Folder_Tree_State expected = expected_state(top_);
    expected.cnFiles += UINT32_MAX;  // a counter that wraps
    expected.cnFolders += 3;
    expected.ullBytes += 4;
    expected.ullBlocks += 5;
    state_ = {UINT32_MAX, 3, 4, 5};
    EXPECT_EQ(measure(), 0);
    EXPECT_EQ(state_, expected);
}

TEST_F(TreeState, every_way_to_name_the_folder_serves) {
    make_tree(top_, kVariousPlans);
    EXPECT_EQ(symlink("top", path("link").c_str()), 0);
    const OpenFolder home(folder_.path());
    const OpenFolder top(top_);
    const WorkingFolder here(folder_.path());
    const struct {
        int folder;
        std::string name;
    } table[] = {{home.get(), "top"},  {AT_FDCWD, "top"}, {AT_FDCWD, "./top//"},  {top.get(), "."},
                 {home.get(), "link"}, {9999, top_},      {top.get(), "../link/"}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        state_ = {};
        EXPECT_EQ(State_Folder_Tree_At(row.folder, row.name.c_str(), &state_, nullptr), 0);
        EXPECT_EQ(state_, expected_state(top_));
    }
}

TEST_F(TreeState, what_is_no_folder_is_refused) {
    make_tree(folder_.path(), kNoFolderPlans);
    for (const NoFolder &row : kNoFolders) {
        SCOPED_TRACE(row.name);
        const std::string top = path(row.name);
        LogCapture log;
        EXPECT_EQ(State_Folder_Tree(top.c_str(), &state_, &stop_), -row.error);
        EXPECT_THAT(log.messages(),
                    ElementsAre(state_debug(row.is_there ? "The path " + top + " is not a folder error!, -20"
                                                         : row.cant_look_at(top))));
        EXPECT_EQ(state_, Folder_Tree_State{});
    }
}

TEST_F(TreeState, a_set_flag_leaves_only_the_top_counted) {
    make_tree(top_, kVariousPlans);
    for (const int32_t value : {5, -5}) {
        stop_ = value;
        state_ = {};
        EXPECT_EQ(measure(), 0);
        EXPECT_EQ(state_, (Folder_Tree_State{0, 1, 0, static_cast<uint64_t>(status_of(top_).st_blocks)}));
    }
}

TEST_F(TreeState, a_flag_set_on_the_way_ends_it_with_0) {
    make_tree(top_, {{"a", S_IFDIR | 0755}, {"b", S_IFDIR | 0755}, {"a/f", S_IFREG | 0600}, {"b/f", S_IFREG | 0600}});
    {
        const BeforeCall setter(Call::opendir, 3, [this] { stop_ = 5; });
        EXPECT_EQ(measure(), 0);
    }
    EXPECT_EQ(state_.cnFolders, 3U);
    EXPECT_EQ(state_.cnFiles, 1U);

    stop_ = 0;
    state_ = {};
    const BeforeCall setter(Call::getdents64, 1, [this] { stop_ = -5; });
    EXPECT_EQ(measure(), 0);
    EXPECT_LE(state_.cnFolders, 2U);
}

TEST_F(TreeState, a_folder_that_cannot_be_opened_is_counted_but_skipped) {
    make_tree(top_, {{"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0644}});
    LogCapture log;
    const FailCall fault(Call::opendir, EMFILE, 2);

    EXPECT_EQ(measure(), 0);

    EXPECT_EQ(state_.cnFolders, 2U);
    EXPECT_EQ(state_.cnFiles, 0U);
    EXPECT_THAT(log.messages(), ElementsAre(state_debug("Can't opendir " + top_ + "/d/ (24)")));
}

TEST_F(TreeState, a_folder_that_is_no_longer_what_was_found_is_skipped) {
    make_tree(folder_.path(), {{"other", S_IFDIR | 0755}, {"other/g", S_IFREG | 0644}, {"link", S_IFLNK, "other"}});
    make_tree(top_, {{"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0644}});
    for (const char *name : {"other", "link"}) {
        SCOPED_TRACE(name);
        state_ = {};
        LogCapture log;
        {
            const BeforeCall swapper(Call::opendir, 2, [&] { swap_names(top_ + "/d", path(name)); });
            EXPECT_EQ(measure(), 0);
        }
        swap_names(top_ + "/d", path(name));
        EXPECT_EQ(state_.cnFolders, 2U);
        EXPECT_EQ(state_.cnFiles, 0U);
        EXPECT_THAT(log.messages(),
                    ElementsAre(StartsWith("[debug] State_Folder_Tree_At(#): Can't opendir " + top_ + "/d/ (")));
    }
}

TEST_F(TreeState, the_rest_of_a_folder_that_cannot_be_read_to_its_end_is_skipped) {
    make_tree(top_, {{"f", S_IFREG | 0644}});
    LogCapture log;
    const FailCall fault(Call::getdents64, EIO);

    EXPECT_EQ(measure(), 0);

    EXPECT_EQ(state_.cnFolders, 1U);
    EXPECT_EQ(state_.cnFiles, 0U);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeState, entries_that_vanish_are_skipped) {
    make_tree(top_, {{"a", S_IFREG | 0644}, {"b", S_IFREG | 0644}, {"c", S_IFREG | 0644}, {"d", S_IFREG | 0644}});
    LogCapture log;
    // The first is the look at the top; then the names have all been read.
    const BeforeCall thief(Call::fstatat, 2, [this] {
        for (const std::string &name : paths_in(top_))
            unlink((top_ + "/" + name).c_str());
    });

    EXPECT_EQ(measure(), 0);

    const auto messages = log.messages();
    EXPECT_EQ(messages.size() + state_.cnFiles, 4U);
    EXPECT_GE(messages.size(), 3U);
    EXPECT_THAT(messages, testing::Each(AllOf(HasSubstr("[debug] State_Folder_Tree_At(#): Can't fstat file "),
                                              HasSubstr(" error!, 2\n"))));
}

TEST_F(TreeState, without_memory_it_ends) {
    make_tree(top_, {{"a", S_IFDIR | 0755}, {"b", S_IFDIR | 0755}, {"a/c", S_IFDIR | 0755}});
    int ended = 0;
    for (int nth = 1;; nth++) {
        ASSERT_LT(nth, 50);
        state_ = {};
        const FailCall fault(Call::allocation, ENOMEM, nth);
        const int32_t result = measure();
        if (fault.failed() == 0)
            break;
        EXPECT_TRUE(result == -ENOMEM || result == 0) << result;
        ended += result == -ENOMEM ? 1 : 0;
    }
    EXPECT_EQ(ended, 3);  // a block for each folder below the top
}

TEST_F(TreeState, a_folder_for_which_there_is_no_memory_counts) {
    make_tree(top_, {{"a", S_IFDIR | 0755}});
    const FailCall fault(Call::allocation, ENOMEM, 2);  // the first is for the open folder
    EXPECT_EQ(measure(), -ENOMEM);
    EXPECT_EQ(state_, expected_state(top_));
    EXPECT_EQ(state_.cnFolders, 2U);
}

TEST_F(TreeState, no_path_loses_memory) {
    make_tree(top_, {{"a", S_IFDIR | 0755}, {"b", S_IFDIR | 0755}, {"a/c", S_IFDIR | 0755}, {"b/d", S_IFDIR | 0755}});
    EXPECT_FALSE(loses_memory([this] {
        stop_ = 0;
        EXPECT_EQ(measure(), 0);
        const BeforeCall setter(Call::opendir, 3, [this] { stop_ = 5; });
        EXPECT_EQ(measure(), 0);
    }));
    EXPECT_FALSE(loses_memory([this] {
        stop_ = 0;
        // Each folder that is opened takes a block, too.
        const FailCall fault(Call::allocation, ENOMEM, 5);
        EXPECT_EQ(measure(), -ENOMEM);
    }));
}

TEST_F(TreeState, names_that_do_not_fit_are_refused) {
    std::string name = top_;
    make_tree(top_, {});
    name.resize(5000, '/');
    EXPECT_EQ(State_Folder_Tree(name.c_str(), &state_, nullptr), -ENAMETOOLONG);
    EXPECT_EQ(State_Folder_Tree(std::string(5000, 'x').c_str(), &state_, nullptr), -ENAMETOOLONG);
    EXPECT_EQ(state_, Folder_Tree_State{});
}

TEST_F(TreeState, a_name_leaves_room_for_the_slash_behind_it) {
    make_tree(top_, {{"f", S_IFREG | 0644, "x"}});
    const size_t base = top_.rfind('/');
    for (const size_t length : {size_t{4094}, size_t{4095}}) {
        std::string name = top_;
        name.insert(base, length - top_.size(), '/');
        EXPECT_EQ(State_Folder_Tree(name.c_str(), &state_, nullptr), length == 4094 ? 0 : -ENAMETOOLONG);
    }
}

TEST_F(TreeState, folders_whose_path_does_not_fit_are_skipped_and_the_rest_is_counted) {
    make_tree(top_, {{"beside", S_IFDIR | 0755}, {"beside/f", S_IFREG | 0644, "x"}});
    make_deep(top_, std::string(200, 'n'), 25, "unseen");
    LogCapture log;

    EXPECT_EQ(measure(), 0);

    const size_t fitting = (4095 - top_.size()) / 201;
    EXPECT_GE(state_.cnFolders, 2 + fitting);
    EXPECT_LE(state_.cnFolders, 2 + fitting + 1);
    EXPECT_EQ(state_.cnFiles, 1U);
    EXPECT_THAT(log.messages(),
                ElementsAre(AllOf(StartsWith("[debug] State_Folder_Tree_At(#): The path of the folder " + top_ + "/n"),
                                  EndsWith("n is too long error!, 36\n"))));
}

TEST_F(TreeState, an_empty_name_names_nothing) {
    EXPECT_EQ(State_Folder_Tree("", &state_, &stop_), -ENOENT);
    EXPECT_EQ(state_, Folder_Tree_State{});
}

TEST_F(TreeState, two_hundred_levels_take_three_descriptors) {
    make_tree(top_, {});
    make_deep(top_, "d", 200, "file");
    {
        const DescriptorLimit limit(3);  // the top, and two on the way
        EXPECT_EQ(measure(), 0);
    }
    EXPECT_EQ(state_, expected_state(top_));
}

TEST_F(TreeState, a_hundred_thousand_subfolders_take_little_memory) {
    constexpr int count = 100'000;
    const SmallDisk disk(int64_t{1} << 30);
    const std::string top = make_tree(disk.path("top"), {});
    for (int i = 0; i < count; i++)
        check(mkdir((top + "/" + std::to_string(i)).c_str(), 0755) == 0, "make a folder");
    const size_t before = heap_in_use();
    size_t peak = 0;
    {
        const BeforeCall all_found(Call::opendir, 2, [&] { peak = heap_in_use(); });
        EXPECT_EQ(State_Folder_Tree(top.c_str(), &state_, &stop_), 0);
    }
    EXPECT_EQ(state_.cnFolders, count + 1U);
    // One small block each, and the buffer of the open folder.
    EXPECT_LE(peak, before + count * size_t{48} + 65'536);
    EXPECT_LE(heap_in_use(), before + 4096);
}

TEST_F(TreeState, an_unprivileged_user_skips_what_he_may_not_see) {
    without_rights([this] {
        make_tree(top_, {{"f", S_IFREG | 0, "x"},
                         {"locked", S_IFDIR | 0},
                         {"blind", S_IFDIR | 0755},
                         {"blind/f", S_IFREG | 0644, "yy"}});
        EXPECT_EQ(chmod((top_ + "/blind").c_str(), 0444), 0);
        LogCapture log;

        EXPECT_EQ(measure(), 0);

        EXPECT_EQ(state_.cnFiles, 1U);
        EXPECT_EQ(state_.cnFolders, 3U);
        EXPECT_EQ(state_.ullBytes, 1U);
        const auto messages = log.messages();
        EXPECT_THAT(messages, Contains(state_debug("Can't opendir " + top_ + "/locked/ (13)")));
        EXPECT_THAT(messages, Contains(AllOf(HasSubstr("[debug] State_Folder_Tree_At(#): Can't fstat file "),
                                             HasSubstr(" error!, 13\n"))));
    });
}
