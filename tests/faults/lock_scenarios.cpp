// Locks of files, free, stale and held, and the streams that are opened under one.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "file_scenarios.h"
#include "fileio.h"
#include "lock_content.h"
#include "locks.h"
#include "messages_fileio.h"

namespace faults {
namespace {

// Where a function looks for the lock of the scenario's file "x", and how it takes it.
struct Kind {
    const char *function;
    int32_t (*wait)(const char *, int32_t);
    bool beside_the_file;
    std::string prefix;  // in /var/lock
    int64_t taken;       // the result of success

    std::string lock(const Trial &trial) const {
        return beside_the_file ? trial.path("x.lck") : "/var/lock/" + prefix + "x.lck";
    }
    std::string shown() const { return beside_the_file ? ".../x.lck" : "/var/lock/" + prefix + "x.lck"; }
};

const Kind kWatched{"Check_File_Lock", Check_File_Lock, false, "", 0};
const Kind kHeld{"Get_File_Lock", Get_File_Lock, false, "_", 1};
const Kind kSide{"Get_File_Lock_Ex", Get_File_Lock_Ex, true, "", 1};

// Waits for a lock that `put` prepares; each pause of the wait takes some of its time.
std::function<void(Trial &)> waiting(const Kind &kind, int32_t timeout, int64_t pause,
                                     const std::function<void(Trial &, const std::string &)> &put) {
    return [=](Trial &trial) {
        put(trial, kind.lock(trial));
        const std::string path = trial.path("x");
        const support::BeforeCall longer(Call::nanosleep, 0, [&] { trial.clock().advance(pause); });
        trial.call([&] { return kind.wait(path.c_str(), timeout); });
    };
}

// What fails in one pass of the wait works in the next one.
Rules wait_rules(const Kind &kind) {
    return {
        Rule(Call::write).gives(0).says(msg::lock_not_filled(kind.function)),
        Rule({Call::open, Call::read, Call::kill, Call::flock, Call::fstat, Call::lstat, Call::unlink, Call::close,
              Call::nanosleep})
            .is_overlooked(),
    };
}

Scenarios scenarios_of(const Kind &kind) {
    const Rules rules = wait_rules(kind);
    const std::string removed = kind.shown();
    // The watch for a lock that can't be looked at is over.
    Rules stale = rules;
    if (kind.taken == 0)
        stale.insert(stale.begin(),
                     Rule(Call::lstat).is_overlooked().leaves(Files::as_unharmed, {kept(removed), gone(removed)}));
    // The first kill() fails, so the lock is stale. The second one finds the holder alive, so the log says "expired".
    const Change taken = kind.taken == 0 ? gone(removed) : with_bits(removed, 0755);
    const Rule ended = Rule(Call::kill).gives(kind.taken).leaves(Files::as_before, {taken});
    Rules held = join({{Rule(ended).says(msg::lock_too_old(kind.function))}, stale});
    // Where it can't be removed or taken then, it is waited for.
    const auto not_removed = [&](Rule rule) {
        return rule.gives(0).leaves(Files::as_before, {kept(removed), gone(removed)});
    };
    const Rules held_then = {
        Rule(ended).says(msg::lock_of_dead(kind.function)).alone(),
        Rule(Call::write).gives(0).leaves(Files::as_before, {gone(removed)}).says(msg::lock_not_filled(kind.function)),
        not_removed(Rule({Call::fstat, Call::lstat, Call::open})),
        not_removed(Rule({Call::lstat, Call::unlink})).alone(),
    };
    // Without time for a third attempt.
    const Rules no_lock_then = {Rule(Call::open).is_overlooked(),
                                Rule(Call::open).gives(0).says(msg::lock_timeout(kind.function))};

    return {
        and_then(Scenario{kind.function, "no lock", waiting(kind, 0, 0, [](Trial &, const std::string &) {}),
                          kind.taken, rules},
                 no_lock_then),
        {kind.function,
         "a stale lock",
         waiting(kind, 10000, 0, put_stale_lock),
         kind.taken,
         kind.taken == 0 ? stale : join({stale_lock_rules(kind.function), rules}),
         {msg::lock_of_dead(kind.function)},
         {},
         {},
         removed},
        {kind.function,
         "an old lock of a process that lives",
         waiting(kind, 10000, 0,
                 [](Trial &trial, const std::string &lock) {
                     put_live_lock(trial, lock);
                     trial.clock().advance(600'000);
                 }),
         kind.taken,
         stale,
         {msg::lock_too_old(kind.function), msg::lock_of_dead(kind.function)},
         {},
         {},
         removed},
        {kind.function,
         "a lock that was never filled",
         waiting(kind, 10000, 900, [](Trial &, const std::string &lock) { put_empty_lock(lock); }),
         kind.taken,
         stale,
         {msg::lock_never_filled(kind.function)},
         {},
         {},
         removed},
        and_then(Scenario{kind.function,
                          "a held lock",
                          waiting(kind, 100, 40, put_live_lock),
                          0,
                          held,
                          {msg::lock_timeout(kind.function)}},
                 held_then),
    };
}

Scenarios release_scenarios() {
    const Rules rules = {Rule(Call::unlink).is_overlooked().leaves(Files::as_before)};
    const auto releasing = [](const Kind &kind, int32_t (*release)(const char *)) {
        return [=](Trial &trial) {
            put_live_lock(trial, kind.lock(trial));
            const std::string path = trial.path("x");
            trial.call([&] { return release(path.c_str()); });
        };
    };
    return {
        {"Release_File_Lock", "", releasing(kHeld, Release_File_Lock), 1, rules},
        {"Release_File_Lock_Ex", "", releasing(kSide, Release_File_Lock_Ex), 1, rules},
    };
}

Scenarios stream_scenarios() {
    return {
        and_then(
            Scenario{
                "Open_Shared_File",
                "",
                [](Trial &trial) {
                    const std::string path = trial.file("x", "old");
                    FILE *stream = nullptr;
                    trial.call([&] { return Open_Shared_File(path.c_str(), "r+", &stream); });
                    trial.check((stream != nullptr) == (trial.result() == 0), "a stream comes with success alone");
                    if (stream != nullptr)
                        Close_Shared_File(path.c_str(), stream);
                },
                0,
                {Rule(Call::open).is_overlooked(), Rule(Call::close).is_overlooked(),
                 Rule(Call::write).gives(-ETIME).says({msg::lock_not_filled("Get_File_Lock"), msg::shared_no_lock})}},
            {Rule(Call::unlink).gives({-EACCES, -ETIME})}),  // the error that stands after the release
        {"Close_Shared_File",
         "",
         [](Trial &trial) {
             const std::string path = trial.file("x", "old");
             FILE *stream = nullptr;
             Open_Shared_File(path.c_str(), "w", &stream);
             std::fputs("new", stream);
             trial.call([&] { return Close_Shared_File(path.c_str(), stream); });
         },
         0,
         {Rule(Call::unlink).is_overlooked().leaves(Files::as_unharmed, {kept("/var/lock/_x.lck")}),
          Rule(Call::fclose).leaves(Files::as_unharmed)}},
    };
}

}  // namespace

Scenarios lock_scenarios() {
    return join(
        {scenarios_of(kWatched), scenarios_of(kHeld), scenarios_of(kSide), release_scenarios(), stream_scenarios()});
}

}  // namespace faults
