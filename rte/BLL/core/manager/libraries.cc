// Opening the plug-in libraries.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/framework_abi.h"
#include "rte/BLL/core/manager/library_opening.h"
#include "rte/BLL/core/manager/log_line.h"
#include "rte/BLL/core/manager/paths.h"

#include <dlfcn.h>

const char bll_framework_abi_2 = 0;

namespace {

// Empty, or why the library is not open. Libraries stay open for the life of the process, as their entities do.
std::string openLibrary(const std::string& path)
{
  const libraryOpening_t opening(path, libraryTimeLimit());
  if (dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL))
    return {};
  const char* const text = dlerror();
  return text ? text : "unknown reason";
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
    if (void* const resident = dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL | RTLD_NOLOAD)) {
      dlclose(resident);  // only asked: the library is as often open as before
      logAt(LogImpl::warning) << "BLLManager, library <" << path << "> has been already loaded!\n";
      continue;
    }
    if (const std::string reason = openLibrary(path); reason.empty())
      logAt(LogImpl::notice) << "BLLManager, library <" << path << "> successfully loaded.\n";
    else
      logAt(LogImpl::critical) << "BLLManager, Can not load library<" << path << ">!\n" << reason << "\n";
  }
  return 0;
}
