// Reading whole files: into memory, and into nodes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <thread>
#include <tuple>

#include "conf_lists.h"
#include "faults.h"
#include "heap.h"
#include "lease_holder.h"
#include "sandbox.h"

using lists::Conf;
using lists::Messages;
using lists::messages_at;
using support::BeforeCall;
using support::Call;
using support::CountCalls;
using support::FailCall;
using support::TempFolder;

namespace {

using Text = std::unique_ptr<char, decltype(&std::free)>;

struct Cached {
    int32_t result;
    std::string text;  // with all its NUL bytes
    bool operator==(const Cached &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Cached &cached) {
    return out << cached.result << " " << testing::PrintToString(cached.text);
}

// Caches a file; checks that there is a text just where there is a length, and that it ends in a NUL.
Cached cache(const std::string &path) {
    char dummy;
    char *text = &dummy;
    const int32_t result = Cache_Conf_File(path.c_str(), &text);
    if (result < 0) {
        EXPECT_EQ(text, nullptr);
        return {result, ""};
    }

    const Text owner(text, std::free);
    EXPECT_EQ(text[result], '\0');
    return {result, std::string(text, static_cast<size_t>(result))};
}

// Expects that a path can't be read, by either function, with one debug message of each.
// Also while the calls of the library are made to fail.
std::map<int, std::string> open_descriptors() {
    const support::Undisturbed looking;
    return support::open_descriptors();
}

void expect_unreadable(const std::string &path, int32_t result, const std::string &message) {
    SCOPED_TRACE(path.substr(0, 100));
    const auto before = open_descriptors();
    Sect_Node dummy{};
    Sect_Node *conf = &dummy;
    const std::string cache_message = "[debug] Cache_Conf_File(#): " + message;
    const std::string read_message = "[debug] Read_Conf_File(#): Can't cache the specified conf file \"" + path +
                                     "\" error (" + std::to_string(result) + ")!\n";

    EXPECT_EQ(messages_at(3, [&] { EXPECT_EQ(cache(path).result, result); }), (Messages{cache_message}));
    EXPECT_EQ(messages_at(3, [&] { EXPECT_EQ(Read_Conf_File(path.c_str(), &conf), result); }),
              (Messages{cache_message, read_message}));
    EXPECT_EQ(conf, nullptr);
    EXPECT_THAT(messages_at(2, [&] { Read_Conf_File(path.c_str(), &conf); }), testing::IsEmpty());
    EXPECT_EQ(open_descriptors(), before);
}

void expect_missing(const std::string &path) {
    SCOPED_TRACE(path);
    Sect_Node dummy{};
    Sect_Node *conf = &dummy;
    const auto messages = messages_at(3, [&] {
        EXPECT_EQ(cache(path).result, -ENOENT);
        EXPECT_EQ(Read_Conf_File(path.c_str(), &conf), -ENOENT);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
    EXPECT_EQ(conf, nullptr);
}

std::string cant(const char *what, const std::string &path, int error) {
    return std::string("Can't ") + what + " the conf file \"" + path + "\" error! (" + std::to_string(-error) + ")\n";
}

std::string not_regular(const std::string &path, const char *mode) {
    return "The specified file \"" + path + "\" is not a regular file error! (" + mode + ")\n";
}

std::string short_read(const std::string &path, int wanted, int got, int code) {
    return "[debug] Cache_Conf_File(#): Read \"" + path + "\" " + std::to_string(wanted) + " bytes but got " +
           std::to_string(got) + " bytes error! (" + std::to_string(code) + ")\n";
}

void make_socket(const std::string &path, mode_t mode) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, path.c_str());
    const int socket_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(socket_fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    close(socket_fd);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
}

}  // namespace

TEST(FileCache, holds_the_text_with_a_final_line_feed) {
    const TempFolder folder;
    const std::string long_line(1 << 20, 'x');
    const std::string garbage("\0\xff\xfe\0\x80=\r[\0]\0", 11);
    const std::pair<std::string, std::string> rows[] = {
        {"", "\n"},
        {"\n", "\n"},
        {"\n\n", "\n\n"},
        {"a = 1\n", "a = 1\n"},
        {"a = 1", "a = 1\n"},
        {"a = 1\r\nb", "a = 1\r\nb\n"},
        {"a = 1\r", "a = 1\r\n"},
        {garbage, garbage + "\n"},
        {garbage + "\n", garbage + "\n"},
        {long_line, long_line + "\n"},
        {long_line + "\n", long_line + "\n"},
    };
    for (const auto &[content, expected] : rows) {
        SCOPED_TRACE(testing::PrintToString(content.substr(0, 20)));
        const auto path = folder.file("x.conf", content);
        EXPECT_THAT(messages_at(3,
                                [&] {
                                    EXPECT_EQ(cache(path), (Cached{static_cast<int32_t>(expected.size()), expected}));
                                }),
                    testing::IsEmpty());
        EXPECT_EQ(support::read_file(path), content);
    }
}

TEST(FileCache, takes_one_allocation_and_one_read) {
    const TempFolder folder;
    for (const auto &content : {std::string("a = 1\n"), std::string(3'000'000, 'x')}) {
        const auto path = folder.file("x.conf", content);
        char *text = nullptr;
        const CountCalls allocations(Call::allocation);
        const CountCalls reads(Call::read);
        const int32_t result = Cache_Conf_File(path.c_str(), &text);
        EXPECT_EQ(allocations.count(), 1);
        EXPECT_EQ(reads.count(), 1);
        EXPECT_GT(result, 0);
        std::free(text);
    }
}

TEST(FileCache, refuses_null_arguments_with_a_debug_message) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    char *text = nullptr;
    const auto call = [&] {
        EXPECT_EQ(Cache_Conf_File(nullptr, &text), -EINVAL);
        EXPECT_EQ(Cache_Conf_File(path.c_str(), nullptr), -EINVAL);
        EXPECT_EQ(Cache_Conf_File(nullptr, nullptr), -EINVAL);
    };
    EXPECT_EQ(messages_at(3, call), Messages(3, "[debug] Cache_Conf_File(#): Bad parameters!\n"));
    EXPECT_THAT(messages_at(2, call), testing::IsEmpty());
    EXPECT_EQ(text, nullptr);
}

TEST(FileCache, is_silent_about_a_missing_file) {
    const TempFolder folder;
    ASSERT_EQ(symlink("nowhere", folder.path("dangling").c_str()), 0);
    expect_missing(folder.path("x.conf"));
    expect_missing(folder.path("no/such/folder"));
    expect_missing(folder.path("dangling"));
    expect_missing("");
}

TEST(FileCache, reports_a_path_that_has_no_status) {
    const TempFolder folder;
    const std::string below_file = folder.file("x.conf", "") + "/y";
    const std::string loop = folder.path("loop");
    const std::string too_long = "/" + std::string(PATH_MAX, 'x');
    ASSERT_EQ(symlink("loop", loop.c_str()), 0);
    expect_unreadable(below_file, -ENOTDIR, cant("stat", below_file, ENOTDIR));
    expect_unreadable(loop, -ELOOP, cant("stat", loop, ELOOP));
    expect_unreadable(too_long, -ENAMETOOLONG, cant("stat", too_long, ENAMETOOLONG));
}

TEST(FileCache, refuses_what_is_not_a_regular_file_without_opening_it) {
    const TempFolder folder;
    const auto sub = folder.path("sub");
    const auto fifo = folder.path("fifo");
    const auto socket_path = folder.path("socket");
    const auto link = folder.path("link");
    ASSERT_EQ(mkdir(sub.c_str(), 0700), 0);
    ASSERT_EQ(chmod(sub.c_str(), 02750), 0);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_EQ(symlink("fifo", link.c_str()), 0);
    make_socket(socket_path, 0755);

    const CountCalls opens(Call::openat);
    char *text = nullptr;
    for (const auto &path : {sub, fifo, socket_path, link, std::string("/dev/null")})
        EXPECT_EQ(Cache_Conf_File(path.c_str(), &text), -ENOMEDIUM) << path;
    EXPECT_EQ(opens.count(), 0) << "opening a FIFO would wait for a writer";

    expect_unreadable(sub, -ENOMEDIUM, not_regular(sub, "45E8"));
    expect_unreadable(fifo, -ENOMEDIUM, not_regular(fifo, "1180"));
    expect_unreadable(link, -ENOMEDIUM, not_regular(link, "1180"));
    expect_unreadable(socket_path, -ENOMEDIUM, not_regular(socket_path, "C1ED"));
    expect_unreadable("/dev/null", -ENOMEDIUM, not_regular("/dev/null", "21B6"));
}

TEST(FileCache, follows_symbolic_links) {
    const TempFolder folder;
    folder.file("x.conf", "a = 1");
    ASSERT_EQ(symlink("x.conf", folder.path("one").c_str()), 0);
    ASSERT_EQ(symlink("one", folder.path("two").c_str()), 0);
    EXPECT_EQ(cache(folder.path("two")), (Cached{6, "a = 1\n"}));
}

TEST(FileCache, reports_a_file_that_its_user_may_not_read) {
    if (!support::can_be_nobody())
        GTEST_SKIP() << "only a privileged program can become another user";

    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    const auto try_as_nobody = [&](const char *what) {
        EXPECT_EQ(support::in_child_as_nobody([&] {
                      expect_unreadable(path, -EACCES, cant(what, path, EACCES));
                      return HasFailure() ? 1 : 0;
                  }),
                  0);
    };
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    try_as_nobody("open");
    ASSERT_EQ(chmod(folder.path().c_str(), 0700), 0);
    try_as_nobody("stat");
}

TEST(FileCache, reports_a_file_that_vanishes_before_it_is_opened) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    const BeforeCall vanish(Call::openat, 1, [&] { unlink(path.c_str()); });
    const auto messages = messages_at(3, [&] { EXPECT_EQ(cache(path).result, -ENOENT); });
    EXPECT_TRUE(vanish.ran());
    EXPECT_EQ(messages, (Messages{"[debug] Cache_Conf_File(#): " + cant("open", path, ENOENT)}));
}

TEST(FileCache, reports_no_more_than_its_own_message_for_a_vanished_file) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    const BeforeCall vanish(Call::openat, 1, [&] { unlink(path.c_str()); });
    Sect_Node *conf = nullptr;
    const auto messages = messages_at(3, [&] { EXPECT_EQ(Read_Conf_File(path.c_str(), &conf), -ENOENT); });
    EXPECT_EQ(messages, (Messages{"[debug] Cache_Conf_File(#): " + cant("open", path, ENOENT)}));
}

TEST(FileCache, reports_what_stat_and_open_report) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    for (const auto &[call, name, error] : {std::tuple(Call::stat, "stat", EIO), {Call::openat, "open", EMFILE}}) {
        const FailCall fault(call, error, 1, 100);
        expect_unreadable(path, -error, cant(name, path, error));
        EXPECT_GE(fault.failed(), 3);
    }
}

TEST(FileCache, reports_missing_memory_with_the_size_asked_for) {
    const TempFolder folder;
    for (const auto &[content, size] : {std::pair("", "2"), std::pair("a = 1\n", "8"), std::pair("a = 1", "7")}) {
        const auto path = folder.file("x.conf", content);
        const auto before = support::open_descriptors();
        Messages messages;
        {
            support::LogCapture log;
            char dummy;
            char *text = &dummy;
            FailCall no_memory(Call::allocation, ENOMEM);
            EXPECT_EQ(Cache_Conf_File(path.c_str(), &text), -ENOMEM);
            EXPECT_EQ(text, nullptr);
            messages = log.messages();
        }
        EXPECT_EQ(messages, (Messages{"[debug] Cache_Conf_File(#): Can't allocate " + std::string(size) +
                                      " byte to cache the conf file \"" + path + "\" error!\n"}));
        EXPECT_EQ(support::open_descriptors(), before);
    }
}

TEST(FileCache, reads_the_new_text_when_a_writer_renames_after_the_status) {
    const TempFolder folder;
    const std::string texts[] = {"k = 1\n", "k = a much longer value than the first\nl = 2\n", ""};
    for (const std::string &old_text : texts)
        for (const std::string &new_text : texts) {
            SCOPED_TRACE(std::to_string(old_text.size()) + " to " + std::to_string(new_text.size()));
            const auto path = folder.file("x.conf", old_text);
            const auto next = folder.file("next", new_text);
            const BeforeCall writer(Call::openat, 1, [&] { rename(next.c_str(), path.c_str()); });
            const std::string expected = new_text.empty() ? "\n" : new_text;
            EXPECT_EQ(cache(path), (Cached{static_cast<int32_t>(expected.size()), expected}));
            EXPECT_TRUE(writer.ran());
        }
}

TEST(FileCache, takes_a_file_that_shrinks_under_it_as_an_input_error) {
    const TempFolder folder;
    for (const int left : {5, 0}) {
        SCOPED_TRACE(left);
        const auto path = folder.file("x.conf", "a = 1\nb = 2\n");
        const auto before = support::open_descriptors();
        const BeforeCall writer(Call::read, 1, [&] { EXPECT_EQ(truncate(path.c_str(), left), 0); });
        errno = EBUSY;  // what happened long ago is not the read's error
        const auto messages = messages_at(3, [&] { EXPECT_EQ(cache(path).result, -EIO); });
        EXPECT_TRUE(writer.ran());
        EXPECT_EQ(messages, (Messages{short_read(path, 12, left, 0)}));
        EXPECT_EQ(support::open_descriptors(), before);
    }
}

TEST(FileCache, takes_a_file_that_grows_under_it_at_its_old_size) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    const BeforeCall writer(Call::read, 1, [&] { support::write_file(path, "a = 1234\nb = 2\n"); });
    EXPECT_EQ(cache(path), (Cached{7, "a = 12\n"}));
}

TEST(FileCache, reports_what_read_reports) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    for (const int error : {EIO, EINTR, EISDIR}) {
        SCOPED_TRACE(error);
        const auto before = support::open_descriptors();
        const auto messages = messages_at(3, [&] {
            const FailCall fault(Call::read, error, 1, 1);
            EXPECT_EQ(cache(path).result, -error);
            EXPECT_EQ(fault.failed(), 1);
        });
        EXPECT_EQ(messages, (Messages{short_read(path, 6, -1, -error)}));
        EXPECT_EQ(support::open_descriptors(), before);
    }
}

TEST(FileCache, refuses_what_takes_the_place_of_the_file_before_it_is_opened) {
    const std::pair<const char *, std::function<int(const char *)>> intruders[] = {
        {"folder", [](const char *path) { return mkdir(path, 0755); }},
        {"FIFO, which must not make it wait for a writer", [](const char *path) { return mkfifo(path, 0644); }},
    };
    for (const auto &[what, make] : intruders) {
        SCOPED_TRACE(what);
        const TempFolder folder;
        const auto path = folder.file("x.conf", "a = 1\n");
        const auto before = support::open_descriptors();
        const BeforeCall swap(Call::openat, 1, [&] {
            unlink(path.c_str());
            EXPECT_EQ(make(path.c_str()), 0);
        });
        EXPECT_EQ(cache(path).result, -ENOMEDIUM);
        EXPECT_TRUE(swap.ran());
        EXPECT_EQ(support::open_descriptors(), before);
    }
}

TEST(FileCache, waits_for_a_lease_as_a_plain_open_does) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    LeaseHolder holder(path);
    EXPECT_EQ(cache(path), (Cached{6, "a = 1\n"}));
    holder.expect_asked();
}

TEST(FileCache, takes_a_file_without_a_size_as_an_empty_one) {
    EXPECT_EQ(cache("/proc/self/status"), (Cached{1, "\n"}));
}

TEST(FileCache, frees_its_buffer_on_every_failure) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    EXPECT_FALSE(support::loses_memory([&] {
        const FailCall fault(Call::read, EIO);
        char *text = nullptr;
        Cache_Conf_File(path.c_str(), &text);
    }));
}

TEST(FileCache, opens_close_on_exec) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    int flags = 0;
    const BeforeCall look(Call::read, 1, [&] {
        for (const auto &[descriptor, target] : support::open_descriptors())
            if (target == path)
                flags = fcntl(descriptor, F_GETFD);
    });
    EXPECT_EQ(cache(path).result, 6);
    EXPECT_EQ(flags & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(FileCache, sees_one_text_or_the_other_while_a_writer_replaces_the_file) {
    const TempFolder folder;
    const std::string texts[] = {"a = 1\n", std::string(5000, 'k') + " = 1\n"};
    const auto path = folder.file("x.conf", texts[0]);
    std::atomic<bool> stop = false;
    std::thread writer([&] {
        for (size_t i = 0; !stop; i++)
            rename(folder.file("next", texts[i % 2]).c_str(), path.c_str());
    });
    for (int i = 0; i < 3000; i++) {
        const Cached cached = cache(path);
        EXPECT_TRUE(cached.text == texts[0] || cached.text == texts[1]) << cached;
    }
    stop = true;
    writer.join();
}

TEST(ReadConfFile, reads_a_file_into_nodes) {
    const TempFolder folder;
    const struct {
        const char *text;
        int32_t result;
        Conf conf;
    } rows[] = {
        {"", 0, {}},
        {"\n; nothing\n", 0, {}},
        {"k = v", 1, {{"", {{"k", "v"}}}}},
        {"k = v\n[s]\nl = w\n", 2, {{"", {{"k", "v"}}}, {"s", {{"l", "w"}}}}},
        {"[s]", 1, {{"s", {}}}},
        {"[s]\nk =", 1, {{"s", {{"k", ""}}}}},
        {"[s]\r\nk = v\r\n", 1, {{"s", {{"k", "v\r"}}}}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const auto path = folder.file("x.conf", row.text);
        const auto before = support::open_descriptors();
        lists::ConfList conf;
        EXPECT_EQ(Read_Conf_File(path.c_str(), conf.head()), row.result);
        EXPECT_EQ(lists::conf_of(conf), row.conf);
        EXPECT_EQ(support::open_descriptors(), before);
        EXPECT_EQ(support::read_file(path), row.text);
    }
}

TEST(ReadConfFile, reads_up_to_a_nul_byte) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", std::string("a = 1\nb\0 = 2\nc = 3\n", 19));
    EXPECT_EQ(lists::conf_in_file(path), (Conf{{"", {{"a", "1"}}}}));
}

TEST(ReadConfFile, refuses_null_arguments_silently) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n");
    Sect_Node *conf = nullptr;
    const auto messages = messages_at(3, [&] {
        EXPECT_EQ(Read_Conf_File(nullptr, &conf), -EINVAL);
        EXPECT_EQ(Read_Conf_File(path.c_str(), nullptr), -EINVAL);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
    EXPECT_EQ(conf, nullptr);
}

TEST(ReadConfFile, fails_at_each_allocation_without_loss) {
    const TempFolder folder;
    const auto path = folder.file("x.conf", "a = 1\n[s]\nb = 2\n");
    const std::string no_cache =
        "[debug] Cache_Conf_File(#): Can't allocate 18 byte to cache the conf file \"" + path + "\" error!\n";
    const std::string no_read =
        "[debug] Read_Conf_File(#): Can't cache the specified conf file \"" + path + "\" error (-12)!\n";
    const std::string no_pair =
        "[error] Parse_Conf_Cache(#): Can't allocate 20 bytes buffer for string pair node error!\n";
    const struct {
        int32_t result;
        Messages messages;
        Conf conf;
    } rows[] = {
        {-ENOMEM, {no_cache, no_read}, {}},
        {-ENOMEM, {"[error] Parse_Conf_Cache(#): Can't allocate buffer for section node error!\n"}, {}},
        {-ENOMEM, {no_pair}, {}},
        {1,
         {"[error] Parse_Conf_Cache(#): Can't allocate 18 bytes buffer for section node error!\n"},
         {{"", {{"a", "1"}}}}},
        {-ENOMEM, {no_pair}, {}},
        {2, {}, {{"", {{"a", "1"}}}, {"s", {{"b", "2"}}}}},
    };
    for (int nth = 1; const auto &row : rows) {
        SCOPED_TRACE(nth);
        lists::ConfList conf;
        const auto read = [&] {
            const FailCall fault(Call::allocation, ENOMEM, nth);
            return Read_Conf_File(path.c_str(), conf.head());
        };
        EXPECT_EQ(messages_at(3, [&] { EXPECT_EQ(read(), row.result); }), row.messages);
        EXPECT_EQ(lists::conf_of(conf), row.conf);
        EXPECT_FALSE(support::loses_memory([&] {
            conf = lists::ConfList();
            read();
        }));
        nth++;
    }
}
