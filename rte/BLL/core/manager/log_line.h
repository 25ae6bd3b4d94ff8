// How the manager calls entities: what they throw is logged.
#pragma once

#include "rte/BLL/core/log/log_line.h"
#include <cxxabi.h>
#include <exception>
#include <string>
#include <utility>

inline void reportThrow(const std::string& entity, const char* text)
{
  logAt(LogImpl::critical) << "BLE " << entity << " has thrown: " << text << "\n";
}

// Runs one operation of a plug-in entity. A plug-in is other people's code: what it throws is logged and counts as the
// answer false. The unwinding of a cancelled thread goes on.
template <typename Operation>
bool answeredTrue(const std::string& entity, Operation&& operation)
{
  try {
    return std::forward<Operation>(operation)();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& error) {
    reportThrow(entity, error.what());
  } catch (...) {
    reportThrow(entity, "something that is no std::exception");
  }
  return false;
}

// The same for an operation without a result.
template <typename Operation>
void callEntity(const std::string& entity, Operation&& operation)
{
  answeredTrue(entity, [&] {
    std::forward<Operation>(operation)();
    return true;
  });
}
