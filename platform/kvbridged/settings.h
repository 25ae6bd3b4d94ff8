// What kvbridged is told to be: bridges and their ports.
#ifndef PLATFORM_KVBRIDGED_SETTINGS_H
#define PLATFORM_KVBRIDGED_SETTINGS_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace kvbridged {

inline constexpr char default_tree[] = "/run/kvbridged/tree";

struct port_settings {
  uint16_t id;
  bool network;           // else a subscriber's
  std::string interface;  // Linux interface behind the port
  unsigned addresses;     // how many may be known behind it
};

// What becomes of discovery frames while there is no agent to treat them.
enum class when_down { closed, open };

// How many PADI of a subscriber port reach the agent.
struct padi_rate {
  unsigned per_second = 0;  // 0: all
  unsigned burst = 0;       // at once, after a silence
};

// A bridge that is the kernel's own; kvbridged sees to its discovery frames alone.
struct kernel_settings {
  std::set<std::string> uplinks{};            // interfaces; all other members are subscribers'
  std::map<std::string, uint16_t> numbers{};  // port numbers given for interfaces
  when_down mode = when_down::closed;
  padi_rate rate{};
};

struct bridge_settings {
  std::string name;
  uint16_t stag_ethertype = 0x88a8;
  int mtu = 1500;
  std::vector<port_settings> ports{};
  std::optional<kernel_settings> kernel{};  // then `ports` is empty
};

// One line that says what is wrong with what the user wrote or with this machine.
class fatal : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// "br0", "br0,stag=0x9100,mtu=1600". Throws fatal.
bridge_settings bridge_parse(const std::string& text);

// "eth3=7": the number of an interface that is or will be in a kernel bridge. Throws fatal.
void port_number_parse(const std::string& text, kernel_settings& kernel);

// "20" (a second's worth at once) or "20,burst=40". Throws fatal.
padi_rate padi_rate_parse(const std::string& text);

// "br0,1,subscriber,veth1" or "br0,9,network,uplink,addresses=16384": added to the bridge named. Throws fatal.
void port_parse(const std::string& text, std::vector<bridge_settings>& bridges);

}  // namespace kvbridged

#endif
