#include "pppoeia/kernel/frame_buffers.h"

#include "pppoeia/kernel/kernel.h"

#include <algorithm>
#include <cstdlib>

unsigned frame_slot_count(uint32_t buffer_size)
{
  constexpr size_t memory_most = 256 * 1024;
  const size_t slots = memory_most / frame_slot_size(buffer_size);
  return static_cast<unsigned>(std::clamp<size_t>(slots, 1, kernel_batch_max));
}

unsigned char* frame_buffers_new(uint32_t buffer_size)
{
  return static_cast<unsigned char*>(std::calloc(frame_slot_count(buffer_size), frame_slot_size(buffer_size)));
}
