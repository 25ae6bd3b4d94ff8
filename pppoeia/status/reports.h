// Lines and dropped frames as JSON.
#ifndef PPPOEIA_STATUS_REPORTS_H
#define PPPOEIA_STATUS_REPORTS_H

#include "pppoeia/status/filter.h"
#include "pppoeia/status/http_server.h"

#include <memory>
#include <string>

// {"lines":[...]}, made while it is read: a full table takes tens of megabytes.
std::unique_ptr<http_body> lines_report(const filter& wanted);

// {"drops":[...]}: the last 1,024 of all bridges, oldest first.
std::string drops_report(const filter& wanted);

// Times of the steady clock as the time of day that they were, UTC: "2026-11-21T22:31:14.123Z".
class wall_clock {
public:
  wall_clock();
  std::string text(uint64_t steady_ns) const;
  uint64_t ns(uint64_t steady_ns) const { return steady_ns + static_cast<uint64_t>(ahead_ns_); }  // since 1970

private:
  int64_t ahead_ns_;  // of the steady clock
};

#endif
