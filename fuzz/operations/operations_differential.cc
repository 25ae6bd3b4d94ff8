// The operations beside their model: random sequences of calls and frames, and everything that can be seen compared:
// results, argument bytes, log lines with level and order, terminal text, what the kernel is asked and the frames sent.
// A difference is shown by the shortest sequence that has it.
// Usage: operations_differential [SEED [SECONDS]]; by default a seed of its own for 2 seconds.
#include "fuzz/operations/operations_run.h"

#include <chrono>
#include <cstdlib>
#include <random>

namespace {

class chance : public operations::chooser {
public:
  explicit chance(unsigned long long seed) : random_(seed) {}
  unsigned below(unsigned bound) override { return static_cast<unsigned>(random_() % bound); }

private:
  std::mt19937_64 random_;
};

}  // namespace

int main(int argc, char** argv)
{
  const unsigned long long seed = argc > 1 ? std::strtoull(argv[1], nullptr, 0) : std::random_device{}();
  const int seconds = argc > 2 ? std::atoi(argv[2]) : 2;
  std::fprintf(stderr, "seed %llu\n", seed);
  if (!std::freopen("/dev/null", "w", stdout))  // the macro language's trace, where it is switched on
    return 1;
  chance random(seed);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  unsigned long count = 0;
  while (std::chrono::steady_clock::now() < end) {
    operations::sequence failed;
    if (operations::judge(operations::sequence_make(random, 20 + random.below(300)), failed, count).empty())
      continue;
    std::fprintf(stderr, "after %lu calls and frames:\n", count);
    operations::show_shortest(failed);
    return 1;
  }
  std::fprintf(stderr, "%lu calls and frames alike\n", count);
}
