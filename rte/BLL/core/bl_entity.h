// What every plug-in entity is: the base class that the manager starts, configures, saves and stops entities through.
//
// An entity is made by its library, normally as a static object, so that loading the library makes it; its constructor
// registers it: singleton<BLLManager>::instance().registerEntity(*this). The manager never owns or frees an entity. All
// operations are called by the thread that runs the manager's procedure, under the framework lock: exclusively held,
// but for saveConfiguration, which may be called with the lock held shared. What an operation throws counts as the
// answer false, and is logged.
#pragma once

#include "rte/BLL/core/framework_abi.h"
#include "rte/BLL/core/setting.h"
#include <boost/shared_ptr.hpp>
#include <list>
#include <string>
#include <utility>

class BLEntity {
public:
  // The first data member: the manager keys its tables by it, the board's configuration file names it. Fixed for life.
  const std::string name;

  explicit BLEntity(std::string entityName) : name(std::move(entityName)) {}
  BLEntity(const BLEntity&) = delete;
  BLEntity& operator=(const BLEntity&) = delete;

  // Takes over the entity's own element of a configuration. An empty handle: the built-in configuration applies.
  virtual void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) = 0;
  // Writes the entity's configuration into its own, empty element.
  virtual void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const = 0;
  // Brings the entity up, with everything it depends on running. False: it has failed, and is down.
  virtual bool start() = 0;
  // Called once after start() has succeeded, and again on request. False: failed; the entity is still up.
  virtual bool applyDefaultSettings() = 0;
  // Takes the entity down, while everything it depends on still runs. False: failed; stopping goes on regardless.
  virtual bool stop() = 0;
  // Appends the names of the entities that must be up before this one. Names that nobody registered are ignored.
  virtual void getDependences(std::list<std::string>& dependences) = 0;

  virtual ~BLEntity() = default;
};
