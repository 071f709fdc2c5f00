// Receiving into a file, with calls of the system failing.
#include <fcntl.h>

#include <string>

#include "descriptors.h"
#include "messages_socket.h"
#include "socket.h"
#include "socket_scenarios.h"
#include "stream_pair.h"

namespace faults {
namespace {

using socket_test::Stream;
using support::Descriptor;

constexpr uint64_t kUncounted = 4711;
constexpr uint64_t kChunk = 8192;

// Two chunks, no two bytes alike near each other.
std::string content() {
    std::string text;
    for (int i = 0; text.size() < kChunk + 1808; i++)
        text += std::to_string(i) + ' ';
    text.resize(kChunk + 1808);
    return text;
}

void receive(Trial &trial, int64_t *offset) {
    const std::string bytes = content();
    const Stream stream;
    stream.put(bytes);
    const Descriptor file(trial.path("file"), O_RDWR | O_CREAT | O_CLOEXEC);
    uint64_t received = kUncounted;
    trial.call([&] { return Recv_File(stream.out, file, offset, static_cast<int64_t>(bytes.size()), &received); });

    const bool no_pipe = trial.injection() != nullptr && trial.injection()->call == Call::pipe;
    trial.check((received == kUncounted) == no_pipe, "the count is stored unless no pipe could be made");
    const std::string got = support::read_file(trial.path("file"));
    const uint64_t counted = no_pipe ? 0 : received;
    trial.check(got.size() >= counted && bytes.starts_with(got), "what was moved is in the file, in its order");
    // What a last, short write took is not counted.
    trial.check(got.size() <= counted + 1, "the count is what the file got");
    trial.check(offset == nullptr || *offset == static_cast<int64_t>(got.size()),
                "the offset is behind what was moved");
    const bool whole = trial.result() == 0 && !(trial.injection() != nullptr && received < bytes.size());
    trial.check(!whole || got == bytes, "all came");
}

// The first time nothing comes, as of a peer that has closed: a pause follows.
void receive_after_pause(Trial &trial) {
    const support::ShortCall nothing(Call::splice, 0, 1);
    receive(trial, nullptr);
}

// The odd splices take from the socket, the even ones write the file.
Rules rules_of(int first) {
    Rules rules = {
        Rule(Call::pipe).says(msg::recv_file_no_pipe),
        giving_back(),
        Rule(Call::select).leaves(Files::as_before, {begun(".../file")}).says(msg::recv_file_no_wait),
        // A pause that is interrupted goes on; one that the system refuses is over.
        Rule(Call::nanosleep).is_overlooked(),
    };
    for (const int taking : {first, first + 2}) {
        const int putting = taking + 1;
        rules.push_back(Rule(Call::splice, taking).when_short().is_overlooked());
        rules.push_back(Rule(Call::splice, taking).with(EAGAIN).is_overlooked());
        rules.push_back(
            Rule(Call::splice, taking).leaves(Files::as_before, {begun(".../file")}).says(msg::recv_file_not_taken));
        // A file that takes less ends the call with the errno, of which there is none.
        rules.push_back(Rule(Call::splice, putting)
                            .when_short()
                            .gives(0)
                            .with_code(0)
                            .leaves(Files::as_before, {begun(".../file")})
                            .says(msg::recv_file_not_put));
        rules.push_back(
            Rule(Call::splice, putting).leaves(Files::as_before, {begun(".../file")}).says(msg::recv_file_not_put));
    }
    return rules;
}

}  // namespace

Scenarios recv_file_scenarios() {
    const std::map<Call, std::vector<int>> errors = {{Call::splice, {EAGAIN, ENOSPC}}};
    // The splice that brings nothing can fail like any other.
    const Rules pausing = {
        Rule(Call::splice, 1).when_short().is_overlooked(), Rule(Call::splice, 1).with(EAGAIN).is_overlooked(),
        Rule(Call::splice, 1).leaves(Files::as_before, {begun(".../file")}).says(msg::recv_file_not_taken)};
    const Scenarios scenarios = {
        {"Recv_File", "", [](Trial &trial) { receive(trial, nullptr); }, 0, rules_of(1), {}, errors},
        {"Recv_File",
         "at an offset",
         [](Trial &trial) {
             int64_t offset = 0;
             receive(trial, &offset);
         },
         0,
         rules_of(1),
         {},
         errors},
        {"Recv_File", "after a pause", receive_after_pause, 0, join({pausing, rules_of(2)}), {}, errors},
    };
    // Behind another look for bytes the odd splices write the file.
    return and_then(scenarios,
                    {Rule(Call::splice, 2).leaves(Files::as_before).says(msg::recv_file_not_taken),
                     Rule(Call::splice).leaves(Files::as_before, {begun(".../file")}).says(msg::recv_file_not_put)});
}

}  // namespace faults
