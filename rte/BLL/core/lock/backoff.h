// How often the failures of one lock are reported in full. Not installed.
#pragma once

#include "rte/BLL/core/recursive_shared_mutex.h"
#include <cstdint>
#include <mutex>
#include <optional>

// The same failure is told again only after a while, and each time after twice as long; a different one at once.
class lockBackoff_t {
public:
  enum class verdict_t { report, stillActive };

  // Decides on `error` at `now` (seconds of any steady clock), and with `report` remembers it as the last one reported.
  // Any thread; of two that fail alike at the same time one is told to report.
  verdict_t judge(const recursiveSharedMutex_t::lockError_t& error, int64_t now);

private:
  std::mutex mutex_;
  std::optional<recursiveSharedMutex_t::lockError_t> last_;
  int64_t lastReported_ = 0;
  int64_t interval_s_ = 0;
};

// Same requester, owner and kind, and the same rows that hold. Who else waits, and since when, does not matter.
bool sameLockError(const recursiveSharedMutex_t::lockError_t& a, const recursiveSharedMutex_t::lockError_t& b);
