#include "fuzz/frames/frame_model.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace model {
namespace {

constexpr size_t nowhere = SIZE_MAX;

// One record on its way, followed line by line.
class walker {
public:
  walker(const world& given, const bytes& record, uintptr_t address_of_it)
      : w(given), received(record.size()), where(address_of_it), r(record)
  {
    r.resize(std::max<size_t>(received, 200) + 200);  // what a record lacks reads as zero
  }

  outcome run()
  {
    for (size_t i = 113; i < 119; ++i)
      result.kept.client = result.kept.client * 256 + byte(i);
    result.kept.words = net16(4) * 65536 + net16(6);
    result.told.port = host16(52);
    if (received == 0 || host32(48) != received || received > w.longest_record)
      return drop("record_length");
    length = received;
    if (w.off)
      return pass("bridge_off");
    say("<%s> >> @%s (%s <-- %s/%04x:%04x), %d bytes.", name(), text16(74).c_str(), mac(107).c_str(), mac(113).c_str(),
        net16(4), net16(6), shown(length));
    dump(">>  ");
    const unsigned port = host16(52);
    if (port == 0 || port >= w.ports.size() || !w.ports[port - 1].present) {
      say("<%s> >> Input device '%s', %d not found.", name(), text16(74).c_str(), port);
      return drop("unknown_port");
    }
    at = &w.ports[port - 1];
    result.kept.port = port;
    const bool enabled = vlan_comes_under_rules(port);
    result.told.vid = vid;
    if (!enabled)
      return pass("vlan_not_enabled");
    return discovery();
  }

private:
  // --- what the record says
  unsigned byte(size_t i) const { return i < r.size() ? r[i] : 0; }
  unsigned net16(size_t i) const { return byte(i) * 256 + byte(i + 1); }
  unsigned host16(size_t i) const { return byte(i) + byte(i + 1) * 256; }
  uint32_t host32(size_t i) const { return host16(i) + (static_cast<uint32_t>(host16(i + 2)) << 16); }
  void net16_put(size_t i, size_t value)
  {
    r.at(i) = static_cast<unsigned char>(value / 256);
    r.at(i + 1) = static_cast<unsigned char>(value);
  }
  std::string text16(size_t i) const
  {
    const char* text = reinterpret_cast<const char*>(&r[i]);
    return {text, strnlen(text, 16)};
  }
  std::string mac(size_t i) const
  {
    return print("%02x:%02x:%02x:%02x:%02x:%02x", byte(i), byte(i + 1), byte(i + 2), byte(i + 3), byte(i + 4),
                 byte(i + 5));
  }

  // --- what is told
  __attribute__((format(printf, 1, 2))) static std::string print(const char* format, ...)
  {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
  }
  template <typename... T>
  void say(const char* format, T... values)
  {
    log(7, format, values...);
  }
  template <typename... T>
  void log(int level, const char* format, T... values)
  {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    char text[4096];
    snprintf(text, sizeof text, format, values...);
#pragma GCC diagnostic pop
    result.log.push_back({level, text});
  }
  const char* name() const
  {
    return w.bridge.c_str();
  }
  void* address(size_t i) const
  {
    return reinterpret_cast<void*>(where + i);
  }
  static int shown(size_t record_length)
  {
    return static_cast<int>(record_length) - 106;
  }

  void dump(const char* prefix)
  {
    const int count = shown(length);
    std::string line;
    for (int i = 0; i < count; ++i) {
      const size_t place = 107 + static_cast<size_t>(i);
      line += print("%02x ", place < length ? byte(place) : 0);
      if (i % 16 == 7)
        line += "  ";
      if (i % 16 == 15 || i + 1 == count) {
        say("<%s> %s %s", name(), prefix, line.c_str());
        line.clear();
      }
    }
  }

  outcome drop(const char* branch)
  {
    result.branch = branch;
    return result;
  }
  outcome pass(const char* branch)
  {
    result.branch = branch;
    result.sent.assign(r.begin(), r.begin() + static_cast<std::ptrdiff_t>(length));
    return result;
  }

  // --- the Ethernet part
  bool vlan_comes_under_rules(unsigned port)
  {
    vid = 0;
    ethertype = 107 + 12;
    const unsigned outer = net16(ethertype);
    if (outer == w.stag || outer == 0x8100) {
      vid = net16(ethertype + 2) % 4096;
      say("<%s> >> Found VLAN tag %04x (VID %d).", name(), net16(ethertype + 2), vid);
      ethertype += 4;
      for (int more = outer == w.stag ? 2 : 1; more > 0 && net16(ethertype) == 0x8100; --more) {
        say("<%s> >> Found VLAN tag.", name());
        ethertype += 4;
      }
    }
    if (at->kind == 1 || at->kind == 5) {
      say("<%s> >> Skip VLAN check for interface: %d.", name(), port);
      return true;
    }
    if (w.vlans.contains(vid))
      return true;
    say("<%s> >> VID %04x (%d) not enabled.", name(), vid, vid);
    return false;
  }

  // --- PPPoE
  outcome discovery()
  {
    if (net16(ethertype) != 0x8863) {
      say("<%s> >> 0x%04x is not an PPPoE Discovery EtherType.", name(), net16(ethertype));
      return drop("not_discovery");
    }
    code = result.told.code = byte(ethertype + 3);
    payload = net16(ethertype + 6);
    first = ethertype + 8;
    end = first + payload;
    say("<%s>    PPPoE starts at offset %d, version=%d, type=%d, code=%s (%d), session_id=0x%04x, payload_length=%d",
        name(), static_cast<int>(ethertype + 2 - 107), byte(ethertype + 2) / 16, byte(ethertype + 2) % 16, code_name(),
        code, net16(ethertype + 4), static_cast<int>(payload));
    say("<%s>    Frame start=%p, frame end=%p, PPPoE start=%p, PPPoE end=%p", name(), address(107), address(received),
        address(ethertype + 2), address(end));
    if (end > received) {
      say("<%s>    PPPoE PDU doesn't fit into frame.", name());
      result.counted = "malformed";
      return drop("payload_past_end");
    }
    result.told.ethertype = ethertype;
    result.told.of_subscriber = at->side == 0 || at->side == 1;
    tags_tell();
    return judged();
  }

  const char* code_name() const
  {
    switch (code) {
    case 0x09:
      return "PADI";
    case 0x07:
      return "PADO";
    case 0x19:
      return "PADR";
    case 0x65:
      return "PADS";
    case 0xa7:
      return "PADT";
    default:
      return "Unknown";
    }
  }

  static const char* tag_name(unsigned type)
  {
    switch (type) {
    case 0x0000:
      return "EOL";
    case 0x0101:
      return "SRV_NAME";
    case 0x0102:
      return "AC_NAME";
    case 0x0103:
      return "HOST_UNIQ";
    case 0x0104:
      return "AC_COOKIE";
    case 0x0105:
      return "VENDOR";
    case 0x0110:
      return "RELAY_SID";
    case 0x0201:
      return "SRV_ERR";
    case 0x0202:
      return "SYS_ERR";
    case 0x0203:
      return "GEN_ERR";
    default:
      return "Unknown";
    }
  }

  size_t behind(size_t tag) const
  {
    return tag + 4 + net16(tag + 2);
  }
  bool past_end(size_t tag)
  {
    if (tag < end)
      return false;
    say("<%s>          Past PPPoE end: %p >= %p", name(), address(tag), address(end));
    return true;
  }

  void tags_tell()
  {
    for (size_t tag = first; !past_end(tag); tag = behind(tag)) {
      const unsigned tag_length = net16(tag + 2);
      say("<%s>        %s (0x%04x), %d (0x%04x) bytes.", name(), tag_name(net16(tag)), net16(tag), tag_length,
          tag_length);
      if (net16(tag) == 0 || behind(behind(tag)) > end)
        return;
    }
  }

  size_t vendor_tag_search()
  {
    for (size_t tag = first;; tag = behind(tag)) {
      if (tag + 4 <= length && net16(tag) == 0x0105)
        return tag;
      if (past_end(tag) || net16(tag) == 0 || behind(behind(tag)) > end)
        return nowhere;
    }
  }

  outcome judged()
  {
    const bool from_client = code == 0x09 || code == 0x19;
    const bool from_server = code == 0x07 || code == 0x65;
    const bool from_both = code == 0xa7;
    if (at->side == 0) {
      say("<%s> >> PPPoE is disabled on '%s'. Forwarding unchanged.", name(), text16(74).c_str());
      result.counted = "unchanged";
      return pass("port_disabled");
    }
    if (at->side == 1 && !from_client && !from_both) {
      say("<%s> >> Only PPPoE client is allowed on '%s'.", name(), text16(74).c_str());
      result.counted = "dropped";
      return drop("role");
    }
    if (at->side == 2 && !from_server && !from_both) {
      say("<%s> >> Only PPPoE server is allowed on '%s'.", name(), text16(74).c_str());
      result.counted = "dropped";
      return drop("role");
    }
    vendor = vendor_tag_search();
    if (vendor != nowhere) {
      say("<%s>    Found VSA tag.", name());
      if (at->trust == 1) {
        say("<%s>    Port is untrusted, there should be no VSA tag.", name());
        result.counted = "dropped";
        return drop("tag_untrusted");
      }
    }
    result.counted = code == 0x09   ? "padi"
                     : code == 0x19 ? "padr"
                     : code == 0x07 ? "pado"
                     : code == 0x65 ? "pads"
                     : code == 0xa7 ? "padt"
                                    : "unknown";
    result.branch = "unedited";
    bool goes_on = true;
    if (from_server)
      goes_on = vendor_tag_out();
    if (from_client)
      goes_on = vendor_tag_in();
    return goes_on ? forwarded() : result;
  }

  outcome forwarded()
  {
    say("<%s>    Frame is %d bytes, payload length %d bytes.", name(), shown(length), static_cast<int>(payload));
    dump("    ");
    say("<%s>    Forwarding frame to %s.", name(), text16(90).c_str());
    end = first + payload;
    std::fill(r.begin() + static_cast<std::ptrdiff_t>(length), r.end(), '\0');  // what is not sent is not told
    tags_tell();
    const std::string branch = result.branch;
    return pass(branch.c_str());
  }

  // Makes the record and the PPPoE payload longer by that, or shorter. False when a length has no such value.
  bool stretch(int64_t by)
  {
    const int64_t new_payload = static_cast<int64_t>(payload) + by;
    const int64_t new_length = static_cast<int64_t>(length) + by;
    if (new_payload < 0 || new_payload > 65535 || new_length < static_cast<int64_t>(first)) {
      say("<%s>    PPPoE PDU doesn't fit into frame.", name());
      result.branch = code == 0x09 || code == 0x19 ? "insertion_misfit" : "removal_misfit";
      return false;
    }
    payload = static_cast<size_t>(new_payload);
    length = static_cast<size_t>(new_length);
    net16_put(ethertype + 6, payload);
    for (int i = 0; i < 4; ++i)
      r[48 + static_cast<size_t>(i)] = static_cast<unsigned char>(length >> (8 * i));
    return true;
  }

  // Where what follows the tag at `tag` begins: behind it, if another tag is there.
  size_t follower(size_t tag)
  {
    if (past_end(tag) || net16(tag) == 0)
      return tag;
    const size_t next = behind(tag);
    return behind(next) <= end && next + 4 <= received ? next : tag;
  }

  bool vendor_tag_out()
  {
    if (vendor == nowhere) {
      say("<%s>    No VSA tag to remove.", name());
      result.branch = "tag_absent";
      return true;
    }
    if (w.vendor_tag_mode != 1) {
      say("<%s>    VSA tag kept.", name());
      result.branch = "tag_kept";
      return true;
    }
    const bytes before = r;
    const size_t next = behind(vendor);
    if (!stretch(static_cast<int64_t>(vendor) - static_cast<int64_t>(next)))
      return false;
    if (follower(vendor) != vendor)
      for (size_t i = next; i < received; ++i)
        r[vendor + i - next] = before[i];
    say("<%s>    Removed VSA tag.", name());
    result.branch = "tag_removed";
    return true;
  }

  // The identifier's bytes, at most 63.
  bytes identifier_bytes(const identifier& id, const char* which)
  {
    result.log.insert(result.log.end(), id.told.begin(), id.told.end());
    bytes value(id.text.begin(), id.text.end());
    if (!id.binary.empty()) {
      say("<%s>    Using %s bin.", name(), which);
      value = id.binary;
    }
    value.resize(std::min<size_t>(value.size(), 63));
    return value;
  }

  size_t insertion_point()
  {
    if (first + 4 > end || behind(first) > end) {
      past_end(first);
      return first;
    }
    size_t tag = first;
    while (net16(tag) != 0) {
      const size_t next = behind(tag);
      if (behind(next) > end)
        return next;
      tag = next;
    }
    return tag;
  }

  bool vendor_tag_in()
  {
    result.kept.asked.assign(2, {result.kept.port, vid});
    const bytes circuit = identifier_bytes(w.circuit, "CID");
    const bytes remote = identifier_bytes(w.remote, "RID");
    bytes tag{0x01, 0x05, 0, 0, 0x00, 0x00, 0x0d, 0xe9};
    const auto add = [&tag](unsigned char number, const bytes& value) {
      tag.push_back(number);
      tag.push_back(static_cast<unsigned char>(value.size()));
      tag.insert(tag.end(), value.begin(), value.end());
    };
    if (w.circuit_wanted)
      add(1, circuit);
    if (w.remote_wanted)
      add(2, remote);
    tag[3] = static_cast<unsigned char>(tag.size() - 4);

    const bool replaces = vendor != nowhere && vendor + 4 <= end && behind(vendor) <= end;
    const size_t old_size = replaces ? behind(vendor) - vendor : 0;
    const size_t point = replaces ? vendor : insertion_point();
    const int64_t growth = static_cast<int64_t>(tag.size()) - static_cast<int64_t>(old_size);
    say("<%s>    VSA tag will be added.", name());
    if (growth > 0)
      say("<%s>    VSA tag stretched by %d bytes.", name(), static_cast<int>(growth));
    else if (growth < 0)
      say("<%s>    VSA tag cut by %d bytes.", name(), static_cast<int>(-growth));
    else
      say("<%s>    VSA tag size fits.", name());
    const size_t tail = follower(point);
    if (static_cast<uint32_t>(static_cast<int64_t>(received) + growth - 107) > w.largest)
      return error_answer();
    if (growth != 0) {
      const bytes before = r;
      if (!stretch(growth))
        return false;
      for (size_t i = tail; i < received && point + tag.size() + i - tail < length; ++i)
        r[point + tag.size() + i - tail] = before[i];
    }
    std::copy(tag.begin(), tag.end(), r.begin() + static_cast<std::ptrdiff_t>(point));
    if (w.circuit_wanted)
      say("<%s>    Added Circuit ID '%s' (%d bytes).", name(), w.circuit.text.c_str(),
          static_cast<int>(circuit.size()));
    if (w.remote_wanted)
      say("<%s>    Added Remote Agent ID '%s' (%d bytes).", name(), w.remote.text.c_str(),
          static_cast<int>(remote.size()));
    result.branch = replaces ? "tag_replaced" : "tag_inserted";
    result.told.vendor_tag = point;
    return true;
  }

  bool error_answer()
  {
    result.branch = w.own_address ? "error_answered" : "no_own_address";
    say("<%s>    MTU exceeded.", name());
    std::copy_n(r.begin() + 74, 16, r.begin() + 90);
    const std::string device = (w.bridge + "_pppoe").substr(0, 15);
    std::copy_n(device.c_str(), device.size() + 1, r.begin() + 74);
    r[90] = 0;
    if (!w.own_address) {
      log(3, "<%s>    Error getting local MAC.", name());
      return false;
    }
    std::copy_n(r.begin() + 113, 6, r.begin() + 107);
    std::copy_n(w.own_address->begin(), 6, r.begin() + 113);
    r[ethertype + 3] = code == 0x09 ? 0x07 : 0x65;
    payload = 4;
    net16_put(ethertype + 6, payload);
    net16_put(first, 0x0203);
    net16_put(first + 2, 0);
    for (size_t i = first + 4; i < received; ++i)
      r[i] = 0xff;
    return true;
  }

  const world& w;
  const size_t received;
  const uintptr_t where;
  bytes r;
  outcome result;
  const line_port* at = nullptr;
  unsigned vid = 0;
  size_t length = 0;     // the record's, as it will leave
  size_t ethertype = 0;  // place of the EtherType field behind all VLAN tags
  unsigned code = 0;
  size_t payload = 0;
  size_t first = 0;
  size_t end = 0;
  size_t vendor = nowhere;
};

}  // namespace

outcome frame(const world& given, const bytes& record, uintptr_t where)
{
  return walker(given, record, where).run();
}

}  // namespace model
