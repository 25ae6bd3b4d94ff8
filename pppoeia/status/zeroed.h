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
  explicit zeroed(size_t count) : block_(std::calloc(count + spare, sizeof(T)))
  {
    size_t size = (count + spare) * sizeof(T);
    void* begin = block_.get();
    if (!begin)
      throw std::bad_alloc();
    items_ = static_cast<T*>(std::align(alignof(T), count * sizeof(T), begin, size));
  }
  T& operator[](size_t i) { return items_[i]; }
  const T& operator[](size_t i) const { return items_[i]; }

private:
  // One more, where the allocator does not align by itself.
  static constexpr size_t spare = alignof(T) > alignof(std::max_align_t) ? 1 : 0;
  struct release {
    void operator()(void* block) const { std::free(block); }
  };
  std::unique_ptr<void, release> block_;
  T* items_;
};

#endif
