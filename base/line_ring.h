// Lines of text in a ring of bytes, first in, first out: no allocation a line, and each lies whole, so that it can be
// used where it is. Knows no threads.
#ifndef BASE_LINE_RING_H
#define BASE_LINE_RING_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

class line_ring {
public:
  struct entry {
    int32_t priority;
    uint32_t lost_before;  // how many were lost between this line and the one before
    const char* text;      // NUL-terminated
  };

  // Memory of that size, touched as lines come to lie in it. Throws std::bad_alloc.
  explicit line_ring(size_t bytes);

  // Whether there is room for a line of that many characters. False for ever if it is longer than the ring.
  bool fits(size_t length) const;
  // Puts a line behind the others. fits() must have said so; the text holds no NUL.
  void push(int32_t priority, uint32_t lost_before, std::string_view text);

  bool empty() const { return count_ == 0; }
  size_t count() const { return count_; }
  // The oldest line. It stays where it is until pop(), whatever is pushed. Not of an empty ring.
  entry front() const;
  void pop();

private:
  struct entry_header {
    uint32_t length;
    int32_t priority;
    uint32_t lost_before;
  };

  static constexpr size_t nowhere = SIZE_MAX;
  static size_t bytes_of(size_t length) { return sizeof(entry_header) + length + 1; }
  size_t place_for(size_t length) const;
  entry_header front_header() const;

  size_t capacity_;
  std::unique_ptr<char[]> bytes_;
  size_t count_ = 0;
  size_t read_ = 0;       // where the oldest line begins
  size_t write_ = 0;      // where the newest ends
  size_t end_ = nowhere;  // where the lines before the turn end, while newer ones lie at the beginning
};

#endif
