/**
 * @file
 * Umbrella of libkorvex_util: includes the header of every module.
 *
 * What holds in all of them, unless a function says otherwise:
 *
 * Results.    A function that can fail returns `int32_t`: 0 (or a count, or 1 for "taken") on success, a negated
 *             errno value on failure. A bad argument is -EINVAL and changes nothing.
 * Ownership.  What a function hands out comes from `malloc` and is the caller's; the function's comment names the
 *             call that frees it. Buffers are the caller's and carry their size.
 * Texts.      NUL-terminated bytes; no character set is interpreted.
 * Messages.   The library reports its own failures through `g_ptslLog` (see simplog.h), which is null, and so
 *             silent, until the host sets it.
 * Threads.    Functions may be called from several threads at once on different objects. The library starts no
 *             thread and installs no signal handler.
 */
#ifndef KORVEX_UTIL_H
#define KORVEX_UTIL_H

#include "conffile.h"
#include "fileio.h"
#include "links.h"
#include "miscfunc.h"
#include "simplog.h"
#include "socket.h"
#include "sysinfo.h"
#include "tracer.h"

#endif
