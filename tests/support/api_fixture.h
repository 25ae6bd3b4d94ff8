// The agent initialised on a kernel in memory, with one bridge "br0" of 8 port slots, and calls by function id as a
// management client makes them.
#ifndef TESTS_SUPPORT_API_FIXTURE_H
#define TESTS_SUPPORT_API_FIXTURE_H

#include "pppoeia/api/table.h"
#include "tests/support/fake_kernel.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class api_fixture {
public:
  api_fixture();
  ~api_fixture();

  // Adds port `id`: device "dev<id>", name "port<id>".
  static void port_add(uint32_t id, const char* type = "eth", uint32_t kind = 0, uint32_t parent = 0);

  fake_kernel kernel;
};

// One call through the dispatcher, its buffers laid out as the server does.
struct api_call {
  explicit api_call(uint16_t function_id) : id(function_id) {}
  explicit api_call(std::string_view operation) : id(static_cast<uint16_t>(api::operation_id(operation))) {}

  api_call& bytes(std::string raw);
  api_call& text(const std::string& value) { return bytes(value + '\0'); }
  api_call& u32(uint32_t value) { return bytes(std::string(reinterpret_cast<const char*>(&value), sizeof value)); }
  api_call& u16(uint16_t value) { return bytes(std::string(reinterpret_cast<const char*>(&value), sizeof value)); }
  api_call& room(size_t size) { return bytes(std::string(size, '\0')); }

  // Runs it; `status`, `result` and `arguments` tell the outcome. Returns the operation's result.
  int32_t run();

  uint16_t id;
  std::vector<std::string> arguments;
  int32_t status = -99;
  int32_t result = 0;
  bool has_result = false;
};

#endif
