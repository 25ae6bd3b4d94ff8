// An entity that needs another one to be up, answers operators' messages and can be made to fail.
#include "rte/BLL/core/bl_entity.h"
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/log.h"

#include <cstdlib>

namespace {

class depends_t : public BLEntity {
public:
  depends_t() : BLEntity("depends")
  {
    BLLManager& manager = singleton<BLLManager>::instance();
    manager.registerEntity(*this);
    manager.externalMessageSubscribers.emplace_back([this](const std::string& message, const std::string&,
                                                           std::ostringstream& reply,
                                                           const std::string&) { onMessage(message, reply); });
  }

  void applyConfiguration(boost::shared_ptr<Storage::Setting>) override {}
  void saveConfiguration(boost::shared_ptr<Storage::Setting> setting) const override
  {
    setting->addSubSetting("Starts")->setValue("Count", std::to_string(starts_));
  }
  // Starting fails, to show what the framework does then, while DEPENDS_FAILS is set.
  bool start() override
  {
    if (std::getenv("DEPENDS_FAILS"))
      return false;
    ++starts_;
    say("depends is up, after hello.");
    return true;
  }
  bool applyDefaultSettings() override { return true; }
  bool stop() override
  {
    say("depends is down, before hello.");
    return true;
  }
  void getDependences(std::list<std::string>& dependences) override { dependences.push_back("hello"); }

private:
  // Runs on the thread of the framework's RPC service: what it shares with the entity is read under the framework lock.
  void onMessage(const std::string& message, std::ostream& reply) const
  {
    if (message != "depends")
      return;
    const BLLManager::sharedLock_t guard;
    if (guard.isLocked())
      reply << "started " << starts_ << " times\n";
  }

  static void say(const std::string& text)
  {
    Log& log = singleton<Log>::instance();
    log.setMsgLevel(LogImpl::notice);
    log << text << "\n";
  }

  int starts_ = 0;
};

depends_t depends;

}  // namespace
