// A node for the macro language to ask: its configuration library and its management interface, under the test's hand.
#ifndef TESTS_CUSTOMID_NODE_STUB_H
#define TESTS_CUSTOMID_NODE_STUB_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

struct node_stub {
  std::optional<uint8_t> board = 3;
  std::map<std::string, std::array<uint8_t, 4>> ipv4;  // by device
  std::optional<std::array<uint8_t, 16>> ipv6;
  std::optional<std::array<uint8_t, 6>> mac = {{0x02, 0x00, 0x5e, 0x10, 0x00, 0x01}};
};

// What ncfm and the kernel's "mng0" answer from the first call on.
node_stub& node();

#endif
