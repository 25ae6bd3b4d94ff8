// Formats of any bytes on records of any content. An input is a format, a NUL, and bytes that fill the records.
// Found wrong: whatever the sanitizers see, an identifier that is too long, and a difference between the parser's run
// in turn with the rest and its findings kept.
#include "pppoeia/customid/binary.h"
#include "pppoeia/customid/formatter.h"
#include "pppoeia/customid/parser.h"
#include "pppoeia/customid/trace.h"
#include "pppoeia/identifiers/macro_values.h"
#include "pppoeia/identifiers/test_data.h"
#include "pppoeia/list.h"
#include "pppoeia/log.h"
#include "tests/customid/node_stub.h"
#include "tests/support/records_fixture.h"
#include "tests/support/syslog_capture.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

// The rest of an input; zeros behind its end.
struct content {
  std::string_view rest;

  uint8_t byte()
  {
    if (rest.empty())
      return 0;
    const auto first = static_cast<uint8_t>(rest.front());
    rest.remove_prefix(1);
    return first;
  }

  unsigned number() { return byte() | static_cast<unsigned>(byte()) << 8; }

  // A text up to its NUL; the field's last byte stays NUL.
  template <size_t Size>
  void text(char (&field)[Size], size_t most = Size - 1)
  {
    for (size_t i = 0; i < most && (field[i] = static_cast<char>(byte())); ++i)
      ;
  }
};

struct identifier_pair {
  std::string text;
  std::vector<unsigned char> bin;

  bool operator==(const identifier_pair&) const = default;
};

void require(bool condition)
{
  if (!condition)
    std::abort();
}

void fill_port(pppoeia_port& port, content& bytes)
{
  constexpr const char* types[] = {"eth", "atm", "onu", "gem", ""};
  std::strcpy(port.type, types[bytes.byte() % 5]);
  port.parent_id = bytes.byte() % 6;
  port.location.panel_kind = bytes.byte() % 4;
  bytes.text(port.location.panel, sizeof port.location.panel);
  port.location.onu = bytes.number() * 65537u;
  port.location.gem = bytes.number();
  port.location.pvc_intf = bytes.number();
  port.vpi = static_cast<int32_t>(bytes.number()) - 1;
  port.vci = static_cast<int32_t>(bytes.number()) - 1;
  for (uint8_t& octet : port.cpe_mac)
    octet = bytes.byte();
  bytes.text(port.remote_id);
  bytes.text(port.intf_descr);
  bytes.text(port.port_name);
  bytes.text(port.cpe_serial);
}

void fill_node(content& bytes)
{
  node() = {};
  if (bytes.byte() % 4 == 0)
    node().board.reset();
  if (bytes.byte() % 2)
    node().ipv4["dev1"] = {bytes.byte(), bytes.byte(), bytes.byte(), bytes.byte()};
  if (bytes.byte() % 2) {
    node().ipv6.emplace();
    for (uint8_t& octet : *node().ipv6)
      octet = bytes.byte();
  }
  if (bytes.byte() % 4 == 0)
    node().mac.reset();
}

void fill_bridge(pppoeia_bridge& bridge, content& bytes)
{
  bytes.text(bridge.shelf_id);
  bytes.text(bridge.sysname);
  bytes.text(bridge.location);
  bytes.text(bridge.contact);
  bridge.chassis_id = bytes.number() * 65537u;
  bridge.frame_client_mac = bytes.number() * 0x100010001u;
  customFormatTestData.onu = bytes.number();
  customFormatTestData.vlan = static_cast<uint16_t>(bytes.number());
  customFormatTestData.intfId = bytes.byte() % 8;
}

identifier_pair generate(const pppoeia_bridge& bridge, const std::string& format, content bytes, bool listened_to)
{
  pppoeia_log_level = listened_to ? log_debug : log_info;
  customFormatTestDebug = listened_to;
  identifier_pair id;
  const auto use_data = static_cast<idGenType>(bytes.byte() % 3);
  const unsigned port = bytes.byte() % 8;
  const auto vid = static_cast<uint16_t>(bytes.number());
  const auto cvid = static_cast<uint16_t>(bytes.number());
  require(genCustomId(&bridge, port, vid, cvid, format, id.text, id.bin, use_data));
  require(id.bin.empty() ? id.text.size() <= customIdMax : id.bin.size() <= customIdMax);
  return id;
}

// The steps by themselves, with arguments that no format leads to.
void single_steps(const std::string& format, content bytes)
{
  std::string delimiter;
  unsigned num_chars = bytes.number();
  char flags = 0;
  parseOptChars(format, delimiter, num_chars, flags);
  const auto type = static_cast<customIdFormat>(bytes.byte() % 32 - 1);
  std::string processed;
  processMacroString(format, type, static_cast<char>(bytes.byte()), delimiter, num_chars, processed);
  std::vector<std::string> groups;
  ipv6AddrStrToVector(format, groups);
  std::vector<unsigned char> bin;
  idStringToBinaryVector(format, {{bytes.byte() % 8u, bytes.byte() % 16u}, {bytes.byte(), bytes.byte()}}, bin);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  return std::freopen("/dev/null", "w", stdout) ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string format(input.substr(0, input.find('\0')));
  content bytes{input.size() > format.size() ? input.substr(format.size() + 1) : std::string_view()};
  syslog_keep(false);
  const content arguments = bytes;
  bytes.rest.remove_prefix(std::min<size_t>(6, bytes.rest.size()));
  test_bridge bridge(6);
  fill_node(bytes);
  fill_port(bridge.port(1, 1, 1), bytes);
  fill_port(bridge.port(4, 1, 1), bytes);
  fill_bridge(*bridge, bytes);
  pppoeia_vlan named{nullptr, nullptr, 100, ""};
  bytes.text(named.name);
  bridge->vlans = &named;
  const identifier_pair plain = generate(*bridge, format, arguments, true);
  require(generate(*bridge, format, arguments, false) == plain);
  require(generate(*bridge, format, arguments, false) == plain);
  bridge->vlans = nullptr;
  pppoeia_log_level = log_debug;
  single_steps(format, arguments);
  return 0;
}
