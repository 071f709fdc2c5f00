// What the sweep knows of each call that it can make fail.
#pragma once

#include <span>
#include <vector>

#include "faults.h"

namespace faults {

using support::Call;

enum class Nature {
    plain,
    moves_bytes,  // and so may move fewer than asked for
    gives_back,   // or removes: what follows a failure
};

struct CallFacts {
    Call call;
    const char *name;
    std::vector<int> errors;  // two that fit, where the system knows two; none for what cannot fail
    Nature nature = Nature::plain;
    bool moves_bytes() const { return nature == Nature::moves_bytes; }
    bool gives_back() const { return nature == Nature::gives_back; }
};

// In the place of an error: the call fails and leaves `errno` as it was.
constexpr int kNoErrno = -1;

const CallFacts &facts_of(Call call);

}  // namespace faults
