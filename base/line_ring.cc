#include "base/line_ring.h"

#include <cstring>

line_ring::line_ring(size_t bytes) : capacity_(bytes), bytes_(std::make_unique_for_overwrite<char[]>(bytes)) {}

bool line_ring::fits(size_t length) const
{
  return place_for(length) != nowhere;
}

// A line is never cut at the turn: one that does not fit before it goes to the beginning, and some bytes lie idle.
size_t line_ring::place_for(size_t length) const
{
  const size_t size = bytes_of(length);
  if (end_ != nowhere)
    return read_ - write_ >= size ? write_ : nowhere;
  if (capacity_ - write_ >= size)
    return write_;
  return read_ >= size ? 0 : nowhere;
}

void line_ring::push(int32_t priority, uint32_t lost_before, std::string_view text)
{
  const size_t place = place_for(text.size());
  if (place < write_)
    end_ = write_;
  const entry_header header{static_cast<uint32_t>(text.size()), priority, lost_before};
  char* const entry_bytes = bytes_.get() + place;
  memcpy(entry_bytes, &header, sizeof header);
  memcpy(entry_bytes + sizeof header, text.data(), text.size());
  entry_bytes[sizeof header + text.size()] = '\0';
  write_ = place + bytes_of(text.size());
  ++count_;
}

line_ring::entry_header line_ring::front_header() const
{
  entry_header header;
  memcpy(&header, bytes_.get() + read_, sizeof header);
  return header;
}

line_ring::entry line_ring::front() const
{
  const entry_header header = front_header();
  return {header.priority, header.lost_before, bytes_.get() + read_ + sizeof header};
}

void line_ring::pop()
{
  read_ += bytes_of(front_header().length);
  --count_;
  if (read_ == end_) {
    read_ = 0;
    end_ = nowhere;
  }
  if (count_ == 0)
    read_ = write_ = 0;  // a ring that is seldom full keeps to memory that is in the cache
}
