// Sends a PADI of every line at once, a line being a port and a VLAN, and looks at what reaches the server: each must
// be there once, with its own identifiers. Ends with 0 then. Usage: lines_storm PREFIX PORTS VLANS SERVER    interfaces
// PREFIX1 to PREFIXn; "line PORT:VLAN", "customer-PORT"
#include "fuzz/frames/spoofing.h"
#include "platform/kvbridged/port_socket.h"
#include "tests/kvbridged/cables.h"
#include "tests/support/records_fixture.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <poll.h>
#include <set>
#include <string>
#include <sys/socket.h>
#include <thread>

namespace {

using kvbridged::frame_bytes;

frame_bytes padi_of(unsigned port, unsigned vlan)
{
  test_frame frame;
  frame.vlan_tags = {0x81000000u | vlan};
  frame.source = {0x02,
                  0,
                  static_cast<unsigned char>(vlan >> 8),
                  static_cast<unsigned char>(vlan),
                  0,
                  static_cast<unsigned char>(port)};
  const byte_string record = frame.build();
  return {record.begin() + kernel_header::size, record.end()};
}

// The line that the frame is from, by its source address, if it bears that line's identifiers.
bool is_right(kvbridged::frame_view frame, unsigned& port, unsigned& vlan)
{
  const kvbridged::mac_address source = kvbridged::source_of(frame);
  port = source[5];
  vlan = unsigned{source[2]} << 8 | source[3];
  const std::string line = std::to_string(port);
  const std::string own = vendor_value("line " + line + ":" + std::to_string(vlan), "customer-" + line);
  return spoofing::complaint(frame, own).empty() && spoofing::read(frame, spoofing::reader::strict).code == 0x09 &&
         kvbridged::word_at(frame, 14) == vlan;
}

}  // namespace

int main(int argc, char** argv)
{
  if (argc != 5)
    return 2;
  const unsigned ports = static_cast<unsigned>(std::atoi(argv[2])), vlans = static_cast<unsigned>(std::atoi(argv[3]));
  std::deque<host> lines;
  for (unsigned port = 1; port <= ports; ++port)
    lines.emplace_back(argv[1] + std::to_string(port));
  const descriptor server = port_socket_open(argv[4], kvbridged::port_frames::discovery, 0x88a8);
  constexpr int room = 64 * 1024 * 1024;
  setsockopt(server.get(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
  const auto begin = std::chrono::steady_clock::now();
  // The kernel takes 1,000 frames into a cable that nobody serves yet, and loses the rest.
  for (unsigned vlan = 1; vlan <= vlans; ++vlan, std::this_thread::yield())
    for (unsigned port = 1; port <= ports; ++port)
      lines[port - 1].send(padi_of(port, vlan));
  std::set<std::pair<unsigned, unsigned>> came;
  unsigned wrong = 0, twice = 0;
  kvbridged::port_reader reader;
  auto last = begin;
  for (pollfd wait{server.get(), POLLIN, 0}; came.size() < ports * vlans && poll(&wait, 1, 5000) == 1;)
    while (const auto frame = reader.read(server.get())) {
      unsigned port = 0, vlan = 0;
      if (!is_right(frame->bytes, port, vlan))
        ++wrong;
      else if (!came.emplace(port, vlan).second)
        ++twice;
      last = std::chrono::steady_clock::now();
    }
  std::printf("%u lines, %zu right, %u wrong, %u twice, the last after %.3f s\n", ports * vlans, came.size(), wrong,
              twice, std::chrono::duration<double>(last - begin).count());
  return came.size() == ports * vlans && wrong == 0 && twice == 0 ? 0 : 1;
}
