/**
 * @file
 * fileio: lock files that processes share, and streams opened under such a lock.
 *
 * A lock is a small file that exists while somebody holds it and names its holder; whoever creates it, holds it. A
 * lock whose holder has ended, or that is ten minutes old, is removed by whoever waits for it, and so is one whose
 * content stays incomplete for two seconds. There is no owner check on release: any process that releases a lock
 * removes it, whoever holds it. Threads of one process are not told apart, and a lock is not re-entrant.
 *
 *     held lock     /var/lock/_BASE.lck   `Get_File_Lock`, `Release_File_Lock`, and the shared streams
 *     side lock     PATH.lck              `Get_File_Lock_Ex`, `Release_File_Lock_Ex`
 *     watched lock  /var/lock/BASE.lck    `Check_File_Lock` waits for it; other programs make it
 *
 * BASE is the last component of the path, so equal names in different folders share one held lock. The content is 16
 * bytes in host order: the millisecond since the epoch at which the holder began to wait (signed 64 bits), its
 * process id (signed 32 bits), and four zero bytes.
 *
 * Errors:  each function says what it returns.
 * Threads: all functions are reentrant.
 *
 *     if (Get_File_Lock("/etc/app.conf", 5000) == 1) {
 *         ... read, change and write the file ...
 *         Release_File_Lock("/etc/app.conf");
 *     }
 */
#ifndef KORVEX_FILEIO_H
#define KORVEX_FILEIO_H

#include <stdint.h>
#include <stdio.h>

#include "korvex_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Finds the last component of a path: what follows its last "/", or all of it.
 *
 * @param pszPath   path, not null.
 * @param ppszName  receives a pointer into `pszPath` (nothing is copied), not null; an empty text where the path ends
 *                  in "/".
 * @return 0, or -EINVAL for a null pointer.
 */
KORVEX_API int32_t Get_Filename(const char *pszPath, const char **ppszName);

/**
 * Waits while the watched lock of a path is held by a live process; removes a stale one.
 *
 * @param pszPath    path; null, or one whose lock path has 256 bytes or more, returns at once.
 * @param nTimeout   milliseconds to wait at most; negative waits for ever.
 * @return 0, always: it only delays, and does not tell whether the lock is still there.
 *
 * Logs: an error when the time is over; a debug message for each removal.
 */
KORVEX_API int32_t Check_File_Lock(const char *pszPath, int32_t nTimeout);

/**
 * Takes the held lock of a path, /var/lock/_BASE.lck, waiting for it one millisecond a pass.
 *
 * A lock that can't be created for another reason (no such folder, no permission) counts as held by somebody.
 *
 * @param pszPath    path of the file to protect; it need not exist.
 * @param nTimeout   milliseconds to wait at most; negative waits for ever.
 * @return 1 when this call took the lock; 0 when it did not: the path is null, the time is over, or the lock's
 *         content could not be written; -ENAMETOOLONG at once where the lock path has 256 bytes or more.
 *
 * Logs: an error for a time-out and for content that can't be written; a debug message for each removal of a stale
 * lock.
 */
KORVEX_API int32_t Get_File_Lock(const char *pszPath, int32_t nTimeout);

/**
 * Removes the held lock of a path, whoever holds it; one that does not exist is no failure.
 *
 * @return 1; 0 for a null path; -ENAMETOOLONG where the lock path has 256 bytes or more.
 */
KORVEX_API int32_t Release_File_Lock(const char *pszPath);

/**
 * Takes the side lock of a path, PATH.lck: as `Get_File_Lock`, but equal names in different folders don't collide.
 *
 * @return as `Get_File_Lock`; -ENAMETOOLONG where the lock path has 4096 bytes or more.
 */
KORVEX_API int32_t Get_File_Lock_Ex(const char *pszPath, int32_t nTimeout);

/**
 * Removes the side lock of a path for good, whoever holds it; one that does not exist is no failure.
 *
 * @return 1; 0 for a null path; -ENAMETOOLONG where the lock path has 4096 bytes or more.
 */
KORVEX_API int32_t Release_File_Lock_Ex(const char *pszPath);

/**
 * Opens a stream while holding the file's held lock, for which it waits up to 10 seconds.
 *
 * @param pszPath    path of the file, not null.
 * @param pszMode    `fopen` mode, not null.
 * @param ppfStream  receives the stream, not null; null after a failed open, untouched on -ETIME. Close it with
 *                   `Close_Shared_File`.
 * @return 0, and the lock is held; or a negated errno, and it is not: -EINVAL for a null pointer, -ETIME when the
 *         lock was not obtained, else what `fopen` reported.
 *
 * Logs: a debug message when the lock is not obtained.
 */
KORVEX_API int32_t Open_Shared_File(const char *pszPath, const char *pszMode, FILE **ppfStream);

/**
 * Releases the lock of `Open_Shared_File`, then closes the stream.
 *
 * The lock is dropped before buffered data is flushed, by contract: call `fflush` first if the next holder must see
 * it.
 *
 * @return 0; -EINVAL for a null pointer (nothing done); else what `fclose` reported.
 */
KORVEX_API int32_t Close_Shared_File(const char *pszPath, FILE *pfStream);

#ifdef __cplusplus
}
#endif

#endif
