// From a text identifier with hexadecimal stretches to the bytes that go into the tag.
#ifndef PPPOEIA_CUSTOMID_BINARY_H
#define PPPOEIA_CUSTOMID_BINARY_H

#include <map>
#include <string>
#include <vector>

// Appends to `out` the characters of `idStr` as they are, and of each segment (position to length in characters)
// every pair of digits as one byte, 0 for a pair that is none. False when a pair runs past the end; what came before
// it has been appended.
bool idStringToBinaryVector(const std::string& idStr, const std::map<unsigned long, unsigned>& hexSegments,
                            std::vector<unsigned char>& out);

#endif
