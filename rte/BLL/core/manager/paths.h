// What the environment tells the framework: where its files are, how patient it is. Not installed.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>

// The value of the environment variable, or the built-in path where it is not set or empty.
inline std::string pathFrom(const char* variable, const char* builtIn)
{
  const char* const value = std::getenv(variable);
  return value && *value ? value : builtIn;
}

inline std::string boardIdentityPath()
{
  return pathFrom("BLL_BOARD_ID", "/tmp/get_board_id");
}
inline std::string configurationPath()
{
  return pathFrom("BLL_CONFIG", "/opt/pv3100/neroot/active/bridge_SW/bin/bll_config.xml");
}

// Relative to the working directory of the host, unless set.
inline std::string libraryPath(const std::string& name)
{
  std::string folder = pathFrom("BLL_LIB_DIR", "../lib/");
  if (folder.back() != '/')
    folder += '/';
  return folder + name;
}

// How long the constructors of one library may take: a whole number of seconds from 1 on.
inline std::chrono::seconds libraryTimeLimit()
{
  constexpr long usual = 30, longest = 24 * 3600;
  const long asked = std::strtol(pathFrom("BLL_LIB_SECONDS", "").c_str(), nullptr, 10);
  return std::chrono::seconds(asked < 1 ? usual : std::min(asked, longest));
}
