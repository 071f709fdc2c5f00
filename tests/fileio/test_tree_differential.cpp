// Random trees, copied by the library and by `cp -a`: the two must agree on everything but what the library promises to
// do in its own way, which is written out in `as_the_library_copies`.
#include <gmock/gmock.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <random>
#include <set>

#include "trees.h"

using namespace fileio_test;
using testing::IsEmpty;

namespace {

class RandomTree {
  public:
    explicit RandomTree(uint32_t seed) : random_(seed) {}

    // Makes the tree and returns its top.
    std::string make(const std::string &top) {
        std::vector<Plan> plans{{"", dressed(S_IFDIR), "", time(), owner(), owner()}};
        const int count = number(0, 24);
        for (int i = 0; i < count; i++)
            plans.push_back(plan());
        make_tree(top, plans);
        return top;
    }

  private:
    int number(int from, int to) { return std::uniform_int_distribution<>(from, to)(random_); }
    bool chance(int percent) { return number(1, 100) <= percent; }

    mode_t dressed(mode_t type) { return type | static_cast<mode_t>(chance(25) ? number(0, 07777) : number(0, 0777)); }
    uid_t owner() { return chance(60) ? 0 : static_cast<uid_t>(number(1, 65534)); }
    int64_t time() {
        const int64_t seconds = chance(5)   ? number(-1'000'000'000, -1)
                                : chance(5) ? int64_t{4'294'967'296} + number(0, 1'000'000'000)
                                            : number(0, INT32_MAX);
        return seconds * kSecond + (chance(20) ? 0 : number(0, kSecond - 1));
    }

    std::string name() {
        static const std::string odd[] = {
            "-rf", "...", "..a", " ", "\n",   "a\nb",     "\xff\xfe",           "\x80", "*", "$(x)", "%s%n", "'",
            "\"",  "\\",  "~",   "#", "\x01", "\xc3\xa4", std::string(255, 'l')};
        if (chance(30))
            return odd[number(0, std::size(odd) - 1)];
        std::string text;
        for (int i = number(1, 12); i > 0; i--)
            text += static_cast<char>(number('a', 'z'));
        return text;
    }

    std::string fresh_path() {
        for (;;) {
            const std::string &folder = folders_[number(0, folders_.size() - 1)];
            const std::string path = folder.empty() ? name() : folder + "/" + name();
            if (taken_.insert(path).second)
                return path;
        }
    }

    Plan plan() {
        const std::string path = fresh_path();
        const int kind = number(1, 100);
        if (kind <= 30) {
            folders_.push_back(path);
            return {path, dressed(S_IFDIR), "", time(), owner(), owner()};
        }
        if (kind <= 50)
            return {path, S_IFLNK | 0777, chance(50) ? name() : "../" + fresh_target(), time(), owner(), owner()};
        if (kind <= 56)
            return {path, dressed(chance(50) ? S_IFIFO : S_IFSOCK), "", time(), owner(), owner()};
        return {path, dressed(S_IFREG), bytes(size()), time(), owner(), owner()};
    }

    size_t size() {
        static constexpr size_t edges[] = {0, 1, 32767, 32768, 32769, 65536};
        return chance(40) ? edges[number(0, std::size(edges) - 1)] : static_cast<size_t>(number(0, 70'000));
    }
    const std::string &fresh_target() { return folders_[number(0, folders_.size() - 1)]; }

    std::mt19937 random_;
    std::vector<std::string> folders_{""};
    std::set<std::string> taken_{""};
};

// Gives some of the files a second name.
void link_some(const std::string &top, uint32_t seed) {
    int i = static_cast<int>(seed);
    for (const Entry &entry : list_tree(top))
        if (S_ISREG(entry.mode) && i++ % 4 == 0)
            check(link((top + "/" + entry.path).c_str(), (top + "/second name " + std::to_string(i)).c_str()) == 0,
                  "link " + entry.path);
}

void copy_by_other_means(const std::string &source, const std::string &target) {
    const char *const arguments[] = {"cp", "-a", "-T", source.c_str(), target.c_str(), nullptr};
    pid_t child = 0;
    const int error = posix_spawnp(&child, "cp", nullptr, nullptr, const_cast<char *const *>(arguments), environ);
    ASSERT_EQ(error, 0);
    ASSERT_EQ(wait_for(child), 0);
}

bool has_children(const std::vector<Entry> &entries, const std::string &path) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Entry &entry) { return entry.path.rfind(path + "/", 0) == 0; });
}

// The time that a folder or link gets, for which the seconds are cut to 32 bits.
int64_t in_32_bits(int64_t time) {
    const timespec parts = to_timespec(time);
    return static_cast<uint32_t>(parts.tv_sec) * kSecond + parts.tv_nsec;
}

// Marks a time which only has to be that of the copying.
constexpr int64_t kDuringCopy = -1;

// What the library makes of a tree that `cp -a` copied exactly.
std::vector<Entry> as_the_library_copies(std::vector<Entry> entries) {
    std::erase_if(entries, [](const Entry &entry) { return S_ISFIFO(entry.mode) || S_ISSOCK(entry.mode); });
    for (Entry &entry : entries) {
        if (S_ISREG(entry.mode))
            entry.mode &= S_IFMT | 0777;
        else
            entry.modified = in_32_bits(entry.modified);
        // A subfolder has the time of the last thing that was put into it.
        if (S_ISDIR(entry.mode) && !entry.path.empty() && has_children(entries, entry.path))
            entry.modified = kDuringCopy;
    }
    return entries;
}

std::vector<Entry> listed_since(const std::string &top, int64_t start) {
    std::vector<Entry> entries = list_tree(top);
    for (Entry &entry : entries)
        if (S_ISDIR(entry.mode) && !entry.path.empty() && has_children(entries, entry.path) && entry.modified >= start)
            entry.modified = kDuringCopy;
    return entries;
}

// What the listing does not show: one name a file, and access times that are the modification times. To be asked
// before the content is read, which changes the access times.
void expect_own_files(const std::string &top) {
    for (const auto &found : std::filesystem::recursive_directory_iterator(top)) {
        const struct stat status = status_of(found.path());
        if (S_ISDIR(status.st_mode))
            continue;
        EXPECT_EQ(status.st_nlink, 1U) << found.path();
        EXPECT_EQ(nanoseconds(status.st_atim), nanoseconds(status.st_mtim)) << found.path();
    }
}

class TreeCopyBesideCp : public testing::TestWithParam<uint32_t> {};

constexpr uint32_t kTreesOfCase = 50;

INSTANTIATE_TEST_SUITE_P(All, TreeCopyBesideCp, testing::Values(0, 50, 100, 150, 200, 250));

}  // namespace

TEST_P(TreeCopyBesideCp, agrees_but_for_what_is_promised) {
    const SmallDisk disk(int64_t{64} << 20);
    const std::string source = disk.path("source");
    const std::string ours = disk.path("ours");
    const std::string theirs = disk.path("theirs");

    for (uint32_t seed = GetParam(); seed < GetParam() + kTreesOfCase; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        RandomTree(seed).make(source);
        if (seed % 3 == 0)
            link_some(source, seed);
        copy_by_other_means(source, theirs);
        LogCapture log;
        const int64_t start = now();

        EXPECT_EQ(Copy_Folder_Tree(source.c_str(), ours.c_str(), nullptr), 0);

        EXPECT_THAT(log.messages(), IsEmpty());
        expect_own_files(ours);
        EXPECT_EQ(listed_since(ours, start), as_the_library_copies(list_tree(theirs)));
        for (const std::string &tree : {source, ours, theirs})
            EXPECT_EQ(Remove_Folder_Tree(tree.c_str(), nullptr), 0);
        ASSERT_FALSE(HasFailure());
    }
}
