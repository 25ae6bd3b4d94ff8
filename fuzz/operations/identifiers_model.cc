// What of the model makes identifiers: the agent's two, the macros' values, the tests of formats, and a frame's way.
#include "fuzz/customid/oracle.h"
#include "fuzz/operations/operations_model.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace operations {
namespace {

constexpr unsigned no_vlan = 4095;

// Marks a line of the macro language's log that stands for the lines of one macro's value.
constexpr char mark = '\x1f';

const char* const macros[] = {"SHELF",      "CHASSIS",     "PANEL", "INTF_TYPE",  "AGENT_BOARD", "BOARD",
                              "PORT",       "PORT_REM_ID", "INTF",  "INTF_DSCR",  "ONU",         "VGEM",
                              "TCONT",      "PVC_INTF",    "VPI",   "VCI",        "CLNT_MAC",    "AGENT_MAC",
                              "AGENT_IPV4", "AGENT_IPV6",  "VLAN",  "VLAN_NAME",  "CVID",        "SYSNAME",
                              "LOCATION",   "CONTACT",     "HEX",   "CPE_SERIAL", "CPE_MAC"};

string mac_text(const std::array<unsigned char, 6>& mac)
{
  char text[32];
  std::snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return text;
}

}  // namespace

// --- what goes into a frame ------------------------------------------------------------------------------------------

agent::identifier agent::circuit_id(bridge& of, port& line, unsigned vid, use data)
{
  const char* in = of.name.c_str();
  say(7, "<%s> >> pppoeia_build_circuit_id\n", in);
  const auto entry_of = vid % 4096 == no_vlan ? line.vlans.end() : line.vlans.find(vid);
  const bool of_line = entry_of == line.vlans.end();
  const int mode = of_line ? static_cast<int>(line.mode) : entry_of->second.mode;
  say(7, of_line ? "<%s> >> Interface CID mode: %d\n" : "<%s> >> Intf-VLAN CID mode: %d\n", in, mode);
  say(7, "<%s> >> Selected CID mode: %d\n", in, mode);
  const string begins = of.vendor + ":" + of.shelf + (mode == 0 ? " eth " : " atm ") + std::to_string(of.board) + "/";
  if (mode == 0) {
    string id = begins + line.name;
    if (vid == no_vlan)
      id += of.customer_vlan ? ":<vid>:<cvid>" : ":<vid>";
    else {
      if (vid < 4096)
        id += ":" + std::to_string(of.vlan_word % 4096);
      if (of.customer_vlan && of.customer_word != no_vlan)
        id += ":" + std::to_string(of.customer_word % 4096);
    }
    return {id.substr(0, 63), {}};
  }
  if (mode == 1 && line.type == "atm")
    return {begins + print("%d:%d.%d", static_cast<int>(line.parent), line.vpi, line.vci), {}};
  if (mode != 2)
    return {};
  const unsigned cvid = of.customer_word == no_vlan ? no_vlan : of.customer_word % 4096;
  say(7, "<%s> >> Custom CID mode for intfId=%d, vid=%d\n", in, static_cast<int>(line.id), vid);
  return custom(of, line, vid, cvid, true, data);
}

agent::identifier agent::remote_id(bridge& of, port& line, unsigned vid, use data)
{
  return custom(of, line, vid, no_vlan, false, data);
}

// By the format of port and VLAN, or of the bridge.
agent::identifier agent::custom(bridge& of, port& line, unsigned vid, unsigned cvid, bool circuit, use data)
{
  const char *in = of.name.c_str(), *word = circuit ? "CID" : "RID";
  const auto own = vid == no_vlan ? line.vlans.end() : line.vlans.find(vid);
  string format = own == line.vlans.end() ? "" : circuit ? own->second.circuit : own->second.remote;
  if (!format.empty())
    say(7, "<%s> >> Using custom %s format from intf-VLAN='%s'\n", in, word, format.c_str());
  else {
    say(7, "br_%s_id_format_get(%s)", circuit ? "circuit" : "remote", in);
    format = circuit ? of.circuit_format : of.remote_format;
    if (format.empty())
      say(7, "<%s> >> No custom %s format configured for intf=%d, vid=%d. Return empty %s\n", in, word,
          static_cast<int>(line.id), vid, word);
    else
      say(7, "<%s> >> Using global %s format='%s'\n", in, word, format.c_str());
  }
  identifier made;
  if (!format.empty())
    made = expand(of, line.id, vid, cvid, format, data);
  say(7, "<%s> >> Generated custom %s='%s'\n", in, word, made.text.c_str());
  made.text = made.text.substr(0, 63);
  return made;
}

agent::identifier agent::expand(bridge& of, unsigned line, unsigned vid, unsigned cvid, const string& format, use data)
{
  std::map<string, oracle_value> values;
  for (const char* macro : macros) {
    std::vector<log_line> told;
    oracle_value& value = values[macro];
    value.text = value_of(macro, of, line, vid, cvid, data, told, value.known);
    for (const log_line& one : told)
      value.log += mark + std::to_string(one.level) + one.text;
  }
  const oracle_identifier made = oracle_generate(format, values, of.name);
  for (string text : made.log) {
    if (text.empty() || text[0] != mark) {
      say(7, "%s", text.c_str());
      continue;
    }
    while (!text.empty()) {
      const size_t next = std::min(text.find(mark, 1), text.size());
      const string one = text.substr(2, next - 2);
      if (text[1] == '0')
        ask(one);
      else
        say(text[1] - '0', "%s", one.c_str());
      text.erase(0, next);
    }
  }
  return {made.text, made.bin};
}

// What a macro stands for. Lines of level 0 are what the kernel is asked.
string agent::value_of(const string& macro, const bridge& of, unsigned line, unsigned vid, unsigned cvid, use data,
                       std::vector<log_line>& told, bool& known) const
{
  if (data == use::test) {
    line = test.line;
    vid = test.vlan;
    cvid = test.cvid;
  }
  const char* in = of.name.c_str();
  const int id = static_cast<int>(line);
  const auto no = [&](const string& why) {
    told.push_back({7, print("<%s> >> %s", in, why.c_str())});
    return string();
  };
  const auto with_id = [&](unsigned wanted) {
    const auto at = std::find_if(of.slots.begin(), of.slots.end(), [&](const port& one) {
      return one.id == wanted && wanted != 0 && !one.device.empty();
    });
    return at == of.slots.end() ? nullptr : &*at;
  };
  const port* at = with_id(line);

  if (macro == "SHELF")
    return of.shelf;
  if (macro == "CHASSIS")
    return std::to_string(of.chassis);
  if (macro == "SYSNAME")
    return of.system_name;
  if (macro == "LOCATION")
    return of.location;
  if (macro == "CONTACT")
    return of.contact;
  if (macro == "AGENT_BOARD")
    return node_.board ? std::to_string(*node_.board) : no("Cannot read ncfmGetMyBoardPos");
  if (macro == "BOARD")
    return no("Cannot read valid board type");
  if (macro == "VLAN")
    return std::to_string(vid);
  if (macro == "VLAN_NAME") {
    if (!of.vlans.contains(vid))
      return no("Invalid VLAN\n");
    const string& called = of.vlans.at(vid);
    return called.empty() ? no("Cannot read VLAN name\n") : called;
  }
  if (macro == "CVID")
    return cvid >= no_vlan ? no("Invalid CVID\n") : std::to_string(cvid);
  if (macro == "CLNT_MAC") {
    if (data == use::live)
      return client ? mac_text(*client) : no("Invalid frame )\n");
    return mac_text(test.mac);
  }
  if (macro == "AGENT_MAC") {
    told.push_back({0, "datagram socket"});
    told.push_back({0, "mac of mng0"});
    told.push_back({0, "close datagram socket"});
    if (node_.mac)
      return "02:00:5E:10:00:01";
    told.push_back({3, "pppoeia_get_local_mac: error: Input/output error\n"});
    return no("pppoeia_get_local_mac failed\n");
  }
  if (macro == "AGENT_IPV6")
    return node_.ipv6 ? "2001:db8::1" : no("getIpv6Addr: ncfmGetIpv6 has failed\n");
  if (macro == "TCONT" || macro == "HEX") {
    known = false;
    return no(macro == "HEX" ? "Unknown macro: 26.\n" : "Unknown macro: 12.\n");
  }
  if (macro == "ONU" && data == use::test)
    return std::to_string(test.onu);
  if (macro == "VGEM" && data == use::test)
    return std::to_string(test.gem);

  // The rest is of a port.
  if (macro == "AGENT_IPV4") {
    const auto found = at ? node_.ipv4.find(at->device) : node_.ipv4.end();
    return found == node_.ipv4.end()
               ? no("ip NULL \n")
               : print("%u.%u.%u.%u", found->second[0], found->second[1], found->second[2], found->second[3]);
  }
  if (!at && macro == "INTF")
    return no("Invalid port_id\n");
  if (!at && (macro == "VPI" || macro == "VCI"))
    return no(print("pppoeia_port_index_find failed for port %d'", id));
  if (!at)
    return no(print("pppoeia_port_index_find_by_id failed for port %d", id));
  if (macro == "PORT")
    return std::to_string(at->id);
  if (macro == "INTF")
    return at->name;
  if (macro == "PANEL")
    return at->panel_kind > 1 ? no("Cannot read valid panel") : at->panel;
  if (macro == "INTF_TYPE")
    return at->type.empty() ? no("Cannot read valid intf type") : at->type;
  if (macro == "PORT_REM_ID" || macro == "INTF_DSCR") {
    const auto field = macro == "INTF_DSCR" ? &port::description : &port::remote_id;
    if (!(at->*field).empty() || at->parent == 0)
      return at->*field;
    no(print("Adding %s from parent id: %d.", macro.c_str(), static_cast<int>(at->parent)));
    const port* parent = with_id(at->parent);
    return parent ? parent->*field
                  : no(print("pppoeia_port_index_find_by_id failed for %sport %d",
                             macro == "PORT_REM_ID" ? "parent " : "", static_cast<int>(at->parent)));
  }
  if (macro == "ONU")
    return at->type == "onu" || at->type == "gem" ? std::to_string(at->onu) : no("Not ONU or GEM interface");
  if (macro == "VGEM")
    return at->type == "gem" ? std::to_string(at->gem) : no("Not GEM interface");
  if (macro == "PVC_INTF")
    return at->type == "atm" ? std::to_string(at->pvc_interface) : no("Non-PVC interface\n");
  if (macro == "VPI" || macro == "VCI")
    return at->type == "atm" && (at->vpi != -1 || at->vci != -1)
               ? print("%u", static_cast<unsigned>(macro == "VPI" ? at->vpi : at->vci))
               : no("Non-PVC interface\n");
  return macro == "CPE_SERIAL" ? at->serial : mac_text(at->mac);
}

// --- tests of formats ------------------------------------------------------------------------------------------------

void agent::test_debug()
{
  test.debug = number(1) != 0;
  show(print("\n Test debug set to %d\n", test.debug), 2);
}

void agent::test_dump()
{
  string mac = mac_text(test.mac);
  std::transform(mac.begin(), mac.end(), mac.begin(), [](char c) { return c >= 'A' && c <= 'F' ? c - 'A' + 'a' : c; });
  show(print("Debug:%d\nTest data:\n------------\nvlan:%u\ncvid:%u\nintfId:%u\nonu:%u\nvgem:%u\ntcontType:%u\n"
             "clntMac:%s\ncustomCidStr: '%s'\ncustomRidStr: '%s'\n",
             test.debug, test.vlan, test.cvid, test.line, test.onu, test.gem, test.tcont, mac.c_str(),
             test.circuit.c_str(), test.remote.c_str()),
       1);
}

void agent::test_set()
{
  const string prefix = "pppoeiaTestSet", option = text(1), value = text(2);
  const struct {
    const char *option, *echo;
    unsigned* field;
    uint64_t values;
  } numbers[] = {{"Vlan", "vlan", &test.vlan, 65536},          {"Cvid", "cvid", &test.cvid, 65536},
                 {"IntfId", "intfId", &test.line, 1ull << 32}, {"Onu", "onu", &test.onu, 1ull << 32},
                 {"Vgem", "vgem", &test.gem, 1ull << 32},      {"TContType", "tcontType", &test.tcont, 1ull << 32}};
  string echo;
  for (const auto& one : numbers)
    if (option == prefix + one.option) {
      *one.field = static_cast<unsigned>(std::strtoull(value.c_str(), nullptr, 10) % one.values);
      echo = print("Setting %s: %u", one.echo, *one.field);
    }
  for (string* const field : {&test.circuit, &test.remote}) {
    const string word = field == &test.circuit ? "Cid" : "Rid";
    if (option == prefix + "Custom" + word + "Str") {
      *field = value;
      echo = "Setting custom" + word + "Str: '" + value + "'";
    }
  }
  if (option == prefix + "ClntMac") {
    std::array<unsigned, 6> m{};
    const string digits = "0123456789abcdefABCDEF", shape = "xx:xx:xx:xx:xx:xx";
    bool whole = value.size() == shape.size();
    for (size_t i = 0; whole && i < shape.size(); ++i)
      whole = shape[i] == 'x' ? digits.find(value[i]) != string::npos : value[i] == ':';
    if (whole && std::sscanf(value.c_str(), "%x:%x:%x:%x:%x:%x", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5]) == 6) {
      for (size_t i = 0; i < 6; ++i)
        test.mac[i] = static_cast<unsigned char>(m[i]);
      echo = "Setting clntMac: " + value;
    }
  }
  show(echo + "\n", 3);
}

void agent::test_run()
{
  const bool circuit = text(1) == "pppoeiaTestRunCid";
  if ((!circuit && text(1) != "pppoeiaTestRunRid") || (text(2) != "test" && text(2) != "available")) {
    show("\n", 3);
    return;
  }
  const identifier made = expand(*b, test.line, test.vlan, test.cvid, circuit ? test.circuit : test.remote,
                                 text(2) == "test" ? use::test : use::available);
  show(string("\n Generated Custom ") + (circuit ? "Circuit" : "Remote") + " Id: '" + made.text + "'\n", 3);
}

// --- a frame ---------------------------------------------------------------------------------------------------------

void agent::frame(uintptr_t where)
{
  const bytes& r = now->record;
  b = find(now->bridge);
  model::world w;
  w.bridge = b->name;
  w.off = b->off;
  w.stag = b->stag;
  w.vlans.clear();
  for (unsigned vid = 0; vid < 4096; ++vid)
    if (b->enabled[vid])
      w.vlans.insert(vid);
  w.vendor_tag_mode = static_cast<unsigned>(b->vendor_tag_mode);
  w.circuit_wanted = b->insert_circuit != 0;
  w.remote_wanted = b->insert_remote != 0;
  w.largest = b->max_pdu;
  w.longest_record = static_cast<size_t>(b->mtu + 106);
  for (const port& slot : b->slots)
    w.ports.push_back({!slot.device.empty(), slot.state, static_cast<int>(slot.trust), slot.kind});
  if (node_.mac)
    w.own_address = {2, 0, 0x5e, 0x10, 0, 1};

  const auto word = [&](size_t at) { return at + 1 < r.size() ? r[at] * 256u + r[at + 1] : 0u; };
  b->vlan_word = word(4);
  b->customer_word = word(6);
  p = find(*b, word(52) % 256 * 256 + word(52) / 256);
  if (p && r.size() > 119) {
    const unsigned vid = word(119) == b->stag || word(119) == 0x8100 ? word(121) % 4096 : 0;
    client.emplace();
    std::copy_n(r.begin() + 113, 6, client->begin());
    for (model::identifier* id : {&w.circuit, &w.remote}) {
      const identifier made = id == &w.circuit ? circuit_id(*b, *p, vid, use::live) : remote_id(*b, *p, vid, use::live);
      id->text = made.text;
      id->binary = made.binary;
      id->told = std::move(out.log);
      out.log.clear();
    }
    client.reset();
  }
  const model::outcome became = model::frame(w, r, where);
  out.kernel.clear();  // what workers ask is not compared
  out.sent = became.sent;
  out.branch = "frame, " + became.branch;
  for (const log_line& line : became.log) {
    if (line.text.ends_with("Error getting local MAC."))
      say(3, "pppoeia_get_local_mac: error: Input/output error\n");
    if (line.level <= level)
      out.log.push_back(line);
  }
  const char* const names[] = {"padi", "padr", "pado", "pads", "padt", "dropped", "unknown", "malformed", "unchanged"};
  for (size_t i = 0; i < 9; ++i)
    if (became.counted == names[i]) {
      ++b->counted[i];
      ++p->counted[i];
    }
}

}  // namespace operations
