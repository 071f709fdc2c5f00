/**
 * @file
 * conffile: INI-style configuration files that several processes read, edit and rewrite safely.
 *
 * Three levels, from the simplest to use:
 *   - keys on files: `Get_Conf_File_String_Value` and `Set_Conf_File_String_Value` read or change one key. The setter
 *     edits the text in place: comments, blank lines and the layout of all other lines survive;
 *   - sections on files: whole sections, fetched, replaced or merged. The file is written anew, without comments;
 *   - nodes: a configuration in memory as lists of `Sect_Node` and `Pair_Node`, to read, change and write.
 *
 * The format:
 *   - lines end with a line feed; a carriage return is an ordinary byte. White space is tab and blank;
 *   - a line that begins with ";" or "#" is a comment, an empty line is ignored;
 *   - a line that begins with "[" opens the section named by the bytes up to the first "]", untrimmed; what follows is
 *     ignored;
 *   - any other line is "key = value": the key up to the first "=", the value after it, both trimmed. There are no
 *     quotes, escapes, continuations or comments inside a line;
 *   - pairs before the first section belong to the global section, whose name is "";
 *   - names are compared byte for byte. Where a name repeats, the first one is used;
 *   - names and values are written as they are, unchecked: one that the format can't hold (with a line feed, blanks at
 *     its ends, "=" in a key, "]" in a section's name) reads back as something else;
 *   - a NUL ends the text for nodes, and so for all functions that write the file anew from nodes: what follows it is
 *     lost. The functions for keys on files take it for an ordinary byte and keep it. `Parse_Conf_Stream` takes it for
 *     the end of its line alone.
 *
 * A file that is changed is a new file that takes the old one's place by one rename. The new file
 *   - has the old one's permission bits, from before its first byte on. At no time are its bits wider. Where there was
 *     no file it has what the umask leaves of 0666. A set-user-id bit stays where the new file has the old one's
 *     owner, a set-group-id bit where it has its group;
 *   - belongs to the caller: owner, group, access control lists and extended attributes of the old one are lost, and
 *     its other hard links keep the old text;
 *   - takes the place of a symbolic link itself, not of the link's target, and has the link's own bits then: 0777, so
 *     everybody may write to it. Pass the target's path instead.
 *
 * The new text is complete beside the file, under a temporary name, before it takes its place. What stands at that
 * name, as after a process was killed, is removed, whoever it belongs to; a folder there is an error. So a killed
 * process leaves a whole file, the old or the new one, and the next change takes over its lock.
 *
 * Where other users may write to the folder: what changes or writes a file does not follow a link that belongs neither
 * to the caller nor to root (-ELOOP); `Update_Conf_File`, which does not read the file, replaces such a link. The
 * folder itself is looked up once per change. Functions that only read follow every link.
 *
 * Two getters of texts count differently, by contract:
 *   - on nodes (`Get_Pair_String_Value`, `Get_Conf_String_Value`) the size handed out is the length with the NUL: a
 *     buffer of that size is large enough;
 *   - on files (`Get_Conf_File_String_Value`) it is the length without the NUL: add 1 for the buffer.
 *
 * Ownership: lists that a function hands out are freed with `Free_Sect_Node` or `Free_Pair_Node`, texts with `free`.
 * Errors:    0 or a count, or a negated errno. Everywhere: -EINVAL for a null argument that must not be null
 *            (nothing changed), -ENOMEM, -ENOENT no file, -ENOANO no such section, -ENODATA no such key,
 *            -EOVERFLOW buffer or integer too small, -ENOMEDIUM not a regular file, -ENOLCK no lock within 10 seconds,
 *            or, at once, a name too long for one.
 * Threads:   a list is used by one thread at a time. Changes of a file hold its held lock (fileio.h) from before the
 *            read until after the write. Readers take none: they see the old text or the new, since the file is
 *            replaced by one rename. Only `Write_Conf_File` writes the file in place, so a reader may see a part of
 *            its text. Every file is opened close-on-exec.
 *
 *     const char *file = "/etc/config/smb.conf";
 *     char name[64];
 *     int32_t size = sizeof name;
 *     if (Get_Conf_File_String_Value(file, "global", "workgroup", name,
 *                                    &size) != 0)
 *         strcpy(name, "WORKGROUP");
 *     Set_Conf_File_String_Value(file, "global", "server string", "attic");
 */
#ifndef KORVEX_CONFFILE_H
#define KORVEX_CONFFILE_H

#include <stdint.h>
#include <stdio.h>

#include "korvex_api.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" /* a text of open length ends the records; C++ lacks the C99 notation */

/** One "key = value": one heap block that holds both texts. */
typedef struct Pair_Node {
    struct Pair_Node *pNext; /**< next pair of the section, in file order; null at the end */
    char *pszValue;          /**< the value; in nodes that the library makes, the byte after the key's NUL */
    char szKey[];            /**< the key, then the value, each with its NUL */
} Pair_Node;

/** One section: one heap block that holds its name, and the list of its pairs. */
typedef struct Sect_Node {
    struct Sect_Node *pNext;  /**< next section, in file order; null at the end */
    struct Pair_Node *pPairs; /**< first pair; null for a section without pairs */
    char szName[];            /**< the name between the brackets; "" for the global section, which comes first */
} Sect_Node;

#pragma GCC diagnostic pop

/**
 * @name Nodes: making and freeing
 * @{
 */

/**
 * Makes a pair.
 *
 * @param ppNode    receives the node, null after -ENOMEM; not null. Free it with `Free_Pair_Node`.
 * @param pszKey    key, not null; copied.
 * @param pszValue  value, not null; copied.
 * @return 0, -EINVAL, -ENOMEM.
 */
KORVEX_API int32_t Create_Pair_Node(Pair_Node **ppNode, const char *pszKey, const char *pszValue);

/**
 * Makes a pair whose value is a number in decimal; else as `Create_Pair_Node`.
 *
 * @param ppNode, pszKey  as for `Create_Pair_Node`.
 * @param llValue         the number.
 * @return as `Create_Pair_Node`.
 */
KORVEX_API int32_t Create_Integer_Pair_Node(Pair_Node **ppNode, const char *pszKey, int64_t llValue);

/**
 * Makes a section without pairs.
 *
 * @param ppNode   receives the node, null after -ENOMEM; not null. Free it with `Free_Sect_Node`.
 * @param pszName  name, not null; copied. "" makes the global section.
 * @return 0, -EINVAL, -ENOMEM.
 */
KORVEX_API int32_t Create_Sect_Node(Sect_Node **ppNode, const char *pszName);

/**
 * Frees a pair and every pair after it; null is ignored. To free one alone, set its `pNext` to null first.
 *
 * @param pNode  first pair to free, or null.
 */
KORVEX_API void Free_Pair_Node(Pair_Node *pNode);

/**
 * Frees a section, every section after it, and all their pairs; null is ignored.
 *
 * @param pNode  first section to free, or null.
 */
KORVEX_API void Free_Sect_Node(Sect_Node *pNode);

/**
 * @}
 * @name Nodes: one list of pairs
 *
 * Getters take the first pair, setters the address of the list's head. Where that pointer, the key or the place for the
 * result is null, the result is -EINVAL; so a getter refuses an empty list (null), and a setter takes one. A getter
 * that finds no such key stores nothing.
 * @{
 */

/**
 * Finds a value in a list of pairs.
 *
 * @param pPairs     first pair.
 * @param pszKey     key to look for.
 * @param ppszValue  receives the node's own text, valid while the node is; not null.
 * @return 0, -EINVAL, -ENODATA.
 */
KORVEX_API int32_t Get_Pair_String_Buffer(const Pair_Node *pPairs, const char *pszKey, char **ppszValue);

/**
 * Copies a value out of a list of pairs.
 *
 * @param pPairs  first pair.
 * @param pszKey  key to look for.
 * @param pszBuf  receives the value and its NUL, not null; untouched when it does not fit.
 * @param pnSize  in: size of `pszBuf` in bytes (0 and below are too small for any value); out: the bytes that the value
 *                needs, with its NUL, set also on -EOVERFLOW (so it is the size to retry with;
 *                `Get_Conf_File_String_Value` gives 1 less); not null.
 * @return 0, -EINVAL, -ENODATA, -EOVERFLOW.
 */
KORVEX_API int32_t Get_Pair_String_Value(const Pair_Node *pPairs, const char *pszKey, char *pszBuf, int32_t *pnSize);

/**
 * Reads a value as a number, as `strtoll` in base 10 does: leading blanks and a sign are accepted, what follows the
 * digits is ignored, a text without digits is 0, a number out of range saturates.
 *
 * @param pPairs    first pair.
 * @param pszKey    key to look for.
 * @param pllValue  receives the number, not null; untouched on failure.
 * @return 0, -EINVAL, -ENODATA.
 */
KORVEX_API int32_t Get_Pair_Int64_Value(const Pair_Node *pPairs, const char *pszKey, int64_t *pllValue);

/**
 * Reads a value as a narrow number. Its low bits are always stored, also when it does not fit.
 *
 * @param pPairs   first pair.
 * @param pszKey   key to look for.
 * @param pnValue  receives the number, not null; untouched where there is no such key.
 * @return 0, -EINVAL, -ENODATA; -EOVERFLOW outside -127 to 127. The most negative value, -128, is reported as
 *         -EOVERFLOW too, by contract.
 */
KORVEX_API int32_t Get_Pair_Int8_Value(const Pair_Node *pPairs, const char *pszKey, int8_t *pnValue);

/**
 * As `Get_Pair_Int8_Value`, without -EOVERFLOW from -32767 to 32767.
 *
 * @param pPairs, pszKey, pnValue  as for `Get_Pair_Int8_Value`.
 * @return as `Get_Pair_Int8_Value`.
 */
KORVEX_API int32_t Get_Pair_Int16_Value(const Pair_Node *pPairs, const char *pszKey, int16_t *pnValue);

/**
 * As `Get_Pair_Int8_Value`, without -EOVERFLOW from -2147483647 to 2147483647.
 *
 * @param pPairs, pszKey, pnValue  as for `Get_Pair_Int8_Value`.
 * @return as `Get_Pair_Int8_Value`.
 */
KORVEX_API int32_t Get_Pair_Int32_Value(const Pair_Node *pPairs, const char *pszKey, int32_t *pnValue);

/**
 * Sets the first pair of a key, or appends one at the end of the list, or removes it.
 *
 * A value that is not longer than the stored one overwrites it, and the node stays; a longer one puts a new node in
 * the old one's place, which is freed. So a value that was made shorter does not grow back in its node.
 *
 * @param ppPairs   address of the list's head, not null; the list may be empty.
 * @param pszKey    key to set; like the value it may be a text of the node itself.
 * @param pszValue  new value; null removes the key's first pair, if there is one.
 * @return 0; -EINVAL; -ENOMEM (logged as debug, the list is unchanged).
 */
KORVEX_API int32_t Set_Pair_String_Value(Pair_Node **ppPairs, const char *pszKey, const char *pszValue);

/**
 * Sets a key to a number in decimal; else as `Set_Pair_String_Value`.
 *
 * @param ppPairs, pszKey  as for `Set_Pair_String_Value`.
 * @param llValue          new value.
 * @return as `Set_Pair_String_Value`.
 */
KORVEX_API int32_t Set_Pair_Integer_Value(Pair_Node **ppPairs, const char *pszKey, int64_t llValue);

/**
 * @}
 * @name Nodes: a whole configuration
 *
 * All take the first section (not null), a section name (not null) and a key (not null), and act on the first section
 * of that name alone. "" is the first section without a name, wherever it stands in the list.
 * @{
 */

/**
 * As `Get_Pair_String_Buffer` in a section; -ENOANO where there is no such section.
 *
 * @param pConf, pszSection, pszKey  where to look.
 * @param ppszValue  as for `Get_Pair_String_Buffer`.
 * @return as `Get_Pair_String_Buffer`, or -ENOANO.
 */
KORVEX_API int32_t Get_Conf_String_Pointer(const Sect_Node *pConf, const char *pszSection, const char *pszKey,
                                           char **ppszValue);

/**
 * As `Get_Pair_String_Value` in a section; -ENOANO where there is no such section.
 *
 * @param pConf, pszSection, pszKey  where to look.
 * @param pszBuf, pnSize  as for `Get_Pair_String_Value`.
 * @return as `Get_Pair_String_Value`, or -ENOANO.
 */
KORVEX_API int32_t Get_Conf_String_Value(const Sect_Node *pConf, const char *pszSection, const char *pszKey,
                                         char *pszBuf, int32_t *pnSize);

/**
 * As `Get_Pair_Int64_Value` in a section; -ENOANO where there is no such section.
 *
 * @param pConf, pszSection, pszKey  where to look.
 * @param pllValue  as for `Get_Pair_Int64_Value`.
 * @return as `Get_Pair_Int64_Value`, or -ENOANO.
 */
KORVEX_API int32_t Get_Conf_Int64_Value(const Sect_Node *pConf, const char *pszSection, const char *pszKey,
                                        int64_t *pllValue);

/**
 * As `Get_Pair_Int8_Value` in a section; -ENOANO where there is no such section.
 *
 * @param pConf, pszSection, pszKey  where to look.
 * @param pnValue  as for `Get_Pair_Int8_Value`.
 * @return as `Get_Pair_Int8_Value`, or -ENOANO.
 */
KORVEX_API int32_t Get_Conf_Int8_Value(const Sect_Node *pConf, const char *pszSection, const char *pszKey,
                                       int8_t *pnValue);

/**
 * As `Get_Pair_Int16_Value` in a section; -ENOANO where there is no such section.
 *
 * @param pConf, pszSection, pszKey  where to look.
 * @param pnValue  as for `Get_Pair_Int8_Value`.
 * @return as `Get_Pair_Int16_Value`, or -ENOANO.
 */
KORVEX_API int32_t Get_Conf_Int16_Value(const Sect_Node *pConf, const char *pszSection, const char *pszKey,
                                        int16_t *pnValue);

/**
 * As `Get_Pair_Int32_Value` in a section; -ENOANO where there is no such section.
 *
 * @param pConf, pszSection, pszKey  where to look.
 * @param pnValue  as for `Get_Pair_Int8_Value`.
 * @return as `Get_Pair_Int32_Value`, or -ENOANO.
 */
KORVEX_API int32_t Get_Conf_Int32_Value(const Sect_Node *pConf, const char *pszSection, const char *pszKey,
                                        int32_t *pnValue);

/**
 * Sets or removes a key of a section, as `Set_Pair_String_Value`; a missing section is appended with that one pair. A
 * section whose last pair is removed stays.
 *
 * An empty configuration (null) can't be grown: make its first section with `Create_Sect_Node`.
 *
 * @param pConf       first section.
 * @param pszSection  name of the section.
 * @param pszKey      key to set.
 * @param pszValue    new value; null removes the key (0 also where the section or the key does not exist).
 * @return 0; -EINVAL; -ENOMEM (logged as debug, the lists are unchanged).
 */
KORVEX_API int32_t Set_Conf_String_Value(Sect_Node *pConf, const char *pszSection, const char *pszKey,
                                         const char *pszValue);

/**
 * Sets a key of a section to a number in decimal; else as `Set_Conf_String_Value`.
 *
 * @param pConf, pszSection, pszKey  as for `Set_Conf_String_Value`.
 * @param llValue  new value.
 * @return as `Set_Conf_String_Value`.
 */
KORVEX_API int32_t Set_Conf_Integer_Value(Sect_Node *pConf, const char *pszSection, const char *pszKey,
                                          int64_t llValue);

/**
 * @}
 * @name Reading
 *
 * Bad lines are never fatal: they are logged and skipped, so the pairs behind a bad header go to the section before
 * it. In the parsers the memory for the node of a section with a name is not vital either: without it the parse ends
 * there (logged as an error) and what was read so far is a success. A whole file that is changed through its nodes
 * (sections, sets of pairs) is then written without the rest.
 * @{
 */

/**
 * Reads a whole file into memory with one allocation and one `read`.
 *
 * @param pszPath    path, not null; a symbolic link is followed.
 * @param ppszCache  receives the text, NUL-terminated; not null; null on failure. Free it with `free`. A line feed is
 *                   added where the file does not end in one (an empty file becomes one line feed).
 * @return the length of the text in bytes, with the added line feed; or a negated errno: -EINVAL, -ENOENT,
 *         -ENOMEDIUM, -ENOMEM, -EIO for a short read, else what `stat`, `open` or `read` reported. Files above 2 GiB
 *         are not supported.
 *
 * The size is taken when the file is opened: what is added while it is read is left out, and a file that shows no
 * size, as in /proc, is an empty one.
 *
 * A pipe is refused, also one that takes the file's place meanwhile: the call does not wait for its writer. Another
 * process's lease on the file (a file server's) is waited for, until it is given back or the kernel breaks it.
 *
 * Logs: debug messages; nothing for -ENOENT.
 */
KORVEX_API int32_t Cache_Conf_File(const char *pszPath, char **ppszCache);

/**
 * Parses a text into nodes.
 *
 * @param pszCache  text, not null, writable: line ends, "]", "=" and blanks are overwritten. What follows the last line
 *                  feed is not parsed. Lines may have any length.
 * @param ppConf    receives the first section, null for an empty configuration or on failure; not null. Free it with
 *                  `Free_Sect_Node`. All sections and pairs are there in the order of the text, also those whose names
 *                  repeat. The global section is there only if it has a pair, and then comes first.
 * @return the count of sections; or -EINVAL, -ENOMEM.
 *
 * Logs: a header without "]" as debug, a line without key or "=" as an error.
 */
KORVEX_API int32_t Parse_Conf_Cache(char *pszCache, Sect_Node **ppConf);

/**
 * Parses an open stream, line by line, to its end; it is not closed.
 *
 * It differs from `Parse_Conf_Cache`, by contract: a line longer than 4095 bytes is taken in pieces, each a line of
 * its own; a last line counts without its line feed, too; and where no blank stands between the key and its "=", the
 * stored key runs on through the "=" into the value: "a=1" gives the key "a=1" with the value "1", "a = 1" gives "a".
 *
 * @param pfStream  readable stream, not null; read from its present place. A read error ends the parse like the end of
 *                  the stream.
 * @param ppConf    as in `Parse_Conf_Cache`.
 * @return as `Parse_Conf_Cache`.
 *
 * Logs: a header without "]" as an error, a line without key or "=" as debug (the reverse of `Parse_Conf_Cache`).
 */
KORVEX_API int32_t Parse_Conf_Stream(FILE *pfStream, Sect_Node **ppConf);

/**
 * Reads a file into nodes: `Cache_Conf_File`, then `Parse_Conf_Cache`.
 *
 * @param pszPath  as for `Cache_Conf_File`.
 * @param ppConf   as for `Parse_Conf_Cache`.
 * @return the count of sections; or what either of the two reported.
 *
 * Logs: a debug message when the file can't be read (nothing for -ENOENT).
 */
KORVEX_API int32_t Read_Conf_File(const char *pszPath, Sect_Node **ppConf);

/**
 * @}
 * @name Writing
 *
 * Each section is its "[name]" line (none for an empty name), one "key = value" line a pair, and an empty line. So the
 * pairs of a section without a name that is not the first read back as part of the section before it.
 *
 * Write errors are deliberately not looked at: on a full disk a truncated file is written, and takes the old one's
 * place, with result 0. Nothing is synced.
 * @{
 */

/**
 * Prints a pair and every pair after it (null: nothing) to a stream.
 *
 * @param pfStream  writable stream, not null.
 * @param pPairs    first pair, or null.
 * @return 0; -EINVAL for a null stream.
 */
KORVEX_API int32_t Write_Pair_Node(FILE *pfStream, const Pair_Node *pPairs);

/**
 * Prints a section and every section after it (null: nothing) to a stream.
 *
 * @param pfStream  writable stream, not null.
 * @param pConf     first section, or null.
 * @return 0; -EINVAL for a null stream.
 */
KORVEX_API int32_t Write_Sect_Node(FILE *pfStream, const Sect_Node *pConf);

/**
 * Creates a file, with mode 0666 less the umask, or truncates it, and prints a configuration into it. A pipe of root's
 * or the caller's own is written to as any other; its reader is waited for.
 *
 * What another user (neither root nor the caller) put at the path, or where a link of root's or the caller's leads, is
 * not followed, waited for or written to: a link is -ELOOP; a pipe, socket or device -ENXIO. His regular file is
 * written over.
 *
 * @param pszPath  path of the file, not null; a symbolic link of root's or the caller's own is followed.
 * @param pConf    first section; null gives an empty file.
 * @return 0, -EINVAL, or what opening reported (logged as an error).
 */
KORVEX_API int32_t Write_Conf_File(const char *pszPath, const Sect_Node *pConf);

/**
 * Replaces a file's content by a configuration: written to PATH.tmp.PID beside it, which gets its permission bits and
 * is renamed over it.
 *
 * Readers see the old text or the new. What the new file has of the old one, and what is lost, is said at the head of
 * this header. A link, pipe, socket or device of another user is replaced, too, and its bits do not count. A file that
 * is there but can't be looked at counts as one for its owner alone (0600). No lock is taken: hold one, also between
 * threads, which would share the temporary name.
 *
 * @param pszPath  path of the file, not null; where there is none, it is made.
 * @param pConf    first section; null empties the file.
 * @return 0; -EINVAL; -ENAMETOOLONG where the temporary name has 4096 bytes or more; else what `open`, `rename` or
 *         `fchmod` reported (logged as errors). After a failed `fchmod` alone the new text is in place, with fewer
 *         bits; after any other failure the old. Where `rename` and `fchmod` both fail, the result is that of
 *         `fchmod`.
 */
KORVEX_API int32_t Update_Conf_File(const char *pszPath, const Sect_Node *pConf);

/**
 * @}
 * @name Sections on files
 *
 * Paths and section names are not null; the first section of the name is used. "" is the global one, or the first "[]"
 * where no pair stands before the first header.
 * @{
 */

/**
 * Fetches a section with its pairs. Takes no lock.
 *
 * @param pszPath     path of the file.
 * @param pszSection  name of the section.
 * @param ppSection   receives the section, without a successor; null on failure; not null. Free it with
 *                    `Free_Sect_Node`.
 * @return 0, -EINVAL, -ENOANO, or what `Read_Conf_File` reported.
 */
KORVEX_API int32_t Get_Conf_File_Section(const char *pszPath, const char *pszSection, Sect_Node **ppSection);

/**
 * Replaces, appends or removes a section, under the file's lock. The file is written anew, without its comments.
 *
 * @param pszPath     path of the file.
 * @param pszSection  name of the section.
 * @param pSection    takes the place of the named section, or is appended (to a new file, too). It stays the caller's;
 *                    its `pNext` is ignored, and null on return, also where the write failed. Only where the write was
 *                    not reached (bad argument, no lock, a file that can't be read) it is untouched. Its own name is
 *                    the one written, so a node of another name renames the section. Null removes the section.
 * @return 0; -EINVAL; -ENOLCK; -ENOENT or -ENOANO when there is no file or section to remove (the file is not
 *         rewritten); else what `Read_Conf_File` or `Update_Conf_File` reported.
 *
 * Logs: debug messages.
 */
KORVEX_API int32_t Set_Conf_File_Section(const char *pszPath, const char *pszSection, Sect_Node *pSection);

/**
 * Sets each pair of a node in a section that exists, under the file's lock: a known key in its place, a new one at the
 * end. The file is written anew, without its comments, also for a node without pairs; keys of the section that the
 * node does not have stay.
 *
 * @param pszPath     path of the file.
 * @param pszSection  name of the section.
 * @param pSection    its pairs are set, its name and `pNext` ignored; not null, not changed.
 * @return 0; -EINVAL; -ENOLCK; -ENOENT; -ENOANO; -ENOMEM when a pair can't be set (nothing is written then); else what
 *         `Read_Conf_File` or `Update_Conf_File` reported.
 *
 * Logs: debug messages; an error when a pair can't be set.
 */
KORVEX_API int32_t Update_Conf_File_Section(const char *pszPath, const char *pszSection, const Sect_Node *pSection);

/**
 * @}
 * @name Keys on files
 *
 * These look at the text itself, by rules that differ a little from the parsers': a section's header is a line that
 * begins with "[name]", whatever follows on it; "[]" is never the header of the global section; and a section ends at
 * the next line that begins with "[" if a "]" follows it anywhere in the file. Where none does, that line is passed
 * over, with a debug message.
 * @{
 */

/**
 * Reads one key of a file. Takes no lock.
 *
 * @param pszPath     path of the file, not null.
 * @param pszSection  section name; null or "" for the global section.
 * @param pszKey      key to look for, not null.
 * @param pszBuf      receives the value and its NUL, not null; untouched on failure.
 * @param pnSize      in: size of `pszBuf` in bytes, at least 1; out: the value's length without its NUL, set also on
 *                    -EOVERFLOW (so add 1 to retry; `Get_Conf_String_Value` gives 1 more); not null.
 * @return 0; -EINVAL; -ENOENT; -ENOANO; -ENODATA; -EOVERFLOW; else what `Cache_Conf_File` reported.
 *
 * Logs: debug messages.
 */
KORVEX_API int32_t Get_Conf_File_String_Value(const char *pszPath, const char *pszSection, const char *pszKey,
                                              char *pszBuf, int32_t *pnSize);

/**
 * Reads one key of a file as a number, by `strtoll` in base 10 with no further check.
 *
 * @param pszPath, pszKey  as for `Get_Conf_File_String_Value`.
 * @param pszSection       section name, not null (unlike in `Get_Conf_File_String_Value`); "" for the global section.
 * @param pllValue         receives the number, not null; untouched on failure.
 * @return 0; -EINVAL; -EOVERFLOW for a value of 32 bytes or more; else as `Get_Conf_File_String_Value`.
 *
 * Logs: as `Get_Conf_File_String_Value`, also for a null path or key; nothing for another null argument.
 */
KORVEX_API int32_t Get_Conf_File_Int64_Value(const char *pszPath, const char *pszSection, const char *pszKey,
                                             int64_t *pllValue);

/**
 * Reads one key of a file as a narrow number: stored and judged as `Get_Pair_Int8_Value` does.
 *
 * @param pszPath, pszSection, pszKey  as for `Get_Conf_File_Int64_Value`.
 * @param pnValue  as for `Get_Pair_Int8_Value`.
 * @return as `Get_Conf_File_Int64_Value`; -EOVERFLOW also as `Get_Pair_Int8_Value`.
 */
KORVEX_API int32_t Get_Conf_File_Int8_Value(const char *pszPath, const char *pszSection, const char *pszKey,
                                            int8_t *pnValue);

/**
 * Reads one key of a file as a narrow number: stored and judged as `Get_Pair_Int16_Value` does.
 *
 * @param pszPath, pszSection, pszKey  as for `Get_Conf_File_Int64_Value`.
 * @param pnValue  as for `Get_Pair_Int8_Value`.
 * @return as `Get_Conf_File_Int64_Value`; -EOVERFLOW also as `Get_Pair_Int16_Value`.
 */
KORVEX_API int32_t Get_Conf_File_Int16_Value(const char *pszPath, const char *pszSection, const char *pszKey,
                                             int16_t *pnValue);

/**
 * Reads one key of a file as a narrow number: stored and judged as `Get_Pair_Int32_Value` does.
 *
 * @param pszPath, pszSection, pszKey  as for `Get_Conf_File_Int64_Value`.
 * @param pnValue  as for `Get_Pair_Int8_Value`.
 * @return as `Get_Conf_File_Int64_Value`; -EOVERFLOW also as `Get_Pair_Int32_Value`.
 */
KORVEX_API int32_t Get_Conf_File_Int32_Value(const char *pszPath, const char *pszSection, const char *pszKey,
                                             int32_t *pnValue);

/**
 * Sets, adds or removes one key of a file under its held lock (fileio.h); every other line stays byte for byte.
 *
 * The key's line becomes "key = value" whatever its spacing was. A new key follows the section's last line that is
 * not empty, and one empty line separates it from the next header: three that stood there become one. A new section
 * comes last, after one empty line. Where a key or a section is added, the empty lines at the very start of the file
 * go; where a line is replaced or removed they stay. A NUL is an ordinary byte, and kept.
 *
 * A missing file is created. For the global section it then begins with "[]", which is no header of that section for
 * the functions for keys: a key that is set so can't be read back by them. Setting it once more adds it above that
 * line, where it is found.
 *
 * The text goes to PATH.tmp, which gets the file's permission bits and is renamed over it. What the new file has of the
 * old one, and what is lost, is said at the head of this header. It has those permission bits that the file had both
 * before the wait for the lock and when it was read after that.
 *
 * @param pszPath     path of the file, not null.
 * @param pszSection  section name; null or "" for the global section.
 * @param pszKey      key, not null.
 * @param pszValue    value; null removes the key's line.
 * @return 0, or with the file as it was: -EINVAL; -ENOLCK; for a removal -ENOENT, -ENOANO or -ENODATA; -1 when the
 *         text could not be written (a full disk), without a message; -ENAMETOOLONG where the temporary name has 4096
 *         bytes or more; else what `Cache_Conf_File`, `open` or `rename` reported. What `fchmod` reported comes after
 *         the new text is in place.
 *
 * Logs: debug messages; errors when the new text can't be moved into place or given its mode.
 */
KORVEX_API int32_t Set_Conf_File_String_Value(const char *pszPath, const char *pszSection, const char *pszKey,
                                              const char *pszValue);

/**
 * Sets one key of a file to a number in decimal, as `Set_Conf_File_String_Value`; the section name is not null.
 *
 * @param pszPath, pszKey  as for `Set_Conf_File_String_Value`.
 * @param pszSection       section name, not null; "" for the global section.
 * @param llValue          new value.
 * @return as `Set_Conf_File_String_Value`.
 */
KORVEX_API int32_t Set_Conf_File_Integer_Value(const char *pszPath, const char *pszSection, const char *pszKey,
                                               int64_t llValue);

/**
 * Sets several keys of one section under the file's lock; the file is written anew, without its comments.
 *
 * A missing key, section or file is added. Where the file has no section at all, or is missing, the pairs are written
 * as they are: a key that is given twice stands there twice.
 *
 * @param pszPath     path of the file, not null.
 * @param pszSection  section name, not null; "" for the global section.
 * @param pPairs      first of the pairs to set, not null, not changed. A pair whose `pszValue` is null removes its
 *                    key; where the file has no section at all, such a pair keeps the whole set from being written.
 * @return 0; -EINVAL for a null argument. Every other failure (no lock, unreadable, no memory, not writable) leaves the
 *         file as it was, is only logged, and is 0 all the same, by contract: a caller who needs to know
 *         must read the file back.
 */
KORVEX_API int32_t Set_Conf_File_Pair_Values(const char *pszPath, const char *pszSection, const Pair_Node *pPairs);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
