// Discovery frames by which a subscriber tries to pass a vendor tag of their own off as the line's, and two readers of
// what leaves the node, as servers read it. Written from RFC 2516 alone and sharing nothing with the agent, so that
// they judge it; Ethernet frames without any header of the node, so that they serve on a wire as well.
#ifndef FUZZ_FRAMES_SPOOFING_H
#define FUZZ_FRAMES_SPOOFING_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace spoofing {

using frame = std::vector<unsigned char>;

// A strict reader keeps to the payload length and stops at the first tag that overruns it, and at End-Of-List. A
// lenient one goes by the frame's end, takes a tag that even that cuts, and reads on behind End-Of-List.
enum class reader { strict, lenient };

struct vendor_seen {
  std::string value;
  bool inside;  // whole inside the PPPoE payload
};

struct reading {
  uint8_t code = 0;                   // 0: no discovery frame
  std::optional<vendor_seen> vendor;  // the first one that the reader comes to
};

reading read(std::span<const unsigned char> ethernet, reader who);

// What is wrong with a frame that left for the server on behalf of a line, with `own` as the value of its vendor tag;
// empty when nothing is. A PADI or PADR shows both readers the line's own tag as the first one, whole inside the
// payload. Nothing else has a vendor tag in its list.
std::string complaint(std::span<const unsigned char> ethernet, const std::string& own);

// VLAN tags in front of a frame, outermost first: TPID << 16 | TCI.
using vlan_stack = std::vector<uint32_t>;

// A source of such frames; the same seed gives the same frames. At most 1,400 bytes each.
class forger {
public:
  explicit forger(uint32_t seed, std::vector<vlan_stack> stacks = {{}}) : random_(seed), stacks_(std::move(stacks)) {}

  frame next();

private:
  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }
  bool once_in(uint32_t times) { return below(times) == 0; }
  std::string noise(uint32_t most);
  std::string vendor_tag();
  std::string tag();
  std::string trailer();
  uint16_t payload_length(size_t tags, size_t behind);

  std::mt19937 random_;
  std::vector<vlan_stack> stacks_;
};

}  // namespace spoofing

#endif
