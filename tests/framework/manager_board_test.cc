// What the manager reads when it is made: the board, its configuration, its features.
#include "rte/BLL/core/manager/board.h"

#include "rte/BLL/core/sys_log.h"
#include "tests/framework/manager_support.h"
#include <thread>

namespace {

using namespace manager_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class ManagerBoard : public ManagerTest {
protected:
  ManagerBoard()
  {
    static SysLog* const backEnd = new SysLog;
    singleton<Log>::instance().reset(backEnd);
  }
  // A board as it reads itself when its manager is made.
  struct read_t : board_t {
    read_t()
    {
      readConfiguration();
      readFeatures();
    }
  };
  board_t& board()
  {
    if (!own_)
      own_ = std::make_unique<read_t>();
    return *own_;
  }

private:
  std::unique_ptr<read_t> own_;
};

TEST_F(ManagerBoard, SectionsOfTheBoardApplyInOrder)
{
  configure(
      "<BOARD Id='all_boards'>"
      "  <BLE Name='a' Load='static' Library='liba.so' Start='true'/> text <!-- comment -->"
      "  <BLE Name='' Start='true'/>"
      "  <OTHER Name='b' Load='dynamic' Library='libb.so' Start='true'/>"
      "  <BLE Name='c' Load='dynamic' Start='True'/>"
      "</BOARD>"
      "<BOARD Id='BOARD_BT4'><BLE Name='never' Start='true'/></BOARD>"
      "<ANYTHING Id='BOARD_BT'><BLE Name='a' Load='dynamic' Start='false'/><BLE Name='d' Start='true'/></ANYTHING>"
      "<BOARD><BLE Name='e' Start='true'/></BOARD>");
  EXPECT_THAT(board().entityNames(), ElementsAre("a", "b", "c", "d", "e"));
  names_t started;
  for (const std::string& name : board().entityNames())
    if (board().starts(name))
      started.push_back(name);
  EXPECT_THAT(started, ElementsAre("b", "d", "e"));
  EXPECT_THAT(board().libraries(), ElementsAre("libb.so"));
  EXPECT_FALSE(board().starts("never"));
  EXPECT_THAT(logged(), ElementsAre("BLLManager, running on board <BT5 rev 2>.\n",
                                    "BLLManager: load bll configuration from XML for BOARD_BT5 \n"));

  EXPECT_TRUE(board().disable("d"));
  EXPECT_FALSE(board().starts("d"));
  EXPECT_FALSE(board().disable("never"));
}

TEST_F(ManagerBoard, HasAFullNameByItsTypeAndAFolderOfLibraries)
{
  std::string told;
  for (const char* id : {"BT1 x", "BT2 x", "BTB x"}) {
    set("BLL_BOARD_ID", "board", id);
    read_t();
    told += logged().at(1);
  }
  EXPECT_EQ(told, "BLLManager: load bll configuration from XML for BT1 x \n"
                  "BLLManager: load bll configuration from XML for BOARD_BT2 \n"
                  "BLLManager: load bll configuration from XML for BTB x \n");
  names_t paths;
  for (const char* libraries : {"", "/x", "/x/"}) {
    setenv("BLL_LIB_DIR", libraries, 1);
    paths.push_back(board_t::libraryPath("a.so"));
  }
  EXPECT_THAT(paths, ElementsAre("../lib/a.so", "/x/a.so", "/x/a.so"));
}

TEST_F(ManagerBoard, WithoutFullNamesTheDescriptionIsMatched)
{
  set("PPPOEIA_NODE_CONF", "node.conf", "active_capabilities = 5, 13\n");
  configure("<BOARD Id='BT5 r'><BLE Name='a'/></BOARD><BOARD Id='BOARD_BT5'><BLE Name='b'/></BOARD>");
  EXPECT_THAT(board().entityNames(), ElementsAre("a"));
  EXPECT_TRUE(board().supports("dsfec"));
}

TEST_F(ManagerBoard, WhatIsMissingIsReportedAndLivedWith)
{
  setenv("BLL_CONFIG", path("nowhere").c_str(), 1);
  EXPECT_THAT(board().entityNames(), IsEmpty());
  EXPECT_THAT(logged(), Contains("BLLManager, Can not open bll configuration file.\n"));

  for (const char* content : {"", "<a", "<a/>", "<a><BLL/></a>", "<a><BLL><BOARD/></BLL></a>", "\xff\xfe<"}) {
    set("BLL_CONFIG", "config.xml", content);
    EXPECT_THAT(read_t().entityNames(), IsEmpty()) << content;
  }
  set("BLL_BOARD_ID", "board", "\r\nBT5\n");
  logged();
  EXPECT_EQ(read_t().description(), "");
  EXPECT_THAT(logged(), Contains("BLLManager, Can not find board description, buffer is empty.\n"));
  setenv("BLL_BOARD_ID", path("nowhere").c_str(), 1);
  read_t without;
  EXPECT_THAT(logged(),
              ElementsAre("BLLManager, Can not find board description, open file <" + path("nowhere") + "> failed.\n",
                          "BLLManager, Can not load bll configuration from XML.\n",
                          "BLLManager, Can not find board description, open file <" + path("nowhere") + "> failed.\n",
                          "BLLManager::loadBllFeatures: Cannot read board_id.\n"));
  EXPECT_TRUE(without.supports("lagmembership")) << "no entry, so nobody denies it";
}

TEST_F(ManagerBoard, FeaturesFollowTheBoardAndTheNode)
{
  std::ostringstream out;
  board().dumpFeatures(out);
  board().setFeature("new", false, out);
  EXPECT_EQ(out.str(), "Supported features:\n------------------\n"
                       " dsfec: false\n httpserver: false\n lagmembership: true\n legacyalarm: true\n"
                       " oltintervalstat: true\n oltsfpmode: false\n onubasedoltstates: false\n"
                       " sfpuplinkspeed: false\n uplinksfpwhitelist: false\n"
                       "Setting BLL feature 'new' to False\n");
  EXPECT_FALSE(board().supports("new"));
  EXPECT_TRUE(board().supports("never heard of"));

  set("PPPOEIA_NODE_CONF", "node.conf", "active_capabilities = 5, 15\n");
  set("BLL_BOARD_ID", "board", "BTA\n");
  read_t other;
  for (const char* feature : {"dsfec", "httpserver", "onubasedoltstates", "sfpuplinkspeed", "uplinksfpwhitelist"})
    EXPECT_TRUE(other.supports(feature)) << feature;
  EXPECT_FALSE(other.supports("legacyalarm"));
  set("BLL_BOARD_ID", "board", "BT9\n");
  EXPECT_TRUE(read_t().supports("uplinksfpwhitelist"));
  set("BLL_BOARD_ID", "board", "BTB\n");
  EXPECT_FALSE(read_t().supports("lagmembership"));
}

// Two threads that ask at once read it once.
TEST_F(ManagerBoard, IsReadOnceAndAskedByAnyThread)
{
  configure("<BOARD Id='all_boards'><BLE Name='a' Load='dynamic' Library='liba.so'/></BOARD>");
  board_t shared;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&, own = "feature " + std::to_string(i)] {
      std::ostringstream out;
      EXPECT_EQ(shared.description(), "BT5 rev 2");
      shared.setFeature(own, false, out);
      shared.dumpFeatures(out);
      EXPECT_FALSE(shared.supports(own));
      shared.readConfiguration();
      EXPECT_THAT(shared.entityNames(), ElementsAre("a"));
      EXPECT_TRUE(shared.disable("a"));
      shared.libraries();
    });
  for (std::thread& thread : threads)
    thread.join();
  names_t lines = logged();
  EXPECT_EQ(std::ranges::count(lines, "BLLManager, running on board <BT5 rev 2>.\n"), 1);
}

}  // namespace
