// Bridge records without a kernel, and records of the frame path built field by field.
#ifndef TESTS_SUPPORT_RECORDS_FIXTURE_H
#define TESTS_SUPPORT_RECORDS_FIXTURE_H

#include "base/packed.h"
#include "platform/kvbridge/record_header.h"
#include "pppoeia/frame/path.h"
#include "pppoeia/records.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

using byte_string = std::vector<unsigned char>;

// One bridge with factory settings and `ports` slots, linked into no list. MTU 1500.
class test_bridge {
public:
  explicit test_bridge(uint32_t ports = 8, const char* name = "br0");
  ~test_bridge();
  test_bridge(const test_bridge&) = delete;
  test_bridge& operator=(const test_bridge&) = delete;

  pppoeia_bridge* operator->() { return record_; }
  pppoeia_bridge& operator*() { return *record_; }

  // A port with that state and trust, device "dev<id>", name "port<id>", type "eth".
  pppoeia_port& port(uint32_t id, int32_t state, uint32_t trust);

private:
  pppoeia_bridge* record_;
};

struct test_tag {
  uint16_t type;
  std::string value;
};

// A record as the kernel bridge would divert it.
struct test_frame {
  uint8_t code = 0x09;
  uint16_t port = 1;
  std::vector<uint32_t> vlan_tags{};  // TPID << 16 | TCI, outermost first
  std::vector<test_tag> tags{{0x0101, ""}};
  byte_string trailer{};  // behind the PPPoE payload
  uint16_t first_word = 0;
  uint16_t second_word = vid_none;
  uint16_t session_id = 0;
  int payload_length = -1;  // -1: what the tags take
  byte_string source{0x02, 0x11, 0x22, 0xaa, 0xbb, 0xcc};

  byte_string build() const;
  size_t ethertype_offset() const { return kernel_header::size + 12 + 4 * vlan_tags.size(); }
  size_t tags_offset() const { return ethertype_offset() + 8; }
};

// Sets the length that the record's header tells to what the record has.
void length_put(byte_string& record);

// The vendor tag's value: enterprise 3561 and the sub-options given.
std::string vendor_value(const std::string& circuit_id, const std::string& remote_id);

// Runs one record through the frame path. What is sent back; empty when dropped.
byte_string process(pppoeia_bridge& bridge, const byte_string& record);

// The same with identifiers and local MAC of the test's own.
byte_string process(pppoeia_bridge& bridge, const byte_string& record, frame_services& services);

#endif
