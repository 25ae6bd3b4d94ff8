// Sends PADIs of many clients by an interface until it is killed. Usage: padi_flood INTERFACE FRAMES_PER_SECOND
#include "tests/kvbridged/cables.h"
#include "tests/support/records_fixture.h"

#include <chrono>
#include <cstdlib>
#include <thread>

int main(int argc, char** argv)
{
  if (argc != 3)
    return 2;
  const host subscribers(argv[1]);
  const auto pause = std::chrono::nanoseconds(1'000'000'000L / std::atol(argv[2]));
  for (unsigned client = 0;; ++client, std::this_thread::sleep_for(pause)) {
    test_frame frame;
    frame.source[4] = static_cast<unsigned char>(client >> 8);
    frame.source[5] = static_cast<unsigned char>(client);
    const byte_string record = frame.build();
    subscribers.send(kvbridged::frame_view(record).subspan(kernel_header::size));
  }
}
