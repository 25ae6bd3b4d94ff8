// The manager's making, its board and the small queries.
#include "rte/BLL/core/bll_manager.h"

#include "rte/BLL/core/manager/log_line.h"
#include "rte/BLL/core/manager/paths.h"
#include "rte/BLL/core/rpc_bll_service.h"
#include "rte/BLL/core/sys_log.h"
#include "rte/BLL/core/thread_registry.h"
#include <cstdlib>
#include <fstream>
#include <syslog.h>

namespace {

constexpr char identity[] = "BLLManager_mng";

void installFrameworkLog()
{
  static SysLog* const backEnd = new SysLog;  // logged through until the process is gone
  Log& log = singleton<Log>::instance();
  log.setLogLevel(LogImpl::debug);
  openlog(identity, std::getenv("BLL_LOG_STDERR") ? LOG_PERROR : 0, LOG_USER);
  log.reset(backEnd);
}

}  // namespace

BLLManager::BLLManager() : rpcProxy_(rpcBllmanagerStart, identity, RPCProxy::then_t::serve)
{
  installFrameworkLog();
  loadBllConfig();
  loadBllFeatures();
}

void BLLManager::init()
{
  externalMessageSubscribers.emplace_back([this](const std::string& message, const std::string& value,
                                                 std::ostringstream& reply,
                                                 const std::string&) { onExternalMessage(message, value, reply); });
  if (!rpcProxy_.start())
    logAt(LogImpl::warning) << "Error: RPC Proxy has not been started.\n";
}

std::string BLLManager::getBoardDescription()
{
  const std::lock_guard guard(mutex_);
  if (!boardDescription_.empty())
    return boardDescription_;
  const std::string path = boardIdentityPath();
  std::ifstream file(path);
  if (!file) {
    logAt(LogImpl::critical) << "BLLManager, Can not find board description, open file <" << path << "> failed.\n";
    return {};
  }
  std::getline(file, boardDescription_);
  while (!boardDescription_.empty() && boardDescription_.back() == '\r')
    boardDescription_.pop_back();
  if (boardDescription_.empty())
    logAt(LogImpl::critical) << "BLLManager, Can not find board description, buffer is empty.\n";
  else
    logAt(LogImpl::notice) << "BLLManager, running on board <" << boardDescription_ << ">.\n";
  return boardDescription_;
}

std::vector<std::string> BLLManager::getActiveBLEsList() const
{
  const std::lock_guard guard(mutex_);
  std::vector<std::string> names;
  for (const auto& [name, info] : configuration_)
    names.push_back(name);
  return names;
}

bool BLLManager::checkBllEntity(const std::string& name) const
{
  const std::lock_guard guard(mutex_);
  const auto record = configuration_.find(name);
  return record != configuration_.end() && record->second.start;
}

bool BLLManager::disableBLLEntity(const std::string& name)
{
  const std::lock_guard guard(mutex_);
  const auto record = configuration_.find(name);
  if (record == configuration_.end())
    return false;
  record->second.start = false;
  return true;
}

bool BLLManager::enableBLLEntity(const std::string&)
{
  return false;
}

void BLLManager::registerThread(const std::string& name)
{
  threadRegistry_t::instance().registerThread(name);
}

void BLLManager::unregisterThread()
{
  threadRegistry_t::instance().unregisterThread();
}

void BLLManager::showThreads(std::ostream& out) const
{
  threadRegistry_t::instance().showThreads(out);
}
