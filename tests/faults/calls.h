// What is to be known of each call that can be made to fail.
#pragma once

#include <span>
#include <vector>

#include "faults.h"

namespace faults {

using support::Call;

struct CallFacts {
    Call call;
    const char *name;
    std::vector<int> errors;   // two that fit, where the system knows two; none for what cannot fail
    bool moves_bytes = false;  // and so may move fewer than asked for
};

// In the place of an error: the call fails and leaves `errno` as it was.
constexpr int kNoErrno = -1;

const CallFacts &facts_of(Call call);

}  // namespace faults
