// The board as the framework knows it: who it is, which entities its configuration file has it run, what it can do.
//
// Read once, when the manager is made; what cannot be read is logged and lived with. Every function may be called by
// any thread, from whatever the manager calls too: nothing is logged or written while the mutex is held.
#pragma once

#include "base/thread_annotations.h"
#include "rte/BLL/core/ble_info.h"
#include "rte/BLL/core/setting.h"
#include <boost/shared_ptr.hpp>
#include <map>
#include <ostream>
#include <string>
#include <vector>

class board_t {
public:
  board_t() = default;
  board_t(const board_t&) = delete;
  board_t& operator=(const board_t&) = delete;

  // Takes over the sections of the configuration file that apply to this board.
  void readConfiguration();
  // Sets what this board and its node can do.
  void readFeatures();

  // These stand behind the manager's functions of the same meaning: bll_manager.h.
  std::string description();
  std::vector<std::string> entityNames() const;
  bool starts(const std::string& entity) const;
  bool disable(const std::string& entity);
  bool supports(const std::string& feature) const;
  void setFeature(const std::string& feature, bool value, std::ostream& out);
  void dumpFeatures(std::ostream& out) const;

  // The libraries that the configuration names, in the order of the file, duplicates kept; and where one is.
  std::vector<std::string> libraries() const;
  static std::string libraryPath(const std::string& library);

private:
  void takeOver(const boost::shared_ptr<Storage::Setting>& section);

  mutable checked_mutex mutex_;
  std::string description_ TSA_GUARDED_BY(mutex_);  // empty until it could be read
  std::map<std::string, bleInfo_t> configuration_ TSA_GUARDED_BY(mutex_);
  std::vector<std::string> libraries_ TSA_GUARDED_BY(mutex_);
  std::map<std::string, bool> features_ TSA_GUARDED_BY(mutex_);
};
