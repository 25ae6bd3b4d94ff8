// The board types that the framework knows. Not installed.
#pragma once

#include <array>
#include <string>
#include <string_view>

struct boardType_t {
  std::string_view code;      // what the board's identity begins with
  std::string_view fullName;  // what configuration files call it; empty: it has no name but its identity
};

inline constexpr std::array<boardType_t, 10> boardTypes = {{
    {"BT1", ""},
    {"BT2", "BOARD_BT2"},
    {"BT3", "BOARD_BT3"},
    {"BT4", "BOARD_BT4"},
    {"BT5", "BOARD_BT5"},
    {"BT6", "BOARD_BT6"},
    {"BT7", "BOARD_BT7"},
    {"BT8", "BOARD_BT8"},
    {"BT9", "BOARD_BT9"},
    {"BTA", "BOARD_BTA"},
}};

// The first three characters of a board's description: its type code.
inline std::string_view boardTypeOf(std::string_view description)
{
  return description.substr(0, 3);
}

// Null for a type that is not in the table.
inline const boardType_t* findBoardType(std::string_view description)
{
  for (const boardType_t& type : boardTypes)
    if (type.code == boardTypeOf(description))
      return &type;
  return nullptr;
}

// The numbered capabilities of the node, as the node information library counts them.
namespace nodeCapability {
constexpr int httpServer = 5;
constexpr int fullBoardNames = 12;
constexpr int downstreamFec = 13;
constexpr int onuBasedStates = 15;
}  // namespace nodeCapability
