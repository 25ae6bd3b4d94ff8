// Random sequences of calls over all function ids and beyond, with hostile arguments and broken packets, while frames
// flow through the bridges. It passes when nothing crashes, hangs or upsets a sanitizer, and the agent still works.
//
// Usage: hostile_calls [SEED [SECONDS]]; by default seed 1 for 3 seconds.
#include "platform/ippc/dispatch.h"
#include "pppoeia/api/table.h"
#include "pppoeia/log.h"
#include "pppoeia/operations/dispatcher.h"
#include "pppoeia/pppoeia.h"
#include "pppoeia/records.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/records_fixture.h"
#include "tests/support/syslog_capture.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sys/socket.h>

namespace {

using packet = std::vector<unsigned char>;

class generator {
public:
  explicit generator(unsigned seed) : random_(seed) {}

  unsigned below(unsigned bound) { return static_cast<unsigned>(random_() % bound); }
  bool one_in(unsigned n) { return below(n) == 0; }

  std::string bytes(size_t most)
  {
    std::string raw(below(static_cast<unsigned>(most) + 1), '\0');
    for (char& c : raw)
      c = static_cast<char>(random_());
    return raw;
  }

  std::string bridge()
  {
    static const char* const names[] = {"br0", "br1", "br2", "br0", "br0", "none", "", "eleven char", "a/b"};
    return terminated(names[below(std::size(names))]);
  }

  std::string text()
  {
    static const char* const texts[] = {
        "",          "$PORT", "$hVLAN$0a0bHEX",     "$d-CLNT_MAC $PORT_REM_ID",   "$zPORT", "eth", "pppoeiaTestRunCid",
        "available", "test",  "pppoeiaTestSetVlan", "pppoeiaTestSetCustomCidStr", "%s%n%s"};
    return one_in(3) ? bytes(one_in(10) ? 4096 : 140) : terminated(texts[below(std::size(texts))]);
  }

  std::string terminal()
  {
    static const char* const paths[] = {"", "/dev/null", "/nonexistent/tty", "/tmp", "/dev/full"};
    return one_in(10) ? std::string(4096, '/') : terminated(paths[below(std::size(paths))]);
  }

  std::string number(size_t size)
  {
    const uint32_t value = one_in(4) ? static_cast<uint32_t>(random_()) : below(12);
    return one_in(20) ? bytes(8) : std::string(reinterpret_cast<const char*>(&value), size);
  }

  // An argument of that kind, mostly of its right shape.
  std::string argument(const api::argument& argument)
  {
    if (one_in(30))
      return bytes(600);
    switch (argument.what) {
    case api::kind::name:
      return bridge();
    case api::kind::text:
      return text();
    case api::kind::tty:
      return terminal();
    case api::kind::u16:
      return number(2);
    case api::kind::u32:
    case api::kind::i32:
    case api::kind::unused:
      return number(4);
    default:
      return api::is_output(argument.what) ? std::string(one_in(8) ? below(4) : argument.size, '\xee') : bytes(60);
    }
  }

  packet call()
  {
    const auto id = static_cast<uint16_t>(one_in(50) ? below(65536) : below(90));
    std::vector<std::string> arguments;
    if (id < api::operations.size())
      for (const api::argument& one : api::operations[id].arguments())
        arguments.push_back(argument(one));
    if (one_in(40))
      arguments.push_back(bytes(20));
    return encode(id, arguments);
  }

  packet broken(packet bytes)
  {
    for (unsigned hits = below(4); hits > 0 && !bytes.empty(); --hits)
      bytes[below(static_cast<unsigned>(bytes.size()))] = static_cast<unsigned char>(random_());
    if (one_in(2))
      bytes.resize(below(static_cast<unsigned>(bytes.size()) + 20));
    return bytes;
  }

  byte_string record()
  {
    test_frame frame;
    const uint8_t codes[] = {0x09, 0x19, 0x07, 0x65, 0xa7, 0x42};
    frame.code = codes[below(std::size(codes))];
    frame.port = static_cast<uint16_t>(below(9));
    if (one_in(3))
      frame.tags.push_back({0x0105, bytes(60)});
    if (one_in(3))
      frame.vlan_tags = {0x8100'0000u | below(65536)};
    byte_string raw = frame.build();
    if (one_in(4))
      raw[kernel_header::size + below(static_cast<unsigned>(raw.size() - kernel_header::size))] =
          static_cast<unsigned char>(random_());
    return raw;
  }

private:
  static std::string terminated(const char* text) { return std::string(text, std::strlen(text) + 1); }

  static packet encode(uint16_t id, const std::vector<std::string>& arguments)
  {
    std::vector<const_bytes> views;
    for (const std::string& one : arguments)
      views.emplace_back(reinterpret_cast<const unsigned char*>(one.data()), one.size());
    packet bytes;
    ippc::request_encode(id, 1, views, bytes);
    return bytes;
  }

  std::mt19937 random_;
};

uint16_t id_of(const packet& request)
{
  ippc::request decoded;
  ippc::request_decode(request, decoded);
  return decoded.function_id;
}

// Ends and beginnings are rare, or nothing else would happen; each abandoned state keeps its workers.
bool wanted(generator& random, const packet& request, unsigned& again)
{
  const uint16_t id = id_of(request);
  if (id == 0 && pppoeia_globals.load())
    return again < 5 && random.one_in(500) && ++again;
  if (id == 1 || id == 7)
    return random.one_in(20);
  // A bridge of very many ports is an allocation of megabytes.
  return id != 6 || random.one_in(4);
}

// Sends frames to the bridges that there are, and takes what they gave back.
unsigned traffic(const fake_kernel& node, generator& random)
{
  unsigned back = 0;
  for (const char* device : {"br0_pppoe", "br1_pppoe"}) {
    const int wire = node.wire(device);
    if (wire < 0)
      continue;
    const byte_string record = random.record();
    send(wire, record.data(), record.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    unsigned char buffer[4096];
    while (recv(wire, buffer, sizeof buffer, MSG_DONTWAIT) > 0)
      ++back;
  }
  return back;
}

bool still_works()
{
  if (!pppoeia_globals.load() && pppoeia_init() != 0)
    return false;
  int32_t level = 0;
  return pppoeia_log_level_set(6) == 0 && pppoeia_log_level_get(&level) == 0 && level == 6;
}

}  // namespace

int main(int argc, char** argv)
{
  const unsigned seed = argc > 1 ? static_cast<unsigned>(std::atol(argv[1])) : 1;
  const double seconds = argc > 2 ? std::atof(argv[2]) : 3;
  if (!std::freopen("/dev/null", "w", stdout))  // the macro language's trace may be switched on
    return 1;
  fake_kernel& node = *new fake_kernel;  // abandoned workers use it to the very end
  syslog_keep(false);
  generator random(seed);
  ippc::dispatch dispatch(pppoeia_ippc_dispatcher);
  pppoeia_init();
  unsigned again = 0;
  uint64_t calls = 0;
  uint64_t frames = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end) {
    const packet request = random.one_in(30) ? random.broken(random.call()) : random.call();
    if (!wanted(random, request, again))
      continue;
    dispatch.run(request);
    ++calls;
    frames += traffic(node, random);
  }
  const bool works = still_works();
  std::fprintf(stderr, "seed %u: %llu calls, %llu frames came back, the agent %s\n", seed,
               static_cast<unsigned long long>(calls), static_cast<unsigned long long>(frames),
               works ? "works" : "does not work any more");
  if (pppoeia_globals.load())
    pppoeia_fini();
  return works && calls > 100 && frames > 0 ? 0 : 1;
}
