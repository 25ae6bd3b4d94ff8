// The smallest entity: it says hello when it starts, and keeps whom it greets in the configuration.
#include "rte/BLL/core/bl_entity.h"
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/log.h"

namespace {

class hello_t : public BLEntity {
public:
  hello_t() : BLEntity("hello") { singleton<BLLManager>::instance().registerEntity(*this); }

  void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override
  {
    if (setting)
      whom_ = setting->getValue("Whom");
  }
  void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override
  {
    setting->setValue("Whom", whom_);
  }
  bool start() override
  {
    say("Hello, " + whom_ + ".");
    return true;
  }
  bool applyDefaultSettings() override { return true; }
  bool stop() override
  {
    say("Good-bye, " + whom_ + ".");
    return true;
  }
  void getDependences(std::list<std::string>&) override {}

private:
  static void say(const std::string& text)
  {
    Log& log = singleton<Log>::instance();
    log.setMsgLevel(LogImpl::notice);
    log << text << "\n";
  }

  std::string whom_ = "world";
};

hello_t hello;  // made, and so registered, when the library is loaded

}  // namespace
