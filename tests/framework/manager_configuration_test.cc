// What the manager reads when it is made: the board, its configuration, its features; and who may register.
#include "tests/framework/manager_support.h"

namespace {

using namespace manager_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class ManagerConfiguration : public ManagerTest {};

TEST_F(ManagerConfiguration, SectionsOfTheBoardApplyInOrder)
{
  configure(
      "<BOARD Id='all_boards'>"
      "  <BLE Name='a' Load='static' Start='true'/> text <!-- comment -->"
      "  <BLE Name='' Start='true'/>"
      "  <OTHER Name='b' Load='dynamic' Library='libb.so' Start='true'/>"
      "  <BLE Name='c' Start='True'/>"
      "</BOARD>"
      "<BOARD Id='BOARD_BT4'><BLE Name='never' Start='true'/></BOARD>"
      "<ANYTHING Id='BOARD_BT'><BLE Name='a' Load='dynamic' Start='false'/><BLE Name='d' Start='true'/></ANYTHING>"
      "<BOARD><BLE Name='e' Start='true'/></BOARD>");
  EXPECT_THAT(manager().getActiveBLEsList(), ElementsAre("a", "b", "c", "d", "e"));
  names_t started;
  for (const std::string& name : manager().getActiveBLEsList())
    if (manager().checkBllEntity(name))
      started.push_back(name);
  EXPECT_THAT(started, ElementsAre("b", "d", "e"));
  EXPECT_FALSE(manager().checkBllEntity("never"));
  EXPECT_THAT(logged(), ElementsAre("BLLManager, running on board <BT5 rev 2>.\n",
                                    "BLLManager: load bll configuration from XML for BOARD_BT5 \n"));

  EXPECT_TRUE(manager().disableBLLEntity("d"));
  EXPECT_FALSE(manager().checkBllEntity("d"));
  EXPECT_FALSE(manager().disableBLLEntity("never"));
  EXPECT_FALSE(manager().enableBLLEntity("d"));
}

TEST_F(ManagerConfiguration, WithoutFullNamesTheDescriptionIsMatched)
{
  set("PPPOEIA_NODE_CONF", "node.conf", "active_capabilities = 5, 13\n");
  configure("<BOARD Id='BT5 r'><BLE Name='a'/></BOARD><BOARD Id='BOARD_BT5'><BLE Name='b'/></BOARD>");
  EXPECT_THAT(manager().getActiveBLEsList(), ElementsAre("a"));
  EXPECT_TRUE(manager().isFeatureSupported("dsfec"));
}

TEST_F(ManagerConfiguration, WhatIsMissingIsReportedAndLivedWith)
{
  setenv("BLL_CONFIG", path("nowhere").c_str(), 1);
  EXPECT_THAT(manager().getActiveBLEsList(), IsEmpty());
  EXPECT_THAT(logged(), Contains("BLLManager, Can not open bll configuration file.\n"));

  for (const char* content : {"", "<a", "<a/>", "<a><BLL/></a>", "<a><BLL><BOARD/></BLL></a>", "\xff\xfe<"}) {
    set("BLL_CONFIG", "config.xml", content);
    EXPECT_THAT(BLLManager().getActiveBLEsList(), IsEmpty()) << content;
  }
  set("BLL_BOARD_ID", "board", "\r\nBT5\n");
  logged();
  EXPECT_EQ(BLLManager().getBoardDescription(), "");
  EXPECT_THAT(logged(), Contains("BLLManager, Can not find board description, buffer is empty.\n"));
  setenv("BLL_BOARD_ID", path("nowhere").c_str(), 1);
  BLLManager without;
  EXPECT_THAT(logged(),
              ElementsAre("BLLManager, Can not find board description, open file <" + path("nowhere") + "> failed.\n",
                          "BLLManager, Can not load bll configuration from XML.\n",
                          "BLLManager, Can not find board description, open file <" + path("nowhere") + "> failed.\n",
                          "BLLManager::loadBllFeatures: Cannot read board_id.\n"));
  EXPECT_TRUE(without.isFeatureSupported("lagmembership")) << "no entry, so nobody denies it";
}

TEST_F(ManagerConfiguration, FeaturesFollowTheBoardAndTheNode)
{
  std::ostringstream out;
  manager().dumpFeatureSupport(out);
  manager().setBllFeature("new", false, out);
  EXPECT_EQ(out.str(), "Supported features:\n------------------\n"
                       " dsfec: false\n httpserver: false\n lagmembership: true\n legacyalarm: true\n"
                       " oltintervalstat: true\n oltsfpmode: false\n onubasedoltstates: false\n"
                       " sfpuplinkspeed: false\n uplinksfpwhitelist: false\n"
                       "Setting BLL feature 'new' to False\n");
  EXPECT_FALSE(manager().isFeatureSupported("new"));
  EXPECT_TRUE(manager().isFeatureSupported("never heard of"));

  set("PPPOEIA_NODE_CONF", "node.conf", "active_capabilities = 5, 15\n");
  set("BLL_BOARD_ID", "board", "BTA\n");
  BLLManager other;
  for (const char* feature : {"dsfec", "httpserver", "onubasedoltstates", "sfpuplinkspeed", "uplinksfpwhitelist"})
    EXPECT_TRUE(other.isFeatureSupported(feature)) << feature;
  EXPECT_FALSE(other.isFeatureSupported("legacyalarm"));
  set("BLL_BOARD_ID", "board", "BT9\n");
  EXPECT_TRUE(BLLManager().isFeatureSupported("uplinksfpwhitelist"));
  set("BLL_BOARD_ID", "board", "BTB\n");
  EXPECT_FALSE(BLLManager().isFeatureSupported("lagmembership"));
}

TEST_F(ManagerConfiguration, OnlyWhoIsToStartIsEntered)
{
  configure("<BOARD Id='all_boards'><BLE Name='a' Start='true'/><BLE Name='b' Start='no'/></BOARD>");
  manager();
  logEverything();
  logged();
  add("a");
  add("b");
  add("unknown");
  add("");
  EXPECT_THAT(logged(),
              ElementsAre("Registering BLE <a>... done.\n", "Registering BLE <b>... not registered.\n",
                          "Registering BLE <unknown>... not registered.\n", "Registering BLE <>... not registered.\n"));
  entity_t twin("a", calls);
  EXPECT_TRUE(manager().registerEntity(twin)) << "takes the place of the first";
  manager().applyConfiguration("file");
  logged();
  EXPECT_FALSE(manager().registerEntity(twin));
  EXPECT_THAT(logged(), ElementsAre("Registering BLE <a>... error.\n"));
  EXPECT_THAT(calls, ElementsAre("configure a"));
}

}  // namespace
