// From a text identifier with hexadecimal stretches to the bytes that go into the tag.
#ifndef PPPOEIA_CUSTOMID_BINARY_H
#define PPPOEIA_CUSTOMID_BINARY_H

#include <map>
#include <span>
#include <string>
#include <vector>

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
