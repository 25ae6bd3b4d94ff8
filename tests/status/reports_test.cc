// What the status socket tells, to the last field: metrics, lines, dropped frames, and which of them were asked for.
#include "platform/kvbridge/record_header.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/reports.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

using values = std::vector<std::pair<std::string, std::string>>;

std::optional<filter> read(const values& asked)
{
  http_request request;
  request.values = asked;
  return filter_read(request);
}

class Reports : public testing::Test {
protected:
  ~Reports() override
  {
    bridge_statuses::close(second);
    bridge_statuses::close(first);
  }

  // A frame of 60 bytes of client 02:00:00:00:00:`last_byte`, as the frame path leaves it.
  static void done(bridge_status* bridge, fate what, uint8_t code, uint16_t port, unsigned char last_byte = 1,
                   uint64_t at_ns = 1)
  {
    unsigned char record[kernel_header::size + 100] = {};
    unsigned char* const frame = record + kernel_header::size;
    frame[6] = 2;
    frame[11] = last_byte;
    const frame_record view{record, kernel_header::size + 60, sizeof record};
    bridge->frame_done(view, {.length = 0, .what = what, .code = code, .port = port, .vid = 9}, at_ns);
  }
  static std::vector<std::string> lines_with(const std::string& part, metrics_style style)
  {
    std::vector<std::string> found;
    std::istringstream text(metrics_text(style));
    for (std::string line; std::getline(text, line);)
      if (line.find(part) != std::string::npos)
        found.push_back(line);
    return found;
  }
  static json dropped(const values& asked) { return json::parse(drops_report(read(asked).value()))["drops"]; }

  bridge_status* first = bridge_statuses::open("a", 3);
  bridge_status* second = bridge_statuses::open("z\"\\\n\x7f~", 2);
};

TEST_F(Reports, MetricsAreSummedNamedAndEscaped)
{
  done(first, fate::role, 0x07, 3);
  done(first, fate::role, 0x07, 1);
  done(first, fate::unknown_port, 0, 2);
  done(first, fate::tag_inserted, 0x09, 3);
  done(first, fate::tag_inserted, 0x42, 3);
  done(first, fate::role, 0x07, 4);
  first->records.add(7);
  second->queue_depth.set(5);
  const auto style = metrics_style::openmetrics;
  EXPECT_THAT(
      lines_with("a\",port=", style),
      ElementsAre("pppoeia_port_accepted_packets_total{bridge=\"a\",port=\"3\",code=\"padi\"} 1",
                  "pppoeia_port_accepted_packets_total{bridge=\"a\",port=\"3\",code=\"other\"} 1",
                  "pppoeia_port_vendor_specific_tag_inserted_packets_to_server_total{bridge=\"a\",port=\"3\"} 2",
                  "pppoeia_port_dropped_packets_total{bridge=\"a\",port=\"1\",reason=\"role\"} 1",
                  "pppoeia_port_dropped_packets_total{bridge=\"a\",port=\"3\",reason=\"role\"} 1"));
  EXPECT_THAT(lines_with("bridge_dropped_packets_total{bridge=\"a\",reason=\"", style),
              testing::IsSupersetOf({"pppoeia_bridge_dropped_packets_total{bridge=\"a\",reason=\"role\"} 3",
                                     "pppoeia_bridge_dropped_packets_total{bridge=\"a\",reason=\"unknown_port\"} 1"}));
  EXPECT_THAT(lines_with("inserted_packets_to_server_total{", style), testing::SizeIs(3));
  EXPECT_THAT(lines_with("queue_depth", style),
              ElementsAre(HasSubstr("# HELP"), "# TYPE pppoeia_bridge_queue_depth gauge",
                          "pppoeia_bridge_queue_depth{bridge=\"a\"} 0",
                          "pppoeia_bridge_queue_depth{bridge=\"z\\\"\\\\\\\\x0a\\\\x7f~\"} 5"));
  EXPECT_THAT(lines_with("bridge_records", style),
              ElementsAre(HasSubstr("# HELP pppoeia_bridge_records Rec"), "# TYPE pppoeia_bridge_records counter",
                          "pppoeia_bridge_records_total{bridge=\"a\"} 7", HasSubstr("} 0")));
  EXPECT_THAT(lines_with("TYPE pppoeia_bridge_records", metrics_style::prometheus),
              ElementsAre("# TYPE pppoeia_bridge_records_total counter"));
  EXPECT_THAT(lines_with("pppoeia_bridges", style),
              ElementsAre(HasSubstr("# HELP"), "# TYPE pppoeia_bridges gauge", "pppoeia_bridges 2"));
  EXPECT_TRUE(metrics_text(style).ends_with("\n# EOF\n"));
}

TEST_F(Reports, PathTimesAreCountedUpToTheirBounds)
{
  for (const uint64_t ns : {0, 250, 251, 64'000, 64'001, 1'000'000, 1'000'001})
    first->path.add(ns);
  const std::string name = "pppoeia_bridge_frame_path_seconds";
  const auto bucket = [&](const char* bound, int count) {
    return name + "_bucket{bridge=\"a\",le=\"" + bound + "\"} " + std::to_string(count);
  };
  EXPECT_THAT(lines_with(name + "_", metrics_style::openmetrics),
              testing::IsSupersetOf({bucket("2.5e-07", 2), bucket("5e-07", 3), bucket("1e-06", 3), bucket("6.4e-05", 4),
                                     bucket("0.001", 6), bucket("+Inf", 7), name + "_sum{bridge=\"a\"} 0.002128503",
                                     name + "_count{bridge=\"a\"} 7"}));
  EXPECT_THAT(lines_with("# UNIT", metrics_style::openmetrics), ElementsAre("# UNIT " + name + " seconds"));
  EXPECT_THAT(lines_with("# UNIT", metrics_style::prometheus), ElementsAre());
}

TEST_F(Reports, TheLastDropsAreToldOldestFirst)
{
  const size_t most = drop_list::most;
  for (uint64_t i = 1; i <= most + 3; ++i)
    done(first, fate::role, 0x07, 1, 1, i * 1'000'000'000);
  done(second, fate::tag_untrusted, 0x09, 2, 7, 10'500'000'000);
  EXPECT_EQ(first->drops.all().size(), most);
  EXPECT_EQ(first->drops.all()[0].at_ns, 4'000'000'000u);
  const json all = dropped({});
  ASSERT_EQ(all.size(), most) << "of all bridges";
  EXPECT_EQ(all[6]["bridge"], "z\"\\\n\x7f~");
  EXPECT_EQ(all[6]["client"], "02:00:00:00:00:07");
  EXPECT_EQ(all[6]["vlan"], 9);
  EXPECT_EQ(all[6]["code"], "PADI");
  EXPECT_EQ(all[6]["meaning"], words_of(fate::tag_untrusted).text);
  EXPECT_EQ(all[6]["length"], 60);
  EXPECT_EQ(all[6]["bytes"].get<std::string>().size(), 120u);
  EXPECT_EQ(dropped({{"bridge", "a"}}).size(), most);
  EXPECT_EQ(dropped({{"bridge", "b"}}).size(), 0u);
  for (const auto& one : values{{"port", "2"}, {"mac", "02:00:00:00:00:07"}, {"code", "PADI"}})
    EXPECT_EQ(dropped({one}).size(), 1u) << one.first;
}

TEST(WallClock, WritesTimesOfTheSteadyClock)
{
  const wall_clock clock;
  const uint64_t second = 1'700'000'000;
  const uint64_t at = second * 1'000'000'000 + 5'500'000 - clock.ns(0);
  EXPECT_EQ(clock.text(at), "2023-11-14T22:13:20.005Z");
  const auto since_1970 = std::chrono::system_clock::now().time_since_epoch() / std::chrono::seconds(1);
  const auto steady = std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
  EXPECT_NEAR(static_cast<double>(clock.ns(static_cast<uint64_t>(steady)) / 1'000'000'000),
              static_cast<double>(since_1970), 2);
}

TEST(Filter, IsReadFromARequest)
{
  const auto all =
      read({{"bridge", "br0"}, {"port", "7"}, {"mac", "02:11-22:aA:bb:cc"}, {"code", "pads"}, {"dropped", "1"}});
  ASSERT_TRUE(all);
  EXPECT_EQ(all->bridge, "br0");
  EXPECT_EQ(all->port, 7u);
  EXPECT_EQ(all->client, 0x021122aabbccu);
  EXPECT_EQ(all->code, 0x65);
  EXPECT_TRUE(all->dropped_only);
  EXPECT_TRUE(all->wants("br0") && all->wants(7, 0x021122aabbcc));
  EXPECT_FALSE(all->wants("br1") || all->wants(8, 0x021122aabbcc) || all->wants(7, 1));
  EXPECT_FALSE(read({{"dropped", "0"}})->dropped_only);
  EXPECT_EQ(read({{"code", "167"}})->code, 0xa7);
  EXPECT_TRUE(read({})->wants("any") && read({})->wants(1, 2));
  for (const auto& [name, value] : {std::pair("port", ""),
                                    {"port", "7x"},
                                    {"port", "-1"},
                                    {"port", "4294967296"},
                                    {"mac", "02:11:22:aa:bb:c"},
                                    {"mac", "02:11:22:aa:bb:ccc"},
                                    {"mac", "02:11:22:aa:bb:cg"},
                                    {"mac", "02:11:22:aa.bb:cc"},
                                    {"mac", "0:111:22:aa:bb:cc"},
                                    {"code", "PADX"},
                                    {"code", "256"},
                                    {"colour", "red"}})
    EXPECT_FALSE(read({{name, value}})) << name << "=" << value;
  EXPECT_EQ(code_text(0x19) + code_text(0xa7) + code_text(8), "PADRPADT8");
}

}  // namespace
