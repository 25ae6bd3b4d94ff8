// Sets of numbers as people write them: "1-4,7". Parsing refuses with a result, never throws, and leaves the set as it
// was. A set is kept as ranges, so that "1-4294967295" costs no more than "1". One thread at a time for one object.
#ifndef RTE_BLL_UTIL_RANGE_NUMBER_H
#define RTE_BLL_UTIL_RANGE_NUMBER_H

#include <cstdint>
#include <map>
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

// Sets of 32-bit port or VLAN numbers within bounds that are fixed when the set is made.
class CRangeIntegerNumber {
public:
  CRangeIntegerNumber(uint32_t least, uint32_t most) : least_(least), most_(most) {}

  // As CRangeNumber::parse(), within the bounds.
  bool parse(std::string_view text) { return numbers_.parse(text, least_, most_); }
  bool contains(uint32_t number) const { return numbers_.contains(number); }
  const CRangeNumber& numbers() const { return numbers_; }
  std::string toString() const { return numbers_.toString(); }

  // All numbers, ascending; false, and `out` as it was, when there are more than `at_most`.
  bool expand(std::vector<uint32_t>& out, size_t at_most) const;

private:
  uint32_t least_;
  uint32_t most_;
  CRangeNumber numbers_;
};

// Sets of interfaces named by slot and port: "2/1-2/8,3/4". A range stays within one slot; "2/1-8" is the same.
class CRangeInterfaceNumber {
public:
  // Replaces the set. False, and the set as it was, for anything that is no such list, for a range over two slots or
  // backwards, and for numbers above the largest.
  bool parse(std::string_view text);

  bool contains(uint32_t slot, uint32_t port) const;
  bool empty() const { return slots_.empty(); }
  // Ports of each slot, ascending.
  const std::map<uint32_t, CRangeNumber>& slots() const { return slots_; }
  std::string toString() const;

  static constexpr uint32_t slotMax = 255;
  static constexpr uint32_t portMax = 65535;

private:
  std::map<uint32_t, CRangeNumber> slots_;
};

#endif
