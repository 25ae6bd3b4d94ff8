// The members of a bridge of the kernel's, as netlink tells of them: who joined, left, was renamed, or had its programs
// taken off by somebody. Each has its programs while it is one, and they are put back.
//
// Uplinks come first where several are new at once: when they are guarded, nothing that passes a subscriber's port
// without a program gets out. Port numbers: see port_numbers.h. What cannot be done is told on standard error, once a
// member.
#ifndef PLATFORM_KVBRIDGED_KERNEL_KERNEL_MEMBERS_H
#define PLATFORM_KVBRIDGED_KERNEL_KERNEL_MEMBERS_H

#include "platform/kvbridged/kernel/links.h"
#include "platform/kvbridged/kernel/tc_programs.h"

#include <functional>
#include <map>
#include <string>

namespace kvbridged {

class kernel_members {
public:
  struct member {
    std::string name;
    member_role role;
    bool attached = false;
    bool told_of_number = false;
    bool told_of_error = false;
  };

  // Takes on all that there are; interfaces that left while no kvbridged was there are cleaned. `others` is told when
  // the filters of an interface changed that is no member. Throws fatal.
  kernel_members(const bridge_settings& settings, tc_programs& programs, loop& events, std::function<void(int)> others);

  // By interface index; null if it is none.
  const member* find(int index) const;
  // The interface index behind a port number, 0 for none.
  int index_of(uint16_t number) const;

  // Looks after the programs of the next so many, whatever netlink told.
  void check(size_t most);
  // Leaves each interface as it was found.
  void detach_all();
  kvb_counts counts() const;

private:
  void link_seen(const link_info& link);
  void link_gone(int index);
  void look_at_all();
  void leftovers_take_off() const;
  void bridge_lost();
  void member_leave(int index);
  void numbers_assign();
  void member_put(int index, member& one);
  void number_tell(member& one) const;
  bool is_still_member(int index) const;
  void member_check(int index);
  void filters_changed(int index);
  void changes_lost();

  const bridge_settings& settings_;
  tc_programs& programs_;
  std::function<void(int)> others_;
  int bridge_index_ = 0;  // 0 while there is none; it may have been renamed since it was found
  std::map<int, member> members_;
  std::map<uint16_t, int> by_number_;
  int checked_ = 0;  // the member that was looked at last
  link_watch links_;
};

// Says something of a bridge on standard error.
void tell(const std::string& bridge, const std::string& text);

}  // namespace kvbridged

#endif
