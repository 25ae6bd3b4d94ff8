// Load for a bridge between two interfaces, and what came of it.
//
// Usage: road_load session FROM TO SIZE SECONDS      PPPoE session frames as fast as one thread can send
//        road_load discovery FROM TO RATE SECONDS    PADI evenly spaced, each timed from send to receipt
//        road_load storm FROM TO CLIENTS             PADI of as many clients at once
#include "platform/kvbridged/port_socket.h"
#include "platform/kvbridged/settings.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <time.h>
#include <vector>

namespace {

using namespace kvbridged;
using clock_type = std::chrono::steady_clock;

constexpr size_t number_place = 26;  // of a PADI: the value of its Host-Uniq tag

double seconds_since(clock_type::time_point begin)
{
  return std::chrono::duration<double>(clock_type::now() - begin).count();
}

double cpu_seconds()
{
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// Of the network that this process is in.
unsigned long received(const std::string& interface)
{
  std::ifstream table("/proc/self/net/dev");
  unsigned long bytes = 0, frames = 0;
  for (std::string word; table >> word;)
    if (word == interface + ":" && table >> bytes >> frames)
      return frames;
  throw fatal("no such interface: '" + interface + "'");
}

frame_bytes session_frame(size_t size)
{
  frame_bytes frame = {0x02, 0, 0, 0, 0, 9, 0x02, 0, 0, 0, 0, 1, 0x88, 0x64, 0x11, 0, 0, 1};
  const size_t payload = size - frame.size() - 2;
  frame.push_back(static_cast<unsigned char>(payload >> 8));
  frame.push_back(static_cast<unsigned char>(payload));
  frame.resize(size, 0x42);
  return frame;
}

// Lets the bridge know where the session's frames belong.
void learn_server(const std::string& interface)
{
  frame_bytes hello = session_frame(64);
  std::swap_ranges(hello.begin(), hello.begin() + 6, hello.begin() + 6);
  port_socket_send(port_socket_open(interface, port_frames::discovery, 0x88a8).get(), {.bytes = hello});
}

// A client of its own, whose Host-Uniq is its number.
frame_bytes padi(uint32_t number)
{
  frame_bytes frame = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 1, 0, 0, 0, 0, 0x88, 0x63, 0x11, 0x09,
                       0,    0,    0,    12,   1,    1,    0,    0, 1, 3, 0, 4, 0,    0,    0,    0};
  std::memcpy(&frame[8], &number, sizeof number);
  std::memcpy(&frame[number_place + 2], &number, sizeof number);
  frame.resize(60);
  return frame;
}

void session(const std::string& from, const std::string& to, size_t size, double seconds)
{
  constexpr unsigned batch = 64;
  const descriptor sock = port_socket_open(from, port_frames::discovery, 0x88a8);
  const frame_bytes bytes = session_frame(size);
  learn_server(to);
  const unsigned long before = received(to);
  const auto begin = clock_type::now();
  const double cpu = cpu_seconds();
  unsigned long sent = 0;
  for (; seconds_since(begin) < seconds; sent += batch)
    for (unsigned i = 0; i < batch; ++i)
      port_socket_send(sock.get(), {.bytes = bytes});
  const double took = seconds_since(begin);
  const auto came = static_cast<double>(received(to) - before);
  std::printf("%.0f frames/s, %.1f ns of CPU a frame, %.0f of %lu lost\n", came / took,
              (cpu_seconds() - cpu) * 1e9 / came, static_cast<double>(sent) - came, sent);
}

class receiver {
public:
  explicit receiver(const std::string& interface, size_t frames)
      : came_(frames), socket_(port_socket_open(interface, port_frames::discovery, 0x88a8))
  {
    constexpr int room = 64 * 1024 * 1024;
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
  }
  // Reads until all came, or none for a second.
  void run()
  {
    pollfd wait{socket_.get(), POLLIN, 0};
    while (count_ < came_.size() && poll(&wait, 1, 1000) == 1)
      while (const auto frame = reader_.read(socket_.get()))
        take(frame->bytes);
  }
  size_t count() const { return count_; }
  const std::vector<clock_type::time_point>& came() const { return came_; }

private:
  void take(frame_view frame)
  {
    uint32_t number = 0;
    if (frame.size() < number_place + 6)
      return;
    std::memcpy(&number, &frame[number_place + 2], sizeof number);
    if (number >= came_.size() || came_[number] != clock_type::time_point{})
      return;
    came_[number] = clock_type::now();
    ++count_;
  }

  std::vector<clock_type::time_point> came_;
  size_t count_ = 0;
  descriptor socket_;
  port_reader reader_;
};

// `rate` 0: at once.
void discovery(const std::string& from, const std::string& to, double rate, size_t frames)
{
  const descriptor sock = port_socket_open(from, port_frames::discovery, 0x88a8);
  receiver server(to, frames);
  std::thread reading([&] { server.run(); });
  std::vector<clock_type::time_point> sent(frames);
  const auto begin = clock_type::now();
  for (uint32_t i = 0; i < frames; ++i) {
    if (rate > 0)
      std::this_thread::sleep_until(begin + std::chrono::duration_cast<clock_type::duration>(
                                                std::chrono::duration<double>(static_cast<double>(i) / rate)));
    const frame_bytes frame = padi(i);
    sent[i] = clock_type::now();
    port_socket_send(sock.get(), {.bytes = frame});
  }
  reading.join();
  std::vector<double> took;
  clock_type::time_point last = begin;
  for (size_t i = 0; i < frames; ++i)
    if (server.came()[i] != clock_type::time_point{}) {
      took.push_back(std::chrono::duration<double, std::micro>(server.came()[i] - sent[i]).count());
      last = std::max(last, server.came()[i]);
    }
  std::ranges::sort(took);
  const auto at = [&](double part) {
    return took.empty() ? 0.0 : took[static_cast<size_t>(part * static_cast<double>(took.size() - 1))];
  };
  std::printf("%zu sent, %zu came, p50 %.1f us, p99 %.1f us, last after %.3f s\n", frames, server.count(), at(0.5),
              at(0.99), std::chrono::duration<double>(last - begin).count());
}

}  // namespace

int main(int argc, char** argv)
{
  const std::vector<std::string> words(argv + 1, argv + argc);
  try {
    if (words.size() == 5 && words[0] == "session")
      session(words[1], words[2], std::stoul(words[3]), std::stod(words[4]));
    else if (words.size() == 5 && words[0] == "discovery")
      discovery(words[1], words[2], std::stod(words[3]),
                static_cast<size_t>(std::stod(words[3]) * std::stod(words[4])));
    else if (words.size() == 4 && words[0] == "storm")
      discovery(words[1], words[2], 0, std::stoul(words[3]));
    else
      return std::fputs("Usage: road_load session|discovery|storm FROM TO ...; see the source\n", stderr), 2;
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "road_load: %s\n", error.what());
    return 1;
  }
}
