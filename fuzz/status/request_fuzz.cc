// Any bytes as the head of a request, in two parts.
#include "pppoeia/status/filter.h"
#include "pppoeia/status/http_request.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  http_request request, again;
  const request_state state = http_request_read(text, request);
  // What is complete stays so, whatever follows.
  if (state == request_state::complete &&
      (http_request_read(std::string(text) + "GET", again) != state || again.path != request.path))
    std::abort();
  if (state == request_state::complete && !request.path.starts_with('/'))
    std::abort();
  filter_read(request);
  return 0;
}
