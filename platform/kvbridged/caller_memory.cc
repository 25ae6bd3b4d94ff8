#include "platform/kvbridged/caller_memory.h"

#include <algorithm>
#include <fstream>
#include <sys/uio.h>

namespace kvbridged {
namespace {

// Bytes within one page: a name may end at the very end of a mapping.
std::string page_bytes(pid_t pid, char* address, size_t size)
{
  std::string bytes(size, '\0');
  const iovec local{bytes.data(), bytes.size()};
  const iovec remote{address, size};
  const ssize_t count = process_vm_readv(pid, &local, 1, &remote, 1, 0);
  bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return bytes;
}

}  // namespace

std::string caller_bytes(pid_t pid, const void* address, size_t size)
{
  constexpr size_t page = 4096;
  std::string bytes;
  auto* at = static_cast<char*>(const_cast<void*>(address));
  while (bytes.size() < size) {
    const size_t in_page = page - reinterpret_cast<uintptr_t>(at) % page;
    const size_t wanted = std::min(in_page, size - bytes.size());
    const std::string piece = page_bytes(pid, at, wanted);
    bytes += piece;
    if (piece.size() < wanted)
      break;
    at += wanted;
  }
  return bytes;
}

pid_t process_of(pid_t tid)
{
  std::ifstream status("/proc/" + std::to_string(tid) + "/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("Tgid:"))
      return static_cast<pid_t>(std::stol(line.substr(5)));
  return 0;
}

}  // namespace kvbridged
