// Values that one thread writes and others read while it goes on: no lock, no wait on either side.
//
// A number stands alone. What belongs together stands under a `revision`, which is odd while the writer is at it: a
// reader copies, looks whether the revision has moved, and copies again if so. Every field is an atomic, stored with
// release and loaded with acquire, which costs nothing on x86 and keeps fields and revision in order everywhere.
#ifndef PPPOEIA_STATUS_SHARED_H
#define PPPOEIA_STATUS_SHARED_H

#include "base/packed.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <thread>

template <typename T>
class shared {
public:
  void set(T value) { value_.store(value, std::memory_order_release); }
  T get() const { return value_.load(std::memory_order_acquire); }
  T own() const { return value_.load(std::memory_order_relaxed); }  // for the writer

private:
  std::atomic<T> value_{};
};

// Counts up. Zero-filled memory is a tally of 0.
class tally {
public:
  void add(uint64_t by = 1) { count_.store(count_.load(std::memory_order_relaxed) + by, std::memory_order_relaxed); }
  uint64_t get() const { return count_.load(std::memory_order_relaxed); }

private:
  std::atomic<uint64_t> count_;
};

// The first eight bytes as they would stand in memory; what is not there is zero. Called for every frame: loads of
// fixed sizes that overlap are quicker than a copy of as many bytes as there are.
inline uint64_t front_word(const_bytes from)
{
  static_assert(std::endian::native == std::endian::little);
  const size_t size = from.size();
  if (size >= 8)
    return host_at<uint64_t>(from, 0);
  if (size >= 4)
    return host_at<uint32_t>(from, 0) | static_cast<uint64_t>(host_at<uint32_t>(from, size - 4)) << 8 * (size - 4);
  if (size == 0)
    return 0;
  return from[0] | static_cast<uint64_t>(from[size / 2]) << 8 * (size / 2) |
         static_cast<uint64_t>(from[size - 1]) << 8 * (size - 1);
}

// At most `Most` bytes (below 256). Longer ones are cut.
template <size_t Most>
class shared_bytes {
  static_assert(Most < 256);

public:
  void set(const_bytes value)
  {
    const const_bytes kept = value.first(std::min(value.size(), Most));
    word_set(0, front_word(kept) << 8 | kept.size());
    size_t word = 1;
    for (size_t done = sizeof(uint64_t) - 1; done < kept.size(); done += sizeof(uint64_t))
      word_set(word++, front_word(kept.subspan(done)));
  }
  std::string get() const
  {
    uint64_t packed[count];
    for (size_t i = 0; i < count; ++i)
      packed[i] = words_[i].get();
    const auto* text = reinterpret_cast<const char*>(packed);
    return {text + 1, std::min<size_t>(static_cast<unsigned char>(text[0]), Most)};
  }

private:
  static_assert(std::endian::native == std::endian::little, "the length stands in the first byte");
  static constexpr size_t count = (1 + Most + 7) / 8;

  // What stands there already is mostly the same.
  void word_set(size_t word, uint64_t value)
  {
    if (words_[word].own() != value)
      words_[word].set(value);
  }
  shared<uint64_t> words_[count];
};

class revision {
public:
  void begin() { number_.set(number_.own() + 1); }
  void end() { number_.set(number_.own() + 1); }

  // Runs `copy` until the writer was nowhere near it. False when that did not happen for a long while.
  template <typename Copy>
  bool read(Copy copy) const
  {
    for (int attempt = 0; attempt < 1000; ++attempt) {
      const uint32_t before = number_.get();
      if (before % 2 == 0) {
        copy();
        if (number_.own() == before)
          return true;
      }
      std::this_thread::yield();
    }
    return false;
  }

private:
  shared<uint32_t> number_;
};

// An array of zeros whose pages take no memory before they are written: room for every port, used by those with
// traffic. For types whose zero bytes are a value: numbers, and atomics of them.
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
