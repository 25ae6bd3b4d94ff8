// Members of a bridge of the kernel's that come, go, move and change their names.
#include "platform/kvbridge/record_header.h"
#include "platform/kvbridged/kernel/found_programs.h"
#include "platform/kvbridged/kernel/netlink.h"
#include "tests/kvbridged/kernel_bridge_fixture.h"

#include <atomic>
#include <chrono>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

namespace {

// News are told in the name of the process that caused them.
TEST(Netlink, HandsOutWhatIsForAll)
{
  nlmsghdr news{};
  news.nlmsg_len = sizeof news;
  news.nlmsg_type = RTM_NEWLINK;
  news.nlmsg_pid = 77;
  int handed_out = 0;
  const auto count = [&](const nlmsghdr* message) { handed_out += message->nlmsg_type == RTM_NEWLINK; };
  EXPECT_TRUE(netlink_hand_out(reinterpret_cast<const char*>(&news), sizeof news, count));
  EXPECT_EQ(handed_out, 1);
}

TEST_F(KernelBridge, MembersComeAndGoAndAreRenamed)
{
  testing::internal::CaptureStderr();
  cabled_bridge node(settings_of());
  std::atomic<int> port = 0;
  node.agent = [&](frame_bytes& record) { return port = record[kernel_header::input_port], treat(record); };
  node.start();
  wire uplink("hup9");
  cable_make("line5");
  EXPECT_EQ(port_at("line5"), std::nullopt);
  EXPECT_TRUE(run("ip link set line5 master br0"));
  ASSERT_TRUE(wait_until([] { return port_at("line5") == 5; }));
  const wire line("hline5");
  const frame_bytes request = discovery_frame(padi, everybody, client);
  line.send(request);
  EXPECT_EQ(uplink.receive(), after_agent(request));
  EXPECT_EQ(port, 5);
  EXPECT_TRUE(run("ip link set line5 down && ip link set line5 name line6 && ip link set line6 up"));
  ASSERT_TRUE(wait_until([] { return port_at("line6") == 6; }));
  link_up("line6");
  line.send(request);
  EXPECT_EQ(uplink.receive(), after_agent(request));
  EXPECT_EQ(port, 6);
  // Another name of the bridge opens nothing.
  EXPECT_TRUE(run("ip link set br0 down && ip link set br0 name br7 && ip link set br7 up"));
  line.send(request);
  EXPECT_EQ(uplink.receive(), after_agent(request));
  EXPECT_TRUE(run("ip link set br7 down && ip link set br7 name br0 && ip link set br0 up"));
  // Who takes another's number makes both nameless.
  EXPECT_TRUE(run("ip link set line6 down && ip link set line6 name other1 && ip link set other1 up"));
  EXPECT_TRUE(wait_until([] { return port_at("line1") == 0 && port_at("other1") == 0; }));
  EXPECT_THAT(kernel_status(false), HasSubstr("  line1: subscriber, no port, captured 0, "));
  EXPECT_TRUE(run("ip link set other1 nomaster"));
  EXPECT_TRUE(wait_until([] { return port_at("line1") == 1 && !port_at("other1") && !has_qdisc("other1"); }));
  EXPECT_TRUE(run("ip link del line2"));
  EXPECT_TRUE(run("ip link del br0 && ip link add br0 type bridge && ip link set br0 up"));
  EXPECT_TRUE(wait_until([] { return !port_at("up9") && !has_qdisc("line1"); }));
  EXPECT_TRUE(run("ip link set up9 master br0 && ip link set line1 master br0"));
  ASSERT_TRUE(wait_until([] { return port_at("up9") == 9 && port_at("line1") == 1; }));
  const wire first("hline1");
  ASSERT_TRUE(wait_until([&] { return first.send(request), uplink.receive(false) == after_agent(request); }));
  node.stop();
  const auto nameless = [](const std::string& name) {
    return "kvbridged: br0: " + name + " has no port number of its own, so its discovery is not served: give it one " +
           "by --port " + name + "=NUMBER\n";
  };
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            nameless("line1") + nameless("other1") +
                "kvbridged: br0: the bridge is gone; it is served again when it is back\n");
}

TEST_F(KernelBridge, MemberMovesToAnotherBridge)
{
  testing::internal::CaptureStderr();
  EXPECT_TRUE(run("ip link add br1 type bridge && ip link set br1 up"));
  bridge_settings other = settings_of();
  other.name = "br1";
  loop events;
  const descriptor stop(eventfd(0, 0));
  events.watch(stop.get(), [&] { events.end(); });
  const auto first = bridge_make(settings_of(), events), second = bridge_make(other, events);
  std::thread serving([&] { events.run(); });
  const auto bridge_at_line = [] {
    const auto found = found_programs::at(static_cast<int>(if_nametoindex("line2")));
    return found ? found->bridge() : "";
  };
  for (const char* bridge : {"br1", "br0", "br1", "br0"}) {
    EXPECT_TRUE(run(std::string("ip link set line2 master ") + bridge));
    EXPECT_TRUE(wait_until([&] { return bridge_at_line() == bridge; }));
  }
  eventfd_write(stop.get(), 1);
  serving.join();
  EXPECT_EQ(bridge_at_line(), "br0");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "kvbridged: br1: none of its members is an --uplink: there is nowhere for discovery to go\n");
}

// The timer looks at the members before the kernel's news of them are read.
TEST_F(KernelBridge, MemberThatMovedIsAnothersAlsoBeforeThatWasHeard)
{
  testing::internal::CaptureStderr();
  EXPECT_TRUE(run("ip link add br1 type bridge && ip link set br1 up"));
  bridge_settings other = settings_of();
  other.name = "br1";
  for (const bool back : {false, true}) {
    loop events, others_events;
    const auto node = bridge_make(settings_of(), events);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(run("ip link set line2 master br1"));
    const auto others = bridge_make(other, others_events);
    EXPECT_TRUE(run(back ? "ip link set line2 master br0" : "true"));
    serve(events);
    const auto found = found_programs::at(static_cast<int>(if_nametoindex("line2")));
    EXPECT_EQ(found ? found->bridge() : "", back ? "br0" : "br1");
    EXPECT_TRUE(run("ip link set line2 master br0"));
  }
  const std::string nowhere =
      "kvbridged: br1: none of its members is an --uplink: there is nowhere for discovery to go\n";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), nowhere + nowhere);
}

TEST_F(KernelBridge, MemberThatWasInAnotherNamespaceIsServedAgain)
{
  cabled_bridge node(settings_of());
  node.agent = treat;
  node.start();
  const frame_bytes request = discovery_frame(padi, everybody, client);
  const std::string home = said("readlink /proc/self/ns/net"), away = said("unshare -n sleep 60 >&- & echo -n $!");
  ASSERT_TRUE(wait_until([&] { return said("readlink /proc/" + away + "/ns/net") != home; }));
  ASSERT_TRUE(run("ip link set line2 netns " + away));
  ASSERT_TRUE(wait_until([&] { return !if_nametoindex("line2"); }));
  {
    wire line("hline1"), uplink("hup9");
    line.send(request);
    EXPECT_EQ(uplink.receive(), after_agent(request)) << "the others are served";
  }
  const std::string inside = "nsenter -t " + away + " -n ";
  EXPECT_FALSE(run(inside + "tc qdisc show dev line2 | grep -q clsact")) << "it takes no program along";
  ASSERT_TRUE(run(inside + "ip link set line2 netns " + std::to_string(getpid())));
  ASSERT_TRUE(run("ip link set line2 master br0 && ip link set line2 up"));
  ASSERT_TRUE(wait_until([] { return port_at("line2") == 2; }));
  link_up("line2");
  wire line("hline2"), uplink("hup9");
  line.send(request);
  EXPECT_EQ(uplink.receive(), after_agent(request));
  // Gone with its namespace.
  ASSERT_TRUE(run("ip link set line2 netns " + away + " && kill " + away));
  wire other("hline1");
  other.send(request);
  EXPECT_EQ(uplink.receive(), after_agent(request));
  node.stop();
}

// While nobody read, more happened than the kernel keeps for us.
TEST_F(KernelBridge, LooksAtEverythingWhenNewsWereLost)
{
  cable_make("line5");
  cabled_bridge node(settings_of());
  ASSERT_TRUE(run("for i in $(seq 2000); do echo link set line2 alias x$i; done | ip -batch -"));
  ASSERT_TRUE(run("ip link set line5 master br0 && tc qdisc del dev line1 clsact"));
  node.start();
  EXPECT_TRUE(wait_until([] { return port_at("line5") == 5; }));
  EXPECT_TRUE(wait_until([] { return has_qdisc("line1"); }));
  node.stop();
}

}  // namespace
