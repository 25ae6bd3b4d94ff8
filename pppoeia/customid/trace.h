// Trace of the macro language for operators who try formats: lines on standard output, off unless switched on.
#ifndef PPPOEIA_CUSTOMID_TRACE_H
#define PPPOEIA_CUSTOMID_TRACE_H

#include <atomic>
#include <cstdio>

// The switch. Written by the management thread, read by every thread that builds identifiers.
inline std::atomic<bool> customFormatTestDebug{false};

// Prints "PPPOEIA_DEBUG:operation,line: " and the formatted text behind `tabs`, when the switch is on. `operation` is
// the one that operators know, also in the functions that do its steps.
#define CUSTOMID_TRACE(tabs, operation, format, ...)                                                                   \
  do {                                                                                                                 \
    if (customFormatTestDebug.load(std::memory_order_relaxed))                                                         \
      std::printf(tabs "PPPOEIA_DEBUG:%s,%d: " format, operation, __LINE__ __VA_OPT__(, ) __VA_ARGS__);                \
  } while (false)

// Ends the trace of an operation: an operator who watches a pipe or a file has it whole.
inline void customid_trace_end()
{
  if (customFormatTestDebug.load(std::memory_order_relaxed))
    std::fflush(stdout);
}

#endif
