// Every row of the API by its function id.
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "tests/support/api_fixture.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

TEST(Dispatcher, RefusesOtherIdsAndLeavesTheArguments)
{
  api_fixture agent;
  EXPECT_EQ(api_call("clear_port_vlan_all").text("br0").run(), 0);
  for (const uint16_t id : {uint16_t{89}, uint16_t{90}, uint16_t{65535}}) {
    api_call call(id);
    call.text("br0").run();
    EXPECT_EQ(call.status, -1);
    EXPECT_FALSE(call.has_result);
    EXPECT_EQ(call.arguments[0], std::string("br0\0", 4));
  }
}

TEST(Dispatcher, EveryRowTakesItsCountAndNoOther)
{
  api_fixture agent;
  for (const api::operation& operation : api::operations) {
    for (size_t count = 0; count <= api::arguments_max + 1; ++count) {
      if (operation.name == "pppoeia_init" && count == 0)
        continue;  // a second initialisation would leave the bridge's worker behind
      api_call call(operation.id);
      for (size_t i = 0; i < count; ++i)
        call.room(8);
      call.run();
      EXPECT_EQ(call.status, count == operation.argument_count ? 0 : -1) << operation.name << " " << count;
    }
  }
}

TEST(Dispatcher, ResultsTravelInTheCallersBuffers)
{
  api_fixture agent;
  api_call get("pppoeia_bridge_vendor_get");
  get.text("br0").room(20);
  EXPECT_EQ(get.run(), 0);
  EXPECT_EQ(get.arguments[1], std::string("VELTRONA") + std::string(12, '\0'));

  api_call cut("pppoeia_bridge_vendor_get");  // a buffer too small brings back what fits
  cut.text("br0").room(3);
  EXPECT_EQ(cut.run(), 0);
  EXPECT_EQ(cut.arguments[1], "VEL");

  api_call missing("pppoeia_bridge_vendor_get");
  missing.text("brX").bytes("kept");
  EXPECT_EQ(missing.run(), -ENOENT);
  EXPECT_EQ(missing.status, 0);
  EXPECT_EQ(missing.arguments[1], "kept");
}

TEST(Dispatcher, TextsWithoutAnEndAndShortNumbers)
{
  api_fixture agent;
  agent.port_add(1);
  EXPECT_EQ(api_call("pppoeia_bridge_cpe_serial_set").text("br0").u32(1).bytes(std::string(4096, 's')).run(), 0);
  EXPECT_STREQ(bridge_find("br0")->port[0].cpe_serial, "ssssssssssss");
  EXPECT_EQ(api_call("pppoeia_bridge_shelf_id_set").text("br0").bytes(std::string(39, 'x')).run(), 0);
  EXPECT_STREQ(bridge_find("br0")->shelf_id, std::string(39, 'x').c_str());
  EXPECT_EQ(api_call("pppoeia_bridge_shelf_id_set").text("br0").bytes(std::string(40, 'x')).run(), -ENOSPC);
  EXPECT_EQ(api_call("pppoeia_bridge_chassis_id_set").text("br0").bytes("\x07").run(), 0);  // zero-extended
  EXPECT_EQ(bridge_find("br0")->chassis_id, 7u);
}

// Neither what the caller had sent nor what an earlier, longer text left in the record.
TEST(Dispatcher, BehindATextThatIsHandedOutAreZeros)
{
  api_fixture agent;
  agent.port_add(1);
  const auto bridge = [](std::string_view name) { return api_call(name).text("br0"); };
  const auto of_port = [&](std::string_view name) { return bridge(name).u32(1); };
  const auto of_vlan = [&](std::string_view name) { return of_port(name).u16(9); };
  const auto handed_out = [](api_call call) {
    EXPECT_EQ(call.bytes(std::string(300, '~')).run(), 0);
    return call.arguments.back();
  };
  const auto padded = [](std::string text, size_t size = 300) {
    text.resize(size);
    return text;
  };
  EXPECT_EQ(handed_out(bridge("pppoeia_bridge_vendor_get")), padded("VELTRONA"));
  EXPECT_EQ(handed_out(of_port("pppoeia_port_circuit_id_get")), padded("VELTRONA: eth 0/port1:<vid>"));
  const std::pair<api_call, api_call> rows[] = {
      {bridge("pppoeia_circuit_id_format_set"), bridge("pppoeia_circuit_id_format_get")},
      {bridge("pppoeia_remote_id_format_set"), bridge("pppoeia_remote_id_format_get")},
      {of_port("pppoeia_port_remote_id_set"), of_port("pppoeia_port_remote_id_get")},
      {of_vlan("pppoeia_circuit_id_format_port_vlan_set"), of_vlan("pppoeia_circuit_id_format_port_vlan_get")},
      {of_vlan("pppoeia_remote_id_format_port_vlan_set"), of_vlan("pppoeia_remote_id_format_port_vlan_get")}};
  for (const auto& [set, get] : rows) {
    EXPECT_EQ(api_call(set).text("a longer text").run(), 0);
    EXPECT_EQ(api_call(set).text("short").run(), 0);
    EXPECT_EQ(handed_out(get), padded("short")) << get.id;
  }
  EXPECT_EQ(handed_out(of_vlan("gen_remote_id_by_intf_vlan")), padded("short"));
  EXPECT_EQ(handed_out(of_vlan("pppoeia_port_vlan_info_get")).substr(8, 2 * 129),
            padded("short", 129) + padded("short", 129));
}

}  // namespace
