#include "pppoeia/customid/binary.h"

namespace {

// 0 to 15, or -1.
int digit(char c)
{
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

unsigned char pair_value(char high, char low)
{
  if (digit(high) < 0 || digit(low) < 0)
    return 0;
  return static_cast<unsigned char>(digit(high) * 16 + digit(low));
}

}  // namespace

bool idStringToBinaryVector(const std::string& idStr, const std::map<unsigned long, unsigned>& hexSegments,
                            std::vector<unsigned char>& out)
{
  for (size_t at = 0; at < idStr.size();) {
    const auto segment = hexSegments.find(at);
    // A segment of no length converts nothing: the character there is plain text.
    if (segment == hexSegments.end() || segment->second == 0) {
      out.push_back(static_cast<unsigned char>(idStr[at++]));
      continue;
    }
    for (const size_t end = at + segment->second; at < end; at += 2) {
      if (at + 1 >= idStr.size())
        return false;
      out.push_back(pair_value(idStr[at], idStr[at + 1]));
    }
  }
  return true;
}
