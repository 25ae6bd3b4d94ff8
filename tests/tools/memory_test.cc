// What the tool remembers of a run of the agent, with a file in the socket's place.
#include "tools/pppoeiactl/config/memory.h"

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace config {
namespace {

class Memory : public testing::Test {
protected:
  Memory() { touch(socket_); }
  ~Memory() override
  {
    for (const std::string& file : {socket_, kept_.path(), folder_ + "/other"})
      unlink(file.c_str());
    rmdir(folder_.c_str());
  }

  static void touch(const std::string& file) { std::ofstream(file, std::ios::app).flush(); }
  static mode_t mode_of(const std::string& file)
  {
    struct stat found {};
    return stat(file.c_str(), &found) == 0 ? found.st_mode & 07777 : 0;
  }
  // Another socket of the same name, with an inode of its own.
  void agent_restarts()
  {
    touch(folder_ + "/other");
    rename((folder_ + "/other").c_str(), socket_.c_str());
  }
  std::string written() const
  {
    std::ifstream file(kept_.path());
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::string folder_ = [] {
    char made[] = "/tmp/memory_test.XXXXXX";
    return std::string(mkdtemp(made));
  }();
  std::string socket_ = folder_ + "/socket";
  memory kept_{socket_};
};

port port_of(const std::string& name, const std::string& kind)
{
  port made;
  made.values[port_name] = name;
  made.values[port_type] = "atm";
  made.values[port_kind] = kind;
  made.values[port_reserved] = "last";
  return made;
}

TEST_F(Memory, ReadsBackWhatWasNoted)
{
  EXPECT_TRUE(kept_.append(bridge_added_line("br 0", "65") + bridge_max_pdu_line("br 0", "1500")));
  EXPECT_TRUE(kept_.append(port_added_line("br 0", 3, port_of("eth 3", "7")) + port_in_doubt_line("br 0", 4)));
  EXPECT_TRUE(kept_.append(bridge_added_line("br1", "9") + port_added_line("br1", 1, port_of("a", "1"))));
  auto bridges = kept_.read();
  ASSERT_EQ(2u, bridges.size());
  EXPECT_EQ("9", bridges["br1"].slots);
  EXPECT_EQ(std::nullopt, bridges["br1"].max_pdu);
  const remembered_bridge& bridge = bridges["br 0"];
  EXPECT_EQ("65", bridge.slots);
  EXPECT_EQ("1500", bridge.max_pdu);
  ASSERT_EQ(2u, bridge.ports.size());
  EXPECT_EQ(port_of("eth 3", "7").values[port_name], bridge.ports.at(3).known.values[port_name]);
  EXPECT_EQ("7", bridge.ports.at(3).known.values[port_kind]);
  EXPECT_EQ("last", bridge.ports.at(3).known.values[port_reserved]);
  EXPECT_FALSE(bridge.ports.at(3).doubtful);
  EXPECT_TRUE(bridge.ports.at(4).doubtful);

  EXPECT_TRUE(kept_.append(port_removed_line("br 0", 4) + bridge_removed_line("br1")));
  bridges = kept_.read();
  ASSERT_EQ(1u, bridges.size());
  EXPECT_EQ(1u, bridges["br 0"].ports.size());
  EXPECT_TRUE(kept_.append(all_removed_line()));
  EXPECT_TRUE(kept_.read().empty());
}

TEST_F(Memory, ANewNameLeavesTypeAndKind)
{
  kept_.append(port_added_line("br0", 3, port_of("old", "7")) + place_in_doubt_line("br0", 3) +
               place_in_doubt_line("br0", 5));
  auto ports = kept_.read()["br0"].ports;
  EXPECT_TRUE(ports[3].place_in_doubt);
  EXPECT_EQ("old", ports[3].known.values[port_name]);
  EXPECT_TRUE(ports[5].place_in_doubt);
  EXPECT_EQ(std::nullopt, ports[5].known.values[port_kind]);

  port renamed = port_of("new", "1");
  renamed.values[port_reserved] = "other";
  kept_.append(place_line("br0", 3, renamed) + place_line("br0", 5, renamed));
  ports = kept_.read()["br0"].ports;
  EXPECT_FALSE(ports[3].place_in_doubt);
  EXPECT_EQ("new", ports[3].known.values[port_name]);
  EXPECT_EQ("7", ports[3].known.values[port_kind]);
  EXPECT_EQ("atm", ports[3].known.values[port_type]);
  EXPECT_EQ("other", ports[3].known.values[port_reserved]);
  EXPECT_EQ("new", ports[5].known.values[port_name]);
  EXPECT_EQ(std::nullopt, ports[5].known.values[port_kind]);
}

TEST_F(Memory, HoldsForOneRunOfTheAgent)
{
  kept_.append(bridge_added_line("br0", "65"));
  agent_restarts();
  EXPECT_TRUE(kept_.read().empty());
  EXPECT_TRUE(kept_.append(bridge_added_line("br1", "65")));
  EXPECT_EQ(1u, kept_.read().size());
  EXPECT_EQ(std::string::npos, written().find("br0"));
  EXPECT_TRUE(kept_.append(""));

  unlink(socket_.c_str());
  EXPECT_TRUE(kept_.read().empty());
  EXPECT_FALSE(kept_.append(bridge_added_line("br2", "65")));
  EXPECT_TRUE(kept_.append(""));
}

// Whoever may configure the agent may write it, and nobody else.
TEST_F(Memory, IsForTheSocketsGroup)
{
  kept_.append(all_removed_line());
  EXPECT_EQ(0660u, mode_of(kept_.path()));
}

TEST_F(Memory, DoesNotBelieveWhatOthersCouldHaveWritten)
{
  kept_.append(bridge_added_line("br0", "65"));
  ASSERT_EQ(1u, kept_.read().size());
  chmod(kept_.path().c_str(), 0662);
  EXPECT_TRUE(kept_.read().empty());
  EXPECT_FALSE(kept_.append(bridge_added_line("br1", "65")));
  chmod(kept_.path().c_str(), 0660);
  if (geteuid() == 0) {
    ASSERT_EQ(0, chown(kept_.path().c_str(), 12345, static_cast<gid_t>(-1)));
    EXPECT_TRUE(kept_.read().empty());
    ASSERT_EQ(0, chown(socket_.c_str(), 12345, static_cast<gid_t>(-1)));
    ASSERT_TRUE(kept_.append(bridge_added_line("br1", "65")));
    EXPECT_EQ("65", kept_.read()["br1"].slots) << "the socket's owner is believed";
  }

  rename(kept_.path().c_str(), (folder_ + "/other").c_str());
  ASSERT_EQ(0, symlink((folder_ + "/other").c_str(), kept_.path().c_str()));
  EXPECT_TRUE(kept_.read().empty()) << "a link";
  unlink(kept_.path().c_str());
  ASSERT_EQ(0, mkfifo(kept_.path().c_str(), 0600));
  EXPECT_TRUE(kept_.read().empty()) << "a pipe, which is not waited for";
  EXPECT_FALSE(kept_.append(bridge_added_line("br1", "65")));
}

TEST_F(Memory, TakesLinesThatAreCutForNothing)
{
  kept_.append(bridge_added_line("br0", "65"));
  for (const char* line : {"\n", "bridge br1\n", "max-pdu br0\n", "bridge-removed\n", "port br0\n",
                           "port-removed br0\n", "place br0 1 name\n", "else br0 1\n"})
    kept_.append(line);
  auto bridges = kept_.read();
  EXPECT_EQ(1u, bridges.size());
  EXPECT_EQ(std::nullopt, bridges["br0"].max_pdu);
  EXPECT_EQ(std::nullopt, bridges["br0"].ports[1].known.values[port_name]);
  kept_.append("port br0 x\n");
  EXPECT_TRUE(kept_.read().empty()) << "not written by the tool";
}

TEST_F(Memory, OneToolAtATimeAppliesAFile)
{
  memory second(socket_);
  {
    memory first(socket_);
    EXPECT_TRUE(first.lock());
    EXPECT_FALSE(second.lock());
  }
  memory third(socket_);
  EXPECT_TRUE(third.lock());
  EXPECT_TRUE(memory(folder_ + "/no-agent").lock());
}

}  // namespace
}  // namespace config
