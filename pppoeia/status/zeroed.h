// Arrays of zeros whose pages take no memory before they are written: room for every port, used by those with traffic.
#ifndef PPPOEIA_STATUS_ZEROED_H
#define PPPOEIA_STATUS_ZEROED_H

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

// For types whose zero bytes are a value: numbers, and atomics of them.
template <typename T>
class zeroed {
public:
  // Throws std::bad_alloc.
  explicit zeroed(size_t count) : items_(static_cast<T*>(std::calloc(count, sizeof(T))))
  {
    if (!items_)
      throw std::bad_alloc();
  }
  T& operator[](size_t i) { return items_.get()[i]; }
  const T& operator[](size_t i) const { return items_.get()[i]; }

private:
  struct release {
    void operator()(T* items) const { std::free(static_cast<void*>(items)); }
  };
  std::unique_ptr<T, release> items_;
};

#endif
