// Sets of 32-bit port or VLAN numbers within bounds that are fixed when the set is made.
#ifndef RTE_BLL_UTIL_RANGE_INTEGER_NUMBER_H
#define RTE_BLL_UTIL_RANGE_INTEGER_NUMBER_H

#include "rte/BLL/util/range_number.h"

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

#endif
