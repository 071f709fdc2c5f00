// The output of a command line.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "faults.h"
#include "guarded_buffer.h"
#include "heap.h"
#include "log_capture.h"
#include "miscfunc.h"
#include "sandbox.h"

using namespace support;
using testing::IsEmpty;

namespace {

// What a command gives, read into a buffer of `size` bytes and one more.
struct Output {
    Output(const std::string &command, int32_t size) : buffer(static_cast<size_t>(size) + 1, '#'), length(size) {
        result = Get_Program_Output(command.c_str(), buffer.data(), &length);
    }

    std::string text() const { return {buffer.data(), static_cast<size_t>(length)}; }

    std::vector<char> buffer;
    int32_t length;
    int32_t result;
};

void expect_no_child() {
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

}  // namespace

TEST(ProgramOutput, is_the_text_without_its_last_newline) {
    const struct {
        const char *command;
        int32_t size;
        std::string text;
    } table[] = {
        {"echo abc", 16, "abc"},
        {"echo abc", 2, "ab"},
        {"printf abc", 16, "abc"},
        {"printf abc", 4, "abc"},
        {"printf abc", 3, "abc"},
        {"printf abc", 1, "a"},
        {"echo abc", 5, "abc"},
        {"echo abc", 4, "abc"},
        {"echo abc", 3, "abc"},
        {"printf 'abc\\n\\n'", 16, "abc\n"},
        {"printf 'abc\\n\\n'", 5, "abc\n"},
        {"printf 'abc\\n\\n'", 4, "abc"},
        {"printf '\\n'", 16, ""},
        {"printf '\\n'", 1, ""},
        {"printf '\\n\\n\\n'", 16, "\n\n"},
        {"printf 'abc\\r\\n'", 16, "abc\r"},
        {"printf 'ab\\ncd'", 16, "ab\ncd"},
        {"printf 'ab\\ncd\\n'", 16, "ab\ncd"},
        {"printf 'ab\\ncd'", 3, "ab"},
        {"printf '\\nab'", 16, "\nab"},
        {"printf ' abc \\n'", 16, " abc "},
        {"true", 16, ""},
        {"true", 1, ""},
        {"printf 'a\\0b\\n'", 16, std::string("a\0b", 3)},
        {"printf '\\0'", 16, std::string(1, '\0')},
        {"printf 'a\\n\\0'", 16, std::string("a\n\0", 3)},
        {"printf '\\377\\200\\n'", 16, "\xff\x80"},
        {"echo one; (echo two); echo $((1 + 2)) | cat", 100, "one\ntwo\n3"},
    };
    LogCapture log;

    for (const auto &row : table) {
        SCOPED_TRACE(std::string(row.command) + ", size " + std::to_string(row.size));
        GuardedBuffer buffer;
        int32_t size = row.size;
        EXPECT_EQ(Get_Program_Output(row.command, buffer.data(), &size), 0);
        EXPECT_EQ(size, static_cast<int32_t>(row.text.size()));
        EXPECT_EQ(std::string(buffer.data(), row.text.size()), row.text);
        EXPECT_EQ(buffer.data()[row.text.size()], '\0');
        EXPECT_EQ(buffer.written(), row.text.size() + 1);
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(ProgramOutput, that_is_longer_than_a_pipe_comes_whole) {
    const Output output("head -c 300000 /dev/zero | tr '\\0' x", 400'000);
    EXPECT_EQ(output.result, 0);
    EXPECT_EQ(output.text(), std::string(300'000, 'x'));
}

TEST(ProgramOutput, that_never_ends_is_cut) {
    const Output lines("yes", 10);
    EXPECT_EQ(lines.result, 0);
    EXPECT_EQ(lines.text(), "y\ny\ny\ny\ny");

    const Output cut("yes 'ab c'", 200'001);
    EXPECT_EQ(cut.result, 0);
    EXPECT_EQ(cut.length, 200'001);
    EXPECT_EQ(cut.text().substr(199'990), "ab c\nab c\na");
    expect_no_child();
}

// One read of a pipe would return the first piece alone.
TEST(ProgramOutput, that_comes_in_pieces_comes_whole) {
    const Output output("printf ab; sleep 0.1; printf cd; sleep 0.1; echo ef", 100);
    EXPECT_EQ(output.result, 0);
    EXPECT_EQ(output.text(), "abcdef");
}

TEST(ProgramOutput, does_not_depend_on_the_exit_status) {
    for (const char *command : {"echo abc; exit 3", "echo abc; kill -KILL $$", "echo abc; false"}) {
        const Output output(command, 16);
        EXPECT_EQ(output.result, 0) << command;
        EXPECT_EQ(output.text(), "abc") << command;
    }
    for (const char *command : {"/no/such/command 2>/dev/null", "exit 1", "kill -KILL $$", ""}) {
        const Output output(command, 16);
        EXPECT_EQ(output.result, 0) << command;
        EXPECT_EQ(output.text(), "") << command;
        EXPECT_EQ(output.buffer[0], '\0') << command;
    }
}

TEST(ProgramOutput, leaves_standard_error_alone) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(ends[1], STDERR_FILENO);
    const Output output("echo out; echo err >&2", 16);
    dup2(saved, STDERR_FILENO);

    EXPECT_EQ(output.text(), "out");
    char text[16] = {};
    EXPECT_EQ(read(ends[0], text, sizeof text), 4);
    EXPECT_STREQ(text, "err\n");
    for (const int descriptor : {saved, ends[0], ends[1]})
        close(descriptor);
}

TEST(ProgramOutput, waits_for_a_command_that_has_closed_its_output) {
    const TempFolder folder;
    const Output output("echo abc; exec >&-; sleep 0.2; : > " + folder.path("done"), 16);
    EXPECT_EQ(output.text(), "abc");
    EXPECT_TRUE(exists(folder.path("done")));
}

TEST(ProgramOutput, leaves_no_child_and_no_descriptor) {
    const auto before = open_descriptors();
    for (const char *command : {"echo abc", "yes", "exit 9", "/no/such/command 2>/dev/null"}) {
        const Output output(command, 16);
        EXPECT_EQ(output.result, 0) << command;
        expect_no_child();
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(ProgramOutput, loses_no_memory) {
    EXPECT_FALSE(loses_memory([] { const Output output("exit", 16); }));
}

TEST(ProgramOutput, bad_arguments_run_and_store_nothing) {
    const TempFolder folder;
    const std::string command = ": > " + folder.path("ran");
    char buffer[4] = "xyz";
    LogCapture log;
    const CountCalls starts(Call::popen);

    for (const int32_t size : {0, -1, -16, INT_MIN}) {
        int32_t length = size;
        EXPECT_EQ(Get_Program_Output(command.c_str(), buffer, &length), -EINVAL) << size;
        EXPECT_EQ(length, size);
    }
    int32_t length = 3;
    EXPECT_EQ(Get_Program_Output(nullptr, buffer, &length), -EINVAL);
    EXPECT_EQ(Get_Program_Output(command.c_str(), nullptr, &length), -EINVAL);
    EXPECT_EQ(Get_Program_Output(command.c_str(), buffer, nullptr), -EINVAL);

    EXPECT_EQ(length, 3);
    EXPECT_STREQ(buffer, "xyz");
    EXPECT_EQ(starts.count(), 0);
    EXPECT_THAT(folder.names(), IsEmpty());
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(ProgramOutput, a_command_that_cannot_be_started_gives_the_error) {
    LogCapture log;
    for (const int error : {EMFILE, ENOMEM, EAGAIN}) {
        const FailCall fault(Call::popen, error);
        EXPECT_EQ(Output("echo abc", 16).result, -error);
        EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(ProgramOutput, needs_a_free_descriptor) {
    EXPECT_EQ(in_child([] {
                  // The one that is free is not enough for a pipe.
                  const int next = dup(STDIN_FILENO);
                  const rlimit few{static_cast<rlim_t>(next) + 1, static_cast<rlim_t>(next) + 1};
                  setrlimit(RLIMIT_NOFILE, &few);
                  close(next);

                  EXPECT_EQ(Output("echo abc", 16).result, -EMFILE);
                  EXPECT_EQ(dup(STDIN_FILENO), next) << "a descriptor is left";
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}
