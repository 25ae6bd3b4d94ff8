// A watcher of frames: a line of JSON for each that its filter lets by, as they come, without an end.
#ifndef PPPOEIA_STATUS_MONITOR_H
#define PPPOEIA_STATUS_MONITOR_H

#include "pppoeia/status/filter.h"
#include "pppoeia/status/http_server.h"

#include <memory>

// {"time_ns":..,"time":..,"bridge":..,"port":..,"vlan":..,"code":..,"client":..,"fate":..,"class":..,"meaning":..,
// "length":..,"before":"hex","after":"hex"}, a line each; {"lost":N} for N frames that came too fast for this watcher.
std::unique_ptr<http_body> monitor_report(const filter& wanted);

#endif
