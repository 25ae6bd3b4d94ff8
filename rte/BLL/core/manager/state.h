// Where the manager is in its life, and which procedure may run there.
//
//   notConfigured --applyConfiguration--> configured --start--> running --stop--> stopped --start--> running ...
//
// applyDefaultSettings runs while it is running, and leaves it so. A procedure that fails leaves the state as it was.
#pragma once

#include <atomic>
#include <cstdint>

enum class procedure_t { applyConfiguration, start, applyDefaultSettings, stop };

// Written by the procedure that holds the framework lock exclusive, read by any thread at any time: one word, so it
// needs no mutex.
class lifeState_t {
public:
  enum value_t : int32_t { notConfigured = 0, configured = 1, running = 2, stopped = 3 };

  // Whether the procedure may run now; if it may not, the log says why. A procedure asks before it waits for the
  // framework lock, and again when it has it: another thread's procedure may have changed the state meanwhile.
  bool allows(procedure_t procedure) const;
  // The procedure has succeeded.
  void completed(procedure_t procedure);
  // Entities may register until a configuration has been applied.
  bool takesEntities() const { return state_ == notConfigured; }

private:
  std::atomic<value_t> state_ = notConfigured;
};
