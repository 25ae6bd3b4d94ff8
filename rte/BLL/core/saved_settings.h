// What the host's entities saved when it last ended.
//
// The manager hands every entity an empty handle, so an entity that keeps settings asks here, in its
// applyConfiguration(). bllhost names the file in the environment variable BLL_SAVED of its own process: that of
// --load, or of --save once there is one. Another host may do the same.
#ifndef RTE_BLL_CORE_SAVED_SETTINGS_H
#define RTE_BLL_CORE_SAVED_SETTINGS_H

#include "rte/BLL/core/storage_mng.h"
#include <cstdlib>
#include <string>

// The entity's own element as its saveConfiguration() wrote it. Empty if there is no file, if it cannot be read (told
// on standard output) or if it has nothing of the entity. Good as long as `store` lives and loads nothing else.
inline boost::shared_ptr<Storage::Setting> savedSetting(Storage::StorageMng& store, const std::string& entity)
{
  const char* const file = std::getenv("BLL_SAVED");
  return file && store.load(file) ? store.getRoot(entity) : boost::shared_ptr<Storage::Setting>();
}

#endif
