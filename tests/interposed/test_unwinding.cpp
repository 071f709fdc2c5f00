// Unwinding through the library's frames: a cancelled thread destroys what its host has on the stack, and a backtrace out
// of a call of the system reaches main.
#include <dlfcn.h>
#include <execinfo.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <unwind.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>

#include "faults.h"
#include "korvex_util.h"
#include "log_capture.h"
#include "sandbox.h"

using namespace support;

namespace {

// What the host's objects see of a thread's end.
struct Witness {
    std::string path;
    std::atomic<bool> waits{false};
    std::atomic<bool> destroyed{false};
    std::atomic<bool> returned{false};
};

class HostObject {
  public:
    explicit HostObject(Witness &witness) : witness_(witness) {}
    ~HostObject() { witness_.destroyed = true; }
    HostObject(const HostObject &) = delete;
    HostObject &operator=(const HostObject &) = delete;

  private:
    Witness &witness_;
};

void *wait_for_lock(void *argument) {
    Witness &witness = *static_cast<Witness *>(argument);
    const HostObject object(witness);
    const BeforeCall sleeping(Call::nanosleep, 3, [&] { witness.waits = true; });
    (void)Get_File_Lock(witness.path.c_str(), -1);
    witness.returned = true;
    return nullptr;
}

class Unwinding : public testing::Test {
  protected:
    const TempFolder folder_;
};

// Whether the calling thread's frames lead down to this program's main function.
bool reaches_main() {
    static void *const main_function = dlsym(RTLD_DEFAULT, "main");
    std::array<void *, 128> frames{};
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    return std::any_of(frames.begin(), frames.begin() + count, [](void *frame) {
        return main_function != nullptr && _Unwind_FindEnclosingFunction(frame) == main_function;
    });
}

// What is called of the library, and a call of the system in it.
struct Way {
    const char *name;
    Call call;
    void (*take)(const TempFolder &folder);
};

constexpr Way kWays[] = {
    {"lock", Call::nanosleep,
     [](const TempFolder &folder) {
         const std::string path = folder.path("held");
         EXPECT_EQ(Get_File_Lock(path.c_str(), 0), 1);
         EXPECT_EQ(Get_File_Lock(path.c_str(), 5), 0);
         EXPECT_EQ(Release_File_Lock(path.c_str()), 1);
     }},
    {"key", Call::rename,
     [](const TempFolder &folder) {
         EXPECT_EQ(Set_Conf_File_String_Value(folder.path("conf").c_str(), "net", "mtu", "1500"), 0);
     }},
    {"file read into nodes", Call::read,
     [](const TempFolder &folder) {
         Sect_Node *conf = nullptr;
         EXPECT_EQ(Read_Conf_File(folder.file("nodes", "[net]\nmtu = 1500\n").c_str(), &conf), 1);
         Free_Sect_Node(conf);
     }},
    {"message", Call::fwrite,
     [](const TempFolder &folder) {
         const LogCapture log(3);
         EXPECT_LT(Copy_File(folder.path("missing").c_str(), folder.path("copy").c_str(), nullptr, nullptr), 0);
     }},
    {"name", Call::getaddrinfo,
     [](const TempFolder &) {
         int32_t socket = -1;
         EXPECT_LT(TCP_Socket_Connect(nullptr, "300.0.0.1", 1, 10, &socket), 0);
     }},
};

}  // namespace

TEST_F(Unwinding, a_thread_that_is_cancelled_while_it_waits_for_a_lock_destroys_its_hosts_objects) {
    Witness witness;
    witness.path = folder_.path("app.conf");
    ASSERT_EQ(Get_File_Lock(witness.path.c_str(), 0), 1);

    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, wait_for_lock, &witness), 0);
    while (!witness.waits)
        sched_yield();
    ASSERT_EQ(pthread_cancel(thread), 0);
    void *result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);

    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(witness.destroyed);
    EXPECT_FALSE(witness.returned);
    // The lock is still this thread's, and can be given back and taken again.
    EXPECT_EQ(Release_File_Lock(witness.path.c_str()), 1);
    EXPECT_EQ(Get_File_Lock(witness.path.c_str(), 0), 1);
    EXPECT_EQ(Release_File_Lock(witness.path.c_str()), 1);
}

TEST_F(Unwinding, a_backtrace_out_of_a_call_of_the_system_reaches_main) {
    for (const Way &way : kWays) {
        SCOPED_TRACE(way.name);
        bool reached = false;
        const BeforeCall looking(way.call, 1, [&] { reached = reaches_main(); });
        way.take(folder_);
        EXPECT_TRUE(looking.ran());
        EXPECT_TRUE(reached);
    }
}
