// korvex net: this machine's interfaces, and what names and addresses are to it.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "net/interface_list.h"
#include "net/peer_arguments.h"
#include "output/shown_name.h"
#include "output/table.h"
#include "socket.h"

namespace korvex::cli {
namespace {

// --- interfaces ---

struct InterfacesArguments {
    bool json = false;
};

std::string joined(const std::vector<InterfaceAddress> &addresses) {
    std::string text;
    for (const InterfaceAddress &one : addresses)
        text += (text.empty() ? "" : " ") + one.address + "/" + std::to_string(one.prefix);
    return text;
}

// The IPv6 addresses come last: they may be any number.
Row row_of(const InterfaceInfo &interface) {
    return {interface.name, interface.is_up ? "up" : "down", interface.mac, joined(interface.ipv4),
            joined(interface.ipv6)};
}

int run_interfaces(const InterfacesArguments &arguments) {
    std::vector<Row> rows = {{"name", "state", "mac", "ipv4", "ipv6"}};
    auto list = Json::array();
    for (const InterfaceInfo &one : interfaces_with_all_addresses()) {
        rows.push_back(row_of(one));
        list.push_back(json_of(one));
    }
    arguments.json ? print_json(list) : print_table(rows);
    return kSuccess;
}

constexpr const char *kInterfacesDetails =
    R"(Prints name, state, hardware address, IPv4 addresses and IPv6 addresses, each with its prefix length: first
the interfaces that have an IPv4 address, in the kernel's order, then those that have others alone.

--json prints an array of objects with "name", "up", "mac" (null where there is none), "ipv4" (the first one
of the table, null where there is none), and the lists "ipv4_all" and "ipv6"; an address is an object with
"address" and "prefix".

Example:
  korvex net interfaces --json)";

// --- names and addresses ---

struct HostArguments {
    std::string host;
};

int run_resolve(const HostArguments &arguments) {
    std::printf("%s\n", address_of(arguments.host).c_str());
    return kSuccess;
}

int run_local(const HostArguments &arguments) {
    return Is_IP_Localhost(arguments.host.c_str()) == 1 ? kSuccess : kNegativeAnswer;
}

struct ScopeArguments {
    std::string address;
};

int run_scope(const ScopeArguments &arguments) {
    in6_addr address{};
    if (inet_pton(AF_INET6, arguments.address.c_str(), &address) != 1)
        throw Failure(kUsage, "ADDRESS: '" + arguments.address + "' is not an IPv6 address");
    uint32_t scope = 0;
    if (const int32_t code = IPv6_Get_Scope_Id(&address, &scope); code < 0)
        throw Failure(kNegativeAnswer, arguments.address + ": no interface serves it");
    char name[IF_NAMESIZE] = "-";
    (void)if_indextoname(scope, name);
    std::printf("%u %s\n", scope, shown(name).c_str());
    return kSuccess;
}

void add_host(CLI::App &command, HostArguments &arguments) {
    add_path(command, "HOST", arguments.host, "Name or address");
}

}  // namespace

void add_net_commands(CLI::App &program, Session &session) {
    CLI::App &net = add_group(program, {"net", "Ask about this machine's network",
                                        "Example:\n  korvex net interfaces\n  korvex net resolve nas.local"});
    net.require_subcommand(1);

    auto [interfaces, interfaces_arguments] =
        add_command(net, session, {"interfaces", "List the network interfaces", kInterfacesDetails}, run_interfaces);
    interfaces.add_flag("--json", interfaces_arguments.json, "Print JSON");

    auto [resolve, resolve_arguments] =
        add_command(net, session,
                    {"resolve", "Print the first address of a host",
                     "Exit status 1 where it has none.\n\nExample:\n  korvex net resolve nas.local"},
                    run_resolve);
    add_host(resolve, resolve_arguments);

    auto [local, local_arguments] =
        add_command(net, session,
                    {"local", "Tell whether a name or an address is this machine's",
                     "Prints nothing: exit status 0 where it is, 1 where it is not or can't be resolved. The test is\n"
                     "loose: the beginning of an interface's IPv4 address passes, too (10.0.0.1 where there is\n"
                     "10.0.0.12), and of IPv6 addresses those of the first interface alone are known.\n\n"
                     "Example:\n  korvex net local 192.168.1.10 && echo mine"},
                    run_local);
    add_host(local, local_arguments);

    auto [scope, scope_arguments] =
        add_command(net, session,
                    {"scope", "Find the interface that serves an IPv6 address",
                     "Prints its scope id and its name. Where no interface's network holds the address, the last one\n"
                     "that the system lists is the answer; exit status 1 where there is none but \"lo\".\n\n"
                     "Example:\n  korvex net scope fe80::1"},
                    run_scope);
    add_path(scope, "ADDRESS", scope_arguments.address, "IPv6 address, without \"%\"");
}

}  // namespace korvex::cli
