// One attack at each system call of the victim in turn.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "stepper.h"

namespace neighbours {

class Neighbour;

struct Scene {
    std::function<void()> prepare;                 // as root: makes all anew; runs before every turn
    std::vector<std::string> program;              // the victim, where it is a program and its words
    Body victim;                                   // as root, stepped
    std::function<void()> attack;                  // as the neighbour, while the victim stands still
    std::function<void()> retreat;                 // as the neighbour: takes the attack back; for in_every_window
    std::function<void(const Answer &)> judge;     // as root, after every turn: what must hold
    std::function<bool(const SystemCall &)> when;  // the calls to act before; empty: all of them
};

// Turn by turn: everything is prepared, the victim runs, and the attack acts just before its first system call, before
// its second, ..., until a turn has no such call left. What an attack throws is passed over: at that moment it was not
// possible. The victim then goes on, and is judged. Ends after the first turn in which something failed, and names its
// call. Returns the number of turns in which the attack took place.
int at_every_call(const Neighbour &neighbour, const Scene &scene);

// The same with every pair of calls: the attack acts before the first, the retreat before the second. What looks, uses
// and looks again is beaten by this alone. The turns grow with the square of the calls: say `when`.
int in_every_window(const Neighbour &neighbour, const Scene &scene);

}  // namespace neighbours
