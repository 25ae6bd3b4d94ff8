// A plug-in library whose constructors fail after they have done something.
#include <stdexcept>

extern "C" void whileLoading();  // the test's

namespace {

struct throwing_t {
  throwing_t()
  {
    whileLoading();
    throw std::runtime_error("no such device");
  }
};

const throwing_t throwing;

}  // namespace
