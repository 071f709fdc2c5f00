// Files that root writes by their names, in a folder of the neighbour's: he puts something else there, before or meanwhile.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "conffile.h"
#include "fileio.h"
#include "simplog.h"
#include "world.h"

namespace neighbours {
namespace {

int64_t open_log(const char *path, int32_t truncate) {
    Simp_Log *log = nullptr;
    if (Simp_Log_Create(path, &log, 24, 3, 0) != 0)
        return -EPROTO;
    const int32_t result = Simp_Log_Open(log, truncate);
    if (result == 0)
        Simp_Log_Write(log, "a line");
    Simp_Log_Release(log);
    return result;
}

int64_t write_shared(const char *path, const char *mode) {
    FILE *stream = nullptr;
    const int32_t result = Open_Shared_File(path, mode, &stream);
    if (result == 0) {
        std::fputs("shared\n", stream);
        Close_Shared_File(path, stream);
    }
    return result;
}

int64_t write_piece(const char *path) {
    int64_t length = 6;
    return Write_File_From_Buffer(path, "piece\n", &length, 0);
}

// A way of root's to write to a file.
struct Way {
    const char *name;
    std::function<int64_t(const char *path)> write;
    const char *text;     // that then stands in a file of another user's that held "his longer text\n"; "*": after that
    const char *message;  // about what can't be opened, between the path and the code; null for none
};

const Way kWays[] = {
    {"configuration", [](const char *path) -> int64_t { return Write_Conf_File(path, nullptr); }, "",
     "[error] Write_Conf_File(#): Can't open file % error! (-40)\n"},
    {"log_appended", [](const char *path) { return open_log(path, 0); }, "*",
     "[error] Simp_Log_Open(#): Can't open the log file \"%\"! (-40)\n"},
    {"log_emptied", [](const char *path) { return open_log(path, 1); }, nullptr,
     "[error] Simp_Log_Open(#): Can't open the log file \"%\"! (-40)\n"},
    {"shared_w", [](const char *path) { return write_shared(path, "w"); }, "shared\n", nullptr},
    {"shared_a", [](const char *path) { return write_shared(path, "a"); }, "his longer text\nshared\n", nullptr},
    {"shared_r_plus", [](const char *path) { return write_shared(path, "r+"); }, "shared\nger text\n", nullptr},
    {"piece", write_piece, "piece\nnger text\n", nullptr},
};

class Destination : public Neighbours, public testing::WithParamInterface<Way> {
  protected:
    std::string file() const { return home("file"); }

    Scene scene(const std::function<void()> &plants) {
        Scene scene;
        scene.prepare = [this, plants] {
            renew();
            as_neighbour([&] {
                write_file(file(), "his longer text\n");
                plants();
            });
        };
        scene.victim = [this] { return GetParam().write(file().c_str()); };
        scene.judge = [this](const Answer &answer) {
            EXPECT_TRUE(answer.ended()) << answer.how();
            EXPECT_EQ(vault.changes(), "");
        };
        return scene;
    }

    // What root is answered where `plant` stands at the name from the start.
    Answer answer_to(const std::function<void()> &plant) {
        const Scene planted = scene([&] {
            unlink_name(file());
            plant();
        });
        planted.prepare();
        const Answer answer = run_root(planted.victim);
        planted.judge(answer);
        return answer;
    }
};

TEST_P(Destination, link_is_not_followed) {
    const std::string target = vault.file("passwd", "root:0\n", 0644);
    const Answer answer = answer_to([&] { plant_link(target, file()); });
    EXPECT_EQ(answer.result, -ELOOP);
    std::vector<std::string> expected;
    if (GetParam().message != nullptr) {
        expected.emplace_back(GetParam().message);
        expected.back().replace(expected.back().find('%'), 1, file());
    }
    EXPECT_EQ(answer.messages, expected);
    EXPECT_EQ(answer_to([&] { plant_link(vault.path("new"), file()); }).result, -ELOOP);
}

TEST_P(Destination, pipes_and_sockets_are_not_written_to) {
    EXPECT_EQ(answer_to([&] { plant_pipe(file()); }).result, -ENXIO);
    EXPECT_EQ(answer_to([&] { plant_socket(file()); }).result, -ENXIO);
}

TEST_P(Destination, pipe_with_a_reader_is_not_written_to) {
    as_neighbour([&] { plant_pipe(file()); });
    const int reader = open(file().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(run_root([&] { return GetParam().write(file().c_str()); }).result, -ENXIO);
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 0);
    close(reader);
}

TEST_P(Destination, file_of_another_user_is_written_to_as_ever) {
    EXPECT_EQ(answer_to([&] { write_file(file(), "his longer text\n"); }).result, 0);
    const std::string text = read_file(file());
    if (GetParam().text == nullptr)
        EXPECT_TRUE(text.ends_with("] a line\n") && text.starts_with("[")) << text;
    else if (std::string(GetParam().text) == "*")
        EXPECT_TRUE(text.ends_with("] a line\n") && text.starts_with("his longer text\n[")) << text;
    else
        EXPECT_EQ(text, GetParam().text);
}

TEST_P(Destination, what_is_swapped_at_any_call_leads_nowhere) {
    const std::string target = vault.file("passwd", "root:0\n", 0644);
    Scene swap = scene([&] { plant_link(target, home("link")); });
    swap.attack = swap.retreat = [&] { exchange(home("link"), file()); };
    EXPECT_GE(in_every_window(neighbour, swap), 10);

    swap = scene([&] { plant_pipe(home("pipe")); });
    swap.attack = swap.retreat = [&] { exchange(home("pipe"), file()); };
    EXPECT_GE(in_every_window(neighbour, swap), 10);
}

TEST_P(Destination, link_of_roots_to_a_link_of_the_neighbours_is_not_followed_on) {
    const std::string target = vault.file("passwd", "root:0\n", 0644);
    as_neighbour([&] { plant_link(target, home("his")); });
    plant_link("his", file());
    EXPECT_EQ(run_root([&] { return GetParam().write(file().c_str()); }).result, -ELOOP);
    EXPECT_EQ(vault.changes(), "");
}

TEST_P(Destination, link_of_roots_own_is_followed) {
    write_file(home("target"), "");
    plant_link("target", file());
    EXPECT_EQ(run_root([&] { return GetParam().write(file().c_str()); }).result, 0);
    EXPECT_TRUE(std::string(GetParam().name) == "configuration" || read_file(home("target")) != "");
}

INSTANTIATE_TEST_SUITE_P(EachWay, Destination, testing::ValuesIn(kWays),
                         [](const auto &way) { return std::string(way.param.name); });

}  // namespace
}  // namespace neighbours
