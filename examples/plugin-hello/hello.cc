// The smallest entity that does something: it greets whom the message "greet NAME" has told it, and remembers.
#include "rte/BLL/core/bl_entity.h"
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/log.h"
#include "rte/BLL/core/saved_settings.h"

namespace {

class hello_t : public BLEntity {
public:
  hello_t() : BLEntity("hello")
  {
    BLLManager& manager = singleton<BLLManager>::instance();
    manager.registerEntity(*this);
    manager.externalMessageSubscribers.emplace_back(
        [this](const std::string& message, const std::string& value, std::ostringstream& reply, const std::string&) {
          if (message == "greet")
            greet(value, reply);
        });
  }

  void applyConfiguration(boost::shared_ptr<Storage::Setting> setting) override
  {
    Storage::StorageMng store;  // lives as long as its settings are used
    if (!setting)
      setting = savedSetting(store, name);
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
  // Called by the thread that serves messages: the lock keeps it apart from the operations above.
  void greet(const std::string& whom, std::ostream& reply)
  {
    const BLLManager::exclusiveLock_t guard;
    if (!guard.isLocked())
      return;
    whom_ = whom;
    reply << "Nice to meet you, " << whom_ << ".\n";
  }
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
