// The kernel's end of a bench: a TAP device, records written to it at a pace, and what comes back counted and timed.
#ifndef BENCH_AGENT_TAP_LOAD_H
#define BENCH_AGENT_TAP_LOAD_H

#include "base/descriptor.h"

#include <cstdint>
#include <string>
#include <vector>

struct load_settings {
  double seconds = 1;
  double rate = 0;      // frames per second; 0: as fast as the sender can
  bool counted = true;  // read what comes back; otherwise the device drops it, which costs the sender nothing
  bool timed = false;   // keep the latency of each frame
  unsigned burst = 32;
  unsigned ports = 1;
  unsigned clients = 1;  // source MAC addresses
};

struct load_result {
  uint64_t sent = 0;
  bool counted = true;  // what came back was read
  uint64_t returned = 0;
  double seconds = 0;
  double latency_p50_us = 0;
  double latency_p99_us = 0;
};

class tap_load {
public:
  // Makes the device and brings it up. Throws std::runtime_error without root or TAP.
  explicit tap_load(const std::string& name);

  // A packet socket on the device, as the agent opens it.
  int packet_socket() const;

  // Sends on the calling thread, and reads what comes back meanwhile if it is to be counted.
  load_result run(const load_settings& settings);

private:
  void drop_returned(bool drop) const;

  std::string name_;
  descriptor tap_;
  std::vector<std::vector<unsigned char>> records_;  // of the last run: turns of one load are short
  unsigned records_ports_ = 0;
  unsigned records_clients_ = 0;
};

#endif
