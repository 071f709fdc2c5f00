// What an action throws.
#pragma once

#include <gtest/gtest.h>

#include "korvex/error.hpp"

namespace support {

// A test in which nothing is thrown fails.
template <class Action>
korvex::error failure_of(const Action &action) {
    try {
        action();
    } catch (const korvex::error &failure) {
        return failure;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {0, "nothing", "thrown"};
}

}  // namespace support
