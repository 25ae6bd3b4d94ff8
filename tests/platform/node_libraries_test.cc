// The node's file and what is told of it: position, addresses, capabilities.
#include "platform/ncfm/ncfm.h"
#include "platform/nodeinfo/node_conf.h"
#include "platform/nodeinfo/nodeinfo.h"
#include "tests/support/played_clock.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {
std::vector<std::pair<std::string, sockaddr_in6>> addresses;
}

extern "C" int getifaddrs(ifaddrs** list)
{
  *list = nullptr;
  for (auto at = addresses.rbegin(); at != addresses.rend(); ++at) {
    auto* const one = new ifaddrs{};
    one->ifa_next = std::exchange(*list, one);
    one->ifa_name = at->first.data();
    if (at->second.sin6_family != 0)
      one->ifa_addr = reinterpret_cast<sockaddr*>(&at->second);
  }
  return addresses.empty() ? -1 : 0;
}

extern "C" void freeifaddrs(ifaddrs* list)
{
  while (list)
    delete std::exchange(list, list->ifa_next);
}

namespace {

class NodeLibraries : public testing::Test {
protected:
  NodeLibraries() { setenv("PPPOEIA_NODE_CONF", path_.c_str(), 1); }
  ~NodeLibraries() override
  {
    unlink(path_.c_str());
    unsetenv("PPPOEIA_NODE_CONF");
  }
  void say(const std::string& text) const { std::ofstream(path_) << text; }

private:
  const std::string path_ = testing::TempDir() + "node" + std::to_string(getpid()) + ".conf";
};

TEST_F(NodeLibraries, TheLastValueOfAKeyCounts)
{
  EXPECT_EQ(node_conf::value("key"), std::nullopt);
  say("key = first\n# key = comment\nkeys = other\nno value\n \tkey=  two words \t# why\r\n");
  EXPECT_EQ(node_conf::value("key"), "two words");
  EXPECT_EQ(node_conf::value("no value"), std::nullopt);
  say("key = a=b\nempty =\n");
  EXPECT_EQ(node_conf::value("key"), "a=b");
  EXPECT_EQ(node_conf::value("empty"), "");
}

TEST_F(NodeLibraries, CapabilitiesAreWholeNumbersOfTheList)
{
  EXPECT_EQ(isActive(5), 0);
  say("active_capabilities = 5, 13,x,  -2,\n");
  for (const int active : {5, 13, -2})
    EXPECT_EQ(isActive(active), 1) << active;
  for (const int inactive : {0, 1, 3, 51})
    EXPECT_EQ(isActive(inactive), 0) << inactive;
}

// Answers are kept for a second; a child that is the first to ask does not have to wait for that.
TEST_F(NodeLibraries, APositionThatIsNoneLeavesTheCallersAlone)
{
  constexpr time_t first = 1'000'000;
  clock_stand(CLOCK_MONOTONIC, first);
  ncfmBoardPos place{77, {}};
  for (const char* none : {"", "board_position = 256\n", "board_position = x\n", "board_position = -1\n"}) {
    say(none);
    const pid_t child = fork();
    if (child == 0)
      _exit(ncfmGetMyBoardPos(&place) != 0 && place.position == 77 ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << none;
  }
  EXPECT_NE(ncfmGetMyBoardPos(&place), 0);
  say("board_position = 255\n");
  EXPECT_NE(ncfmGetMyBoardPos(&place), 0) << "as it was told a moment ago";
  clock_stand(CLOCK_MONOTONIC, first + 1);
  EXPECT_EQ(ncfmGetMyBoardPos(&place), 0);
  EXPECT_EQ(place.position, 255);
  clock_stand(CLOCK_MONOTONIC, 0);
}

// An address of the card's interfaces, as the kernel lists them.
void address_add(const char* device, const char* text)
{
  addresses.emplace_back(device, sockaddr_in6{});
  sockaddr_in6& six = addresses.back().second;
  auto& four = reinterpret_cast<sockaddr_in&>(six);
  if (inet_pton(AF_INET6, text, &six.sin6_addr) == 1)
    six.sin6_family = AF_INET6;
  else if (inet_pton(AF_INET, text, &four.sin_addr) == 1)
    four.sin_family = AF_INET;
}

// "IPv4 of the device, IPv6" as a process is told that asks for the first time.
std::string told_of(const char* device)
{
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  if (fork() == 0) {
    ncfmInterface found{};
    uint8_t six[16] = {};
    char text[2][INET6_ADDRSTRLEN] = {};
    if (ncfmGetInterface(device, &found) == 0)
      inet_ntop(AF_INET, found.ipv4, text[0], sizeof text[0]);
    if (ncfmGetIpv6(six) == 0)
      inet_ntop(AF_INET6, six, text[1], sizeof text[1]);
    dprintf(ends[1], "%s, %s", text[0], text[1]);
    _exit(0);
  }
  wait(nullptr);
  char line[100] = {};
  EXPECT_GT(read(ends[0], line, sizeof line - 1), 0);
  close(ends[0]);
  close(ends[1]);
  return line;
}

TEST_F(NodeLibraries, AnInterfaceWithoutAnAddressHasTheManagementInterfaces)
{
  EXPECT_EQ(told_of("dev1"), ", ");
  address_add("dev1", "10.1.2.3");
  address_add("dev2", "2001:db8::2");
  address_add("mng0", "no address");
  EXPECT_EQ(told_of("dev1"), "10.1.2.3, ");
  EXPECT_EQ(told_of("dev2"), ", ");
  address_add("mng0", "fe80::1");
  address_add("mng0", "fe80::2");
  address_add("mng0", "192.0.2.1");
  address_add("mng0", "192.0.2.2");
  EXPECT_EQ(told_of("dev1"), "10.1.2.3, fe80::1");
  EXPECT_EQ(told_of("dev2"), "192.0.2.1, fe80::1");
  address_add("mng0", "2001:db8::1");
  address_add("mng0", "2001:db8::3");
  address_add("mng0", "fe80::3");
  EXPECT_EQ(told_of("dev3"), "192.0.2.1, 2001:db8::1");
}

// What it was told is kept for a second.
TEST_F(NodeLibraries, AnAddressThatIsGoneIsNotTold)
{
  ncfmInterface found{};
  addresses.clear();
  address_add("dev1", "10.1.2.3");
  address_add("dev2", "10.1.2.4");
  constexpr time_t first = 2'000'000;
  clock_stand(CLOCK_MONOTONIC, first);
  EXPECT_EQ(ncfmGetInterface("dev1", &found), 0);
  addresses.erase(addresses.begin());
  EXPECT_EQ(ncfmGetInterface("dev1", &found), 0) << "as it was told a moment ago";
  clock_stand(CLOCK_MONOTONIC, first + 1);
  EXPECT_NE(ncfmGetInterface("dev1", &found), 0);
  clock_stand(CLOCK_MONOTONIC, 0);
}

}  // namespace
