// One record through the frame path, on a bridge that the input sets up too. The input is read from the front: settings
// of bridge and port, then the record. Beside the sanitizers it is checked that what goes back has the length that its
// header says, and that bridge and port count alike.
#include "pppoeia/list.h"
#include "pppoeia/log.h"
#include "pppoeia/text.h"
#include "tests/support/records_fixture.h"
#include "tests/support/syslog_capture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

class input {
public:
  input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  uint8_t byte()
  {
    if (size_ == 0)
      return 0;
    --size_;
    return *data_++;
  }
  uint16_t word() { return static_cast<uint16_t>(byte() << 8 | byte()); }
  byte_string rest() { return {data_, data_ + size_}; }
  std::string text(size_t most)
  {
    const size_t length = std::min<size_t>({most, byte(), size_});
    const std::string taken(reinterpret_cast<const char*>(data_), length);
    data_ += length;
    size_ -= length;
    return taken;
  }

private:
  const uint8_t* data_;
  size_t size_;
};

void configure(pppoeia_bridge& bridge, pppoeia_port& port, input& in)
{
  const uint8_t flags = in.byte();
  bridge.vsa_mode = flags & 1;
  bridge.vsa_insert_circuit_id = flags >> 1 & 1;
  bridge.vsa_insert_remote_id = flags >> 2 & 1;
  bridge.vsa_circuit_id_cvlan = flags >> 3 & 1;
  bridge.disabled = (flags >> 4 & 15) == 15;
  port.trust = in.byte() & 1;
  port.state = in.byte() % 5 - 1;
  port.port_info_extra = in.byte() & 7;
  port.vsa_circuit_id_mode = in.byte() & 3;
  bridge.max_pdu = in.word() % 1501;
  bridge.vlan_enabled.set(in.word());
  text_copy(bridge.pppoeia_cid_format, in.text(128).c_str());
  text_copy(bridge.pppoeia_rid_format, in.text(128).c_str());
}

// What a record that ends before or inside the field lacks of it reads as zero.
uint32_t length_field(const byte_string& record)
{
  constexpr size_t offset = 48;
  uint32_t length = 0;
  if (record.size() > offset)
    std::memcpy(&length, &record[offset], std::min(record.size() - offset, sizeof length));
  return length;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  static test_bridge& bridge = *new test_bridge(4);
  pppoeia_port& port = bridge.port(1, 1, 0);
  syslog_keep(false);  // or the log fills the memory
  bridge->stats = port.stats = {};
  bridge->vlan_enabled = {};
  input in(data, size);
  pppoeia_log_level = in.byte() == 0xff ? log_debug : log_info;
  configure(*bridge, port, in);

  byte_string record = in.rest();
  record.resize(std::min<size_t>(record.size(), bridge->buffer_size));
  if (record.size() >= 54) {
    const auto length = static_cast<uint32_t>(record.size());
    std::memcpy(&record[48], &length, sizeof length);
    record[52] = 1;
    record[53] = 0;
  }
  const byte_string sent = process(*bridge, record);
  if (!sent.empty() && (sent.size() > record.size() + 138 || length_field(sent) != sent.size()))
    std::abort();
  if (std::memcmp(&bridge->stats, &port.stats, sizeof port.stats) != 0)
    std::abort();
  return 0;
}
