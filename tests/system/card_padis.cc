// Sends PADIs of every line without a pause, a line being a port and a VLAN, and looks at what reaches the server: each
// must be there exactly once, with one of the identifiers that were right when it was sent.
// Usage: card_padis PREFIX PORTS VLANS SERVER    interfaces PREFIX1 to PREFIXn
// On standard input, one a line, each answered by "ok":
//   expect REMOTE_ID [REMOTE_ID]   from here on a line's Remote ID is one of these with "-PORT" behind it; sends
//   rest                           sends none any more
// Before it answers it waits for what was sent before. Ends with 0 at the end of the input, with 1 at the first wrong,
// second or missing one.
#include "fuzz/frames/spoofing.h"
#include "platform/kvbridged/port_socket.h"
#include "tests/kvbridged/cables.h"
#include "tests/support/records_fixture.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <poll.h>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

using kvbridged::frame_bytes;
using clock = std::chrono::steady_clock;

struct sent_padi {
  unsigned port;
  unsigned vlan;
  std::vector<std::string> right;  // Remote IDs without their end
  unsigned arrived = 0;
};

class padis {
public:
  padis(const std::string& prefix, unsigned ports, unsigned vlans, const char* server)
      : ports_(ports), vlans_(vlans),
        server_(kvbridged::port_socket_open(server, kvbridged::port_frames::discovery, 0x88a8))
  {
    for (unsigned port = 1; port <= ports; ++port)
      lines_.emplace_back(prefix + std::to_string(port));
  }

  void expect(std::vector<std::string> right) { right_ = std::move(right); }
  bool sends() const { return !right_.empty(); }

  void send_one()
  {
    const auto number = static_cast<unsigned>(sent_.size());
    sent_.push_back({number % ports_ + 1, number / ports_ % vlans_ + 1, right_});
    test_frame frame;
    frame.vlan_tags = {0x81000000u | sent_.back().vlan};
    frame.source = {0x02,
                    0,
                    static_cast<unsigned char>(number >> 24),
                    static_cast<unsigned char>(number >> 16),
                    static_cast<unsigned char>(number >> 8),
                    static_cast<unsigned char>(number)};
    const byte_string record = frame.build();
    lines_[sent_.back().port - 1].send(frame_bytes(record.begin() + kernel_header::size, record.end()));
  }

  // All that is there. False for one that is wrong.
  bool receive()
  {
    while (const auto frame = reader_.read(server_.get()))
      if (!is_right(frame->bytes))
        return false;
    return true;
  }

  bool receive_all()
  {
    const auto end = clock::now() + std::chrono::seconds(10);
    while (arrived_ < sent_.size() && clock::now() < end) {
      pollfd wait{server_.get(), POLLIN, 0};
      poll(&wait, 1, 100);
      if (!receive())
        return false;
    }
    for (const sent_padi& one : sent_)
      if (one.arrived == 0)
        std::fprintf(stderr, "port %u VLAN %u: lost\n", one.port, one.vlan);
    return arrived_ == sent_.size();
  }

  size_t count() const { return sent_.size(); }

private:
  bool is_right(kvbridged::frame_view frame)
  {
    const kvbridged::mac_address source = kvbridged::source_of(frame);
    const unsigned number =
        unsigned{source[2]} << 24 | unsigned{source[3]} << 16 | unsigned{source[4]} << 8 | unsigned{source[5]};
    if (number >= sent_.size())
      return true;  // no PADI of these
    sent_padi& padi = sent_[number];
    ++arrived_;
    std::string wrong = ++padi.arrived > 1 ? "twice" : "";
    const std::string port = std::to_string(padi.port);
    for (const std::string& right : padi.right) {
      const std::string own = vendor_value("line " + port + ":" + std::to_string(padi.vlan), right + "-" + port);
      const std::string complaint = spoofing::complaint(frame, own);
      if (complaint.empty() && padi.arrived == 1)
        return true;
      wrong += complaint;
    }
    std::fprintf(stderr, "port %u VLAN %u: %s\n", padi.port, padi.vlan, wrong.c_str());
    return false;
  }

  unsigned ports_;
  unsigned vlans_;
  descriptor server_;
  kvbridged::port_reader reader_;
  std::deque<host> lines_;
  std::vector<std::string> right_;
  std::vector<sent_padi> sent_;
  size_t arrived_ = 0;
};

// Words of a line of the input; false at its end.
bool command_read(std::vector<std::string>& words)
{
  std::string line;
  char c;
  ssize_t got = 0;
  while ((got = read(STDIN_FILENO, &c, 1)) == 1 && c != '\n')
    line += c;
  std::istringstream stream(line);
  words.clear();
  for (std::string word; stream >> word;)
    words.push_back(word);
  return got == 1;
}

}  // namespace

int main(int argc, char** argv)
{
  if (argc != 5)
    return 2;
  padis traffic(argv[1], static_cast<unsigned>(std::atoi(argv[2])), static_cast<unsigned>(std::atoi(argv[3])), argv[4]);
  constexpr int pause_ms = 1;
  while (true) {
    pollfd wait{STDIN_FILENO, POLLIN, 0};
    if (poll(&wait, 1, traffic.sends() ? pause_ms : -1) == 1) {
      std::vector<std::string> words;
      const bool more = command_read(words);
      if (!traffic.receive_all())
        return 1;
      if (!more)
        break;
      traffic.expect({words.begin() + (words.empty() ? 0 : 1), words.end()});
      std::printf("ok\n");
      std::fflush(stdout);
    }
    if (traffic.sends())
      traffic.send_one();
    if (!traffic.receive())
      return 1;
  }
  std::printf("{\"padis\":%zu}\n", traffic.count());
  return 0;
}
