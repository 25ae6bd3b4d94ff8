// One record through the frame path, on a bridge that the input sets up too. The input is read from the front: settings
// of bridge and port, then the record. Beside the sanitizers it is checked that what goes back has the length that its
// header says, that bridge and port count alike, and that no vendor tag of the client's passes for the line's.
#include "fuzz/frames/spoofing.h"
#include "pppoeia/identifiers/identifiers.h"
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
  constexpr size_t offset = kernel_header::record_length;
  uint32_t length = 0;
  if (record.size() > offset)
    std::memcpy(&length, &record[offset], std::min(record.size() - offset, sizeof length));
  return length;
}

// The line's identifiers as they were built for the frame.
class kept_identifiers final : public identifier_source {
public:
  void circuit_id(pppoeia_bridge& bridge, pppoeia_port& port, uint16_t vid, identifier& id) override
  {
    builder_.circuit_id(bridge, port, vid, id);
    keep(circuit_, id);
  }
  void remote_id(pppoeia_bridge& bridge, pppoeia_port& port, uint16_t vid, identifier& id) override
  {
    builder_.remote_id(bridge, port, vid, id);
    keep(remote_, id);
  }

  // The value of the line's vendor tag.
  std::string tag_value(const pppoeia_bridge& bridge) const
  {
    std::string value("\x00\x00\x0d\xe9", 4);
    if (bridge.vsa_insert_circuit_id)
      value += std::string{1, static_cast<char>(circuit_.size())} + circuit_;
    if (bridge.vsa_insert_remote_id)
      value += std::string{2, static_cast<char>(remote_.size())} + remote_;
    return value;
  }

private:
  static void keep(std::string& to, const identifier& id)
  {
    to = id.bin.empty() ? std::string(id.text) : std::string(id.bin.begin(), id.bin.end());
    to.resize(std::min<size_t>(to.size(), 63));
  }

  builder_identifiers builder_;
  std::string circuit_;
  std::string remote_;
};

int some_mac(unsigned char mac[6])
{
  std::memset(mac, 2, 6);
  return 0;
}

// Whether the agent's rules hold for the frame: neither bridge nor port is off, and its VLAN is enabled.
bool ruled(const pppoeia_bridge& bridge, const pppoeia_port& port, const byte_string& record)
{
  const auto word_at = [&](size_t at) { return at + 2 <= record.size() ? record[at] << 8 | record[at + 1] : 0; };
  const int outer = word_at(kernel_header::size + 12);
  const bool tagged = outer == 0x88a8 || outer == 0x8100;
  const bool every_vlan = port.port_info_extra == 1 || port.port_info_extra == 5;
  const auto vid = static_cast<uint32_t>(tagged ? word_at(kernel_header::size + 14) & 0xfff : 0);
  return !bridge.disabled && port.state != 0 && (every_vlan || bridge.vlan_enabled.test(vid));
}

// Whether what left shows the server anything but the line's own vendor tag.
bool spoofed(const byte_string& sent, const pppoeia_port& port, const std::string& own)
{
  const std::span<const unsigned char> ethernet =
      std::span(sent).subspan(std::min<size_t>(kernel_header::size, sent.size()));
  const uint8_t code = spoofing::read(ethernet, spoofing::reader::strict).code;
  return (port.trust == 1 || code == 0x09 || code == 0x19) && !spoofing::complaint(ethernet, own).empty();
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
  if (record.size() >= kernel_header::input_port + 2) {
    length_put(record);
    host_put(record, kernel_header::input_port, uint16_t{1});
  }
  kept_identifiers identifiers;
  frame_services services{identifiers, some_mac};
  const byte_string sent = process(*bridge, record, services);
  if (!sent.empty() && (sent.size() > record.size() + 138 || length_field(sent) != sent.size()))
    std::abort();
  if (ruled(*bridge, port, record) && spoofed(sent, port, identifiers.tag_value(*bridge)))
    std::abort();
  if (std::memcmp(&bridge->stats, &port.stats, sizeof port.stats) != 0)
    std::abort();
  return 0;
}
