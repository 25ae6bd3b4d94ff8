// The macro language of custom identifier formats as the rest of the agent uses it: one format string, expanded for
// a bridge, an interface and a VLAN pair into a text or byte identifier.
//
// The road of one macro, "$z3PORT" say:
//
//   parser      finds the name, the "$" before it, and reads what stands between as options
//   resolver    asks the function in the macro's row of the vocabulary for the raw value: "7" (values.h)
//   formatter   makes of it what the options say: "007"
//   generator   puts it behind the text before it, and notes where hexadecimal digits stand
//   binary      turns those digits into bytes, if there are any, when the text is whole
//
// Traps:
//   - Nothing ever fails. A macro that cannot be resolved or formatted stays as written; one that cannot be read ends
//     the expansion, and the rest stays as written.
//   - A macro's number and delimiter are valid for the macros behind it too, until they set their own. Operators rely
//     on it, so parsed macros carry them along (compiled.h).
//   - Formats are bytes from operators, values are bytes from records: no locale, no sign of char.
//   - Log lines and traces are behaviour, in their order. While somebody listens, the parser runs in turn with the
//     rest; otherwise its findings are kept per thread, which gives the same identifier.
//   - Workers build identifiers for each PADI and PADR: no debug line is formatted and no format parsed for nothing.
#ifndef PPPOEIA_CUSTOMID_CUSTOMID_H
#define PPPOEIA_CUSTOMID_CUSTOMID_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct pppoeia_bridge;

// Where macro values come from.
enum idGenType : int {
  idGenLive = 0,       // arguments, records and the frame being processed, if there is one
  idGenAvailable = 1,  // arguments and records, client MAC of the test data
  idGenTest = 2,       // interface, VLANs, client MAC and line numbers of the test data
};

// Says that the calling thread processes no frame until the scope ends: what it expands of idGenLive has no client. The
// frame that a worker processes meanwhile is another line's.
class no_frame_scope {
public:
  no_frame_scope();
  ~no_frame_scope();
  no_frame_scope(const no_frame_scope&) = delete;
  no_frame_scope& operator=(const no_frame_scope&) = delete;
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
