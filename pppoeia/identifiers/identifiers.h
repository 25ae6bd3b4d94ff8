// Agent Circuit ID and Agent Remote ID of a port and VLAN: which mode or format applies, and its result.
#ifndef PPPOEIA_IDENTIFIERS_IDENTIFIERS_H
#define PPPOEIA_IDENTIFIERS_IDENTIFIERS_H

#include "platform/kvbridge/record_header.h"
#include "pppoeia/frame/path.h"

#include <cstdint>
#include <vector>

struct pppoeia_bridge;
struct pppoeia_port;

// Write the text identifier to `out`, which must come in empty and have room for identifier_text_size bytes (a text
// other than the default ATM one is cut at 63 characters), and the byte identifier, if the format makes one, to
// `bin`. Modes without an identifier leave both as they came. `useData` is an idGenType. Nothing is done when `out` or
// `bridge` is null. The worker calls with the bridge's mutex held, the management thread without.
void pppoeia_build_circuit_id(char* out, pppoeia_bridge* bridge, pppoeia_port* port, uint16_t vid,
                              std::vector<unsigned char>& bin, int useData);
void pppoeia_build_remote_id(char* out, pppoeia_bridge* bridge, pppoeia_port* port, uint16_t vid,
                             std::vector<unsigned char>& bin, int useData);

// The identifiers of frames being processed.
class builder_identifiers final : public identifier_source {
public:
  void circuit_id(pppoeia_bridge& bridge, pppoeia_port& port, uint16_t vid, identifier& id) override;
  void remote_id(pppoeia_bridge& bridge, pppoeia_port& port, uint16_t vid, identifier& id) override;
};

#endif
