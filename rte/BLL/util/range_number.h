// Sets of numbers as people write them: "1-4,7". Parsing refuses with a result, never throws, and leaves the set as it
// was. A set is kept as ranges, so that "1-4294967295" costs no more than "1". One thread at a time for one object.
#ifndef RTE_BLL_UTIL_RANGE_NUMBER_H
#define RTE_BLL_UTIL_RANGE_NUMBER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Unsigned 64-bit numbers; the base of the ranges below.
class CRangeNumber {
public:
  struct range_t {
    uint64_t first;
    uint64_t last;  // not below first
    friend bool operator==(const range_t&, const range_t&) = default;
  };

  // Replaces the set by what the text says: numbers and ranges "first-last" in decimal, separated by commas, blanks
  // around them allowed. False for anything else, for an empty text, for a range that runs backwards and for numbers
  // outside `least` to `most`.
  bool parse(std::string_view text, uint64_t least = 0, uint64_t most = UINT64_MAX);

  void add(range_t range);
  void clear() { ranges_.clear(); }

  bool contains(uint64_t number) const;
  bool empty() const { return ranges_.empty(); }
  // Numbers in the set; UINT64_MAX when there are as many or more.
  uint64_t count() const;
  // Ascending, disjoint, neighbours joined.
  const std::vector<range_t>& ranges() const { return ranges_; }
  // The shortest text that parse() reads as this set; empty for the empty set.
  std::string toString() const;

private:
  std::vector<range_t> ranges_;
};

#endif
