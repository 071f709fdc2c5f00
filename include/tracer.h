/**
 * @file
 * tracer: an allocator for debugging that knows who asked for each block, notices writes beyond its ends, and reports
 * what was never freed.
 *
 * A block is one piece of heap memory of the wanted size plus 80 bytes:
 *
 *     0            60          60 + size       76 + size    80 + size
 *     | node       | the bytes | 16 bytes "Z"  | not used   |
 *       with a guard of 16 bytes "Z" at its end, from 44 on
 *
 * Two conventions exist, and both are kept. `Trace_Mem_Alloc` returns the place of the bytes, 60 bytes behind the node.
 * `Trace_Mem_Check` and `Trace_Mem_Free` take the place 64 bytes behind the node: a host adds 4 to the pointer that it
 * got. The pointer as it was returned is reported as invalid by `Trace_Mem_Free` and not freed. There is no realloc:
 * allocate anew, copy, free.
 *
 *     Trace_Mem_Init();
 *     char *bytes = Trace_Mem_Alloc(100, NULL, __func__, __LINE__);
 *     Trace_Mem_Free(bytes + 4, __func__, __LINE__);
 *     Trace_Mem_Destroy();
 *
 * Reports:   through the library's log (`g_ptslLog`), under its usual levels.
 * Threads:   `Trace_Mem_Alloc` and `Trace_Mem_Free` from any; `Trace_Mem_Usage` and `Trace_Mem_Destroy` while no other
 *            thread allocates or frees. A child of `fork` calls `Trace_Mem_Init` before anything else of this module:
 *            another thread may have held the mutex. The blocks are then traced as before.
 */
#ifndef KORVEX_TRACER_H
#define KORVEX_TRACER_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "korvex_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What stands in front of a traced block's bytes. Its last 4 bytes are the first ones of the caller's. */
typedef struct Trace_Mem_Node {
    struct Trace_Mem_Node *pNext; /**< next node of the circular list */
    struct Trace_Mem_Node *pPrev; /**< previous node */
    uint32_t uMagic;              /**< 0x5A8888A5 */
    char szName[16];              /**< who asked: the first 15 characters */
    int32_t nLine;                /**< in which line */
    uint32_t nSize;               /**< wanted size in bytes, the low 32 bits */
    char szPrefix[16];            /**< guard in front of the bytes */
} Trace_Mem_Node;

extern KORVEX_API Trace_Mem_Node g_tmnHead;   /**< head of the list of live blocks, the newest last */
extern KORVEX_API int32_t g_cnAlloc;          /**< blocks allocated so far */
extern KORVEX_API int32_t g_cnFree;           /**< blocks freed so far */
extern KORVEX_API pthread_mutex_t g_mtxMem;   /**< held while the list or the counters change */
extern KORVEX_API const char g_stPreface[16]; /**< the guard: sixteen "Z", no NUL */

/**
 * Makes the mutex; before any other call, and again after `Trace_Mem_Destroy` and after `fork`.
 *
 * @return what `pthread_mutex_init` returned.
 */
KORVEX_API int32_t Trace_Mem_Init(void);

/**
 * Allocates a traced block.
 *
 * @param nSize      bytes.
 * @param pReserved  ignored.
 * @param pszName    who asks, of which 15 characters are kept; null is as good as empty.
 * @param nLine      line of the caller.
 * @return the bytes, at an address 4 below a multiple of 16; null without memory or for a size that wraps with the
 *         80 bytes, and then nothing is counted or logged. Add 4 for `Trace_Mem_Check` and `Trace_Mem_Free`.
 */
KORVEX_API void *Trace_Mem_Alloc(size_t nSize, void *pReserved, const char *pszName, int32_t nLine);

/**
 * Looks at both guards of a block, and changes nothing.
 *
 * @param pBlock  64 bytes behind the block's node; null is fine. A pointer as `Trace_Mem_Alloc` returned it makes this
 *                read each field 4 bytes early, and so a guard at a place that the line number tells.
 * @return 0 when both are whole, 1 when not.
 *
 * Logs: an error for each damaged guard, with its bytes, one message each.
 */
KORVEX_API int32_t Trace_Mem_Check(void *pBlock);

/**
 * Frees a block, damaged guards or not.
 *
 * @param pBlock   64 bytes behind the block's node. Null, and a block without the magic number, are reported and left.
 * @param pszName  who frees, for the messages; not null.
 * @param nLine    line of the caller.
 *
 * Logs: as `Trace_Mem_Check`; an error for what can't be freed.
 */
KORVEX_API void Trace_Mem_Free(void *pBlock, const char *pszName, int32_t nLine);

/**
 * Reports the counters and, where they differ, every live block, the newest first. Changes nothing.
 *
 * The blocks are looked at by the address of their bytes, 4 bytes early, so most of them are reported as damaged:
 * `Trace_Mem_Destroy` is the report to go by.
 *
 * Logs: a debug message for the counters; errors for the blocks.
 */
KORVEX_API void Trace_Mem_Usage(void);

/**
 * Reports the balance of the counters and every block that was not freed, the newest first, frees these and counts them
 * as freed, and destroys the mutex. After `Trace_Mem_Init` the tracer works again, and the counters go on.
 *
 * Of a block's guards the one in front alone is looked at.
 *
 * @return what `pthread_mutex_destroy` returned.
 *
 * Logs: a debug message for equal counters, else an error; an error for each block.
 */
KORVEX_API int32_t Trace_Mem_Destroy(void);

#ifdef __cplusplus
}
#endif

#endif
