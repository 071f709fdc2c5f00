// Printing nodes, writing them to a file, and replacing a file by them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <thread>

#include "conf_lists.h"
#include "faults.h"
#include "heap.h"
#include "sandbox.h"

using lists::Conf;
using lists::ConfList;
using lists::make_conf;
using lists::Messages;
using lists::messages_at;
using lists::Pairs;
using support::BeforeCall;
using support::Call;
using support::CountCalls;
using support::FailCall;
using support::TempFolder;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const Conf kConf = {{"", {{"a", "1"}}}, {"s", {{"b", "2"}}}};
const char kText[] = "a = 1\n\n[s]\nb = 2\n\n";

// What `print` puts out to the stream that it is given.
std::string printed(const std::function<void(FILE *)> &print) {
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    print(stream);
    std::fclose(stream);
    std::string result(text, size);
    std::free(text);
    return result;
}

// The documented print of a configuration, by a second hand.
std::string text_of(const Conf &conf) {
    std::string text;
    for (const auto &[name, pairs] : conf) {
        if (!name.empty())
            text += "[" + name + "]\n";
        for (const auto &[key, value] : pairs)
            text += key + " = " + value + "\n";
        text += "\n";
    }
    return text;
}

// A configuration of random bytes that the format can hold.
Conf random_conf(std::mt19937 &random) {
    const auto text = [&](std::string_view edges, std::string_view inside, size_t longest) {
        const size_t size = random() % (longest + 1);
        std::string result;
        for (size_t i = 0; i < size; i++) {
            const auto &bytes = i == 0 || i == size - 1 ? edges : inside;
            result += bytes[random() % bytes.size()];
        }
        return result;
    };
    Conf conf;
    for (size_t sections = random() % 6; sections > 0; sections--) {
        conf.push_back({"n" + text("ab [=;#\t", "ab [=;#\t\r\xff", 12), {}});
        for (size_t pairs = random() % 8; pairs > 0; pairs--)
            conf.back().pairs.push_back(
                {"k" + text("ab]\r", "ab ]\t[;#\r\xff", 10), text("ab=]\r[#\xff", "ab= \t][;#\r", 30)});
    }
    if (!conf.empty() && !conf[0].pairs.empty() && random() % 2 == 0)
        conf[0].name.clear();
    return conf;
}

std::string temporary_name(const std::string &path) {
    return path + ".tmp." + std::to_string(getpid());
}

mode_t mode_of(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode;
}

void with_umask(mode_t mask, const std::function<void()> &body) {
    const mode_t outer = umask(mask);
    body();
    umask(outer);
}

int32_t update(const std::string &path, const Conf &conf = kConf) {
    return Update_Conf_File(path.c_str(), make_conf(conf));
}

int32_t write(const std::string &path, const Conf &conf = kConf) {
    return Write_Conf_File(path.c_str(), make_conf(conf));
}

// The messages of the failures that a path and a code are reported with.
std::string cant_open(const std::string &path, int error) {
    return "[error] Write_Conf_File(#): Can't open file " + path + " error! (" + std::to_string(-error) + ")\n";
}
std::string cant_update(const char *step, const std::string &path, int error) {
    return std::string("[error] Update_Conf_File(#): Can't ") + step + " conf file \"" + temporary_name(path) +
           "\" error! (" + std::to_string(-error) + ")\n";
}
std::string cant_chmod(const std::string &path, int error) {
    return "[error] Update_Conf_File(#): Can't chmod to " + path + "! (" + std::to_string(-error) + ")\n";
}

// Updates a file, which must fail with these messages; no descriptor may be left open. Errors show from level 1.
void expect_update_fails(const std::string &path, int error, const Messages &messages) {
    const auto before = support::open_descriptors();
    EXPECT_EQ(messages_at(1, [&] { EXPECT_EQ(update(path), -error); }), messages);
    EXPECT_EQ(support::open_descriptors(), before);
}

}  // namespace

TEST(WritePairNode, prints_every_pair_from_the_given_one_on) {
    const lists::PairList pairs = lists::make_pairs({{"a", "1"}, {"b key", "x = y "}, {"c", ""}, {"%s", "%n%d"}});
    EXPECT_EQ(printed([&](FILE *out) { EXPECT_EQ(Write_Pair_Node(out, pairs), 0); }),
              "a = 1\nb key = x = y \nc = \n%s = %n%d\n");
    EXPECT_EQ(printed([&](FILE *out) { EXPECT_EQ(Write_Pair_Node(out, pairs->pNext->pNext), 0); }),
              "c = \n%s = %n%d\n");
    EXPECT_EQ(printed([&](FILE *out) { EXPECT_EQ(Write_Pair_Node(out, nullptr), 0); }), "");
}

TEST(WritePairNode, prints_a_value_that_stands_elsewhere) {
    char elsewhere[] = "elsewhere";
    const lists::PairList pairs = lists::make_pairs({{"key", "own"}});
    char *const own = std::exchange(pairs->pszValue, elsewhere);
    EXPECT_EQ(printed([&](FILE *out) { Write_Pair_Node(out, pairs); }), "key = elsewhere\n");
    pairs->pszValue = own;
}

TEST(WriteSectNode, prints_every_section_with_an_empty_line) {
    const std::pair<Conf, const char *> rows[] = {
        {kConf, kText},
        {{}, ""},
        {{{"s", {}}}, "[s]\n\n"},
        {{{"", {}}}, "\n"},
        {{{"", {{"k", "v"}, {"k", "w"}}}}, "k = v\nk = w\n\n"},
        {{{"a", {{"k", "v"}}}, {"", {{"l", "w"}}}, {"a", {}}}, "[a]\nk = v\n\nl = w\n\n[a]\n\n"},
        {{{" x ]%s", {}}}, "[ x ]%s]\n\n"},
    };
    for (const auto &[conf, text] : rows) {
        const ConfList list = make_conf(conf);
        EXPECT_EQ(printed([&](FILE *out) { EXPECT_EQ(Write_Sect_Node(out, list), 0); }), text);
    }
}

TEST(WriteSectNode, begins_at_the_given_section) {
    const ConfList conf = make_conf({{"a", {{"k", "v"}}}, {"b", {}}, {"c", {{"l", "w"}}}});
    EXPECT_EQ(printed([&](FILE *out) { Write_Sect_Node(out, conf->pNext); }), "[b]\n\n[c]\nl = w\n\n");
}

TEST(WriteNodes, refuse_a_null_stream_silently) {
    const ConfList conf = make_conf(kConf);
    const auto messages = messages_at(3, [&] {
        EXPECT_EQ(Write_Pair_Node(nullptr, conf->pPairs), -EINVAL);
        EXPECT_EQ(Write_Pair_Node(nullptr, nullptr), -EINVAL);
        EXPECT_EQ(Write_Sect_Node(nullptr, conf), -EINVAL);
        EXPECT_EQ(Write_Sect_Node(nullptr, nullptr), -EINVAL);
    });
    EXPECT_THAT(messages, IsEmpty());
}

TEST(WriteNodes, report_no_write_error) {
    FILE *full = std::fopen("/dev/full", "w");
    std::setvbuf(full, nullptr, _IONBF, 0);
    const ConfList conf = make_conf(kConf);
    EXPECT_EQ(Write_Sect_Node(full, conf), 0);
    EXPECT_EQ(Write_Pair_Node(full, conf->pPairs), 0);
    EXPECT_TRUE(std::ferror(full));
    std::fclose(full);
}

TEST(WriteConfFile, creates_a_file_by_the_umask) {
    const TempFolder folder;
    for (const mode_t mask : {0U, 022U, 077U}) {
        const auto path = folder.path("mask" + std::to_string(mask));
        with_umask(mask, [&] { EXPECT_EQ(write(path), 0); });
        EXPECT_EQ(support::read_file(path), kText);
        EXPECT_EQ(mode_of(path), S_IFREG | (0666U & ~mask));
    }
}

TEST(WriteConfFile, truncates_a_file_and_leaves_it_its_mode) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", std::string(100000, 'x'));
    ASSERT_EQ(chmod(path.c_str(), 0604), 0);
    const auto before = support::open_descriptors();
    EXPECT_THAT(messages_at(3, [&] { EXPECT_EQ(write(path), 0); }), IsEmpty());
    EXPECT_EQ(support::open_descriptors(), before);
    EXPECT_EQ(support::read_file(path), kText);
    EXPECT_EQ(mode_of(path), S_IFREG | 0604U);

    EXPECT_EQ(Write_Conf_File(path.c_str(), nullptr), 0);
    EXPECT_EQ(support::read_file(path), "");
    EXPECT_THAT(folder.names(), ElementsAre("x.conf"));
}

TEST(WriteConfFile, writes_through_a_symbolic_link) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "old = 1\n");
    ASSERT_EQ(symlink("x.conf", folder.path("link").c_str()), 0);
    EXPECT_EQ(write(folder.path("link")), 0);
    EXPECT_EQ(support::read_file(path), kText);
    EXPECT_TRUE(S_ISLNK(mode_of(folder.path("link"))));
}

TEST(WriteConfFile, writes_through_a_link_of_the_kernel) {
    const TempFolder folder;
    const int file = open(folder.file("x.conf", "").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(unlink(folder.path("x.conf").c_str()), 0);  // so the link's text leads nowhere
    EXPECT_EQ(write("/proc/self/fd/" + std::to_string(file)), 0);
    char text[64]{};
    EXPECT_EQ(pread(file, text, sizeof text, 0), static_cast<ssize_t>(sizeof kText - 1));
    EXPECT_STREQ(text, kText);
    close(file);
}

TEST(WriteConfFile, waits_for_the_reader_of_its_own_pipe) {
    const TempFolder folder;
    const auto path = folder.path("x.conf");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::string text;
    std::jthread reader([&] { text = support::read_file(path); });  // opens it when the writer does
    EXPECT_EQ(write(path), 0);
    reader.join();
    EXPECT_EQ(text, kText);
}

TEST(WriteConfFile, reports_a_file_that_it_can_t_open) {
    const TempFolder folder;
    const std::pair<std::string, int> rows[] = {{folder.path(), EISDIR},
                                                {folder.path("none/x.conf"), ENOENT},
                                                {folder.file("file", "") + "/x.conf", ENOTDIR},
                                                {"", ENOENT},
                                                {folder.path(std::string(256, 'x')), ENAMETOOLONG}};
    for (const auto &[path, error] : rows) {
        SCOPED_TRACE(path);
        EXPECT_EQ(messages_at(1, [&] { EXPECT_EQ(write(path), -error); }), (Messages{cant_open(path, error)}));
    }
    EXPECT_THAT(messages_at(0, [&] { write(folder.path()); }), IsEmpty());
}

TEST(WriteConfFile, refuses_a_null_path_silently) {
    const ConfList conf = make_conf(kConf);
    EXPECT_THAT(messages_at(3, [&] { EXPECT_EQ(Write_Conf_File(nullptr, conf), -EINVAL); }), IsEmpty());
}

TEST(WriteConfFile, does_not_look_at_what_closing_reports) {
    EXPECT_THAT(messages_at(3, [] { EXPECT_EQ(write("/dev/full"), 0); }), IsEmpty());
}

TEST(WriteConfFile, opens_close_on_exec) {
    const TempFolder folder;
    const auto path = folder.path("x.conf");
    int flags = 0;
    const BeforeCall look(Call::fclose, 1, [&] {
        for (const auto &[descriptor, target] : support::open_descriptors())
            if (target == path)
                flags = fcntl(descriptor, F_GETFD);
    });
    EXPECT_EQ(write(path), 0);
    EXPECT_TRUE(look.ran());
    EXPECT_EQ(flags & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(UpdateConfFile, replaces_the_text_and_nothing_else_in_the_folder) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "old = 1\n");
    const auto before = support::open_descriptors();
    EXPECT_THAT(messages_at(3, [&] { EXPECT_EQ(update(path), 0); }), IsEmpty());
    EXPECT_EQ(support::open_descriptors(), before);
    EXPECT_EQ(support::read_file(path), kText);
    EXPECT_THAT(folder.names(), ElementsAre("x.conf"));

    EXPECT_EQ(Update_Conf_File(path.c_str(), nullptr), 0);
    EXPECT_EQ(support::read_file(path), "") << "an empty configuration empties the file";
}

TEST(UpdateConfFile, refuses_a_null_path_silently) {
    const ConfList conf = make_conf(kConf);
    EXPECT_THAT(messages_at(3,
                            [&] {
                                EXPECT_EQ(Update_Conf_File(nullptr, conf), -EINVAL);
                                EXPECT_EQ(Update_Conf_File(nullptr, nullptr), -EINVAL);
                            }),
                IsEmpty());
}

TEST(UpdateConfFile, has_the_new_text_complete_beside_the_old_before_it_renames) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "old = 1\n");
    const auto look_and_update = [&] {
        const std::string name = "x.conf.tmp." + std::to_string(getpid());
        const BeforeCall look(Call::rename, 1, [&] {
            EXPECT_THAT(folder.names(), ElementsAre("x.conf", name));
            EXPECT_EQ(support::read_file(folder.path(name)), kText);
            EXPECT_EQ(support::read_file(path), "old = 1\n");
        });
        EXPECT_EQ(update(path), 0);
        EXPECT_TRUE(look.ran());
        return testing::Test::HasFailure() ? 1 : 0;
    };
    look_and_update();
    support::write_file(path, "old = 1\n");
    EXPECT_EQ(support::in_child(look_and_update), 0) << "another process has another name";
}

TEST(UpdateConfFile, takes_no_lock) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "");
    const BeforeCall look(Call::rename, 1, [&] {
        EXPECT_TRUE(std::filesystem::is_empty("/var/lock"));
        EXPECT_FALSE(support::exists(path + ".lck"));
    });
    EXPECT_EQ(update(path), 0);
    EXPECT_TRUE(look.ran());
}

TEST(UpdateConfFile, carries_the_mode_over) {
    const TempFolder folder;
    for (const mode_t mode : {0600U, 0644U, 0666U, 0444U, 0U, 04755U, 02711U, 01777U}) {
        SCOPED_TRACE(mode);
        const auto path = folder.file("x.conf", "old = 1\n");
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        with_umask(077, [&] { EXPECT_EQ(update(path), 0); });
        EXPECT_EQ(mode_of(path), S_IFREG | mode);
        unlink(path.c_str());
    }
}

TEST(UpdateConfFile, creates_a_missing_file_by_the_umask_alone) {
    const TempFolder folder;
    const auto path = folder.path("x.conf");
    for (const mode_t mask : {0U, 022U, 077U}) {
        const CountCalls chmods(Call::fchmod);
        with_umask(mask, [&] { EXPECT_EQ(update(path), 0); });
        EXPECT_EQ(chmods.count(), 0);
        EXPECT_EQ(mode_of(path), S_IFREG | (0666U & ~mask));
        EXPECT_EQ(support::read_file(path), kText);
        unlink(path.c_str());
    }
}

TEST(UpdateConfFile, makes_a_new_file_of_its_own_user) {
    if (!support::can_be_nobody())
        GTEST_SKIP() << "only a privileged program can give a file away";

    const TempFolder folder;
    const auto path = folder.file("x.conf", "old = 1\n");
    const auto other_name = folder.path("other");
    ASSERT_EQ(link(path.c_str(), other_name.c_str()), 0);
    ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    EXPECT_EQ(update(path), 0);

    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid());
    EXPECT_EQ(status.st_gid, getegid());
    EXPECT_EQ(support::read_file(other_name), "old = 1\n");
}

TEST(UpdateConfFile, puts_a_file_in_the_place_of_a_symbolic_link) {
    const TempFolder folder;
    const auto target = folder.file("target", "old = 1\n");
    ASSERT_EQ(chmod(target.c_str(), 0600), 0);
    for (const char *leads_to : {"target", "nowhere"}) {
        SCOPED_TRACE(leads_to);
        const auto path = folder.path("x.conf");
        unlink(path.c_str());
        ASSERT_EQ(symlink(leads_to, path.c_str()), 0);
        EXPECT_EQ(update(path), 0);
        EXPECT_EQ(mode_of(path), S_IFREG | 0777U) << "the bits of the link itself";
        EXPECT_EQ(support::read_file(path), kText);
    }
    EXPECT_EQ(support::read_file(target), "old = 1\n");
    EXPECT_EQ(mode_of(target), S_IFREG | 0600U);
    EXPECT_THAT(folder.names(), ElementsAre("target", "x.conf"));
}

TEST(UpdateConfFile, leaves_everything_as_it_was_when_the_folder_is_not_writable) {
    if (!support::can_be_nobody())
        GTEST_SKIP() << "only a privileged program can become another user";

    const TempFolder folder;
    const auto path = folder.file("x.conf", "old = 1\n");
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    EXPECT_EQ(support::in_child_as_nobody([&] {
                  const CountCalls renames(Call::rename);
                  const CountCalls chmods(Call::fchmod);
                  expect_update_fails(path, EACCES,
                                      {cant_open(temporary_name(path), EACCES), cant_update("write", path, EACCES)});
                  EXPECT_EQ(renames.count(), 0);
                  EXPECT_EQ(chmods.count(), 0);
                  return HasFailure() ? 1 : 0;
              }),
              0);
    EXPECT_EQ(support::read_file(path), "old = 1\n");
    EXPECT_THAT(folder.names(), ElementsAre("x.conf"));
}

TEST(UpdateConfFile, reports_a_temporary_file_that_it_can_t_open) {
    const TempFolder folder;
    const auto missing = folder.path("none/x.conf");
    expect_update_fails(missing, ENOENT,
                        {cant_open(temporary_name(missing), ENOENT), cant_update("write", missing, ENOENT)});

    const auto path = folder.file("x.conf", "old = 1\n");
    ASSERT_EQ(mkdir(temporary_name(path).c_str(), 0700), 0);
    expect_update_fails(path, EISDIR, {cant_open(temporary_name(path), EISDIR), cant_update("write", path, EISDIR)});
    EXPECT_EQ(support::read_file(path), "old = 1\n");
}

TEST(UpdateConfFile, takes_over_a_temporary_file_that_was_left_behind) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "old = 1\n");
    support::write_file(temporary_name(path), std::string(100000, 'x'));
    EXPECT_EQ(update(path), 0);
    EXPECT_EQ(support::read_file(path), kText);
    EXPECT_THAT(folder.names(), ElementsAre("x.conf"));
}

TEST(UpdateConfFile, can_t_take_the_place_of_a_folder) {
    const TempFolder folder;
    const auto path = folder.path("x.conf");
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    ASSERT_EQ(chmod(path.c_str(), 02750), 0);
    expect_update_fails(path, EISDIR, {cant_update("rename", path, EISDIR)});
    EXPECT_EQ(mode_of(path), S_IFDIR | 02750U);
    EXPECT_THAT(folder.names(), ElementsAre("x.conf")) << "the temporary file is removed";
}

TEST(UpdateConfFile, sets_the_mode_in_any_case_and_returns_the_last_failure) {
    const TempFolder folder;
    const auto path = folder.path("x.conf");
    const std::string old_text = "old = 1\n";
    const struct {
        int rename_error;
        int chmod_error;
        int result;
        Messages messages;
        std::string text;
    } rows[] = {
        {EBUSY, 0, EBUSY, {cant_update("rename", path, EBUSY)}, old_text},
        {0, EPERM, EPERM, {cant_chmod(path, EPERM)}, kText},
        {EXDEV, EPERM, EPERM, {cant_update("rename", path, EXDEV), cant_chmod(path, EPERM)}, old_text},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.messages[0]);
        support::write_file(path, old_text);
        const CountCalls chmods(Call::fchmod);
        const FailCall rename_fault(Call::rename, row.rename_error, 1, row.rename_error == 0 ? 0 : 1);
        const FailCall chmod_fault(Call::fchmod, row.chmod_error, 2, row.chmod_error == 0 ? 0 : 1);
        expect_update_fails(path, row.result, row.messages);
        EXPECT_EQ(chmods.count(), 2) << "one before the first byte, and the last one";
        EXPECT_EQ(support::read_file(path), row.text);
        EXPECT_THAT(folder.names(), ElementsAre("x.conf"));
    }
}

TEST(UpdateConfFile, reports_a_failed_rename_of_a_missing_file_without_a_mode_to_set) {
    const TempFolder folder;
    const auto path = folder.path("x.conf");
    const FailCall rename_fault(Call::rename, EBUSY);
    expect_update_fails(path, EBUSY, {cant_update("rename", path, EBUSY)});
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(UpdateConfFile, leaves_a_temporary_file_only_where_it_can_t_be_removed) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "old = 1\n");
    const FailCall rename_fault(Call::rename, EXDEV);
    const FailCall unlink_fault(Call::unlinkat, EPERM);
    expect_update_fails(path, EXDEV, {cant_update("rename", path, EXDEV)});
    EXPECT_THAT(folder.names(), ElementsAre("x.conf", "x.conf.tmp." + std::to_string(getpid())));
}

TEST(UpdateConfFile, gives_a_file_in_doubt_to_its_owner_alone) {
    const TempFolder folder;
    for (const auto &[error, mode] : {std::pair(EIO, 0600U), {EACCES, 0600U}, {ENOENT, 0644U}}) {
        SCOPED_TRACE(error);
        const auto path = folder.file("x.conf", "old = 1\n");
        ASSERT_EQ(chmod(path.c_str(), 0640), 0);
        const FailCall fault(Call::fstatat, error);
        with_umask(022, [&] { EXPECT_EQ(update(path), 0); });
        EXPECT_EQ(fault.failed(), 1);
        EXPECT_EQ(mode_of(path), S_IFREG | mode);
        unlink(path.c_str());
    }
}

TEST(UpdateConfFile, refuses_a_path_whose_temporary_name_does_not_fit) {
    const TempFolder folder;
    folder.file("x.conf", "old = 1\n");
    const size_t longest = 4095 - (temporary_name("").size());
    // Slashes make a path of any length to the same file.
    const auto path_of = [&](size_t length) {
        const std::string name = "x.conf";
        return folder.path() + std::string(length - folder.path().size() - name.size(), '/') + name;
    };
    for (const size_t length : {longest + 1, longest + 2, size_t{4095}, size_t{4096}, size_t{10000}}) {
        SCOPED_TRACE(length);
        const CountCalls opens(Call::fdopen);
        EXPECT_EQ(update(path_of(length)), -ENAMETOOLONG);
        EXPECT_EQ(opens.count(), 0);
    }
    EXPECT_EQ(support::read_file(folder.path("x.conf")), "old = 1\n");

    EXPECT_EQ(update(path_of(longest)), 0);
    EXPECT_EQ(support::read_file(folder.path("x.conf")), kText);
    EXPECT_THAT(folder.names(), ElementsAre("x.conf"));
}

TEST(UpdateConfFile, replaces_the_text_by_a_cut_one_on_a_full_disk) {
    const support::SmallDisk disk(256 * 1024);
    const auto path = disk.file("x.conf", "old = 1\n");
    const Conf large = {{"s", {{"k", std::string(1 << 20, 'v')}}}};
    const auto before = support::open_descriptors();
    EXPECT_THAT(messages_at(3, [&] { EXPECT_EQ(update(path, large), 0); }), IsEmpty());
    EXPECT_EQ(support::open_descriptors(), before);

    const std::string found = support::read_file(path);
    EXPECT_LT(found.size(), size_t{1} << 20);
    EXPECT_TRUE(text_of(large).starts_with(found));
    EXPECT_THAT(disk.names(), ElementsAre("x.conf"));
}

TEST(UpdateConfFile, shows_readers_one_text_or_the_other) {
    const TempFolder folder;
    const Conf confs[] = {{{"a", {{"k", std::string(9000, '1')}}}}, {{"b", {{"l", "2"}}}, {"c", {}}}};
    const auto path = folder.file("x.conf", text_of(confs[0]));
    const auto start_writer = [&](const Conf &conf) {
        return support::start_child([&] {
            int failures = 0;
            for (int i = 0; i < 500; i++)
                failures += update(path, conf) == 0 ? 0 : 1;
            return failures == 0 ? 0 : 1;
        });
    };
    const pid_t writers[] = {start_writer(confs[0]), start_writer(confs[1])};
    for (int i = 0; i < 2000; i++) {
        const Conf found = lists::conf_in_file(path);
        EXPECT_TRUE(found == confs[0] || found == confs[1]) << "in read " << i;
    }
    for (const pid_t writer : writers)
        EXPECT_EQ(support::wait_for(writer), 0);
    EXPECT_THAT(folder.names(), ElementsAre("x.conf"));
}

TEST(WriteAndRead, keep_random_configurations) {
    const TempFolder folder;
    const auto path = folder.path("x.conf");
    std::mt19937 random(20240131);
    for (int i = 0; i < 500 && !testing::Test::HasFailure(); i++) {
        SCOPED_TRACE(i);
        const Conf conf = random_conf(random);
        EXPECT_EQ(i % 2 == 0 ? write(path, conf) : update(path, conf), 0);
        EXPECT_EQ(support::read_file(path), text_of(conf));

        EXPECT_THAT(messages_at(3, [&] { EXPECT_EQ(lists::conf_in_file(path), conf); }), IsEmpty());
        FILE *stream = std::fopen(path.c_str(), "r");
        ConfList streamed;
        EXPECT_EQ(Parse_Conf_Stream(stream, streamed.head()), static_cast<int32_t>(conf.size()));
        EXPECT_EQ(lists::conf_of(streamed), conf);
        std::fclose(stream);
    }
}

TEST(WriteAndRead, lose_what_the_format_can_t_hold) {
    const TempFolder folder;
    const auto path = folder.path("x.conf");
    const std::pair<Conf, Conf> rows[] = {
        {{{"", {{" k ", "\t v "}}}}, {{"", {{"k", "v"}}}}},
        {{{"", {}}, {"a", {}}}, {{"a", {}}}},
        {{{"a", {{"k", "1"}}}, {"", {{"l", "2"}}}}, {{"a", {{"k", "1"}, {"l", "2"}}}}},
        {{{"a]b", {}}}, {{"a", {}}}},
        {{{"", {{"k=x", "v"}}}}, {{"", {{"k", "x = v"}}}}},
        {{{"a", {{"#k", "1"}, {";k", "2"}, {"", "3"}}}}, {{"a", {}}}},
        {{{"a", {{"[b]", "1"}}}}, {{"a", {}}, {"b", {}}}},
        {{{"", {{"k", "1\nl = 2"}}}}, {{"", {{"k", "1"}, {"l", "2"}}}}},
    };
    for (const auto &[written, read] : rows) {
        SCOPED_TRACE(text_of(written));
        EXPECT_EQ(write(path, written), 0);
        EXPECT_EQ(support::read_file(path), text_of(written));
        EXPECT_EQ(lists::conf_in_file(path), read);
    }
}

TEST(WriteAndRead, drop_the_layout_of_a_file) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "; c\nk=v\n\n\nbad\n[a]  x\n#\n  l  =  w w \n[]\nm=\n[a]\n");
    ConfList conf;
    ASSERT_EQ(Read_Conf_File(path.c_str(), conf.head()), 4);
    EXPECT_EQ(Update_Conf_File(path.c_str(), conf), 0);
    EXPECT_EQ(support::read_file(path), "k = v\n\n[a]\nl = w w\n\nm = \n\n[a]\n\n");
}

TEST(WriteAndRead, print_the_keys_of_a_stream_as_they_ran_on) {
    FILE *stream = std::tmpfile();
    std::fputs("a=1\nb = 2\n", stream);
    std::rewind(stream);
    ConfList conf;
    ASSERT_EQ(Parse_Conf_Stream(stream, conf.head()), 1);
    std::fclose(stream);
    EXPECT_EQ(printed([&](FILE *out) { Write_Sect_Node(out, conf); }), "a=1 = 1\nb = 2\n\n");
}

TEST(WriteFiles, lose_no_memory_in_any_failure) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "old = 1\n");
    const ConfList conf = make_conf(kConf);
    for (const auto &[call, nth] :
         {std::pair(Call::openat, 2), {Call::fdopen, 1}, {Call::rename, 1}, {Call::fchmod, 2}})
        EXPECT_FALSE(support::loses_memory([&] {
            const FailCall fault(call, EIO, nth);
            Update_Conf_File(path.c_str(), conf);
        }));
}
