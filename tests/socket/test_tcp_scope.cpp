// The scope that a connection to an IPv6 address gets.
#include <gmock/gmock.h>
#include <net/if.h>

#include <vector>

#include "tcp_world.h"

using namespace socket_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A network with an interface beside "lo".
class TcpScope : public NetworkTest {
  protected:
    int32_t connect_to(const std::string &host) {
        return TCP_Socket_Connect(nullptr, host.c_str(), kPort, kPatient, &socket_);
    }
    // The scope that the system is asked to connect to.
    uint32_t scope_for(const std::string &host) {
        uint32_t scope = 4711;
        const BeforeCall look(Call::connect, 1, [&](const Arguments &arguments) {
            scope = Address(arguments.at<const sockaddr *>(1), arguments.at<socklen_t>(2)).scope();
        });
        const AnswerCall connected(Call::connect, 0);
        EXPECT_EQ(connect_to(host), 0);
        EXPECT_TRUE(look.ran());
        close(socket_);
        return scope;
    }

    const PeerNetwork peer_;
    const uint32_t near_ = if_nametoindex(PeerNetwork::kNearEnd);
    int32_t socket_ = kUntouched;
    LogCapture log_;
};

using TcpScopeAlone = NetworkTest;

// A list of one interface that serves fe80::/64 and a last one, which stands in for all that no other serves.
constexpr uint32_t kServing = 5;
constexpr uint32_t kLast = 42;

class ListedInterfaces {
  public:
    ListedInterfaces() {
        folder_.file("if_inet6",
                     "fe800000000000000000000000000001 05 40 20 80    near0\n"
                     "20010db8000100000000000000000001 2a 40 00 80     last\n");
    }

  private:
    TempFolder folder_;
    const BindMount list_{folder_.path(), "/proc/self/net"};
};

// Leaves no list of IPv6 addresses to be read.
class NoList {
  private:
    const FailCall open_{Call::open, EACCES, 1, 100};
    const FailCall fopen_{Call::fopen, EACCES, 1, 100};
};

}  // namespace

TEST_F(TcpScope, a_link_local_peer_is_reached_through_the_interface_that_serves_it) {
    Pipe listening(0);
    const Pipe done(0);
    const pid_t child = peer_.start([&] {
        const Listener listener("::");
        listening.put("x");
        const Descriptor server(listener.accept());
        const bool came_from_near = peer_address(server).text() == PeerNetwork::kNearLinkLocal;
        const bool came_to_far = own_address(server).text() == PeerNetwork::kFarLinkLocal;
        return write(server, "text", 4) == 4 && done.take() == "x" && came_from_near && came_to_far ? 0 : 1;
    });
    listening.in.reset();
    ASSERT_EQ(listening.take(), "x");

    ASSERT_EQ(connect_to(PeerNetwork::kFarLinkLocal), 0);
    const Descriptor client(socket_);
    char text[5] = {};
    EXPECT_EQ(Exactly_Recv(client, text, 4, kPatient), 4);
    EXPECT_STREQ(text, "text");
    EXPECT_EQ(peer_address(client).scope(), near_);
    done.put("x");
    EXPECT_EQ(wait_for(child), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpScope, without_a_scope_the_system_refuses_a_link_local_peer) {
    const NoList none;
    EXPECT_EQ(connect_to(PeerNetwork::kFarLinkLocal), -EINVAL);
    EXPECT_EQ(socket_, -1);
    EXPECT_THAT(log_.messages(),
                ElementsAre("[debug] IPv6_Get_Scope_Id(#): Can't open /proc/net/if_inet6 for IPv6 interface!\n",
                            "[debug] TCP_Socket_Connect(#): Can't connect socket error! (-22)\n"));
}

TEST_F(TcpScope, is_looked_up_for_all_but_some_texts) {
    const ListedInterfaces list;
    const struct {
        const char *host;
        uint32_t scope;
    } table[] = {{"fe80::2", kServing},
                 {"FE80::2", kServing},
                 {"2001:db8::1", kLast},
                 {"::1", 0},
                 {"0:0:0:0:0:0:0:1", kLast},
                 {"0::1", kLast},
                 {"::0001", kLast},
                 {"::2", kLast},
                 {"::", kLast},
                 {"::ffff:127.0.0.1", 0},
                 {"::FFFF:127.0.0.1", 0},
                 {"::fFfF:7f00:1", 0},
                 {"::ffff:0:127.0.0.1", 0},
                 {"::ffff", kLast},
                 {"::fffe:127.0.0.1", kLast},
                 {"0:0:0:0:0:ffff:127.0.0.1", kLast}};

    for (const auto &row : table)
        EXPECT_EQ(scope_for(row.host), row.scope) << row.host;
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpScope, is_looked_up_for_a_name) {
    const ListedInterfaces list;
    const OwnHosts names("::1 six\nfe80::2 far\n");
    EXPECT_EQ(scope_for("six"), kLast);
    EXPECT_EQ(scope_for("far"), kServing);
}

TEST_F(TcpScope, a_text_may_name_its_own) {
    run_command("ip addr add fe80::77/64 dev lo");
    const Listener listener("::");
    EXPECT_EQ(scope_for("fe80::77%lo"), if_nametoindex("lo"));
    EXPECT_EQ(scope_for("fe80::77%1"), if_nametoindex("lo"));
    EXPECT_EQ(scope_for("fe80::77%near0"), near_);
    EXPECT_EQ(scope_for("fe80::77"), near_);

    const NoList none;
    ASSERT_EQ(connect_to("fe80::77%lo"), 0);
    close(socket_);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpScope, plays_no_part_for_ipv4) {
    const Listener listener("127.0.0.1");
    const NoList none;
    ASSERT_EQ(connect_to("127.0.0.1"), 0);
    close(socket_);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(TcpScopeAlone, a_lookup_that_finds_nothing_changes_nothing) {
    LogCapture log;
    const Listener listener("::1");
    const Steps steps;
    int32_t client = kUntouched;
    ASSERT_EQ(TCP_Socket_Connect(nullptr, "0::1", kPort, kPatient, &client), 0);
    EXPECT_EQ(steps.taken().back(), "connect ::1 port 4000");
    close(client);
    EXPECT_THAT(log.messages(), IsEmpty());
}
