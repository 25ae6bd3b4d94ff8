// The macro language of custom identifier formats as the rest of the agent uses it: one format string, expanded for
// a bridge, an interface and a VLAN pair into a text or byte identifier.
#ifndef PPPOEIA_CUSTOMID_CUSTOMID_H
#define PPPOEIA_CUSTOMID_CUSTOMID_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct pppoeia_bridge;

// Where macro values come from.
enum idGenType : int {
  idGenLive = 0,       // arguments, records and the frame being processed
  idGenAvailable = 1,  // arguments and records, client MAC of the test data
  idGenTest = 2,       // interface, VLANs, client MAC and line numbers of the test data
};

// Longest identifier, in characters or bytes.
inline constexpr size_t customIdMax = 63;

// Expands `formatStr`. `genId` receives the text identifier; `genIdBin`, which must come in empty, receives the byte
// identifier when a macro asked for hexadecimal output and stays empty otherwise. A macro that cannot be resolved
// or formatted is copied as written; an identifier always comes out. Always true. Takes no lock: a worker calls it
// with the bridge's mutex held, the management thread without.
bool genCustomId(const pppoeia_bridge* bridge, unsigned intfId, unsigned short vid, unsigned short cvid,
                 const std::string& formatStr, std::string& genId, std::vector<unsigned char>& genIdBin,
                 idGenType useData);

#endif
