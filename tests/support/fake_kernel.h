// The kernel of the agent's tests: control files, pseudo devices and packet sockets in memory. Descriptors are real
// ones (socket pairs), so that whatever the agent does with a number shows; the test holds the other end of each
// bridge's packet socket and plays the kernel bridge there.
#ifndef TESTS_SUPPORT_FAKE_KERNEL_H
#define TESTS_SUPPORT_FAKE_KERNEL_H

#include "platform/kvbridge/control.h"
#include "pppoeia/kernel/kernel.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

class fake_kernel {
public:
  // Puts itself in the place of the kernel in use until it is destroyed.
  fake_kernel();
  ~fake_kernel();
  fake_kernel(const fake_kernel&) = delete;
  fake_kernel& operator=(const fake_kernel&) = delete;

  // What the modules answer.
  int kvmng_version = kvmng_version_expected;
  int kvbridge_version = kvbridge_version_expected;
  std::set<std::string> bridges{"br0", "br1", "br2"};  // that exist in the kernel
  uint16_t stag_ethertype = 0x88a8;
  int mtu = 1500;
  packet_queue queue{};  // what any packet socket tells of its queue

  // Steps that fail, by name ("packet_socket", "control:0x40047ac8", "open:/proc/net/mng/config"), with this errno. A
  // step named with "@n" behind it fails at its n-th call only.
  std::map<std::string, int> failing;
  // The step that answers with descriptor 0 while the agent has none of that number.
  std::string at_zero;

  // Devices created and not deleted.
  std::set<std::string> devices;

  // The test's end of the packet socket that was bound last for `device`, or -1.
  int wire(const std::string& device) const;

  // While workers run: a device goes away by itself, other steps fail or answer at zero, how often a step was tried.
  void vanish(const std::string& device);
  void fail_from_now(const std::map<std::string, int>& steps, const std::string& zero_step = {});
  int tried(const std::string& step) const;

  // Descriptors that the agent opened and did not close.
  size_t open_descriptors() const;

private:
  const kernel_ops* former_functions_;
  fake_kernel* former_;
};

// Sends a record to a bridge's worker by its wire.
void wire_send(int wire, const std::vector<unsigned char>& record);

// The next record that the worker sent back, or nothing within `milliseconds`.
std::vector<unsigned char> wire_receive(int wire, int milliseconds = 10'000);

#endif
