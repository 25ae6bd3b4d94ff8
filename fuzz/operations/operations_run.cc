#include "fuzz/operations/operations_run.h"

#include "fuzz/operations/operations_agent.h"
#include "pppoeia/api/table.h"

#include <algorithm>
#include <cstdlib>
#include <unistd.h>

namespace operations {
namespace {

// --- making ----------------------------------------------------------------------------------------------------------

string raw(uint64_t value, size_t size)
{
  string text;
  for (; size > 0; --size, value >>= 8)
    text += static_cast<char>(value);
  return text;
}

// An empty file of this process. Arguments are cut at random: nobody has a file whose name begins like this one's.
const string& terminal()
{
  struct file {
    string path = "/tmp/~operations.XXXXXX";
    file() { close(mkstemp(path.data())); }
    ~file() { unlink(path.c_str()); }
  };
  static const file made;
  return made.path;
}

string bridge_name(chooser& choose)
{
  return choose.below(12) ? "br0"
                          : choose.one_of({"br1", "br1", "tencharact", "br2", "none", "", "elevenchars", "a/b"});
}

unsigned port_id(chooser& choose)
{
  return choose.below(12) ? choose.one_of({1u, 1u, 1u, 2u, 2u, 3u})
                          : choose.one_of({0u, 4u, 5u, 6u, 7u, 8u, 9u, 65535u, 0x10001u, 0xffffffffu});
}

unsigned vlan_id(chooser& choose)
{
  return choose.below(6) ? choose.one_of({7u, 100u, 100u, 101u})
                         : choose.one_of({0u, 1u, 511u, 512u, 4094u, 4095u, 4096u, 4196u, 8191u, 65535u});
}

unsigned some_number(chooser& choose)
{
  return choose.below(5) ? choose.below(4)
                         : choose.one_of({5u, 6u, 7u, 99u, 60u, 200u, 1499u, 1500u, 1501u, 9000u, 65535u, 0x7fffffffu,
                                          0x80000000u, 0xfffffffeu, 0xffffffffu});
}

string some_text(chooser& choose, size_t most)
{
  static const std::initializer_list<const char*> texts = {"",
                                                           "",
                                                           "a",
                                                           "some text",
                                                           "$PORT",
                                                           "$hVLAN$0a0bHEX",
                                                           "$z3PORT:$VLAN/$CVID",
                                                           "$SHELF$CHASSIS$PANEL$INTF_TYPE$AGENT_BOARD",
                                                           "$BOARD.$PORT.$PORT_REM_ID.$INTF.$INTF_DSCR",
                                                           "$ONU.$VGEM.$TCONT.$PVC_INTF",
                                                           "$VPI/$VCI/$CLNT_MAC/$AGENT_MAC",
                                                           "$AGENT_IPV4 $AGENT_IPV6 $VLAN_NAME",
                                                           "$SYSNAME$LOCATION$CONTACT$HEX",
                                                           "$CPE_SERIAL,$CPE_MAC,$hPORT",
                                                           "$d-CLNT_MAC$zPORT",
                                                           "%s%n%d",
                                                           "\xff\x01\n"};
  if (choose.one_in(40))  // log lines about as long as the buffer that they are made in
    return string(choose.below(2) ? 900 + choose.below(120) : 4095, 'l');
  switch (choose.below(6)) {
  case 0:
    return string(most, 'm');
  case 1:
    return string(most + 1, 'o');
  case 2: {
    const char letter = static_cast<char>('a' + choose.below(26));
    return string(choose.below(static_cast<unsigned>(most) + 2), letter);
  }
  default:
    return choose.one_of(texts);
  }
}

// Choices are taken one in a statement: their order must not depend on the compiler.
string location(chooser& choose)
{
  string text = raw(choose.below(4), 4);
  text += choose.one_of({"P1", "", "8 chars."});
  text.resize(12);
  for (int number = 0; number < 3; ++number)
    text += raw(some_number(choose), 4);
  return text + raw(0, 4);
}

string port_information(chooser& choose)
{
  string info = raw(choose.below(3) ? choose.below(4) : some_number(choose), 4);
  info += choose.one_of({"eth", "atm", "atm", "onu", "gem", "", "tencharact", "twelve chars", "at", "atmx"});
  info.resize(16);
  info += raw(choose.below(8), 4);
  info += location(choose);
  return info;
}

string word_of(chooser& choose, api::values words)
{
  if (choose.one_in(20))
    return "pppoeiaTest";
  if (words == api::values::test_run)
    return choose.one_of({"pppoeiaTestRunCid", "pppoeiaTestRunRid", "test", "available"});
  return string("pppoeiaTestSet") + choose.one_of({"Vlan", "Cvid", "IntfId", "Onu", "Vgem", "TContType", "ClntMac",
                                                   "CustomCidStr", "CustomRidStr", "CustomCidStr"});
}

// An argument of that kind, mostly of its right shape.
string argument_make(chooser& choose, const api::argument& wanted)
{
  string text;
  switch (wanted.what) {
  case api::kind::name:
    text = bridge_name(choose) + '\0';
    break;
  case api::kind::text:
    if (wanted.words != api::values::none)
      text = word_of(choose, wanted.words);
    else if (wanted.name == "value" && choose.below(2))
      text = choose.one_of({"1", "2", "3", "7", "010", "0x1f", "4094", "65637", "-1", "4294967297", " 9", "x",
                            "00:11:22:aa:bb:CC", "00:11:22:aa:bb:cg", "00:11:22:aa:bb:cc:dd", "00-11-22-aa-bb-cc"});
    else if (wanted.name != "format" || choose.below(4))
      text = some_text(choose, wanted.size);
    text += '\0';
    break;
  case api::kind::tty:
    text = (choose.below(50) ? choose.below(12) ? "/console" : "" : terminal()) + '\0';
    break;
  case api::kind::u16:
    text = raw(vlan_id(choose), 2);
    break;
  case api::kind::u32:
  case api::kind::i32:
  case api::kind::unused:
    text = raw(wanted.name == "port" || wanted.name == "port-selector" ? port_id(choose) : some_number(choose), 4);
    if (wanted.name == "max-pdu")
      text = raw(choose.one_of({1500u, 1500u, 1501u, 1499u, 200u, 201u, 9000u, 9001u, 100u, 0u, 0xffffffffu}), 4);
    if (wanted.name == "mode")
      text = raw(choose.one_of({0u, 1u, 2u, 2u, 2u, 3u, 0xffffffffu, 0xffffffffu, 0xfffffffeu}), 4);
    if ((wanted.name == "vpi" || wanted.name == "vci") && choose.below(2))
      text = raw(0xffffffffu, 4);  // unset
    if (wanted.name == "ports")
      text = raw(choose.below(12) ? 2 + choose.below(6) : choose.one_of({0u, 1u, 65536u, 65537u}), 4);
    break;
  case api::kind::mac:
    text = raw(0x665544332211u + choose.below(256), 6);
    break;
  case api::kind::port_info:
    text = port_information(choose);
    break;
  case api::kind::name_update:
    text = location(choose);
    break;
  default:
    text = string(choose.below(8) ? 300 : choose.below(wanted.size), '~');
    if (choose.one_in(4) && !text.empty())  // what stands behind its end stays, too, when nothing is answered
      text[choose.below(static_cast<unsigned>(text.size()))] = '\0';
  }
  if (choose.one_in(40) && wanted.what != api::kind::out_entry)
    text.resize(choose.below(static_cast<unsigned>(text.size()) + 1));
  return text;
}

// Something that the kernel is asked, while the agent begins or a bridge is made, fails.
void failure_add(chooser& choose, step& one)
{
  const string name = one.arguments.empty() ? "" : one.arguments[0].c_str();
  const string device = (name + "_pppoe").substr(0, 15), control = "/proc/net/kvbridge/" + name + "/bridge";
  const string of_modules = choose.one_of<string>({"open /proc/net/mng/config", "open /proc/net/kvbridge/config",
                                                   "control /proc/net/mng/config 0x80046d02",
                                                   "control /proc/net/kvbridge/config 0x80047a05"});
  const string of_bridge = choose.one_of<string>(
      {"open /proc/net/mng/config", "open " + control, "control " + control + " 0x80047a06",
       "control /proc/net/mng/config 0x40046d00 " + device, "datagram socket", "flags of " + device,
       "flags of " + device + ": 1", "control " + control + " 0x40047ac8 pppoe " + device, "packet socket",
       "index of " + device, "nonblocking packet socket", "bind packet socket", "mtu of " + device});
  one.failing[one.id == 0 ? of_modules : of_bridge] = choose.one_of({5, 17});
}

// Half of a sequence's calls are of its few favourites, so that what takes several to come about does.
step call_make(chooser& choose, const std::vector<unsigned>& favourites)
{
  step one;
  one.id = choose.below(2) ? favourites[choose.below(static_cast<unsigned>(favourites.size()))]
                           : choose.below(static_cast<unsigned>(api::operations.size()));
  if ((one.id <= 1 || one.id == 7 || one.id == 17 || one.id == 2) && choose.below(8))
    one.id = choose.one_of({29u, 41u, 68u, 69u, 56u, 58u});
  if (choose.one_in(300))
    one.id = choose.one_of({89u, 90u, 65535u});
  if (one.id >= api::operations.size())
    return one;
  for (const api::argument& wanted : api::operations[one.id].arguments())
    one.arguments.push_back(argument_make(choose, wanted));
  if ((one.id <= 1 || one.id == 6) && choose.one_in(3))
    failure_add(choose, one);
  if (choose.one_in(100))
    one.arguments.resize(choose.below(7));
  one.anonymous = choose.one_in(30);
  return one;
}

void put16(bytes& to, unsigned value)
{
  to.push_back(static_cast<unsigned char>(value >> 8));
  to.push_back(static_cast<unsigned char>(value));
}

// A discovery frame as a line has it; hostile ones are the frame path's own.
step frame_make(chooser& choose)
{
  step one;
  one.bridge = choose.one_of({"br0", "br0", "br0", "br1", "tencharact"});
  bytes& r = one.record;
  r.resize(107);
  const unsigned vid = vlan_id(choose), cvid = choose.one_of({4095u, 4095u, 4094u, 5u, 0x1fffu});
  r[4] = static_cast<unsigned char>(vid >> 8);
  r[5] = static_cast<unsigned char>(vid);
  r[6] = static_cast<unsigned char>(cvid >> 8);
  r[7] = static_cast<unsigned char>(cvid);
  r[52] = static_cast<unsigned char>(port_id(choose));
  std::copy_n("in0", 3, &r[74]);
  std::copy_n("out0", 4, &r[90]);
  for (unsigned i = 0; i < 12; ++i)
    r.push_back(static_cast<unsigned char>(16 * i + choose.below(2)));
  if (choose.below(4)) {
    put16(r, choose.one_of({0x8100u, 0x88a8u}));
    put16(r, vid);
  }
  put16(r, choose.below(20) ? 0x8863 : 0x8864);
  put16(r, 0x1100 + choose.one_of({0x09u, 0x19u, 0x09u, 0x07u, 0x65u, 0xa7u, 0x42u}));
  put16(r, 0);
  bytes tags{1, 1, 0, 0};
  if (choose.one_in(3)) {
    const bytes vendor{1, 5, 0, 6, 0, 0, 0x0d, 0xe9, 1, 0};
    tags.insert(tags.end(), vendor.begin(), vendor.end());
  }
  put16(r, static_cast<unsigned>(tags.size()) + (choose.one_in(20) ? 1 : 0));
  r.insert(r.end(), tags.begin(), tags.end());
  r[48] = static_cast<unsigned char>(r.size() + choose.one_in(40));
  return one;
}

step plain(unsigned id, std::vector<string> arguments)
{
  step one;
  one.id = id;
  one.arguments = std::move(arguments);
  return one;
}

step port_add(chooser& choose, unsigned id)
{
  return plain(29,
               {"br0", raw(id, 4), "dev" + std::to_string(id), "0/" + std::to_string(id), port_information(choose)});
}

void move(chooser& choose, std::vector<step>& steps)
{
  const unsigned id = port_id(choose);
  steps.push_back(plain(30, {"br0", raw(id, 4)}));
  steps.push_back(port_add(choose, id));
}

// A bridge with lines, VLANs and entries, mostly open for frames.
void begin(chooser& choose, std::vector<step>& steps)
{
  if (choose.below(2)) {
    steps.push_back(plain(0, {}));
    failure_add(choose, steps.back());
  }
  steps.push_back(plain(0, {}));
  const string odd = choose.one_of({"tencharact", "tencharact", "tencharact", "elevenchars", "a/b"});
  const unsigned odd_ports = choose.one_in(40) ? 65536 : choose.one_of({0u, 1u, 3u, 65537u});
  steps.push_back(plain(6, {odd, raw(odd_ports, 4)}));
  if (odd_ports == 65536)  // too large to stay
    steps.push_back(plain(7, {odd}));
  for (unsigned tries = choose.below(4); tries > 0; --tries) {
    steps.push_back(plain(6, {"br0", raw(choose.below(9), 4)}));
    failure_add(choose, steps.back());
  }
  steps.push_back(plain(6, {"br0", raw(2 + choose.below(6), 4)}));
  if (choose.one_in(2))
    steps.push_back(plain(7, {odd}));
  for (unsigned id = choose.below(6); id > 0; --id)
    steps.push_back(port_add(choose, id));
  if (choose.below(3)) {
    steps.push_back(plain(13, {"br0", raw(1, 4)}));
    steps.push_back(plain(32, {"br0", raw(1 + choose.below(3), 4)}));
  }
  if (choose.one_in(3)) {
    const uint32_t vpi = choose.one_of({0xffffffffu, 8u}), vci = choose.one_of({0xffffffffu, 35u});
    steps.push_back(plain(47, {"br0", raw(1, 4), raw(vpi, 4), raw(vci, 4)}));
  }
  for (const unsigned vlan : {7u, 100u, 101u}) {
    if (choose.below(2))
      steps.push_back(plain(79, {"br0", raw(vlan, 2)}));
    for (const unsigned format_set : {58u, 60u})
      if (choose.one_in(3))
        steps.push_back(
            plain(format_set, {"br0", raw(1, 4), raw(vlan, 2), choose.one_of({"$PORT", "$PORT", "$VPI/$VCI"})}));
  }
}

// --- comparing -------------------------------------------------------------------------------------------------------

// For people: many of one character are counted.
string quoted(const string& text)
{
  string out;
  for (size_t i = 0; i < text.size();) {
    const size_t same = std::min(text.find_first_not_of(text[i], i), text.size()) - i;
    char escaped[32];
    std::snprintf(escaped, sizeof escaped, text[i] >= ' ' && text[i] <= '~' ? "%c" : "\\x%02x",
                  static_cast<unsigned char>(text[i]));
    out += escaped;
    i += same > 8 ? same : 1;
    if (same > 8)
      out += "{" + std::to_string(same) + "}";
  }
  return '"' + out + '"';
}

template <typename T, typename Text>
string of_lists(const char* what, const std::vector<T>& seen, const std::vector<T>& said, Text text)
{
  for (size_t i = 0; i < std::max(seen.size(), said.size()); ++i) {
    if (i < seen.size() && i < said.size() && seen[i] == said[i])
      continue;
    const string a = i < seen.size() ? text(seen[i]) : "nothing", b = i < said.size() ? text(said[i]) : "nothing";
    return string(what) + " " + std::to_string(i) + ":\n  expected " + b + "\n  got      " + a + "\n";
  }
  return "";
}

string difference(outcome seen, outcome said)
{
  std::sort(seen.workers.begin(), seen.workers.end());
  std::sort(said.workers.begin(), said.workers.end());
  const auto number = [](const char* what, int a, int b) {
    return a == b ? "" : string(what) + ": expected " + std::to_string(b) + ", got " + std::to_string(a) + "\n";
  };
  for (log_line& line : said.log)
    line.level = std::min(line.level, 6);
  const auto line = [](const log_line& one) { return std::to_string(one.level) + " " + quoted(one.text); };
  const string sent = seen.sent == said.sent ? "" : "the frame sent back\n";
  return number("status", seen.status, said.status) + number("has a result", seen.has_result, said.has_result) +
         number("result", seen.result, said.result) + of_lists("argument", seen.arguments, said.arguments, quoted) +
         of_lists("log line", seen.log, said.log, line) +
         of_lists("worker's line", seen.workers, said.workers, quoted) +
         of_lists("asked of the kernel", seen.kernel, said.kernel, quoted) +
         of_lists("bridge", seen.bridges, said.bridges, quoted) +
         of_lists<string>("terminal", {seen.terminal}, {said.terminal}, quoted) + sent;
}

string shown(const step& one)
{
  string text = one.bridge.empty() ? std::to_string(one.id) : "frame into " + one.bridge + ":";
  if (one.bridge.empty() && one.id < api::operations.size())
    text += " " + string(api::operations[one.id].name);
  for (const string& argument : one.arguments)
    text += " " + quoted(argument);
  for (const auto& [what, error] : one.failing)
    text += " while '" + what + "' fails with " + std::to_string(error);
  for (const unsigned char byte : one.record) {
    char digits[8];
    std::snprintf(digits, sizeof digits, " %02x", byte);
    text += digits;
  }
  return text + (one.anonymous ? " from nobody known" : "");
}

// One agent and its model, side by side.
class pair {
public:
  explicit pair(const node& machine) : real_(machine), model_(machine) {}

  // What differs about a step.
  string run(const step& now)
  {
    if (!now.bridge.empty() && !real_.has_bridge(now.bridge))
      return "";
    const outcome seen = real_.run(now);
    const outcome said = model_.run(now, real_.where());
    const string what = real_.was_late() ? "" : difference(seen, said);
    return what.empty() ? "" : "the model's branch '" + said.branch + "'\n" + what;
  }
  // What is wrong at the end of all steps.
  string end()
  {
    const size_t left = real_.end();
    return left == 0 ? "" : std::to_string(left) + " descriptors are left open\n";
  }

  std::vector<step> questions(bool last) const { return model_.questions(last); }

private:
  real_agent real_;
  agent model_;
};

// The same without questions; steps behind the difference go.
string judge_plainly(sequence& given)
{
  pair both(given.machine);
  for (size_t i = 0; i < given.steps.size(); ++i)
    if (string what = both.run(given.steps[i]); !what.empty()) {
      given.steps.resize(i + 1);
      return what;
    }
  return both.end();
}

}  // namespace

sequence sequence_make(chooser& choose, unsigned most)
{
  sequence made;
  node& machine = made.machine;
  machine.kvmng = choose.one_in(10) ? 2 : 3;
  machine.kvbridge = choose.one_in(10) ? 57 : 56;
  machine.stag = choose.one_of({0x88a8u, 0x8100u, 0x9100u});
  machine.mtu = choose.below(5) ? 1500 : choose.one_of({0, -5, 200, 9000});
  if (choose.below(3))
    machine.board = choose.one_of({0u, 3u, 255u});
  if (choose.below(2))
    machine.ipv4 = {{"dev1", {10, 1, 2, 30}}, {"dev2", {192, 168, 255, 1}}};
  machine.ipv6 = choose.below(2);
  machine.mac = choose.below(4);
  machine.terminal = terminal();
  const step level = plain(2, {raw(static_cast<uint32_t>(choose.one_of({-1, 0, 2, 3, 4, 5, 6, 7, 7, 7, 7, 8})), 4)});
  made.steps.push_back(level);
  if (choose.below(30))
    begin(choose, made.steps);
  std::vector<unsigned> favourites;
  for (int i = 0; i < 6; ++i)
    favourites.push_back(choose.below(static_cast<unsigned>(api::operations.size())));
  while (made.steps.size() < most && !choose.is_empty()) {
    made.steps.push_back(choose.below(10) ? call_make(choose, favourites) : frame_make(choose));
    const unsigned id = made.steps.back().id;
    if (choose.one_in(30))  // a line moves: its slot keeps more than one thinks
      move(choose, made.steps);
    if (id == 1 && choose.one_in(3))
      made.steps.push_back(plain(1, {}));
    if ((id == 1 || id == 7) && choose.below(4))
      begin(choose, made.steps);
    if (choose.one_in(20))  // also after what makes the log silent
      made.steps.push_back(level);
  }
  return made;
}

string judge(const sequence& given, sequence& failed, unsigned long& count)
{
  pair both(given.machine);
  failed = {given.machine, {}};
  const auto run = [&](const step& one) {
    ++count;
    failed.steps.push_back(one);
    string what = both.run(one);
    return what;
  };
  for (size_t i = 0; i < given.steps.size(); ++i) {
    if (string what = run(given.steps[i]); !what.empty())
      return what;
    const bool last = i + 1 == given.steps.size();
    if (!last && i % 100 != 99)
      continue;
    for (const step& question : both.questions(last)) {
      if (string what = run(question); !what.empty())
        return what;
      if (!last)
        failed.steps.pop_back();
    }
  }
  return both.end();
}

void show_shortest(const sequence& failed)
{
  sequence small = failed;
  const auto kind = [](const string& what) { return what.substr(0, what.find('\n')); };
  const string wanted = kind(judge_plainly(small));
  for (size_t many = wanted.empty() ? 0 : small.steps.size(); many > 0; many /= 2)
    for (size_t end = small.steps.size(); end > 0; end = std::min(end - 1, small.steps.size())) {
      sequence shorter = small;
      const auto to = shorter.steps.begin() + static_cast<std::ptrdiff_t>(end);
      shorter.steps.erase(to - static_cast<std::ptrdiff_t>(std::min(many, end)), to);
      if (kind(judge_plainly(shorter)) == wanted)
        small = shorter;
    }
  for (const step& one : small.steps)
    std::fprintf(stderr, "  %s\n", shown(one).c_str());
  std::fprintf(stderr, "%s", judge_plainly(small).c_str());
}

}  // namespace operations
