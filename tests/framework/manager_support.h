// A manager on a board of the test's making, and entities that note what they are asked.
#ifndef TESTS_FRAMEWORK_MANAGER_SUPPORT_H
#define TESTS_FRAMEWORK_MANAGER_SUPPORT_H

#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/log.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

#include <cstdlib>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>

namespace manager_test {

using names_t = std::vector<std::string>;

// Notes "start a" and so on in a list that all entities of a test share, and "(start)" in the framework log.
struct entity_t : BLEntity {
  entity_t(std::string entityName, names_t& callList, std::list<std::string> needed = {})
      : BLEntity(std::move(entityName)), calls(callList), needs(std::move(needed))
  {}
  void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override
  {
    note(setting ? "configure with a setting" : "configure");
  }
  void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override
  {
    setting->setValue("Of", name);
    note("save");
  }
  bool start() override { return note("start") && answers; }
  bool applyDefaultSettings() override { return note("default") && defaultAnswers; }
  bool stop() override { return note("stop") && answers; }
  void getDependences(std::list<std::string>& list) override { list = needs; }

  bool note(const std::string& what) const
  {
    calls.push_back(what + " " + name);
    singleton<Log>::instance() << "(" << what << ")";
    if (what == throwsIn)
      throw std::runtime_error("no " + what);
    return true;
  }

  names_t& calls;
  std::list<std::string> needs;
  bool answers = true;
  bool defaultAnswers = true;
  std::string throwsIn;
};

// Each test has its own folder, board and configuration; the manager is made when it is first asked for.
class ManagerTest : public testing::Test {
protected:
  ManagerTest()
  {
    set("BLL_BOARD_ID", "board", "BT5 rev 2\r\n");
    set("PPPOEIA_NODE_CONF", "node.conf", "active_capabilities = 12\n");
    configure("");
    syslog_take();
  }
  ~ManagerTest() override
  {
    made.reset();
    for (const char* variable : {"BLL_BOARD_ID", "PPPOEIA_NODE_CONF", "BLL_CONFIG", "BLL_LIB_DIR"})
      unsetenv(variable);
  }

  std::string path(const std::string& file) const { return folder + "/" + file; }
  void set(const char* variable, const std::string& file, const std::string& text)
  {
    std::ofstream(path(file)) << text;
    setenv(variable, path(file).c_str(), 1);
  }
  void configure(const std::string& sections)
  {
    set("BLL_CONFIG", "config.xml",
        "<?xml version=\"1.0\"?>\n<board_config><BLL>" + sections + "</BLL></board_config>");
  }
  // One section that starts each of them.
  void configureToStart(const names_t& names)
  {
    std::string rows;
    for (const std::string& name : names)
      rows += "<BLE Name='" + name + "' Load='static' Start='true'/>";
    configure("<BOARD Id='all_boards'>" + rows + "</BOARD>");
  }
  BLLManager& manager()
  {
    if (!made)
      made = std::make_unique<BLLManager>();
    return *made;
  }
  entity_t& add(const std::string& name, std::list<std::string> needs = {})
  {
    entities.push_back(std::make_unique<entity_t>(name, calls, std::move(needs)));
    EXPECT_TRUE(manager().registerEntity(*entities.back()));
    return *entities.back();
  }
  // What the framework log has written since the last time, without the stamps.
  static names_t logged()
  {
    names_t texts;
    for (const syslog_line& line : syslog_take())
      texts.push_back(line.text.substr(line.text.find("] ") + 2));
    return texts;
  }
  // The same as one text, the priority before each line, which ends in a bar.
  static std::string told()
  {
    std::string all;
    for (const syslog_line& line : syslog_take())
      all += std::to_string(line.priority) + " " +
             line.text.substr(line.text.find("] ") + 2, line.text.size() - 1 - line.text.find("] ") - 2) + "|\n";
    return all;
  }
  static void logEverything() { singleton<Log>::instance().setLogLevel(static_cast<LogImpl::logLevel_t>(4)); }

  const own_folder own;
  const std::string& folder = own.path;
  names_t calls;
  std::vector<std::unique_ptr<entity_t>> entities;
  std::unique_ptr<BLLManager> made;
};

}  // namespace manager_test

#endif
