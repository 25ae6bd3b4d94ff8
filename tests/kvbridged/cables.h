// A bridge with a cable from each of its ports to a host, in a network of the test's own, and an agent that gives back
// what it gets.
#ifndef TESTS_KVBRIDGED_CABLES_H
#define TESTS_KVBRIDGED_CABLES_H

#include "base/descriptor.h"
#include "platform/kvbridged/modules.h"

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// Moves the calling thread into a new network without IPv6. Empty, or why that cannot be had.
std::string network_enter();

// Runs a command; whether it ended with 0.
bool run(const std::string& command);

// Brings an interface up and waits until both ends of its cable carry frames: the kernel loses them in silence before.
void link_up(const std::string& interface);

// A host's end of a cable, as bytes.
class host {
public:
  // With `offload`, frames go and come behind what is left to do on them.
  explicit host(const std::string& interface, bool offload = false);

  void send(kvbridged::frame_view frame) const;
  // The next frame; empty when none comes for some seconds, or with `waiting` false when none is there.
  kvbridged::frame_bytes receive(bool waiting = true) const;

private:
  descriptor socket_;
};

// A cable between interfaces NAME and hNAME, both up.
void cable_make(const std::string& name, int mtu = 1500);

// A bridge of the kernel's with such cables from its members.
void kernel_bridge_cable(const std::string& bridge, const std::vector<std::string>& members);

class cabled_bridge {
public:
  // Makes the cables from the ports' interfaces, each called as the port and with "h" in front at the host's end.
  cabled_bridge(const std::string& bridge, const std::vector<std::string>& ports, int cable_mtu = 1500);
  // A bridge of the kernel's that is there.
  explicit cabled_bridge(const kvbridged::bridge_settings& settings);
  ~cabled_bridge();

  // What the agent does with a record before it gives it back; false to drop it. Set before start().
  std::function<bool(kvbridged::frame_bytes&)> agent = [](kvbridged::frame_bytes&) { return true; };

  void start();
  // Ends the traffic; counts are to be read from then on.
  void stop();
  std::string statistics() const { return bridge_->statistics(); }
  // A count of that line.
  long count(const std::string& name) const;

private:
  void agent_make();
  void agent_read();

  kvbridged::loop events_;
  std::unique_ptr<kvbridged::agent_bridge> bridge_;
  descriptor bridge_end_;
  descriptor agent_end_;
  descriptor stop_;
  std::thread thread_;
};

#endif
