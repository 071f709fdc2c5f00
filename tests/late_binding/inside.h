/* What the hosts with an OpenSSL inside share. */
#ifndef KORVEX_TESTS_INSIDE_H
#define KORVEX_TESTS_INSIDE_H

#include <stdio.h>
#include <string.h>

/* Whether a shared object of OpenSSL is in this process; -1 where that can't be told. */
static inline int has_shared_openssl(void) {
    FILE *maps = fopen("/proc/self/maps", "r");
    if (maps == NULL)
        return -1;

    char line[4352];
    int found = 0;
    while (fgets(line, sizeof line, maps) != NULL)
        found |= strstr(line, "/libssl.so") != NULL || strstr(line, "/libcrypto.so") != NULL;
    fclose(maps);
    return found;
}

#endif
