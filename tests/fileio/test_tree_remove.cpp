// Removing folder trees.
#include <gmock/gmock.h>

#include "trees.h"

using namespace fileio_test;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace {

class TreeRemove : public TreeTest {
  protected:
    int32_t remove() { return Remove_Folder_Tree(top_.c_str(), &stop_); }

    const std::string top_ = path("top");
    int32_t stop_ = 0;
};

std::string remove_error(const std::string &text) {
    return "[error] Remove_Folder_Tree_At(#): " + text + "\n";
}

}  // namespace

TEST_F(TreeRemove, bad_arguments_are_refused) {
    make_tree(top_, {});
    LogCapture log;
    for (const int32_t bad : {-1, -99, -101, INT32_MIN})
        EXPECT_EQ(Remove_Folder_Tree_At(bad, top_.c_str(), &stop_), -EINVAL);
    EXPECT_EQ(Remove_Folder_Tree(nullptr, &stop_), -EINVAL);
    EXPECT_EQ(Remove_Folder_Tree(nullptr, nullptr), -EINVAL);
    EXPECT_TRUE(exists(top_));
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeRemove, everything_is_removed_and_links_are_not_followed) {
    make_tree(path("kept"), {{"f", S_IFREG | 0644, "x"}, {"d", S_IFDIR | 0755}});
    const std::vector<Entry> before = list_tree(path("kept"));
    make_tree(top_, kVariousPlans);
    LogCapture log;

    EXPECT_EQ(remove(), 0);

    EXPECT_THAT(folder_.names(), ElementsAre("kept"));
    EXPECT_EQ(list_tree(path("kept")), before);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeRemove, every_way_to_name_the_folder_serves) {
    make_tree(path("here"), {});
    const OpenFolder home(folder_.path());
    const OpenFolder here(path("here"));
    const WorkingFolder there(folder_.path());
    const struct {
        int folder;
        std::string name;
    } table[] = {
        {home.get(), "top"}, {AT_FDCWD, "top"}, {AT_FDCWD, "./top/"}, {here.get(), "../top/"}, {here.get(), top_}};

    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        make_tree(top_, kVariousPlans);
        EXPECT_EQ(Remove_Folder_Tree_At(row.folder, row.name.c_str(), nullptr), 0);
        EXPECT_THAT(folder_.names(), ElementsAre("here"));
    }
}

TEST_F(TreeRemove, a_name_that_is_no_folder_is_removed_itself) {
    make_tree(path("kept"), {{"f", S_IFREG | 0644}});
    const Plan table[] = {{"top", S_IFREG | 0, "x"},
                          {"top", S_IFLNK, "kept"},
                          {"top", S_IFLNK, "none"},
                          {"top", S_IFIFO | 0600},
                          {"top", S_IFSOCK | 0600}};
    for (const Plan &row : table) {
        make_tree(folder_.path(), {row});
        EXPECT_EQ(remove(), 0);
        EXPECT_THAT(paths_in(folder_.path()), ElementsAre("kept", "kept/f"));
    }
}

TEST_F(TreeRemove, a_relative_name_that_is_no_folder_is_looked_up_under_the_descriptor) {
    make_tree(folder_.path(), {{"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0644}, {"f", S_IFREG | 0644}});
    const OpenFolder d(path("d"));
    const WorkingFolder here(folder_.path());

    EXPECT_EQ(Remove_Folder_Tree_At(d.get(), "f", &stop_), 0);
    EXPECT_THAT(paths_in(folder_.path()), ElementsAre("d", "f"));
    EXPECT_EQ(Remove_Folder_Tree_At(d.get(), "f", &stop_), -ENOENT);
    EXPECT_EQ(Remove_Folder_Tree_At(d.get(), "../f", &stop_), 0);
    EXPECT_THAT(paths_in(folder_.path()), ElementsAre("d"));
}

TEST_F(TreeRemove, a_missing_name_is_reported_by_its_errno_alone) {
    folder_.file("file", "x");
    LogCapture log;
    EXPECT_EQ(remove(), -ENOENT);
    EXPECT_EQ(Remove_Folder_Tree(path("file/x").c_str(), &stop_), -ENOTDIR);
    EXPECT_EQ(Remove_Folder_Tree("", &stop_), -ENOENT);
    EXPECT_EQ(Remove_Folder_Tree_At(9999, "top", &stop_), -EBADF);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeRemove, a_set_flag_spares_folders_but_not_files) {
    make_tree(top_, kVariousPlans);
    const std::vector<Entry> before = list_tree(top_);
    for (const int32_t value : {5, -5}) {
        stop_ = value;
        EXPECT_EQ(remove(), value);
        EXPECT_EQ(list_tree(top_), before);

        EXPECT_EQ(Remove_Folder_Tree(folder_.file("file", "x").c_str(), &stop_), 0);
        EXPECT_FALSE(exists(path("file")));
    }
}

TEST_F(TreeRemove, a_flag_set_on_the_way_is_the_result) {
    const struct {
        Call call;
        int nth;
        std::vector<std::string> left;  // any that is empty may be either
    } table[] = {
        {Call::unlinkat, 2, {"a", "a/f", "b", "b/g", "z"}},
        {Call::opendir, 1, {"a", "a/f", "b", "b/g", "x", "y", "z"}},
        {Call::opendir, 3, {}},
        {Call::getdents64, 2, {}},
        {Call::rmdir, 1, {}},
        {Call::rmdir, 2, {}},
    };

    for (const int32_t value : {6, -6})
        for (const auto &row : table) {
            SCOPED_TRACE(testing::Message() << static_cast<int>(row.call) << ", call " << row.nth);
            std::filesystem::remove_all(top_);
            make_tree(top_, {{"a", S_IFDIR | 0755},
                             {"a/f", S_IFREG | 0644},
                             {"b", S_IFDIR | 0755},
                             {"b/g", S_IFREG | 0644},
                             {"x", S_IFREG | 0644},
                             {"y", S_IFREG | 0644},
                             {"z", S_IFREG | 0644}});
            stop_ = 0;
            LogCapture log;
            const BeforeCall setter(row.call, row.nth, [&] { stop_ = value; });

            EXPECT_EQ(remove(), value);

            EXPECT_TRUE(setter.ran());
            EXPECT_TRUE(exists(top_));
            if (!row.left.empty()) {
                EXPECT_THAT(paths_in(top_), SizeIs(row.left.size()));
            }
            EXPECT_THAT(log.messages(), IsEmpty());
        }
}

TEST_F(TreeRemove, a_flag_set_at_the_last_rmdir_comes_too_late) {
    make_tree(top_, {{"a", S_IFDIR | 0755}});
    const BeforeCall setter(Call::rmdir, 2, [this] { stop_ = 6; });
    EXPECT_EQ(remove(), 0);
    EXPECT_FALSE(exists(top_));
}

TEST_F(TreeRemove, a_flag_set_at_a_folder_that_cannot_be_opened_counts_once_it_is_left) {
    make_tree(top_, {{"d", S_IFDIR | 0755}});
    const FailCall fault(Call::opendir, EACCES, 2);
    const BeforeCall setter(Call::opendir, 2, [this] { stop_ = 6; });
    EXPECT_EQ(remove(), 6);
    EXPECT_THAT(paths_in(top_), IsEmpty());
}

TEST_F(TreeRemove, another_thread_can_stop_it) {
    make_tree(top_, {{"f", S_IFREG | 0644}});
    bool set = false;
    // The thread sets the flag while the walk stands still before its first removal.
    const BeforeCall pause(Call::unlinkat, 1, [&] {
        std::thread([&] {
            __atomic_store_n(&stop_, 9, __ATOMIC_RELAXED);
            set = true;
        }).join();
    });
    EXPECT_EQ(remove(), 9);
    EXPECT_TRUE(set);
    EXPECT_TRUE(exists(top_));
}

TEST_F(TreeRemove, a_file_that_stays_keeps_its_folders_and_nothing_else) {
    make_tree(top_, {{"d", S_IFDIR | 0755}, {"d/stays", S_IFREG | 0644}, {"e", S_IFDIR | 0755}, {"f", S_IFREG | 0644}});
    LogCapture log;
    {
        // The top's own file goes first.
        const FailCall fault(Call::unlinkat, EPERM, 2);
        EXPECT_EQ(remove(), -ENOTEMPTY);
    }
    EXPECT_THAT(paths_in(top_), ElementsAre("d", "d/stays"));
    EXPECT_THAT(log.messages(), ElementsAre(remove_error("Can't unlink file " + top_ + "/d/stays error! (-1)"),
                                            remove_error("Can't rmdir " + top_ + "/d error! (-39)")));
    EXPECT_EQ(remove(), 0);
}

TEST_F(TreeRemove, a_folder_that_another_program_removes_meanwhile_is_no_failure) {
    make_tree(top_, {{"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0644}});
    LogCapture log;
    const BeforeCall other(Call::rmdir, 1, [&] { EXPECT_TRUE(std::filesystem::remove(top_ + "/d")); });
    EXPECT_EQ(remove(), 0);
    EXPECT_FALSE(exists(top_));
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeRemove, a_file_that_another_program_removes_meanwhile_can_no_longer_be_looked_at) {
    make_tree(top_, {{"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0644}});
    LogCapture log;
    const BeforeCall other(Call::unlinkat, 1, [&] { EXPECT_TRUE(std::filesystem::remove(top_ + "/d/f")); });
    EXPECT_EQ(remove(), 0);
    EXPECT_FALSE(exists(top_));
    EXPECT_THAT(log.messages(), ElementsAre(remove_error("Can't fstat file: " + top_ + "/d/f")));
}

TEST_F(TreeRemove, a_file_that_is_gone_at_its_removal_but_not_at_a_look_is_passed_over_in_silence) {
    make_tree(top_, {{"f", S_IFREG | 0644}});
    LogCapture log;
    const FailCall fault(Call::unlinkat, ENOENT);
    EXPECT_EQ(remove(), -ENOTEMPTY);
    EXPECT_EQ(fault.failed(), 1);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeRemove, a_file_that_becomes_a_folder_meanwhile_is_visited) {
    make_tree(top_, {{"f", S_IFREG | 0644}});
    const BeforeCall other(Call::unlinkat, 1, [&] {
        std::filesystem::remove(top_ + "/f");
        make_tree(top_, {{"f", S_IFDIR | 0755}, {"f/g", S_IFREG | 0644}});
    });
    LogCapture log;
    EXPECT_EQ(remove(), 0);
    EXPECT_FALSE(exists(top_));
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(TreeRemove, the_last_rmdir_is_the_result) {
    make_tree(top_, {});
    LogCapture log;
    {
        const FailCall fault(Call::rmdir, EBUSY);
        EXPECT_EQ(remove(), -EBUSY);
    }
    const BeforeCall other(Call::rmdir, 1, [this] { std::filesystem::remove(top_); });
    EXPECT_EQ(remove(), -ENOENT);
}

TEST_F(TreeRemove, a_folder_that_is_no_longer_what_was_found_stays) {
    make_tree(folder_.path(), {{"other", S_IFDIR | 0755}, {"other/g", S_IFREG | 0644}, {"link", S_IFLNK, "other"}});
    for (const char *name : {"other", "link"}) {
        SCOPED_TRACE(name);
        make_tree(top_, {{"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0644}});
        LogCapture log;
        {
            const BeforeCall swapper(Call::opendir, 2, [&] { swap_names(top_ + "/d", path(name)); });
            EXPECT_EQ(remove(), -ENOTEMPTY);
        }
        swap_names(top_ + "/d", path(name));
        EXPECT_TRUE(exists(path("other/g")));
        EXPECT_TRUE(exists(top_ + "/d/f"));
        EXPECT_THAT(log.messages(),
                    ElementsAre(StartsWith("[error] Remove_Folder_Tree_At(#): Can't opendir " + top_ + "/d error! ("),
                                StartsWith("[error] Remove_Folder_Tree_At(#): Can't rmdir " + top_ + "/d error! (")));
        std::filesystem::remove_all(top_);
    }
}

// Its path is empty without the "/", and names nothing.
TEST_F(TreeRemove, the_root_is_not_walked) {
    LogCapture log;
    EXPECT_EQ(in_child([] {
                  return chroot("/var/lock") == 0 && mkdir("/d", 0755) == 0 &&
                                 Remove_Folder_Tree("/", nullptr) == -ENOENT && access("/d", F_OK) == 0
                             ? 0
                             : 1;
              }),
              0);
}

TEST_F(TreeRemove, the_rest_of_a_folder_that_cannot_be_read_to_its_end_stays) {
    make_tree(top_, {{"f", S_IFREG | 0644}});
    LogCapture log;
    {
        const FailCall fault(Call::getdents64, EIO);
        EXPECT_EQ(remove(), -ENOTEMPTY);
    }
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_EQ(remove(), 0);
}

TEST_F(TreeRemove, entries_that_cannot_be_looked_at_are_skipped) {
    make_tree(top_, {{"a", S_IFREG | 0644}, {"b", S_IFREG | 0644}, {"c", S_IFREG | 0644}});
    LogCapture log;
    const BeforeCall thief(Call::unlinkat, 1, [this] {
        for (const char *name : {"/a", "/b", "/c"})
            std::filesystem::remove(top_ + name);
    });

    EXPECT_EQ(remove(), 0);

    EXPECT_THAT(log.messages(), Each(StartsWith("[error] Remove_Folder_Tree_At(#): Can't fstat file: " + top_ + "/")));
    EXPECT_GE(log.messages().size(), 2U);
}

TEST_F(TreeRemove, a_folder_that_cannot_be_opened_is_an_error_only_where_it_is_not_empty) {
    make_tree(top_, {{"d", S_IFDIR | 0755}});
    LogCapture log;
    {
        const FailCall fault(Call::opendir, EMFILE, 2);
        EXPECT_EQ(remove(), 0);
    }
    EXPECT_THAT(log.messages(), ElementsAre(remove_error("Can't opendir " + top_ + "/d error! (-24)")));

    make_tree(top_, {{"d", S_IFDIR | 0755}, {"d/f", S_IFREG | 0644}});
    log.clear();
    {
        const FailCall fault(Call::opendir, EMFILE, 2);
        EXPECT_EQ(remove(), -ENOTEMPTY);
    }
    EXPECT_THAT(log.messages(), SizeIs(2));

    log.clear();
    const FailCall fault(Call::opendir, EACCES);
    EXPECT_EQ(remove(), -ENOTEMPTY);
    EXPECT_THAT(log.messages(), ElementsAre(remove_error("Can't opendir " + top_ + " error! (-13)")));
}

TEST_F(TreeRemove, without_memory_it_ends_and_the_rest_stays) {
    int ended = 0;
    for (int nth = 1;; nth++) {
        ASSERT_LT(nth, 50);
        make_tree(top_, {{"a", S_IFDIR | 0755}, {"b", S_IFDIR | 0755}, {"a/c", S_IFDIR | 0755}});
        int32_t result = 0;
        bool failed = false;
        {
            const FailCall fault(Call::allocation, ENOMEM, nth);
            result = remove();
            failed = fault.failed() > 0;
        }
        EXPECT_EQ(exists(top_), result != 0);
        std::filesystem::remove_all(top_);
        if (!failed)
            break;
        EXPECT_TRUE(result == -ENOMEM || result == -ENOTEMPTY || result == 0) << result;
        ended += result == -ENOMEM ? 1 : 0;
    }
    EXPECT_EQ(ended, 3);  // a block for each folder below the top
}

TEST_F(TreeRemove, no_path_loses_memory) {
    const auto plant = [this] {
        make_tree(top_,
                  {{"a", S_IFDIR | 0755}, {"b", S_IFDIR | 0755}, {"a/c", S_IFDIR | 0755}, {"b/d", S_IFDIR | 0755}});
        stop_ = 0;
    };
    EXPECT_FALSE(loses_memory([&] {
        plant();
        {
            const BeforeCall setter(Call::opendir, 3, [this] { stop_ = 5; });
            EXPECT_EQ(remove(), 5);
        }
        stop_ = 0;
        EXPECT_EQ(remove(), 0);
    }));
    EXPECT_FALSE(loses_memory([&] {
        plant();
        {
            const FailCall fault(Call::allocation, ENOMEM, 5);
            EXPECT_EQ(remove(), -ENOMEM);
        }
        std::filesystem::remove_all(top_);
    }));
}

TEST_F(TreeRemove, names_that_do_not_fit_are_refused) {
    make_tree(top_, {{"f", S_IFREG | 0644}});
    const std::string slashes = top_ + std::string(5000, '/');
    EXPECT_EQ(Remove_Folder_Tree(slashes.c_str(), &stop_), -ENAMETOOLONG);
    EXPECT_EQ(Remove_Folder_Tree(std::string(5000, 'x').c_str(), &stop_), -ENAMETOOLONG);
    EXPECT_THAT(paths_in(top_), ElementsAre("f"));
}

TEST_F(TreeRemove, what_does_not_fit_stays_and_nothing_else_is_touched) {
    // The name is long by its detours, so that a path that is cut short would lead to things beside the tree.
    make_tree(path("kept"), {{"top", S_IFREG | 0644, "x"}, {"f", S_IFREG | 0644}});
    const std::string detour = "kept/../";
    std::string name = folder_.path() + "/";
    while (name.size() + detour.size() + 3 < 4060)
        name += detour;
    name += "top";
    for (const size_t length : {size_t{1}, 4095 - name.size() - 1, 4095 - name.size(), size_t{200}}) {
        SCOPED_TRACE(length);
        const std::vector<Entry> before = list_tree(path("kept"));
        make_tree(top_, {{std::string(length, 'd'), S_IFDIR | 0755}, {"f", S_IFREG | 0644}});
        write_file(top_ + "/" + std::string(length, 'd') + "/f", "x");
        LogCapture log;

        const int32_t result = Remove_Folder_Tree(name.c_str(), &stop_);

        EXPECT_EQ(list_tree(path("kept")), before);
        EXPECT_THAT(folder_.names().front(), "kept");
        if (length == 1) {
            EXPECT_EQ(result, 0);
            EXPECT_THAT(log.messages(), IsEmpty());
        } else {
            EXPECT_EQ(result, -ENOTEMPTY);
            EXPECT_THAT(paths_in(top_), ElementsAre(std::string(length, 'd'), std::string(length, 'd') + "/f"));
            EXPECT_THAT(log.messages(),
                        Contains(AllOf(StartsWith("[debug] Remove_Folder_Tree_At(#): The path " + name + "/"),
                                       EndsWith(" is too long error! (-36)\n"))));
        }
        std::filesystem::remove_all(top_);
    }
}

TEST_F(TreeRemove, a_tree_deeper_than_a_path_can_be_keeps_its_depths) {
    make_tree(top_, {{"beside", S_IFREG | 0644}});
    make_deep(top_, std::string(200, 'n'), 25, "unseen");
    EXPECT_EQ(remove(), -ENOTEMPTY);
    EXPECT_THAT(std::distance(std::filesystem::directory_iterator(top_), {}), 1);
}

TEST_F(TreeRemove, two_hundred_levels_take_four_descriptors) {
    make_tree(top_, {});
    make_deep(top_, "d", 200, "file");
    const DescriptorLimit limit(4);  // the top, the folder above, and two on the way
    EXPECT_EQ(remove(), 0);
    EXPECT_FALSE(exists(top_));
}

TEST_F(TreeRemove, a_hundred_thousand_files_and_folders_are_removed) {
    constexpr int count = 100'000;
    const SmallDisk disk(int64_t{1} << 30);
    const std::string top = make_tree(disk.path("top"), {});
    for (int i = 0; i < count; i++) {
        const std::string name = top + "/" + std::to_string(i);
        if (i % 2 == 0)
            check(mkdir(name.c_str(), 0755) == 0, "make a folder");
        else
            close(open(name.c_str(), O_WRONLY | O_CREAT, 0644));
    }
    const size_t before = heap_in_use();
    size_t peak = 0;
    {
        const BeforeCall all_found(Call::opendir, 2, [&] { peak = heap_in_use(); });
        EXPECT_EQ(Remove_Folder_Tree(top.c_str(), &stop_), 0);
    }
    EXPECT_THAT(disk.names(), IsEmpty());
    EXPECT_LE(peak, before + count / 2 * size_t{48} + 65'536);
    EXPECT_LE(heap_in_use(), before + 4096);
}

TEST_F(TreeRemove, an_unprivileged_user_removes_what_he_may) {
    without_rights([this] {
        make_tree(top_, {{"f", S_IFREG | 0},
                         {"fixed", S_IFDIR | 0755},
                         {"fixed/f", S_IFREG | 0644},
                         {"locked", S_IFDIR | 0},
                         {"blind", S_IFDIR | 0755},
                         {"blind/f", S_IFREG | 0644},
                         {"open", S_IFDIR | 0755},
                         {"open/f", S_IFREG | 0644}});
        EXPECT_EQ(chmod((top_ + "/fixed").c_str(), 0555), 0);
        EXPECT_EQ(chmod((top_ + "/blind").c_str(), 0444), 0);
        LogCapture log(1);

        EXPECT_EQ(remove(), -ENOTEMPTY);

        EXPECT_THAT(log.messages(), UnorderedElementsAre(HasSubstr("Can't unlink file " + top_ + "/fixed/f error! ("),
                                                         HasSubstr("Can't rmdir " + top_ + "/fixed error! ("),
                                                         remove_error("Can't opendir " + top_ + "/locked error! (-13)"),
                                                         remove_error("Can't fstat file: " + top_ + "/blind/f"),
                                                         HasSubstr("Can't rmdir " + top_ + "/blind error! (")));
        EXPECT_EQ(chmod((top_ + "/blind").c_str(), 0755), 0);
        EXPECT_THAT(paths_in(top_), ElementsAre("blind", "blind/f", "fixed", "fixed/f"));
    });
}

TEST_F(TreeRemove, a_file_in_anothers_folder_stays) {
    make_tree(path("root's"), {{"f", S_IFREG | 0666}});
    without_rights([this] {
        LogCapture log;
        EXPECT_EQ(Remove_Folder_Tree(path("root's/f").c_str(), &stop_), -EACCES);
        EXPECT_THAT(log.messages(), IsEmpty());
    });
}
