// A bridge of the kernel's between hosts at the ends of real cables, with an agent that marks what it treated.
#ifndef TESTS_KVBRIDGED_KERNEL_BRIDGE_FIXTURE_H
#define TESTS_KVBRIDGED_KERNEL_BRIDGE_FIXTURE_H

#include "platform/kvbridged/kernel_bridges.h"
#include "platform/kvbridged/port_socket.h"
#include "tests/kvbridged/cables.h"
#include "tests/kvbridged/frames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <optional>

using namespace kvbridged;
using testing::HasSubstr;
using testing::StartsWith;

constexpr unsigned char padi = 0x09, pado = 0x07;
constexpr unsigned char treated = 0x77;  // the last byte of what was at the agent
inline const mac_address client = host_address(1), server = host_address(9);

// The end of a cable where all tags are in their places.
class wire {
public:
  explicit wire(const std::string& interface);
  void send(frame_view frame) const { sender_.send(frame); }
  // Empty when none comes for some seconds, or with `waiting` false when none is there.
  frame_bytes receive(bool waiting = true);

private:
  descriptor socket_;
  port_reader reader_;
  host sender_;
};

// Of br0, whose uplink is up9.
bridge_settings settings_of(kernel_settings kernel = {});

// What the agent does here, and what a frame is then.
bool treat(frame_bytes& record);
frame_bytes after_agent(frame_bytes frame);

// Four seconds at most.
bool wait_until(const std::function<bool()>& condition);

// That the programs at an interface know; 0 for no port, nullopt without programs.
std::optional<uint32_t> port_at(const std::string& interface);
bool has_qdisc(const std::string& interface);

// What a command prints.
std::string said(const std::string& command);

// Of this thread.
void rights_drop(std::initializer_list<unsigned> capabilities);

// The loop's own thread, for a moment.
void serve(
    loop& events, const std::function<void()>& first = [] {});

// line1, line2 and up9 are members of br0.
class KernelBridge : public testing::Test {
protected:
  void SetUp() override;
};

#endif
