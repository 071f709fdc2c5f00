// The tracing allocator, with calls of the system failing.
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "messages_tracer.h"
#include "modules.h"
#include "tracer.h"

namespace faults {
namespace {

constexpr size_t kSize = 24;
constexpr ptrdiff_t kToBlock = 4;  // from the pointer that is handed out to the one that is taken back

// The tracer for as long as it lives; nothing is left allocated at its end.
class Tracer {
  public:
    Tracer() { Trace_Mem_Init(); }
    ~Tracer() { Trace_Mem_Destroy(); }
    Tracer(const Tracer &) = delete;
    Tracer &operator=(const Tracer &) = delete;

    static char *block() { return static_cast<char *>(Trace_Mem_Alloc(kSize, nullptr, "test", 1)); }
    static void release(char *bytes) { Trace_Mem_Free(bytes + kToBlock, "test", 2); }
    static int32_t live() { return g_cnAlloc - g_cnFree; }
};

// What the functions of the threads answer themselves.
Rules answers(Call call, std::vector<int> errors) {
    Rules rules;
    for (const int error : errors)
        rules.push_back(Rule(call).with(error).gives(error));
    return rules;
}

void initialise(Trial &trial) {
    trial.call([] { return Trace_Mem_Init(); });
    if (trial.result() == 0)
        Trace_Mem_Destroy();
}

void allocate(Trial &trial) {
    const Tracer tracer;
    char *bytes = nullptr;
    trial.call([&] {
        bytes = Tracer::block();
        return bytes != nullptr;
    });
    trial.check(Tracer::live() == trial.result(), "what is counted is what is there");
    if (bytes != nullptr)
        Tracer::release(bytes);
}

void release(Trial &trial) {
    const Tracer tracer;
    char *bytes = Tracer::block();
    trial.call([&] {
        Tracer::release(bytes);
        return 0;
    });
    trial.check(Tracer::live() == 0, "the block is gone");
}

void destroy(Trial &trial) {
    Trace_Mem_Init();
    Tracer::block();
    trial.call([] { return Trace_Mem_Destroy(); });
    trial.check(Tracer::live() == 0 && g_tmnHead.pNext == &g_tmnHead, "every block is gone");
}

// A block whose guards are whole.
void check_sound_block() {
    alignas(Trace_Mem_Node) char memory[128];
    std::memset(memory, g_stPreface[0], sizeof memory);
    reinterpret_cast<Trace_Mem_Node *>(memory)->nSize = kSize;
    Trace_Mem_Check(memory + sizeof(Trace_Mem_Node));
}

}  // namespace

Module tracer_module() {
    const Rules mutex_only = {Rule().is_overlooked()};  // its mutex is never in a state in which a lock fails
    return {"tracer",
            {
                {"Trace_Mem_Init", "", initialise, 0, answers(Call::pthread_mutex_init, {EAGAIN, ENOMEM})},
                {"Trace_Mem_Alloc", "", allocate, 1, {Rule(Call::malloc).gives(0), Rule().is_overlooked()}},
                {"Trace_Mem_Free", "", release, 0, mutex_only},
                {"Trace_Mem_Destroy",
                 "",
                 destroy,
                 0,
                 answers(Call::pthread_mutex_destroy, {EBUSY, EINVAL}),
                 {msg::tracer_unbalanced, msg::tracer_not_freed}},
            },
            {{"Trace_Mem_Check", "looks at memory", check_sound_block},
             {"Trace_Mem_Usage", "looks at memory, and takes no lock", [] { Trace_Mem_Usage(); }}}};
}

}  // namespace faults
