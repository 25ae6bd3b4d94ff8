// Opening the plug-in libraries.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/bll_paths.h"
#include "rte/BLL/core/loader_lock.h"
#include "rte/BLL/core/manager_log.h"

#include <dlfcn.h>

// What libraries enter in the manager while their constructors run.
struct BLLManager::entered_t {
  std::map<std::string, BLEntity*> entities;
  size_t externalMessage, prefixedMessage, reloadRequest, configurationApplied, preConfigurationApplying;
};

namespace {

// The C library declares that dlopen() does not throw, but the constructors of the library's objects may: called by its
// name, the compiler would leave out the catch.
void* (*volatile const openThrowing)(const char*, int) = dlopen;

constexpr char stuck[] = "; the loader stays locked, restart the process without it";

std::string thrownReason(const std::string& what)
{
  return "its constructors have thrown" + what + (releaseLoaderLock() ? "" : stuck);
}

// Empty, or why the library is not open. Libraries stay open for the life of the process, as their entities do.
std::string openLibrary(const std::string& path)
{
  try {
    if (openThrowing(path.c_str(), RTLD_LAZY | RTLD_GLOBAL))
      return {};
    const char* const text = dlerror();
    return text ? text : "unknown reason";
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& error) {
    return thrownReason(std::string(": ") + error.what());
  } catch (...) {
    return thrownReason("");
  }
}

}  // namespace

BLLManager::entered_t BLLManager::entered() const
{
  const std::lock_guard guard(mutex_);
  return {entities_,
          externalMessageSubscribers.size(),
          prefixedMessageSubscribers.size(),
          reloadRequestSubscribers.size(),
          configurationAppliedSubscribers.size(),
          preConfigurationApplyingSubscribers.size()};
}

// A constructor that throws takes its object along, which may have registered itself before.
void BLLManager::takeBackTo(const entered_t& before)
{
  const std::lock_guard guard(mutex_);
  entities_ = before.entities;
  externalMessageSubscribers.resize(before.externalMessage);
  prefixedMessageSubscribers.resize(before.prefixedMessage);
  reloadRequestSubscribers.resize(before.reloadRequest);
  configurationAppliedSubscribers.resize(before.configurationApplied);
  preConfigurationApplyingSubscribers.resize(before.preConfigurationApplying);
}

int BLLManager::loadDynamicLibs()
{
  std::deque<std::string> libraries;
  {
    const std::lock_guard guard(mutex_);
    libraries = libraries_;
  }
  for (const std::string& name : libraries) {
    const std::string path = libraryPath(name);
    if (void* const resident = dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL | RTLD_NOLOAD)) {
      dlclose(resident);  // only asked: the library is as often open as before
      logAt(LogImpl::warning) << "BLLManager, library <" << path << "> has been already loaded!\n";
      continue;
    }
    const entered_t before = entered();
    if (const std::string reason = openLibrary(path); reason.empty()) {
      logAt(LogImpl::notice) << "BLLManager, library <" << path << "> successfully loaded.\n";
    } else {
      takeBackTo(before);
      logAt(LogImpl::critical) << "BLLManager, Can not load library<" << path << ">!\n" << reason << "\n";
    }
  }
  return 0;
}
