// The dump of the records, as the operator reads it. What operations do to them is the model's.
#include "base/caller.h"
#include "pppoeia/pppoeia.h"
#include "tests/support/api_fixture.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace {

TEST(Dump, TellsEveryRecord)
{
  api_fixture agent;
  agent.port_add(3);
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
TEST(Dump, ThatCannotBeWrittenIsLogged)
{
  const api_fixture agent;
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
