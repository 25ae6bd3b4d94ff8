// What the board's configuration file says of one business-logic entity.
#pragma once

#include <cstdint>
#include <string>

struct bleInfo_t {
  std::string name;       // attribute "Name"
  int32_t loadMode = -1;  // attribute "Load": 1 dynamic, 0 static, -1 anything else
  bool start = false;     // attribute "Start" is exactly "true"
};
