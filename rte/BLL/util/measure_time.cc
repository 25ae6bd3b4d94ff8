#include "rte/BLL/util/measure_time.h"

#include "base/thread_annotations.h"
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>

namespace {

struct measured_t {
  uint64_t count = 0;
  uint64_t total_us = 0;
  uint64_t longest_us = 0;
};

std::atomic<bool> measuring{false};

// What was measured, by name.
class book_t {
public:
  void add(const char* name, uint64_t us)
  {
    const mutex_guard guard(mutex_);
    measured_t& row = rows_[name];
    ++row.count;
    row.total_us += us;
    row.longest_us = std::max(row.longest_us, us);
  }
  void show(std::ostream& out) const
  {
    const mutex_guard guard(mutex_);
    for (const auto& [name, row] : rows_)
      out << name << ": " << row.count << " times, " << row.total_us << " us in all, " << row.total_us / row.count
          << " us mean, " << row.longest_us << " us longest\n";
    if (rows_.empty())
      out << "Nothing measured.\n";
  }
  void reset()
  {
    const mutex_guard guard(mutex_);
    rows_.clear();
  }

private:
  mutable checked_mutex mutex_;
  std::map<std::string, measured_t> rows_ TSA_GUARDED_BY(mutex_);
};

// Never destroyed: a scope may end while the process does.
book_t& book()
{
  static auto& instance = *new book_t;
  return instance;
}

}  // namespace

measureTime_t::measureTime_t(const char* name) : name_(measuring.load(std::memory_order_relaxed) ? name : nullptr)
{
  if (name_)
    begin_ = std::chrono::steady_clock::now();
}

measureTime_t::~measureTime_t()
{
  if (!name_)
    return;
  const auto took = std::chrono::steady_clock::now() - begin_;
  book().add(name_, static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(took).count()));
}

void measureTimeExtMsg(const std::string& msg, const std::string& value, std::ostream& out)
{
  if (msg != "measureTime") {
    out << "No such message: " << msg << ". Known: measureTime with on, off, show or reset.\n";
  } else if (value == "on" || value == "off") {
    measuring = value == "on";
    out << "Measuring is " << value << ".\n";
  } else if (value == "show") {
    book().show(out);
  } else if (value == "reset") {
    book().reset();
    out << "Measurements forgotten.\n";
  } else {
    out << "measureTime takes on, off, show or reset.\n";
  }
}
