// A bridge that is the kernel's own. The kernel forwards, learns, filters VLANs and isolates ports as without
// kvbridged; only discovery frames make a detour:
//
//   member --program--> helper device --> this --record--> agent --record--> this --> helper device --program--> member
//
// at whose ingress they go on into the bridge as if they had come in just now. An error answer of the agent's leaves by
// the member that the request came in by. Who is a member: see kernel_members.h.
//
// A heartbeat keeps the road open; without an agent, and without this process, it is down, and the programs do what the
// mode says.
//
// When the object goes while an agent's filter is in force, in closed mode, the programs stay, so that nothing passes
// until the next kvbridged is there. Else every interface is left as it was found.
#ifndef PLATFORM_KVBRIDGED_KERNEL_KERNEL_BRIDGE_H
#define PLATFORM_KVBRIDGED_KERNEL_KERNEL_BRIDGE_H

#include "platform/kvbridged/agent_bridge.h"
#include "platform/kvbridged/kernel/helper_device.h"
#include "platform/kvbridged/kernel/kernel_members.h"
#include "platform/kvbridged/kernel/tc_programs.h"

#include <memory>

namespace kvbridged {

class kernel_bridge : public agent_bridge {
public:
  // Throws fatal.
  kernel_bridge(const bridge_settings& settings, loop& events);
  ~kernel_bridge() override;

  void attach(int device) override;
  void detach() override;
  void stop() override;
  void from_agent(frame_view record) override;
  // "br0: road open, to agent 12, from agent 12, captured 12, ...".
  std::string statistics() const override;

private:
  enum class filter_state { none, attached, stopped };

  void helper_watch();
  void helper_forget();
  void helper_lost();
  void helper_check();
  void state_set(filter_state state, int device);
  void tick();
  void beat();
  void beat_if_due();
  void read_captured();
  void take(int index, const port_frame& frame);
  void answer(int index, const kernel_members::member& from, frame_view frame, size_t ethertype);
  bool give_back(frame_view frame, uint32_t mark);

  const kernel_settings& kernel() const { return *settings_.kernel; }
  std::string helper_name() const { return helper_name_of(settings_.name); }

  loop& events_;
  std::unique_ptr<helper_device> helper_;
  std::unique_ptr<tc_programs> programs_;
  std::unique_ptr<kernel_members> members_;
  descriptor timer_;
  uint64_t last_beat_ = 0;
  filter_state filter_ = filter_state::none;
  int device_ = -1;
  struct {
    unsigned long to_agent = 0;
    unsigned long from_agent = 0;
    unsigned long dropped = 0;
    unsigned long answered = 0;
    unsigned long too_large = 0;
  } counts_;
};

}  // namespace kvbridged

#endif
