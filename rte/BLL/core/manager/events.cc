// What the manager tells its subscribers.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/manager/log_line.h"

bool BLLManager::systemReloadRequest(const std::string& message)
{
  logAt(LogImpl::warning) << "BLLManager::systemReloadRequest, msg: " << message << "\n";
  const auto subscribers = reloadRequestSubscribers;
  for (const auto& subscriber : subscribers)
    if (!subscriber(true)) {
      logAt(LogImpl::warning) << "BLLManager::systemReloadRequest, reload request denied\n";
      return false;
    }
  return true;
}

bool BLLManager::postConfigurationApplied(int code)
{
  const exclusiveLock_t guard;
  if (!guard.isLocked())
    return false;
  logAt(LogImpl::debug) << "*** EVENT: <configurationApplied>, notify all subscribers.\n";
  const auto subscribers = configurationAppliedSubscribers;
  for (const auto& subscriber : subscribers)
    subscriber(code);
  return true;
}

bool BLLManager::postPreConfigurationApplying()
{
  const exclusiveLock_t guard;
  if (!guard.isLocked())
    return false;
  logAt(LogImpl::debug) << "*** EVENT: <preConfigurationApplying>, notify all subscribers.\n";
  const auto subscribers = preConfigurationApplyingSubscribers;
  for (const auto& subscriber : subscribers)
    subscriber();
  return true;
}
