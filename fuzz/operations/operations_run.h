// Sequences of steps: made of choices, which chance or a fuzzer takes, run on agent and model beside each other, and
// made short while they tell the two apart.
#ifndef FUZZ_OPERATIONS_OPERATIONS_RUN_H
#define FUZZ_OPERATIONS_OPERATIONS_RUN_H

#include "fuzz/operations/operations_model.h"

namespace operations {

class chooser {
public:
  virtual ~chooser() = default;
  virtual unsigned below(unsigned bound) = 0;  // 0 .. bound - 1
  virtual bool is_empty() const { return false; }

  bool one_in(unsigned n) { return below(n) == 0; }
  template <typename T>
  T one_of(std::initializer_list<T> values)
  {
    return *(values.begin() + below(static_cast<unsigned>(values.size())));
  }
};

struct sequence {
  node machine;
  std::vector<step> steps;
};

// At most `most` steps, or as many as the choices last for.
sequence sequence_make(chooser& choose, unsigned most);

// Runs it, with questions for the whole state after each hundred steps and at its end. What differs first, and empty
// when nothing does; then `failed` is the sequence up to that difference. Adds to `count` what was run.
string judge(const sequence& given, sequence& failed, unsigned long& count);

// Prints the shortest sequence that can be found with a difference, and the difference.
void show_shortest(const sequence& failed);

}  // namespace operations

#endif
