// One bridge: its ports, what it learned, its pseudo device, and the road of each frame.
//
//   subscriber port --discovery--> pseudo device --> agent --> pseudo device --> network ports
//   network port    --discovery--> pseudo device --> agent --> pseudo device --> the subscriber port of the address
//
// From a subscriber, a frame for an address of a network port leaves by that port, and any other (to a group, to an
// unknown address) by all network ports. Subscribers never reach each other. From the network, a frame to a group goes
// to all subscribers and a unicast to the one whose it is; one to an address that no subscriber was seen to have is
// dropped, and network ports never reach each other. A discovery frame is no exception, but that the agent sees it
// between, and that one from the network to a group is dropped. While no filter is attached, and for all other
// EtherTypes, frames go these ways directly.
#ifndef PLATFORM_KVBRIDGED_BRIDGE_H
#define PLATFORM_KVBRIDGED_BRIDGE_H

#include "base/descriptor.h"
#include "platform/kvbridged/address_table.h"
#include "platform/kvbridged/agent_bridge.h"
#include "platform/kvbridged/loop.h"
#include "platform/kvbridged/port_socket.h"
#include "platform/kvbridged/settings.h"

#include <deque>
#include <string>

namespace kvbridged {

// Each frame counts once, by however many ports it leaves. What is said of `dropped` is in it.
struct bridge_counts {
  unsigned long to_agent = 0;
  unsigned long from_agent = 0;
  unsigned long forwarded = 0;  // left by one port at least
  unsigned long dropped = 0;
  unsigned long answered = 0;        // too large for the agent: the client was told
  unsigned long too_large = 0;       // dropped: too large for the agent, and nobody to tell
  unsigned long hidden = 0;          // dropped: tags behind which anything could be
  unsigned long not_theirs = 0;      // dropped: a subscriber's, from an address that is another port's
  unsigned long not_whole = 0;       // dropped: not had whole from the port, or from no address
  unsigned long device_refused = 0;  // times that a port's device did not take a frame
};

class bridge : public agent_bridge {
public:
  // Opens the ports' sockets. Throws fatal.
  bridge(const bridge_settings& settings, loop& events);

  void attach(int device) override;
  void detach() override;
  // Drops and counts discovery frames.
  void stop() override;
  void from_agent(frame_view record) override;
  // "br0: to agent 12, from agent 12, forwarded 3, dropped 0, ...".
  std::string statistics() const override;

private:
  struct port {
    size_t index;
    port_settings settings;
    descriptor discovery;
    descriptor others;
    bool told_of_size = false;     // that its device refused a frame for its size
    bool told_of_address = false;  // that a frame came from another port's address
  };
  using port_list = std::vector<port*>;

  void port_add(const port_settings& settings, loop& events);
  void read(port& from, const descriptor& socket);
  void take(port& from, const port_frame& frame);
  bool source_accept(port& from, frame_view frame);
  void to_agent(const port& from, frame_view frame, size_t ethertype);
  void answer(const port& from, frame_view frame, size_t ethertype);
  port* known_port(const mac_address& address);
  std::span<port* const> network_ways(const mac_address& destination);
  std::span<port* const> subscriber_ways(const mac_address& destination);
  port* port_of(const std::string& interface);
  void forward(std::span<port* const> ways, const port_frame& frame, const port* except);
  bool send(port& to, const port_frame& frame);
  void drop(unsigned long& reason);

  std::deque<port> ports_;
  port_list all_;  // by index
  port_list network_;
  port_list subscribers_;
  address_table addresses_;
  address_table::time_point now_;  // of the frame that is being handled
  port_reader reader_;
  int device_ = -1;
  bool stopped_ = false;
  bridge_counts counts_;
};

}  // namespace kvbridged

#endif
