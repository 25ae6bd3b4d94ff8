// Which frames and lines a reader wants: the values of its request.
#ifndef PPPOEIA_STATUS_FILTER_H
#define PPPOEIA_STATUS_FILTER_H

#include "pppoeia/status/http_request.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct filter {
  std::optional<std::string> bridge;
  std::optional<uint32_t> port;
  std::optional<uint64_t> client;
  std::optional<uint8_t> code;
  bool dropped_only = false;

  bool wants(const std::string& name) const { return !bridge || *bridge == name; }
  bool wants(uint32_t of_port, uint64_t of_client) const
  {
    return (!port || *port == of_port) && (!client || *client == of_client);
  }
};

// Reads "bridge", "port", "mac", "code" (a name as PADI, or a number) and "dropped". Nothing for another name or a
// value that is none.
std::optional<filter> filter_read(const http_request& request);

// "PADI", or the number of an unknown code.
std::string code_text(uint8_t code);

#endif
