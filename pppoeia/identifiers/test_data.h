// Values on which operators try formats. One record for the process; the management thread's alone.
#ifndef PPPOEIA_IDENTIFIERS_TEST_DATA_H
#define PPPOEIA_IDENTIFIERS_TEST_DATA_H

#include <cstdint>
#include <string>

struct customFormatTestData_t {
  uint16_t vlan = 0;
  uint16_t cvid = 0;
  uint32_t intfId = 0;  // port id
  uint32_t onu = 0;
  uint32_t vgem = 0;
  uint32_t tcontType = 0;  // kept and shown; no macro reads it
  uint8_t clntMac[6] = {};
  std::string customCidStr;
  std::string customRidStr;
};

extern customFormatTestData_t& customFormatTestData;

#endif
