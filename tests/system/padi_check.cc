// Looks at every PADI that arrives by an interface until it is killed, and keeps in a file how many carried the line's
// vendor tag as a server reads it, and how many did not: "tagged 0000012 other 0000000".
// Usage: padi_check INTERFACE CIRCUIT_ID REMOTE_ID FILE
#include "fuzz/frames/spoofing.h"
#include "tests/kvbridged/cables.h"
#include "tests/support/records_fixture.h"

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

int main(int argc, char** argv)
{
  if (argc != 5)
    return 2;
  const std::string own = vendor_value(argv[2], argv[3]);
  const host server(argv[1]);
  const int file = open(argv[4], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  for (unsigned tagged = 0, other = 0;;) {
    char text[64];
    const int length = std::snprintf(text, sizeof text, "tagged %07u other %07u\n", tagged, other);
    if (pwrite(file, text, static_cast<size_t>(length), 0) != length)
      return 1;
    const kvbridged::frame_bytes frame = server.receive();
    if (spoofing::read(frame, spoofing::reader::strict).code != 0x09)
      continue;
    const std::string wrong = spoofing::complaint(frame, own);
    ++(wrong.empty() ? tagged : other);
    if (!wrong.empty())
      std::fprintf(stderr, "%s\n", wrong.c_str());
  }
}
