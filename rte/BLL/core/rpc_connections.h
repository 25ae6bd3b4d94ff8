// How many TCP clients the RPC service keeps. Not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <sys/select.h>

// The RPC runtime keeps a connection for as long as its client does, and forgets to watch one whose descriptor does not
// fit a set for select(): it is neither served nor closed any more. So clients that connect and say nothing could take
// every descriptor of the process, or keep everybody else from being served. To be used on the proxy's thread.
class rpcConnections_t {
public:
  static constexpr size_t most = 256;

  // After a round of serving what was `ready`: closes the connections that have been silent for longest until no more
  // than `most` are left, and those that cannot be watched.
  void tend(const fd_set& ready);

private:
  std::map<int, uint64_t> lastUsed_;  // round in which a connection was new or ready, by descriptor
  uint64_t round_ = 0;
};
