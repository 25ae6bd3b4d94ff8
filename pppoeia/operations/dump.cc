// The report of one bridge for operators. Its records are read without the lock: only the management thread, which
// runs this too, changes them.
#include "pppoeia/pppoeia.h"

#include "pppoeia/operations/operation.h"
#include "pppoeia/tty.h"
#include "rte/BLL/util/kv_util.h"

#include <sstream>

namespace {

using report = std::stringstream;

void global_section(report& out, const pppoeia_bridge& bridge)
{
  out << " Global data:\n ------------\n"
      << " pppoeia_cid_format: '" << bridge.pppoeia_cid_format << "'\n"
      << " pppoeia_rid_format: '" << bridge.pppoeia_rid_format << "'\n"
      << " stag_ethertype_nf: " << CKvUtil::etherTypeToString(bridge.stag_ethertype) << "\n";
}

// Names a port; the caller ends the line.
void port_heading(report& out, const pppoeia_port& port)
{
  out << " \tPort Id: " << port.port_id << ", dev name: '" << port.dev_name << "', port_name: '" << port.port_name
      << "'";
}

void neighbour_line(report& out, const char* which, const pppoeia_port_vlan* neighbour)
{
  out << "\t\t\t" << which << " vlan_id: ";
  if (neighbour)
    out << neighbour->vlan_id << "\n";
  else
    out << "/\n";
}

void port_vlan_entry(report& out, const pppoeia_port_vlan& entry)
{
  out << "\t\tVlan: " << entry.vlan_id << "\n"
      << "\t\t\tcid_mode: " << entry.cid_mode << "\n"
      << "\t\t\tcid_format: '" << entry.cid_format << "'\n"
      << "\t\t\trid_format: '" << entry.rid_format << "'\n";
  neighbour_line(out, "prev", entry.prev);
  neighbour_line(out, "next", entry.next);
}

void port_vlan_section(report& out, const pppoeia_bridge& bridge, uint32_t selector)
{
  out << " port_vlan data:\n ---------------\n";
  for (uint32_t slot = 0; slot < bridge.port_count; ++slot) {
    const pppoeia_port& port = bridge.port[slot];
    if (!port.port_vlans || (selector != 0 && port.port_id != selector))
      continue;
    port_heading(out, port);
    out << ": \n";
    for (const pppoeia_port_vlan* entry = port.port_vlans; entry; entry = entry->next)
      port_vlan_entry(out, *entry);
  }
}

void port_section(report& out, const pppoeia_bridge& bridge, uint32_t selector)
{
  out << " port data:\n";
  for (uint32_t slot = 0; slot < bridge.port_count; ++slot) {
    const pppoeia_port& port = bridge.port[slot];
    if (!port.cpe_serial[0] || (selector != 0 && port.port_id != selector))
      continue;
    port_heading(out, port);
    out << ", CPE serial: " << port.cpe_serial << "', CPE MAC: " << CKvUtil::macToString(port.cpe_mac) << "\n";
  }
}

void vlan_section(report& out, const pppoeia_bridge& bridge)
{
  out << " vlan data:\n";
  for (const pppoeia_vlan* vlan = bridge.vlans; vlan; vlan = vlan->next) {
    out << "\tVlan: " << vlan->vlan_id << ", name: '" << vlan->name << "', prev: ";
    if (vlan->prev)
      out << vlan->prev->vlan_id << ", next: ";
    else
      out << "/, next: ";
    if (vlan->next)
      out << vlan->next->vlan_id << "\n";
    else
      out << "/\n";
  }
}

}  // namespace

int pppoeia_dump(const char* bridge, uint32_t port_selector, const char* tty)
{
  const operation self{__func__};
  self.entry(bridge, port_selector);
  const pppoeia_bridge* record = bridge_find(bridge);
  if (!record)
    return self.no_entry();
  report out;
  global_section(out, *record);
  port_vlan_section(out, *record, port_selector);
  port_section(out, *record, port_selector);
  vlan_section(out, *record);
  pppoeia_send_stream_to_tty(out, tty);
  return self.result(0);
}
