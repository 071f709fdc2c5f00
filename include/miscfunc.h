/**
 * @file
 * miscfunc: the millisecond clock, sleeping, questions about processes, removal of paths, and conversions of numbers,
 * texts and units.
 *
 * Ownership: only `Clone_String` and `Get_All_Pids` allocate; what they hand out is freed with `free`.
 * Errors:    0 or a count, or a negated errno. Three follow other rules on purpose: the two unlink calls return 0 or
 *            -1 and set `errno` (`Fenwa_Unlinkat` gives -EINVAL for a null pointer), and `Is_Process_Existed` answers
 *            1, 0 or a negated errno.
 * Threads:   all functions are reentrant.
 *
 *     const uint64_t start = Rough_Tick();
 *     while (!ready() && Tick_Diff(start) < 5000)
 *         Sleep_MSec(10);
 */
#ifndef KORVEX_MISCFUNC_H
#define KORVEX_MISCFUNC_H

#include <stdint.h>

#include "korvex_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Milliseconds since the epoch by the wall clock (not a monotonic one: it follows steps of the clock).
 *
 * @return the current tick.
 */
KORVEX_API uint64_t Rough_Tick(void);

/**
 * Milliseconds from a tick to now, modulo 2^64.
 *
 * A start in the future gives a value near 2^64, which a time-out test reads as elapsed; so a wall clock that is set
 * back ends waits early rather than prolonging them. `Tick_Diff(0)` is the current tick.
 *
 * @param ullStart  earlier tick.
 * @return the difference.
 */
KORVEX_API uint64_t Tick_Diff(uint64_t ullStart);

/**
 * The same as `Tick_Diff`.
 *
 * @param ullStart  earlier tick.
 * @return the difference.
 */
KORVEX_API uint64_t Rough_Tick_Diff(uint64_t ullStart);

/**
 * Sleeps for `uMSec` milliseconds, through any signal; 0 returns at once.
 *
 * @param uMSec  milliseconds.
 */
KORVEX_API void Sleep_MSec(uint32_t uMSec);

/**
 * Tells whether a process exists, by sending it signal 0.
 *
 * @param nPid  process id; 0 or less counts as not existing.
 * @return 1 if it exists and may be signalled, also when it has ended and nobody has waited for it yet; 0 if there is
 *         none; else a negated errno. A live process of another user gives -EPERM, not 1 (process 1 too, for an
 *         unprivileged caller).
 */
KORVEX_API int32_t Is_Process_Existed(int32_t nPid);

/**
 * Runs a command line with the shell and takes the beginning of its output.
 *
 * One newline at the end of what was read is dropped. Longer output is cut without notice, and the exit status is not
 * looked at; so a command that the shell can't find is 0 with an empty text. Standard error stays the caller's own. The
 * call waits for the command to end.
 *
 * @param pszCommand  command line for sh, not null.
 * @param pszBuf      receives the text and a NUL, not null: one byte more than `*pnSize`, since output that fills it
 *                    exactly puts the NUL behind it.
 * @param pnSize      in: bytes to read at most, at least 1; out: the length of the text; not null.
 * @return 0; -EINVAL; else what kept the command from being started.
 */
KORVEX_API int32_t Get_Program_Output(const char *pszCommand, char *pszBuf, int32_t *pnSize);

/**
 * Tells the parent of a process.
 *
 * Any process may choose its own name, and one that looks like the rest of the status line ("a S 42") makes this call
 * give that number: do not decide by it whom to trust. `Get_Ancestry_Pid` can't be misled so.
 *
 * @param nPid      process id, not negative.
 * @param pnParent  receives the parent's id, not null: 0 for process 1, and for a parent outside the caller's process
 *                  namespace; -1 where it can't be told, which includes, with result 0, a process whose name holds a
 *                  blank.
 * @return 0; -EINVAL (nothing stored); -ESRCH when there is no such process, or its status can't be read.
 */
KORVEX_API int32_t Get_Parent_Pid(int32_t nPid, int32_t *pnParent);

/**
 * Lists the processes of a name or of a program.
 *
 * @param pszName  a command name as in /proc/PID/comm, of which what follows a "/" does not count; or a path that
 *                 begins with "/", which every command line matches that begins with it: "/usr/bin/tool" finds
 *                 "/usr/bin/toolx", too. Of either the first line counts, up to 4095 bytes. Not null, not empty.
 * @param ppPids   receives the process ids in the order of /proc, not null; null on failure. Free it with `free`.
 * @param pnCount  receives how many there are, not null; 0 on failure.
 * @return 0; -EINVAL (nothing stored); -ENODATA when there is none; -ENOMEM; else what kept /proc from being opened. A
 *         process that ends meanwhile, or can't be looked at, is left out.
 *
 * Logs: errors; debug messages for each match and for processes that are left out.
 */
KORVEX_API int32_t Get_All_Pids(const char *pszName, int32_t **ppPids, int32_t *pnCount);

/**
 * Finds who started a program: the ancestor, just below process 1, of the first process of a name.
 *
 * No process can choose its ancestor by its name: where the way up meets a name with a blank, the answer is -1. The way
 * always ends.
 *
 * @param pszName  as for `Get_All_Pids`.
 * @param pnPid    receives the process id, not null; -1 on failure. The process itself where its parent is process 1.
 *                 Where a parent can't be read, the last process that was reached: 0 for process 1 itself and for one
 *                 whose ancestors are outside of the namespace.
 * @return 0; -EINVAL (nothing stored for a null pointer); else as `Get_All_Pids`.
 */
KORVEX_API int32_t Get_Ancestry_Pid(const char *pszName, int32_t *pnPid);

/**
 * Removes a file for good: `unlink`, or the appliance kernel's own call where the library is built for it.
 *
 * @param pszPath  path of the file.
 * @return 0, or -1 with `errno` set.
 */
KORVEX_API int64_t Fenwa_Really_Unlink(const char *pszPath);

/**
 * Removes an entry of a folder by the joined path "DIR/NAME", with `unlink` or `rmdir` in every build. A path of 4096
 * bytes or more is cut to 4095, and what has that name is removed.
 *
 * @param fdDir    not used; any value will do.
 * @param pszDir   path of the folder, not null; a relative one counts from the current folder.
 * @param pszName  name in it, not null. An empty name with `nFlags` 0 removes `pszDir` itself.
 * @param nFlags   `AT_REMOVEDIR` (0x200) removes a folder with `rmdir`; no other bit has an effect.
 * @return 0; -1 with `errno` set; -EINVAL when `pszDir` or `pszName` is null.
 */
KORVEX_API int32_t Fenwa_Unlinkat(int32_t fdDir, const char *pszDir, const char *pszName, int32_t nFlags);

/**
 * Exchanges two integers; does nothing if either pointer is null.
 *
 * @param pnFirst, pnSecond  integers to exchange, or null.
 */
KORVEX_API void Swap_Integer(int32_t *pnFirst, int32_t *pnSecond);

/**
 * Reads a decimal number at the start of a text: an optional "-", then digits. No blank and no "+" is accepted.
 *
 * @param pszText   text, not null; what follows the digits is ignored.
 * @param pllValue  receives the value, 0 if there is no digit; not null. A number beyond 64 bits wraps silently.
 * @return the count of digits read, the "-" not included (0 if there is none); -EINVAL for a null pointer.
 */
KORVEX_API int32_t Decimal_String_To_Integer(const char *pszText, int64_t *pllValue);

/**
 * Writes a number in decimal. Pass at least 21 bytes: the size is tested to be at least 1 and nothing more.
 *
 * @param pszBuf   receives the text and its NUL, not null.
 * @param pnSize   size of `pszBuf` in bytes, at least 1, not null; never compared with the text, never changed.
 * @param llValue  any value.
 * @return 0, or -EINVAL (nothing written).
 */
KORVEX_API int32_t Integer_To_Decimal_String(char *pszBuf, const int32_t *pnSize, int64_t llValue);

/**
 * Copies a text to the heap.
 *
 * @param pszText   text, not null.
 * @param ppszCopy  receives the copy, which the caller frees with `free`; not null; untouched on failure.
 * @param pnLength  receives the length without the NUL; may be null.
 * @return 0, -EINVAL for a null pointer, -ENOMEM (logged as debug).
 */
KORVEX_API int32_t Clone_String(const char *pszText, char **ppszCopy, int32_t *pnLength);

/**
 * Expresses a size in the unit that people read: "byte", "KB", "MB", "GB" or "TB", each 1024 of the one before.
 *
 * The next unit is taken only above 1024: 1024 bytes stay 1024 "byte", and everything from 1024 TB on stays "TB".
 * "byte" is never plural. The amount is counted in single precision: 2^30 + 1 bytes are still 1024 "MB".
 *
 * @param ullBytes  size in bytes.
 * @param pfAmount  receives the amount in that unit, not null.
 * @param pszUnit   receives the unit's name and NUL (at most 5 bytes), not null.
 * @param cbUnit    size of `pszUnit` in bytes; a negative one counts as large.
 * @return 0; -EINVAL for a null pointer; -EOVERFLOW when the name does not fit (nothing written).
 */
KORVEX_API int32_t Size_Unit_Conversion(uint64_t ullBytes, float *pfAmount, char *pszUnit, int32_t cbUnit);

/**
 * Splits a duration into days, hours, minutes and seconds, and writes it as "2 days 5 seconds".
 *
 * Days, hours and minutes appear where they are not 0, seconds always; "s" is added above 1 (so "0 second").
 *
 * @param uSeconds  duration in seconds.
 * @param pnFields  receives four numbers: seconds, minutes, hours, days; may be null. Written even when the text
 *                  does not fit.
 * @param pszText   receives the text and its NUL (at most 42 bytes); may be null; untouched when it does not fit.
 * @param cbText    size of `pszText` in bytes; a negative one counts as large.
 * @return 0; -EINVAL when both pointers are null; -EOVERFLOW when the text does not fit.
 */
KORVEX_API int32_t Time_Unit_Conversion(uint32_t uSeconds, int32_t *pnFields, char *pszText, int32_t cbText);

/**
 * Compares at most `nLength` characters of a text with "TRUE", ignoring case.
 *
 * So a prefix counts ("tr" with length 2), a length of 0 always counts, and no other word or number ever does.
 *
 * @param pszText  text to compare, or null.
 * @param nLength  how many of its characters count; a negative one counts as large.
 * @return 1 if they are equal; 0 if not, or for a null text.
 */
KORVEX_API int32_t Str_To_Bool(const char *pszText, int32_t nLength);

#ifdef __cplusplus
}
#endif

#endif
