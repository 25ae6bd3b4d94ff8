#include "rte/BLL/util/measure_time.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>

namespace {

struct measured_t {
  uint64_t count = 0;
  uint64_t total_us = 0;
  uint64_t longest_us = 0;
};

std::atomic<bool> measuring{false};

// What was measured, by name. Never destroyed: a scope may end while the process does.
struct book_t {
  std::mutex mutex;
  std::map<std::string, measured_t> rows;  // guarded by mutex
};

book_t& book()
{
  static auto& instance = *new book_t;
  return instance;
}

void show(std::ostream& out)
{
  const std::lock_guard lock(book().mutex);
  for (const auto& [name, row] : book().rows)
    out << name << ": " << row.count << " times, " << row.total_us << " us in all, " << row.total_us / row.count
        << " us mean, " << row.longest_us << " us longest\n";
  if (book().rows.empty())
    out << "Nothing measured.\n";
}

void reset()
{
  const std::lock_guard lock(book().mutex);
  book().rows.clear();
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
  const auto us = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(took).count());
  const std::lock_guard lock(book().mutex);
  measured_t& row = book().rows[name_];
  ++row.count;
  row.total_us += us;
  row.longest_us = std::max(row.longest_us, us);
}

void measureTimeExtMsg(const std::string& msg, const std::string& value, std::ostream& out)
{
  if (msg != "measureTime") {
    out << "No such message: " << msg << ". Known: measureTime with on, off, show or reset.\n";
  } else if (value == "on" || value == "off") {
    measuring = value == "on";
    out << "Measuring is " << value << ".\n";
  } else if (value == "show") {
    show(out);
  } else if (value == "reset") {
    reset();
    out << "Measurements forgotten.\n";
  } else {
    out << "measureTime takes on, off, show or reset.\n";
  }
}
