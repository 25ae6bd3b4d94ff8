#include "pppoeia/log.h"

#include "base/system_log.h"
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

std::atomic<int32_t> pppoeia_log_level{log_info};

namespace {

constexpr char prefix[] = "[PPPoE] ";
constexpr size_t prefix_size = sizeof prefix - 1;

}  // namespace

void pppoeia_log(int level, const char* format, ...)
{
  if (!log_enabled(level))
    return;
  char text[prefix_size + 1000];
  memcpy(text, prefix, prefix_size);
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text + prefix_size, sizeof text - prefix_size, format, arguments);
  va_end(arguments);
  const int priority = std::min(level, static_cast<int>(log_info));
  if (length < static_cast<int>(sizeof text - prefix_size)) {
    system_log(priority, text);
    return;
  }
  const size_t size = static_cast<size_t>(length) + 1;
  const std::unique_ptr<char[]> whole(new (std::nothrow) char[prefix_size + size]);
  if (!whole)
    return;
  memcpy(whole.get(), prefix, prefix_size);
  va_start(arguments, format);
  vsnprintf(whole.get() + prefix_size, size, format, arguments);
  va_end(arguments);
  system_log(priority, whole.get());
}
