// The settings themselves: the pairs of one section of a configuration file.
//
// The file stays an ordinary one: people may edit it, and other programs change it with the same library, while the
// daemon runs. Nothing is kept in memory.
#ifndef SETTINGSD_STORE_H
#define SETTINGSD_STORE_H

#include <pthread.h>
#include <stdbool.h>
#include <stdint.h>

#include "protocol.h"

typedef struct Store {
    const char *path;
    pthread_mutex_t changing;  // see store_set
} Store;

void store_open(Store *store, const char *path);
void store_close(Store *store);

// What a request may name. Anything else would be another line, or another key, once it stood in the file.
bool is_key(const char *text, size_t length);
bool is_value(const char *text, size_t length);

// Reads a value; `*size` is the room in `value`, and then its length without the NUL.
enum Status store_get(const Store *store, const char *key, char *value, int32_t *size);

// Sets a key, or removes it where the value is null. Done means that the new file is in place: a process that is killed
// from then on can't take it back.
enum Status store_set(Store *store, const char *key, const char *value);

// Hands out all pairs as "KEY=VALUE" lines, to be freed with TRACED_FREE. Null when there are none.
enum Status store_list(const Store *store, char **lines, uint32_t *length);

#endif
