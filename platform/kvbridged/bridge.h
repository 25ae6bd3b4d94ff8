// One bridge: its ports, what it learned, its pseudo device, and the road of each frame.
//
//   subscriber port --discovery--> pseudo device --> agent --> pseudo device --> network port
//   network port    --discovery--> pseudo device --> agent --> pseudo device --> the subscriber port of the address
//
// Subscribers never reach each other. From the network side, a unicast to an address that no port was seen to have is
// dropped and counted. While no filter is attached, and for all other EtherTypes, frames go the same ways directly.
#ifndef PLATFORM_KVBRIDGED_BRIDGE_H
#define PLATFORM_KVBRIDGED_BRIDGE_H

#include "platform/kvbridged/descriptor.h"
#include "platform/kvbridged/loop.h"
#include "platform/kvbridged/record.h"
#include "platform/kvbridged/settings.h"

#include <deque>
#include <map>
#include <string>

namespace kvbridged {

class bridge {
public:
  // Opens the ports' sockets. Throws fatal.
  bridge(const bridge_settings& settings, loop& events);

  const bridge_settings& settings() const { return settings_; }

  // Diverts discovery frames to the pseudo device whose descriptor this is, until detach() or stop().
  void attach(int device);
  void detach();
  // Drops and counts discovery frames, until attach() or detach().
  void stop();

  // Takes what the agent gave back.
  void from_agent(std::span<const unsigned char> record);

  // "br0: to agent 12, from agent 12, forwarded 3, dropped 0".
  std::string statistics() const;

private:
  struct port {
    port_settings settings;
    descriptor discovery;
    descriptor others;
  };

  void read_discovery(port& from);
  void read_others(port& from);
  void learn(std::span<const unsigned char> frame, const port& at);
  port* way_of(std::span<const unsigned char> frame, const port& from);
  port* port_of(const std::string& interface);
  void send(const port& to, std::span<const unsigned char> frame);
  void forward(std::span<const unsigned char> frame, const port& from);

  bridge_settings settings_;
  std::deque<port> ports_;
  std::map<mac_address, port*> learned_;
  int device_ = -1;
  bool stopped_ = false;
  unsigned long to_agent_ = 0;
  unsigned long from_agent_ = 0;
  unsigned long forwarded_ = 0;
  unsigned long dropped_ = 0;
};

}  // namespace kvbridged

#endif
