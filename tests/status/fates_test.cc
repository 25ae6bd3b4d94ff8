// Each fate that a frame can meet, sent to a bridge's worker: exactly its counters move, by one, and what is dropped
// stands in the list. fates.txt has what is told of each.
#include "pppoeia/pppoeia.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/reports.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/files.h"
#include "tests/support/records_fixture.h"

#include <chrono>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <sstream>
#include <thread>

namespace {

struct fate_case {
  fate what;
  test_frame frame;
  void (*prepare)() = [] {};
  void (*spoil)(byte_string& record) = [](byte_string&) {};
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
    {fate::tag_inserted, {}},
    {fate::tag_replaced, {.tags = {vendor}}},
    {fate::tag_removed, {.code = 0x07, .port = 9, .tags = {vendor}}},
    {fate::tag_kept, {.code = 0x07, .port = 9, .tags = {vendor}}, [] { pppoeia_bridge_vsa_mode_set("br0", 0); }},
    {fate::tag_absent, {.code = 0x65, .port = 9}},
    {fate::unedited, {.code = 0xa7}},
    {fate::error_answered, {.tags = {long_service}}},
    {fate::bridge_off, {}, [] { pppoeia_bridge_state_set("br0", 0); }},
    {fate::vlan_not_enabled, {.port = 2}, [] { pppoeia_bridge_vlan_set_all("br0", 0); }},
    {fate::port_disabled, {.port = 3}},
    {fate::record_length, {}, [] {}, lies_about_length},
    {fate::unknown_port, {.port = 5}},
    {fate::not_discovery, {}, [] {}, [](byte_string& record) { record[kernel_header::size + 13] = 0x64; }},
    {fate::payload_past_end, {.payload_length = 200}},
    {fate::role, {.code = 0x07}},
    {fate::tag_untrusted, {.port = 2, .tags = {vendor}}},
    {fate::removal_misfit, {.code = 0x07, .port = 9, .tags = {vendor}}, [] {}, tag_too_long},
    {fate::insertion_misfit, {.tags = {longest_service}}},
    {fate::no_own_address, {.tags = {long_service}}},
};

static_assert(std::size(cases) == fate_count, "each fate has a case");

void port_add(uint32_t id, uint32_t state, uint32_t trust, uint32_t kind = 1)
{
  const pppoeia_port_info info{.parent_id = 0, .type = "eth", .kind = kind, .location = {}};
  EXPECT_EQ(pppoeia_port_add("br0", id, ("dev" + std::to_string(id)).c_str(), "port", &info), 0);
  EXPECT_EQ(pppoeia_port_state_set("br0", id, static_cast<int32_t>(state)), 0);
  EXPECT_EQ(pppoeia_port_trust_set("br0", id, trust), 0);
}

std::map<std::string, int> counters()
{
  std::map<std::string, int> all;
  std::istringstream text(metrics_text(metrics_style::prometheus));
  for (std::string line; std::getline(text, line);)
    if (!line.starts_with("#") && line.find("_seconds") == line.npos && line.find("_depth") == line.npos)
      all[line.substr(0, line.rfind(' '))] = std::stoi(line.substr(line.rfind(' ')));
  return all;
}

// Until the worker has told of a record.
bool wait_for_record()
{
  for (int wait = 0; wait < 5000; ++wait) {
    if (bridge_statuses::all().at(0)->records.get() == 1)
      return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

// What moved, by how much, and what is said of the frame; times and the frames' bytes are not of interest.
std::string told_of(const fate_case& given)
{
  fake_kernel kernel;
  if (given.what == fate::insertion_misfit)
    kernel.mtu = jumbo_mtu;
  EXPECT_EQ(pppoeia_init(), 0);
  EXPECT_EQ(pppoeia_bridge_add("br0", 16), 0);
  port_add(1, 1, 0);
  port_add(2, 1, 1, 0);
  port_add(3, 0, 0);
  port_add(9, 2, 0);
  EXPECT_EQ(pppoeia_bridge_vlan_set_all("br0", 1), 0);
  given.prepare();
  if (given.what == fate::no_own_address)
    kernel.fail_from_now({{"link_mac", ENODEV}});
  byte_string record = given.frame.build();
  given.spoil(record);
  auto before = counters();
  std::unique_ptr<http_body> monitor = monitor_report({});
  wire_send(kernel.wire("br0_pppoe"), record);
  EXPECT_TRUE(wait_for_record());
  std::string told;
  for (const auto& [name, value] : counters())
    if (value != before[name])
      told += name + " " + std::to_string(value - before[name]) + "\n";
  monitor->next(told);
  told += drops_report({});
  monitor.reset();
  pppoeia_fini();
  return std::regex_replace(told, std::regex(R"re("(time|time_ns)":("[^"]*"|\d+),|,"(before|after|bytes)":"[^"]*")re"),
                            "");
}

TEST(Fates, MoveTheirCountersAndAreListed)
{
  std::string told;
  for (const fate_case& each : cases)
    told += "--- " + std::string(words_of(each.what).name) + "\n" + told_of(each);
  EXPECT_EQ(told, file_text(TEST_FOLDER "/fates.txt"));
}

}  // namespace
