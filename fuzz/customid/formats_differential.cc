// The macro language beside its model: random formats of a node's line and of made-up values, and texts, bytes, log
// lines, the trace and where a format ends compared. A difference is shown by the shortest format that has it. Usage:
// formats_differential [SEED [SECONDS]]; by default a seed of its own for 2 seconds.
#include "fuzz/customid/oracle.h"
#include "pppoeia/customid/customid.h"
#include "pppoeia/customid/parser.h"
#include "pppoeia/customid/trace.h"
#include "pppoeia/customid/vocabulary.h"
#include "pppoeia/identifiers/macro_values.h"
#include "pppoeia/log.h"
#include "tests/customid/example_node.h"
#include "tests/customid/node_stub.h"
#include "tests/support/syslog_capture.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>

namespace {

using random_source = std::mt19937_64;

size_t below(random_source& random, size_t n)
{
  return random() % n;
}

// What is written on standard output while it lives.
class caught_output {
public:
  caught_output() : former_(stdout) { stdout = open_memstream(&text_, &size_); }
  ~caught_output()
  {
    std::fclose(stdout);
    std::free(text_);
    stdout = former_;
  }
  caught_output(const caught_output&) = delete;
  caught_output& operator=(const caught_output&) = delete;

  std::string text() const
  {
    std::fflush(stdout);
    return {text_, size_};
  }

private:
  std::FILE* former_;
  char* text_ = nullptr;
  size_t size_ = 0;
};

// As "STEP,LINE: " has them, which change with the source.
std::string without_source_lines(std::string trace)
{
  const std::string mark = "PPPOEIA_DEBUG:";
  for (size_t at = 0; (at = trace.find(mark, at)) != std::string::npos; at += mark.size())
    if (const size_t comma = trace.find(',', at), colon = trace.find(':', comma); colon != std::string::npos)
      trace.erase(comma, colon - comma);
  return trace;
}

// Options that stand together; a number that would be small if 32 bits of it counted.
std::string random_options(random_source& random)
{
  static const char* const words[] = {"h", "h", "z", "s",  "d-", "d:",  "0",
                                      "2", "3", "7", "63", "99", "100", "4294967298"};
  std::string options;
  for (size_t count = below(random, 4); count > 0; --count)
    options += words[below(random, std::size(words))];
  return options;
}

// Macros of bytes side by side, whose digits may end half-way through a byte.
std::string random_bytes(random_source& random)
{
  std::string format;
  for (size_t count = 2 + below(random, 4); count > 0; --count) {
    const macro_row& row = macro_rows[below(random, customIdFormatCount)];
    if (row.hex)
      format += "$h" + std::string(row.name);
    else
      format += below(random, 4) ? "$a0HEX" : "$123HEX";
  }
  return format;
}

// Pieces of the language, likelier to fit together than bytes are.
std::string random_format(random_source& random)
{
  static const char* const words[] = {"$", "$",  "$h", "$z", "$s", "$d", "h", "z", "s",   "d",  "0",
                                      "1", "2",  "3",  "7",  "63", "99", "-", ":", "100", "00", "4294967295",
                                      " ", "$z", "a",  "f",  "G",  "",   "$", "$", "$2",  "$x", "$ab"};
  std::string format;
  const size_t pieces = below(random, 14);
  for (size_t i = 0; i < pieces && format.size() < bridge_format_max; ++i) {
    const size_t kind = below(random, 20);
    if (kind < 7)
      format += macro_rows[below(random, customIdFormatCount)].name;
    else if (kind < 13)
      format += std::string("$") + words[below(random, std::size(words))] +
                std::string(macro_rows[below(random, customIdFormatCount)].name);
    else if (kind < 16)
      format += "$" + random_options(random) + std::string(macro_rows[below(random, customIdFormatCount)].name);
    else if (below(random, 20) == 0)
      format += random_bytes(random);
    else if (kind < 19)
      format += words[below(random, std::size(words))];
    else
      format += static_cast<char>(1 + below(random, 255));
  }
  return format.substr(0, bridge_format_max);
}

using value_map = std::map<std::string, oracle_value>;

// Port 9 of the example node, whose IPv6 address may be missing.
value_map values_of_port_9(bool ipv6)
{
  return {{"SHELF", {"shelf-1", ""}},
          {"CHASSIS", {"99", ""}},
          {"PANEL", {"", "<br0> >> Cannot read valid panel"}},
          {"INTF_TYPE", {"atm", ""}},
          {"AGENT_BOARD", {"3", ""}},
          {"BOARD", {"", "<br0> >> Cannot read valid board type"}},
          {"PORT", {"9", ""}},
          {"PORT_REM_ID", {"C-4711", "<br0> >> Adding PORT_REM_ID from parent id: 7."}},
          {"INTF", {"0/9", ""}},
          {"INTF_DSCR", {"Main Street 5", "<br0> >> Adding INTF_DSCR from parent id: 7."}},
          {"ONU", {"", "<br0> >> Not ONU or GEM interface"}},
          {"VGEM", {"", "<br0> >> Not GEM interface"}},
          {"TCONT", {"", "<br0> >> Unknown macro: 12.\n", false}},
          {"PVC_INTF", {"2", ""}},
          {"VPI", {"8", ""}},
          {"VCI", {"35", ""}},
          {"CLNT_MAC", {"02:11:22:AA:BB:CC", ""}},
          {"AGENT_MAC", {"02:00:5E:10:00:01", ""}},
          {"AGENT_IPV4", {"10.1.2.30", ""}},
          {"AGENT_IPV6",
           ipv6 ? oracle_value{"2001:db8::1", ""} : oracle_value{"", "<br0> >> getIpv6Addr: ncfmGetIpv6 has failed\n"}},
          {"VLAN", {"300", ""}},
          {"VLAN_NAME", {"", "<br0> >> Cannot read VLAN name\n"}},
          {"CVID", {"5", ""}},
          {"SYSNAME", {"AN12", ""}},
          {"LOCATION", {"Springfield CO 3", ""}},
          {"CONTACT", {"noc@example.net", ""}},
          {"HEX", {"", "<br0> >> Unknown macro: 26.\n", false}},
          {"CPE_SERIAL", {"", ""}},
          {"CPE_MAC", {"00:00:00:00:00:00", ""}}};
}

// Groups of an IPv6 address, mostly; with gaps and colons where none may be.
std::string random_ipv6(random_source& random)
{
  static const char* const groups[] = {"0", "1", "1", "db8", "2001", "ffff", "ffff", "", "00001", "g"};
  static const size_t counts[] = {0, 1, 2, 4, 6, 7, 8, 8, 9};
  const size_t count = counts[below(random, std::size(counts))];
  const size_t gap = below(random, 2) ? below(random, count + 1) : count + 1;
  std::string text = gap == 0 ? "::" : "";
  for (size_t i = 1; i <= count; ++i) {
    text += groups[below(random, below(random, 8) ? 7 : std::size(groups))];
    text += i == gap ? "::" : i < count ? ":" : "";
  }
  return text;
}

// A value of that shape, also as no node has it: missing, cut or out of range.
std::string random_value(random_source& random, macro_shape shape)
{
  const auto one_of = [&](std::initializer_list<const char*> all) { return all.begin()[below(random, all.size())]; };
  switch (shape) {
  case macro_shape::number:
    return one_of({"", "0", "7", "99", "255", "4096", "4294967295", "4294967296", "4294967551"});
  case macro_shape::mac:
    return one_of({"", "02:11:22:AA:BB:CC", "2:11:22", "1", "2:1:1"});
  case macro_shape::ipv4:
    return one_of({"", "10.1.2.30", "0.0.0.0", "255.255.255.255", "10.1", "300.1.2.999", "300.1.2.3", ".1.2.3",
                   "1..2.3", "10.1x2.3"});
  case macro_shape::ipv6:
    return random_ipv6(random);
  case macro_shape::text:
  case macro_shape::user:
    break;
  }
  return one_of({"", "a", "0/9", "aBc", "some text", "$PORT"});
}

// Made-up values as a source.
class made_up_source final : public macro_source {
public:
  explicit made_up_source(const value_map& values) : values_(values) {}

  const char* name() const override { return "br0"; }
  bool value(customIdFormat macro, std::string& value) const override
  {
    const oracle_value& made = values_.at(macroFormatTypeToString(macro));
    value = made.text;
    return made.known;
  }

private:
  const value_map& values_;
};

// A line whose identifiers are built: the values that the model is told, and the way to the real one.
struct tried_line {
  value_map values;
  std::string asked_for;  // in the resolver's trace
  std::function<void(const std::string& format, oracle_identifier& id)> expand;
};

tried_line port_9(const pppoeia_bridge& bridge, bool ipv6)
{
  return {values_of_port_9(ipv6), "intfId=9, useData=0, vid=300, cvid=5",
          [&bridge, ipv6](const std::string& format, oracle_identifier& id) {
            node().ipv6.reset();
            if (ipv6)
              node().ipv6 = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
            genCustomId(&bridge, 9, 300, 5, format, id.text, id.bin, idGenLive);
          }};
}

tried_line made_up(random_source& random)
{
  value_map values;
  for (const macro_row& row : macro_rows) {
    const bool known = below(random, 8) != 0;
    values[std::string(row.name)] = {random_value(random, row.shape), "", known};
  }
  return {values, "", [values](const std::string& format, oracle_identifier& id) {
            custom_id_expand(made_up_source(values), format, id.text, id.bin);
          }};
}

// Where and why no further macro is read.
std::string end_of(const std::string& format)
{
  size_t at = 0;
  for (const parsed_macro& macro : format_compiled(format))
    at = macro.begin + macro.text.size();
  const format_end end = format_end_find(format, at);
  const std::string name = std::string(end.name) + " at " + std::to_string(end.begin);
  switch (end.why) {
  case format_end::no_name:
    return "";
  case format_end::no_identifier:
    return name + " has no $";
  case format_end::bad_options:
    return name + ": " + end.option_error;
  }
  return "an end of its own";
}

oracle_identifier generate(const tried_line& of, const std::string& format, int32_t level, bool traced)
{
  oracle_identifier id;
  const caught_output output;
  syslog_take();
  pppoeia_log_level = level;
  customFormatTestDebug = traced;
  of.expand(format, id);
  id.log = syslog_take_texts();
  id.trace = without_source_lines(output.text());
  customFormatTestDebug = false;
  pppoeia_log_level = log_info;
  id.end = end_of(format);
  return id;
}

std::string shown(const oracle_identifier& id)
{
  std::string text = "'" + id.text + "'";
  for (const unsigned char byte : id.bin) {
    char digits[4];
    std::snprintf(digits, sizeof digits, " %02x", byte);
    text += digits;
  }
  for (const std::string& line : id.log)
    text += "\n    " + line;
  return text + "\n" + id.trace + (id.end.empty() ? "" : "ends before " + id.end + "\n");
}

// What the two make of a format, where that differs; with log lines, with the trace, with both and without.
std::string difference(const tried_line& of, const std::string& format)
{
  const oracle_identifier all = oracle_generate(format, of.values, "br0", of.asked_for);
  for (const bool traced : {true, false})
    for (const bool logged : {true, false}) {
      const oracle_identifier seen = generate(of, format, logged ? log_debug : log_info, traced);
      oracle_identifier said = all;
      if (!logged)
        said.log.clear();
      if (!traced)
        said.trace.clear();
      if (seen != said)
        return "  expected " + shown(said) + "  got " + shown(seen);
    }
  return "";
}

void show_shortest(const tried_line& of, std::string format)
{
  for (size_t at = format.size(); at-- > 0;) {
    std::string shorter = format;
    shorter.erase(at, 1);
    if (!difference(of, shorter).empty())
      format = shorter;
  }
  std::printf("format '%s':\n", format.c_str());
  for (const auto& [name, value] : of.values)
    if (format.find(name) != std::string::npos)
      std::printf("  %s is '%s'%s\n", name.c_str(), value.text.c_str(), value.known ? "" : ", unknown");
  std::printf("%s", difference(of, format).c_str());
}

}  // namespace

int main(int argc, char** argv)
{
  const unsigned long long seed = argc > 1 ? std::strtoull(argv[1], nullptr, 0) : std::random_device{}();
  const int seconds = argc > 2 ? std::atoi(argv[2]) : 2;
  std::printf("seed %llu\n", seed);
  random_source random(seed);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  example_node example;
  node().ipv4["dev9"] = {10, 1, 2, 30};
  for (unsigned long count = 0;; ++count) {
    if (count % 64 == 0 && std::chrono::steady_clock::now() >= end) {
      std::printf("%lu formats alike\n", count);
      return 0;
    }
    const tried_line of = below(random, 4) == 0 ? made_up(random) : port_9(example.bridge(), below(random, 4) != 0);
    const std::string format = random_format(random);
    if (difference(of, format).empty())
      continue;
    std::printf("after %lu formats: ", count);
    show_shortest(of, format);
    return 1;
  }
}
