// A second, plain reading of what becomes of one discovery frame: written from the protocol and the manuals, slow, and
// sharing no line, header or number with the agent, so that a mistake would have to be made twice.
#ifndef FUZZ_FRAMES_FRAME_MODEL_H
#define FUZZ_FRAMES_FRAME_MODEL_H

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace model {

using bytes = std::vector<unsigned char>;

struct line_port {
  bool present = false;
  int side = 0;   // 0 off, 1 subscribers, 2 network, others both
  int trust = 0;  // 1: may send no vendor tag
  unsigned kind = 0;
};

struct log_line {
  int level;
  std::string text;
  bool operator==(const log_line&) const = default;
};

struct identifier {
  std::string text;
  bytes binary;                // wins when not empty
  std::vector<log_line> told;  // while it was made
};

// What is configured, and what the world answers, while one record passes.
struct world {
  std::string bridge = "br0";
  bool off = false;
  unsigned stag = 0x88a8;
  std::set<unsigned> vlans{0};
  unsigned vendor_tag_mode = 1;  // 1 removes
  bool circuit_wanted = true;
  bool remote_wanted = true;
  unsigned largest = 1500;
  size_t longest_record = 1606;
  std::vector<line_port> ports;  // of ids 1, 2, ...; the last one's id is out of range
  identifier circuit;
  identifier remote;
  std::optional<std::array<unsigned char, 6>> own_address;
};

// What the bridge keeps of a record, for identifiers and for queries that come later.
struct memory {
  uint64_t client = 0;  // its address, the first byte in bits 40 to 47
  uint32_t words = 0;   // tag control words of the header, the outer one above
  unsigned port = 0;    // that it came in by; 0: none known
  // Port and VLAN of each identifier that was wanted for it.
  std::vector<std::pair<unsigned, unsigned>> asked;
  bool operator==(const memory&) const = default;
};

// What is told of a record, for the lists of lines and of drops; 0 for what it did not come to.
struct account {
  unsigned port = 0;  // as its header names it
  unsigned vid = 0;
  unsigned code = 0;
  bool of_subscriber = false;
  size_t ethertype = 0;   // place of that field
  size_t vendor_tag = 0;  // place of the one that was put in
  bool operator==(const account&) const = default;
};

struct outcome {
  memory kept;
  account told;
  bytes sent;           // empty: dropped
  std::string counted;  // of bridge and port alike; empty: nothing
  std::vector<log_line> log;
  std::string branch;  // the last decision: the record's fate, by its name
};

// `where` is the address that the record stands at, which some log lines show.
outcome frame(const world& given, const bytes& record, uintptr_t where);

}  // namespace model

#endif
