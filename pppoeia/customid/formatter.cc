#include "pppoeia/customid/formatter.h"

#include "pppoeia/customid/binary.h"
#include "pppoeia/customid/trace.h"
#include "pppoeia/log.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace {

constexpr char operation[] = "processMacroString";

struct request {
  const std::string& value;
  customIdFormat type;
  macro_shape shape;
  char flags;
  const std::string& delimiter;
  unsigned num_chars;

  bool has(char flag) const { return (flags & flag) != 0; }
  bool address() const { return macroIsSupportedForDelimiter(type); }
};

bool refuse(const char* why)
{
  pppoeia_log(log_debug, "<PPPOEIA> >> ERROR: %s", why);
  CUSTOMID_TRACE("\t", operation, "%s \n", why);
  return false;
}

// Appends a number in lower-case hexadecimal digits, whole bytes.
void append_bytes(std::string& out, unsigned number)
{
  char digits[8];
  const char* const end = std::to_chars(digits, digits + sizeof digits, number, 16).ptr;
  if ((end - digits) % 2 != 0)
    out += '0';
  out.append(digits, static_cast<size_t>(end - digits));
}

// The operator's digits, upper case, filled up to whole bytes at the end.
bool user_string(const std::string& value, std::string& out)
{
  for (const char c : value) {
    if (hex_digit(c) < 0) {
      CUSTOMID_TRACE("\t", operation, "Non-hex character present in HEX string \n");
      return false;
    }
    out += "0123456789ABCDEF"[hex_digit(c)];
  }
  if (out.size() % 2 != 0) {
    CUSTOMID_TRACE("\t", operation, "Odd length of HEX string, pad 0 \n");
    out += '0';
  }
  return true;
}

using octets = std::array<unsigned, 4>;

// The numbers of a dotted address; what is not there is 0.
octets ipv4_octets(const std::string& value)
{
  octets address{};
  const char* at = value.data();
  const char* const end = at + value.size();
  for (unsigned& part : address) {
    const auto [rest, error] = std::from_chars(at, end, part);
    if (error != std::errc{} || rest == end || *rest != '.')
      break;
    at = rest + 1;
  }
  return address;
}

// Appends a part of an IPv4 address in `base`, filled up with zeros to `width` digits.
void append_octet(std::string& out, unsigned part, int base, size_t width)
{
  char digits[10];
  const auto length = static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, part, base).ptr - digits);
  out.append(width - std::min(width, length), '0');
  for (size_t i = 0; i < length; ++i)
    out += "0123456789ABCDEF"[hex_digit(digits[i])];
}

void replace_separators(const std::string& value, char separator, const std::string& by, std::string& out)
{
  for (const char c : value) {
    if (c == separator)
      out += by;
    else
      out += c;
  }
}

// The address's eight groups joined by `by`.
bool ipv6_joined(const std::string& value, const std::string& by, std::string& out)
{
  std::vector<std::string> parts;
  if (ipv6AddrStrToVector(value, parts) != 0) {
    pppoeia_log(log_debug, "<PPPOEIA> >> ERROR: ipv6AddrStrToVector failed for: %s\n", value.c_str());
    return false;
  }
  if (parts.size() != 8) {
    pppoeia_log(log_debug, "<PPPOEIA> >> ERROR: invalid ipv6Parts.size(): %ld\n", static_cast<long>(parts.size()));
    return false;
  }
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0)
      out += by;
    out += parts[i];
  }
  return true;
}

// Zero padding of an IP address without a width fills every part of it.
bool ip_padded(const request& r, std::string& out)
{
  if (r.value.empty())
    return true;
  if (r.shape == macro_shape::ipv6)
    return ipv6_joined(r.value, r.has(macroStringDelimChar) ? r.delimiter : ":", out);
  const octets address = ipv4_octets(r.value);
  for (size_t i = 0; i < address.size(); ++i) {
    if (i > 0)
      out += r.has(macroStringDelimChar) ? r.delimiter : ".";
    append_octet(out, address[i], 10, 3);
  }
  return true;
}

unsigned decimal_value(const std::string& value)
{
  uint64_t number = 0;
  for (size_t i = 0; i < value.size() && value[i] >= '0' && value[i] <= '9'; ++i)
    number = std::min<uint64_t>(number * 10 + static_cast<uint64_t>(value[i] - '0'), UINT32_MAX);
  return static_cast<unsigned>(number);
}

bool hexadecimal(const request& r, std::string& out)
{
  switch (r.shape) {
  case macro_shape::mac:
    replace_separators(r.value, ':', "", out);
    return true;
  case macro_shape::ipv4:
    if (!r.value.empty())
      for (const unsigned part : ipv4_octets(r.value))
        append_octet(out, part, 16, 2);
    return true;
  case macro_shape::ipv6:
    return r.value.empty() || ipv6_joined(r.value, "", out);
  case macro_shape::text:
  case macro_shape::number:
  case macro_shape::user:
    break;
  }
  append_bytes(out, decimal_value(r.value));
  return true;
}

bool delimited(const request& r, std::string& out)
{
  switch (r.shape) {
  case macro_shape::mac:
    replace_separators(r.value, ':', r.delimiter, out);
    return true;
  case macro_shape::ipv4:
    replace_separators(r.value, '.', r.delimiter, out);
    return true;
  case macro_shape::ipv6:
    return ipv6_joined(r.value, r.delimiter, out);
  case macro_shape::text:
  case macro_shape::number:
  case macro_shape::user:
    break;
  }
  return refuse("macro not supported for delimiter");
}

// Cuts or pads to the number of characters, or of bytes in hexadecimal output.
bool fit(const request& r, std::string& out)
{
  if (r.address() && (r.has(macroStringPadZeroes) || r.has(macroStringPadSpaces)))
    return refuse("MAC/IP is not allowed for padding with specified number of characters");
  if (r.num_chars > macroNumOfCharsMax) {
    CUSTOMID_TRACE("\t", operation, "numChars=%d > macroNumOfCharsMax=%d \n", static_cast<int>(r.num_chars),
                   static_cast<int>(macroNumOfCharsMax));
    return false;
  }
  const size_t unit = r.has(macroStringPrintHex) ? 2 : 1;
  const size_t length = out.size() / unit;
  if (length > r.num_chars) {
    out.resize(unit * r.num_chars);
    return true;
  }
  // A space is no hexadecimal digit: there both paddings are zero bytes.
  const bool zeros = r.has(macroStringPadZeroes) || (r.has(macroStringPadSpaces) && unit == 2);
  if (zeros || r.has(macroStringPadSpaces))
    out.insert(0, unit * (r.num_chars - length), zeros ? '0' : ' ');
  return true;
}

bool render(const request& r, std::string& out)
{
  if (r.has(macroStringPrintHex))
    return hexadecimal(r, out);
  if (r.has(macroStringDelimChar))
    return delimited(r, out);
  CUSTOMID_TRACE("\t", operation, "No HEX or delimiter option \n");
  out = r.value;
  return true;
}

// One group between colons, filled up to four digits; false when it is no group.
bool ipv6_group(const std::string& group, std::vector<std::string>& parts)
{
  const bool digits = std::all_of(group.begin(), group.end(), [](char c) { return hex_digit(c) >= 0; });
  if (group.empty() || group.size() > 4 || !digits)
    return false;
  parts.push_back(std::string(4 - group.size(), '0') + group);
  return true;
}

// Groups separated by single colons; none for an empty text.
bool ipv6_groups(const std::string& text, std::vector<std::string>& parts)
{
  if (text.empty())
    return true;
  size_t begin = 0;
  while (true) {
    const size_t colon = std::min(text.find(':', begin), text.size());
    if (!ipv6_group(text.substr(begin, colon - begin), parts))
      return false;
    if (colon == text.size())
      return true;
    begin = colon + 1;
  }
}

}  // namespace

int ipv6AddrStrToVector(const std::string& ipv6, std::vector<std::string>& parts)
{
  parts.clear();
  const size_t gap = ipv6.find("::");
  if (gap == std::string::npos)
    return ipv6_groups(ipv6, parts) ? 0 : 1;
  std::vector<std::string> behind;
  if (!ipv6_groups(ipv6.substr(0, gap), parts) || !ipv6_groups(ipv6.substr(gap + 2), behind) ||
      parts.size() + behind.size() >= 8)
    return 1;
  parts.resize(8 - behind.size(), "0000");
  parts.insert(parts.end(), behind.begin(), behind.end());
  return 0;
}

bool processMacroString(const std::string& str, customIdFormat macroType, char flags, const std::string& delimiter,
                        unsigned numChars, std::string& processedStr)
{
  processedStr.clear();
  if (!macroAreFlagsValid(macroType, flags, delimiter, numChars))
    return refuse("invalid flags");
  const macro_row* row = macro_row_find(macroType);
  const request r{str, macroType, row ? row->shape : macro_shape::text, flags, delimiter, numChars};
  bool done;
  if (r.shape == macro_shape::user)
    done = user_string(str, processedStr);
  else if ((r.shape == macro_shape::ipv4 || r.shape == macro_shape::ipv6) && r.has(macroStringPadZeroes) &&
           !r.has(macroStringNumOfChars) && !r.has(macroStringPrintHex))
    done = ip_padded(r, processedStr);
  else
    done = render(r, processedStr) && (!r.has(macroStringNumOfChars) || fit(r, processedStr));
  if (done)
    CUSTOMID_TRACE("\t", operation, "processedStr='%s'\n", processedStr.c_str());
  return done;
}
