// What the line table learns from frames as the frame path leaves them, and what it does not.
#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/reports.h"
#include "tests/support/records_fixture.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <optional>

namespace {

using mac = byte_string;

constexpr uint64_t ms = 1'000'000;
const mac client{0x02, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
const mac server{0x02, 0, 0, 0, 0, 0x99};
const mac everybody(6, 0xff);

// Ports 1 and 2 are subscribers', 3 the network's.
class LineTable : public testing::Test {
protected:
  LineTable()
  {
    bridge.port(1, 1, 0);
    bridge.port(2, 1, 0);
    bridge.port(3, 2, 0);
  }

  void pass(const test_frame& frame, const mac& to)
  {
    byte_string record = frame.build();
    std::copy(to.begin(), to.end(), record.begin() + kernel_header::size);
    const auto received = static_cast<uint32_t>(record.size());
    record.resize(bridge->buffer_size + 142);
    const frame_record view{record.data(), received, static_cast<uint32_t>(record.size())};
    now += ms;
    table.learn(view, frame_process(*bridge, view, services), now);
  }
  void asks(uint8_t code, std::vector<test_tag> tags = {{0x0101, "internet"}}, uint16_t port = 1,
            const mac& from = client)
  {
    pass({.code = code, .port = port, .tags = std::move(tags), .source = from}, code == 0x09 ? everybody : server);
  }
  void says(uint8_t code, uint16_t session = 0, std::vector<test_tag> tags = {{0x0101, ""}, {0x0102, "bras-1"}},
            const mac& to = client, const mac& from = server)
  {
    pass({.code = code, .port = 3, .tags = std::move(tags), .session_id = session, .source = from}, to);
  }
  void dial_in(uint16_t session)
  {
    asks(0x09);
    says(0x07);
    asks(0x19);
    says(0x65, session);
  }

  std::vector<line_view> lines(const line_table& of) const
  {
    std::vector<line_view> all;
    line_view line;
    for (size_t slot = 0; slot < of.slots(); ++slot)
      if (of.read(slot, line))
        all.push_back(line);
    for (size_t state = 0; state < line_state_count; ++state)
      EXPECT_EQ(of.count(static_cast<line_state>(state)),
                std::ranges::count(all, static_cast<line_state>(state), &line_view::state));
    return all;
  }
  line_view only() const
  {
    const auto all = lines(table);
    EXPECT_EQ(all.size(), 1u);
    return all.empty() ? line_view{} : all[0];
  }

  static int no_mac(unsigned char*) { return -1; }

  test_bridge bridge;
  builder_identifiers identifiers;
  frame_services services{identifiers, no_mac};
  line_table table{8, {}};
  uint64_t now = 1000 * ms;
};

TEST_F(LineTable, FollowsADialInFromPadiToPadt)
{
  asks(0x09);
  EXPECT_EQ(only().state, line_state::discovering);
  says(0x07);
  EXPECT_EQ(only().state, line_state::offered);
  asks(0x19);
  EXPECT_EQ(only().state, line_state::requested);
  says(0x65, 0x1234);
  const line_view up = only();
  EXPECT_EQ(up.state, line_state::up);
  EXPECT_EQ(up.session_id, 0x1234);
  EXPECT_EQ(up.setup_ns, 3 * ms);
  EXPECT_EQ(up.pads_ns, now);
  EXPECT_EQ(up.padt_ns, 0u);
  EXPECT_EQ(up.port, 1u);
  EXPECT_EQ(up.client, 0x021122aabbccu);
  EXPECT_EQ(up.server, 0x020000000099u);
  EXPECT_EQ(up.ac_name, "bras-1");
  EXPECT_EQ(up.service_name, "internet");
  EXPECT_EQ(up.retries, 0u);
  EXPECT_NE(up.vendor_tag.find("eth"), std::string::npos) << "the identifiers as they were sent";
  says(0xa7, 0x1234);
  EXPECT_EQ(only().state, line_state::ended);
  EXPECT_FALSE(only().ended_by_client);
  EXPECT_EQ(only().padt_ns, now);
  EXPECT_EQ(only().seen_ns, now);

  dial_in(7);
  pass({.code = 0xa7, .tags = {}, .session_id = 7}, server);
  EXPECT_EQ(only().state, line_state::ended);
  EXPECT_TRUE(only().ended_by_client);
  asks(0x19);  // to a server known from before
  says(0x65, 8);
  EXPECT_EQ(only().setup_ns, 0u) << "there was no PADI";
}

TEST_F(LineTable, CountsWhatIsSentAgainAndBeginsAnew)
{
  asks(0x09);
  const uint64_t first = now;
  for (int i = 0; i < 3; ++i)
    asks(0x09);
  says(0x07);
  asks(0x19);
  asks(0x19);
  EXPECT_EQ(only().retries, 4u);
  EXPECT_EQ(only().first_padi_ns, first);
  says(0x65, 5);
  asks(0x09);
  EXPECT_EQ(only().state, line_state::discovering);
  EXPECT_EQ(only().retries, 0u);
  EXPECT_EQ(only().first_padi_ns, now);
}

TEST_F(LineTable, KeepsTheLastErrorUntilASessionComesUp)
{
  const uint16_t errors[] = {0x0201, 0x0202, 0x0203};
  for (const uint16_t error : errors) {
    asks(0x09);
    says(0x07);
    asks(0x19);
    says(0x65, 0, {{0x0101, ""}, {error, "not today"}});
    EXPECT_EQ(only().state, line_state::ended) << error;
    EXPECT_EQ(only().error, error);
    EXPECT_EQ(only().error_text, "not today");
  }
  asks(0x09);
  says(0x07, 0, {{0x0203, "busy"}});
  EXPECT_EQ(only().state, line_state::discovering) << "an error is no offer";
  EXPECT_EQ(only().error_text, "busy");
  dial_in(9);
  EXPECT_EQ(only().error, 0);
}

TEST_F(LineTable, IsNotMovedByWhatNobodyAskedFor)
{
  says(0x65, 1);
  EXPECT_TRUE(lines(table).empty()) << "a server makes no line";
  asks(0x09);
  says(0x65, 1);
  EXPECT_EQ(only().state, line_state::discovering) << "PADS without PADR";
  dial_in(0x20);
  says(0xa7, 0x21);
  says(0xa7, 0x20, {}, client, {0x02, 0, 0, 0, 0, 0x66});
  EXPECT_EQ(only().state, line_state::up) << "PADT of another session, or of another server";
}

TEST_F(LineTable, AHostileLineMovesItsOwnRowsOnly)
{
  dial_in(0x30);
  asks(0x09, {{0x0101, ""}}, 2);  // the same address on another line
  pass({.code = 0xa7, .port = 2, .tags = {}, .session_id = 0x30, .source = server}, client);
  pass({.code = 0xa7, .port = 2, .tags = {}, .session_id = 0x30}, server);
  ASSERT_EQ(lines(table).size(), 2u);
  EXPECT_EQ(lines(table)[0].state, line_state::up);
  says(0xa7, 0x30);
  asks(0x09, {{0x0103, "mine"}});
  asks(0x09, {{0x0103, "evil"}}, 2);
  says(0x07, 0, {{0x0103, "mine"}});
  EXPECT_EQ(lines(table)[0].state, line_state::offered);
  EXPECT_EQ(lines(table)[1].state, line_state::discovering);
}

TEST_F(LineTable, APortThatInventsClientsPushesOutItsOwnOnlyAndNoMoreThanSoManyASecond)
{
  constexpr uint32_t seconds = 3, of_a_second = 1'000'000;
  asks(0x09, {}, 1);
  dial_in(0x40);
  now = 1;
  for (uint32_t number = 0; number < seconds * of_a_second; ++number) {
    mac invented{0x06, 0, 0, 0, 0, 0};
    std::memcpy(&invented[1], &number, sizeof number);
    byte_string record(kernel_header::size + 60, 0);
    std::copy(invented.begin(), invented.end(), record.begin() + kernel_header::size + 6);
    const frame_record view{record.data(), 167, 167};
    table.learn(view, {.length = 167, .what = fate::tag_inserted, .code = 0x09, .port = 2, .ethertype = 119}, now);
    now += (uint64_t{1} << 30) / of_a_second;
  }
  const auto all = lines(table);
  EXPECT_EQ(std::ranges::count(all, 2u, &line_view::port), 16);
  EXPECT_EQ(std::ranges::count(all, 1u, &line_view::port), 1);
  EXPECT_EQ(table.replaced().get(), seconds * 256u);
  EXPECT_EQ(table.unlearned().get(), seconds * (of_a_second - 256u) - 16);
  asks(0x09, {}, 1, {0x02, 1, 1, 1, 1, 2});
  EXPECT_EQ(std::ranges::count(lines(table), 1u, &line_view::port), 2) << "another port learns on";
  now += 1 << 30;
  asks(0x09, {}, 2, {0x02, 1, 1, 1, 1, 1});
  says(0x07, 0, {}, {0x02, 1, 1, 1, 1, 1});
  EXPECT_EQ(std::ranges::count(lines(table), line_state::offered, &line_view::state), 1);
}

TEST_F(LineTable, AFullPortGivesUpEndedOnesThenThoseOnTheirWayTheLongestUnheardFirst)
{
  const auto mac_of = [](int number) { return mac{2, 0, 0, 0, 0, static_cast<unsigned char>(number)}; };
  const std::vector<test_tag> tags{{0x0101, ""}};
  const auto dial = [&](int number, int steps = 4) {
    now += 2'000 * ms;
    asks(0x09, tags, 1, mac_of(number));
    if (steps > 1)
      says(0x07, 0, tags, mac_of(number));
    if (steps > 2)
      asks(0x19, tags, 1, mac_of(number));
    if (steps > 3)
      says(0x65, static_cast<uint16_t>(100 + number), tags, mac_of(number));
    now += 2'000 * ms;
  };
  for (int number = 0; number < 16; ++number)
    dial(number, number >= 4 && number <= 6 ? number - 3 : 4);
  for (const int number : {2, 1, 7}) {
    const auto session = static_cast<uint16_t>(100 + number);
    if (number == 1)
      pass({.code = 0xa7, .tags = {}, .session_id = session, .source = mac_of(number)}, server);
    else
      says(0xa7, session, {}, mac_of(number));
    now += 2'000 * ms;
  }
  dial(0);
  std::string given_up;
  for (int number = 16; number < 26; ++number) {
    const auto before = lines(table);
    dial(number);
    const auto after = lines(table);
    EXPECT_EQ(after.size(), 16u);
    for (const line_view& line : before)
      if (std::ranges::find(after, line.client, &line_view::client) == after.end())
        given_up += std::to_string(line.client & 0xff) + " ";
  }
  EXPECT_EQ(given_up, "2 1 7 4 5 6 3 8 9 10 ");
}

TEST_F(LineTable, ANodeIsFullUntilALineHasEnded)
{
  const auto learn_of = [&](line_table& to, uint16_t port, unsigned char number) {
    byte_string record(kernel_header::size + 60, number);
    const frame_record view{record.data(), 167, 167};
    to.learn(view, {.length = 167, .what = fate::tag_inserted, .code = 0x09, .port = port, .ethertype = 119}, ++now);
  };
  line_table small(4, {.port = 1, .node = 4});
  {
    line_table other(4, {.port = 1, .node = 4});
    for (uint16_t port = 1; port <= 3; ++port)
      learn_of(other, port, 1);
    learn_of(small, 1, 1);
    learn_of(small, 2, 2);
    EXPECT_EQ(lines(small).size(), 1u);
    EXPECT_EQ(small.unlearned().get(), 1u);
    learn_of(small, 1, 3);
    EXPECT_EQ(lines(small)[0].client, 0x030303030303u) << "a port with a line goes on with its own";
  }
  learn_of(small, 2, 2);
  EXPECT_EQ(lines(small).size(), 2u) << "a deleted bridge gives back what it had";
}

// The frame path lets no such frame come this far; the table holds its own bounds all the same.
TEST_F(LineTable, AFrameThatClaimsMoreThanCameTellsNothingOfWhatLiesBehind)
{
  byte_string record = test_frame{.tags = {{0x0103, "mine"}, {0x0101, "theirs"}}, .payload_length = 0x4000}.build();
  const auto received = static_cast<uint32_t>(record.size() - 4);  // the rest of the Service-Name is another frame's
  for (const uint16_t claimed : {uint16_t{6}, uint16_t{60}, uint16_t{0x3000}}) {
    be16_put(record, record.size() - 8, claimed);
    const frame_record view{record.data(), received, static_cast<uint32_t>(record.size())};
    table.learn(view, {.what = fate::tag_untrusted, .code = 0x09, .port = 1, .ethertype = 119}, now += ms);
    EXPECT_EQ(only().service_name, "") << claimed;
  }
  EXPECT_EQ(only().drops, 3u);
}

TEST_F(LineTable, TellsADroppedRequest)
{
  bridge->port[0].trust = 1;
  asks(0x09, {{0x0105, std::string("\x00\x00\x0d\xe9", 4)}});
  EXPECT_EQ(only().drops, 1u);
  EXPECT_EQ(only().last_drop, fate::tag_untrusted);
}

TEST_F(LineTable, TextsOfStrangersAreValidJson)
{
  bridge_status* status = bridge_statuses::open("br\"0", 8);
  const std::string hostile("\x00\x1b[2J\"\\\xff\xc3\n", 10);
  const auto tell = [&](const test_frame& frame, const mac& to) {
    byte_string record = frame.build();
    std::copy(to.begin(), to.end(), record.begin() + kernel_header::size);
    const auto received = static_cast<uint32_t>(record.size());
    record.resize(2000);
    const frame_record view{record.data(), received, 2000};
    status->frame_done(view, frame_process(*bridge, view, services), now);
  };
  tell({.tags = {{0x0101, hostile}}}, everybody);
  tell({.code = 0x07, .port = 3, .tags = {{0x0102, hostile}}, .source = server}, client);
  std::string text;
  const auto body = lines_report({});
  while (body->next(text) == http_body::more::yes) {
  }
  bridge_statuses::close(status);
  const auto line = nlohmann::json::parse(text)["lines"][0];
  EXPECT_EQ(line["bridge"], "br\"0");
  EXPECT_EQ(line["ac_name"], std::string("\x00\x1b[2J\"\\\u00ff\u00c3\n", 12));
  EXPECT_EQ(line["service_name"], line["ac_name"]);
  EXPECT_EQ(line["state"], "offered");
}

}  // namespace
