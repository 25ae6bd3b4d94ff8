// A second, plain implementation of the agent's 89 operations: written from what they mean and from the manuals, slow,
// and sharing no line, table or number with the agent, so that a mistake would have to be made twice. What a frame
// becomes it asks of the frame path's model, what a format expands to of the macro language's.
//
// operations_model.cc has the door and the operations, identifiers_model.cc the identifiers and the format tests.
#ifndef FUZZ_OPERATIONS_OPERATIONS_MODEL_H
#define FUZZ_OPERATIONS_OPERATIONS_MODEL_H

#include "fuzz/frames/frame_model.h"

#include <array>
#include <bitset>
#include <cstdio>
#include <functional>
#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace operations {

using model::bytes;
using model::log_line;
using std::string;

// The machine under the agent, as it is for one sequence of steps.
struct node {
  std::set<string> bridges{"br0", "br1", "br2", "tencharact"};  // that the kernel has
  int kvmng = 3;
  int kvbridge = 56;
  unsigned stag = 0x88a8;
  int mtu = 1500;
  std::optional<unsigned> board;
  std::map<string, std::array<unsigned, 4>> ipv4;  // by device
  bool ipv6 = false;                               // 2001:db8::1
  bool mac = true;                                 // 02:00:5e:10:00:01
  string terminal;                                 // a file that takes reports as "/console" does, but for real
};

// One call of an operation, or one record for the worker of a bridge.
struct step {
  unsigned id = 0;
  std::vector<string> arguments;
  std::map<string, int> failing;  // what is asked of the kernel and fails, with its error number
  bool anonymous = false;         // nobody knows who asks
  string bridge;                  // a record for that bridge, when not empty
  bytes record;
};

// Everything that can be seen of a step.
struct outcome {
  int status = 0;
  bool has_result = false;
  int result = 0;
  std::vector<string> arguments;
  std::vector<log_line> log;
  std::vector<string> workers;  // begun and ended; their lines stand anywhere
  string terminal;
  std::vector<string> kernel;  // asked of the kernel, in order
  bytes sent;
  std::vector<string> bridges;  // newest first, each with how many ports count as active: there is no way to ask
  string branch;                // the model's last decision
};

struct entry {
  int mode = -1;
  string circuit;
  string remote;
};

using counters = std::array<unsigned, 9>;

struct port {
  unsigned id = 0;  // of the port added last, which may be gone
  string device;    // empty: no port
  string name, type, description, serial, remote_id;
  std::array<unsigned char, 6> mac{};
  unsigned panel_kind = 0, onu = 0, gem = 0, pvc_interface = 0;
  string panel;
  int state = 0, vpi = -1, vci = -1;
  unsigned trust = 0, mode = 0, parent = 0, kind = 0;
  counters counted{};
  std::map<unsigned, entry> vlans;
};

struct bridge {
  string name, device;
  std::vector<port> slots;  // of ids 1, 2, ...; the last one's id is out of range
  bool off = false;
  int mtu = 0, vendor_tag_mode = 1;
  unsigned max_pdu = 0, stag = 0, board = 0, chassis = 99, active_ports = 0;
  unsigned insert_circuit = 1, insert_remote = 1, customer_vlan = 0;
  string vendor = "VELTRONA", shelf, contact, location, system_name, circuit_format, remote_format;
  std::bitset<4096> enabled;
  std::map<unsigned, string> vlans;
  counters counted{};
  unsigned vlan_word = 0, customer_word = 0;  // of the last frame
};

class agent {
public:
  explicit agent(const node& machine) : node_(machine) {}

  // `where` is the address that a step's record stands at, which some log lines show.
  outcome run(const step& now, uintptr_t where);

  // Every getter for everything there is: the state, told by calls. The last ones change it, to have identifiers tell
  // what has no getter.
  std::vector<step> questions(bool last) const;

private:
  struct row;
  friend struct rows;
  enum class use { live, available, test };

  // --- the door
  static const std::vector<row>& table();
  void call(const row& which);
  void frame(uintptr_t where);
  string text(size_t i) const;
  unsigned number(size_t i) const { return static_cast<unsigned>(bits(now->arguments[i], 0, 4)); }
  unsigned vlan(size_t i) const { return static_cast<unsigned>(bits(now->arguments[i], 0, 2)); }
  static uint64_t bits(const string& from, size_t at, size_t size);
  void put(size_t i, size_t at, uint64_t value, size_t size);
  void put_text(size_t i, const string& value);
  void put_counters(size_t i, const counters& values);
  void put_entry(size_t i, unsigned vlan, size_t vlan_size, const entry& value);

  // --- what is told and asked
  template <typename... T>
  static string print(const char* format, T... values)
  {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    char line[8192];
    std::snprintf(line, sizeof line, format, values...);
#pragma GCC diagnostic pop
    return line;
  }
  template <typename... T>
  void say(int severity, const char* format, T... values)
  {
    if (severity <= level)
      out.log.push_back({severity, print(format, values...)});
  }
  void fail(int result)
  {
    out.result = result;
  }
  void end(const string& how, int result);
  bool ask(const string& what);
  void show(const string& report, size_t path);

  // --- operations that are more than a field
  void init();
  void fini();
  void bridge_add();
  string set_up(bridge& made);
  void device_delete(const bridge& from);
  void bridge_delete(const string& name);
  void port_add();
  int port_state(int state);
  void mode_of_entry();
  void format_of_entry(string entry::*format, const char* word);
  void clear_all();
  void defaults();
  string report(unsigned selector) const;
  bridge* find(const string& name);
  static port* find(bridge& in, unsigned id);
  void location(const string& from, size_t at);

  // --- identifiers (identifiers_model.cc)
  struct identifier {
    string text;
    bytes binary;
  };
  identifier circuit_id(bridge& of, port& line, unsigned vid, use data);
  identifier remote_id(bridge& of, port& line, unsigned vid, use data);
  identifier custom(bridge& of, port& line, unsigned vid, unsigned cvid, bool circuit, use data);
  identifier expand(bridge& of, unsigned line, unsigned vid, unsigned cvid, const string& format, use data);
  string value_of(const string& macro, const bridge& of, unsigned line, unsigned vid, unsigned cvid, use data,
                  std::vector<log_line>& told, bool& known) const;
  void test_set();
  void test_dump();
  void test_debug();
  void test_run();

  const node& node_;
  bool up = false;
  int level = 6;
  bool admin_state = false;
  unsigned adjust = 0;
  std::list<bridge> bridges;  // newest first
  struct {
    unsigned vlan = 0, cvid = 0, line = 0, onu = 0, gem = 0, tcont = 0;
    std::array<unsigned char, 6> mac{};
    string circuit, remote;
    bool debug = false;
  } test;
  std::optional<std::array<unsigned char, 6>> client;  // of the frame in hand

  // The step in hand.
  const step* now = nullptr;
  const char* name = "";  // of the operation
  outcome out;
  int error = 0;  // of the last thing asked of the kernel
  bridge* b = nullptr;
  port* p = nullptr;
  bool ended = false;  // its result is traced
};

}  // namespace operations

#endif
