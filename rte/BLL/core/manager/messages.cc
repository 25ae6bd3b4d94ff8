// What passes through the manager: operators' messages, those that it understands itself and the way of a reply to the
// operator; and events, from whoever posts them to the subscribers.
#include "rte/BLL/core/manager/messages.h"

#include "rte/BLL/core/manager/log_line.h"
#include "rte/BLL/core/manager/parts.h"
#include "rte/BLL/core/self_debugger.h"
#include "rte/BLL/util/measure_time.h"

#include "base/terminal.h"
#include "platform/bridge_plugin/kvbridge.h"
#include <boost/algorithm/string/trim.hpp>
#include <cstdio>
#include <iostream>

namespace {

void setLockDebug(const std::string& value)
{
  if (value == "on" || value == "off")
    BLLManager::lockDebug = value == "on";
  else
    logAt(LogImpl::warning) << "Warning: BLL Manager has received the message <lockDebug> with wrong value <" << value
                            << ">.\n";
}

void switchBacktraceReports(const std::string& message, const std::string& value)
{
  SelfDebugger& debugger = singleton<SelfDebugger>::instance();
  if (value == "on") {
    if (!debugger.enableManualReports())
      logAt(LogImpl::warning) << "bllmsg: Error enabling manual debug reports.\n";
  } else if (value == "off") {
    if (!debugger.disableManualReports())
      logAt(LogImpl::warning) << "bllmsg: Error disabling manual debug reports.\n";
  } else {
    logAt(LogImpl::warning) << "bllmsg: invalid message: " << message << " " << value << "\n";
  }
}

// Throws what std::stoi throws, before anything is changed.
void setLockingPeriod(const std::string& value)
{
  const int seconds = std::stoi(value);
  std::printf("BLLManager::onExternalMessage: set lock_t::lockingPeriod=%d\n", seconds);
  std::fflush(stdout);
  BLLManager::lock_t::lockingPeriod = boost::posix_time::microseconds(int64_t{seconds} * 1'000'000);
}

void setLogOverride(const std::string& value, std::ostringstream& out)
{
  LogImpl::logLevel_t level = LogImpl::debug;
  if (value == "critical")
    level = LogImpl::critical;
  else if (value == "warning")
    level = LogImpl::warning;
  else if (value == "notice")
    level = LogImpl::notice;
  singleton<Log>::instance().setDebugLevel(&out, level, value != "off");
}

void toggleDurations(std::atomic<bool>& wanted)
{
  const bool now = !wanted;
  wanted = now;
  std::printf("BLLManager::onExternalMessage: Set BLLManager::cpuUsageDebug to %d\n", now);
  std::fflush(stdout);
  logAt(LogImpl::notice) << "BLLManager::onExternalMessage: Set BLLManager::cpuUsageDebug to "
                         << (now ? "True" : "False");
}

void setFeature(BLLManager& manager, const std::string& value, std::ostream& out)
{
  const size_t equals = value.find('=');
  if (equals == std::string::npos)
    return;
  const std::string name = boost::algorithm::trim_copy(value.substr(0, equals));
  manager.setBllFeature(name, boost::algorithm::trim_copy(value.substr(equals + 1)) != "0", out);
}

}  // namespace

bool BLLManager::postExternalMessage(const std::string& message, const std::string& value, const std::string& tty)
{
  logAt(LogImpl::debug) << "*** EVENT: <externalMessage>: notify all subscribers.\n";
  std::ostringstream reply;
  parts_->subscribers.message(message, value, reply, tty);
  const std::string text = reply.str();
  if (text.empty())
    return false;
  if (tty.empty()) {
    std::cout << text << std::flush;
    return false;
  }
  const char* const error = terminal_write(tty, text);
  if (error)
    logAt(LogImpl::critical) << error << tty << "\n";
  return error != nullptr;
}

void BLLManager::onExternalMessage(const std::string& message, const std::string& value, std::ostringstream& out)
{
  const bllCommand_t* const command = findBllCommand(message);
  if (!command)
    return;
  switch (command->id) {
  case bllCommand_t::id_t::lockDebug:
    return setLockDebug(value);
  case bllCommand_t::id_t::threads:
    return value == "show" ? showThreads(out) : void();
  case bllCommand_t::id_t::reportBacktraces:
    return switchBacktraceReports(message, value);
  case bllCommand_t::id_t::lockHolders:
    return value == "show" ? getLockHoldersDump(out, lock.getStateMap()) : void();
  case bllCommand_t::id_t::scripterDebugTime:
    return toggleDurations(parts_->durationsWanted);
  case bllCommand_t::id_t::deadlockTest:
    return bllDeadlockTest(value == "start", out);
  case bllCommand_t::id_t::lockingPeriod:
    return setLockingPeriod(value);
  case bllCommand_t::id_t::featureSupport:
    return dumpFeatureSupport(out);
  case bllCommand_t::id_t::measureTime:
    return measureTimeExtMsg(message, value, out);
  case bllCommand_t::id_t::debugLevel:
    return setLogOverride(value, out);
  case bllCommand_t::id_t::laInit:
    return kvbridge::lagTest(1);
  case bllCommand_t::id_t::laAddPorts:
    return kvbridge::lagTest(2);
  case bllCommand_t::id_t::laPortsUp:
    return kvbridge::lagTest(3);
  case bllCommand_t::id_t::laShow:
    return kvbridge::lagTest(4);
  case bllCommand_t::id_t::laDebugMask:
    return kvbridge::issLaDebugMask(value == "pdu_config" ? 3 : 1);
  case bllCommand_t::id_t::setFeature:
    return setFeature(*this, value, out);
  }
}

bool BLLManager::systemReloadRequest(const std::string& message)
{
  logAt(LogImpl::warning) << "BLLManager::systemReloadRequest, msg: " << message << "\n";
  if (parts_->subscribers.agreeToReload())
    return true;
  logAt(LogImpl::warning) << "BLLManager::systemReloadRequest, reload request denied\n";
  return false;
}

bool BLLManager::postConfigurationApplied(int code)
{
  const exclusiveLock_t guard;
  if (!guard.isLocked())
    return false;
  logAt(LogImpl::debug) << "*** EVENT: <configurationApplied>, notify all subscribers.\n";
  parts_->subscribers.configurationApplied(code);
  return true;
}

bool BLLManager::postPreConfigurationApplying()
{
  const exclusiveLock_t guard;
  if (!guard.isLocked())
    return false;
  logAt(LogImpl::debug) << "*** EVENT: <preConfigurationApplying>, notify all subscribers.\n";
  parts_->subscribers.preConfigurationApplying();
  return true;
}
