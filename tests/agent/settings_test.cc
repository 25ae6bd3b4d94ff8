// Every row of the table of settings, and every text that an operation takes, at its limits.
#include "pppoeia/api/settings.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "tests/support/api_fixture.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

constexpr uint32_t port = 3;

struct text_row {
  const char* name;
  size_t room;
  const char* factory;
  too_long longer;
  int (*set)(const char* text);
  int (*get)(char* text);
};

struct number_row {
  const char* name;
  uint32_t factory;
  int (*set)(uint32_t value);
  int (*get)(uint32_t* value);
};

#define OTHER(...)
#define BRIDGE_TEXT(name, field, setter, getter, longer)                                                               \
  {#name,                                                                                                              \
   sizeof bridge_settings::field,                                                                                      \
   bridge_factory.field,                                                                                               \
   too_long::longer,                                                                                                   \
   [](const char* text) { return setter("br0", text); },                                                               \
   [](char* text) { return getter("br0", text); }},
#define PORT_TEXT(name, field, setter, getter, longer)                                                                 \
  {#name,                                                                                                              \
   sizeof port_settings::field,                                                                                        \
   port_factory.field,                                                                                                 \
   too_long::longer,                                                                                                   \
   [](const char* text) { return setter("br0", port, text); },                                                         \
   [](char* text) { return getter("br0", port, text); }},
#define BRIDGE_NUMBER(name, field, setter, getter)                                                                     \
  {#name, bridge_factory.field, [](uint32_t value) { return setter("br0", value); },                                   \
   [](uint32_t* value) { return getter("br0", value); }},
#define PORT_NUMBER(name, field, setter, getter, words)                                                                \
  {#name, port_factory.field, [](uint32_t value) { return setter("br0", port, value); },                               \
   [](uint32_t* value) { return getter("br0", port, value); }},

const text_row texts[] = {PPPOEIA_BRIDGE_SETTINGS(OTHER, BRIDGE_TEXT, OTHER)
                              PPPOEIA_PORT_SETTINGS(OTHER, PORT_TEXT, OTHER)};
const number_row numbers[] = {PPPOEIA_BRIDGE_SETTINGS(BRIDGE_NUMBER, OTHER, OTHER)
                                  PPPOEIA_PORT_SETTINGS(PORT_NUMBER, OTHER, OTHER)};

class Settings : public testing::Test {
protected:
  Settings() { agent.port_add(port); }

  static std::string told(const text_row& row)
  {
    std::string bytes(row.room, '~');
    EXPECT_EQ(row.get(bytes.data()), 0) << row.name;
    return bytes;
  }

  static std::string padded(std::string text, size_t room)
  {
    text.resize(room);
    return text;
  }

  api_fixture agent;
};

TEST_F(Settings, TextsFromTheFactoryToOneCharacterTooMany)
{
  for (const text_row& row : texts) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(told(row), padded(row.factory, row.room));
    const std::string longest(row.room - 1, 'x');
    EXPECT_EQ(row.set((longest + "y").c_str()), row.longer == too_long::cut        ? 0
                                                : row.longer == too_long::no_space ? -ENOSPC
                                                                                   : -ENOMEM);
    EXPECT_EQ(told(row), padded(row.longer == too_long::cut ? longest : row.factory, row.room));
    EXPECT_EQ(row.set(longest.c_str()), 0);
    EXPECT_EQ(told(row), padded(longest, row.room));
    EXPECT_EQ(row.set("short"), 0);
    EXPECT_EQ(told(row), padded("short", row.room)) << "zeros behind it, not the longer text";
  }
}

TEST_F(Settings, NumbersFromTheFactoryToTheirBounds)
{
  for (const number_row& row : numbers) {
    uint32_t now = 7777;
    EXPECT_EQ(row.get(&now), 0);
    EXPECT_EQ(now, row.factory) << row.name;
    for (const uint32_t value : {0u, 1u, 0x7fffffffu, 0xffffffffu}) {
      EXPECT_EQ(row.set(value), 0);
      EXPECT_EQ(row.get(&now), 0);
      EXPECT_EQ(now, value) << row.name;
    }
  }
}

// A bridge, a port and a VLAN, as far as the operation names them.
api_call on_objects(const api::operation& operation)
{
  api_call call(operation.id);
  for (const api::argument& argument : operation.arguments()) {
    if (argument.what == api::kind::name)
      call.text("br0");
    else if (argument.what == api::kind::u32)
      call.u32(port);
    else if (argument.what == api::kind::u16)
      call.u16(9);
    else
      break;
  }
  return call;
}

// What the client side says of an argument is what the agent takes and gives.
TEST_F(Settings, TextsTravelAsLongAsTheirOperationsSay)
{
  EXPECT_EQ(pppoeia_vlan_add("br0", 9), 0);
  size_t tried = 0;
  for (const api::operation& setter : api::operations) {
    const std::span<const api::argument> arguments = setter.arguments();
    if (!setter.name.ends_with("_set") || setter.name.starts_with("pppoeia_test_") ||
        arguments.back().what != api::kind::text)
      continue;
    SCOPED_TRACE(setter.name);
    const std::string longest(arguments.back().size, 'z');
    EXPECT_EQ(on_objects(setter).text(longest).run(), 0);
    std::string getter(setter.name);
    getter.replace(getter.size() - 3, 3, "get");
    if (const api::operation* const answers = api::find_operation(getter)) {
      api_call call = on_objects(*answers).room(answers->arguments().back().size);
      EXPECT_EQ(call.run(), 0);
      EXPECT_STREQ(call.arguments.back().c_str(), longest.c_str());
    }
    const int32_t longer = on_objects(setter).text(longest + "z").run();
    EXPECT_TRUE(longer == -ENOSPC || longer == -ENOMEM || setter.command.starts_with("port ")) << longer;
    ++tried;
  }
  EXPECT_GE(tried, std::size(texts));
}

TEST_F(Settings, TheLargestPduIsAtMostTheMtu)
{
  pppoeia_bridge& bridge = *bridge_find("br0");
  const auto mtu = static_cast<uint32_t>(bridge.mtu);
  EXPECT_EQ(bridge.max_pdu, mtu) << "of a new bridge";
  EXPECT_EQ(pppoeia_bridge_max_pdu_set("br0", mtu + 1), -EINVAL);
  EXPECT_EQ(bridge.max_pdu, mtu);
  EXPECT_EQ(pppoeia_bridge_max_pdu_set("br0", 0), 0);
  EXPECT_EQ(pppoeia_bridge_max_pdu_set("br0", mtu), 0);
  EXPECT_EQ(bridge.max_pdu, mtu);
}

// The manual has a row for each setting of a bridge and of a port, with its factory value where a getter tells it, and
// the length of a text.
TEST_F(Settings, TheManualHasThemAll)
{
  const std::string manual = file_text(TEST_SOURCE_DIR "/docs/configuration.md");
  const auto row_of = [&](const api::operation& setter) {
    const std::string begin = "| `" + std::string(setter.command.substr(0, setter.command.rfind(' '))) + "` | ";
    const size_t at = manual.find(begin);
    EXPECT_NE(at, std::string::npos) << begin;
    return at == std::string::npos ? "" : manual.substr(at, manual.find('\n', at) - at);
  };
  const auto expect_text = [&](const char* setter, const char* getter, const char* factory) {
    const api::operation& operation = *api::find_operation(setter);
    const std::string row = row_of(operation);
    EXPECT_NE(row.find(std::to_string(operation.arguments().back().size) + " characters."), std::string::npos) << row;
    const std::string value = *factory ? factory : "''";
    EXPECT_NE(row.find(api::find_operation(getter) ? "| `" + value + "` |" : "| empty |"), std::string::npos) << row;
  };
  const auto expect_row = [&](const char* setter) { row_of(*api::find_operation(setter)); };
#define MANUAL_ROW(name, field, setter, ...) expect_row(#setter);
#define MANUAL_TEXT(name, field, setter, getter, ...) expect_text(#setter, #getter, bridge_factory.field);
  PPPOEIA_BRIDGE_SETTINGS(MANUAL_ROW, MANUAL_TEXT, MANUAL_ROW)
#undef MANUAL_TEXT
#define MANUAL_TEXT(name, field, setter, getter, ...) expect_text(#setter, #getter, port_factory.field);
  PPPOEIA_PORT_SETTINGS(MANUAL_ROW, MANUAL_TEXT, MANUAL_ROW)
  PPPOEIA_PROCESS_SETTINGS(MANUAL_ROW)
}

}  // namespace
