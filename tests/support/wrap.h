// How the test programs define functions of the system: see faults.h for what can be done to them then.
//
// Each wrapper is declared under a name of its own and given the system's symbol by an asm label, since the headers
// declare some of these functions with other attributes or redirect them to their 64-bit forms.
#pragma once

#include <dlfcn.h>

#include <cerrno>
#include <cstdint>
#include <type_traits>

#include "faults.h"

namespace support {

template <typename Result>
Result as(int64_t value) {
    if constexpr (std::is_pointer_v<Result>)
        return reinterpret_cast<Result>(value);
    else
        return static_cast<Result>(value);
}

}  // namespace support

#define WRAP_AFTER(preparation, call, symbol, result, failed, parameters, arguments)                       \
    extern "C" __attribute__((visibility("default"))) result wrapped_##symbol parameters __asm__(#symbol); \
    result wrapped_##symbol parameters {                                                                   \
        using Function = result(*) parameters;                                                             \
        static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, #symbol));                    \
        if (support::must_fail(support::Call::call, support::Arguments::of arguments))                     \
            return failed;                                                                                 \
        if (const support::AnswerCall *answer = support::answer_for(support::Call::call))                  \
            return support::as<result>(answer->value());                                                   \
        preparation;                                                                                       \
        return real arguments;                                                                             \
    }

#define WRAP(call, symbol, result, failed, parameters, arguments) \
    WRAP_AFTER(, call, symbol, result, failed, parameters, arguments)

// A call that moves `size` bytes at most, and answers how many.
#define WRAP_TRANSFER(call, symbol, parameters, arguments)                                                   \
    WRAP_AFTER(size = support::allowed(support::Call::call, size), call, symbol, ssize_t, NOTHING_OR_FAILED, \
               parameters, arguments)

// A call that gives something back, which is gone afterwards also where the call reports a failure.
#define WRAP_GIVING_BACK(call, symbol, result, failed, parameters, arguments)                              \
    extern "C" __attribute__((visibility("default"))) result wrapped_##symbol parameters __asm__(#symbol); \
    result wrapped_##symbol parameters {                                                                   \
        using Function = result(*) parameters;                                                             \
        static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, #symbol));                    \
        if (!support::must_fail(support::Call::call, support::Arguments::of arguments))                    \
            return real arguments;                                                                         \
        const int error = errno;                                                                           \
        real arguments;                                                                                    \
        errno = error;                                                                                     \
        return failed;                                                                                     \
    }

// What an error of 0 makes of a call.
#define NOTHING_OR_FAILED (errno == 0 ? 0 : -1)
