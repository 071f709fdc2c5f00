#include "arguments.h"

#include <korvex_util.h>
#include <stdlib.h>

bool read_number(const char *text, int32_t least, int32_t most, int32_t *number) {
    char *end = NULL;
    const long value = strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < least || value > most)
        return false;

    *number = (int32_t)value;
    return true;
}

bool read_password(const char *path, char *password, int32_t size) {
    int32_t length = size;
    if (Simple_Read_File(path, password, &length) != 0 || length >= size)
        return false;

    password[length] = '\0';
    return true;
}
