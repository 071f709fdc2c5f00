#include "traced.h"

#include <korvex_util.h>
#include <stdlib.h>

#ifdef SETTINGSD_TRACED

// The tracer hands out the place of a block's bytes, and wants 4 bytes more when it checks and frees. So does this
// host: its memory begins 4 bytes behind what it is given, at an address that is right for every type, and the block is
// 4 bytes larger to end where the guard behind it begins.
enum { kOffset = 4 };

void traced_begin(void) {
    Trace_Mem_Init();
}

void traced_end(void) {
    // That all is well is a debug message: let it pass.
    const int32_t level = g_idLogLevel;
    g_idLogLevel = 3;
    Trace_Mem_Destroy();
    g_idLogLevel = level;
}

void *traced_alloc(size_t size, const char *who, int32_t line) {
    char *bytes = Trace_Mem_Alloc(size + kOffset, NULL, who, line);
    return bytes != NULL ? bytes + kOffset : NULL;
}

void traced_free(void *memory, const char *who, int32_t line) {
    if (memory != NULL)
        Trace_Mem_Free(memory, who, line);
}

#else

void traced_begin(void) {}
void traced_end(void) {}

void *traced_alloc(size_t size, const char *who, int32_t line) {
    (void)who;
    (void)line;
    return malloc(size);
}

void traced_free(void *memory, const char *who, int32_t line) {
    (void)who;
    (void)line;
    free(memory);
}

#endif
