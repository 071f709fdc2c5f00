// Steps that the library takes on results which its own functions never give, though a host's may: a program can define
// an exported function itself, and the library then calls that one.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>

#include "conffile.h"
#include "fileio.h"
#include "log_capture.h"
#include "sandbox.h"

using support::LogCapture;
using support::TempFolder;
using testing::ElementsAre;

namespace {

// What the definitions below answer; nothing: what the library's own function does.
std::optional<int32_t> g_lock_answer;
std::optional<int32_t> g_write_answer;

template <class Function>
Function *library_function(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int32_t Check_File_Lock(const char *pszPath, int32_t nTimeout) {
    static auto *const real = library_function<int32_t(const char *, int32_t)>("Check_File_Lock");
    return g_lock_answer ? *g_lock_answer : real(pszPath, nTimeout);
}

int32_t Write_Sect_Node(FILE *pfStream, const Sect_Node *pConf) {
    static auto *const real = library_function<int32_t(FILE *, const Sect_Node *)>("Write_Sect_Node");
    return g_write_answer ? *g_write_answer : real(pfStream, pConf);
}

namespace {

class Interposed : public testing::Test {
  protected:
    void TearDown() override {
        g_lock_answer.reset();
        g_write_answer.reset();
    }

    const TempFolder folder_;
};

}  // namespace

TEST_F(Interposed, a_lock_that_is_reported_as_held_fails_a_log_write) {
    const std::string path = folder_.path("app.log");
    Simp_Log *log = nullptr;
    ASSERT_EQ(Simp_Log_Create(path.c_str(), &log, 24, 3, 0), 0);
    ASSERT_EQ(Simp_Log_Open(log, 0), 0);
    LogCapture messages;

    g_lock_answer = 1;
    EXPECT_EQ(Simp_Log_Write(log, "four"), -ETIME);
    // The stamp has 22 bytes, the message and its newline 5.
    EXPECT_THAT(messages.messages(),
                ElementsAre("[error] Simp_Log_Write(#): Can't write 27 bytes to the log file. (-62)\n"));
    EXPECT_EQ(support::read_file(path), "");

    // Any other answer goes on.
    for (const int32_t answer : {0, 2, -EIO}) {
        g_lock_answer = answer;
        EXPECT_EQ(Simp_Log_Write(log, "four"), 0);
    }
    EXPECT_EQ(support::read_file(path).size(), 3U * 27);
    Simp_Log_Release(log);
}

TEST_F(Interposed, a_configuration_that_cannot_be_printed_is_removed_again) {
    const auto before = support::open_descriptors();
    const std::string path = folder_.path("x.conf");
    LogCapture messages;

    g_write_answer = -EPROTO;
    EXPECT_EQ(Write_Conf_File(path.c_str(), nullptr), -EPROTO);
    EXPECT_THAT(messages.messages(), ElementsAre("[error] Write_Conf_File(#): Can't write conf nodes into file \"" +
                                                 path + "\" error! (-71)\n"));
    EXPECT_FALSE(support::exists(path));
    EXPECT_EQ(support::open_descriptors(), before);
}

TEST_F(Interposed, a_file_stays_as_it_was_when_its_new_text_cannot_be_printed) {
    const std::string path = folder_.file("x.conf", "old = 1\n");

    g_write_answer = -EPROTO;
    EXPECT_EQ(Update_Conf_File(path.c_str(), nullptr), -EPROTO);
    EXPECT_EQ(support::read_file(path), "old = 1\n");
    EXPECT_THAT(folder_.names(), ElementsAre("x.conf"));
}
