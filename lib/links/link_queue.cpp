// The link queue: a circular list whose anchor is the queue's own pair of pointers.
#include <cerrno>
#include <cstddef>
#include <utility>

#include "base/handles.h"
#include "base/mutex_lock.h"
#include "links.h"

namespace korvex::links {
namespace {

constexpr int32_t kDefaultCapacity = 32767;
constexpr uint8_t kReady = 1;
constexpr uint8_t kMarked = 2;

// The anchor is used as a node of which there are only the links.
static_assert(offsetof(Link_Queue, pTail) - offsetof(Link_Queue, pHead) ==
              offsetof(Link_Node, pPrev) - offsetof(Link_Node, pNext));

Link_Node *anchor_of(Link_Queue &queue) {
    return reinterpret_cast<Link_Node *>(&queue.pHead);
}

// The flags are looked at before the mutex is held, so they are atomic.
bool has_flag(const Link_Queue &queue, uint8_t flag) {
    return (__atomic_load_n(&queue.uFlags, __ATOMIC_RELAXED) & flag) != 0;
}

void set_flag(Link_Queue &queue, uint8_t flag) {
    __atomic_or_fetch(&queue.uFlags, flag, __ATOMIC_RELAXED);
}

void clear_flag(Link_Queue &queue, uint8_t flag) {
    __atomic_and_fetch(&queue.uFlags, static_cast<uint8_t>(~flag), __ATOMIC_RELAXED);
}

bool is_usable(const Link_Queue *queue) {
    return queue != nullptr && has_flag(*queue, kReady);
}

int32_t capacity_of(int32_t wanted) {
    return wanted < 1 ? kDefaultCapacity : wanted;
}

void make_empty(Link_Queue &queue) {
    queue.nNumber = 0;
    queue.nSize = 0;
    queue.pHead = anchor_of(queue);
    queue.pTail = anchor_of(queue);
}

void free_nodes(Link_Queue &queue) {
    Link_Node *last = queue.pTail;
    for (; queue.nNumber > 0; queue.nNumber--)
        last = MallocPtr<Link_Node>(last)->pPrev;
    make_empty(queue);
}

// What an operation answers that tells a count.
int32_t count_or_stopped(const Link_Queue &queue, uint32_t count) {
    return has_flag(queue, kMarked) ? -EXFULL : static_cast<int32_t>(count);
}

}  // namespace
}  // namespace korvex::links

using namespace korvex;
using namespace korvex::links;

int32_t Link_Queue_Init(Link_Queue *pQueue, int32_t nMaxNumber, pthread_mutex_t *pMutex, pthread_cond_t *pCond) {
    if (pQueue == nullptr)
        return -EINVAL;

    *pQueue = {};
    pQueue->nMaxNumber = capacity_of(nMaxNumber);
    pQueue->pMutex = pMutex;
    pQueue->pCond = pCond;
    make_empty(*pQueue);
    set_flag(*pQueue, kReady);
    return 0;
}

int32_t Link_Queue_Destroy(Link_Queue *pQueue) {
    if (pQueue == nullptr)
        return -EINVAL;

    clear_flag(*pQueue, kReady);
    free_nodes(*pQueue);
    return 0;
}

int32_t Link_Queue_Reset(Link_Queue *pQueue, int32_t nMaxNumber) {
    if (!is_usable(pQueue))
        return -EINVAL;

    const MutexLock lock(pQueue->pMutex);
    free_nodes(*pQueue);
    clear_flag(*pQueue, kMarked);
    pQueue->nMaxNumber = capacity_of(nMaxNumber);
    return 0;
}

int32_t Link_Queue_Mark(Link_Queue *pQueue) {
    if (!is_usable(pQueue))
        return -EINVAL;

    const MutexLock lock(pQueue->pMutex);
    set_flag(*pQueue, kMarked);
    return 0;
}

int32_t Link_Queue_Get_Size(Link_Queue *pQueue) {
    if (!is_usable(pQueue))
        return -EINVAL;

    const MutexLock lock(pQueue->pMutex);
    return count_or_stopped(*pQueue, pQueue->nSize);
}

int32_t Link_Queue_Get_Number(Link_Queue *pQueue) {
    if (!is_usable(pQueue))
        return -EINVAL;

    const MutexLock lock(pQueue->pMutex);
    return count_or_stopped(*pQueue, pQueue->nNumber);
}

int32_t Link_Queue_Pop_Node(Link_Queue *pQueue, Link_Node **ppNode) {
    if (!is_usable(pQueue) || ppNode == nullptr)
        return -EINVAL;

    const MutexLock lock(pQueue->pMutex);
    const int32_t nodes = count_or_stopped(*pQueue, pQueue->nNumber);
    if (nodes <= 0)
        return nodes;

    Link_Node *node = pQueue->pHead;
    pQueue->pHead = node->pNext;
    node->pNext->pPrev = anchor_of(*pQueue);
    node->pNext = node;
    node->pPrev = node;
    pQueue->nNumber--;
    pQueue->nSize -= node->wSize;
    *ppNode = node;
    return 1;
}

int32_t Link_Queue_Pop_Nodes(Link_Queue *pQueue, Link_Node **ppNodes) {
    if (!is_usable(pQueue) || ppNodes == nullptr)
        return -EINVAL;

    const MutexLock lock(pQueue->pMutex);
    const int32_t nodes = count_or_stopped(*pQueue, pQueue->nNumber);
    if (nodes <= 0)
        return nodes;

    // The chain becomes a ring of its own.
    Link_Node *first = pQueue->pHead;
    Link_Node *last = pQueue->pTail;
    first->pPrev = last;
    last->pNext = first;
    make_empty(*pQueue);
    *ppNodes = first;
    return nodes;
}

int32_t Link_Queue_Push_Node(Link_Queue *pQueue, Link_Node *pNode) {
    if (!is_usable(pQueue) || pNode == nullptr)
        return -EINVAL;

    MallocPtr<Link_Node> node(pNode);  // freed after the lock is given back, unless the queue takes it
    const MutexLock lock(pQueue->pMutex);
    // A full queue becomes a stopped one, until it is reset.
    if (pQueue->nNumber == static_cast<uint32_t>(pQueue->nMaxNumber))
        set_flag(*pQueue, kMarked);
    if (has_flag(*pQueue, kMarked))
        return -EXFULL;

    pNode->pNext = anchor_of(*pQueue);
    pNode->pPrev = pQueue->pTail;
    pQueue->pTail->pNext = node.release();
    pQueue->pTail = pNode;
    pQueue->nSize += pNode->wSize;
    pQueue->nNumber++;
    if (pQueue->nNumber == 1 && pQueue->pCond != nullptr)
        pthread_cond_broadcast(pQueue->pCond);
    return 0;
}
