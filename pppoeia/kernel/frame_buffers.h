// The receive buffers of one worker: a batch of equal slots, each the bridge's `buffer_size` and room for what the
// agent may add to a record. Every record is received into zeros, so that what a short record lacks reads as zero.
#ifndef PPPOEIA_KERNEL_FRAME_BUFFERS_H
#define PPPOEIA_KERNEL_FRAME_BUFFERS_H

#include "pppoeia/kernel/kernel.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

// Bytes behind `buffer_size` in each slot: the largest tag the agent writes is 138 bytes, an empty error tag 4.
inline constexpr uint32_t frame_growth_max = 142;

// Bytes from one slot to the next.
inline size_t frame_slot_size(uint32_t buffer_size)
{
  return (static_cast<size_t>(buffer_size) + frame_growth_max + 63) / 64 * 64;
}

// Number of slots for that buffer size: fewer where frames are huge, so that a bridge costs at most 256 KiB of them.
inline unsigned frame_slot_count(uint32_t buffer_size)
{
  constexpr size_t memory_most = 256 * 1024;
  const size_t slots = memory_most / frame_slot_size(buffer_size);
  return static_cast<unsigned>(std::clamp<size_t>(slots, 1, kernel_batch_max));
}

// All slots, zeroed; null without memory. Freed by std::free.
inline unsigned char* frame_buffers_new(uint32_t buffer_size)
{
  return static_cast<unsigned char*>(std::calloc(frame_slot_count(buffer_size), frame_slot_size(buffer_size)));
}

#endif
