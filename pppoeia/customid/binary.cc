#include "pppoeia/customid/binary.h"

namespace {

unsigned char pair_value(char high, char low)
{
  if (hex_digit(high) < 0 || hex_digit(low) < 0)
    return 0;
  return static_cast<unsigned char>(hex_digit(high) * 16 + hex_digit(low));
}

}  // namespace

bool id_string_to_bytes(const std::string& idStr, std::span<const hex_segment> segments,
                        std::vector<unsigned char>& out)
{
  out.reserve(out.size() + idStr.size());
  auto segment = segments.begin();
  for (size_t at = 0; at < idStr.size();) {
    // A segment may begin inside the one before it, whose odd length took one character more: it is no segment then.
    while (segment != segments.end() && segment->begin < at)
      ++segment;
    if (segment == segments.end() || segment->begin != at || segment->length == 0) {
      out.push_back(static_cast<unsigned char>(idStr[at++]));
      continue;
    }
    for (const size_t end = at + segment->length; at < end; at += 2) {
      if (at + 1 >= idStr.size())
        return false;
      out.push_back(pair_value(idStr[at], idStr[at + 1]));
    }
  }
  return true;
}

bool idStringToBinaryVector(const std::string& idStr, const std::map<unsigned long, unsigned>& hexSegments,
                            std::vector<unsigned char>& out)
{
  std::vector<hex_segment> segments;
  for (const auto& [begin, length] : hexSegments)
    segments.push_back({begin, length});
  return id_string_to_bytes(idStr, segments, out);
}
