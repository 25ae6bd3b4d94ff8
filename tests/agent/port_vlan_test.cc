// Named VLANs, the entries of ports and VLANs, the dump and the way back to defaults.
#include "base/caller.h"
#include "pppoeia/log.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "tests/support/api_fixture.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

using testing::ElementsAre;

class PortVlan : public testing::Test {
protected:
  PortVlan() : bridge(*bridge_find("br0")) { agent.port_add(3); }

  std::vector<int> vlans(uint32_t port)
  {
    std::vector<int> ids;
    const pppoeia_port_vlan* before = nullptr;
    for (const pppoeia_port_vlan* at = bridge.port[port - 1].port_vlans; at; before = at, at = at->next) {
      EXPECT_EQ(at->prev, before);
      ids.push_back(at->vlan_id);
    }
    return ids;
  }

  api_fixture agent;
  pppoeia_bridge& bridge;
};

TEST_F(PortVlan, ListIsAscendingWithoutDuplicates)
{
  for (const uint16_t vlan : std::initializer_list<uint16_t>{30, 10, 20, 20, 65535, 4096})
    EXPECT_EQ(pppoeia_port_vlan_add("br0", 3, vlan), 0);
  EXPECT_THAT(vlans(3), ElementsAre(10, 20, 30, 4096, 65535));
  EXPECT_EQ(pppoeia_port_vlan_del("br0", 3, 10), 0);
  EXPECT_EQ(pppoeia_port_vlan_del("br0", 3, 10), 0);
  EXPECT_EQ(pppoeia_port_vlan_del("br0", 3, 65535), 0);
  EXPECT_THAT(vlans(3), ElementsAre(20, 30, 4096));
}

TEST_F(PortVlan, IterationAndItsIdWidths)
{
  for (const uint16_t vlan : std::initializer_list<uint16_t>{300, 5, 42})
    pppoeia_port_vlan_add("br0", 3, vlan);
  pppoeia_port_vlan_entry entry;
  std::memset(&entry, 0xee, sizeof entry);
  EXPECT_EQ(pppoeia_port_vlan_get_first("br0", 3, &entry), 0);
  EXPECT_EQ(entry.vlan_id, 0xeeee0005u);  // the upper half is the caller's
  EXPECT_EQ(entry.cid_mode, -1);
  EXPECT_EQ(pppoeia_port_vlan_get_next("br0", 3, 5, &entry), 0);
  EXPECT_EQ(entry.vlan_id, 42u);
  EXPECT_EQ(pppoeia_port_vlan_get_next("br0", 3, 300, &entry), -ENOENT);
  EXPECT_EQ(pppoeia_port_vlan_get_next("br0", 3, 6, &entry), -ENOENT);
  EXPECT_EQ(pppoeia_port_vlan_info_get("br0", 3, 300, &entry), 0);
  EXPECT_EQ(entry.vlan_id, 300u);
  EXPECT_EQ(pppoeia_port_vlan_get_first("br0", 3, nullptr), -ENXIO);
}

TEST_F(PortVlan, EntryLivesWhileItCarriesSomething)
{
  const auto entry_after = [&](int result) -> std::string {
    EXPECT_EQ(result, 0);
    const pppoeia_port_vlan* entry = port_vlan_find(bridge.port[2], 100);
    return entry ? std::to_string(entry->cid_mode) + "/" + entry->cid_format + "/" + entry->rid_format : "none";
  };
  const auto mode = [&](uint32_t to) { return entry_after(pppoeia_circuit_id_mode_port_vlan_set("br0", 3, 100, to)); };
  const auto cid = [&](const char* to) {
    return entry_after(pppoeia_circuit_id_format_port_vlan_set("br0", 3, 100, to));
  };
  const auto rid = [&](const char* to) {
    return entry_after(pppoeia_remote_id_format_port_vlan_set("br0", 3, 100, to));
  };
  constexpr uint32_t unset = 0xffffffff;

  EXPECT_EQ(mode(unset), "none");  // nothing there, nothing made
  EXPECT_EQ(cid(""), "none");
  EXPECT_EQ(mode(2), "2//");
  EXPECT_EQ(mode(unset), "none");

  EXPECT_EQ(cid("$PORT"), "-1/$PORT/");
  EXPECT_EQ(mode(unset), "0/$PORT/");  // kept for its format
  EXPECT_EQ(cid(""), "0//");           // a mode of 0 is something
  EXPECT_EQ(mode(unset), "none");

  EXPECT_EQ(rid("r"), "-1//r");
  EXPECT_EQ(cid("c"), "-1/c/r");
  EXPECT_EQ(rid(""), "-1/c/");
  EXPECT_EQ(cid(""), "none");
}

TEST_F(PortVlan, FormatsHoldOneCharacterLessThanTheBridges)
{
  EXPECT_EQ(pppoeia_circuit_id_format_port_vlan_set("br0", 3, 1, std::string(127, 'f').c_str()), 0);
  EXPECT_EQ(pppoeia_circuit_id_format_port_vlan_set("br0", 3, 1, std::string(128, 'f').c_str()), -ENOSPC);
  EXPECT_EQ(pppoeia_circuit_id_format_port_vlan_set("br0", 4, 1, std::string(128, 'f').c_str()), -ENODEV);
  char format[129];
  EXPECT_EQ(pppoeia_circuit_id_format_port_vlan_get("br0", 3, 1, format), 0);
  EXPECT_EQ(std::strlen(format), 127u);
  EXPECT_EQ(pppoeia_circuit_id_format_port_vlan_def_set("br0", 3, 1), 0);
  EXPECT_EQ(pppoeia_circuit_id_mode_port_vlan_def_set("br0", 3, 1), 0);
  EXPECT_EQ(pppoeia_remote_id_format_port_vlan_def_set("br0", 3, 2), -ENOENT);
  uint32_t mode = 7;
  EXPECT_EQ(pppoeia_circuit_id_mode_port_vlan_get("br0", 3, 1, &mode), 0);
  EXPECT_EQ(mode, 0u);
}

TEST_F(PortVlan, NamedVlans)
{
  EXPECT_EQ(pppoeia_vlan_name_set("br0", 7, "x"), -ENODEV);
  EXPECT_EQ(pppoeia_vlan_add("br0", 7), 0);
  EXPECT_EQ(pppoeia_vlan_name_set("br0", 7, std::string(31, 'n').c_str()), 0);
  EXPECT_EQ(pppoeia_vlan_name_set("br0", 7, std::string(32, 'n').c_str()), -ENOSPC);
  EXPECT_EQ(std::strlen(vlan_find(bridge, 7)->name), 31u);
  EXPECT_EQ(pppoeia_vlan_del("br0", 8), 0);
  EXPECT_EQ(clear_vlan("br0"), 0);
  EXPECT_EQ(bridge.vlans, nullptr);
}

TEST_F(PortVlan, ClearAllStopsAtARemovedPort)
{
  agent.port_add(2);
  agent.port_add(4);
  for (const uint32_t port : {2u, 3u, 4u})
    pppoeia_port_vlan_add("br0", port, 1);
  pppoeia_port_del("br0", 3);
  EXPECT_EQ(clear_port_vlan_all("br0"), -ENODEV);
  EXPECT_THAT(vlans(2), ElementsAre());
  EXPECT_THAT(vlans(4), ElementsAre(1));
}

TEST_F(PortVlan, DefaultsStickFromAServerSidePortOn)
{
  agent.port_add(1, "eth", 0);
  agent.port_add(2, "eth", 5);
  pppoeia_bridge_vlan_set("br0", 600, 1);
  pppoeia_bridge_vlan_set("br0", 5, 1);
  pppoeia_port_remote_id_set("br0", 1, "gone");
  EXPECT_EQ(pppoeia_apply_default_settings("br0"), 0);
  EXPECT_EQ(pppoeia_log_level.load(), 3);
  EXPECT_EQ(bridge.disabled, 1u);
  EXPECT_STREQ(bridge.pppoeia_rid_format, "$PORT_REM_ID");
  EXPECT_TRUE(bridge.vlan_enabled.test(600));
  EXPECT_FALSE(bridge.vlan_enabled.test(5));
  const std::pair<int32_t, uint32_t> expected[] = {{0, 1}, {3, 0}, {3, 0}};
  for (int slot = 0; slot < 3; ++slot)
    EXPECT_EQ(std::pair(bridge.port[slot].state, bridge.port[slot].trust), expected[slot]) << slot;
  EXPECT_STREQ(bridge.port[0].remote_id, "");
  pppoeia_port_del("br0", 2);
  EXPECT_EQ(pppoeia_apply_default_settings("br0"), -ENODEV);
}

TEST_F(PortVlan, Dump)
{
  agent.port_add(1);
  pppoeia_circuit_id_format_set("br0", "$PORT");
  pppoeia_circuit_id_mode_port_vlan_set("br0", 1, 10, 2);
  pppoeia_port_vlan_add("br0", 1, 20);
  pppoeia_port_vlan_add("br0", 3, 30);
  pppoeia_bridge_cpe_serial_set("br0", 1, "SN1");
  pppoeia_bridge_cpe_mac_set("br0", 1, 0xffeeddccbbaaull);
  pppoeia_vlan_add("br0", 5);
  pppoeia_vlan_add("br0", 9);
  const std::string path = testing::TempDir() + "dump" + std::to_string(getpid());
  const auto dump = [&](uint32_t selector) {
    std::ofstream(path).close();
    EXPECT_EQ(pppoeia_dump("br0", selector, path.c_str()), 0);
    return file_text(path);
  };
  const std::string head = " Global data:\n ------------\n pppoeia_cid_format: '$PORT'\n pppoeia_rid_format: ''\n"
                           " stag_ethertype_nf: 0x88a8\n port_vlan data:\n ---------------\n";
  const std::string tail =
      " vlan data:\n\tVlan: 5, name: '', prev: /, next: 9\n\tVlan: 9, name: '', prev: 5, next: /\n";
  EXPECT_EQ(dump(1), head +
                         " \tPort Id: 1, dev name: 'dev1', port_name: 'port1': \n"
                         "\t\tVlan: 10\n\t\t\tcid_mode: 2\n\t\t\tcid_format: ''\n\t\t\trid_format: ''\n"
                         "\t\t\tprev vlan_id: /\n\t\t\tnext vlan_id: 20\n"
                         "\t\tVlan: 20\n\t\t\tcid_mode: -1\n\t\t\tcid_format: ''\n\t\t\trid_format: ''\n"
                         "\t\t\tprev vlan_id: 10\n\t\t\tnext vlan_id: /\n"
                         " port data:\n \tPort Id: 1, dev name: 'dev1', port_name: 'port1', CPE serial: SN1', "
                         "CPE MAC: aa:bb:cc:dd:ee:ff\n" +
                         tail);
  EXPECT_EQ(dump(7), head + " port data:\n" + tail);
  EXPECT_NE(dump(0).find("Port Id: 3"), std::string::npos);
  std::filesystem::remove(path);
  EXPECT_EQ(pppoeia_dump("brX", 0, ""), -ENOENT);
}

// A terminal that cannot be opened, or not with the rights of whoever asked, loses the report only.
TEST_F(PortVlan, ReportThatCannotBeWrittenIsLogged)
{
  const auto logged = [](const std::string& tty) {
    syslog_take();
    EXPECT_EQ(pppoeia_dump("br0", 0, tty.c_str()), 0);
    std::string lines;
    for (const syslog_line& line : syslog_take())
      lines += std::to_string(line.priority) + line.text;
    return lines;
  };
  EXPECT_EQ(logged(""), "");
  EXPECT_EQ(logged("/dev/null"), "");
  EXPECT_EQ(logged("/nonexistent/tty"), "2\t PPPoEIA: Error opening tty file for writing: /nonexistent/tty\n");
  const caller_scope unknown(nullptr);
  EXPECT_EQ(logged("/dev/null"), "2\t PPPoEIA: Error opening tty file for writing: /dev/null\n");
}

}  // namespace
