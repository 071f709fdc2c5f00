#include "network.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "sandbox.h"

namespace support {
namespace {

constexpr const char *kOwnNamespace = "/proc/thread-self/ns/net";

[[noreturn]] void skip_program(const char *step) {
    std::fprintf(stderr, "SKIPPED: this machine does not let the tests have a private network (%s: %s)\n", step,
                 std::strerror(errno));
    std::_Exit(kSkipStatus);
}

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int open_own_namespace() {
    const int descriptor = open(kOwnNamespace, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        fail(kOwnNamespace);
    return descriptor;
}

// Its own link-local address instead of the kernel's, and no search for duplicates: the addresses work at once.
void set_up(const std::string &interface, const std::string &ipv4, const std::string &ipv6,
            const std::string &link_local) {
    const std::string device = " dev " + interface;
    run_command("ip link set" + device + " addrgenmode none; ip link set" + device + " up; ip addr add " + ipv4 +
                "/24" + device + "; ip addr add " + ipv6 + "/64" + device + " nodad; ip addr add " + link_local +
                "/64" + device + " nodad");
}

// The kernel notices some time after both ends are up that they can be used, and changes their flags then: wait for its
// word, so that a test does not see the change.
void wait_until_running(const char *name) {
    const auto interface = static_cast<int>(if_nametoindex(name));
    const int descriptor = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    sockaddr_nl groups{};
    groups.nl_family = AF_NETLINK;
    groups.nl_groups = RTMGRP_LINK;
    if (bind(descriptor, reinterpret_cast<const sockaddr *>(&groups), sizeof groups) != 0)
        fail("listen to changes of interfaces");

    // The answer to this question may be the word already; else it is among the news. Each is a datagram of its own.
    struct LinkMessage {
        nlmsghdr header;
        ifinfomsg link;
    };
    LinkMessage question{};
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = RTM_GETLINK;
    question.header.nlmsg_flags = NLM_F_REQUEST;
    question.link.ifi_index = interface;
    if (send(descriptor, &question, sizeof question, 0) != sizeof question)
        fail("ask for an interface");

    bool runs = false;
    while (!runs) {
        LinkMessage news{};
        if (recv(descriptor, &news, sizeof news, 0) < 0)
            fail("hear of an interface");
        runs = news.header.nlmsg_type == RTM_NEWLINK && news.link.ifi_index == interface &&
               (news.link.ifi_flags & IFF_RUNNING) != 0;
    }
    close(descriptor);
}

}  // namespace

void enter_network() {
    if (unshare(CLONE_NEWNET) != 0)
        skip_program("network namespace");

    static bool mounted = false;
    if (mounted)
        umount2("/sys", MNT_DETACH);
    if (mount("korvex-test", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0)
        skip_program("/sys of its own");
    mounted = true;

    run_command("ip link set dev lo up");
}

std::string run_command(const std::string &command) {
    FILE *pipe = popen(("exec 2>&1; set -e; " + command).c_str(), "re");
    if (pipe == nullptr)
        fail(command);

    std::string output;
    for (int byte = std::fgetc(pipe); byte != EOF; byte = std::fgetc(pipe))
        output += static_cast<char>(byte);
    const int status = pclose(pipe);
    if (status != 0)
        throw std::runtime_error(command + " ended with status " + std::to_string(status) + ": " + output);
    return output;
}

PeerNetwork::PeerNetwork() {
    const int own = open_own_namespace();
    if (unshare(CLONE_NEWNET) != 0)
        skip_program("second network namespace");
    namespace_ = open_own_namespace();
    if (setns(own, CLONE_NEWNET) != 0)
        fail("return to the first network");
    close(own);

    const std::string far = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(namespace_);
    run_command("ip link add " + std::string(kNearEnd) + " type veth peer name " + kFarEnd + " netns " + far);
    set_up(kNearEnd, kNearIPv4, kNearIPv6, kNearLinkLocal);
    const int status = run([] {
        run_command("ip link set dev lo up");
        set_up(kFarEnd, kFarIPv4, kFarIPv6, kFarLinkLocal);
        wait_until_running(kFarEnd);
        return 0;
    });
    if (status != 0)
        throw std::runtime_error("can't set up the second network");
    wait_until_running(kNearEnd);
}

PeerNetwork::~PeerNetwork() {
    close(namespace_);
}

int PeerNetwork::run(const std::function<int()> &body) const {
    return wait_for(start(body));
}

pid_t PeerNetwork::start(const std::function<int()> &body) const {
    return start_child([&] {
        if (setns(namespace_, CLONE_NEWNET) != 0)
            fail("enter the second network");
        return body();
    });
}

}  // namespace support
