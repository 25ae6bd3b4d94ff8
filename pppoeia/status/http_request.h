// The least of HTTP/1.1 that a scraper needs: GET, and values behind a question mark.
#ifndef PPPOEIA_STATUS_HTTP_REQUEST_H
#define PPPOEIA_STATUS_HTTP_REQUEST_H

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct http_request {
  std::string path;                                         // decoded
  std::vector<std::pair<std::string, std::string>> values;  // decoded, in their order
  bool wants_openmetrics = false;                           // of an Accept field
};

enum class request_state {
  incomplete,
  complete,
  wrong,         // no HTTP
  wrong_method,  // anything but GET
};

inline constexpr size_t http_request_most = 8192;  // bytes of a request's head

// Reads the head of a request from what has been received so far. `request` is written when it is complete.
request_state http_request_read(std::string_view received, http_request& request);

#endif
