// What the status socket answers: lines, dropped frames and passing frames as JSON, counters as text.
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

// A watcher of frames: a line of JSON for each that its filter lets by, as they come, without an end:
// {"time_ns":..,"time":..,"bridge":..,"port":..,"vlan":..,"code":..,"client":..,"fate":..,"class":..,"meaning":..,
// "length":..,"before":"hex","after":"hex"}, a line each; {"lost":N} for N frames that came too fast for this watcher.
std::unique_ptr<http_body> monitor_report(const filter& wanted);

// What a monitoring system reads: every counter of every bridge as text.
enum class metrics_style {
  prometheus,   // text format 0.0.4, which promtool checks
  openmetrics,  // OpenMetrics 1.0
};

// What a bridge counts is told even while it is 0, what a port counts once it is not.
std::string metrics_text(metrics_style style);

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
