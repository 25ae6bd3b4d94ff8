// Sets of interfaces named by slot and port: "2/1-2/8,3/4". A range stays within one slot; "2/1-8" is the same.
#ifndef RTE_BLL_UTIL_RANGE_INTERFACE_NUMBER_H
#define RTE_BLL_UTIL_RANGE_INTERFACE_NUMBER_H

#include "rte/BLL/util/range_number.h"

#include <map>

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
