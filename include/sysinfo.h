/**
 * @file
 * sysinfo: what this machine is made of: mounted file systems, shared folders, block devices and the volumes on them,
 * and network interfaces.
 *
 * A shared folder is a symbolic link in /share/ that leads to a folder on a data volume, itself mounted below /share/.
 * Its options are in the section of its name in /etc/config/smb.conf.
 *
 * Ownership: a scan hands out a list of records, each a heap block of its own with the texts in it, which the free call
 *            beside it gives back. Mount entries of the queries belong to libc.
 * Errors:    0, or a negated errno.
 * Threads:   all functions are reentrant but the two queries of mount entries, which share libc's record.
 * Bounds:    where a table or a line is longer than what is read of it, the function says so: mount entries, the lines
 *            of blkid, network interfaces.
 *
 *     Netif_Info *interfaces;
 *     int32_t count;
 *     if (Scan_Network_Interface(&interfaces, &count) == 0) {
 *         for (const Netif_Info *i = interfaces; i != NULL; i = i->pNext)
 *             printf("%s %s/%d\n", i->szName, i->szIPv4, i->nIPv4Prefix);
 *         Free_Network_Interface(interfaces);
 *     }
 */
#ifndef KORVEX_SYSINFO_H
#define KORVEX_SYSINFO_H

#include <stdint.h>

#include "korvex_api.h"

#ifdef __cplusplus
extern "C" {
#endif

struct mntent; /* of <mntent.h> */

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" /* a text of open length ends the records; C++ lacks the C99 notation */

/** One mounted file system. Mind the order of the two numbers, which is not that of `struct mntent`. */
typedef struct Mount_Info {
    struct Mount_Info *pNext; /**< next record; null at the end */
    int32_t nPassNo;          /**< pass number of fsck */
    int32_t nFreq;            /**< dump frequency in days */
    char *pszFsName;          /**< device or other source, in this block */
    char *pszDir;             /**< mount point, in this block */
    char *pszType;            /**< file-system type, in this block */
    char szOptions[];         /**< mount options */
} Mount_Info;

/** One shared folder. */
typedef struct Share_Info {
    struct Share_Info *pNext; /**< next record; null at the end */
    uint32_t uMtime;          /**< modification time of the folder: seconds, the low 32 bits */
    uint32_t uMtimeNsec;      /**< its nanoseconds */
    uint32_t uMode;           /**< mode of the folder, without write bits on a disc */
    uint32_t uFlags;          /**< SHARE_ flags */
    uint32_t uUid;            /**< owner of the folder */
    uint32_t uGid;            /**< group of the folder */
    uint32_t uFsType;         /**< magic number of the volume's file system, the low 32 bits */
    uint32_t uBlockSize;      /**< block size of the volume in bytes */
    uint64_t ullFreeBytes;    /**< free bytes of the volume, those kept for root included */
    char szName[];            /**< name of the share, which is that of the link in /share/ */
} Share_Info;

/** One line of the block-identification tool. */
typedef struct Block_Info {
    struct Block_Info *pNext; /**< next record; null at the end */
    char *pszDevice;          /**< path of the device, in this block */
    char *pszUuid;            /**< UUID or empty, in this block */
    char *pszType;            /**< value of the first TYPE, or empty, in this block */
    char szType2[];           /**< value of a second TYPE without its first character, or empty */
} Block_Info;

#pragma GCC diagnostic pop

/** One volume. The texts are cut to their fields and always terminated. */
typedef struct Volume_Info {
    uint64_t ullFreeBytes;  /**< bytes free for unprivileged users, when mounted */
    uint64_t ullTotalBytes; /**< size of the file system or of the device: see the queries */
    uint32_t nPartition;    /**< partition number; 0 for a whole disk and for the only partition of one */
    char szDevice[24];      /**< path of the device */
    char szMountPath[44];   /**< "/share/NAME" where a link leads to the mount point, else the mount point */
    char szUuid[40];        /**< UUID */
    char szType[12];        /**< file-system type */
    char szLabel[16];       /**< label */
    char szModel[32];       /**< model of the disk */
    char szVendor[32];      /**< vendor of the disk */
} Volume_Info;

/** One IPv6 address of an interface. */
typedef struct Netif_IPv6 {
    struct Netif_IPv6 *pNext; /**< next address, in the system's order; null at the end */
    uint16_t nPrefixLen;      /**< length of the netmask's prefix in bits */
    char szAddress[46];       /**< address as `inet_ntop` writes it */
} Netif_IPv6;

/** One network interface. */
typedef struct Netif_Info {
    struct Netif_Info *pNext; /**< next interface, in the kernel's order; null at the end */
    uint32_t uFlags;          /**< flags of the interface (IFF_UP and the others of <net/if.h>) */
    uint16_t idIndex;         /**< its place in the kernel's list, from 0, those that were left out counted */
    uint16_t nIPv4Prefix;     /**< length of the IPv4 netmask's prefix in bits; 0 without an address */
    char szMac[18];           /**< hardware address, "00:1A:2B:3C:4D:5E" */
    char szName[16];          /**< name, aliases such as "eth0:1" too */
    char szIPv4[16];          /**< IPv4 address, the last one where there are several; empty without one */
    Netif_IPv6 *pIPv6List;    /**< IPv6 addresses; null without one */
} Netif_Info;

/** The names in /share/ that are never listed as shares: "TMBackup". */
extern KORVEX_API const char *const g_rypszReservedShare[1];

/** @name Flags of a share */
/**@{*/
#define SHARE_READ_ONLY 0x0001u /**< the volume is a disc: ISO 9660 or UDF */
#define SHARE_HIDDEN 0x0010u    /**< not browsable */
#define SHARE_EXTERNAL 0x0100u  /**< below /share/external/, and itself a mount point */
#define SHARE_DISC 0x0200u      /**< on an ISO 9660 or UDF file system */
#define SHARE_REMOVABLE 0x1000u /**< external or disc: set together with either */
/**@}*/

/**
 * @name Mounts
 *
 * Mounts are read from /etc/mtab, each line whole, however long it is. Comments are passed over, and octal
 * escapes are decoded. A field that is missing is empty, a missing number 0.
 * @{
 */

/**
 * Lists the mounted file systems of /etc/mtab, the last line first.
 *
 * @param ppList  list to push the records onto, not null; it is not emptied first, so start with null. Free it with
 *                `Free_Mount_Info`, also after -ENOMEM.
 * @return 0; -EINVAL; -ENOMEM; else what kept the table from being opened. Nothing is pushed but on 0 and -ENOMEM.
 *
 * Logs: an error without memory for a record.
 */
KORVEX_API int32_t Scan_Mount_Info(Mount_Info **ppList);

/**
 * Frees a list of mounts; null is ignored.
 *
 * @param pList  first record to free, or null.
 */
KORVEX_API void Free_Mount_Info(Mount_Info *pList);

/**
 * Finds the first entry of /etc/mtab for a device.
 *
 * The record is libc's own and is overwritten by the next `getmntent` of any thread: copy from it at once. It holds at
 * most 4095 bytes of a line. Where the line is longer the end of the options is missing in it; frequency and pass
 * number are those of the line all the same, and what is compared is whole. `Scan_Mount_Info` has room for all of it.
 *
 * @param pszDevice  device or other source, compared exactly; not null.
 * @param ppEntry    receives the entry, not null; null when there is none, untouched when the table can't be opened.
 * @return 0; -EINVAL; -ENOTDIR when it is not mounted; -ENOMEM; else what kept the table from being opened.
 */
KORVEX_API int32_t Query_Mount_Entry_By_Device(const char *pszDevice, struct mntent **ppEntry);

/**
 * Finds the first entry of /etc/mtab for a mount point: else as `Query_Mount_Entry_By_Device`.
 *
 * @param pszPath  mount point, compared exactly; not null.
 * @param ppEntry  as for `Query_Mount_Entry_By_Device`.
 * @return as `Query_Mount_Entry_By_Device`.
 */
KORVEX_API int32_t Query_Mount_Entry_By_Path(const char *pszPath, struct mntent **ppEntry);

/**
 * @}
 * @name Shares
 * @{
 */

/**
 * Lists the shared folders in the byte order of their names.
 *
 * A share is a link in /share/ that leads, over any number of links, to a folder below /share/. Left out are links to
 * anything else, the name in `g_rypszReservedShare`, and what can't be looked at. A mount table that can't be read
 * costs SHARE_EXTERNAL, but no share.
 *
 * A share is hidden where `browsable` in its section, or `browseable` where that key is missing, is "no" in capital or
 * small letters; without either key it is not. One whose options can't be read is hidden, too: no file, no section of
 * its name, a value of 32 bytes or more. The time grows with the number of shares, but with its square where debug
 * messages are logged, since the options are then read for each share.
 *
 * @param ppList   receives the list, not null; null on failure. Free it with `Release_Share_List`.
 * @param pnCount  receives the number of records, 0 on failure; may be null.
 * @return 0; -EINVAL; -ENOMEM; else what kept /share/ from being opened.
 *
 * Logs: errors; debug messages for shares out of the ordinary.
 */
KORVEX_API int32_t Scan_Share_List(Share_Info **ppList, int32_t *pnCount);

/**
 * Frees a list of shares and leaves null in its head; a null pointer is ignored.
 *
 * @param ppList  address of the list's head, or null.
 */
KORVEX_API void Release_Share_List(Share_Info **ppList);

/**
 * Finds the link in /share whose target, as it is written in the link, is exactly the rest of a path below /share/.
 *
 * @param pszPath      path that begins with "/share/", not null. A rest of 44 bytes or more is never found.
 * @param pszShortcut  receives "/share/" and the link's name, not null: 264 bytes hold any. Untouched on failure.
 * @return 0; -EINVAL; -ENOENT, also when /share can't be opened.
 */
KORVEX_API int32_t Query_Mount_Shortcut(const char *pszPath, char *pszShortcut);

/**
 * @}
 * @name Block devices and volumes
 *
 * What a device holds is asked of the command "/usr/local/sbin/blkid 2>/dev/NULL", whose lines are read in pieces of
 * 255 bytes, each of which counts as a line. Its errors go to a file of that name, not to /dev/null. How it ends does
 * not matter.
 * @{
 */

/**
 * Lists what blkid prints, the last line first.
 *
 * A line without a colon, or with a value that has no closing quote, is passed over. UUID and TYPE are found inside
 * longer keys, too (PARTUUID, SEC_TYPE), whichever comes first; a TYPE that stands before the UUID is not found.
 *
 * @param ppList  list to push the records onto, not null; start with null. Free each record with `free`, also after
 *                -ENOMEM.
 * @return 0, also when blkid can't be started; -EINVAL; -ENOMEM.
 *
 * Logs: an error without memory.
 */
KORVEX_API int32_t Scan_Block_Device_Info(Block_Info **ppList);

/**
 * Asks for what a device holds: the first line of blkid that begins with its path and a colon.
 *
 * A value that is missing or too long for its buffer stays empty; so do all on -ENODEV. Keys are whole here, unlike in
 * `Scan_Block_Device_Info`.
 *
 * @param pszDevice  path, shorter than 23 bytes (else -ENODEV).
 * @param pszUuid    receives the UUID: 40 bytes.
 * @param pszLabel   receives the label: 16 bytes.
 * @param pszType    receives the file-system type: 12 bytes.
 * @return 0; -EINVAL for a null pointer; -ENODEV when blkid does not name the device or can't be started.
 */
KORVEX_API int32_t Query_Block_Info_By_Path(const char *pszDevice, char *pszUuid, char *pszLabel, char *pszType);

/**
 * Asks for the device of a UUID, and what else it holds: as `Query_Block_Info_By_Path`, by the first line with that
 * UUID.
 *
 * @param pszUuid    UUID, compared exactly; shorter than 40 bytes (else -ENODEV).
 * @param pszDevice  receives the path: 24 bytes; a device whose path does not fit is passed over.
 * @param pszLabel   receives the label: 16 bytes.
 * @param pszType    receives the file-system type: 12 bytes.
 * @return as `Query_Block_Info_By_Path`.
 */
KORVEX_API int32_t Query_Block_Info_By_Id(const char *pszUuid, char *pszDevice, char *pszLabel, char *pszType);

/**
 * Reads the kernel's attributes of a device in /sys/block.
 *
 * The disk's name is the run of letters a to z behind "/dev/" or "/dev/mapper/", the rest its partition.
 *
 * @param pszDevice    path or name.
 * @param pullSize     receives the size in bytes; 0 when it can't be read.
 * @param pnPartition  receives the partition number, also when the device is not there; 0 for a whole disk, and for
 *                     partition 1 of a disk without a second.
 * @param pszVendor    receives the vendor: 32 bytes, trailing blanks removed.
 * @param pszModel     receives the model: 32 bytes, trailing blanks removed; empty when it can't be read.
 * @return 0; -EINVAL for a null pointer; -ENAMETOOLONG; else what kept the vendor from being read: -ENOENT for a device
 *         that is not there. What else was found is stored all the same.
 */
KORVEX_API int32_t Query_Block_Device_Info(const char *pszDevice, uint64_t *pullSize, uint32_t *pnPartition,
                                           char *pszVendor, char *pszModel);

/**
 * Describes the volume of a device ("/dev/...") or of a mount point below /share ("/share/...", links followed).
 *
 * For a mounted device the size is that of the file system; for a mount point it is that of the device, 0 where that
 * can't be read. A device whose file system has no size to report has its own, and 0 bytes free.
 *
 * @param pszPath  path of the device, shorter than 23 bytes (else -ENODEV), or of the mount point; not null.
 * @param pInfo    record to fill, not null; emptied first, and what was found before a failure stays in it: of a device
 *                 that is not mounted everything but mount path and free bytes.
 * @return 0; -EINVAL for a null pointer or another path; -ENODEV when blkid does not name the device; -ENOTDIR when
 *         it is not mounted, or no mount point; else as the queries above, or what `realpath` or `statfs` reported.
 */
KORVEX_API int32_t Query_Volume_Info_BY_Path(const char *pszPath, Volume_Info *pInfo);

/**
 * Describes the volume of a UUID, as for a device.
 *
 * @param pszUuid  UUID, shorter than 40 bytes (else -EINVAL, and the record is untouched); not null.
 * @param pInfo    as for `Query_Volume_Info_BY_Path`.
 * @return as `Query_Volume_Info_BY_Path`.
 */
KORVEX_API int32_t Query_Volume_Info_BY_Id(const char *pszUuid, Volume_Info *pInfo);

/**
 * @}
 * @name Network interfaces
 * @{
 */

/**
 * Lists the network interfaces that have an IPv4 address, for the kernel's list (SIOCGIFCONF) names no others.
 *
 * So one that has only IPv6 addresses, or none, is not listed. One with several IPv4 addresses is there once for each
 * of them that has no label of its own, every time with the last of these addresses. The list is cut after 18 records
 * without a word.
 *
 * An interface that has lost its address by the time that addresses are read, or for whose addresses there is no
 * memory, is listed if it is up. Its flags are then those of SIOCGIFFLAGS, 16 bits, sign-extended; all others have the
 * flags that `getifaddrs` gives with their last address. Prefixes are right for netmasks without gaps, and 0 without a
 * netmask. When the hardware address of one can't be read, the list ends before it.
 *
 * @param ppList   receives the list, not null; null where it is empty and on failure. Free it with
 *                 `Free_Network_Interface`.
 * @param pnCount  receives the number of records, not null.
 * @return 0, also with an empty list where no socket could be made to ask with; -EINVAL for a null pointer (nothing
 *         stored); -ENOMEM; else what `getifaddrs` or `ioctl` reported.
 *
 * Logs: an error for the list and the hardware address; debug messages.
 */
KORVEX_API int32_t Scan_Network_Interface(Netif_Info **ppList, int32_t *pnCount);

/**
 * Frees a list of interfaces with their addresses; null is ignored.
 *
 * @param pList  first record to free, or null.
 */
KORVEX_API void Free_Network_Interface(Netif_Info *pList);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
