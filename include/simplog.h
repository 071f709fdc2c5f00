/**
 * @file
 * simplog: an append-only text log with stamped lines, and the place where the library's own messages go.
 *
 * A host creates a handle for a file (or for standard output), opens it, writes printf-style messages and releases
 * it. Each message becomes one line, stamped with the local date and time; several processes may append to one file.
 * What is written to a handle that is not open goes to standard output: open a handle before it becomes `g_ptslLog`.
 *
 * Ownership: `Simp_Log_Create` hands out one block; `Simp_Log_Release` frees it.
 * Errors:    0 or a negated errno.
 * Threads:   threads may share a handle for writing (one `fwrite` a line); opening, closing and releasing it while
 *            another thread writes is the caller's to prevent. The globals are read without synchronisation: set
 *            them before starting threads.
 *
 *     Simp_Log *log;
 *     if (Simp_Log_Create("/var/log/app.log", &log, 24, 3, 0) == 0) {
 *         Simp_Log_Open(log, 0);
 *         Simp_Log_Write(log, "started, pid %d", (int)getpid());
 *         g_ptslLog = log;  // the library's own messages, too
 *         ...
 *         Simp_Log_Release(log);
 *     }
 */
#ifndef KORVEX_SIMPLOG_H
#define KORVEX_SIMPLOG_H

#include <stdint.h>
#include <stdio.h>
#include <time.h>

#include "korvex_api.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" /* a text of open length ends the record; C++ lacks the C99 notation */

/** A log handle: one heap block, the path inline at its end. Its fields may be read, not changed. */
typedef struct Simp_Log {
    FILE *fpLog;           /**< the open stream; null while closed; standard output for a handle without a path */
    uint16_t idTimeFormat; /**< hour clock of the stamp: 12, anything else means 24 */
    uint16_t idDateFormat; /**< date format of the stamp, 1 to 9 (see `Change_Date_To_String_By_Format_Ex`) */
    char szFilename[];     /**< absolute path of the file; empty for standard output */
} Simp_Log;

#pragma GCC diagnostic pop

/** Type of the two output hooks below. */
typedef int32_t (*Log_Output_Func)(const char *pszFormat, ...);

/**
 * Receives the library's own messages; null (the start value) keeps the library silent. Open the handle first: the
 * messages to one that is closed go to standard output.
 *
 * A message is one line, "[error] FUNCTION(LINE): TEXT" or "[debug] ...", behind its stamp; FUNCTION is the one that
 * was called, or one that it used (`Copy_File` shows as `Copy_File_At`). Writing it leaves `errno` as it was.
 */
extern KORVEX_API Simp_Log *g_ptslLog;

/** Which of its own messages the library writes: errors from 1 (the start value), debug messages from 3. */
extern KORVEX_API int32_t g_idLogLevel;

/** A switch for hosts, 1 at the start; the library itself never reads it. */
extern KORVEX_API int32_t g_bDebugOutput;

/** A hook for hosts, null at the start; the library itself neither reads nor calls it. */
extern KORVEX_API Log_Output_Func g_pfError;

/** A hook for hosts, null at the start; the library itself neither reads nor calls it. */
extern KORVEX_API Log_Output_Func g_pfDebug;

/**
 * Makes a log handle for a file, or for standard output, and the folders above the file.
 *
 * Missing parent folders are created with mode 0755 less the umask. A link to a folder serves as one. Whatever else
 * stands where a parent folder is needed (a file, a pipe, a link to a file) is removed for good and replaced by a
 * folder; what a link led to stays. The file itself is neither made nor looked at, unless `bReset` asks for it. One
 * trailing "/" of the path is dropped. The handle is closed afterwards; a handle for standard output is always open.
 *
 * @param pszPath       absolute path of the log, shorter than 4096 bytes; null for standard output.
 * @param pptslLog      receives the handle, not null; set to null before any work unless the path is relative.
 * @param idTimeFormat  12 for the 12-hour clock, any other value for 24; only the low 16 bits are kept.
 * @param idDateFormat  1 to 9, see `Change_Date_To_String_By_Format_Ex`; only the low 16 bits are kept.
 * @param bReset        non-zero makes the file or empties it at once (standard output is flushed). A failure of that is
 *                      not a failure of this call; the next `Simp_Log_Open` reports it.
 * @return 0, or a negated errno:
 *         -EINVAL        `pptslLog` is null, or the path does not begin with "/";
 *         -ENAMETOOLONG  the path has 4096 bytes or more;
 *         -ENOMEM        no memory for the handle;
 *         else what removing a file or `mkdir` reported. What was made or removed before a failure stays so.
 *
 * Logs: errors. Threads: safe.
 */
KORVEX_API int32_t Simp_Log_Create(const char *pszPath, Simp_Log **pptslLog, uint32_t idTimeFormat,
                                   uint32_t idDateFormat, int32_t bReset);

/**
 * Opens the handle's file for writing; an open one is closed and opened anew. A missing file is made with mode 0666
 * less the umask.
 *
 * @param ptslLog    handle; one for standard output is left as it is (result 0).
 * @param bTruncate  0 appends to the file. Non-zero empties it and writes on from its start, without appending: where
 *                   another handle writes to the file, too, the two overwrite each other's lines.
 * @return 0; -EINVAL for a null handle; -ELOOP for a link, and -ENXIO for a pipe, socket or device, that belongs
 *         neither to root nor to the caller; else what kept the file from being opened. After a failure the handle is
 *         closed.
 *
 * Logs: an error when the file can't be opened. The descriptor is close-on-exec.
 */
KORVEX_API int32_t Simp_Log_Open(Simp_Log *ptslLog, int32_t bTruncate);

/**
 * Writes one stamped line: "[date time] " and the message, with a newline added where the message has none.
 *
 * Before it appends to a file, it waits up to 10 seconds while another program holds the log's watched lock
 * (`Check_File_Lock` of fileio.h), then writes in any case. An open handle for standard output waits so, too, for the
 * lock of its empty path, /var/lock/.lck. Two kinds of lines do not wait: one that is written from inside a write of
 * the same thread (a report of its failure, or a message of the wait), and the messages of the lock functions of
 * fileio.h.
 *
 * A line is one `fwrite` and one flush, and for the system one `write` however long it is, so lines of several
 * processes that append do not mix; nothing is allocated.
 *
 * A thread keeps its last stamp for the second that it stands for. A change of the environment's TZ shows in the next
 * line; that of /etc/localtime, or of the file that TZ names, shows within a second.
 *
 * @param ptslLog    handle. Null, or one that is closed: the line goes to standard output (not flushed) with the
 *                   24-hour clock and date format 3, and the result is 0.
 * @param pszFormat  printf format; the message may have up to 16463 bytes, and is cut, without an error, where it
 *                   does not fit 16463 bytes together with the stamp. A NUL in it (from "%c") ends it.
 * @return 0, or a negated errno:
 *         -EOVERFLOW  the message has 16464 bytes or more, or can't be formatted (or the negated `errno` of the
 *                     moment, where that is not 0: clear `errno` first if the difference matters);
 *         -EIO        not the whole line could be written, as on a full disk; `errno` says why. What standard output
 *                     does with a line when it is flushed goes unseen;
 *         -ETIME      only where the host defines `Check_File_Lock` itself, and that returns 1.
 *
 * Logs: its own failures, to `g_ptslLog`; but not those of a write from inside a write of the same thread.
 *
 * Pass no text of others as the format. One with "%n" in writable memory ends the whole program where libc is
 * fortified, as it is in the library that packages and `./run install` install.
 */
KORVEX_API int32_t Simp_Log_Write(Simp_Log *ptslLog, const char *pszFormat, ...) KORVEX_PRINTF(2, 3);

/**
 * Closes the handle's stream; standard output is only flushed. The handle can be opened again.
 *
 * @param ptslLog  handle, not null.
 * @return 0 (also when it was closed already); -EINVAL for a null handle.
 */
KORVEX_API int32_t Simp_Log_Close(Simp_Log *ptslLog);

/**
 * Closes the handle's stream if it is open and not standard output, and frees the handle. Null is ignored.
 *
 * @param ptslLog  handle to free, or null.
 */
KORVEX_API void Simp_Log_Release(Simp_Log *ptslLog);

/**
 * Writes the local date of a time. Pass at least 11 bytes: a buffer that is too small is overrun, by contract.
 *
 * | format | layout       | format | layout       | format | layout       |
 * |--------|--------------|--------|--------------|--------|--------------|
 * | 1      | 2024/01/31   | 4      | 01/31/2024   | 7      | 31/01/2024   |
 * | 2      | 2024.01.31   | 5      | 01.31.2024   | 8      | 31.01.2024   |
 * | 3      | 2024-01-31   | 6      | 01-31-2024   | 9      | 31-01-2024   |
 *
 * A year beyond 9999 has all its digits, and needs as many bytes more. One below 1000 has four digits only where the
 * size is too small.
 *
 * @param tTime         seconds since the epoch. One whose year does not fit an `int` reads as month 1, day 0 of 1900,
 *                      00:00:00.
 * @param pszBuf        receives the text and its NUL, not null.
 * @param cbBuf         size in bytes, not 0; a negative one counts as large. Where the text does not fit, it is
 *                      written in full all the same.
 * @param idDateFormat  1 to 9; any other value counts as 1.
 * @return 0, or -EINVAL for a null buffer or a size of 0.
 *
 * Threads: safe. A change of the environment's TZ is seen.
 */
KORVEX_API int32_t Change_Date_To_String_By_Format_Ex(time_t tTime, char *pszBuf, int32_t cbBuf, int32_t idDateFormat);

/**
 * Writes the local time of day. Pass at least 12 bytes: a buffer that is too small is overrun, by contract.
 *
 * The layouts are "13:04:05" and "13:04", and on the 12-hour clock "01:04:05 pm" and "01:04 pm". Where the text does
 * not fit the size given, it is written in full all the same, and on the 12-hour clock in another form: hours 00 to
 * 11 and a capital AM or PM ("00:30 PM" for half past noon).
 *
 * @param tTime        seconds since the epoch, as in `Change_Date_To_String_By_Format_Ex`.
 * @param pszBuf       receives the text and its NUL, not null.
 * @param cbBuf        size in bytes, not 0; a negative one counts as large.
 * @param idTimeMode   1 leaves the seconds out; any other value shows them.
 * @param idHourClock  12; any other value counts as 24.
 * @return 0, or -EINVAL for a null buffer or a size of 0.
 *
 * Threads: safe. A change of the environment's TZ is seen.
 */
KORVEX_API int32_t Change_Time_To_String_By_Format_Ex(time_t tTime, char *pszBuf, int32_t cbBuf, uint32_t idTimeMode,
                                                      int32_t idHourClock);

/**
 * Writes the stamp of a log line, "[2024-01-31 13:04:05] " or "[2024-01-31 01:04:05 pm] ". Pass at least 26 bytes;
 * nothing is checked. The time has a fixed place, where it overwrites the end of a date of more than ten characters.
 *
 * @param tTime         seconds since the epoch, as in `Change_Date_To_String_By_Format_Ex`.
 * @param pszBuf        receives the 22 or 25 characters and their NUL, not null.
 * @param idHourClock   12; any other value counts as 24.
 * @param idDateFormat  1 to 9; any other value counts as 1.
 * @return 0, always.
 *
 * Threads: safe. A change of the environment's TZ is seen.
 */
KORVEX_API int32_t Log_DateTime_Format(time_t tTime, char *pszBuf, int32_t idHourClock, int32_t idDateFormat);

#ifdef __cplusplus
}
#endif

#endif
