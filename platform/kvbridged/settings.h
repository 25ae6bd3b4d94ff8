// What kvbridged is told to be: bridges and their ports.
#ifndef PLATFORM_KVBRIDGED_SETTINGS_H
#define PLATFORM_KVBRIDGED_SETTINGS_H

#include <cstdint>
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

struct bridge_settings {
  std::string name;
  uint16_t stag_ethertype = 0x88a8;
  int mtu = 1500;
  std::vector<port_settings> ports;
};

// One line that says what is wrong with what the user wrote or with this machine.
class fatal : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// "br0", "br0,stag=0x9100,mtu=1600". Throws fatal.
bridge_settings bridge_parse(const std::string& text);

// "br0,1,subscriber,veth1" or "br0,9,network,uplink,addresses=16384": added to the bridge named. Throws fatal.
void port_parse(const std::string& text, std::vector<bridge_settings>& bridges);

}  // namespace kvbridged

#endif
