// The manager of the business-logic entities: one object a process, reached as singleton<BLLManager>::instance().
//
// A board's software is a set of plug-in libraries. A configuration file says which entities run on which board and
// which libraries hold them; the manager loads the libraries, whose entities register themselves, orders the entities
// by the dependences that they declare, and drives them together:
//
//   constructed          the board and its configuration are read
//   loadDynamicLibs()    libraries are opened, their entities register
//   init()               operators' messages are served (ONC RPC)
//   applyConfiguration() every entity gets its configuration      state 0 -> 1
//   start()              dependences first; a failure rolls back  state 1 or 3 -> 2
//   applyDefaultSettings(), saveConfiguration()                   while it runs
//   stop()               in reverse order                         state 2 -> 3
//
// Procedures run under the framework lock (BLLManager::lock), tell of themselves in the framework log and answer false,
// or return, where they cannot go on; none throws. What an entity throws is logged and counts as false. Everything else
// may be called by any thread.
//
// The paths can be set for tests and other hosts by environment variables, read when they are needed: BLL_BOARD_ID (the
// file with the board's identity), BLL_CONFIG (the configuration file), BLL_LIB_DIR (the folder of the libraries, with
// its final slash or without), BLL_LIB_SECONDS (how long the constructors of a library may take, 30). With
// BLL_LOG_STDERR set, what is logged appears on standard error too.
#pragma once

#include "rte/BLL/core/bl_entity.h"
#include "rte/BLL/core/ble_info.h"
#include "rte/BLL/core/lock_guards.h"
#include "rte/BLL/core/rabbit_mq_inter_soc.h"
#include "rte/BLL/core/rpc_proxy.h"
#include "rte/BLL/core/singleton.h"
#include <atomic>
#include <boost/function.hpp>
#include <cstdint>
#include <list>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

// Its base: the framework lock, `lock`, the scope classes `exclusiveLock_t`, `sharedLock_t` and the like.
class BLLManager : public frameworkLocks_t {
public:
  // ---- Registration and configuration ----

  BLLManager();
  ~BLLManager();
  BLLManager(const BLLManager&) = delete;
  BLLManager& operator=(const BLLManager&) = delete;

  // Begins to serve operators' messages; a proxy that does not start is logged.
  void init();
  // Opens every library that the configuration names; one that cannot be opened is logged and left out. One whose
  // constructors throw, call exit() or do not return in time is logged and ends the process at once with status 3: the
  // dynamic loader cannot be used any more. Always 0.
  int loadDynamicLibs();
  // Enters the entity, replacing one of the same name, if the board's configuration starts it, and answers true; also
  // for one that the configuration leaves out. False, and nothing done, once a configuration has been applied. The
  // entity must live as long as the process.
  bool registerEntity(BLEntity& entity);
  // The first line of the board identity file, read once; empty, and logged, while it cannot be had.
  std::string getBoardDescription();
  // Every entity that the configuration names, in name order, started or not.
  std::vector<std::string> getActiveBLEsList() const;
  // Whether the configuration starts the entity; false for one that it does not name.
  bool checkBllEntity(const std::string& name) const;
  // Takes back the entity's start flag. False if the configuration does not name it. Has no effect on an entity that
  // has registered already.
  bool disableBLLEntity(const std::string& name);
  // An entity that has been disabled stays so: does nothing and answers false.
  bool enableBLLEntity(const std::string& name);

  // ---- Procedures ----

  // Starts every entity and applies its default settings, dependences first. On a failure those started before it are
  // stopped in reverse order. A cycle in the dependences gives an empty order: nothing is started, and the answer true.
  bool start();
  // Applies every entity's default settings again; false at the first failure, without a roll-back.
  bool applyDefaultSettings();
  // Gives every entity an empty handle, so that each applies its built-in configuration; the file is only named in the
  // log. Once in the manager's life.
  void applyConfiguration(const std::string& file);
  // Writes every entity's configuration to `file`, in the order of starting.
  void saveConfiguration(const std::string& file);
  // Stops every entity in reverse order, whatever they answer, then saves to `file` if asked. Waits for the framework
  // lock as long as it takes.
  void stop(bool save, const std::string& file);
  // Fills the empty list `order` with the registered names, dependences first. False, and `order` as it was, if the
  // dependences form a cycle. Calls every entity's getDependences().
  bool resolveDependences(std::list<std::string>& order);

  // ---- Features of the board ----

  // A feature that nobody named is supported.
  bool isFeatureSupported(const std::string& name) const;
  // Sets or adds a feature until the process ends, and says so on `out`.
  void setBllFeature(const std::string& name, bool value, std::ostream& out);
  void dumpFeatureSupport(std::ostream& out) const;

  // ---- Messages and events ----

  using externalMessageSubscriber_t = boost::function<void(const std::string& message, const std::string& value,
                                                           std::ostringstream& reply, const std::string& tty)>;
  using prefixedMessageSubscriber_t =
      boost::function<void(const std::string& message, const std::string& value, const std::string& tty)>;

  // Libraries append to these while they are loaded, before init(); nobody removes. Called in order; a list is copied
  // before its subscribers are called, so that one may append.
  std::vector<externalMessageSubscriber_t> externalMessageSubscribers;  // all but those that begin with "dhcpra:"
  std::vector<prefixedMessageSubscriber_t> prefixedMessageSubscribers;  // those, without the prefix
  std::vector<boost::function<bool(bool)>> reloadRequestSubscribers;
  std::vector<boost::function<void(int)>> configurationAppliedSubscribers;
  std::vector<boost::function<void()>> preConfigurationApplyingSubscribers;

  // Gives a message to its subscribers and writes what they reply to the terminal device `tty`, or to standard output
  // if `tty` is empty. True if the reply could not be delivered (logged). What a subscriber throws reaches the caller,
  // and so does boost::bad_function_call for an empty subscriber.
  bool postExternalMessage(const std::string& message, const std::string& value, const std::string& tty);
  // The manager's own commands; a message that is none is ignored. std::invalid_argument or std::out_of_range for a
  // "lockingPeriod" that is no number.
  void onExternalMessage(const std::string& message, const std::string& value, std::ostringstream& out);
  // Asks every subscriber whether the system may be reloaded now; the first that refuses ends the walk.
  bool systemReloadRequest(const std::string& message);
  // Notify every subscriber under the exclusive framework lock. False, and nobody notified, if it cannot be had.
  bool postConfigurationApplied(int code);
  bool postPreConfigurationApplying();

  // The queues of the node's message broker; off until a library enables them, for the whole process. Any thread.
  RabbitMqInterSoc& interSocMq();

  // ---- Threads: thread_registry.h ----

  // Names the calling thread in the reports on locks and in the message "threads".
  void registerThread(const std::string& name);
  void unregisterThread();
  void showThreads(std::ostream& out) const;

private:
  struct parts_t;
  const std::unique_ptr<parts_t> parts_;
};
