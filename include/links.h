/**
 * @file
 * links: a bounded queue that hands nodes from thread to thread.
 *
 * The queue links the caller's own nodes, which begin with a `Link_Node`, and stores nothing else.
 *
 * Ownership: a node comes from `malloc`. It belongs to the queue from the push to the pop; a push that ends with
 *            -EXFULL frees it.
 * Errors:    0 or a count; -EINVAL for a null pointer and for a queue that is not ready, and then nothing changes;
 *            -EXFULL for one that is stopped, whose nodes stay in it. A queue that a push finds full is stopped, too,
 *            for everybody, until `Link_Queue_Reset`: choose a capacity that is never reached, or a consumer that
 *            resets.
 * Threads:   with a mutex, all but `Link_Queue_Init` and `Link_Queue_Destroy` from any thread; without one, from one
 *            thread. The condition is broadcast, with the mutex held, when the queue ceases to be empty:
 *
 *     pthread_mutex_lock(&mutex);
 *     while (queue.nNumber == 0 && !stopping)
 *         pthread_cond_wait(&condition, &mutex);
 *     pthread_mutex_unlock(&mutex);
 *     if (Link_Queue_Pop_Node(&queue, &node) == 1)
 *         ... work, then free(node) ...
 */
#ifndef KORVEX_LINKS_H
#define KORVEX_LINKS_H

#include <pthread.h>
#include <stdint.h>

#include "korvex_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What every queued node begins with; the caller's own fields follow in the same heap block. */
typedef struct Link_Node {
    struct Link_Node *pNext; /**< next node */
    struct Link_Node *pPrev; /**< previous node */
    uint16_t wUser;          /**< the caller's: the queue never reads it */
    uint16_t wSize;          /**< what the node adds to the queue's `nSize` */
} Link_Node;

/** A queue; its fields may be read with the mutex held. */
typedef struct Link_Queue {
    int32_t nMaxNumber;      /**< most nodes that it takes */
    uint32_t nNumber;        /**< nodes in it */
    uint32_t nSize;          /**< sum of their `wSize` */
    uint8_t uFlags;          /**< 1: ready; 2: stopped */
    pthread_mutex_t *pMutex; /**< held while an operation works; may be null */
    pthread_cond_t *pCond;   /**< broadcast when the queue ceases to be empty; may be null */
    Link_Node *pHead;        /**< first node; with `pTail` it stands for the node before the first and after the last */
    Link_Node *pTail;        /**< last node */
} Link_Queue;

/**
 * Makes a queue ready and empty, from any state; what it held is forgotten, not freed.
 *
 * @param pQueue      queue, not null.
 * @param nMaxNumber  most nodes; below 1: 32767.
 * @param pMutex      initialised, and outliving the queue; may be null.
 * @param pCond       likewise; may be null.
 * @return 0; -EINVAL for a null queue.
 */
KORVEX_API int32_t Link_Queue_Init(Link_Queue *pQueue, int32_t nMaxNumber, pthread_mutex_t *pMutex,
                                   pthread_cond_t *pCond);

/**
 * Frees as many nodes as `nNumber` says, the last one first, and makes the queue empty and not ready: counts 0, links
 * to itself. Takes no lock: no other thread may use the queue. It may be called again, and for a queue that is not
 * ready.
 *
 * @param pQueue  queue, not null.
 * @return 0; -EINVAL for a null queue.
 */
KORVEX_API int32_t Link_Queue_Destroy(Link_Queue *pQueue);

/**
 * Frees the nodes, sets the capacity anew (below 1: 32767) and lets a stopped queue go on.
 *
 * @param pQueue      queue, not null.
 * @param nMaxNumber  most nodes; below 1: 32767.
 * @return 0; -EINVAL.
 */
KORVEX_API int32_t Link_Queue_Reset(Link_Queue *pQueue, int32_t nMaxNumber);

/**
 * Stops the queue: until a reset every call that adds, takes or counts gives -EXFULL. Stopping it again changes
 * nothing.
 *
 * @param pQueue  queue, not null.
 * @return 0; -EINVAL.
 */
KORVEX_API int32_t Link_Queue_Mark(Link_Queue *pQueue);

/**
 * Tells how much is in the queue, by what the nodes say of themselves.
 *
 * @param pQueue  queue, not null.
 * @return the sum of the nodes' `wSize`, which comes as a negative number from 2^31 on; -EINVAL; -EXFULL.
 */
KORVEX_API int32_t Link_Queue_Get_Size(Link_Queue *pQueue);

/**
 * Tells how many nodes are in the queue.
 *
 * @param pQueue  queue, not null.
 * @return the number of nodes; -EINVAL; -EXFULL.
 */
KORVEX_API int32_t Link_Queue_Get_Number(Link_Queue *pQueue);

/**
 * Takes the node that was pushed first. It is the caller's then.
 *
 * @param pQueue  queue, not null.
 * @param ppNode  receives the node, linked to itself, not null; untouched unless the result is 1.
 * @return 1; 0 when the queue is empty; -EINVAL; -EXFULL.
 */
KORVEX_API int32_t Link_Queue_Pop_Node(Link_Queue *pQueue, Link_Node **ppNode);

/**
 * Takes all nodes, which are the caller's then.
 *
 * @param pQueue   queue, not null.
 * @param ppNodes  receives the first one, not null; untouched when there is none. The nodes form a ring: follow `pNext`
 *                 as often as the result says.
 * @return how many there are; -EINVAL; -EXFULL.
 */
KORVEX_API int32_t Link_Queue_Pop_Nodes(Link_Queue *pQueue, Link_Node **ppNodes);

/**
 * Appends a node.
 *
 * @param pQueue  queue, not null.
 * @param pNode   from `malloc`, not null. The queue's from now on: freed on -EXFULL, but not on -EINVAL.
 * @return 0; -EINVAL; -EXFULL when the queue is stopped, which one that is full becomes.
 */
KORVEX_API int32_t Link_Queue_Push_Node(Link_Queue *pQueue, Link_Node *pNode);

#ifdef __cplusplus
}
#endif

#endif
