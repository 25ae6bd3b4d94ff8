// What a monitoring system reads: every counter of every bridge as text.
#ifndef PPPOEIA_STATUS_METRICS_H
#define PPPOEIA_STATUS_METRICS_H

#include <string>

enum class metrics_style {
  prometheus,   // text format 0.0.4, which promtool checks
  openmetrics,  // OpenMetrics 1.0
};

// What a bridge counts is told even while it is 0, what a port counts once it is not.
std::string metrics_text(metrics_style style);

#endif
