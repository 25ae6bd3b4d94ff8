// Sends PADIs of many clients by an interface until it is killed. Usage: padi_flood INTERFACE FRAMES_PER_SECOND
#include "pppoeia/kernel.h"
#include "tests/support/records_fixture.h"

#include <cstdio>
#include <cstdlib>
#include <time.h>
#include <vector>

int main(int argc, char** argv)
{
  if (argc != 3)
    return 2;
  const int fd = kernel_linux.packet_socket();
  int index = 0;
  if (fd < 0 || kernel_linux.link_index(fd, argv[1], &index) < 0 || kernel_linux.bind_packet(fd, index) < 0) {
    std::perror("padi_flood");
    return 1;
  }
  constexpr size_t header = 107;
  const long pause_ns = 1'000'000'000L / std::atol(argv[2]);
  for (unsigned client = 0;; ++client) {
    test_frame frame;
    frame.source[4] = static_cast<unsigned char>(client >> 8);
    frame.source[5] = static_cast<unsigned char>(client);
    byte_string record = frame.build();
    const kernel_record out{record.data() + header, static_cast<uint32_t>(record.size() - header)};
    kernel_linux.send(fd, &out, 1);
    const timespec pause{0, pause_ns};
    nanosleep(&pause, nullptr);
  }
}
