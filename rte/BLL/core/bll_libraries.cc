// Opening the plug-in libraries.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/bll_paths.h"
#include "rte/BLL/core/manager_log.h"

#include <dlfcn.h>

namespace {

// The entities of a library come to life while it is opened: what their constructors throw is the library's failure.
// Libraries stay open for the life of the process, as their entities do.
bool openLibrary(const std::string& path, std::string& reason)
{
  try {
    if (dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL))
      return true;
    const char* const text = dlerror();
    reason = text ? text : "unknown reason";
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& error) {
    reason = std::string("its constructors have thrown: ") + error.what();
  } catch (...) {
    reason = "its constructors have thrown";
  }
  return false;
}

}  // namespace

int BLLManager::loadDynamicLibs()
{
  std::deque<std::string> libraries;
  {
    const std::lock_guard guard(mutex_);
    libraries = libraries_;
  }
  for (const std::string& name : libraries) {
    const std::string path = libraryPath(name);
    std::string reason;
    if (void* const resident = dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL | RTLD_NOLOAD)) {
      dlclose(resident);  // only asked: the library is as often open as before
      logAt(LogImpl::warning) << "BLLManager, library <" << path << "> has been already loaded!\n";
    } else if (openLibrary(path, reason)) {
      logAt(LogImpl::notice) << "BLLManager, library <" << path << "> successfully loaded.\n";
    } else {
      logAt(LogImpl::critical) << "BLLManager, Can not load library<" << path << ">!\n" << reason << "\n";
    }
  }
  return 0;
}
