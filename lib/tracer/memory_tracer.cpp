// The tracing allocator: blocks between guards on one list, and the reports about them.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/handles.h"
#include "base/message.h"
#include "base/mutex_lock.h"
#include "tracer.h"

static_assert(sizeof(Trace_Mem_Node) == 64 && offsetof(Trace_Mem_Node, szPrefix) == 44);

namespace {

constexpr uint32_t kMagic = 0x5A8888A5;

}  // namespace

Trace_Mem_Node g_tmnHead = {&g_tmnHead, &g_tmnHead, kMagic, {}, 0, 0, {}};
int32_t g_cnAlloc = 0;
int32_t g_cnFree = 0;
pthread_mutex_t g_mtxMem = PTHREAD_MUTEX_INITIALIZER;
const char g_stPreface[16] = {'Z', 'Z', 'Z', 'Z', 'Z', 'Z', 'Z', 'Z', 'Z', 'Z', 'Z', 'Z', 'Z', 'Z', 'Z', 'Z'};

namespace korvex::tracer {
namespace {

constexpr size_t kGuardSize = sizeof g_stPreface;
constexpr size_t kBytesOffset = offsetof(Trace_Mem_Node, szPrefix) + kGuardSize;  // where the caller's bytes begin
constexpr size_t kBlockOffset = sizeof(Trace_Mem_Node);                           // of the pointers that are taken back
constexpr size_t kOverhead = kBytesOffset + kGuardSize + sizeof(uint32_t);

using Guard = std::array<char, kGuardSize>;

// A guard as it lies in memory, wherever that is.
struct [[gnu::packed, gnu::may_alias]] RawGuard {
    std::array<uint64_t, 2> words;
};
static_assert(sizeof(RawGuard) == kGuardSize && alignof(RawGuard) == 1);

// A block, read by the pointer that was handed in: its header is taken to begin 64 bytes before. The pointer may be wrong.
// So the fields may lie unaligned, and the guard behind the bytes may be anywhere: what lies more than `extent` bytes
// behind the header's start is not read, and counts as zeros.
class Block final {
  public:
    explicit Block(const void *pointer, size_t extent = SIZE_MAX)
        : node_(static_cast<const char *>(pointer) - kBlockOffset), extent_(extent) {}

    uint32_t magic() const { return field<uint32_t>(offsetof(Trace_Mem_Node, uMagic)); }
    const char *name() const { return node_ + offsetof(Trace_Mem_Node, szName); }
    int32_t line() const { return field<int32_t>(offsetof(Trace_Mem_Node, nLine)); }
    uint32_t size() const { return field<uint32_t>(offsetof(Trace_Mem_Node, nSize)); }
    Guard prefix() const { return guard_at(offsetof(Trace_Mem_Node, szPrefix)); }
    Guard postfix() const { return guard_at(kBytesOffset + size()); }

  private:
    template <class Value>
    Value field(size_t offset) const {
        Value value;
        std::memcpy(&value, node_ + offset, sizeof value);
        return value;
    }

    // With a pointer that is 4 bytes early this reads outside the block, so the address checker must not watch it. For the
    // same reason it does not use memcpy: without optimisation that is a call, and the checker watches it.
    __attribute__((no_sanitize("address"))) Guard guard_at(size_t offset) const {
        if (offset + kGuardSize <= extent_) {
            const RawGuard whole = *reinterpret_cast<const RawGuard *>(node_ + offset);
            return std::bit_cast<Guard>(whole);
        }

        Guard guard{};
        for (size_t i = 0; offset + i < extent_; i++)
            guard[i] = node_[offset + i];
        return guard;
    }

    const char *node_;
    size_t extent_;
};

// One message a byte, and one that ends the row.
void dump(const Guard &guard, const char *function) {
    for (const char byte : guard)
        LOG_ERROR_AS(function, "%2X, %c, ", static_cast<unsigned>(int{byte}), byte);
    LOG_ERROR_AS(function, "\n");
}

bool is_whole(const Guard &guard) {
    return std::memcmp(guard.data(), g_stPreface, kGuardSize) == 0;
}

[[gnu::cold]] void report_damage(const Block &block, const Guard &guard, const char *place, const char *function) {
    const char *damage = std::find_if(guard.begin(), guard.end(), [](char byte) { return byte != g_stPreface[0]; });
    LOG_ERROR_AS(function, "%s (%d) allocate %d byte buffer is corrupted! (%s:%d)\n", block.name(), block.line(),
                 static_cast<int32_t>(block.size()), place, static_cast<int>(damage - guard.begin()));
    dump(guard, function);
}

// True, and reported, when a guard is damaged.
bool is_damaged(const Block &block, const char *function) {
    const Guard prefix = block.prefix();
    const Guard postfix = block.postfix();
    if (is_whole(prefix) && is_whole(postfix))
        return false;

    if (!is_whole(prefix))
        report_damage(block, prefix, "prefix", function);
    if (!is_whole(postfix))
        report_damage(block, postfix, "postfix", function);
    return true;
}

void link_last(Trace_Mem_Node &node) {
    node.pNext = &g_tmnHead;
    node.pPrev = g_tmnHead.pPrev;
    g_tmnHead.pPrev->pNext = &node;
    g_tmnHead.pPrev = &node;
}

void unlink(const Trace_Mem_Node &node) {
    node.pPrev->pNext = node.pNext;
    node.pNext->pPrev = node.pPrev;
}

}  // namespace
}  // namespace korvex::tracer

using namespace korvex;
using namespace korvex::tracer;

int32_t Trace_Mem_Init(void) {
    return pthread_mutex_init(&g_mtxMem, nullptr);
}

void *Trace_Mem_Alloc(size_t nSize, void * /*pReserved*/, const char *pszName, int32_t nLine) {
    if (nSize > SIZE_MAX - kOverhead)
        return nullptr;

    char *block = static_cast<char *>(std::malloc(nSize + kOverhead));
    if (block == nullptr)
        return nullptr;

    auto &node = *reinterpret_cast<Trace_Mem_Node *>(block);
    node.uMagic = kMagic;
    std::memset(node.szName, 0, sizeof node.szName);
    if (pszName != nullptr)
        std::memcpy(node.szName, pszName, strnlen(pszName, sizeof node.szName - 1));
    node.nLine = nLine;
    node.nSize = static_cast<uint32_t>(nSize);
    std::memcpy(node.szPrefix, g_stPreface, kGuardSize);
    std::memcpy(block + kBytesOffset + nSize, g_stPreface, kGuardSize);

    const MutexLock lock(&g_mtxMem);
    g_cnAlloc++;
    link_last(node);
    return block + kBytesOffset;
}

int32_t Trace_Mem_Check(void *pBlock) {
    return pBlock != nullptr && is_damaged(Block(pBlock), __func__) ? 1 : 0;
}

void Trace_Mem_Free(void *pBlock, const char *pszName, int32_t nLine) {
    if (pBlock == nullptr) {
        LOG_ERROR("%s (%d) free a NULL buffer!\n", pszName, nLine);
        return;
    }

    const Block block(pBlock);
    if (block.magic() != kMagic) {
        LOG_ERROR("%s (%d) free an invalid or a corrcupted buffer %p!\n", pszName, nLine, pBlock);
        return;
    }

    // A damaged block is freed like any other.
    (void)is_damaged(block, __func__);
    const MallocPtr<Trace_Mem_Node> node(
        reinterpret_cast<Trace_Mem_Node *>(static_cast<char *>(pBlock) - kBlockOffset));
    const MutexLock lock(&g_mtxMem);
    unlink(*node);
    g_cnFree++;
}

void Trace_Mem_Usage(void) {
    if (g_cnAlloc == g_cnFree) {
        LOG_DEBUG("Mem Usage: No memory block allocated now! (Alloc: %d times, Free: %d times)\n", g_cnAlloc,
                  g_cnAlloc);
        return;
    }

    LOG_DEBUG("Mem Usage: %d memory block allocated now! (Alloc: %d times, Free: %d times)\n", g_cnAlloc - g_cnFree,
              g_cnAlloc, g_cnFree);
    for (const Trace_Mem_Node *node = g_tmnHead.pPrev; node != &g_tmnHead; node = node->pPrev) {
        // Kept: the block is checked by the address of its bytes, which is 4 bytes before the one that is freed by. So the
        // check reads 4 bytes too early, and the block ends 4 bytes too early.
        const char *bytes = reinterpret_cast<const char *>(node) + kBytesOffset;
        const Block seen(bytes, node->nSize + kOverhead + (kBlockOffset - kBytesOffset));
        if (!is_damaged(seen, "Trace_Mem_Check"))
            LOG_ERROR("%s (%d) allocate %d byte buffer.\n", node->szName, node->nLine,
                      static_cast<int32_t>(node->nSize));
    }
}

int32_t Trace_Mem_Destroy(void) {
    if (g_cnAlloc == g_cnFree)
        LOG_DEBUG("Mem Usage: GOOD, Alloc: %d times, Free: %d times\n", g_cnAlloc, g_cnAlloc);
    else
        LOG_ERROR("Mem Usage:  BAD, Alloc: %d times, Free: %d times\n", g_cnAlloc, g_cnFree);

    while (g_tmnHead.pPrev != &g_tmnHead) {
        const MallocPtr<Trace_Mem_Node> node(g_tmnHead.pPrev);
        unlink(*node);
        const bool whole = std::memcmp(node->szPrefix, g_stPreface, kGuardSize) == 0;
        LOG_ERROR("%s (%d) allocate %d byte but not freed%s!\n", node->szName, node->nLine,
                  static_cast<int32_t>(node->nSize), whole ? "" : " and is corrupted ");
        g_cnFree++;
    }
    return pthread_mutex_destroy(&g_mtxMem);
}
