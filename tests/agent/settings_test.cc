// The table of settings beside the manual, and what results mean. How settings work is the model's.
#include "pppoeia/api/settings.h"
#include "pppoeia/api/table.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

// The manual has a row for each setting of a bridge and of a port, with its factory value where a getter tells it, and
// the length of a text.
TEST(Settings, TheManualHasThemAll)
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

TEST(Results, MeanWhatTheirNumberSays)
{
  using enum api::meaning;
  const std::pair<int32_t, api::meaning> usual[] = {
      {-EPERM, not_possible}, {-ENOENT, no_bridge_or_entry}, {-ENXIO, not_initialised},   {-ENOMEM, no_memory},
      {-ENODEV, no_port},     {-EINVAL, invalid_value},      {-EMFILE, no_kernel_bridge}, {-ENOSPC, text_too_long},
      {1, not_applicable},    {-EIO, system_error}};
  for (const auto& [result, means] : usual)
    EXPECT_EQ(api::meaning_of(*api::find_operation("pppoeia_port_del"), result), means) << result;
  EXPECT_EQ(api::getter_of(*api::find_operation("pppoeia_port_del")), nullptr);
}

}  // namespace
