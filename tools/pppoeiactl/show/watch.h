// Rounds of a command that is repeated: how fast its numbers go.
#ifndef TOOLS_PPPOEIACTL_SHOW_WATCH_H
#define TOOLS_PPPOEIACTL_SHOW_WATCH_H

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

class watch {
public:
  using clock = std::chrono::steady_clock;

  // Begins a round: the time that has passed since the last one counts.
  void round(clock::time_point now);

  // Counts what is printed in a round: the place of a number whose owner has no name.
  size_t next_place() { return ++place_; }

  // " +3/s", what a number has changed a second since the last round; empty in the first, and when it has not.
  std::string rate(const std::string& key, uint64_t value);

private:
  clock::time_point at_{};
  size_t place_ = 0;
  double seconds_ = 0;  // since the round before
  std::map<std::string, uint64_t> last_;
};

#endif
