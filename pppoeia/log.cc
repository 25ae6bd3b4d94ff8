#include "pppoeia/log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>
#include <syslog.h>

std::atomic<int32_t> pppoeia_log_level{log_info};

namespace {

void send_to_syslog(int level, const char* text)
{
  syslog(std::min(level, static_cast<int>(log_info)), "%s %s", "[PPPoE]", text);
}

}  // namespace

void pppoeia_log(int level, const char* format, ...)
{
  if (!log_enabled(level))
    return;
  char text[1000];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (length < static_cast<int>(sizeof text)) {
    send_to_syslog(level, text);
    return;
  }
  const size_t size = static_cast<size_t>(length) + 1;
  const std::unique_ptr<char[]> whole(new (std::nothrow) char[size]);
  if (!whole)
    return;
  va_start(arguments, format);
  vsnprintf(whole.get(), size, format, arguments);
  va_end(arguments);
  send_to_syslog(level, whole.get());
}
