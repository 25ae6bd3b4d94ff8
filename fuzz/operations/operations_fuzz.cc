// The operations beside their model; the input's bytes are the choices that make a sequence of calls and frames.
#include "fuzz/operations/operations_run.h"

#include <cstdint>
#include <cstdlib>

namespace {

class input : public operations::chooser {
public:
  input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool is_empty() const override { return size_ == 0; }
  unsigned below(unsigned bound) override
  {
    unsigned value = byte();
    if (bound > 256)
      value = value * 256 + byte();
    return value % bound;
  }

private:
  unsigned byte() { return size_ == 0 ? 0 : (--size_, *data_++); }
  const uint8_t* data_;
  size_t size_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  input choices(data, size);
  operations::sequence failed;
  unsigned long count = 0;
  if (operations::judge(operations::sequence_make(choices, 200), failed, count).empty())
    return 0;
  operations::show_shortest(failed);
  std::abort();
}
