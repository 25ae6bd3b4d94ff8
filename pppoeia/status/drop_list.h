// The last frames of a bridge that were dropped. Written by its worker; readers miss an entry that is overwritten
// under their eyes, and hold nobody up.
#ifndef PPPOEIA_STATUS_DROP_LIST_H
#define PPPOEIA_STATUS_DROP_LIST_H

#include "base/packed.h"
#include "pppoeia/frame/path.h"
#include "pppoeia/status/shared.h"

#include <cstdint>
#include <string>
#include <vector>

struct dropped_frame {
  uint64_t at_ns;  // steady clock
  fate why;
  uint8_t code;  // PPPoE code, if it came to that
  uint16_t port;
  uint16_t vid;
  uint64_t client;    // source MAC, first byte in bits 40..47
  uint32_t length;    // bytes of the Ethernet frame
  std::string begin;  // its first 64 bytes at most
};

class drop_list {
public:
  static constexpr size_t most = 1024;
  static constexpr size_t bytes_kept = 64;

  drop_list() : entries_(most) {}

  void add(const_bytes frame, uint64_t client, const frame_result& result, uint64_t now_ns);

  uint64_t count() const { return count_.get(); }  // ever added

  // Oldest first.
  std::vector<dropped_frame> all() const;

private:
  struct entry {
    revision changes;
    shared<uint64_t> at_ns;
    shared<uint64_t> client;
    shared<uint64_t> place;  // port, VLAN, code and reason
    shared<uint32_t> length;
    shared_bytes<bytes_kept> begin;
  };

  std::vector<entry> entries_;
  shared<uint64_t> count_;
};

#endif
