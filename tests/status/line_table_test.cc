// What the line table learns from frames as the frame path leaves them, and what it does not.
#include "pppoeia/identifiers/identifiers.h"
#include "pppoeia/status/json.h"
#include "pppoeia/status/line_table.h"
#include "tests/support/files.h"
#include "tests/support/records_fixture.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <sstream>

namespace {

constexpr uint64_t ms = 1'000'000;
constexpr uint32_t table_ports = 4;
const byte_string client{0x02, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
const byte_string server{0x02, 0, 0, 0, 0, 0x99};
const byte_string everybody(6, 0xff);

int answering_mac(unsigned char mac[6])
{
  std::copy(server.begin(), server.end(), mac);
  return 0;
}

// What stands in it, a line of text each; numbers that are 0 and empty texts are left out.
std::string text_of(const line_view& line)
{
  const bool ended = line.state == line_state::ended;
  const std::pair<const char*, uint64_t> numbers[] = {
      {"session", line.session_id},
      {"padi", line.first_padi_ns / ms},
      {"pads", line.pads_ns / ms},
      {"padt", line.padt_ns / ms},
      {"by_client", ended && line.padt_ns && line.ended_by_client},
      {"seen", line.seen_ns / ms},
      {"setup", line.setup_ns / ms},
      {"retries", line.retries},
      {"drops", line.drops},
      {"last_drop", line.drops ? static_cast<uint64_t>(line.last_drop) : 0},
      {"error", line.error}};
  const std::pair<const char*, std::string> texts[] = {
      {"text", line.error_text}, {"ac", line.ac_name}, {"service", line.service_name}, {"vendor", line.vendor_tag}};
  std::ostringstream text;
  text << "  " << line.port << '.' << line.vid << ' ' << mac_text(line.client).substr(15) << ' '
       << line_state_names[static_cast<size_t>(line.state)];
  if (line.server)
    text << " server " << mac_text(line.server).substr(15);
  for (const auto& [name, value] : numbers)
    if (value)
      text << ' ' << name << ' ' << value;
  for (const auto& [name, value] : texts)
    if (!value.empty())
      text << ' ' << name << ' ' << (value.find('\0') == value.npos ? value : hex_text(value.substr(0, 6)));
  return text.str() + "\n";
}

// Ports 2, 3 and 4 are subscribers', 1 the network's.
class LineTable : public testing::Test {
protected:
  LineTable()
  {
    for (uint32_t port = 1; port <= table_ports; ++port)
      bridge.port(port, port == 1 ? 2 : 1, 0);
    bridge->vlan_enabled.set(4);
    bridge->vlan_enabled.set(5);
  }

  void pass(const test_frame& frame, const byte_string& to)
  {
    byte_string record = frame.build();
    std::copy(to.begin(), to.end(), record.begin() + kernel_header::size);
    const auto received = static_cast<uint32_t>(record.size());
    record.resize(bridge->buffer_size + 142);
    const frame_record view{record.data(), received, static_cast<uint32_t>(record.size())};
    now += ms;
    table->learn(view, frame_process(*bridge, view, services), now);
  }

  // A frame's words in transcript.txt: code, port, then what differs from the usual.
  void frame_told(std::istringstream& words, uint8_t code)
  {
    test_frame frame{.code = code, .tags = {}};
    words >> frame.port;
    byte_string subscriber = client, peer = server;
    bool from_server = frame.port == 1;
    const std::map<std::string, uint16_t> tags{{"end", 0},           {"service", 0x0101}, {"ac", 0x0102},
                                               {"uniq", 0x0103},     {"vendor", 0x0105},  {"no_service", 0x0201},
                                               {"ac_error", 0x0202}, {"error", 0x0203}};
    for (std::string word; words >> word;) {
      const std::string name = word.substr(0, word.find('=')), value = word.substr(word.find('=') + 1);
      if (const auto tag = tags.find(name); tag != tags.end()) {
        const bool repeated = value.starts_with('*');
        frame.tags.push_back({tag->second, repeated ? std::string(std::stoul(value.substr(1)), 'x') : value});
      } else if (name == "client") {
        subscriber[5] = static_cast<unsigned char>(std::stoul(value, nullptr, 16));
      } else if (name == "server") {
        peer[5] = static_cast<unsigned char>(std::stoul(value, nullptr, 16));
      } else if (name == "session") {
        frame.session_id = static_cast<uint16_t>(std::stoul(value));
      } else if (name == "payload") {
        frame.payload_length = std::stoi(value);
      } else if (name == "vlan") {
        frame.vlan_tags = {0x81000000u + static_cast<uint32_t>(std::stoul(value))};
      } else if (name == "trust") {
        bridge->port[frame.port - 1].trust = static_cast<uint32_t>(std::stoul(value));
      } else if (name == "later") {
        now += std::stoul(value) * ms;
      } else if (name == "from") {
        from_server = value == "server";
      }
    }
    frame.source = from_server ? peer : subscriber;
    pass(frame, from_server ? subscriber : code == 0x09 ? everybody : peer);
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

  test_bridge bridge;
  builder_identifiers identifiers;
  frame_services services{identifiers, answering_mac};
  std::optional<line_table> table{std::in_place, table_ports, line_limits{}};
  uint64_t now = 1000 * ms;
};

TEST_F(LineTable, LearnsAsTheTranscriptTells)
{
  const std::string wanted = file_text(TEST_FOLDER "/lines.txt");
  const std::map<std::string, uint8_t> codes{{"PADI", 0x09}, {"PADO", 0x07}, {"PADR", 0x19},
                                             {"PADS", 0x65}, {"PADT", 0xa7}, {"other", 0x42}};
  std::string told;
  std::istringstream text(wanted);
  for (std::string line; std::getline(text, line);) {
    if (line.starts_with("  "))
      continue;
    told += line + "\n";
    std::istringstream words(line);
    std::string word;
    words >> word;
    if (word == "new") {
      line_limits limits;
      words >> limits.port >> limits.node;
      table.emplace(table_ports, limits);
      now = 1000 * ms;
    } else if (codes.contains(word)) {
      frame_told(words, codes.at(word));
      for (const line_view& each : lines(*table))
        told += text_of(each);
      if (const uint64_t unlearned = table->unlearned().get(), replaced = table->replaced().get(); unlearned + replaced)
        told += "  unlearned " + std::to_string(unlearned) + " replaced " + std::to_string(replaced) + "\n";
    }
  }
  EXPECT_EQ(told, wanted);
}

TEST_F(LineTable, APortThatInventsClientsPushesOutItsOwnOnlyAndNoMoreThanSoManyASecond)
{
  constexpr uint32_t seconds = 3, of_a_second = 50'000;
  const auto learn = [&](uint32_t number, uint16_t port) {
    byte_string record(kernel_header::size + 60, 0);
    std::memcpy(&record[kernel_header::size + 7], &number, sizeof number);
    const frame_record view{record.data(), 167, 167};
    table->learn(view, {.length = 167, .what = fate::tag_inserted, .code = 0x09, .port = port, .ethertype = 119}, now);
  };
  const auto lines_of = [&](uint32_t port) { return std::ranges::count(lines(*table), port, &line_view::port); };
  learn(1, 3);
  now = 1;
  for (uint32_t number = 0; number < seconds * of_a_second; ++number) {
    learn(number, 4);
    now += (uint64_t{1} << 30) / of_a_second;
  }
  learn(1, 3);
  learn(2, 3);
  EXPECT_EQ(lines_of(4), 16);
  EXPECT_EQ(lines_of(3), 2) << "another port learns on";
  EXPECT_EQ(table->replaced().get(), seconds * 256u);
  EXPECT_EQ(table->unlearned().get(), seconds * (of_a_second - 256u) - 16);
  now += 1 << 30;
  learn(0xffffffff, 4);
  EXPECT_EQ(table->replaced().get(), seconds * 256u + 1);
}

TEST_F(LineTable, AFullPortGivesUpEndedOnesThenThoseOnTheirWayTheLongestUnheardFirst)
{
  const auto dial = [&](int number, int steps = 4) {
    const char* const frames[] = {"4 later=2000", "1", "4", "1 session=7"};
    for (int step = 0; step < steps; ++step) {
      char client_word[16];
      std::snprintf(client_word, sizeof client_word, " client=%x", number);
      std::istringstream words(frames[step] + std::string(client_word));
      frame_told(words, std::array<uint8_t, 4>{0x09, 0x07, 0x19, 0x65}[static_cast<size_t>(step)]);
    }
    now += 2'000 * ms;
  };
  for (int number = 0; number < 16; ++number)
    dial(number, number >= 4 && number <= 6 ? number - 3 : 4);
  for (const char* end : {"1 client=2", "4 client=1", "1 client=7"}) {
    std::istringstream words(std::string(end) + " session=7");
    frame_told(words, 0xa7);
    now += 2'000 * ms;
  }
  dial(0);
  std::string given_up;
  for (int number = 16; number < 26; ++number) {
    const auto before = lines(*table);
    dial(number);
    const auto after = lines(*table);
    EXPECT_EQ(after.size(), 16u);
    for (const line_view& line : before)
      if (std::ranges::find(after, line.client, &line_view::client) == after.end())
        given_up += std::to_string(line.client & 0xff) + " ";
  }
  EXPECT_EQ(given_up, "2 1 7 4 5 6 3 8 9 10 ");
}

// The frame path lets no such frame come this far; the table holds its own bounds all the same.
TEST_F(LineTable, AFrameThatClaimsMoreThanCameTellsNothingOfWhatLiesBehind)
{
  byte_string record = test_frame{.tags = {{0x0103, "mine"}, {0x0101, "theirs"}}, .payload_length = 0x4000}.build();
  const auto received = static_cast<uint32_t>(record.size() - 4);  // the rest of the Service-Name is another frame's
  for (const uint16_t claimed : {uint16_t{6}, uint16_t{60}, uint16_t{0x3000}}) {
    be16_put(record, record.size() - 8, claimed);
    const frame_record view{record.data(), received, static_cast<uint32_t>(record.size())};
    table->learn(view, {.what = fate::tag_untrusted, .code = 0x09, .port = 1, .ethertype = 119}, now += ms);
    EXPECT_EQ(lines(*table).at(0).service_name, "") << claimed;
  }
  EXPECT_EQ(lines(*table)[0].drops, 3u);
}

}  // namespace
