#include "tests/support/records_fixture.h"

#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/kernel/frame_buffers.h"
#include "pppoeia/list.h"
#include "pppoeia/text.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

void put16(byte_string& to, unsigned value)
{
  to.push_back(static_cast<unsigned char>(value >> 8));
  to.push_back(static_cast<unsigned char>(value));
}

int fixed_mac(unsigned char mac[6])
{
  const unsigned char address[6] = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
  std::memcpy(mac, address, sizeof address);
  return 0;
}

}  // namespace

test_bridge::test_bridge(uint32_t ports, const char* name)
{
  void* block = std::calloc(1, bridge_record_size(ports));
  record_ = new (block) pppoeia_bridge{};
  record_->ports = record_->port_count = ports;
  pthread_mutex_init(&record_->mutex, nullptr);
  text_copy(record_->name, name);
  record_->mtu = 1500;
  record_->max_pdu = 1500;
  record_->stag_ethertype = 0x88a8;
  record_->buffer_size = 1606;
  record_->frame_buffer = frame_buffers_new(record_->buffer_size);
  record_->board_pos = 3;
  record_->vlan_enabled.set(0);
  for (uint32_t slot = 0; slot < ports; ++slot)
    std::memset(&record_->port[slot].vlan_info, 0xff, sizeof(vlan_set));
  pppoeia_frame_adjust = 106;
}

test_bridge::~test_bridge()
{
  for (uint32_t slot = 0; slot <= record_->ports; ++slot)
    list_free(record_->port[slot].port_vlans);
  list_free(record_->vlans);
  pthread_mutex_destroy(&record_->mutex);
  std::free(record_->frame_buffer);
  std::free(record_);
}

pppoeia_port& test_bridge::port(uint32_t id, int32_t state, uint32_t trust)
{
  pppoeia_port& port = record_->port[id - 1];
  port.port_id = id;
  text_copy(port.dev_name, ("dev" + std::to_string(id)).c_str());
  text_copy(port.port_name, ("port" + std::to_string(id)).c_str());
  text_copy(port.type, "eth");
  port.state = state;
  port.trust = trust;
  port.vpi = port.vci = -1;
  return port;
}

void length_put(byte_string& record)
{
  host_put(record, kernel_header::record_length, static_cast<uint32_t>(record.size()));
}

byte_string test_frame::build() const
{
  byte_string payload;
  for (const test_tag& tag : tags) {
    put16(payload, tag.type);
    put16(payload, static_cast<unsigned>(tag.value.size()));
    payload.insert(payload.end(), tag.value.begin(), tag.value.end());
  }
  byte_string record;
  record.reserve(2048);
  record.resize(kernel_header::size);
  be16_put(record, kernel_header::vlan_word, first_word);
  be16_put(record, kernel_header::cvlan_word, second_word);
  host_put(record, kernel_header::input_port, port);
  std::strcpy(reinterpret_cast<char*>(&record[kernel_header::input_device]), "in0");
  std::strcpy(reinterpret_cast<char*>(&record[kernel_header::output_device]), "out0");
  record.resize(record.size() + 6, 0xff);
  record.insert(record.end(), source.begin(), source.end());
  for (const uint32_t tag : vlan_tags) {
    put16(record, tag >> 16);
    put16(record, tag & 0xffff);
  }
  put16(record, 0x8863);
  record.push_back(0x11);
  record.push_back(code);
  put16(record, session_id);
  put16(record, payload_length < 0 ? static_cast<unsigned>(payload.size()) : static_cast<unsigned>(payload_length));
  record.insert(record.end(), payload.begin(), payload.end());
  record.insert(record.end(), trailer.begin(), trailer.end());
  length_put(record);
  return record;
}

std::string vendor_value(const std::string& circuit_id, const std::string& remote_id)
{
  std::string value("\x00\x00\x0d\xe9\x01", 5);
  value += static_cast<char>(circuit_id.size());
  value += circuit_id;
  value += '\x02';
  value += static_cast<char>(remote_id.size());
  return value + remote_id;
}

byte_string process(pppoeia_bridge& bridge, const byte_string& record, frame_services& services)
{
  // A heap block of exactly the promised capacity: reading or writing past it is seen by the sanitizers.
  byte_string buffer(bridge.buffer_size + frame_growth_max);
  std::copy(record.begin(), record.end(), buffer.begin());
  const frame_record view{buffer.data(), static_cast<uint32_t>(record.size()), static_cast<uint32_t>(buffer.size())};
  const uint32_t length = frame_process(bridge, view, services).length;
  return {buffer.begin(), buffer.begin() + length};
}

byte_string process(pppoeia_bridge& bridge, const byte_string& record)
{
  builder_identifiers identifiers;
  frame_services services{identifiers, fixed_mac};
  return process(bridge, record, services);
}
