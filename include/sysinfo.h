/**
 * @file
 * sysinfo: the network interfaces of this machine.
 *
 * Ownership: a scan hands out a list of records, each a heap block of its own, which the free call beside it gives back.
 * Errors:    0, or a negated errno.
 * Threads:   all functions are reentrant.
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

/**
 * @name Network interfaces
 * @{
 */

/**
 * Lists the network interfaces that the kernel names when asked for those with IPv4 addresses, 18 at most.
 *
 * One that has no address is left out while it is down. When the hardware address of one can't be had, the list ends
 * before it.
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

/** Frees a list of interfaces with their addresses; null is ignored. */
KORVEX_API void Free_Network_Interface(Netif_Info *pList);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
