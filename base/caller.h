// Who asked for what a thread is doing.
//
// Requests reach the process over sockets, and some of them name things of the system, a terminal for their report
// above all. Such a thing must be opened with the rights of whoever asked, not with those of the service. So the
// thread that serves a request says for whom it does: with a caller_scope around the request's execution. Code further
// down asks current_asker() at the moment it needs to know. A thread without a scope works for the process itself.
#ifndef BASE_CALLER_H
#define BASE_CALLER_H

#include <sys/types.h>
#include <vector>

// The identity of another process's user as the kernel (or the user database) told it.
struct caller {
  uid_t user;
  gid_t group;
  std::vector<gid_t> groups;  // supplementary ones
};

enum class asker {
  process,  // nobody from outside: the process's own rights hold
  known,    // current_caller()
  unknown,  // somebody from outside of whom nothing is known: nothing may be done in their name
};

// Declares for whom this thread works until the scope ends; scopes nest. Belongs to one thread.
class caller_scope {
public:
  // `who` must outlive the scope; null is a caller who could not be told.
  explicit caller_scope(const caller* who);
  ~caller_scope();
  caller_scope(const caller_scope&) = delete;
  caller_scope& operator=(const caller_scope&) = delete;

private:
  asker former_asker_;
  const caller* former_caller_;
};

// For whom the calling thread works now.
asker current_asker();

// Who that is; null unless current_asker() is asker::known.
const caller* current_caller();

#endif
