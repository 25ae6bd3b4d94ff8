// The helper device: where the members' programs put what they take out of the bridge, and where what comes back is
// sent. A TAP that nobody else has to do with; it goes with the process, so its name is held by one kvbridged a bridge.
#ifndef PLATFORM_KVBRIDGED_KERNEL_HELPER_DEVICE_H
#define PLATFORM_KVBRIDGED_KERNEL_HELPER_DEVICE_H

#include "platform/kvbridged/port_socket.h"

#include <string>

namespace kvbridged {

// The name of a bridge's helper device.
inline std::string helper_name_of(const std::string& bridge)
{
  return bridge + "_back";
}

class helper_device {
public:
  // Makes it and brings it up. Throws fatal.
  helper_device(const std::string& name, uint16_t stag_ethertype);

  int index() const { return index_; }
  // To be watched: what was taken out is there to be read.
  int socket() const { return socket_.get(); }
  // To be watched: fails when somebody deletes the device.
  int device() const { return tap_.get(); }

  // The next frame that was taken out; its mark is the member's interface index.
  std::optional<port_frame> read() { return reader_.read(socket_.get()); }
  // Sends a frame that the programs put where its mark says. 0 or an errno value.
  int give_back(frame_view frame, uint32_t mark) const;
  // Takes what went the wrong way, while the programs were away.
  void drain() const;
  // How many frames the socket had no room for, all in all.
  unsigned long lost();

private:
  descriptor tap_;
  int index_ = 0;
  descriptor socket_;
  port_reader reader_;
  unsigned long lost_ = 0;
};

}  // namespace kvbridged

#endif
