#include "rte/BLL/core/log.h"

#include "base/system_log.h"
#include "rte/BLL/core/sys_log.h"
#include <algorithm>
#include <syslog.h>
#include <unistd.h>

namespace {

using logGuard_t = checked_guard<checked<boost::mutex>>;

constexpr size_t longestLine = 999;
constexpr size_t pieceSize = 1000;

std::atomic<uint64_t> nextLogSerial = 1;

const char* levelWord(int level)
{
  switch (level) {
  case LogImpl::critical:
    return "Critical(";
  case LogImpl::warning:
    return "Warning(";
  case LogImpl::notice:
    return "Notice(";
  case LogImpl::debug:
    return "Debug(";
  default:
    return "unknown(";
  }
}

int priorityOf(int32_t level)
{
  switch (level) {
  case LogImpl::warning:
    return LOG_WARNING;
  case LogImpl::notice:
    return LOG_NOTICE;
  case LogImpl::debug:
    return LOG_DEBUG;
  default:
    return LOG_CRIT;
  }
}

// syslog daemons show a control character as an escape, so tabs are written out.
std::string withoutTabs(const std::string& text)
{
  std::string result;
  result.reserve(text.size());
  for (const char character : text)
    if (character == '\t')
      result.append(4, ' ');
    else
      result.push_back(character);
  return result;
}

}  // namespace

// What a thread remembers of its entry, so that a message that is dropped takes no lock and searches nothing. Entries
// are never removed, and only their own thread uses them after it made them.
struct Log::cache_t {
  uint64_t serial = 0;
  LogImpl::logData_t* data = nullptr;
  int32_t msgLevel = 0;
};

constinit thread_local Log::cache_t Log::cache_{};

Log::Log() : serial_(nextLogSerial++) {}

void Log::reset(LogImpl* backEnd)
{
  const logGuard_t guard(mutex_);
  backEnd_ = backEnd;
}

void Log::setLogLevel(LogImpl::logLevel_t level)
{
  if (!backEnd_)
    return;
  const logGuard_t guard(mutex_);
  threshold_ = level;
}

void Log::setMsgLevel(LogImpl::logLevel_t level)
{
  if (!backEnd_)
    return;
  const logGuard_t guard(mutex_);
  LogImpl::logData_t& data = ownData();
  data.msgLevel = overridden_ ? overrideLevel_ : static_cast<int32_t>(level);
  cache_.msgLevel = data.msgLevel;
}

void Log::setDebugLevel(std::ostringstream* out, LogImpl::logLevel_t level, bool enabled)
{
  if (!backEnd_)
    return;
  const logGuard_t guard(mutex_);
  overridden_ = enabled;
  if (enabled)
    overrideLevel_ = level;
  if (!out)
    return;
  if (enabled)
    *out << "Debug level set to " << levelWord(level) << static_cast<int>(level) << ")\n";
  else
    *out << "Debug level disabled\n";
}

Log& Log::write(const std::string& text)
{
  writeImpl(text);
  return *this;
}

Log& Log::write(const char* text)
{
  writeImpl(text ? std::string_view(text) : std::string_view());
  return *this;
}

Log& Log::write(int number)
{
  if (passes())
    writeImpl(std::to_string(number));
  return *this;
}

void Log::writeImpl(std::string_view text)
{
  if (!passes())
    return;
  const logGuard_t guard(mutex_);
  LogImpl::logData_t& data = ownData();
  if (data.msgLevel >= threshold_ || !backEnd_)
    return;
  if (data.kernelThreadId == 0)
    data.kernelThreadId = gettid();
  if (data.buffer.empty())
    ThreadStamp(data);
  for (size_t end; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1))
    appendLine(data, text.substr(0, end + 1));
  // A longer text without a newline is taken piece by piece, as if it had been written so.
  do {
    const size_t size = std::min(text.size(), pieceSize);
    appendTail(data, text.substr(0, size));
    text.remove_prefix(size);
  } while (!text.empty());
}

void Log::ThreadStamp(LogImpl::logData_t& data)
{
  data.buffer += "[" + std::to_string(data.kernelThreadId) + "] ";
}

// False if the calling thread's text would be dropped. A thread that has not met this logger yet writes at level 0.
bool Log::passes()
{
  if (!backEnd_)
    return false;
  return (cache_.serial == serial_ ? cache_.msgLevel : 0) < threshold_;
}

// The calling thread's entry; the log lock is held. A thread that comes to it for the first time starts anew, also
// where the thread library gave it the identity of one that has ended.
LogImpl::logData_t& Log::ownData()
{
  if (cache_.serial != serial_) {
    LogImpl::logData_t& data = threads_[boost::this_thread::get_id()];
    data = LogImpl::logData_t();
    cache_ = {serial_, &data, 0};
  }
  return *cache_.data;
}

void Log::appendLine(LogImpl::logData_t& data, std::string_view line)
{
  data.buffer += line;
  handOver(data);
}

void Log::appendTail(LogImpl::logData_t& data, std::string_view tail)
{
  data.buffer += tail;
  if (data.buffer.size() <= longestLine)
    return;
  std::ostringstream identity;
  identity << boost::this_thread::get_id();
  data.buffer += " [--- Log has flushed the buffer for thread " + identity.str() + "]\n";
  handOver(data);
}

void Log::handOver(LogImpl::logData_t& data)
{
  backEnd_.load()->writeMessageToLog(data);
  data.buffer.clear();
  ThreadStamp(data);
}

void SysLog::writeMessageToLog(const logData_t& data)
{
  if (data.buffer.empty())
    return;
  if (data.buffer.find('\t') == std::string::npos)
    system_log(priorityOf(data.msgLevel), data.buffer.c_str());
  else
    system_log(priorityOf(data.msgLevel), withoutTabs(data.buffer).c_str());
}
