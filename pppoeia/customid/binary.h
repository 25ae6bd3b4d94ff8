// Hexadecimal digits of either case, and from a text identifier with stretches of them to the bytes that go into the
// tag.
#ifndef PPPOEIA_CUSTOMID_BINARY_H
#define PPPOEIA_CUSTOMID_BINARY_H

#include <map>
#include <span>
#include <string>
#include <vector>

// 0 to 15, or -1 for a character that is no digit.
constexpr int hex_digit(char c)
{
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

// A stretch of hexadecimal digits in a text identifier.
struct hex_segment {
  unsigned long begin;
  unsigned length;  // in characters
};

// Appends to `out` the characters of `idStr` as they are, and of each segment every pair of digits as one byte, 0 for
// a pair that is none. A segment of no length converts nothing; one of odd length takes the next character too.
// Segments ascend by `begin`, of which none repeats. False when a pair runs past the end; what came before it has
// been appended.
bool id_string_to_bytes(const std::string& idStr, std::span<const hex_segment> segments,
                        std::vector<unsigned char>& out);

// The same for segments in a map of begin to length.
bool idStringToBinaryVector(const std::string& idStr, const std::map<unsigned long, unsigned>& hexSegments,
                            std::vector<unsigned char>& out);

#endif
