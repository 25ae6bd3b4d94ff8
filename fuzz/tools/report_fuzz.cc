// The agent's report of a bridge, which has texts of strangers in it without escapes: what is read stands in the text,
// and is no longer than its field.
#include "tools/pppoeiactl/agent/bridge_report.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  const std::string text(reinterpret_cast<const char*>(data), size);
  const bridge_report read = bridge_report_parse(text);
  const auto check = [&](const std::string& value, size_t most) {
    if (value.size() > most || text.find(value) == std::string::npos)
      std::abort();
  };
  for (const auto& [id, port] : read.ports) {
    check(std::to_string(id), 10);
    check(port.device, 16);
    check(port.name, 14);
    check(port.cpe_serial, 12);
    check(port.cpe_mac, 17);
  }
  for (const auto& [id, name] : read.vlans)
    check(name, 31);
  return 0;
}
