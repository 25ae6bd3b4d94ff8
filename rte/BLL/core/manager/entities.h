// The entities that have registered, and the order in which they are started.
//
// Every function may be called by any thread. No entity is called while the mutex is held: one may call the manager.
#pragma once

#include "base/thread_annotations.h"
#include "rte/BLL/core/bl_entity.h"
#include <list>
#include <map>
#include <string>
#include <vector>

class entityTable_t {
public:
  struct row_t {
    std::string name;
    BLEntity* entity;  // not owned; lives as long as the process
  };

  entityTable_t() = default;
  entityTable_t(const entityTable_t&) = delete;
  entityTable_t& operator=(const entityTable_t&) = delete;

  // Enters the entity, in the place of one of the same name.
  void enter(BLEntity& entity);
  // Stands behind BLLManager::resolveDependences().
  bool resolveDependences(std::list<std::string>& order) const;
  // The order with the entities themselves; empty for a cycle.
  std::vector<row_t> startOrder() const;

private:
  mutable checked_mutex mutex_;
  std::map<std::string, BLEntity*> entities_ TSA_GUARDED_BY(mutex_);
};
