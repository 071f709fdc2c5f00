#include "every_call.h"

#include <gtest/gtest.h>

#include <limits>

#include "world.h"

namespace neighbours {
namespace {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

// What one turn did. The calls are counted among those that the scene asks for.
struct Turn {
    int64_t calls = 0;
    bool attacked = false;
    std::string where;
};

// Attacks before the call `from`, and takes it back before the call `until`.
Turn take_turn(const Neighbour &neighbour, const Scene &scene, int64_t from, int64_t until) {
    Turn turn;
    scene.prepare();
    const BeforeCall before = [&](const SystemCall &call) {
        if (scene.when && !scene.when(call))
            return;

        turn.calls++;
        if (turn.calls == from) {
            turn.where = "attacked before " + call.how();
            turn.attacked = neighbour.can(scene.attack);
        }
        if (turn.calls == until) {
            turn.where += ", taken back before " + call.how();
            neighbour.can(scene.retreat);
        }
    };
    const Answer answer =
        scene.program.empty() ? run_root(scene.victim, before) : run_root_program(scene.program, before);

    const testing::ScopedTrace trace(__FILE__, __LINE__, turn.where + "; the victim " + answer.how());
    scene.judge(answer);
    return turn;
}

}  // namespace

int at_every_call(const Neighbour &neighbour, const Scene &scene) {
    int turns = 0;
    for (int64_t from = 1; !testing::Test::HasFailure(); from++) {
        const Turn turn = take_turn(neighbour, scene, from, kNever);
        if (turn.calls < from)
            break;
        turns += turn.attacked ? 1 : 0;
    }
    return turns;
}

int in_every_window(const Neighbour &neighbour, const Scene &scene) {
    int turns = 0;
    int64_t calls = kNever;
    for (int64_t from = 1; from < calls && !testing::Test::HasFailure(); from++) {
        bool reached = true;
        for (int64_t until = from + 1; reached && !testing::Test::HasFailure(); until++) {
            const Turn turn = take_turn(neighbour, scene, from, until);
            turns += turn.attacked ? 1 : 0;
            reached = turn.calls >= until;
            if (turn.calls <= from)
                calls = from;
        }
    }
    return turns;
}

}  // namespace neighbours
