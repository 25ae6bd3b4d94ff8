// What no request reaches, and so no model tries: operations without a function id, null for a result's place, and no
// memory.
#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/log.h"
#include "pppoeia/operations/lookup.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "tests/support/api_fixture.h"
#include "tests/support/syslog_capture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <new>

namespace {
bool memory_gone = false;
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
  return memory_gone ? nullptr : operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
  return memory_gone ? nullptr : operator new[](size);
}

namespace {

using testing::ElementsAre;

class CFunctions : public testing::Test {
protected:
  CFunctions() : bridge(*bridge_find("br0")) { agent.port_add(3); }

  api_fixture agent;
  pppoeia_bridge& bridge;
};

TEST_F(CFunctions, TheMacOfTheCpeIsGivenOut)
{
  uint8_t mac[6] = {};
  pppoeia_bridge_cpe_mac_set("br0", 3, 0xffeeddccbbaaull);
  EXPECT_EQ(pppoeia_bridge_cpe_serial_get("br0", 3, mac), 0);
  EXPECT_THAT(mac, ElementsAre(0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff));
  EXPECT_EQ(pppoeia_bridge_cpe_serial_get("br0", 3, static_cast<uint8_t*>(nullptr)), -EINVAL);
  EXPECT_EQ(pppoeia_bridge_cpe_serial_get("br0", 4, mac), -ENODEV);
}

TEST_F(CFunctions, EntriesGoBackToTheDefaultOfEachField)
{
  pppoeia_circuit_id_mode_port_vlan_set("br0", 3, 1, 2);
  pppoeia_circuit_id_format_port_vlan_set("br0", 3, 1, "c");
  pppoeia_remote_id_format_port_vlan_set("br0", 3, 1, "r");
  const auto entry = [&] {
    const pppoeia_port_vlan* found = port_vlan_find(bridge.port[2], 1);
    return found ? std::to_string(found->cid_mode) + "/" + found->cid_format + "/" + found->rid_format : "none";
  };
  syslog_take();
  pppoeia_log_level = log_debug;
  EXPECT_EQ(pppoeia_circuit_id_mode_port_vlan_def_set("br0", 3, 1), 0);
  EXPECT_EQ(entry(), "0/c/r");
  EXPECT_EQ(pppoeia_circuit_id_format_port_vlan_def_set("br0", 3, 1), 0);
  EXPECT_EQ(entry(), "0//r");
  EXPECT_EQ(pppoeia_remote_id_format_port_vlan_def_set("br0", 3, 1), 0);
  EXPECT_EQ(entry(), "0//");
  pppoeia_log_level = log_info;
  EXPECT_EQ(syslog_take().size(), 9u) << "entry, change and result of each";
  for (const auto operation : {pppoeia_circuit_id_mode_port_vlan_def_set, pppoeia_circuit_id_format_port_vlan_def_set,
                               pppoeia_remote_id_format_port_vlan_def_set}) {
    EXPECT_EQ(operation("br0", 3, 2), -ENOENT);
    EXPECT_EQ(operation("br0", 4, 1), -ENODEV);
  }
}

TEST_F(CFunctions, AVlanOfAPortIsSwitchedWhereTheBridgeHasIt)
{
  int32_t flag = 7;
  EXPECT_EQ(pppoeia_port_vlan_info_set("br0", 3, 600, 0), -1);
  EXPECT_EQ(pppoeia_port_vlan_info_get("br0", 3, 600, &flag), -1);
  EXPECT_EQ(flag, 7);
  bridge.vlan_enabled.set(5);
  for (const int32_t wanted : {0, 1}) {
    EXPECT_EQ(pppoeia_port_vlan_info_set("br0", 3, 5, wanted), 0);
    EXPECT_EQ(pppoeia_port_vlan_info_get("br0", 3, 5, &flag), 0);
    EXPECT_EQ(flag, wanted);
    EXPECT_EQ(bridge.port[2].vlan_info.test(5), wanted == 1);
  }
  EXPECT_EQ(pppoeia_port_vlan_info_set("br0", 4, 5, 0), -ENODEV);
}

TEST_F(CFunctions, ResultsWithoutAPlaceAreRefused)
{
  uint32_t number = 0;
  EXPECT_EQ(pppoeia_bridge_max_pdu_get("brX", nullptr), -EINVAL);
  EXPECT_EQ(pppoeia_log_level_get(nullptr), -EINVAL);
  EXPECT_EQ(pppoeia_debug_admin_state_get(nullptr), -EINVAL);
  EXPECT_EQ(pppoeia_port_pvc_get("br0", 3, nullptr, &number), 1);
  EXPECT_EQ(pppoeia_port_pvc_get("br0", 3, &number, nullptr), 1);
  EXPECT_EQ(pppoeia_port_parent_get("br0", 3, nullptr), 1);
  EXPECT_EQ(br_port_parent_get("br0", 3, nullptr), 1);
  EXPECT_EQ(pppoeia_port_vlan_get_first("br0", 3, nullptr), -ENXIO);
  EXPECT_EQ(pppoeia_port_vlan_get_next("br0", 3, 1, nullptr), -ENXIO);
  EXPECT_EQ(pppoeia_port_vlan_info_get("br0", 3, 1, static_cast<pppoeia_port_vlan_entry*>(nullptr)), -ENXIO);
  std::vector<unsigned char> bytes;
  char id[identifier_text_size] = "kept";
  for (const auto build : {pppoeia_build_circuit_id, pppoeia_build_remote_id}) {
    build(nullptr, &bridge, &bridge.port[2], 1, bytes, 0);
    build(id, nullptr, &bridge.port[2], 1, bytes, 0);
    build(id, &bridge, nullptr, 1, bytes, 0);
  }
  EXPECT_STREQ(id, "kept");
}

TEST_F(CFunctions, WithoutMemoryNothingIsAdded)
{
  pppoeia_log_level = log_debug;
  syslog_take();
  memory_gone = true;
  EXPECT_EQ(pppoeia_vlan_add("br0", 1), -ENOMEM);
  EXPECT_EQ(pppoeia_port_vlan_add("br0", 3, 1), -ENOMEM);
  EXPECT_EQ(pppoeia_circuit_id_mode_port_vlan_set("br0", 3, 1, 2), -ENOENT);
  EXPECT_EQ(pppoeia_remote_id_format_port_vlan_set("br0", 3, 1, "r"), -ENOENT);
  pppoeia_log_level = log_critical;
  pppoeia_log(log_critical, "%1000s", "");
  pppoeia_fini();
  EXPECT_EQ(pppoeia_init(), -ENOMEM);
  memory_gone = false;
  EXPECT_THAT(syslog_take_texts(),
              ElementsAre("pppoeia_vlan_add(br0, 1)", "pppoeia_vlan_add()=-ENOMEM", "pppoeia_port_vlan_add(br0, 3, 1)",
                          "br_port_vlan_add()=-ENOMEM", "pppoeia_port_vlan_add()=-12",
                          "pppoeia_circuit_id_mode_port_vlan_set(br0, 3, 1, 2)", "br_port_vlan_add()=-ENOMEM",
                          "br_port_vlan_add failed", "pppoeia_remote_id_format_port_vlan_set(br0, 3, 1, r)",
                          "br_port_vlan_add()=-ENOMEM", "br_port_vlan_add failed", "Cannot allocate memory."));
}

}  // namespace
