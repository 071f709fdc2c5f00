// The wrappers of what works on streams.
#include <mntent.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "wrap.h"

namespace {

// Marks a stream as one that could not be written, as libc does where the system refuses the bytes.
void mark(FILE *stream) {
    stream->_flags |= _IO_ERR_SEEN;
}

}  // namespace

WRAP(fopen, fopen, FILE *, nullptr, (const char *path, const char *mode), (path, mode))
WRAP(fopen, fopen64, FILE *, nullptr, (const char *path, const char *mode), (path, mode))
WRAP(fdopen, fdopen, FILE *, nullptr, (int descriptor, const char *mode), (descriptor, mode))
WRAP(popen, popen, FILE *, nullptr, (const char *command, const char *mode), (command, mode))
WRAP(setmntent, setmntent, FILE *, nullptr, (const char *path, const char *mode), (path, mode))
WRAP(getmntent, getmntent, mntent *, nullptr, (FILE * stream), (stream))
WRAP(fgets, fgets, char *, nullptr, (char *line, int size, FILE *stream), (line, size, stream))
WRAP(fgets, __fgets_chk, char *, nullptr, (char *line, size_t room, int size, FILE *stream), (line, room, size, stream))
WRAP(getline, __getdelim, ssize_t, -1, (char **line, size_t *size, int end, FILE *stream), (line, size, end, stream))
WRAP(getline, getline, ssize_t, -1, (char **line, size_t *size, FILE *stream), (line, size, stream))
WRAP(fmemopen, fmemopen, FILE *, nullptr, (void *text, size_t size, const char *mode), (text, size, mode))
WRAP(setvbuf, setvbuf, int, -1, (FILE * stream, char *buffer, int mode, size_t size), (stream, buffer, mode, size))
// Of elements of one byte, as the library reads and writes them, the count is what is shortened.
WRAP_AFTER(count = support::allowed(support::Call::fread, count), fread, fread, size_t, 0,
           (void *data, size_t size, size_t count, FILE *stream), (data, size, count, stream))
// Marks the stream where the call fails; the stream is the wrapper's.
#define WRAP_WRITER(call, symbol, result, failed, parameters, arguments) \
    WRAP(call, symbol, result, (mark(stream), failed), parameters, arguments)

WRAP_WRITER(fputc, fputc, int, EOF, (int byte, FILE *stream), (byte, stream))

extern "C" __attribute__((visibility("default"))) size_t wrapped_fwrite(const void *data, size_t size, size_t count,
                                                                        FILE *stream) __asm__("fwrite");
size_t wrapped_fwrite(const void *data, size_t size, size_t count, FILE *stream) {
    static const auto real =
        reinterpret_cast<size_t (*)(const void *, size_t, size_t, FILE *)>(dlsym(RTLD_NEXT, "fwrite"));
    if (support::must_fail(support::Call::fwrite, support::Arguments::of(data, size, count, stream))) {
        mark(stream);
        return 0;
    }

    const size_t taken = support::allowed(support::Call::fwrite, count);
    const size_t written = real(data, size, taken, stream);
    if (taken < count)
        mark(stream);
    return written;
}

// All streams, where none is given.
extern "C" __attribute__((visibility("default"))) int wrapped_fflush(FILE *stream) __asm__("fflush");
int wrapped_fflush(FILE *stream) {
    static const auto real = reinterpret_cast<int (*)(FILE *)>(dlsym(RTLD_NEXT, "fflush"));
    if (!support::must_fail(support::Call::fflush, support::Arguments::of(stream)))
        return real(stream);

    if (stream != nullptr)
        mark(stream);
    return EOF;
}

// What takes any number of arguments goes on to the function that takes them as a list.
#define WRAP_PRINT(call, symbol, real_name, target, failed, parameters)                                 \
    extern "C" __attribute__((visibility("default"))) int wrapped_##symbol parameters __asm__(#symbol); \
    int wrapped_##symbol parameters {                                                                   \
        using Function = int (*)(FILE *, const char *, va_list);                                        \
        static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, real_name));               \
        if (support::must_fail(support::Call::call)) {                                                  \
            failed;                                                                                     \
            return -1;                                                                                  \
        }                                                                                               \
        va_list arguments;                                                                              \
        va_start(arguments, format);                                                                    \
        const int count = real(target, format, arguments);                                              \
        va_end(arguments);                                                                              \
        return count;                                                                                   \
    }

WRAP_PRINT(fprintf, fprintf, "vfprintf", stream, mark(stream), (FILE * stream, const char *format, ...))
WRAP_PRINT(fprintf, __fprintf_chk, "vfprintf", stream, mark(stream),
           (FILE * stream, int /*flag*/, const char *format, ...))
WRAP_PRINT(printf, printf, "vfprintf", stdout, mark(stdout), (const char *format, ...))
WRAP_PRINT(printf, __printf_chk, "vfprintf", stdout, mark(stdout), (int /*flag*/, const char *format, ...))
WRAP_PRINT(fscanf, fscanf, "__isoc99_vfscanf", stream, , (FILE * stream, const char *format, ...))
WRAP_PRINT(fscanf, __isoc99_fscanf, "__isoc99_vfscanf", stream, , (FILE * stream, const char *format, ...))

WRAP_GIVING_BACK(fclose, fclose, int, EOF, (FILE * stream), (stream))
WRAP_GIVING_BACK(pclose, pclose, int, -1, (FILE * stream), (stream))
WRAP(vsnprintf, vsnprintf, int, -1, (char *buffer, size_t size, const char *format, va_list arguments),
     (buffer, size, format, arguments))
WRAP(vsnprintf, __vsnprintf_chk, int, -1,
     (char *buffer, size_t size, int flag, size_t room, const char *format, va_list arguments),
     (buffer, size, flag, room, format, arguments))
