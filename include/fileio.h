/**
 * @file
 * fileio: lock files, status and whole-file helpers, bulk transfer, copying, tree walks and temporary files.
 *
 * Ownership: nothing is allocated for the caller; descriptors that a function hands out are closed by the caller.
 * Errors:    0 or a non-negative value, or a negated errno, unless a function says otherwise.
 * Threads:   all functions but `Fullpath` are reentrant. Its buffer is overwritten by transfer functions, too, when
 *            they report an error.
 *
 * Functions that end in `_At` resolve names relative to a directory descriptor, which is an open folder or `AT_FDCWD`
 * for the current folder; any other negative value is -EINVAL where a function checks it. The forms without `_At` use
 * the current folder.
 *
 * Long operations take two optional pointers that another thread may use while they run: a stop flag, which that
 * thread sets to a non-zero value, and which then is the result; and a byte total, to which the operation adds.
 *
 * Lock files. A lock is a small file that exists while somebody holds it and names its holder; whoever creates it holds
 * it. A lock whose holder has ended, or that is ten minutes old, is removed by whoever waits for it, and so is one
 * whose content stays incomplete for two seconds. A holder that the waiter may not signal, such as another user's
 * process, counts as one that has ended, and a time in the future as very old. There is no owner check on release: any
 * process that releases a lock removes it, whoever holds it. Threads of one process are not told apart, and a lock is
 * not re-entrant.
 *
 * Of several waiters one removes a stale lock, under a `flock` of its file; the others treat it as held meanwhile, for
 * 100 milliseconds at most. What these functions report is written to the log at once, without waiting for the log's
 * own lock, and a removal only when it has taken place.
 *
 * Other users may put something else at a lock's name. A link that belongs to neither root nor the caller is not
 * followed, and waited for as a lock that can't be read; a pipe, device or folder is not opened, and judged as a lock
 * that was never filled. A lease on a lock prolongs no wait.
 *
 *   - the held lock, /var/lock/_BASE.lck: `Get_File_Lock`, `Release_File_Lock`, and the shared streams (`common` in the
 *     C++ layer and in korvex(1));
 *   - the side lock, PATH.lck: `Get_File_Lock_Ex`, `Release_File_Lock_Ex` (`side` in the C++ layer, `--beside` in
 *     korvex(1));
 *   - the watched lock, /var/lock/BASE.lck: `Check_File_Lock` waits for it; other programs make it.
 *
 * BASE is the last component of the path (nothing where it ends in "/"), so equal names in different folders share one
 * held lock. What a lock holds, and how a program without this library joins, is described in korvex_util(7).
 *
 * A wait looks at the lock once a millisecond, and always once: a free lock is no delay, also with a time-out of 0.
 * The wall clock counts, and one that is set back ends the wait.
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
#include <time.h>

#include "korvex_api.h"

#ifdef __cplusplus
extern "C" {
#endif

struct timespec; /* of <time.h>, where strict C99 lacks it */

/** What `State_Folder_Tree_At` counts. It only adds: zero the record before the first call. */
typedef struct Folder_Tree_State {
    uint32_t cnFiles;   /**< regular files and symbolic links */
    uint32_t cnFolders; /**< folders, the top one included */
    uint64_t ullBytes;  /**< sizes of files and links */
    uint64_t ullBlocks; /**< blocks of 512 bytes of files, links and folders */
} Folder_Tree_State;

/**
 * @name Lock files
 * @{
 */

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
 * The two seconds of a lock whose content is incomplete begin when the call first sees it so, and go on also where the
 * content was complete in between; a change of the lock's modification time begins them anew. That time is remembered
 * in 32 bits, so an incomplete lock with a later one (after January 2038) is never removed. This holds for
 * `Get_File_Lock` and `Get_File_Lock_Ex`, too. A lock that can't be looked at counts as none.
 *
 * @param pszPath    path; null, or one whose lock path has 256 bytes or more, returns at once.
 * @param nTimeout   milliseconds to wait at most; negative waits for ever.
 * @return 0, always: it only delays, and does not tell whether the lock is still there.
 *
 * Logs: an error when the time is over; a debug message for each removal. It waits for no log's lock.
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
 * Logs: an error for a time-out and for content that can't be written (the lock is gone by then); a debug message for
 * each removal of a stale lock. Neither waits for a log's lock.
 */
KORVEX_API int32_t Get_File_Lock(const char *pszPath, int32_t nTimeout);

/**
 * Removes the held lock of a path, whoever holds it; one that does not exist, or can't be removed, is no failure.
 *
 * @param pszPath  path that the lock was taken for.
 * @return 1; 0 for a null path; -ENAMETOOLONG where the lock path has 256 bytes or more.
 */
KORVEX_API int32_t Release_File_Lock(const char *pszPath);

/**
 * Takes the side lock of a path, PATH.lck: as `Get_File_Lock`, but equal names in different folders don't collide.
 *
 * @param pszPath, nTimeout  as for `Get_File_Lock`.
 * @return as `Get_File_Lock`; -ENAMETOOLONG where the lock path has 4096 bytes or more.
 */
KORVEX_API int32_t Get_File_Lock_Ex(const char *pszPath, int32_t nTimeout);

/**
 * Removes the side lock of a path for good, whoever holds it; one that does not exist, or can't be removed, is no
 * failure.
 *
 * @param pszPath  path that the lock was taken for.
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
 *         lock was not obtained for whatever reason, else what `fopen` reported (or the removal of the lock, where that
 *         failed after it). To write, a link, pipe, socket or device that belongs neither to root nor to the caller is
 *         not opened: -ELOOP for a link, -ENXIO.
 *
 * Logs: a debug message when the lock is not obtained, without waiting for a log's lock.
 */
KORVEX_API int32_t Open_Shared_File(const char *pszPath, const char *pszMode, FILE **ppfStream);

/**
 * Releases the lock of `Open_Shared_File`, then closes the stream.
 *
 * The lock is dropped before buffered data is flushed, by contract: call `fflush` first if the next holder must see
 * it. It is dropped whoever holds it by now.
 *
 * @param pszPath   path as it was given to `Open_Shared_File`, not null.
 * @param pfStream  its stream, not null.
 * @return 0; -EINVAL for a null pointer (nothing done); else what `fclose` reported.
 */
KORVEX_API int32_t Close_Shared_File(const char *pszPath, FILE *pfStream);

/**
 * @}
 * @name Descriptors and paths
 * @{
 */

/**
 * Waits until a descriptor can be read without blocking.
 *
 * @param fdFile    descriptor to wait for.
 * @param nTimeout  milliseconds, 0 or more.
 * @return 1 ready, also at the end of a file or of a closed pipe; 0 the time is over; else what `select` reported as a
 *         negated errno, -EINTR for a signal. A descriptor above 1023 is fine; a negative one is -EBADF, and so is a
 *         closed one, unless its number is far above all in use: that may count as never ready.
 */
KORVEX_API int32_t Is_FD_Ready_To_Read(int32_t fdFile, int32_t nTimeout);

/**
 * Reads the path that an open descriptor leads to.
 *
 * @param fdFile  open descriptor.
 * @param pszBuf  receives the path without a NUL, cut to the size; not null.
 * @param cbBuf   size in bytes, not negative.
 * @return the bytes stored; -EINVAL for a bad argument or a descriptor that is not open; else what `readlink` reported.
 */
KORVEX_API int32_t Get_FD_Path(int32_t fdFile, char *pszBuf, int32_t cbBuf);

/**
 * The path that an open descriptor leads to, in a buffer of the library; null when it has none.
 *
 * Not safe for threads: the next call in any thread overwrites it, and so do the transfer functions below when they
 * report an error. Copy it at once.
 *
 * @param fdFile  open descriptor.
 * @return the path, NUL-terminated; null when there is none.
 */
KORVEX_API char *Fullpath(int32_t fdFile);

/**
 * Sets access and modification time as `utimensat` does.
 *
 * @param fdDir    directory descriptor; one that is negative and not `AT_FDCWD` is -EINVAL.
 * @param pszPath  path; null sets the times of the descriptor itself.
 * @param ptsTimes two times: access, then modification, to the nanosecond.
 * @param nFlags   0 or `AT_SYMLINK_NOFOLLOW`.
 * @return 0, or a negated errno.
 */
KORVEX_API int32_t Set_File_Time_At(int32_t fdDir, const char *pszPath, const struct timespec *ptsTimes,
                                    int32_t nFlags);

/**
 * Sets both the access and the modification time to one instant. Mind the order: nanoseconds come before seconds.
 *
 * @param fdDir, pszPath, nFlags  as for `Set_File_Time_At`.
 * @param uNanoseconds  nanoseconds of the instant.
 * @param uSeconds      its seconds since the epoch, unsigned: up to the year 2106.
 * @return as `Set_File_Time_At`.
 */
KORVEX_API int32_t Set_File_Modified_Time_At(int32_t fdDir, const char *pszPath, uint32_t uNanoseconds,
                                             uint32_t uSeconds, int32_t nFlags);

/**
 * Tells whether a path leads to a folder, following links.
 *
 * @param pszPath  path, not null.
 * @return 1, 0, -EINVAL for null, or what `stat` reported.
 */
KORVEX_API int32_t Is_Folder(const char *pszPath);

/**
 * Tells whether a name is a folder; a link to a folder is none.
 *
 * @param fdDir     directory descriptor.
 * @param pszPath   name, not null.
 * @param puFolder  receives 1 or 0, not null; untouched on failure.
 * @return 0, -EINVAL, or what `fstatat` reported.
 */
KORVEX_API int32_t Check_Folder_At(int32_t fdDir, const char *pszPath, uint32_t *puFolder);

/**
 * `Check_Folder_At` in the current folder.
 *
 * @param pszPath, puFolder  as for `Check_Folder_At`.
 * @return as `Check_Folder_At`.
 */
KORVEX_API int32_t Check_Folder(const char *pszPath, uint32_t *puFolder);

/**
 * Tells whether a name exists, of whatever type, a dangling link too.
 *
 * @param fdDir    directory descriptor.
 * @param pszPath  name, not null.
 * @return 1, 0, -EINVAL, or another errno.
 */
KORVEX_API int32_t Check_File_At(int32_t fdDir, const char *pszPath);

/**
 * `Check_File_At` in the current folder.
 *
 * @param pszPath  path, not null.
 * @return as `Check_File_At`.
 */
KORVEX_API int32_t Check_File(const char *pszPath);

/**
 * Stores a file's size in bytes, following links.
 *
 * @param pszPath   path, not null.
 * @param pullSize  receives the size, not null; untouched on failure.
 * @return 0, -EINVAL for null, or what `stat` reported.
 */
KORVEX_API int32_t Get_File_Size(const char *pszPath, uint64_t *pullSize);

/**
 * @}
 * @name Whole files
 * @{
 */

/**
 * Reads a one-line file, such as those of /proc and /sys, with one `read`.
 *
 * @param pszPath   path of the file, not null.
 * @param pszBuf    receives the bytes, not null. One line feed at the end is dropped. A NUL follows where there is
 *                  room, if need be in place of the line feed: a buffer that is filled without one has none.
 * @param pnLength  in: size of the buffer in bytes, not negative; out: the bytes stored; not null.
 * @return 0, -EINVAL, or what `open` or `read` reported.
 */
KORVEX_API int32_t Simple_Read_File(const char *pszPath, char *pszBuf, int32_t *pnLength);

/**
 * Reads a piece of a file with one `read`.
 *
 * @param pszPath    path of the file, not null.
 * @param pBuf       receives the bytes, not null; no NUL is added.
 * @param pllLength  in: bytes to read at most, at least 1; out: the bytes read, which fewer may be, 0 at the end of
 *                   the file; untouched on failure; not null.
 * @param llOffset   where the piece begins; 0 needs no seek, so a pipe can be read, too.
 * @return 0, -EINVAL, or what `open`, `lseek` or `read` reported.
 */
KORVEX_API int32_t Read_File_To_Buffer(const char *pszPath, void *pBuf, int64_t *pllLength, int64_t llOffset);

/**
 * Writes a piece of a file, which is created with mode 0777 less the umask where there is none. It is never truncated:
 * a longer file keeps its tail.
 *
 * @param pszPath    path of the file, not null.
 * @param pBuf       bytes to write, not null.
 * @param pllLength  in: bytes to write, at least 1; out: the bytes written, also after a failed `write`, but untouched
 *                   where it did not come to that; not null.
 * @param llOffset   where the piece begins; 0 needs no seek, so a pipe can be written to, too.
 * @return 0, -EINVAL, or what `open`, `lseek` or `write` reported. A link, pipe, socket or device that belongs neither
 *         to root nor to the caller is not opened: -ELOOP for a link, -ENXIO.
 *
 * Logs: an error when not all could be written.
 */
KORVEX_API int32_t Write_File_From_Buffer(const char *pszPath, const void *pBuf, int64_t *pllLength, int64_t llOffset);

/**
 * @}
 * @name Bulk transfer
 *
 * Errors are logged with the path of the descriptor, for which `Fullpath` is used. What comes from a socket into a
 * file: `Recv_File` (socket.h).
 * @{
 */

/**
 * Writes all of a buffer, however short the single writes are.
 *
 * @param fdFile       descriptor to write to.
 * @param pBuf         bytes to write, not null.
 * @param llCount      bytes, not negative.
 * @param pullWritten  receives the bytes written, also on failure; may be null.
 * @return 0, -EINVAL, or what `write` reported; an interrupted write is not repeated. A `write` that moves nothing ends
 *         the call with the negated `errno` of the moment, which may be 0.
 */
KORVEX_API int32_t File_Write_Bulk(int32_t fdFile, const void *pBuf, int64_t llCount, uint64_t *pullWritten);

/**
 * Sends bytes from one descriptor to another inside the kernel. Mind the order: input first.
 *
 * @param fdIn       descriptor to read from.
 * @param fdOut      descriptor to write to.
 * @param llCount    bytes, not negative.
 * @param pllOffset  where to begin in the input, advanced by what was sent; null uses and moves its file position.
 * @param pullSent   receives the bytes sent, also on failure; may be null.
 * @return as `File_Write_Bulk`, of `sendfile`. The end of the input is such a transfer that moves nothing: look at the
 *         bytes sent.
 */
KORVEX_API int32_t File_Send_Bulk(int32_t fdIn, int32_t fdOut, int64_t llCount, int64_t *pllOffset, uint64_t *pullSent);

/**
 * Splices a count of bytes, of which one side is a pipe, waiting while nothing comes. A peer that has closed counts as
 * a silent one. A descriptor that blocks is waited for inside the system, where neither time-out nor stop flag counts:
 * set `O_NONBLOCK` where they are to.
 *
 * @param fdIn      descriptor to read from.
 * @param pllInOffset, pllOutOffset  offsets as `splice` takes and advances them; null for a pipe or socket.
 * @param fdOut     descriptor to write to.
 * @param llCount   bytes to move.
 * @param uFlags    flags of `splice`.
 * @param nTimeout  milliseconds without any progress before it gives up, at a grain of 50; negative waits for ever.
 *                  The wall clock counts: one that is set back is a time-out.
 * @param pnStop    stop flag, not null; looked at while nothing comes.
 * @return 0 when all was moved, also for a count of 0 whatever the flag says; -ETIME; the stop flag's value; else what
 *         `splice` reported.
 *
 * Logs: errors, and a debug message for each retry.
 */
KORVEX_API int32_t Splice_Ext(int32_t fdIn, int64_t *pllInOffset, int32_t fdOut, int64_t *pllOutOffset, int64_t llCount,
                              uint32_t uFlags, int32_t nTimeout, int32_t *pnStop);

/**
 * Splices a count of bytes in chunks of 128 KiB, between which it looks at the stop flag.
 *
 * @param fdIn, pllInOffset, fdOut, pllOutOffset, nTimeout  as for `Splice_Ext`.
 * @param llCount   bytes to move, not negative.
 * @param pnStop    stop flag; may be null.
 * @param pllTotal  byte total, added to after each chunk; may be null.
 * @return 0 when all was moved; the stop flag's value, also where it was set during the last chunk; -EINVAL for a
 *         negative descriptor, count or given offset; else as `Splice_Ext`.
 */
KORVEX_API int32_t Splice_File_Data(int32_t fdIn, int64_t *pllInOffset, int32_t fdOut, int64_t *pllOutOffset,
                                    int64_t llCount, int32_t nTimeout, int32_t *pnStop, int64_t *pllTotal);

/**
 * @}
 * @name Copying
 * @{
 */

/**
 * Copies a count of bytes through a buffer of 32 KiB.
 *
 * @param fdIn      descriptor to read from.
 * @param pllInOffset, pllOutOffset  where to seek to first, advanced by what was copied, also on failure; null begins
 *                  at the file position.
 * @param fdOut     descriptor to write to.
 * @param llCount   bytes to copy, not negative.
 * @param pnStop    stop flag, looked at after each chunk; may be null.
 * @param pllTotal  byte total, added to after each chunk that was written whole; may be null.
 * @return 0 when all was copied; the stop flag's value; -EINVAL for a negative descriptor, count or given offset;
 *         -ENOMEM; else what `lseek`, `read` or `write` reported. A source that ends early, or gives less at once as a
 *         pipe may, is an error with the `errno` of the moment: if that is 0, the copy is short and the result the stop
 *         flag's value.
 *
 * Logs: errors.
 */
KORVEX_API int32_t Copy_File_Data(int32_t fdIn, int64_t *pllInOffset, int32_t fdOut, int64_t *pllOutOffset,
                                  int64_t llCount, int32_t *pnStop, int64_t *pllTotal);

/**
 * As `Copy_File_Data`, for a source that is still growing: short reads are taken as they are, and at the end of the
 * source it reads again, without a pause, until the count is reached or the stop flag is set.
 *
 * @param fdIn, pllInOffset, fdOut, pllOutOffset, llCount, pnStop, pllTotal  as for `Copy_File_Data`.
 * @return as `Copy_File_Data`; the end of the source is no error.
 */
KORVEX_API int32_t Copy_File_Data_MROV(int32_t fdIn, int64_t *pllInOffset, int32_t fdOut, int64_t *pllOutOffset,
                                       int64_t llCount, int32_t *pnStop, int64_t *pllTotal);

/**
 * Copies a regular file with its permission bits (no set-id or sticky bits), owner and modification time, which becomes
 * the access time, too. An existing destination is overwritten: its old content is gone, also where the copy then
 * fails. Holes of a sparse file are written as zeros; access control lists and extended attributes are not carried
 * over. The first of mode, owner and time that can't be set is a failure, so without privilege only one's own
 * files can be copied.
 *
 * The source's size is taken once, before the copy: what is added meanwhile is left out, and one that shrinks gives a
 * short copy (`Copy_File_Data`). Pass no link as the source: what it leads to is read, but size, bits (0777), owner
 * and time are those of the link itself.
 *
 * In a folder of another user: a source that was found to be a regular file is that very file or can't be opened
 * (-ELOOP for a link that took its place, -ESTALE for anything else). A destination that is a link, pipe, socket or
 * device of a user who is neither root nor the effective one is not followed, written to or waited for; it counts as
 * one that can't be opened (-ELOOP, -ENXIO), and is removed as such. Those of root and of the effective user are used:
 * a link is followed, a pipe waited for. The folders of the two names are the caller's matter.
 *
 * @param fdSourceDir, pszSource  directory descriptor and name of the file.
 * @param fdDestDir, pszDest  directory descriptor and name of the copy.
 * @param pnStop    stop flag; set after the last byte, it still undoes the copy; may be null.
 * @param pllTotal  byte total; may be null.
 * @return 0; -EINVAL for a null name, or when both lead to one file (nothing is touched); else a negated errno or the
 *         stop flag's value, and then the destination is removed, also one that was there before and could not be
 *         opened. A source that can't be looked at leaves the destination alone.
 *
 * Logs: errors.
 */
KORVEX_API int32_t Copy_File_At(int32_t fdSourceDir, const char *pszSource, int32_t fdDestDir, const char *pszDest,
                                int32_t *pnStop, int64_t *pllTotal);

/**
 * `Copy_File_At` in the current folder.
 *
 * @param pszSource, pszDest, pnStop, pllTotal  as for `Copy_File_At`.
 * @return as `Copy_File_At`.
 */
KORVEX_API int32_t Copy_File(const char *pszSource, const char *pszDest, int32_t *pnStop, int64_t *pllTotal);

/**
 * Copies a symbolic link with its owner and modification time, which becomes the access time, too; its target is not
 * looked at. The time's seconds have 32 bits, as in `Set_File_Modified_Time_At`.
 *
 * @param fdSourceDir, pszSource  directory descriptor and name of the link.
 * @param fdDestDir, pszDest  directory descriptor and name of the copy.
 * @return 0; -EINVAL for a null name or a source that is no link; else a negated errno (-EEXIST for an existing
 *         destination). A link that was made stays, also where its owner or time can't be set.
 *
 * Logs: errors; debug messages when the source can't be read.
 */
KORVEX_API int32_t Copy_Symlink_At(int32_t fdSourceDir, const char *pszSource, int32_t fdDestDir, const char *pszDest);

/**
 * `Copy_Symlink_At` in the current folder.
 *
 * @param pszSource, pszDest  as for `Copy_Symlink_At`.
 * @return as `Copy_Symlink_At`.
 */
KORVEX_API int32_t Copy_Symlink(const char *pszSource, const char *pszDest);

/**
 * Removes a name of any type but a folder with `unlinkat`.
 *
 * @param fdDir    directory descriptor.
 * @param pszName  name in it.
 * @return 0, or a negated errno.
 */
KORVEX_API int32_t Remove_File_At(int32_t fdDir, const char *pszName);

/**
 * `Remove_File_At` in the current folder.
 *
 * @param pszPath  path of the file.
 * @return as `Remove_File_At`.
 */
KORVEX_API int32_t Remove_File(const char *pszPath);

/**
 * Makes a folder with the mode (whatever the umask), owner and modification time of another; what is in it is not
 * copied. The time becomes the access time, too; its seconds have 32 bits. What the source is does not matter, and a
 * link is not followed.
 *
 * @param fdSourceDir, pszSource  directory descriptor and name of the folder.
 * @param fdDestDir, pszDest  directory descriptor and name of the new one.
 * @return 0; -EINVAL for a null name; else a negated errno (-EEXIST for an existing destination). Mode and owner that
 *         can't be set are logged and ignored. A time that can't be set is the result, and the folder stays.
 *
 * Logs: errors; a debug message when the source can't be looked at.
 */
KORVEX_API int32_t Copy_Folder_At(int32_t fdSourceDir, const char *pszSource, int32_t fdDestDir, const char *pszDest);

/**
 * `Copy_Folder_At` in the current folder.
 *
 * @param pszSource, pszDest  as for `Copy_Folder_At`.
 * @return as `Copy_Folder_At`.
 */
KORVEX_API int32_t Copy_Folder(const char *pszSource, const char *pszDest);

/**
 * @}
 * @name Trees
 *
 * The walks use no recursion and read one folder at a time. They open the top folders once, as the caller named them,
 * and reach all else from there, never through a symbolic link, by the folders' own descriptors and not by long paths.
 * So whoever owns the tree and exchanges folders, files and links in it while a privileged process is on its way can't
 * lead it out of the tree: a folder that is no longer the one that was found counts as one that can't be opened. A
 * walk takes three (measuring), four (removing) or six (copying) descriptors, however deep the tree is. Paths are what
 * messages show, and no path may be longer than 4095 bytes.
 * @{
 */

/**
 * Copies a folder with all files, links and folders in it; devices, pipes and sockets are skipped.
 *
 * The top destination folder may exist and is merged into: files in it are overwritten, but a folder or link inside it
 * that exists is -EEXIST. A link to a folder serves as the source, but not as the destination. The top folder gets the
 * source's mode, owner and time, and one that can't be set is the result; below it modes and owners that can't be set
 * are logged and ignored. A subfolder whose copy is empty has the time of its source; any other has the time at which
 * the copy last put something into it. A source folder that can't be opened is skipped, and its empty copy stays; one
 * that can't be read to its end ends the copy. Files are copied as by `Copy_File_At`, links as by `Copy_Symlink_At`. A
 * file with several names becomes several files. No byte total is kept.
 *
 * @param fdSourceDir, pszSource  directory descriptor and name of the folder.
 * @param fdDestDir, pszDest  directory descriptor and name of the copy.
 * @param pnStop  stop flag; may be null.
 * @return 0, also when stopped between files, so look at the flag, too (if nothing was copied since the last source
 *         folder that could not be opened, such a stop gives the positive `errno` of that folder); the stop flag's
 *         value when stopped during a file; -EINVAL for a bad descriptor or a null name, and where the destination lies
 *         inside the source; -ENOTDIR when either is no folder; -ENAMETOOLONG when a path does not fit 4096 bytes;
 *         -ENOMEM; else the first failure, which ends the walk. What was copied stays.
 *
 * Logs: errors and debug messages.
 */
KORVEX_API int32_t Copy_Folder_Tree_At(int32_t fdSourceDir, const char *pszSource, int32_t fdDestDir,
                                       const char *pszDest, int32_t *pnStop);

/**
 * `Copy_Folder_Tree_At` in the current folder.
 *
 * @param pszSource, pszDest, pnStop  as for `Copy_Folder_Tree_At`.
 * @return as `Copy_Folder_Tree_At`.
 */
KORVEX_API int32_t Copy_Folder_Tree(const char *pszSource, const char *pszDest, int32_t *pnStop);

/**
 * Adds up what is in a folder. Entries that can't be looked at are logged and skipped, and so is what is in a folder
 * that can't be opened (the folder counts), or whose path does not fit (it does not). A file with several names counts
 * once for each, and the sizes are those of the content, holes included; the blocks are what the disk holds.
 *
 * @param fdDir    directory descriptor.
 * @param pszPath  name of the folder, or of a link to it, not null.
 * @param ptState  counters to add to, not null.
 * @param pnStop   stop flag; may be null.
 * @return 0, also when stopped, so look at the flag, too; -EINVAL; -ENOTDIR; -ENAMETOOLONG for a folder whose own path
 *         does not fit; -ENOMEM; or what `stat` of the folder reported. What was counted so far is in the record.
 *
 * Logs: debug messages.
 */
KORVEX_API int32_t State_Folder_Tree_At(int32_t fdDir, const char *pszPath, Folder_Tree_State *ptState,
                                        int32_t *pnStop);

/**
 * `State_Folder_Tree_At` in the current folder.
 *
 * @param pszPath, ptState, pnStop  as for `State_Folder_Tree_At`.
 * @return as `State_Folder_Tree_At`.
 */
KORVEX_API int32_t State_Folder_Tree(const char *pszPath, Folder_Tree_State *ptState, int32_t *pnStop);

/**
 * Removes a folder with all that is in it, or a name that is no folder, such as a link, which is not followed. Failures
 * inside are logged and passed over, also a path that does not fit; they show in the removal of the top folder
 * (-ENOTEMPTY). A file is removed before anything is asked about it; one that another process was faster to remove is
 * logged as one that can't be looked at. After -ENOMEM the rest stays.
 *
 * @param fdDir    directory descriptor.
 * @param pszPath  name; with a "/" at its end, a link to a folder counts as that folder, which is then emptied. "/"
 *                 names nothing (-ENOENT), but any other way to write it, such as "//", empties the root.
 * @param pnStop   stop flag, which does not count for a name that is no folder; may be null.
 * @return 0 when it is gone; the stop flag's value when stopped; -EINVAL; -ENAMETOOLONG for a folder whose own path
 *         does not fit; -ENOMEM; else what looking at it or removing it reported.
 *
 * Logs: errors.
 */
KORVEX_API int32_t Remove_Folder_Tree_At(int32_t fdDir, const char *pszPath, int32_t *pnStop);

/**
 * `Remove_Folder_Tree_At` in the current folder.
 *
 * @param pszPath, pnStop  as for `Remove_Folder_Tree_At`.
 * @return as `Remove_Folder_Tree_At`.
 */
KORVEX_API int32_t Remove_Folder_Tree(const char *pszPath, int32_t *pnStop);

/**
 * @}
 * @name Temporary files
 *
 * Such a file lies in the folder of a given path and is named by a marker of seven bytes, "$$@#!$$", and a number, the
 * lowest that is free. What follows the last "/" of the given path is not used.
 * @{
 */

/**
 * Tells whether a path names a temporary file. Mind the sense of the result.
 *
 * @param pszPath  path, not null; the file need not exist.
 * @return 0 if it does, 1 if not, -EINVAL for null.
 */
KORVEX_API int32_t Check_Temp_Filename(const char *pszPath);

/**
 * Finds a free temporary name of at least three digits; nothing is created, so another process may take it first. A
 * name that can't be looked up, for whatever reason, counts as free; a dangling link takes its name.
 *
 * @param fdDir    directory descriptor, not -1.
 * @param pszPath  path whose folder is to hold the file, not null.
 * @param pszBuf   receives the folder part and the name, not null. After -EOVERFLOW it holds the name that was tried
 *                 last, or only the folder part, or as much of that as has room; after -ERANGE the last name.
 * @param cbBuf    size of `pszBuf` in bytes, at least 11 more than the folder part. Nothing is written past it.
 * @return 0; -EINVAL (nothing stored); -ENAMETOOLONG; -EOVERFLOW when the size is too small, also for a longer number
 *         that is found; -ERANGE when a million names are taken.
 *
 * Logs: errors.
 */
KORVEX_API int32_t Generate_Temp_Filename(int32_t fdDir, const char *pszPath, char *pszBuf, int32_t cbBuf);

/**
 * Creates and opens a temporary file whose name has at least three digits.
 *
 * @param fdDir    directory descriptor, not -1.
 * @param pszPath  path whose folder is to hold the file, not null.
 * @param nFlags   flags of `open`; O_CREAT and O_EXCL are added.
 * @param uMode    mode less the umask; only the low nine bits count.
 * @param cbName   size of `pszName` in bytes, at least 11 more than the folder part.
 * @param pszName  receives the folder part and the name; may be null, the size does not matter then.
 * @param pfdFile  receives the descriptor, -1 on failure; not null.
 * @return 0; -EINVAL; -ENAMETOOLONG; -EOVERFLOW when the size is too small; -ERANGE when a million names are taken;
 *         else what `openat` reported, but for -EEXIST: then the next number is tried.
 *
 * Logs: errors; a debug message when a file can't be opened.
 */
KORVEX_API int32_t Open_Unique_Temp_File_At(int32_t fdDir, const char *pszPath, int32_t nFlags, uint32_t uMode,
                                            int32_t cbName, char *pszName, int32_t *pfdFile);

/**
 * As `Open_Unique_Temp_File_At` in the current folder, with names of six digits (so 14 bytes more than the folder
 * part). When a million names are taken it removes the last one for good, so that the next call finds it free.
 *
 * @param pszPath, nFlags, uMode, cbName, pszName, pfdFile  as for `Open_Unique_Temp_File_At`.
 * @return as `Open_Unique_Temp_File_At`.
 */
KORVEX_API int32_t Open_Unique_Temp_File(const char *pszPath, int32_t nFlags, uint32_t uMode, int32_t cbName,
                                         char *pszName, int32_t *pfdFile);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
