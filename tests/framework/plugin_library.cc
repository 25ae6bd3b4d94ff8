// A plug-in library that is right, or wrong in the one way that its target defines.
#include "rte/BLL/core/bll_manager.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

extern "C" int nobodyHasThisData;
extern "C" void nobodyHasThisFunction();

namespace {

class plugin_t : public BLEntity {
public:
  plugin_t() : BLEntity("good")
  {
#if defined(THROWS)
    throw std::runtime_error("no such device");
#elif defined(EXITS)
    std::exit(0);
#elif defined(HANGS)
    for (;;)
      pause();
#elif defined(LACKS_DATA)
    nobodyHasThisData = 1;
#elif defined(LACKS_FUNCTION)
    nobodyHasThisFunction();
#endif
    singleton<BLLManager>::instance().registerEntity(*this);
  }
  void applyConfiguration(boost::shared_ptr<Storage::Setting>) override {}
  void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override
  {
    setting->setValue("of", name);
  }
  bool start() override
  {
    const char* const saved = std::getenv("BLL_SAVED");
    std::fprintf(stderr, "saved before: <%s>\n", saved ? saved : "");
    return !std::getenv("PLUGIN_REFUSES");
  }
  bool applyDefaultSettings() override
  {
    return true;
  }
  bool stop() override
  {
    return true;
  }
  void getDependences(std::list<std::string>&) override {}
};

plugin_t plugin;

}  // namespace
