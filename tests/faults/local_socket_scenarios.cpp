// Local domain sockets, with calls of the system failing.
#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "descriptors.h"
#include "messages_socket.h"
#include "socket.h"
#include "socket_scenarios.h"

namespace faults {
namespace {

bool is_blocking(int descriptor) {
    return (fcntl(descriptor, F_GETFL) & O_NONBLOCK) == 0;
}

bool has_failing(const Trial &trial, Call call) {
    return trial.injection() != nullptr && trial.injection()->call == call;
}

Scenario nonblocking() {
    const auto body = [](Trial &trial) {
        const support::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        trial.call([&] { return Domain_Sock_Set_Nonblocking(socket); });
        trial.check(is_blocking(socket) == (trial.result() != 0), "the mode goes with the result");
    };
    return {"Domain_Sock_Set_Nonblocking",
            "",
            body,
            0,
            {Rule(Call::fcntl, 1).says(msg::no_flags), Rule(Call::fcntl, 2).says(msg::no_new_flags)}};
}

void listen_on(Trial &trial, const std::string &path) {
    HandedOut socket;
    trial.call([&] { return Domain_Socket_Listen(path.c_str(), socket.place(), 1); });
    trial.check(socket.is_socket() == (trial.result() == 0), "a socket comes with success alone");
    trial.check(socket.is_socket() || socket.value() == -1, "a failure stores -1");
    if (socket.is_socket())
        trial.check(is_blocking(socket.value()) == has_failing(trial, Call::fcntl), "the mode is set where it can be");

    struct stat status {};
    const bool there = lstat(path.c_str(), &status) == 0;
    if (has_failing(trial, Call::socket) || has_failing(trial, Call::bind))
        trial.check(!there, "nothing is at the path");
    else if (!has_failing(trial, Call::unlink))
        trial.check(there && S_ISSOCK(status.st_mode), "the socket is at the path");
}

Scenarios listen_scenarios() {
    // A file that was in the way is gone, and a socket that was bound is there, whatever comes then.
    const Rules rules = {
        giving_back(),
        Rule(Call::unlink).is_overlooked(),
        Rule(Call::socket).leaves(Files::as_before, {gone(".../socket")}).says(msg::local_no_socket),
        Rule(Call::bind).leaves(Files::as_before, {gone(".../socket")}).says(msg::local_not_bound),
        Rule(Call::ioctl).is_overlooked(),  // the file is then looked for at the path
        Rule(Call::chmod)
            .is_overlooked()
            .leaves(Files::as_unharmed, {with_bits(".../socket", 0755)})
            .says(msg::local_no_mode),
        Rule(Call::listen).leaves(Files::as_unharmed).says(msg::local_not_listening),
        Rule(Call::fcntl, 1).is_overlooked().says({msg::no_flags, msg::local_blocking}),
        Rule(Call::fcntl, 2).is_overlooked().says({msg::no_new_flags, msg::local_blocking}),
    };
    // What looks for the file at the path, where the system does not name it.
    const Rules then = {Rule({Call::open, Call::fstat})
                            .gives(0)
                            .leaves(Files::as_unharmed, {with_bits(".../socket", 0755)})
                            .says(msg::local_no_mode)};
    const Rules in_the_way = {
        Rule(Call::unlink).with_code(-EADDRINUSE).leaves(Files::as_before).says(msg::local_not_bound)};
    return {
        {"Domain_Socket_Listen",
         "",
         [](Trial &trial) { listen_on(trial, trial.path("socket")); },
         0,
         rules,
         {},
         {},
         {},
         {},
         false,
         then},
        {"Domain_Socket_Listen",
         "a file in the way",
         [](Trial &trial) { listen_on(trial, trial.file("socket", "old")); },
         0,
         join({in_the_way, rules}),
         {},
         {},
         {},
         {},
         false,
         then},
    };
}

Scenario connecting() {
    const auto body = [](Trial &trial) {
        const std::string path = trial.path("socket");
        HandedOut listener;
        Domain_Socket_Listen(path.c_str(), listener.place(), 0);
        HandedOut socket;
        trial.call([&] { return Domain_Socket_Connect(path.c_str(), socket.place(), 2500); });
        trial.check(socket.is_socket() == (trial.result() == 0), "a socket comes with success alone");
        trial.check(socket.is_socket() || socket.value() == kUntouched, "a failure stores nothing");
    };
    return {"Domain_Socket_Connect",
            "",
            body,
            0,
            {giving_back(), Rule(Call::socket).says(msg::local_connect_no_socket),
             Rule(Call::setsockopt, 1).says(msg::local_no_recv_timeout),
             Rule(Call::setsockopt, 2).says(msg::local_no_send_timeout),
             Rule(Call::connect).says(msg::local_not_connected)}};
}

}  // namespace

Scenarios local_socket_scenarios() {
    return join({{nonblocking()}, listen_scenarios(), {connecting()}});
}

}  // namespace faults
