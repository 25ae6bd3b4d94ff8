// The frame path beside its model: random bridges and records, and everything that can be seen compared: bytes sent,
// what is told of the record, counters, log lines with level and order. A difference is shown by the shortest record
// that has it. Usage: frame_differential [SEED [SECONDS]]; by default a seed of its own for 2 seconds.
#include "fuzz/frames/frame_model.h"
#include "pppoeia/kernel/frame_buffers.h"
#include "pppoeia/log.h"
#include "tests/support/records_fixture.h"
#include "tests/support/syslog_capture.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

namespace {

using rng = std::mt19937_64;

unsigned below(rng& random, unsigned bound)
{
  return static_cast<unsigned>(random() % bound);
}

template <typename T>
T one_of(rng& random, std::initializer_list<T> values)
{
  return *(values.begin() + below(random, static_cast<unsigned>(values.size())));
}

model::bytes random_bytes(rng& random, unsigned most)
{
  model::bytes some(below(random, most + 1));
  for (unsigned char& byte : some)
    byte = static_cast<unsigned char>(below(random, 4) ? below(random, 256) : 0);
  return some;
}

model::identifier random_identifier(rng& random)
{
  model::identifier id;
  id.text.assign(below(random, 4) ? below(random, 20) : below(random, 90), 'x');
  if (below(random, 4) == 0)
    id.binary = random_bytes(random, 80);
  return id;
}

model::world random_world(rng& random)
{
  model::world w;
  w.bridge = one_of(random, {"br0", "tencharact"});
  w.off = below(random, 50) == 0;
  w.stag = one_of(random, {0x88a8u, 0x8100u, 0x9100u, 0x8863u});
  w.vlans = {0, below(random, 4096), 7};
  w.vendor_tag_mode = below(random, 3);
  w.circuit_wanted = below(random, 5) != 0;
  w.remote_wanted = below(random, 5) != 0;
  w.largest = below(random, 4) ? 1500 : below(random, 200);
  w.longest_record = below(random, 8) ? 1606 : 100 + below(random, 150);
  for (int i = 0; i < 4; ++i)
    w.ports.push_back({below(random, 10) != 0, static_cast<int>(below(random, 5)) - 1,
                       static_cast<int>(below(random, 3)), below(random, 8)});
  w.circuit = random_identifier(random);
  w.remote = random_identifier(random);
  if (below(random, 300) == 0)
    w.longest_record = w.largest = 66000;
  if (below(random, 8))
    w.own_address = {2, 0, 0x5e, 1, 2, 3};
  return w;
}

void put16(model::bytes& to, unsigned value)
{
  to.push_back(static_cast<unsigned char>(value >> 8));
  to.push_back(static_cast<unsigned char>(value));
}

// The length of the value of the agent's own vendor tag.
size_t own_value(const model::world& w)
{
  size_t own = 4;
  for (const auto& [id, wanted] : {std::pair(&w.circuit, w.circuit_wanted), std::pair(&w.remote, w.remote_wanted)})
    if (wanted)
      own += 2 + std::min<size_t>(id->binary.empty() ? id->text.size() : id->binary.size(), 63);
  return own;
}

// About as long as the agent's own would be.
model::bytes vendor_value(rng& random, const model::world& w)
{
  return model::bytes(std::max<size_t>(own_value(w) + below(random, 5) - 2, 4));
}

void add_tag(rng& random, const model::world& w, model::bytes& to)
{
  if (below(random, 10) == 0) {
    const model::bytes value = vendor_value(random, w);
    put16(to, 0x0105);
    put16(to, static_cast<unsigned>(value.size()));
    put16(to, 0);
    put16(to, 3561);
    to.insert(to.end(), value.begin() + 4, value.end());
    return;
  }
  const model::bytes value = random_bytes(random, below(random, 6) ? 12 : 300);
  put16(to, one_of(random, {0u, 0x0101u, 0x0102u, 0x0103u, 0x0104u, 0x0105u, 0x0105u, 0x0110u, 0x0201u, 0x0202u,
                            0x0203u, below(random, 65536)}));
  const unsigned size = static_cast<unsigned>(value.size());
  put16(to, below(random, 5) ? size
                             : one_of(random, {0u, size + 1, size - 1, size + 4, below(random, 65536), 65535u,
                                               size + below(random, 40)}));
  to.insert(to.end(), value.begin(), value.end());
}

model::bytes random_record(rng& random, const model::world& w)
{
  model::bytes r(kernel_header::size);
  for (size_t i = kernel_header::vlan_word; i < kernel_header::cvlan_word + 2; ++i)
    r[i] = static_cast<unsigned char>(random());
  r[kernel_header::input_port] = static_cast<unsigned char>(below(random, 6));
  if (below(random, 20) == 0)
    r[kernel_header::input_port + 1] = 1;
  std::strcpy(reinterpret_cast<char*>(&r[kernel_header::input_device]), "in0");
  std::strcpy(reinterpret_cast<char*>(&r[kernel_header::output_device]), "out0");
  if (below(random, 20) == 0)
    std::memset(&r[kernel_header::input_device], 'n', 32);
  for (int i = 0; i < 12; ++i)
    r.push_back(static_cast<unsigned char>(random()));
  for (unsigned depth = below(random, 5); depth > 0; --depth) {
    put16(r, one_of(random, {0x8100u, w.stag, 0x8100u, 0x88a8u}));
    put16(r, one_of(random, {0u, 7u, below(random, 65536)}));
  }
  put16(r, below(random, 30) ? 0x8863 : below(random, 65536));
  r.push_back(below(random, 9) ? 0x11 : static_cast<unsigned char>(random()));
  r.push_back(static_cast<unsigned char>(
      one_of(random, {0x09u, 0x19u, 0x09u, 0x19u, 0x07u, 0x65u, 0xa7u, below(random, 256)})));
  put16(r, below(random, 65536));
  const size_t length_place = r.size();
  put16(r, 0);
  const bool large = w.longest_record > 60000;
  if (large) {  // a payload around half of what its length can say, and around all of it, before or behind the change
    const size_t header = 4, own = below(random, 4) ? header + own_value(w) : 0;
    const size_t most = one_of(random, {32767u, 65535u, 65535u, 65535u}) - header - own;
    const model::bytes value(most - below(random, below(random, 8) ? 3 : 80));
    put16(r, 0x0104);
    put16(r, static_cast<unsigned>(value.size()));
    r.insert(r.end(), value.begin(), value.end());
  }
  for (unsigned tags = large ? below(random, 4) / 3 : below(random, 5); tags > 0; --tags)
    add_tag(random, w, r);
  size_t payload = r.size() - length_place - 2;
  if (below(random, 3) == 0)
    payload = below(random, static_cast<unsigned>(payload) + (below(random, 8) ? 1 : 20));
  r[length_place] = static_cast<unsigned char>(payload >> 8);
  r[length_place + 1] = static_cast<unsigned char>(payload);
  if (below(random, 3) == 0)
    add_tag(random, w, r);       // behind the end
  if (below(random, 25) == 0) {  // a vendor tag behind an empty payload, whole or not
    r[length_place] = r[length_place + 1] = 0;
    const unsigned char tag[] = {0x01, 0x05, static_cast<unsigned char>(random()),
                                 static_cast<unsigned char>(random())};
    r.resize(length_place + 2);
    r.insert(r.end(), tag, tag + below(random, 5));
  }
  if (below(random, 25) == 0)
    r.resize(below(random, static_cast<unsigned>(r.size())) + 1);
  if (below(random, 12) == 0 && r.size() > 110)
    r[kernel_header::size + below(random, static_cast<unsigned>(r.size() - kernel_header::size))] =
        static_cast<unsigned char>(random());
  const uint32_t length = static_cast<uint32_t>(r.size()) + (below(random, 40) == 0);
  if (r.size() >= 52)
    host_put(r, kernel_header::record_length, length);
  return r;
}

// The largest PDU that this record is allowed, or one byte more or less, as it came or with the agent's tag.
unsigned largest_about(rng& random, const model::world& w, const model::bytes& record)
{
  const size_t own = below(random, 2) ? 4 + own_value(w) : 0, size = record.size() + own + 1;
  return static_cast<unsigned>(size - std::min(size, kernel_header::size + below(random, 3)));
}

class given_identifiers : public identifier_source {
public:
  explicit given_identifiers(const model::world& w) : w_(w) {}
  void circuit_id(pppoeia_bridge&, pppoeia_port& port, uint16_t vid, identifier& id) override
  {
    give(w_.circuit, port, vid, id);
  }
  void remote_id(pppoeia_bridge&, pppoeia_port& port, uint16_t vid, identifier& id) override
  {
    give(w_.remote, port, vid, id);
  }

  std::vector<std::pair<unsigned, unsigned>> asked;  // port and VLAN

private:
  void give(const model::identifier& from, const pppoeia_port& port, uint16_t vid, identifier& to)
  {
    asked.emplace_back(port.port_id, vid);
    if (!from.text.empty())
      std::strcpy(to.text, from.text.c_str());
    to.bin.insert(to.bin.end(), from.binary.begin(), from.binary.end());
  }
  const model::world& w_;
};

std::optional<std::array<unsigned char, 6>> own_address;
int address_get(unsigned char mac[6])
{
  if (!own_address)
    return -1;
  std::copy(own_address->begin(), own_address->end(), mac);
  return 0;
}

const char* counted(const pppoeia_stats& stats)
{
  const std::pair<uint32_t, const char*> all[] = {{stats.padi, "padi"},
                                                  {stats.padr, "padr"},
                                                  {stats.pado, "pado"},
                                                  {stats.pads, "pads"},
                                                  {stats.padt, "padt"},
                                                  {stats.dropped, "dropped"},
                                                  {stats.unknown_code, "unknown"},
                                                  {stats.malformed, "malformed"},
                                                  {stats.unchanged, "unchanged"}};
  const char* name = "";
  for (const auto& [count, which] : all)
    if (count != 0)
      name = count == 1 && !*name ? which : "several";
  return name;
}

// What the agent makes of it.
model::outcome agent(const model::world& w, const model::bytes& record, model::bytes& buffer)
{
  test_bridge bridge(static_cast<uint32_t>(w.ports.size()), w.bridge.c_str());
  bridge->disabled = w.off;
  bridge->stag_ethertype = static_cast<uint16_t>(w.stag);
  bridge->vlan_enabled = {};
  for (const unsigned vid : w.vlans)
    bridge->vlan_enabled.set(static_cast<uint16_t>(vid));
  bridge->vsa_mode = static_cast<int>(w.vendor_tag_mode);
  bridge->vsa_insert_circuit_id = w.circuit_wanted;
  bridge->vsa_insert_remote_id = w.remote_wanted;
  bridge->max_pdu = w.largest;
  bridge->buffer_size = static_cast<uint32_t>(w.longest_record);
  for (uint32_t i = 0; i < w.ports.size(); ++i)
    if (w.ports[i].present)
      bridge.port(i + 1, w.ports[i].side, static_cast<uint32_t>(w.ports[i].trust)).port_info_extra = w.ports[i].kind;
  own_address = w.own_address;
  const size_t room = std::max<size_t>(record.size() + frame_growth_max, frame_capacity_min);
  constexpr int behind = 200;  // bytes that are nobody's
  std::copy(record.begin(), record.end(), buffer.begin());
  const auto end = buffer.begin() + static_cast<std::ptrdiff_t>(room);
  std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(record.size()), end, 0);
  std::fill_n(end, behind, 0x5a);
  constexpr uint32_t no_port = UINT32_MAX;
  bridge->cur_port = no_port;
  given_identifiers identifiers(w);
  frame_services services{identifiers, address_get, {"of a frame before", {1, 2, 3}}, {"and another", {4}}};
  syslog_take();
  const frame_result result = frame_process(
      *bridge, {buffer.data(), static_cast<uint32_t>(record.size()), static_cast<uint32_t>(room)}, services);
  model::outcome seen;
  seen.branch = std::count(end, end + behind, 0x5a) == behind ? words_of(result.what).name : "an overflow";
  seen.told = {result.port, result.vid, result.code, result.of_subscriber, result.ethertype, result.vendor_tag};
  seen.sent.assign(buffer.begin(), buffer.begin() + result.length);
  seen.counted = counted(bridge->stats);
  seen.kept = {bridge->frame_client_mac, bridge->frame_vlan_words,
               bridge->cur_port == no_port ? 0 : bridge->cur_port + 1, identifiers.asked};
  for (uint32_t i = 0; i < w.ports.size(); ++i) {
    const pppoeia_stats none{};
    if (std::memcmp(&bridge->port[i].stats, &none, sizeof none) != 0 &&
        std::memcmp(&bridge->port[i].stats, &bridge->stats, sizeof none) != 0)
      seen.counted = "unlike";
  }
  for (const syslog_line& line : syslog_take())
    seen.log.push_back({line.priority, line.text});
  for (auto& line : seen.log)
    line.text.erase(0, std::strlen("[PPPoE] "));
  return seen;
}

std::string difference(const model::outcome& seen, const model::outcome& said)
{
  if (seen.sent != said.sent) {
    std::string text =
        "sent: " + std::to_string(seen.sent.size()) + " bytes instead of " + std::to_string(said.sent.size());
    for (size_t i = 0; i < std::min(seen.sent.size(), said.sent.size()); ++i)
      if (seen.sent[i] != said.sent[i])
        return text + ", first difference at " + std::to_string(i);
    return text;
  }
  if (seen.branch != said.branch)
    return "told that it is " + seen.branch;
  if (seen.told != said.told)
    return "told of port, VLAN, code, side, or of the places of EtherType or vendor tag";
  if (seen.kept != said.kept)
    return "kept client, tag words, port, or what identifiers were asked for";
  if (seen.counted != said.counted)
    return "counted " + seen.counted + " instead of " + said.counted;
  for (size_t i = 0; i < std::max(seen.log.size(), said.log.size()); ++i) {
    const std::string a = i < seen.log.size() ? seen.log[i].text : "nothing";
    const std::string b = i < said.log.size() ? said.log[i].text : "nothing";
    const int level = i < said.log.size() ? std::min(said.log[i].level, 6) : -1;
    if (a != b || seen.log[i].level != level)
      return "log line " + std::to_string(i) + ":\n  seen " + a + "\n  said " + b;
  }
  return "";
}

// What differs between agent and model for this record; empty when nothing does.
std::string judge(const model::world& w, const model::bytes& record, std::string& branch)
{
  static model::bytes buffer(70000);
  const model::outcome seen = agent(w, record, buffer);
  model::outcome said = model::frame(w, record, reinterpret_cast<uintptr_t>(buffer.data()));
  std::erase_if(said.log, [](const auto& line) { return line.level > pppoeia_log_level; });
  branch = said.branch;
  return difference(seen, said);
}

// The record without as many of its bytes as can go, in some seconds, while it still makes a difference.
model::bytes shortest(const model::world& w, model::bytes record)
{
  std::string ignored;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (size_t step = record.size() / 2; step > 0; step /= 2)
    for (size_t at = record.size(); at >= kernel_header::size + step && std::chrono::steady_clock::now() < limit;
         at -= step) {
      const auto end = record.begin() + static_cast<std::ptrdiff_t>(at);
      model::bytes shorter(record.begin(), end - static_cast<std::ptrdiff_t>(step));
      shorter.insert(shorter.end(), end, record.end());
      const auto length = static_cast<uint32_t>(shorter.size());
      host_put(shorter, kernel_header::record_length, length);
      if (!judge(w, shorter, ignored).empty())
        record = std::move(shorter);
    }
  return record;
}

void show(const model::world& w, const model::bytes& record)
{
  std::string branch;
  const model::bytes small = shortest(w, record);
  const std::string what = judge(w, small, branch);
  std::printf("the model's branch '%s': %s\nfrom offset 107:", branch.c_str(), what.c_str());
  for (size_t i = kernel_header::size; i < small.size(); ++i)
    std::printf(" %02x", small[i]);
  std::printf("\n");
}

}  // namespace

int main(int argc, char** argv)
{
  const unsigned long long seed = argc > 1 ? std::strtoull(argv[1], nullptr, 0) : std::random_device{}();
  const int seconds = argc > 2 ? std::atoi(argv[2]) : 2;
  std::printf("seed %llu\n", seed);
  rng random(seed);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  unsigned long count = 0;
  for (std::string branch; std::chrono::steady_clock::now() < end; ++count) {
    model::world w = random_world(random);
    const model::bytes record = random_record(random, w);
    if (below(random, 6) == 0)
      w.largest = largest_about(random, w, record);
    pppoeia_log_level = below(random, 4) ? log_debug : log_info;
    if (judge(w, record, branch).empty())
      continue;
    std::printf("record %lu: ", count);
    show(w, record);
    return 1;
  }
  std::printf("%lu records alike\n", count);
}
