// The kinds of argument that operations take, one type a kind. A kind says for people and for the client side what
// the argument is (its descriptor), and for the dispatcher how the operation's parameter is read from the request's
// buffer. Buffers hold what the caller sent, are 8-byte aligned and continue with at least 512 zero bytes: a text
// without an end ends there, a short number reads as zero-extended, and every output fits.
#ifndef PPPOEIA_API_ARGUMENTS_H
#define PPPOEIA_API_ARGUMENTS_H

#include "pppoeia/api/settings.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

namespace api {

// --- Words for the numbers that operations take and return, for people: the agent only ever sees the numbers --------

struct value_name {
  int64_t value;
  std::string_view word;
};

// Which words go with an argument.
enum class values : uint8_t { none, on_off, port_state, trust, vsa_mode, cid_mode, log_level, test_option, test_run };

inline constexpr value_name on_off_names[] = {{0, "off"}, {1, "on"}};
inline constexpr value_name port_state_names[] = {{port_side_none, "disabled"},
                                                  {port_side_subscriber, "subscriber"},
                                                  {port_side_network, "network"},
                                                  {port_side_any, "any"}};
inline constexpr value_name trust_names[] = {{port_trusted, "trusted"}, {port_untrusted, "untrusted"}};
inline constexpr value_name vsa_mode_names[] = {{vendor_tag_keep, "keep"}, {vendor_tag_remove, "remove"}};
inline constexpr value_name cid_mode_names[] = {
    {cid_unset, "unset"}, {cid_ethernet, "ethernet"}, {cid_atm, "atm"}, {cid_custom, "custom"}};
inline constexpr value_name log_level_names[] = {{-2, "default"}, {-1, "none"}, {0, "emergency"}, {1, "alert"},
                                                 {2, "critical"}, {3, "error"}, {4, "warning"},   {5, "notice"},
                                                 {6, "info"},     {7, "debug"}};

// The words of a set, ascending by value. Empty for sets whose words are the argument itself (texts).
constexpr std::span<const value_name> names_of(values set)
{
  switch (set) {
  case values::on_off:
    return on_off_names;
  case values::port_state:
    return port_state_names;
  case values::trust:
    return trust_names;
  case values::vsa_mode:
    return vsa_mode_names;
  case values::cid_mode:
    return cid_mode_names;
  case values::log_level:
    return log_level_names;
  case values::none:
  case values::test_option:
  case values::test_run:
    break;
  }
  return {};
}

// Texts that test operations take: option names of pppoeia_test_set(), options and modes of pppoeia_test_run().
inline constexpr std::string_view test_set_options[] = {
    "pppoeiaTestSetVlan",    "pppoeiaTestSetCvid",         "pppoeiaTestSetIntfId",
    "pppoeiaTestSetOnu",     "pppoeiaTestSetVgem",         "pppoeiaTestSetTContType",
    "pppoeiaTestSetClntMac", "pppoeiaTestSetCustomCidStr", "pppoeiaTestSetCustomRidStr"};
inline constexpr std::string_view test_run_options[] = {"pppoeiaTestRunCid", "pppoeiaTestRunRid"};
inline constexpr std::string_view test_run_modes[] = {"test", "available"};

// --- Arguments -----------------------------------------------------------------------------------------------------

enum class kind : uint8_t {
  name,         // bridge name
  text,         // NUL-terminated text
  u16,          // 16-bit VLAN id
  u32,          // 32-bit unsigned number
  i32,          // 32-bit signed number
  mac,          // six bytes in transmission order
  port_info,    // pppoeia_port_info
  name_update,  // pppoeia_name_update
  tty,          // path of a terminal device; empty: no output
  unused,       // must be present, is not read
  out_text,     // from here on: written by the operation
  out_u32,
  out_i32,
  out_stats,  // pppoeia_stats
  out_entry,  // pppoeia_port_vlan_entry
};

constexpr bool is_output(kind k)
{
  return k >= kind::out_text;
}

// What people and the client side need to know of one argument.
struct argument {
  kind what;
  std::string_view name;
  uint16_t size;  // inputs: most characters or exact bytes; outputs: bytes the caller should send room for
  values words;   // names of its values, if any
};

// A text literal as a template argument.
template <size_t N>
struct label {
  char text[N];
  constexpr label(const char (&literal)[N]) { std::copy_n(literal, N, text); }
  constexpr std::string_view view() const { return {text, N - 1}; }
};

namespace args {

template <typename T>
T load(const void* data)
{
  T value;
  std::memcpy(&value, data, sizeof value);
  return value;
}

template <label Name>
struct name {
  static constexpr argument describe{kind::name, Name.view(), bridge_name_max, values::none};
  static const char* decode(void* data) { return static_cast<const char*>(data); }
};

// Bytes of a text: a number of them, or those of a field.
constexpr uint16_t size_of(uint16_t size)
{
  return size;
}
template <typename Record, size_t Size>
constexpr uint16_t size_of(char (Record::*)[Size])
{
  return Size;
}

// `Most` characters, or what the field `Most` holds.
template <label Name, auto Most, values Words = values::none>
struct text {
  static constexpr uint16_t most = std::is_member_pointer_v<decltype(Most)> ? size_of(Most) - 1 : size_of(Most);
  static constexpr argument describe{kind::text, Name.view(), most, Words};
  static const char* decode(void* data) { return static_cast<const char*>(data); }
};

template <label Name>
struct tty {
  static constexpr argument describe{kind::tty, Name.view(), 4095, values::none};
  static const char* decode(void* data) { return static_cast<const char*>(data); }
};

template <label Name>
struct u16 {
  static constexpr argument describe{kind::u16, Name.view(), 2, values::none};
  static uint16_t decode(void* data) { return load<uint16_t>(data); }
};

template <label Name, values Words = values::none>
struct u32 {
  static constexpr argument describe{kind::u32, Name.view(), 4, Words};
  static uint32_t decode(void* data) { return load<uint32_t>(data); }
};

template <label Name, values Words = values::none>
struct i32 {
  static constexpr argument describe{kind::i32, Name.view(), 4, Words};
  static int32_t decode(void* data) { return load<int32_t>(data); }
};

// Packed into one integer, the first byte least significant.
template <label Name>
struct mac {
  static constexpr argument describe{kind::mac, Name.view(), 6, values::none};
  static uint64_t decode(void* data) { return load<uint64_t>(data) & 0xffffffffffffull; }
};

// Records are copied out of the request first and passed by address.
template <label Name, kind Kind, typename Record>
struct record {
  static constexpr argument describe{Kind, Name.view(), sizeof(Record), values::none};
  struct copy {
    Record value;
    operator const Record*() const { return &value; }
  };
  static copy decode(void* data) { return {load<Record>(data)}; }
};
template <label Name>
using port_info = record<Name, kind::port_info, pppoeia_port_info>;
template <label Name>
using name_update = record<Name, kind::name_update, pppoeia_name_update>;

template <label Name>
struct unused {
  static constexpr argument describe{kind::unused, Name.view(), 4, values::none};
  static const void* decode(void* data) { return data; }
};

// `Size` bytes, or those of the field `Size`.
template <label Name, auto Size>
struct out_text {
  static constexpr argument describe{kind::out_text, Name.view(), size_of(Size), values::none};
  static char* decode(void* data) { return static_cast<char*>(data); }
};

template <label Name, kind Kind, typename Value, values Words = values::none>
struct output {
  static constexpr argument describe{Kind, Name.view(), sizeof(Value), Words};
  static Value* decode(void* data) { return static_cast<Value*>(data); }
};
template <label Name, values Words = values::none>
using out_u32 = output<Name, kind::out_u32, uint32_t, Words>;
template <label Name, values Words = values::none>
using out_i32 = output<Name, kind::out_i32, int32_t, Words>;
template <label Name>
using out_stats = output<Name, kind::out_stats, pppoeia_stats>;
template <label Name>
using out_entry = output<Name, kind::out_entry, pppoeia_port_vlan_entry>;

}  // namespace args
}  // namespace api

#endif
