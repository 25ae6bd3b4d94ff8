// The operations by which operators try a format before it goes live. Answers go to the caller's terminal.
#include "pppoeia/customid/trace.h"
#include "pppoeia/identifiers/macro_values.h"
#include "pppoeia/identifiers/test_data.h"
#include "pppoeia/operations/operation.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/tty.h"
#include "rte/BLL/util/kv_util.h"

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string_view>

// Never destroyed: the management thread may still run while the process ends.
customFormatTestData_t& customFormatTestData = *new customFormatTestData_t;

namespace {

constexpr int no_such_bridge = 1;

// Decimal text as a number, 0 for any other text. Callers cut it to their field.
uint64_t decimal(const char* text)
{
  return static_cast<uint64_t>(std::strtoll(text, nullptr, 10));
}

template <typename Field>
void number_set(Field customFormatTestData_t::*field, const char* name, const char* value, std::ostream& echo)
{
  customFormatTestData.*field = static_cast<Field>(decimal(value));
  echo << "Setting " << name << ": " << customFormatTestData.*field << "\n";
}

void text_set(std::string customFormatTestData_t::*field, const char* name, const char* value, std::ostream& echo)
{
  customFormatTestData.*field = value;
  echo << "Setting " << name << ": '" << value << "'\n";
}

// Exactly six pairs of digits with colons between them.
void mac_set(const char* value, std::ostream& echo)
{
  constexpr size_t length = 17;
  const std::string_view text(value);
  if (text.size() == length && text.find('-') == std::string_view::npos &&
      CKvUtil::stringToMac(text, customFormatTestData.clntMac))
    echo << "Setting clntMac: " << text;
  echo << "\n";
}

// An option of pppoeia_test_set().
struct set_option {
  std::string_view name;
  void (*set)(const char* value, std::ostream& echo);
};

using data = customFormatTestData_t;

constexpr set_option set_options[] = {
    {"pppoeiaTestSetVlan", [](const char* v, std::ostream& e) { number_set(&data::vlan, "vlan", v, e); }},
    {"pppoeiaTestSetCvid", [](const char* v, std::ostream& e) { number_set(&data::cvid, "cvid", v, e); }},
    {"pppoeiaTestSetIntfId", [](const char* v, std::ostream& e) { number_set(&data::intfId, "intfId", v, e); }},
    {"pppoeiaTestSetOnu", [](const char* v, std::ostream& e) { number_set(&data::onu, "onu", v, e); }},
    {"pppoeiaTestSetVgem", [](const char* v, std::ostream& e) { number_set(&data::vgem, "vgem", v, e); }},
    {"pppoeiaTestSetTContType",
     [](const char* v, std::ostream& e) { number_set(&data::tcontType, "tcontType", v, e); }},
    {"pppoeiaTestSetClntMac", mac_set},
    {"pppoeiaTestSetCustomCidStr",
     [](const char* v, std::ostream& e) { text_set(&data::customCidStr, "customCidStr", v, e); }},
    {"pppoeiaTestSetCustomRidStr",
     [](const char* v, std::ostream& e) { text_set(&data::customRidStr, "customRidStr", v, e); }},
};

void option_set(std::string_view option, const char* value, std::ostream& echo)
{
  for (const set_option& row : set_options)
    if (row.name == option)
      return row.set(value, echo);
  echo << "\n";
}

// What pppoeia_test_run() is to expand; null for an unknown option.
struct run_option {
  std::string_view name;
  std::string data::*format;
  const char* heading;
};

constexpr run_option run_options[] = {
    {"pppoeiaTestRunCid", &data::customCidStr, "\n Generated Custom Circuit Id: '"},
    {"pppoeiaTestRunRid", &data::customRidStr, "\n Generated Custom Remote Id: '"},
};

void run(const pppoeia_bridge& bridge, std::string_view option, std::string_view mode, std::ostream& out)
{
  const bool known_mode = mode == "test" || mode == "available";
  for (const run_option& row : run_options) {
    if (row.name != option || !known_mode)
      continue;
    const data& test = customFormatTestData;
    std::string id;
    std::vector<unsigned char> bin;
    genCustomId(&bridge, test.intfId, test.vlan, test.cvid, test.*row.format, id, bin,
                mode == "test" ? idGenTest : idGenAvailable);
    out << row.heading << id << "'";
  }
  out << "\n";
}

// Runs `body(bridge, report)` and sends the report to the terminal.
template <typename Body>
int report(const operation& self, const char* bridge, const char* tty, Body body)
{
  self.entry(bridge);
  const pppoeia_bridge* record = bridge_find(bridge);
  if (!record)
    return self.result(no_such_bridge);
  std::stringstream out;
  body(*record, out);
  pppoeia_send_stream_to_tty(out, tty);
  return self.result(0);
}

}  // namespace

int pppoeia_test_dump(const char* bridge, const char* tty)
{
  return report(operation{__func__}, bridge, tty, [](const pppoeia_bridge&, std::ostream& out) {
    const data& test = customFormatTestData;
    out << "Debug:" << customFormatTestDebug.load() << "\n"
        << "Test data:\n"
        << "------------\n"
        << "vlan:" << test.vlan << "\n"
        << "cvid:" << test.cvid << "\n"
        << "intfId:" << test.intfId << "\n"
        << "onu:" << test.onu << "\n"
        << "vgem:" << test.vgem << "\n"
        << "tcontType:" << test.tcontType << "\n"
        << "clntMac:" << CKvUtil::macToString(test.clntMac) << "\n"
        << "customCidStr: '" << test.customCidStr << "'\n"
        << "customRidStr: '" << test.customRidStr << "'\n";
  });
}

int pppoeia_test_set(const char* bridge, const char* option, const char* value, const char* tty)
{
  return report(operation{__func__}, bridge, tty,
                [&](const pppoeia_bridge&, std::ostream& out) { option_set(option, value, out); });
}

int pppoeia_test_debug(const char* bridge, uint32_t debug, const char* tty)
{
  return report(operation{__func__}, bridge, tty, [&](const pppoeia_bridge&, std::ostream& out) {
    customFormatTestDebug = debug != 0;
    out << "\n Test debug set to " << (debug != 0) << "\n";
  });
}

int pppoeia_test_run(const char* bridge, const char* option, const char* mode, const char* tty)
{
  return report(operation{__func__}, bridge, tty,
                [&](const pppoeia_bridge& record, std::ostream& out) { run(record, option, mode, out); });
}
