// What the status socket tells, to the last byte: metrics, lines, dropped and passing frames, and which were asked for.
#include "platform/kvbridge/record_header.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/options.h"
#include "pppoeia/status/reports.h"
#include "tests/support/files.h"
#include "tests/support/records_fixture.h"

#include <gmock/gmock.h>
#include <regex>

namespace {

using testing::HasSubstr;

using values = std::vector<std::pair<std::string, std::string>>;

std::optional<filter> read(const values& asked)
{
  http_request request;
  request.values = asked;
  return filter_read(request);
}

std::string exchanged(const std::string& text, const char* what, const char* by)
{
  return std::regex_replace(text, std::regex(what), by);
}

// Times are of no two runs the same.
std::string without_times(const std::string& text)
{
  return exchanged(exchanged(text, "\"time_ns\":\\d+", "NS"), "\"\\d{4}-[-0-9T:.]+Z\"", "T");
}

class Reports : public testing::Test {
protected:
  ~Reports() override
  {
    bridge_statuses::close(second);
    bridge_statuses::close(first);
  }

  // A frame of client 02:00:00:00:00:`last_byte`, of `size` bytes, as the frame path leaves it.
  static void done(bridge_status* bridge, fate what, uint8_t code, uint16_t port, unsigned char last_byte = 1,
                   uint64_t at_ns = 1, uint32_t size = 60)
  {
    std::vector<unsigned char> record(kernel_header::size + size + 100);
    unsigned char* const frame = record.data() + kernel_header::size;
    frame[0] = 4;
    frame[6] = 2;
    frame[11] = last_byte;
    const auto all = static_cast<uint32_t>(record.size());
    const frame_record view{record.data(), all - 100, all};
    const bool dropped = class_of(what) == fate_class::dropped;
    const frame_result result{
        .length = dropped ? 0 : view.received, .what = what, .code = code, .port = port, .vid = 9};
    bridge->monitor.came(view);
    if (bridge->monitor.watched())
      bridge->monitor.left(view, result, at_ns);
    bridge->frame_done(view, result, at_ns);
  }
  // A frame of line 02:11:22:aa:bb:cc, or to it from its server.
  static void learn(bridge_status* bridge, uint16_t port, const test_frame& frame, uint64_t at_ns,
                    fate what = fate::tag_inserted)
  {
    const byte_string line = test_frame{}.source;
    const bool asks = frame.source == line;
    byte_string record = frame.build();
    std::ranges::copy(asks ? access : line, record.begin() + kernel_header::size);
    const auto size = static_cast<uint32_t>(record.size());
    bridge->lines.learn({record.data(), size, size},
                        {.length = class_of(what) == fate_class::dropped ? 0 : size,
                         .what = what,
                         .code = frame.code,
                         .of_subscriber = asks,
                         .port = port,
                         .vid = 9,
                         .ethertype = static_cast<uint32_t>(frame.ethertype_offset()),
                         .vendor_tag = asks && !frame.tags.empty() ? static_cast<uint32_t>(frame.tags_offset()) : 0},
                        at_ns);
  }
  // A dial-in whose texts are anybody's, to its end with an error of that tag; without one the PADI alone.
  static void dial_in(bridge_status* bridge, uint16_t port, const std::string& text, uint16_t error = 0)
  {
    const std::string identifiers = vendor_value(text, "r") + std::string("\x02\x00", 2);
    learn(bridge, port, {.code = 0x09, .tags = {{0x0105, identifiers}, {0x0101, text}}}, 1'000'000);
    if (error == 0)
      return;
    learn(bridge, port, {.code = 0x07, .tags = {{0x0102, text}}, .source = access}, 2'000'000);
    learn(bridge, port, {.code = 0x19, .tags = {{0x0105, identifiers}}}, 3'000'000);
    learn(bridge, port, {.code = 0x65, .session_id = 77, .source = access}, 4'999'999);
    learn(bridge, port, {.code = 0xa7, .tags = {{0x0000, ""}}, .session_id = 76}, 5'000'000);
    test_frame end{.code = 0xa7, .tags = {{error, text}}, .session_id = 77};
    if (error != 0x0201)
      end.source = access;
    learn(bridge, port, end, 5'000'000);
  }
  static std::string all_of(http_body& body)
  {
    std::string text;
    while (body.next(text) == http_body::more::yes) {
    }
    return without_times(text);
  }
  static std::string lines(const values& asked) { return all_of(*lines_report(read(asked).value())); }
  static std::string drops(const values& asked) { return without_times(drops_report(read(asked).value())); }
  static std::ptrdiff_t drop_count(const values& asked) { return std::ranges::count(drops(asked), '\n') - 2; }

  static inline const byte_string access{0x02, 0, 0, 0, 0, 0x99};

  bridge_status* second = bridge_statuses::open("z\"\\\n\x1f \x7f~", 3);
  bridge_status* first = bridge_statuses::open("a", 3);
};

TEST_F(Reports, AreWrittenAsEver)
{
  const auto monitor = monitor_report({});
  done(second, fate::tag_untrusted, 0x09, 2, 7, 10'500'000'000);
  done(first, fate::role, 0x07, 3);
  done(first, fate::role, 0x65, 1);
  done(first, fate::unknown_port, 0, 2);
  done(first, fate::tag_inserted, 0x09, 3);
  done(first, fate::port_disabled, 0x42, 3);
  done(first, fate::error_answered, 0x42, 3);
  done(first, fate::role, 0x07, 4, 0xff, 1, 66);
  for (const uint64_t ns : {0, 250, 251, 64'000, 64'001, 1'000'000, 1'000'001})
    first->path.add(ns);
  first->records.add(7);
  first->batches.add(6);
  first->send_failures.add(2);
  first->lost.add(4);
  second->queue_depth.set(5);
  const std::string strange("\x00\x1b[2J\"\\\xff\xc3\n ~\x7f", 13);
  dial_in(first, 2, "plain", 0x0201);
  dial_in(second, 1, strange);
  dial_in(second, 3, strange, 0x0203);
  dial_in(first, 3, "", 0x0202);
  dial_in(first, 1, "half");
  learn(first, 3, {.code = 0x09}, 6'000'000, fate::tag_untrusted);
  const std::string metrics = metrics_text(metrics_style::openmetrics);
  EXPECT_EQ(metrics + lines({}) + drops({}) + all_of(*monitor), file_text(TEST_FOLDER "/reports.txt"));
  EXPECT_EQ(exchanged(metrics_text(metrics_style::prometheus), R"((# \w+ \w+)_total )", "$1 "),
            exchanged(metrics, "# UNIT.*\n", ""));
  EXPECT_EQ(lines({{"bridge", "a"}, {"port", "1"}}) + lines({{"mac", "02:11:22:aa:bb:cd"}}),
            lines({{"bridge", "a"}, {"port", "1"}, {"mac", "02:11:22:aa:bb:cc"}}) + "{\"lines\":[\n]}\n");
  EXPECT_EQ(std::ranges::count(lines({{"port", "2"}}), '\n'), 3);
  EXPECT_EQ(first->lines.slots(), 3 * 16u);
}

TEST_F(Reports, TheLastDropsAreToldOldestFirst)
{
  const size_t most = 1024;
  for (uint64_t i = 1; i <= most + 3; ++i)
    done(first, fate::role, 0x07, 1, 1, std::max<uint64_t>(i, 6) * 1'000'000'000);
  done(second, fate::tag_untrusted, 0x09, 2, 7, 10'500'000'000);
  ASSERT_EQ(first->drops.all().size(), most);
  EXPECT_EQ(first->drops.all()[3].at_ns, 7'000'000'000u);
  EXPECT_EQ(drop_count({}), most) << "of all bridges";
  const std::string text = drops({});
  EXPECT_EQ(std::ranges::count(text.substr(0, text.find(":07\"")), '\n'), 7) << "by time";
  EXPECT_EQ(drop_count({{"bridge", "a"}}), most);
  EXPECT_EQ(drops({{"bridge", "b"}}), "{\"drops\":[\n]}\n");
  for (const auto& one : values{{"port", "2"}, {"mac", "02:00:00:00:00:07"}, {"code", "PADI"}})
    EXPECT_EQ(drop_count({one}), 1) << one.first;
}

// Bridges come and go under a watcher, who may want less than all and may not keep up.
TEST_F(Reports, AMonitorTellsWhatIsWantedAndHowMuchItLost)
{
  auto monitor = monitor_report(read({{"port", "2"}, {"code", "PADI"}, {"dropped", "1"}}).value());
  const auto other = monitor_report(read({{"bridge", "b"}}).value());
  bridge_status* const late = bridge_statuses::open("b", 2);
  EXPECT_EQ(all_of(*monitor) + all_of(*other), "");
  for (bridge_status* bridge : {first, second, late}) {
    done(bridge, fate::role, 0x09, 1);
    done(bridge, fate::role, 0x07, 2);
    done(bridge, fate::tag_inserted, 0x09, 2);
    done(bridge, fate::role, 0x09, 2);
  }
  std::string text = all_of(*monitor);
  EXPECT_EQ(std::ranges::count(text, '\n'), 3);
  EXPECT_EQ(std::ranges::count(all_of(*other), '\n'), 4);
  for (int i = 0; i < 100; ++i)
    done(late, fate::role, 0x09, 2, 1, 1, 3000);
  text.clear();
  EXPECT_EQ(monitor->next(text), http_body::more::yes) << "in parts";
  text += all_of(*monitor);
  EXPECT_EQ(std::ranges::count(text, '\n'), 100);
  EXPECT_THAT(text, HasSubstr("\"length_before\":3000,\"length_after\":0,\"before\":\"04"));
  EXPECT_THAT(text, testing::Not(HasSubstr(std::string(2 * 2048, '0'))));
  for (int i = 0; i < 9000; ++i)
    done(late, fate::role, 0x09, 2);
  EXPECT_EQ(all_of(*monitor), "");
  done(late, fate::tag_inserted, 0x09, 2);
  EXPECT_EQ(all_of(*monitor), "{\"lost\":9000}\n");
  const std::weak_ptr gone = bridge_statuses::all()[1];
  bridge_statuses::close(late);
  EXPECT_EQ(all_of(*monitor) + all_of(*other), "");
  EXPECT_TRUE(gone.expired());
  monitor_report({}).reset();
  EXPECT_TRUE(first->monitor.watched());
  monitor.reset();
  EXPECT_FALSE(first->monitor.watched());
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
  EXPECT_EQ(all->code, 0x65);
  EXPECT_TRUE(all->dropped_only);
  EXPECT_TRUE(all->wants("br0") && all->wants(7, 0x021122aabbcc));
  EXPECT_FALSE(all->wants("br1") || all->wants(8, 0x021122aabbcc) || all->wants(7, 1));
  EXPECT_FALSE(read({{"dropped", "0"}})->dropped_only || read({})->dropped_only);
  EXPECT_EQ(read({{"code", "167"}})->code, 0xa7);
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

TEST(Options, AreTakenFromTheLeastToTheMost)
{
  std::string taken;
  for (const char* given : {"", "1", "2", "9", "10", "5x", "-5", "99999999999"}) {
    setenv("PPPOEIA_TEST_NUMBER", given, 1);
    taken += std::to_string(number_option("PPPOEIA_TEST_NUMBER", 7, 2, 9)) + " ";
  }
  EXPECT_EQ(taken, "7 7 2 9 7 7 7 7 ");
}

// Values of one thread that another reads: bytes of every length, over longer and shorter ones.
TEST(SharedBytes, AreTheFirstSoMany)
{
  unsigned char bytes[80];
  for (size_t i = 0; i < sizeof bytes; ++i)
    bytes[i] = static_cast<unsigned char>(200 + i);
  shared_bytes<63> kept;
  for (size_t size = 0; size <= sizeof bytes; ++size) {
    kept.set(const_bytes(bytes, size));
    EXPECT_EQ(kept.get(), std::string(reinterpret_cast<const char*>(bytes), std::min<size_t>(size, 63)));
    kept.set({});
    EXPECT_EQ(kept.get(), "");
  }
}

}  // namespace
