#include "tests/customid/example_node.h"

#include "pppoeia/identifiers/test_data.h"
#include "pppoeia/list.h"
#include "pppoeia/text.h"
#include "tests/customid/node_stub.h"

namespace {

pppoeia_port& line(test_bridge& bridge, uint32_t id, const char* type, const char* name)
{
  pppoeia_port& port = bridge.port(id, 1, 0);
  text_copy(port.type, type);
  text_copy(port.port_name, name);
  return port;
}

void vlan(pppoeia_bridge& bridge, uint16_t id, const char* name)
{
  auto* record = new pppoeia_vlan{};
  record->vlan_id = id;
  text_copy(record->name, name);
  list_link(bridge.vlans, record);
}

void subscribers(test_bridge& bridge)
{
  pppoeia_port& ethernet = line(bridge, 7, "eth", "0/7");
  text_copy(ethernet.remote_id, "C-4711");
  text_copy(ethernet.intf_descr, "Main Street 5");
  text_copy(ethernet.cpe_serial, "SN0042");
  const uint8_t cpe[6] = {0x02, 0xaa, 0xbb, 0x00, 0x00, 0x07};
  std::memcpy(ethernet.cpe_mac, cpe, sizeof cpe);
  std::memcpy(ethernet.location.panel, "P1", 2);

  pppoeia_port& atm = line(bridge, 9, "atm", "0/9");
  atm.vpi = 8;
  atm.vci = 35;
  atm.location.pvc_intf = 2;
  atm.location.panel_kind = 2;
  atm.parent_id = 7;
  line(bridge, 10, "atm", "0/10").parent_id = 30;  // no PVC, and no such parent

  line(bridge, 20, "onu", "onu 20").location.onu = 12;
  pppoeia_port& gem = line(bridge, 21, "gem", "gem 21");
  gem.location.onu = 12;
  gem.location.gem = 3001;
  gem.parent_id = 20;
}

}  // namespace

example_node::example_node()
{
  text_copy(bridge_->shelf_id, "shelf-1");
  text_copy(bridge_->sysname, "AN12");
  text_copy(bridge_->location, "Springfield CO 3");
  text_copy(bridge_->contact, "noc@example.net");
  bridge_->frame_client_mac = 0x021122aabbcc;
  subscribers(bridge_);
  vlan(*bridge_, 100, "internet");
  vlan(*bridge_, 300, "");
  node() = {};
  node().ipv4["dev7"] = {10, 1, 2, 30};
  node().ipv6 = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  customFormatTestData.vlan = 300;
  customFormatTestData.cvid = 5;
  customFormatTestData.intfId = 7;
  customFormatTestData.onu = 77;
  customFormatTestData.vgem = 78;
  const uint8_t client[6] = {0x02, 0, 0, 0, 0, 0x99};
  std::memcpy(customFormatTestData.clntMac, client, sizeof client);
}
