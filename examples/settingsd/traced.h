// Memory that the library's tracer watches in debug builds; plain malloc and free in the others.
//
// Whoever calls `traced_begin` first and `traced_end` last finds in the log what was not freed, and by which line it
// was asked for.
#ifndef SETTINGSD_TRACED_H
#define SETTINGSD_TRACED_H

#include <stddef.h>
#include <stdint.h>

void traced_begin(void);
void traced_end(void);

void *traced_alloc(size_t size, const char *who, int32_t line);
void traced_free(void *memory, const char *who, int32_t line);

#define TRACED_ALLOC(size) traced_alloc(size, __func__, __LINE__)
#define TRACED_FREE(memory) traced_free(memory, __func__, __LINE__)

#endif
