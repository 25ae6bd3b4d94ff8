#include "tests/support/syslog_capture.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string_view>
#include <syslog.h>
#include <utility>

namespace {

std::mutex& guard()
{
  static std::mutex& mutex = *new std::mutex;  // outlives every thread that logs
  return mutex;
}

std::vector<syslog_line>& lines()
{
  static auto& kept = *new std::vector<syslog_line>;
  return kept;
}

bool keeping = true;

void keep_line(int priority, const char* format, va_list arguments)
{
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(static_cast<size_t>(length) + 1, '\0');
  vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();
  const std::lock_guard lock(guard());
  if (keeping)
    lines().push_back({priority, std::move(text)});
}

}  // namespace

extern "C" {

void syslog(int priority, const char* format, ...)
{
  va_list arguments;
  va_start(arguments, format);
  keep_line(priority, format, arguments);
  va_end(arguments);
}

void vsyslog(int priority, const char* format, va_list arguments)
{
  keep_line(priority, format, arguments);
}

// Of a build with _FORTIFY_SOURCE, the same.
void __syslog_chk(int priority, int, const char* format, ...)
{
  va_list arguments;
  va_start(arguments, format);
  keep_line(priority, format, arguments);
  va_end(arguments);
}

void __vsyslog_chk(int priority, int, const char* format, va_list arguments)
{
  keep_line(priority, format, arguments);
}

}  // extern "C"

std::vector<syslog_line> syslog_take()
{
  const std::lock_guard lock(guard());
  return std::exchange(lines(), {});
}

std::vector<std::string> syslog_take_texts()
{
  constexpr std::string_view prefix = "[PPPoE] ";
  std::vector<std::string> texts;
  for (const syslog_line& line : syslog_take())
    texts.push_back(line.text.starts_with(prefix) ? line.text.substr(prefix.size()) : line.text);
  return texts;
}

void syslog_keep(bool keep)
{
  const std::lock_guard lock(guard());
  keeping = keep;
  lines().clear();
}
