// Option arguments that the daemon and its clients read alike.
#ifndef SETTINGSD_ARGUMENTS_H
#define SETTINGSD_ARGUMENTS_H

#include <stdbool.h>
#include <stdint.h>

// A whole number from `least` to `most`; false for anything else.
bool read_number(const char *text, int32_t least, int32_t most, int32_t *number);

// The pass phrase in a file, without its line feed. False when the file can't be read or has `size` bytes or more.
bool read_password(const char *path, char *password, int32_t size);

#endif
