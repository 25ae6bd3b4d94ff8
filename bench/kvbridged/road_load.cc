// Load for a bridge between two interfaces, and what came of it.
//
// Usage: road_load session FROM TO SIZE SECONDS      PPPoE session frames as fast as one thread can send
//        road_load discovery FROM TO RATE SECONDS    PADI evenly spaced, each timed from send to receipt
//        road_load storm FROM TO CLIENTS             PADI of as many clients at once
//        road_load turns TURNS LINE PEER ADDRESS LINE PEER ADDRESS
//                                                    session frames and TCP over one road and another in short turns: a
//                                                    line's and a peer's interface, and an address for TCP from network
//                                                    namespace "near" to "far"
#include "platform/kvbridged/port_socket.h"
#include "platform/kvbridged/settings.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <utility>
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

// Of the kernel's own threads, which take work over when it comes up too fast for those that it interrupts.
std::vector<std::string> softirq_threads()
{
  std::vector<std::string> times;
  for (const auto& process : std::filesystem::directory_iterator("/proc")) {
    std::string name;
    if (std::ifstream(process.path() / "comm") >> name && name.starts_with("ksoftirqd/"))
      times.push_back(process.path() / "schedstat");
  }
  return times;
}

double cpu_seconds_with_softirq()
{
  static const std::vector<std::string> threads = softirq_threads();
  double all = cpu_seconds();
  unsigned long long ns = 0;
  for (const std::string& times : threads)
    if (std::ifstream(times) >> ns)
      all += static_cast<double>(ns) / 1e9;
  return all;
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

void namespace_enter(const std::string& name)
{
  const descriptor place(open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC));
  if (setns(place.get(), CLONE_NEWNET) != 0)
    throw fatal("no network namespace '" + name + "'");
}

// Both ends of a connection from one namespace to an address in another, that in the other first.
std::pair<descriptor, descriptor> tcp_connect(const std::string& from, const std::string& to, const std::string& at)
{
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(7000);
  inet_pton(AF_INET, at.c_str(), &address.sin_addr);
  const int on = 1;
  namespace_enter(to);
  const descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener.get(), 1) != 0)
    throw fatal("cannot listen at " + at);
  namespace_enter(from);
  descriptor sender(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(sender.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw fatal("cannot connect to " + at);
  return {descriptor(accept(listener.get(), nullptr, nullptr)), std::move(sender)};
}

// Two interfaces on either side of a bridge, and a connection over it.
class road {
public:
  road(const std::string& line, std::string peer, const std::string& address)
      : peer_(std::move(peer)), line_(port_socket_open(line, port_frames::discovery, 0x88a8)),
        ends_(tcp_connect("near", "far", address)), reading_([this] { read(); })
  {}
  ~road()
  {
    shutdown(ends_.second.get(), SHUT_RDWR);
    reading_.join();
  }

  // Each ns of CPU a frame or a byte.
  double session()
  {
    constexpr unsigned frames = 5000;
    const frame_bytes bytes = session_frame(64);
    const unsigned long before = received(peer_);
    const double cpu = cpu_seconds_with_softirq();
    for (unsigned i = 0; i < frames; ++i)
      port_socket_send(line_.get(), {.bytes = bytes});
    const double spent = cpu_seconds_with_softirq() - cpu;
    if (received(peer_) - before < frames)
      throw fatal("frames were lost");
    return spent * 1e9 / frames;
  }
  double tcp()
  {
    constexpr unsigned blocks = 32;
    static const std::vector<char> block(1 << 16);
    const double cpu = cpu_seconds_with_softirq();
    for (unsigned i = 0; i < blocks; ++i, sent_ += block.size())
      if (send(ends_.second.get(), block.data(), block.size(), MSG_NOSIGNAL) < 0)
        throw fatal("the connection is lost");
    while (came_ < sent_)
      came_.wait(came_);
    return (cpu_seconds_with_softirq() - cpu) * 1e9 / static_cast<double>(blocks * block.size());
  }

private:
  void read()
  {
    std::vector<char> buffer(1 << 18);
    for (ssize_t size; (size = recv(ends_.first.get(), buffer.data(), buffer.size(), 0)) > 0; came_.notify_one())
      came_ += static_cast<unsigned long>(size);
  }

  std::string peer_;
  descriptor line_;
  std::pair<descriptor, descriptor> ends_;
  unsigned long sent_ = 0;
  std::atomic<unsigned long> came_ = 0;
  std::thread reading_;
};

double at_part(std::vector<double> all, double part)
{
  std::ranges::sort(all);
  return all[static_cast<size_t>(part * static_cast<double>(all.size() - 1))];
}

void turns_tell(const char* what, const std::vector<double>& first, const std::vector<double>& second)
{
  std::vector<double> ratios;
  for (size_t i = 0; i < first.size(); ++i)
    ratios.push_back(first[i] / second[i]);
  std::printf("%s: ns of CPU at the median %.3f and %.3f (%.4f), at the quietest tenth %.3f and %.3f (%.4f); "
              "median of the pairs' ratios %.4f\n",
              what, at_part(first, 0.5), at_part(second, 0.5), at_part(first, 0.5) / at_part(second, 0.5),
              at_part(first, 0.1), at_part(second, 0.1), at_part(first, 0.1) / at_part(second, 0.1),
              at_part(ratios, 0.5));
}

void turns(unsigned count, road& first, road& second)
{
  std::vector<double> frames[2], bytes[2];
  first.tcp(), second.tcp();  // until the windows are open
  for (unsigned turn = 0; turn < 2 * count; ++turn) {
    const unsigned which = (turn + turn / 2) % 2;  // first, second, second, first
    road& one = which == 0 ? first : second;
    frames[which].push_back(one.session());
    bytes[which].push_back(one.tcp());
  }
  turns_tell("a session frame", frames[0], frames[1]);
  turns_tell("a byte of TCP", bytes[0], bytes[1]);
}

// The sockets of the lines belong to the namespace that this process begins in.
void turns_over(const std::vector<std::string>& words)
{
  const descriptor home(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
  road first(words[2], words[3], words[4]);
  setns(home.get(), CLONE_NEWNET);
  road second(words[5], words[6], words[7]);
  setns(home.get(), CLONE_NEWNET);
  learn_server(words[3]);
  learn_server(words[6]);
  turns(static_cast<unsigned>(std::stoul(words[1])), first, second);
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
    else if (words.size() == 8 && words[0] == "turns")
      turns_over(words);
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
