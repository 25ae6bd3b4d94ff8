// The node's file and what is told of it: position, addresses, capabilities.
#include "platform/ncfm/ncfm.h"
#include "platform/nodeinfo/node_conf.h"
#include "platform/nodeinfo/nodeinfo.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

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
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  EXPECT_EQ(ncfmGetMyBoardPos(&place), 0);
  EXPECT_EQ(place.position, 255);
}

TEST_F(NodeLibraries, AnInterfaceWithoutAnAddressHasTheManagementInterfaces)
{
  ncfmInterface none{{1, 2, 3, 4}}, management{{1, 2, 3, 4}};
  const int rc = ncfmGetInterface("no interface", &none);
  EXPECT_EQ(rc, ncfmGetInterface("mng0", &management));
  EXPECT_EQ(std::memcmp(none.ipv4, management.ipv4, sizeof none.ipv4), 0);
  EXPECT_TRUE(rc == 0 || none.ipv4[0] == 1);
}

}  // namespace
