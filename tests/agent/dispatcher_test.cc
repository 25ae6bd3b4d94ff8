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
  EXPECT_EQ(api_call(88).text("br0").run(), 0);
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
  api_call get(16);
  get.text("br0").room(20);
  EXPECT_EQ(get.run(), 0);
  EXPECT_EQ(get.arguments[1], std::string("VELTRONA") + std::string(12, '\0'));

  api_call cut(16);  // a buffer too small brings back what fits
  cut.text("br0").room(3);
  EXPECT_EQ(cut.run(), 0);
  EXPECT_EQ(cut.arguments[1], "VEL");

  api_call missing(16);
  missing.text("brX").bytes("kept");
  EXPECT_EQ(missing.run(), -ENOENT);
  EXPECT_EQ(missing.status, 0);
  EXPECT_EQ(missing.arguments[1], "kept");
}

TEST(Dispatcher, TextsWithoutAnEndAndShortNumbers)
{
  api_fixture agent;
  agent.port_add(1);
  EXPECT_EQ(api_call(85).text("br0").u32(1).bytes(std::string(4096, 's')).run(), 0);
  EXPECT_STREQ(bridge_find("br0")->port[0].cpe_serial, "ssssssssssss");
  EXPECT_EQ(api_call(25).text("br0").bytes(std::string(39, 'x')).run(), 0);
  EXPECT_STREQ(bridge_find("br0")->shelf_id, std::string(39, 'x').c_str());
  EXPECT_EQ(api_call(25).text("br0").bytes(std::string(40, 'x')).run(), -ENOSPC);
  EXPECT_EQ(api_call(83).text("br0").bytes("\x07").run(), 0);  // zero-extended
  EXPECT_EQ(bridge_find("br0")->chassis_id, 7u);
}

// Neither what the caller had sent nor what an earlier, longer text left in the record.
TEST(Dispatcher, BehindATextThatIsHandedOutAreZeros)
{
  api_fixture agent;
  agent.port_add(1);
  const auto bridge = [](unsigned id) { return api_call(static_cast<uint16_t>(id)).text("br0"); };
  const auto port = [&](unsigned id) { return bridge(id).u32(1); };
  const auto vlan = [&](unsigned id) { return port(id).u16(9); };
  const auto handed_out = [](api_call call) {
    EXPECT_EQ(call.bytes(std::string(300, '~')).run(), 0);
    return call.arguments.back();
  };
  const auto padded = [](std::string text, size_t size = 300) {
    text.resize(size);
    return text;
  };
  EXPECT_EQ(handed_out(bridge(16)), padded("VELTRONA"));
  EXPECT_EQ(handed_out(port(41)), padded("VELTRONA: eth 0/port1:<vid>"));
  const std::pair<api_call, api_call> rows[] = {{bridge(25), bridge(26)}, {bridge(52), bridge(53)},
                                                {bridge(54), bridge(55)}, {port(37), port(38)},
                                                {vlan(58), vlan(59)},     {vlan(60), vlan(61)}};
  for (const auto& [set, get] : rows) {
    EXPECT_EQ(api_call(set).text("a longer text").run(), 0);
    EXPECT_EQ(api_call(set).text("short").run(), 0);
    EXPECT_EQ(handed_out(get), padded("short")) << get.id;
  }
  EXPECT_EQ(handed_out(vlan(69)), padded("short"));
  EXPECT_EQ(handed_out(vlan(66)).substr(8, 2 * 129), padded("short", 129) + padded("short", 129));
}

}  // namespace
