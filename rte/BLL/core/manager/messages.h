// Operators' messages that the manager understands itself: one row each, from which it answers them and the operator's
// tool explains them. Not installed.
#pragma once

#include <array>
#include <string_view>

struct bllCommand_t {
  enum class id_t {
    lockDebug,
    threads,
    reportBacktraces,
    lockHolders,
    scripterDebugTime,
    deadlockTest,
    lockingPeriod,
    featureSupport,
    measureTime,
    debugLevel,
    laInit,
    laAddPorts,
    laPortsUp,
    laShow,
    laDebugMask,
    setFeature,
  };
  id_t id;
  std::string_view message;
  bool prefix;  // every message that begins so is meant
  std::string_view values;
  std::string_view what;
};

// Tried in this order.
inline constexpr std::array<bllCommand_t, 16> bllCommands = {{
    {bllCommand_t::id_t::lockDebug, "lockDebug", false, "on|off", "log every take and release of the framework lock"},
    {bllCommand_t::id_t::threads, "threads", false, "show", "list the threads that have registered"},
    {bllCommand_t::id_t::reportBacktraces, "reportBacktraces", false, "on|off",
     "log the stacks of threads that hold the framework lock too long"},
    {bllCommand_t::id_t::lockHolders, "lockHolders", false, "show", "list who holds or awaits the framework lock"},
    {bllCommand_t::id_t::scripterDebugTime, "scripter_debug_time", false, "",
     "switch the durations of default settings on or off (standard output)"},
    {bllCommand_t::id_t::deadlockTest, "deadlocktest", false, "start|stop",
     "delay exclusive takes at random, so that races between plug-ins show"},
    {bllCommand_t::id_t::lockingPeriod, "lockingPeriod", false, "SECONDS",
     "how long a take of the framework lock may wait"},
    {bllCommand_t::id_t::featureSupport, "featuresupport", false, "", "list the features of the board"},
    {bllCommand_t::id_t::measureTime, "measureTime", true, "on|off|show|reset", "measure how long things take"},
    {bllCommand_t::id_t::debugLevel, "debugLevel", true, "off|critical|warning|notice|debug",
     "force every message of the framework log to one level"},
    {bllCommand_t::id_t::laInit, "ippc_la_init", false, "", "link aggregation test 1 of the bridge plug-in"},
    {bllCommand_t::id_t::laAddPorts, "ippc_la_add_ports", false, "", "link aggregation test 2 of the bridge plug-in"},
    {bllCommand_t::id_t::laPortsUp, "ippc_la_ports_up", false, "", "link aggregation test 3 of the bridge plug-in"},
    {bllCommand_t::id_t::laShow, "ippc_la_show", false, "", "link aggregation test 4 of the bridge plug-in"},
    {bllCommand_t::id_t::laDebugMask, "laDebugMask", false, "config|pdu_config",
     "what the bridge plug-in logs of link aggregation"},
    {bllCommand_t::id_t::setFeature, "setfeature", false, "NAME=0|1",
     "set a feature of the board until the next start"},
}};

// Null for a message that is not the manager's own.
constexpr const bllCommand_t* findBllCommand(std::string_view message)
{
  for (const bllCommand_t& command : bllCommands)
    if (command.prefix ? message.starts_with(command.message) : message == command.message)
      return &command;
  return nullptr;
}
