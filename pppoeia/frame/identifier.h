// An Agent Circuit ID or Agent Remote ID on its way into a tag, and where the frame path gets them from.
#ifndef PPPOEIA_FRAME_IDENTIFIER_H
#define PPPOEIA_FRAME_IDENTIFIER_H

#include <cstddef>
#include <cstdint>
#include <vector>

struct pppoeia_bridge;
struct pppoeia_port;

// Room for the longest text: the ATM default is not cut.
inline constexpr size_t identifier_text_size = 160;

struct identifier {
  char text[identifier_text_size];
  std::vector<unsigned char> bin;  // a byte identifier; empty when the text is the identifier
};

// Fills identifiers for a port and VLAN id. Comes with `id.text` and `id.bin` empty, may leave them so.
class identifier_source {
public:
  virtual ~identifier_source() = default;
  virtual void circuit_id(pppoeia_bridge& bridge, pppoeia_port& port, uint16_t vid, identifier& id) = 0;
  virtual void remote_id(pppoeia_bridge& bridge, pppoeia_port& port, uint16_t vid, identifier& id) = 0;
};

#endif
