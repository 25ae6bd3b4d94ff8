#include "fuzz/customid/oracle.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <optional>

namespace {

using std::string;

struct options {
  bool hex = false, number = false, zeroes = false, spaces = false, delimiter = false;
};

struct machine {
  const std::map<string, oracle_value>& values;
  oracle_identifier id;
  string kept_delimiter;
  unsigned long kept_number = 0;
  std::map<size_t, size_t> segments;
  string reason;   // of options that cannot be read
  string opening;  // of a line about the bridge
  string asked_for;

  void log(const string& line) { id.log.push_back(line); }
  void trace(const char* tabs, const char* step, const string& text)
  {
    id.trace += tabs + string("PPPOEIA_DEBUG:") + step + ": " + text;
  }
  bool fail(const string& why)
  {
    if (!why.empty())
      log("<PPPOEIA> >> " + why);
    return false;
  }
  // The next macro cannot be read, or a value not be formatted.
  bool stop(const string& why)
  {
    trace("\t", "getNextMacroFormatString", why + " \n");
    return fail(why);
  }
  bool refuse(const string& why)
  {
    trace("\t", "processMacroString", why + " \n");
    return fail("ERROR: " + why);
  }
  bool forbid(const string& what, const string& why)
  {
    trace("", "macroAreFlagsValid", what + " \n");
    return fail("ERROR: " + why);
  }

  bool options_read(const string& text, options& o);
  bool options_fit(const string& name, const options& o);
  std::optional<string> ipv6_joined(const string& text, const string& by);
  std::optional<string> formatted(const string& name, const options& o, string value);
  bool cut_or_pad(const string& name, const options& o, string& value);
  bool options_traced(const string& text, options& o);
  oracle_value value(const string& name);
  bool macro(const string& written, const string& name, string::size_type name_at);
  void bytes();
  void trace_bytes();
};

bool in(const string& name, const char* list)
{
  return string(list).find(" " + name + " ") != string::npos;
}

// Its place in the list of all.
int number_of_macro(const string& name)
{
  static const char* const names[] = {"SHELF",      "CHASSIS",     "PANEL", "INTF_TYPE",  "AGENT_BOARD", "BOARD",
                                      "PORT",       "PORT_REM_ID", "INTF",  "INTF_DSCR",  "ONU",         "VGEM",
                                      "TCONT",      "PVC_INTF",    "VPI",   "VCI",        "CLNT_MAC",    "AGENT_MAC",
                                      "AGENT_IPV4", "AGENT_IPV6",  "VLAN",  "VLAN_NAME",  "CVID",        "SYSNAME",
                                      "LOCATION",   "CONTACT",     "HEX",   "CPE_SERIAL", "CPE_MAC"};
  int number = 0;
  while (name != names[number])
    ++number;
  return number;
}

const char* const digits_of_either_case = "0123456789abcdefABCDEF";

bool mac_name(const string& name)
{
  return in(name, " CLNT_MAC AGENT_MAC CPE_MAC ");
}

string printed(const char* format, unsigned long number)
{
  char text[32];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(text, sizeof text, format, number);
#pragma GCC diagnostic pop
  return text;
}

unsigned long number_of(const string& digits)
{
  unsigned long n = 0;
  for (const char d : digits)
    n = std::min(n * 10 + static_cast<unsigned long>(d - '0'), 4294967295ul);
  return n;
}

string replaced(string text, const string& what, const string& by)
{
  for (size_t at = 0; (at = text.find(what, at)) != string::npos; at += by.size())
    text.replace(at, what.size(), by);
  return text;
}

bool machine::options_read(const string& text, options& o)
{
  bool padded = false;
  char pending = 0;
  for (size_t i = 0; i < text.size();) {
    size_t end = i;
    while (end < text.size() && strchr("0123456789", text[end]) && text[end])
      ++end;
    const string digits = text.substr(i, end - i);
    if (pending == 'd') {
      kept_delimiter = text.substr(i++, 1);
      pending = 0;
    } else if (pending) {
      kept_number = number_of(digits);
      o.number = o.number || !digits.empty();
      i = end;
      pending = 0;
    } else if (text[i] == 'h') {
      if (o.hex)
        return fail("Duplicate hex option");
      o.hex = true;
      ++i;
    } else if (text[i] == 's' || text[i] == 'z') {
      if (padded)
        return fail("Duplicate padding option");
      padded = true;
      (text[i] == 's' ? o.spaces : o.zeroes) = true;
      pending = text[i++];
    } else if (text[i] == 'd') {
      if (o.delimiter)
        return fail("Duplicate delimiter option");
      o.delimiter = true;
      pending = text[i++];
    } else if (digits.empty()) {
      return fail("Invalid number of characters or unexpected character!");
    } else if (padded) {
      return fail("Duplicate num chars option");
    } else {
      kept_number = number_of(digits);
      o.number = true;
      i = end;
    }
  }
  return pending != 's' || fail("Unexpected exit! Number of characters should follow.");
}

bool machine::options_fit(const string& name, const options& o)
{
  const bool ip = in(name, " AGENT_IPV4 AGENT_IPV6 ");
  const bool numeric = in(name, " CHASSIS AGENT_BOARD BOARD PORT ONU VGEM TCONT PVC_INTF VPI VCI VLAN CVID ");
  const string both = "both macroStringPadZeroes and macroStringPadSpaces set";
  if (o.zeroes && o.spaces)
    return forbid("macroStringPadZeroes && macroStringPadSpaces", both);
  if (!ip && (o.zeroes || o.spaces) && kept_number == 0)
    return forbid("padding, but zero characters", both);
  if ((ip || !(o.zeroes || o.spaces)) && o.number && kept_number == 0)
    return forbid("macroStringNumOfChars, but zero characters", "macroStringNumOfChars set, but zero characters");
  if (o.hex && !ip && !numeric && !mac_name(name))
    return forbid("macroType=" + std::to_string(number_of_macro(name)) + " not supported for HEX",
                  "macro not supported for HEX format");
  return true;
}

// Eight groups of four digits, by way of the address itself; of a text that is none, only the number of groups may be
// wrong, or the groups.
std::optional<string> machine::ipv6_joined(const string& text, const string& by)
{
  unsigned char a[16];
  if (inet_pton(AF_INET6, text.c_str(), a) != 1) {
    size_t groups = 0;
    bool wrong = false;
    for (size_t at = 0; !text.empty() && at <= text.size(); ++groups) {
      const string group = text.substr(at, text.find(':', at) - at);
      wrong =
          wrong || group.empty() || group.size() > 4 || group.find_first_not_of(digits_of_either_case) != string::npos;
      at += group.size() + 1;
    }
    return fail(wrong ? "ERROR: ipv6AddrStrToVector failed for: " + text + "\n"
                      : "ERROR: invalid ipv6Parts.size(): " + std::to_string(groups) + "\n"),
           std::nullopt;
  }
  string out;
  for (size_t i = 0; i < 16; i += 2)
    out += (i ? by : "") + printed("%04lx", a[i] * 256ul + a[i + 1]);
  return out;
}

string ipv4_joined(const string& text, const char* format, const string& by)
{
  unsigned a[4] = {};
  std::sscanf(text.c_str(), "%u.%u.%u.%u", &a[0], &a[1], &a[2], &a[3]);
  return printed(format, a[0]) + by + printed(format, a[1]) + by + printed(format, a[2]) + by + printed(format, a[3]);
}

std::optional<string> machine::formatted(const string& name, const options& o, string value)
{
  if (!options_fit(name, o))
    return refuse("invalid flags"), std::nullopt;
  if (name == "HEX") {
    for (char& c : value) {
      if (!c || !strchr(digits_of_either_case, c)) {
        trace("\t", "processMacroString", "Non-hex character present in HEX string \n");
        return std::nullopt;
      }
      if (c >= 'a')
        c = static_cast<char>(c - 'a' + 'A');
    }
    if (value.size() % 2) {
      trace("\t", "processMacroString", "Odd length of HEX string, pad 0 \n");
      value += "0";
    }
    return value;
  }
  const bool v4 = name == "AGENT_IPV4";
  const bool v6 = name == "AGENT_IPV6";
  if ((v4 || v6) && o.zeroes && !o.number && !o.hex) {
    if (value.empty())
      return value;
    return v4 ? ipv4_joined(value, "%03lu", o.delimiter ? kept_delimiter : ".")
              : ipv6_joined(value, o.delimiter ? kept_delimiter : ":");
  }
  if (v6 && (o.hex ? !value.empty() : o.delimiter)) {
    const std::optional<string> joined = ipv6_joined(value, o.hex ? "" : kept_delimiter);
    if (!joined)
      return std::nullopt;
    value = *joined;
  } else if (o.hex) {
    if (mac_name(name))
      value = replaced(value, ":", "");
    else if (v4 || v6)
      value = value.empty() ? "" : ipv4_joined(value, "%02lX", "");
    else if (value = printed("%lx", number_of(value)); value.size() % 2)
      value = "0" + value;
  } else if (o.delimiter) {
    if (v4 || mac_name(name))
      value = replaced(value, v4 ? "." : ":", kept_delimiter);
    else
      return refuse("macro not supported for delimiter"), std::nullopt;
  } else {
    trace("\t", "processMacroString", "No HEX or delimiter option \n");
  }
  if (o.number && !cut_or_pad(name, o, value))
    return std::nullopt;
  return value;
}

bool machine::cut_or_pad(const string& name, const options& o, string& value)
{
  if ((mac_name(name) || name.starts_with("AGENT_IPV")) && (o.zeroes || o.spaces))
    return refuse("MAC/IP is not allowed for padding with specified number of characters");
  if (kept_number >= 100) {
    trace("\t", "processMacroString",
          "numChars=" + std::to_string(static_cast<int>(kept_number)) + " > macroNumOfCharsMax=99 \n");
    return false;
  }
  const string unit = o.hex ? "00" : o.zeroes ? "0" : " ";
  const size_t length = value.size() / unit.size();
  if (length > kept_number)
    value = value.substr(0, kept_number * unit.size());
  else if (o.zeroes || o.spaces)
    for (size_t i = length; i < kept_number; ++i)
      value = unit + value;
  return true;
}

bool machine::options_traced(const string& text, options& o)
{
  const char* const step = "parseOptChars";
  trace("\t\t", step, "optChars='" + text + "' \n");
  if (!options_read(text, o)) {
    reason = id.log.back().substr(id.log.back().find(">> ") + 3);
    trace("\t\t", step, reason + " \n");
    return stop("ERROR: parseOptChars failed");
  }
  const unsigned flags = o.hex * 1u + o.number * 2u + o.zeroes * 4u + o.spaces * 8u + o.delimiter * 16u;
  trace("\t\t", step,
        "delimiter='" + kept_delimiter + "', numChars=" + std::to_string(static_cast<int>(kept_number)) + ", flags=0x" +
            printed("%02lx", flags) + " \n");
  return true;
}

// What it stands for.
oracle_value machine::value(const string& name)
{
  const oracle_value& value = values.at(name);
  if (!asked_for.empty()) {
    const char* const step = "getMacroStringValue";
    trace("\t", step, "macroType=" + std::to_string(number_of_macro(name)) + "('" + name + "'), " + asked_for + " \n");
    trace("\t", step, "macroString='" + value.text + "'\n");
  }
  if (!value.log.empty())
    log(value.log);
  return value;
}

// One macro as written; false when its options cannot be read.
bool machine::macro(const string& written, const string& name, string::size_type name_at)
{
  const string between = written.substr(1, name_at - 1);
  options o;
  if (name != "HEX" && !options_traced(between, o))
    return false;
  const oracle_value found = name == "HEX" && !between.empty() ? oracle_value{between, ""} : value(name);
  if (!found.known) {
    log(opening + "Error reading macro " + name + ". Appending macro string.");
    id.text += written;
    return true;
  }
  const std::optional<string> text = formatted(name, o, found.text);
  if (text)
    trace("\t", "processMacroString", "processedStr='" + *text + "'\n");
  else
    trace("", "genCustomId", "Error processing macro string. Appending macro string='" + written + "'\n");
  if (text && (o.hex || name == "HEX"))
    segments[id.text.size()] = text->size();
  id.text += text.value_or(written);
  return true;
}

void machine::bytes()
{
  log(opening + "Generating binary string");
  for (size_t i = 0; i < id.text.size();) {
    const size_t length = segments.contains(i) ? segments[i] : 0;
    for (size_t k = 0; k < length; k += 2, i += 2) {
      if (i + 1 >= id.text.size())
        return log(opening + "idStringToBinaryVector failed!");
      const string pair = id.text.substr(i, 2);
      const bool digits = pair.find_first_not_of(digits_of_either_case) == string::npos;
      id.bin.push_back(static_cast<unsigned char>(digits ? std::stoul(pair, nullptr, 16) : 0));
    }
    if (length == 0)
      id.bin.push_back(static_cast<unsigned char>(id.text[i++]));
  }
}

void machine::trace_bytes()
{
  string dump = "genId HEX DUMP=";
  for (size_t i = 0; i < id.bin.size(); ++i)
    dump += (i % 16 ? "" : "\n") + printed("%02lx ", id.bin[i]);
  trace("", "genCustomId", dump + "\n");
}

}  // namespace

oracle_identifier oracle_generate(const string& format, const std::map<string, oracle_value>& values,
                                  const string& bridge, const string& asked_for)
{
  machine m{values, {}, {}, 0, {}, {}, "<" + bridge + "> >> ", asked_for};
  m.log(m.opening + "genCustomId");
  string rest = format;
  for (bool more = true; more;) {
    // The name that begins first, the longest there.
    string name;
    size_t at = 0;
    for (; at < rest.size() && name.empty(); ++at)
      for (const auto& [candidate, value] : values)
        if (rest.compare(at, candidate.size(), candidate) == 0 && candidate.size() > name.size())
          name = candidate;
    const size_t name_at = at - 1;
    const size_t dollar = name.empty() ? string::npos : rest.substr(0, name_at).rfind('$');
    if (format.empty())
      m.stop("Empty format string");
    else if (name.empty())
      m.trace("\t", "getNextMacroFormatString", "NOT found \n");
    else if (dollar == string::npos)
      m.stop("No macro identifier found");
    const size_t done = format.size() - rest.size();
    if (!name.empty() && dollar == string::npos)
      m.id.end = name + " at " + std::to_string(done + name_at) + " has no $";
    if (dollar == string::npos)
      break;
    const string written = rest.substr(dollar, name_at + name.size() - dollar);
    m.trace("\t", "getNextMacroFormatString",
            "macroFormatStr='" + written + "', macroType=" + std::to_string(number_of_macro(name)) + " \n");
    const string before = m.id.text;
    m.id.text += rest.substr(0, dollar);
    more = m.macro(written, name, name_at - dollar);
    if (more) {
      rest = rest.substr(name_at + name.size());
    } else {
      m.id.text = before;
      m.id.end = name + " at " + std::to_string(done + dollar) + ": " + m.reason;
    }
  }
  m.id.text += rest;
  m.log(m.opening + "Generated custom ID '" + string(m.id.text.c_str()) + "'.");
  if (!m.segments.empty())
    m.bytes();
  if (m.id.bin.empty() && m.id.text.size() >= 64) {
    m.log(m.opening + "Cutting CHAR string from " + std::to_string(m.id.text.size()) + " to 63 chars");
    m.id.text.resize(63);
  } else if (m.id.bin.size() > 63) {
    m.log(m.opening + "Cutting BIN string from " + std::to_string(m.id.bin.size()) + " to 63 bytes");
    m.id.bin.resize(63);
  }
  m.trace_bytes();
  return m.id;
}
