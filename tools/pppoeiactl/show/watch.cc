#include "tools/pppoeiactl/show/watch.h"

#include <cstdio>

void watch::round(clock::time_point now)
{
  seconds_ = at_ == clock::time_point() ? 0 : std::chrono::duration<double>(now - at_).count();
  at_ = now;
  place_ = 0;
}

std::string watch::rate(const std::string& key, uint64_t value)
{
  const auto [at, fresh] = last_.emplace(key, value);
  const uint64_t before = at->second;
  at->second = value;
  if (fresh || value <= before || seconds_ <= 0)  // less: it was reset
    return {};
  char text[32];
  std::snprintf(text, sizeof text, " +%.3g/s", static_cast<double>(value - before) / seconds_);
  return text;
}
