// Frames as a pcapng file, as Wireshark opens it: Ethernet, nanoseconds, a comment with each frame.
#ifndef TOOLS_PPPOEIACTL_SHOW_PCAPNG_H
#define TOOLS_PPPOEIACTL_SHOW_PCAPNG_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

class pcapng_file {
public:
  // "-" is standard output. Begins the file. Throws command_error, as write() does.
  explicit pcapng_file(const std::string& name);
  ~pcapng_file();
  pcapng_file(const pcapng_file&) = delete;
  pcapng_file& operator=(const pcapng_file&) = delete;

  enum class direction : uint32_t { inbound = 1, outbound = 2 };
  // `frame` is what there is of a frame of `length` bytes. It is in the file when this returns.
  void write(uint64_t time_ns, std::string_view frame, uint32_t length, direction way, std::string_view comment);

private:
  void put(uint32_t type, const std::string& body);

  std::string name_;
  std::FILE* file_;
};

#endif
