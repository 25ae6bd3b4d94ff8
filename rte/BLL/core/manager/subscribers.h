// The manager's subscribers as they are called: each in its turn, on the calling thread.
//
// The lists are public members of the manager, to which libraries append while they are loaded. They have no mutex, and
// a list is copied before its subscribers are called, so that one may append: who is new is called from the next time
// on. What a subscriber throws reaches the caller, and so does boost::bad_function_call for an empty one; those behind
// it are not called then.
#pragma once

#include <sstream>
#include <string>

class BLLManager;

class subscribers_t {
public:
  // Calls those that are in the manager's lists at the time.
  explicit subscribers_t(const BLLManager& lists) : lists_(lists) {}

  // An operator's message, to those whom it is for by its prefix; what they answer is appended to `reply`.
  void message(const std::string& message, const std::string& value, std::ostringstream& reply,
               const std::string& tty) const;
  // Asks whether the system may be reloaded. False at the first that refuses; those behind it are not asked.
  bool agreeToReload() const;
  void configurationApplied(int code) const;
  void preConfigurationApplying() const;

private:
  const BLLManager& lists_;
};
