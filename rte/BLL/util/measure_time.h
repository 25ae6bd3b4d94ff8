// How long things take, by name: scopes measured while measuring is on, shown on request. While it is off a scope costs
// one relaxed load. Any thread.
#ifndef RTE_BLL_UTIL_MEASURE_TIME_H
#define RTE_BLL_UTIL_MEASURE_TIME_H

#include <chrono>
#include <ostream>
#include <string>
#include <string_view>

// Measures from its construction to its destruction.
class measureTime_t {
public:
  // `name` must outlive the scope; a literal.
  explicit measureTime_t(const char* name);
  ~measureTime_t();
  measureTime_t(const measureTime_t&) = delete;
  measureTime_t& operator=(const measureTime_t&) = delete;

private:
  const char* name_;  // null while measuring is off
  std::chrono::steady_clock::time_point begin_;
};

// Operators' messages, those that begin with "measureTime":
//   "measureTime" with "on" or "off"   switches measuring;
//   "measureTime" with "show"          writes a line a name: count, total, mean, longest in microseconds;
//   "measureTime" with "reset"         forgets what was measured.
// Anything else writes one line that says what is understood.
void measureTimeExtMsg(const std::string& msg, const std::string& value, std::ostream& out);

#endif
