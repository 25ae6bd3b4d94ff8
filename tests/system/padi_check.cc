// Looks at every PADI that arrives by an interface until it is killed, and keeps in a file how many carried the line's
// vendor tag whole, as the only one, and how many did not: "tagged 0000012 other 0000000".
// Usage: padi_check INTERFACE REMOTE_ID FILE
#include "pppoeia/kernel.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <span>
#include <string>
#include <unistd.h>

namespace {

using bytes = std::span<const unsigned char>;

size_t be16(bytes from, size_t at)
{
  return static_cast<size_t>(from[at] << 8 | from[at + 1]);
}

// The agent's vendor tag: a Circuit ID that is not empty, and that Remote ID, with nothing behind it.
bool is_line_tag(bytes value, const std::string& remote_id)
{
  const unsigned char vendor[] = {0, 0, 0x0d, 0xe9, 1};
  if (value.size() < 6 || !std::equal(std::begin(vendor), std::end(vendor), value.begin()))
    return false;
  const size_t circuit = value[5];
  const bytes rest = value.subspan(std::min(value.size(), 6 + circuit));
  return circuit > 0 && rest.size() == 2 + remote_id.size() && rest[0] == 2 && rest[1] == remote_id.size() &&
         std::equal(remote_id.begin(), remote_id.end(), rest.begin() + 2);
}

// Whether the tags fill the payload and have exactly one vendor tag, the line's.
bool is_tagged(bytes frame, const std::string& remote_id)
{
  constexpr size_t payload = 20;
  if (frame.size() < payload || be16(frame, 18) > frame.size() - payload)
    return false;
  bytes tags = frame.subspan(payload, be16(frame, 18));
  unsigned own = 0;
  while (tags.size() >= 4 && be16(tags, 2) <= tags.size() - 4) {
    const bytes value = tags.subspan(4, be16(tags, 2));
    if (be16(tags, 0) == 0x0105)
      own += is_line_tag(value, remote_id) ? 1 : 2;
    tags = tags.subspan(4 + value.size());
  }
  return tags.empty() && own == 1;
}

}  // namespace

int main(int argc, char** argv)
{
  if (argc != 4)
    return 2;
  const int fd = kernel_linux.packet_socket();
  const int file = open(argv[3], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  int index = 0;
  if (fd < 0 || file < 0 || kernel_linux.link_index(fd, argv[1], &index) < 0 ||
      kernel_linux.bind_packet(fd, index) < 0) {
    std::perror("padi_check");
    return 1;
  }
  kernel_linux.enlarge_buffers(fd, 4 * 1024 * 1024);
  unsigned tagged = 0;
  unsigned other = 0;
  while (true) {
    char text[64];
    const int length = std::snprintf(text, sizeof text, "tagged %07u other %07u\n", tagged, other);
    (void)!pwrite(file, text, static_cast<size_t>(length), 0);
    unsigned char frame[2048];
    kernel_record record{frame, sizeof frame};
    if (kernel_linux.wait_readable({fd, nullptr}, 1000) != 1 || kernel_linux.receive({fd, nullptr}, &record, 1) != 1)
      continue;
    const bytes got(frame, record.length);
    if (got.size() < 16 || be16(got, 12) != 0x8863 || got[15] != 0x09)
      continue;
    const bool whole = is_tagged(got, argv[2]);
    ++(whole ? tagged : other);
    for (size_t i = 0; !whole && i < got.size(); ++i)
      std::fprintf(stderr, "%02x%c", got[i], i + 1 < got.size() ? ' ' : '\n');
  }
}
