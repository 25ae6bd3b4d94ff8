// Each fate that a frame can meet, sent to a bridge's worker: exactly its counters move, by one, and what is dropped
// stands in the list.
#include "pppoeia/pppoeia.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/reports.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/records_fixture.h"

#include <chrono>
#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::Pair;
using testing::UnorderedElementsAreArray;

using samples = std::map<std::string, double>;

samples samples_now()
{
  samples all;
  std::istringstream text(metrics_text(metrics_style::prometheus));
  for (std::string line; std::getline(text, line);)
    if (!line.starts_with("#"))
      all[line.substr(0, line.rfind(' '))] = std::stod(line.substr(line.rfind(' ')));
  return all;
}

struct fate_case {
  fate what;
  uint16_t port;  // whose counters move; 0: none
  test_frame frame;
  void (*prepare)() = [] {};
  void (*spoil)(byte_string& record) = [](byte_string&) {};
  uint8_t code = 0x09;  // that is listed
};

const test_tag vendor{0x0105, std::string("\x00\x00\x0d\xe9\x01\x01x", 7)};
const test_tag long_service{0x0101, std::string(1470, 's')};
const test_tag longest_service{0x0101, std::string(65500, 's')};
constexpr int jumbo_mtu = 70000;

void lies_about_length(byte_string& record)
{
  record[kernel_header::record_length] ^= 1;
}

// The first tag claims more than there is.
void tag_too_long(byte_string& record)
{
  record[kernel_header::size + 12 + 8 + 2] = 0xff;
}

// Port 1 a subscriber's, 2 a subscriber's and untrusted, 3 disabled, 9 the network's.
const fate_case cases[] = {
    {fate::tag_inserted, 1, {}},
    {fate::tag_replaced, 1, {.tags = {vendor}}},
    {fate::tag_removed, 9, {.code = 0x07, .port = 9, .tags = {vendor}}},
    {fate::tag_kept, 9, {.code = 0x07, .port = 9, .tags = {vendor}}, [] { pppoeia_bridge_vsa_mode_set("br0", 0); }},
    {fate::tag_absent, 9, {.code = 0x65, .port = 9}},
    {fate::unedited, 1, {.code = 0xa7}},
    {fate::error_answered, 1, {.tags = {long_service}}},
    {fate::bridge_off, 1, {}, [] { pppoeia_bridge_state_set("br0", 0); }},
    {fate::vlan_not_enabled, 2, {.port = 2}, [] { pppoeia_bridge_vlan_set_all("br0", 0); }},
    {fate::port_disabled, 3, {.port = 3}},
    {fate::record_length, 0, {}, [] {}, lies_about_length, 0},
    {fate::unknown_port, 0, {.port = 5}, [] {}, [](byte_string&) {}, 0},
    {fate::not_discovery, 1, {}, [] {}, [](byte_string& record) { record[kernel_header::size + 13] = 0x64; }, 0},
    {fate::payload_past_end, 1, {.payload_length = 200}},
    {fate::role, 1, {.code = 0x07}, [] {}, [](byte_string&) {}, 0x07},
    {fate::tag_untrusted, 2, {.port = 2, .tags = {vendor}}},
    {fate::removal_misfit, 9, {.code = 0x07, .port = 9, .tags = {vendor}}, [] {}, tag_too_long, 0x07},
    {fate::insertion_misfit, 1, {.tags = {longest_service}}},
    {fate::no_own_address, 1, {.tags = {long_service}}},
};

static_assert(std::size(cases) == fate_count, "each fate has a case");

class Fates : public testing::TestWithParam<fate_case> {
protected:
  Fates()
  {
    if (GetParam().what == fate::insertion_misfit)
      kernel.mtu = jumbo_mtu;
    EXPECT_EQ(pppoeia_init(), 0);
    EXPECT_EQ(pppoeia_bridge_add("br0", 16), 0);
    port_add(1, 1, 0);
    port_add(2, 1, 1, 0);
    port_add(3, 0, 0);
    port_add(9, 2, 0);
    EXPECT_EQ(pppoeia_bridge_vlan_set_all("br0", 1), 0);
  }
  ~Fates() override { pppoeia_fini(); }

  static void port_add(uint32_t id, uint32_t state, uint32_t trust, uint32_t kind = 1)
  {
    const pppoeia_port_info info{.parent_id = 0, .type = "eth", .kind = kind, .location = {}};
    EXPECT_EQ(pppoeia_port_add("br0", id, ("dev" + std::to_string(id)).c_str(), "port", &info), 0);
    EXPECT_EQ(pppoeia_port_state_set("br0", id, static_cast<int32_t>(state)), 0);
    EXPECT_EQ(pppoeia_port_trust_set("br0", id, trust), 0);
  }

  // Until the worker has told of that many records.
  static bool wait_for_records(uint64_t count)
  {
    for (int wait = 0; wait < 5000; ++wait) {
      if (bridge_statuses::all().at(0)->records.get() == count)
        return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }

  fake_kernel kernel;
};

// Counters by which the fate is told, as they stand in /metrics; those of the port begin with it.
std::vector<std::pair<std::string, double>> told(const fate_case& given)
{
  const std::string name(words_of(given.what).name);
  std::string family = "dropped_packets_total{bridge=\"br0\"", reason = ",reason=\"" + name + "\"}";
  std::vector<std::string> families;
  const auto of = [](std::string middle) { return middle + "_total{bridge=\"br0\""; };
  switch (given.what) {
  case fate::tag_inserted:
  case fate::tag_replaced:
    families = {of("vendor_specific_" + name + "_packets_to_server")};
    break;
  case fate::tag_removed:
  case fate::tag_kept:
    families = {of("vendor_specific_" + name + "_packets_to_client")};
    break;
  case fate::error_answered:
    families = {of("error_answer_packets_to_client"), of("outgoing_mtu_exceeded_packets_from_client")};
    break;
  default:
    break;
  }
  std::vector<std::pair<std::string, double>> moved;
  const auto add = [&](const std::string& middle, const std::string& end) {
    moved.emplace_back("pppoeia_bridge_" + middle + end, 1);
    if (given.port != 0)
      moved.emplace_back("pppoeia_port_" + middle + ",port=\"" + std::to_string(given.port) + "\"" + end, 1);
  };
  for (const std::string& each : families)
    add(each, "}");
  if (class_of(given.what) == fate_class::untouched)
    add(of("untouched_packets"), reason);
  if (class_of(given.what) == fate_class::dropped)
    add(family, reason);
  if (given.what == fate::no_own_address)
    add(of("outgoing_mtu_exceeded_packets_from_client"), "}");
  return moved;
}

TEST_P(Fates, MoveTheirCountersAndAreListed)
{
  const fate_case& given = GetParam();
  given.prepare();
  if (given.what == fate::no_own_address)
    kernel.fail_from_now({{"link_mac", ENODEV}});
  byte_string record = given.frame.build();
  given.spoil(record);
  const samples before = samples_now();
  const std::unique_ptr<http_body> monitor = monitor_report({});
  wire_send(kernel.wire("br0_pppoe"), record);
  ASSERT_TRUE(wait_for_records(1));

  std::vector<std::pair<std::string, double>> moved;
  for (const auto& [name, value] : samples_now()) {
    const bool of_each = name.find("_records_") != name.npos || name.find("_batches_") != name.npos ||
                         name.find("accepted") != name.npos || name.find("_lines{") != name.npos;
    const auto former = before.find(name);
    if (const double by = value - (former == before.end() ? 0 : former->second); by != 0 && !of_each)
      moved.emplace_back(name, by);
  }
  EXPECT_THAT(moved, UnorderedElementsAreArray(told(given)));

  std::string seen;
  EXPECT_EQ(monitor->next(seen), http_body::more::later);
  const auto frame = nlohmann::json::parse(seen);
  EXPECT_EQ(frame["fate"], words_of(given.what).name);
  EXPECT_EQ(frame["port"], given.frame.port);
  EXPECT_EQ(frame["length_before"], record.size() - kernel_header::size);
  EXPECT_EQ(frame["before"].get<std::string>().substr(12, 12), "021122aabbcc");
  EXPECT_EQ(frame["length_after"] == 0, class_of(given.what) == fate_class::dropped);

  const auto drops = nlohmann::json::parse(drops_report({}))["drops"];
  if (class_of(given.what) != fate_class::dropped) {
    EXPECT_TRUE(drops.empty()) << drops;
    return;
  }
  ASSERT_EQ(drops.size(), 1u);
  EXPECT_EQ(drops[0]["reason"], words_of(given.what).name);
  EXPECT_EQ(drops[0]["port"], given.frame.port);
  EXPECT_EQ(drops[0]["client"], "02:11:22:aa:bb:cc");
  EXPECT_EQ(drops[0]["length"], record.size() - kernel_header::size);
  EXPECT_EQ(drops[0]["bytes"].get<std::string>().substr(12, 12), "021122aabbcc");
  filter of_code;
  of_code.code = given.code;
  EXPECT_EQ(nlohmann::json::parse(drops_report(of_code))["drops"].size(), 1u);
}

std::string name_of(const testing::TestParamInfo<fate_case>& given)
{
  return std::string(words_of(given.param.what).name);
}

INSTANTIATE_TEST_SUITE_P(Each, Fates, testing::ValuesIn(cases), name_of);

}  // namespace
