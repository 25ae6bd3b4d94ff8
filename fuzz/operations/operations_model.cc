#include "fuzz/operations/operations_model.h"

#include <algorithm>
#include <cstring>

namespace operations {
namespace {

string raw(uint64_t value, size_t size)
{
  string text;
  for (; size > 0; --size, value >>= 8)
    text += static_cast<char>(value);
  return text;
}

}  // namespace

// One operation. A letter for each argument: b bridge, p port, n number, v VLAN id, s text; capital when the trace of
// the call leaves it out; q a port that it shows in its own way, k whether tags are kept; r record, o output, x
// anything. A dot in front: nothing is looked up.
struct agent::row {
  const char* name;
  const char* arguments;
  std::function<void(agent&)> work;
};

// --- the door --------------------------------------------------------------------------------------------------------

outcome agent::run(const step& given, uintptr_t where)
{
  now = &given;
  out = {};
  out.arguments = given.arguments;
  b = nullptr;
  p = nullptr;
  ended = false;
  if (!given.bridge.empty())
    frame(where);
  else if (given.id >= table().size()) {
    out.status = -1;
    out.branch = "no such operation";
  } else
    call(table()[given.id]);
  for (const bridge& one : bridges)
    out.bridges.push_back(one.name + " with active ports: " + std::to_string(one.active_ports));
  return out;
}

void agent::call(const row& which)
{
  name = which.name;
  out.branch = name;
  const bool free = *which.arguments == '.';
  const string kinds = which.arguments + free;
  if (now->arguments.size() != kinds.size()) {
    out.branch += ", wrong number of arguments";
    out.status = -1;
    return;
  }
  string shown, behind;
  for (size_t i = 0; i < kinds.size(); ++i) {
    const string comma = i == 0 ? "" : ", ";
    if (strchr("bs", kinds[i]))
      shown += comma + text(i);
    if (strchr("pn", kinds[i]))
      shown += comma + print("%d", static_cast<int>(number(i)));
    if (kinds[i] == 'v')
      shown += comma + print("%d", vlan(i));
    if (kinds[i] == 'k')
      shown += comma + (number(i) == 0 ? "keep" : "remove");
    if (kinds[i] == 'q')
      behind = print(" port=%u", number(i));
  }
  const bool traced = kinds.find('b') != string::npos;
  if (traced)
    say(7, "%s(%s)%s", name, shown.c_str(), behind.c_str());
  const size_t port_at = kinds.find_first_of("pPq");
  out.has_result = true;
  if (!free && !(b = find(text(0))))
    end("-ENOENT", -2);
  else if (!free && port_at != string::npos && !(p = find(*b, number(port_at)))) {
    say(7, "%s(%d)=-ENODEV", name, static_cast<int>(number(port_at)));
    out.branch += ", no such port";
    if (strcmp(name, "pppoeia_port_stats_get") == 0)
      say(7, "%s()=0", name);  // the result is another
    out.result = -19;
    ended = true;
  } else
    which.work(*this);
  if (traced && !ended)
    say(7, "%s()=%d", name, out.result);
  if (out.result != 0)
    out.arguments = now->arguments;
}

uint64_t agent::bits(const string& from, size_t at, size_t size)
{
  uint64_t value = 0;
  for (size_t i = size; i-- > 0;)
    value = value * 256 + (at + i < from.size() ? static_cast<unsigned char>(from[at + i]) : 0);
  return value;
}

string agent::text(size_t i) const
{
  return now->arguments[i].c_str();
}

void agent::put(size_t i, size_t at, uint64_t value, size_t size)
{
  for (size_t k = 0; k < size && at + k < out.arguments[i].size(); ++k)
    out.arguments[i][at + k] = static_cast<char>(value >> (8 * k));
}

// A text, and zeros as far as the argument goes.
void agent::put_text(size_t i, const string& value)
{
  const size_t room = out.arguments[i].size();
  out.arguments[i] = value.substr(0, room);
  out.arguments[i].resize(room);
}

void agent::put_counters(size_t i, const counters& values)
{
  for (size_t k = 0; k < values.size(); ++k)
    put(i, 4 * k, values[k], 4);
}

void agent::put_entry(size_t i, unsigned id, size_t id_size, const entry& value)
{
  put(i, 0, id, id_size);
  put(i, 4, static_cast<uint32_t>(value.mode), 4);
  for (size_t k = 0; k < 129; ++k) {
    put(i, 8 + k, static_cast<unsigned char>(k < value.circuit.size() ? value.circuit[k] : 0), 1);
    put(i, 137 + k, static_cast<unsigned char>(k < value.remote.size() ? value.remote[k] : 0), 1);
  }
}

// The result told in words of its own.
void agent::end(const string& how, int result)
{
  say(7, "%s()=%s", name, how.c_str());
  out.branch = out.branch + ", " + how;
  out.result = result;
  ended = true;
}

// Whether the kernel does as it is asked.
bool agent::ask(const string& what)
{
  out.kernel.push_back(what);
  const auto at = now->failing.find(what);
  error = at == now->failing.end() ? 0 : at->second;
  return error == 0;
}

void agent::show(const string& report, size_t path)
{
  if (text(path).empty())
    return;
  const bool there = text(path) == "/console" || text(path) == node_.terminal;
  if (now->anonymous || !there)  // above every log level
    out.log.push_back({2, "\t PPPoEIA: Error opening tty file for writing: " + text(path) + "\n"});
  else
    out.terminal += report;
}

bridge* agent::find(const string& wanted)
{
  for (bridge& one : bridges)
    if (one.name == wanted)
      return &one;
  return nullptr;
}

port* agent::find(bridge& in, unsigned id)
{
  return id == 0 || id >= in.slots.size() || in.slots[id - 1].device.empty() ? nullptr : &in.slots[id - 1];
}

// --- the agent's life, and that of bridges ---------------------------------------------------------------------------

void agent::init()
{
  if (up)
    say(4, "Already initialized.");
  struct {
    const char *word, *path, *request;
    int has, wanted;
  } const modules[] = {{"kvmng", "/proc/net/mng/config", " 0x80046d02", node_.kvmng, 3},
                       {"kvbridge", "/proc/net/kvbridge/config", " 0x80047a05", node_.kvbridge, 56}};
  for (const auto& module : modules) {
    if (!ask(string("open ") + module.path)) {
      say(2, "Unable to contact kernel module '%s'.", module.word);
      return fail(module.wanted == 3 ? error : -1);
    }
    if (!ask(string("control ") + module.path + module.request))
      say(2, "Kernel module '%s' too old.", module.word);
    else if (module.has != module.wanted)
      say(2, "Kernel module '%s' version mismatch (%d instead of %d).", module.word, module.has, module.wanted);
    ask(string("close ") + module.path);
  }
  bridges.clear();
  up = true;
}

void agent::fini()
{
  if (!up) {
    say(4, "PPPoE IA not initialized.");
    return fail(-2);
  }
  name = "pppoeia_bridge_del";
  while (!bridges.empty()) {
    const string first = bridges.front().name;
    say(7, "%s(%s)", name, first.c_str());
    bridge_delete(first);
  }
  up = false;
}

void agent::bridge_add()
{
  bridge made;
  made.name = text(0);
  say(3, "Frame adjust is %u bytes.", adjust);
  if (adjust == 0)
    say(3, "Frame adjust is %u bytes.", adjust = 106);
  say(6, "Frame adjust is %u bytes.", adjust);
  const auto refused = [&](const string& line, int result) {
    say(2, "%s", line.c_str());
    out.branch += ": " + line;
    fail(result);
  };
  const string in = "<" + made.name + "> ";
  if (!up)
    return refused("Not initialized.", -6);
  if (made.name.size() > 10)
    return refused("Max bridge name length can be 10.", -22);
  if (find(made.name))
    return refused(in + "Bridge already exists.", -19);
  const string control = "/proc/net/kvbridge/" + made.name + "/bridge";
  if (made.name.find('/') != string::npos || !ask("open " + control) || !node_.bridges.contains(made.name))
    return refused(in + "Cannot open bridge.", -24);
  if (!ask("control " + control + " 0x80047a06")) {
    ask("close " + control);
    return refused(in + "Unable to get bridge information.", -1);
  }
  if (number(1) > 65536) {
    ask("close " + control);
    return refused(in + "Cannot allocate memory (? bytes).", -12);
  }
  made.slots.resize(number(1));
  made.device = (made.name + "_pppoe").substr(0, 15);
  fail(-1);
  const string failed = set_up(made);
  if (!failed.empty()) {
    say(2, "%s%s", in.c_str(), failed.c_str());
    device_delete(made);
    if (std::count(out.kernel.begin(), out.kernel.end(), "packet socket") && !now->failing.contains("packet socket"))
      ask("close packet socket");
    ask("close " + control);
    return;
  }
  say(6, "<%s> Bridge added (S-Tag EtherType=0x%04x, ports=%d, MTU=%d, buffer=%d).", made.name.c_str(), made.stag,
      static_cast<int>(made.slots.size()), made.mtu, made.mtu + static_cast<int>(adjust));
  if (level >= 7)
    out.workers.push_back(in + "Worker started.");
  bridges.push_front(made);
  out.result = 0;
}

// Device, filter and socket. The last line of a failure; its result stands in out.result.
string agent::set_up(bridge& made)
{
  const string management = "/proc/net/mng/config", in = "<" + made.name + "> ";
  const string not_created = "Cannot create '" + made.device + "'.";
  const auto tell = [&](const string& line) { say(2, "%s%s", in.c_str(), line.c_str()); };
  if (!ask("open " + management)) {
    tell("Unable to open '" + management + "'.");
    return not_created;
  }
  if (!ask("control " + management + " 0x40046d00 " + made.device) && error != 17) {
    tell("Unable to create pseudo device '" + made.device + "'.");
    ask("close " + management);
    return not_created;
  }
  bool is_up = ask("datagram socket");
  if (!is_up)
    tell("Unable to create socket.");
  else {
    const string missing = !ask("flags of " + made.device)           ? "Unable to get flags."
                           : !ask("flags of " + made.device + ": 1") ? "Unable to set flags."
                                                                     : "";
    is_up = missing.empty();
    if (is_up)
      say(7, "%sFlags set.", in.c_str());
    else {
      tell(missing);
      device_delete(made);
    }
    ask("close datagram socket");
  }
  ask("close " + management);
  if (!is_up)
    return not_created;
  if (!ask("control /proc/net/kvbridge/" + made.name + "/bridge 0x40047ac8 pppoe " + made.device))
    return print("Cannot attach filter to '%s' (rv=-1, errno=%d).", made.device.c_str(), error);
  if (!ask("packet socket")) {
    out.result = -24;
    return print("Cannot create socket (%d).", error);
  }
  if (!ask("index of " + made.device)) {
    out.result = -19;
    return "Cannot find device '" + made.device + "' index.";
  }
  if (!ask("nonblocking packet socket"))
    return "Cannot set socket to non-blocking mode.";
  if (!ask("bind packet socket"))
    return "Cannot bind socket.";
  made.mtu = node_.mtu;
  if (!ask("mtu of " + made.device) || made.mtu <= 0) {
    made.mtu = 1500;
    say(4, "<%s> Unable to get socket MTU, defaulting to %d.", made.name.c_str(), made.mtu);
  }
  made.max_pdu = static_cast<unsigned>(made.mtu);
  made.stag = node_.stag;
  made.board = node_.board.value_or(0);
  return "";
}

void agent::device_delete(const bridge& from)
{
  const string management = "/proc/net/mng/config";
  if (!ask("open " + management)) {
    say(2, "<%s> Unable to open '%s'.", from.name.c_str(), management.c_str());
    return;
  }
  const bool gone = ask("control " + management + " 0x40046d01 " + from.device);
  say(7, "<%s> Pseudo device '%s' %sdeleted.", from.name.c_str(), from.device.c_str(), gone ? "" : "not ");
  ask("close " + management);
}

void agent::bridge_delete(const string& which)
{
  if (!up) {
    say(4, "Not initialized.");
    return end("-ENXIO", -6);
  }
  bridge* const gone = find(which);
  if (!gone)
    return end("-ENOENT", -2);
  ask("close packet socket");
  ask("close /proc/net/kvbridge/" + which + "/bridge");
  if (level >= 7)
    out.workers.push_back("<" + which + "> Finished.");
  device_delete(*gone);
  say(7, "<%s> Bridge deleted.", which.c_str());
  bridges.remove_if([&](const bridge& one) { return one.name == which; });
  end("0", 0);
}

// Back to factory settings, step by step as if each had been called.
void agent::defaults()
{
  const string bridge_name = text(0);
  const auto done = [&](unsigned id, std::vector<string> arguments) {
    arguments.insert(arguments.begin(), bridge_name);
    step one;
    one.id = id;
    one.arguments = arguments;
    const step* const outer = now;
    outcome before = out;
    const outcome inner = run(one, 0);
    before.log.insert(before.log.end(), inner.log.begin(), inner.log.end());
    out = before;
    now = outer;
    name = "pppoeia_apply_default_settings";
    return inner.result;
  };
  bridge* const all = find(bridge_name);
  if (!all)
    return end("-ENOENT", -2);
  done(10, {raw(0, 4)});
  done(83, {raw(99, 4)});
  done(19, {raw(1, 4)});
  done(21, {raw(1, 4)});
  done(23, {raw(1, 4)});
  done(13, {raw(0, 4)});
  level = 3;
  done(42, {raw(0, 4)});
  done(52, {""});
  done(54, {"$PORT_REM_ID"});
  done(82, {});
  unsigned state = 0, trust = 1;
  for (port& slot : all->slots) {
    if (slot.id == 0)
      continue;
    if (slot.kind == 1 || slot.kind == 5) {
      state = 3;
      trust = 0;
    }
    const string id = raw(slot.id, 4);
    if (const int failed = done(31, {id, raw(state, 4)}))
      return fail(failed);
    done(34, {id, raw(trust, 4)});
    done(37, {id, ""});
    done(45, {id, raw(0, 4)});
    done(67, {id});
  }
}

// --- ports -----------------------------------------------------------------------------------------------------------

void agent::location(const string& from, size_t at)
{
  p->panel_kind = static_cast<unsigned>(bits(from, at, 4));
  p->panel.clear();
  for (size_t i = 0; i < 8 && bits(from, at + 4 + i, 1) != 0; ++i)
    p->panel += static_cast<char>(bits(from, at + 4 + i, 1));
  p->onu = static_cast<unsigned>(bits(from, at + 12, 4));
  p->gem = static_cast<unsigned>(bits(from, at + 16, 4));
  p->pvc_interface = static_cast<unsigned>(bits(from, at + 20, 4));
}

void agent::port_add()
{
  const unsigned id = number(1);
  b = find(text(0));
  ended = !b || id == 0 || id > b->slots.size();  // a refusal is told in words of its own
  if (!b) {
    say(3, "%s():3630 return -ENOENT", name);
    return fail(-2);
  }
  if (id == 0) {
    say(3, "%s():3635 return -ENOENT", name);
    return fail(-22);
  }
  if (id > b->slots.size()) {
    say(3, "<%s> Unable to add port '%s' (-28).", b->name.c_str(), text(2).c_str());
    return fail(-28);
  }
  if (!find(*b, id)) {
    p = &b->slots[id - 1];
    const string& info = now->arguments[4];
    const port before = *p;
    *p = port{};
    p->trust = before.trust;
    p->mode = before.mode;
    p->counted = before.counted;
    p->id = id;
    p->device = text(2).substr(0, 16);
    p->name = text(3).substr(0, 14);
    p->parent = static_cast<unsigned>(bits(info, 0, 4));
    for (size_t i = 0; i < 10 && bits(info, 4 + i, 1) != 0; ++i)
      p->type += static_cast<char>(bits(info, 4 + i, 1));
    p->kind = static_cast<unsigned>(bits(info, 16, 4));
    location(info, 20);
  }
  say(7, "<%s> Port %d, %s added.", b->name.c_str(), static_cast<int>(id), text(2).c_str());
}

// --- entries of a port and VLAN --------------------------------------------------------------------------------------

void agent::mode_of_entry()
{
  const unsigned vid = vlan(2);
  const int mode = static_cast<int>(number(3));
  const auto at = p->vlans.find(vid);
  if (mode != -1)
    p->vlans[vid].mode = mode;
  else if (at == p->vlans.end()) {
    out.branch += ", nothing to take away";
    return;
  } else if (at->second.circuit.empty() && at->second.remote.empty())
    p->vlans.erase(at);
  else
    at->second.mode = 0;
  say(7, "<%s> Port %d vlan %d cid mode set to %d.", b->name.c_str(), static_cast<int>(p->id), vid,
      mode == -1 ? 0 : mode);
}

void agent::format_of_entry(string entry::*format, const char* word)
{
  const unsigned vid = vlan(2);
  const string value = text(3);
  if (value.size() > 127)
    return end("-ENOSPC", -28);
  const auto at = p->vlans.find(vid);
  if (!value.empty())
    p->vlans[vid].*format = value;
  else if (at != p->vlans.end()) {
    at->second.*format = "";
    if (at->second.mode == -1 && at->second.circuit.empty() && at->second.remote.empty())
      p->vlans.erase(at);
  }
  say(7, "<%s> Port %d vlan %d custom %s format set to '%s'.", b->name.c_str(), static_cast<int>(p->id), vid, word,
      value.c_str());
}

void agent::clear_all()
{
  for (port& slot : b->slots) {
    if (slot.id == 0)
      continue;
    say(7, "clear_port_vlan(%s, %d)", b->name.c_str(), static_cast<int>(slot.id));
    if (!find(*b, slot.id)) {
      say(7, "clear_port_vlan(%d)=-ENODEV", static_cast<int>(slot.id));
      return fail(-19);
    }
    slot.vlans.clear();
    say(7, "clear_port_vlan()=0");
  }
}

// --- the report ------------------------------------------------------------------------------------------------------

string agent::report(unsigned selector) const
{
  string lines = " Global data:\n ------------\n pppoeia_cid_format: '" + b->circuit_format +
                 "'\n pppoeia_rid_format: '" + b->remote_format + "'\n stag_ethertype_nf: " + print("0x%04x", b->stag) +
                 "\n port_vlan data:\n ---------------\n";
  const auto neighbours = [](const auto& all, auto at, const char* before, const char* behind, const char* between) {
    string text = before;
    text += at == all.begin() ? "/" : std::to_string(std::prev(at)->first);
    text += between;
    text += behind;
    return text + (std::next(at) == all.end() ? "/" : std::to_string(std::next(at)->first)) + "\n";
  };
  const auto head = [](const port& of) {
    return " \tPort Id: " + std::to_string(of.id) + ", dev name: '" + of.device + "', port_name: '" + of.name;
  };
  for (const port& of : b->slots) {
    if (of.vlans.empty() || (selector != 0 && selector != of.id))
      continue;
    lines += head(of) + "': \n";
    for (auto at = of.vlans.begin(); at != of.vlans.end(); ++at)
      lines += "\t\tVlan: " + std::to_string(at->first) + "\n\t\t\tcid_mode: " + std::to_string(at->second.mode) +
               "\n\t\t\tcid_format: '" + at->second.circuit + "'\n\t\t\trid_format: '" + at->second.remote + "'\n" +
               neighbours(of.vlans, at, "\t\t\tprev vlan_id: ", "\t\t\tnext vlan_id: ", "\n");
  }
  lines += " port data:\n";
  for (const port& of : b->slots)
    if (!of.serial.empty() && (selector == 0 || selector == of.id))
      lines +=
          head(of) + "', CPE serial: " + of.serial + "', CPE MAC: " +
          print("%02x:%02x:%02x:%02x:%02x:%02x\n", of.mac[0], of.mac[1], of.mac[2], of.mac[3], of.mac[4], of.mac[5]);
  lines += " vlan data:\n";
  for (auto at = b->vlans.begin(); at != b->vlans.end(); ++at)
    lines += "\tVlan: " + std::to_string(at->first) + ", name: '" + at->second + "', " +
             neighbours(b->vlans, at, "prev: ", "next: ", ", ");
  return lines;
}

// --- the table -------------------------------------------------------------------------------------------------------

struct rows {
  using work = std::function<void(agent&)>;

  static size_t last(const agent& a) { return a.now->arguments.size() - 1; }

  // Fields of a bridge.
  template <typename T>
  static work set(T bridge::*field)
  {
    return [field](agent& a) { a.b->*field = static_cast<T>(a.number(1)); };
  }
  template <typename T>
  static work get(T bridge::*field)
  {
    return [field](agent& a) { a.put(1, 0, static_cast<uint32_t>(a.b->*field), 4); };
  }
  static work get(string bridge::*field)
  {
    return [field](agent& a) { a.put_text(1, a.b->*field); };
  }
  static work set(string bridge::*field, size_t most, const char* how = "-ENOSPC", int refusal = -28)
  {
    return [=](agent& a) { a.text(1).size() > most ? a.end(how, refusal) : void(a.b->*field = a.text(1)); };
  }
  static work set_format(string bridge::*field, const char* word)
  {
    return [=](agent& a) {
      if (a.text(1).size() > 128)
        return a.end("-ENOSPC", -28);
      a.b->*field = a.text(1);
      a.say(7, "<%s> Custom %s format set.", a.b->name.c_str(), word);
      a.end(a.text(1), 0);
    };
  }
  static void vlans(agent& a, unsigned first, unsigned count, bool enable)
  {
    for (unsigned vid = first; vid < first + count; ++vid)
      a.b->enabled[vid % 4096] = enable;
  }

  // Fields of a port. `told` has the bridge, the port's id and the value.
  template <typename T>
  static work set(T port::*field, const char* told = nullptr)
  {
    return [=](agent& a) {
      a.p->*field = static_cast<T>(a.number(2));
      if (told)
        a.say(7, told, a.b->name.c_str(), static_cast<int>(a.p->id), static_cast<int>(a.number(2)));
    };
  }
  template <typename T>
  static work set_all(T port::*field)
  {
    return [field](agent& a) {
      for (port& slot : a.b->slots)
        slot.*field = static_cast<T>(a.number(1));
    };
  }
  template <typename T>
  static work get(T port::*field)
  {
    return [field](agent& a) { a.put(2, 0, static_cast<uint32_t>(a.p->*field), 4); };
  }
  static work set_cut(string port::*field, size_t most)
  {
    return [=](agent& a) { a.p->*field = a.text(2).substr(0, most); };
  }

  // Entries of a port and VLAN: the one of the argument, or the one that many behind it.
  static work entry_of(int behind, std::function<void(agent&, unsigned vlan, const entry&)> give)
  {
    return [=](agent& a) {
      auto at = a.p->vlans.find(a.vlan(2));
      if (at != a.p->vlans.end() && behind == 1)
        ++at;
      if (at == a.p->vlans.end())
        a.out.result = -2;
      else
        give(a, at->first, at->second);
    };
  }
  static work get(string entry::*field)
  {
    return entry_of(0, [field](agent& a, unsigned, const entry& one) { a.put_text(3, one.*field); });
  }
  static work whole_entry(int behind)
  {
    return entry_of(behind, [](agent& a, unsigned vlan, const entry& one) { a.put_entry(3, vlan, 4, one); });
  }

  static work identify(agent::identifier (agent::*make)(bridge&, port&, unsigned, agent::use), unsigned vlan_at,
                       agent::use data)
  {
    return [=](agent& a) { a.put_text(last(a), (a.*make)(*a.b, *a.p, vlan_at ? a.vlan(vlan_at) : 4095, data).text); };
  }
  static work test(void (agent::*what)())
  {
    return [what](agent& a) {
      a.b = a.find(a.text(0));
      a.b ? (a.*what)() : a.fail(1);
    };
  }
};

const std::vector<agent::row>& agent::table()
{
  using r = rows;
  static const std::vector<row> all = {
      {"pppoeia_init", ".", &agent::init},
      {"pppoeia_fini", ".", &agent::fini},
      {"pppoeia_log_level_set", ".N",
       [](agent& a) {
         const int wanted = static_cast<int>(a.number(0));
         a.level = wanted == -2 ? 3 : wanted;
       }},
      {"pppoeia_log_level_get", ".o", [](agent& a) { a.put(0, 0, static_cast<uint32_t>(a.level), 4); }},
      {"pppoeia_debug_admin_state_set", ".N", [](agent& a) { a.admin_state = a.number(0) != 0; }},
      {"pppoeia_debug_admin_state_get", ".o", [](agent& a) { a.put(0, 0, a.admin_state, 4); }},
      {"pppoeia_bridge_add", ".bN", &agent::bridge_add},
      {"pppoeia_bridge_del", ".b", [](agent& a) { a.bridge_delete(a.text(0)); }},
      {"pppoeia_bridge_max_pdu_set", "bn",
       [](agent& a) {
         if (a.number(1) > static_cast<unsigned>(a.b->mtu))
           return a.fail(-22);
         a.b->max_pdu = a.number(1);
       }},
      {"pppoeia_bridge_max_pdu_get", "bo", r::get(&bridge::max_pdu)},
      {"pppoeia_bridge_state_set", "bn", [](agent& a) { a.b->off = a.number(1) == 0; }},
      {"pppoeia_bridge_state_get", "bo", [](agent& a) { a.put(1, 0, !a.b->off, 4); }},
      {"pppoeia_bridge_vlan_set", "bvn", [](agent& a) { r::vlans(a, a.vlan(1), 1, a.number(2) != 0); }},
      {"pppoeia_bridge_vlan_set_all", "bn", [](agent& a) { r::vlans(a, 0, 512, a.number(1) != 0); }},
      {"pppoeia_bridge_vlan_get", "bvo", [](agent& a) { a.put(2, 0, a.b->enabled[a.vlan(1) % 4096], 4); }},
      {"pppoeia_bridge_vendor_set", "bs", r::set(&bridge::vendor, 19, "-ENOMEM", -12)},
      {"pppoeia_bridge_vendor_get", "bo", r::get(&bridge::vendor)},
      {"pppoeia_bridge_debug_set", ".bn", [](agent& a) { a.level = a.number(1) != 0 ? 7 : -1; }},
      {"pppoeia_bridge_debug_get", ".bo", [](agent& a) { a.put(1, 0, a.level != -1, 4); }},
      {"pppoeia_bridge_vsa_mode_set", "bk", r::set(&bridge::vendor_tag_mode)},
      {"pppoeia_bridge_vsa_mode_get", "bo", r::get(&bridge::vendor_tag_mode)},
      {"pppoeia_bridge_vsa_insert_circuit_id_set", "bn", r::set(&bridge::insert_circuit)},
      {"pppoeia_bridge_vsa_insert_circuit_id_get", "bo", r::get(&bridge::insert_circuit)},
      {"pppoeia_bridge_vsa_insert_remote_id_set", "bn", r::set(&bridge::insert_remote)},
      {"pppoeia_bridge_vsa_insert_remote_id_get", "bo", r::get(&bridge::insert_remote)},
      {"pppoeia_bridge_shelf_id_set", "bs", r::set(&bridge::shelf, 39)},
      {"pppoeia_bridge_shelf_id_get", "bo", r::get(&bridge::shelf)},
      {"pppoeia_bridge_stats_get", "bo", [](agent& a) { a.put_counters(1, a.b->counted); }},
      {"pppoeia_bridge_stats_reset", "b", [](agent& a) { a.b->counted = {}; }},
      {"pppoeia_port_add", ".bpsSr", &agent::port_add},
      {"pppoeia_port_del", "bp",
       [](agent& a) {
         a.p->device = "";
         a.say(7, "<%s> Port %d removed.", a.b->name.c_str(), static_cast<int>(a.p->id));
       }},
      {"pppoeia_port_state_set", "bpn",
       [](agent& a) {
         const auto active = [&] { return a.p->state == 2 || a.p->state == 3; };
         a.b->active_ports -= active();
         r::set(&port::state, "<%s> Port %d state set to %d.")(a);
         a.b->active_ports += active();
       }},
      {"pppoeia_port_state_set_all", "bn", r::set_all(&port::state)},
      {"pppoeia_port_state_get", "bpo", r::get(&port::state)},
      {"pppoeia_port_trust_set", "bpn", r::set(&port::trust, "<%s> Port %d type set to %d.")},
      {"pppoeia_port_trust_set_all", "bn", r::set_all(&port::trust)},
      {"pppoeia_port_trust_get", "bpo", r::get(&port::trust)},
      {"pppoeia_port_remote_id_set", "bps",
       [](agent& a) {
         if (a.text(2).size() > 63)
           return a.end("-ENOSPC", -28);
         a.p->remote_id = a.text(2);
         a.say(7, "<%s> Port %d Agent ID set.", a.b->name.c_str(), static_cast<int>(a.p->id));
       }},
      {"pppoeia_port_remote_id_get", "bpo",
       [](agent& a) {
         a.say(7, "br_port_remote_id_get(%s, %d)", a.b->name.c_str(), static_cast<int>(a.p->id));
         a.say(7, "br_port_remote_id_get()=0");
         a.put_text(2, a.p->remote_id);
       }},
      {"pppoeia_port_stats_get", "bpo", [](agent& a) { a.put_counters(2, a.p->counted); }},
      {"pppoeia_port_stats_reset", "bp", [](agent& a) { a.p->counted = {}; }},
      {"pppoeia_port_circuit_id_get", "bpo", r::identify(&agent::circuit_id, 0, agent::use::live)},
      {"pppoeia_bridge_vsa_circuit_id_cvlan_set", "bn", r::set(&bridge::customer_vlan)},
      {"pppoeia_bridge_vsa_circuit_id_cvlan_get", "bo", r::get(&bridge::customer_vlan)},
      {"ppppoeia_conf_event", ".x", [](agent&) {}},
      {"pppoeia_port_vsa_circuit_id_mode_set", "bpn", r::set(&port::mode)},
      {"pppoeia_port_vsa_circuit_id_mode_get", "bqo", r::get(&port::mode)},
      {"pppoeia_port_pvc_set", "bpnn",
       [](agent& a) {
         if (a.p->type != "atm")
           return a.fail(1);
         a.p->vpi = static_cast<int>(a.number(2));
         a.p->vci = static_cast<int>(a.number(3));
         a.say(7, "<%s> Port %d vpi/vci set to %d/%d.", a.b->name.c_str(), static_cast<int>(a.p->id), a.p->vpi,
               a.p->vci);
       }},
      {"pppoeia_port_pvc_get", "bqoo",
       [](agent& a) {
         if (a.p->type != "atm")
           return a.fail(1);
         a.put(2, 0, static_cast<uint32_t>(a.p->vpi), 4);
         a.put(3, 0, static_cast<uint32_t>(a.p->vci), 4);
       }},
      {"pppoeia_port_parent_get", "bqo", r::get(&port::parent)},
      {"pppoeia_port_name_update", "bpsr",
       [](agent& a) {
         a.p->name = a.text(2).substr(0, 14);
         a.location(a.now->arguments[3], 0);
         a.say(7, "<%s> Port %d name updated to %s.", a.b->name.c_str(), static_cast<int>(a.p->id), a.p->name.c_str());
       }},
      {"pppoeia_port_parent_set", "bpn", r::set(&port::parent, "<%s> Port %d parent_id updated to %d.")},
      {"pppoeia_circuit_id_format_set", "bs", r::set_format(&bridge::circuit_format, "CID")},
      {"pppoeia_circuit_id_format_get", "bo", r::get(&bridge::circuit_format)},
      {"pppoeia_remote_id_format_set", "bs", r::set_format(&bridge::remote_format, "RID")},
      {"pppoeia_remote_id_format_get", "bo", r::get(&bridge::remote_format)},
      {"pppoeia_circuit_id_mode_port_vlan_set", "bpvn", &agent::mode_of_entry},
      {"pppoeia_circuit_id_mode_port_vlan_get", "bpvo",
       r::entry_of(0, [](agent& a, unsigned, const entry& one) { a.put(3, 0, static_cast<uint32_t>(one.mode), 4); })},
      {"pppoeia_circuit_id_format_port_vlan_set", "bpvs", [](agent& a) { a.format_of_entry(&entry::circuit, "cid"); }},
      {"pppoeia_circuit_id_format_port_vlan_get", "bpvo", r::get(&entry::circuit)},
      {"pppoeia_remote_id_format_port_vlan_set", "bpvs", [](agent& a) { a.format_of_entry(&entry::remote, "rid"); }},
      {"pppoeia_remote_id_format_port_vlan_get", "bpvo", r::get(&entry::remote)},
      {"pppoeia_port_vlan_add", "bpv", [](agent& a) { a.p->vlans.try_emplace(a.vlan(2)); }},
      {"pppoeia_port_vlan_del", "bpv", [](agent& a) { a.p->vlans.erase(a.vlan(2)); }},
      {"pppoeia_port_vlan_get_first", "bpo",
       [](agent& a) {
         if (a.p->vlans.empty())
           return a.fail(-2);
         a.put_entry(2, a.p->vlans.begin()->first, 2, a.p->vlans.begin()->second);
       }},
      {"pppoeia_port_vlan_get_next", "bpvo", r::whole_entry(1)},
      {"pppoeia_port_vlan_info_get", "bpvo", r::whole_entry(0)},
      {"clear_port_vlan", "bp", [](agent& a) { a.p->vlans.clear(); }},
      {"gen_circuit_id_by_intf_vlan", "bpVo", r::identify(&agent::circuit_id, 2, agent::use::available)},
      {"gen_remote_id_by_intf_vlan", "bpVo", r::identify(&agent::remote_id, 2, agent::use::available)},
      {"pppoeia_dump", "bnx", [](agent& a) { a.show(a.report(a.number(1)), 2); }},
      {"pppoeia_test_dump", ".bx", r::test(&agent::test_dump)},
      {"pppoeia_test_set", ".bSSx", r::test(&agent::test_set)},
      {"pppoeia_test_debug", ".bNx", r::test(&agent::test_debug)},
      {"pppoeia_test_run", ".bSSx", r::test(&agent::test_run)},
      {"pppoeia_bridge_contact_set", "bs", r::set(&bridge::contact, 64)},
      {"pppoeia_bridge_location_set", "bs", r::set(&bridge::location, 64)},
      {"pppoeia_bridge_sysname_set", "bs", r::set(&bridge::system_name, 64)},
      {"pppoeia_bridge_intf_descr_set", "bps", r::set_cut(&port::description, 64)},
      {"pppoeia_vlan_add", "bv", [](agent& a) { a.b->vlans.try_emplace(a.vlan(1)); }},
      {"pppoeia_vlan_del", "bv", [](agent& a) { a.b->vlans.erase(a.vlan(1)); }},
      {"pppoeia_vlan_name_set", "bvs",
       [](agent& a) {
         if (a.text(2).size() > 31)
           return a.end("-ENOSPC", -28);
         const auto at = a.b->vlans.find(a.vlan(1));
         if (at == a.b->vlans.end()) {
           a.say(7, "%s(0)=-ENODEV", a.name);
           a.ended = true;
           return a.fail(-19);
         }
         at->second = a.text(2);
         a.say(7, "<%s> VLAN %d name set to '%s'.", a.b->name.c_str(), a.vlan(1), at->second.c_str());
       }},
      {"clear_vlan", "b", [](agent& a) { a.b->vlans.clear(); }},
      {"pppoeia_bridge_chassis_id_set", "bn", r::set(&bridge::chassis)},
      {"pppoeia_bridge_chassis_id_get", "bo", r::get(&bridge::chassis)},
      {"pppoeia_bridge_cpe_serial_set", "bps", r::set_cut(&port::serial, 12)},
      {"pppoeia_bridge_cpe_mac_set", "bpr",
       [](agent& a) {
         for (size_t i = 0; i < 6; ++i)
           a.p->mac[i] = static_cast<unsigned char>(agent::bits(a.now->arguments[2], i, 1));
       }},
      {"pppoeia_apply_default_settings", ".b", &agent::defaults},
      {"clear_port_vlan_all", "b", &agent::clear_all},
  };
  return all;
}

// --- questions -------------------------------------------------------------------------------------------------------

std::vector<step> agent::questions(bool last) const
{
  std::vector<step> all;
  const auto ask_for = [&](const string& kinds, std::vector<string> first) {
    for (unsigned id = 0; id < table().size(); ++id) {
      const string arguments = table()[id].arguments;
      if (arguments.substr(0, kinds.size()) != kinds ||
          arguments.find_first_not_of("ox", kinds.size()) != string::npos || arguments.size() == kinds.size())
        continue;
      step question;
      question.id = id;
      question.arguments = first;
      for (size_t i = kinds.size(); i < arguments.size(); ++i)
        question.arguments.push_back(arguments[i] == 'x' ? string("/console") : string(300, '~'));
      all.push_back(question);
    }
  };
  ask_for(".", {});
  for (const bridge& of : bridges) {
    for (const char* kinds : {"b", ".b"})
      ask_for(kinds, {of.name});
    for (const unsigned selector : {0u, 1u, 2u})
      ask_for("bn", {of.name, raw(selector, 4)});
    for (const unsigned vid : {0u, 7u, 511u, 4095u})
      ask_for("bv", {of.name, raw(vid, 2)});
    for (const port& slot : of.slots) {
      if (slot.device.empty())
        continue;
      const string id = raw(slot.id, 4);
      for (const char* kinds : {"bp", "bq"})
        ask_for(kinds, {of.name, id});
      for (const auto& [vid, ignored] : slot.vlans)
        for (const char* kinds : {"bpv", "bpV"})
          ask_for(kinds, {of.name, id, raw(vid, 2)});
    }
  }
  if (!last)
    return all;
  const auto add = [&](unsigned id, std::vector<string> arguments) {
    all.emplace_back();
    all.back().id = id;
    all.back().arguments = std::move(arguments);
  };
  add(2, {raw(7, 4)});
  const string console = "/console", room(300, '~');
  for (const bridge& of : bridges) {
    const unsigned named = of.vlans.empty() ? 99 : of.vlans.begin()->first;
    const string vid = raw(named, 2), same_low_bits = raw(named + 4096, 2);
    const auto each_line = [&](unsigned id, std::vector<string> behind) {
      for (const port& slot : of.slots) {
        std::vector<string> arguments{of.name, raw(slot.id, 4)};
        arguments.insert(arguments.end(), behind.begin(), behind.end());
        if (!slot.device.empty())
          add(id, arguments);
      }
    };
    for (const unsigned mode : {0u, 1u, 2u}) {
      each_line(45, {raw(mode, 4)});
      each_line(68, {vid, room});
    }
    for (const char* format :
         {"$PANEL,$INTF_TYPE,$ONU,$VGEM,$PVC_INTF", "$VPI,$VCI,$CPE_SERIAL,$CPE_MAC", "$PORT_REM_ID", "$INTF_DSCR",
          "$CONTACT", "$LOCATION", "$SYSNAME", "$INTF,$VLAN_NAME,$CVID", "$CLNT_MAC,$AGENT_MAC,$AGENT_BOARD"}) {
      add(52, {of.name, format});
      each_line(41, {room});
      each_line(68, {vid, room});
    }
    add(54, {of.name, "$CVID,$VLAN,$VLAN_NAME"});
    each_line(69, {same_low_bits, room});
    add(72, {of.name, "pppoeiaTestSetCustomRidStr", "$PORT,$VLAN,$CVID,$ONU,$VGEM,$CLNT_MAC", console});
    for (const char* mode : {"test", "available"})
      add(74, {of.name, "pppoeiaTestRunRid", mode, console});
  }
  return all;
}

}  // namespace operations
