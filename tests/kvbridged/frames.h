// Ethernet frames put together field by field.
#ifndef TESTS_KVBRIDGED_FRAMES_H
#define TESTS_KVBRIDGED_FRAMES_H

#include "platform/kvbridged/frame.h"

#include <functional>

inline void word_add(kvbridged::frame_bytes& frame, unsigned word)
{
  frame.push_back(static_cast<unsigned char>(word >> 8));
  frame.push_back(static_cast<unsigned char>(word));
}

inline const kvbridged::mac_address everybody{0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

// The address of a host with that number.
inline kvbridged::mac_address host_address(unsigned char number)
{
  return {0x02, 0, 0, 0, 0, number};
}

// Header and tags (each with a control word of its own) up to and with the EtherType.
inline kvbridged::frame_bytes frame_head(const kvbridged::mac_address& to, const kvbridged::mac_address& from,
                                         const std::vector<uint16_t>& tags, uint16_t ethertype)
{
  kvbridged::frame_bytes frame(to.begin(), to.end());
  frame.insert(frame.end(), from.begin(), from.end());
  for (const uint16_t type : tags) {
    word_add(frame, type);
    word_add(frame, static_cast<unsigned>(5 + frame.size()));
  }
  word_add(frame, ethertype);
  return frame;
}

// A discovery frame of `size` bytes whose payload fills it.
inline kvbridged::frame_bytes discovery_frame(unsigned char code, const kvbridged::mac_address& to,
                                              const kvbridged::mac_address& from, size_t size = 60,
                                              const std::vector<uint16_t>& tags = {})
{
  kvbridged::frame_bytes frame = frame_head(to, from, tags, kvbridged::discovery_ethertype);
  word_add(frame, 0x1100u | code);
  word_add(frame, 0);
  word_add(frame, static_cast<unsigned>(size - frame.size() - 2));
  frame.resize(size);
  return frame;
}

// Discovery or another EtherType behind the length of an 802.3 frame with LLC and SNAP of that kind, and tags outside
// and inside.
inline kvbridged::frame_bytes behind_snap(const std::vector<uint16_t>& outside, const std::vector<uint16_t>& inside,
                                          unsigned char kind, uint16_t ethertype)
{
  kvbridged::frame_bytes frame = frame_head(everybody, host_address(1), outside, 40);
  for (const unsigned char byte : std::initializer_list<unsigned char>{0xaa, 0xaa, 0x03, 0x00, 0x00, kind})
    frame.push_back(byte);
  const kvbridged::frame_bytes rest = frame_head(everybody, host_address(1), inside, ethertype);
  frame.insert(frame.end(), rest.begin() + kvbridged::ethertype_offset, rest.end());
  return frame;
}

// Calls with every stack of up to six tags, `stag` among their types.
template <typename F>
void each_stack(uint16_t stag, const F& call)
{
  const uint16_t types[] = {0x8100, 0x88a8, stag, 0x9100, 0x9300};
  std::vector<uint16_t> tags;
  const std::function<void()> deeper = [&] {
    call(tags);
    for (const uint16_t type : types) {
      if (tags.size() == 6)
        return;
      tags.push_back(type);
      deeper();
      tags.pop_back();
    }
  };
  deeper();
  for (size_t depth = 1; depth <= 6; ++depth)
    call(std::vector<uint16_t>(depth, 0x9200));
}

#endif
