// Named switches that tell what the board can do.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/manager/board.h"
#include "rte/BLL/core/manager/log_line.h"

#include "platform/nodeinfo/nodeinfo.h"

void BLLManager::loadBllFeatures()
{
  const auto active = [](int capability) { return isActive(capability) != 0; };
  const std::string board = getBoardDescription();
  const std::string_view type = boardTypeOf(board);
  const bool onuBasedStates = active(nodeCapability::onuBasedStates);

  const std::lock_guard guard(mutex_);
  features_ = {
      {"httpserver", active(nodeCapability::httpServer)},
      {"oltintervalstat", true},
      {"onubasedoltstates", onuBasedStates},
      {"legacyalarm", !onuBasedStates},
      {"sfpuplinkspeed", onuBasedStates},
      {"dsfec", active(nodeCapability::downstreamFec) || onuBasedStates},
      {"oltsfpmode", false},
      {"uplinksfpwhitelist", type == "BT9" || type == "BTA"},
  };
  if (board.empty())
    logAt(LogImpl::critical) << "BLLManager::loadBllFeatures: Cannot read board_id.\n";
  else
    features_["lagmembership"] = findBoardType(board) != nullptr;
}

bool BLLManager::isFeatureSupported(const std::string& name) const
{
  const std::lock_guard guard(mutex_);
  const auto feature = features_.find(name);
  return feature == features_.end() || feature->second;
}

void BLLManager::setBllFeature(const std::string& name, bool value, std::ostream& out)
{
  {
    const std::lock_guard guard(mutex_);
    features_[name] = value;
  }
  out << "Setting BLL feature '" << name << "' to " << (value ? "True" : "False") << "\n";
}

void BLLManager::dumpFeatureSupport(std::ostream& out) const
{
  const std::lock_guard guard(mutex_);
  out << "Supported features:\n------------------\n";
  for (const auto& [name, value] : features_)
    out << " " << name << ": " << (value ? "true" : "false") << "\n";
}
