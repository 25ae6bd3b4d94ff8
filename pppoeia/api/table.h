// The table of operations as data, for everything that is not the agent itself: the client side, the command line,
// the documentation and the tests that call every row. Needs no operation to link.
#ifndef PPPOEIA_API_TABLE_H
#define PPPOEIA_API_TABLE_H

#include "pppoeia/api/arguments.h"
#include "pppoeia/api/operations.h"
#include "pppoeia/api/settings.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace api {

inline constexpr size_t arguments_max = 5;

struct operation {
  uint16_t id;
  std::string_view name;
  std::string_view command;  // words of its command, "bridge max-pdu set"
  std::string_view summary;
  uint8_t argument_count;
  std::array<argument, arguments_max> argument_list;

  constexpr std::span<const argument> arguments() const { return {argument_list.data(), argument_count}; }
};

template <typename... Arguments>
constexpr operation make_operation(uint16_t id, std::string_view name, std::string_view command,
                                   std::string_view summary)
{
  static_assert(sizeof...(Arguments) <= arguments_max);
  return {id, name, command, summary, sizeof...(Arguments), {Arguments::describe...}};
}

namespace detail {
using namespace args;
#define PPPOEIA_ROW(id, name_, command, summary, refusals, ...)                                                        \
  make_operation<__VA_ARGS__>(id, #name_, command, summary),
inline constexpr operation rows[] = {PPPOEIA_OPERATIONS(PPPOEIA_ROW)};
#undef PPPOEIA_ROW

constexpr bool ids_match_places()
{
  for (size_t i = 0; i < std::size(rows); ++i)
    if (rows[i].id != i)
      return false;
  return true;
}
static_assert(ids_match_places(), "a row's id is its place in the table");
}  // namespace detail

// Row n is the operation with function id n.
inline constexpr std::span<const operation> operations = detail::rows;

// The function id of the operation of that name; the number of operations when there is none.
constexpr size_t operation_id(std::string_view name)
{
  size_t id = 0;
  while (id < operations.size() && operations[id].name != name)
    ++id;
  return id;
}

// The operation of that name, or null.
constexpr const operation* find_operation(std::string_view name)
{
  const size_t id = operation_id(name);
  return id < operations.size() ? &operations[id] : nullptr;
}

namespace detail {
struct answered_setting {
  std::string_view setter;
  std::string_view getter;
};
#define PPPOEIA_ANSWERED(name_, value, setter, getter, ...) {#setter, #getter},
inline constexpr answered_setting answered_settings[] = {
    PPPOEIA_PROCESS_SETTINGS(PPPOEIA_ANSWERED)
        PPPOEIA_BRIDGE_SETTINGS(PPPOEIA_ANSWERED, PPPOEIA_ANSWERED, PPPOEIA_ANSWERED)
            PPPOEIA_PORT_SETTINGS(PPPOEIA_ANSWERED, PPPOEIA_ANSWERED, PPPOEIA_ANSWERED)};
#undef PPPOEIA_ANSWERED
}  // namespace detail

// The operation that tells what that one of a setting sets; null where there is none, or none with a function id.
constexpr const operation* getter_of(const operation& setter)
{
  for (const detail::answered_setting& setting : detail::answered_settings)
    if (setting.setter == setter.name)
      return find_operation(setting.getter);
  return nullptr;
}

// What a result other than 0 means.
enum class meaning : uint8_t {
  // By its number, as a rule.
  not_applicable,
  not_possible,
  no_bridge_or_entry,
  not_initialised,
  no_memory,
  no_port,
  invalid_value,
  no_kernel_bridge,
  text_too_long,
  system_error,  // an errno value, and no more is known
  // By the rows of some operations.
  no_bridge,
  no_vlan,
  no_entry_behind,
  bridge_exists,
  name_too_long,
  too_many_slots,  // or no memory
  above_mtu,
  port_zero,
  port_out_of_range,
  no_atm_port,
  kvmng_out_of_reach,  // an errno value
  kvbridge_out_of_reach,
  kernel_refuses,
};

namespace detail {
using enum meaning;

// Stands for all of them in a row.
inline constexpr int32_t any_positive = 1;

struct refusal {
  int32_t result;
  meaning means;
};

struct refusal_list {
  std::array<refusal, 5> rows;
  uint8_t count;
};

inline constexpr refusal_list as_usual{};

constexpr refusal_list refuses(int32_t result, meaning means, auto... others)
{
  refusal_list list{};
  if constexpr (sizeof...(others) != 0)
    list = refuses(others...);
  list.rows[list.count++] = {result, means};
  return list;
}

// Apart from the rows of operations: the agent, which refuses, has no use for it.
#define PPPOEIA_ROW(id, name_, command, summary, refusals, ...) refusals,
inline constexpr refusal_list refusals[] = {PPPOEIA_OPERATIONS(PPPOEIA_ROW)};
#undef PPPOEIA_ROW
}  // namespace detail

// What a result means where the operation's row says nothing else.
constexpr meaning usual_meaning(int32_t result)
{
  switch (result) {
  case -EPERM:
    return meaning::not_possible;
  case -ENOENT:
    return meaning::no_bridge_or_entry;
  case -ENXIO:
    return meaning::not_initialised;
  case -ENOMEM:
    return meaning::no_memory;
  case -ENODEV:
    return meaning::no_port;
  case -EINVAL:
    return meaning::invalid_value;
  case -EMFILE:
    return meaning::no_kernel_bridge;
  case -ENOSPC:
    return meaning::text_too_long;
  default:
    return result > 0 ? meaning::not_applicable : meaning::system_error;
  }
}

constexpr meaning meaning_of(const operation& operation, int32_t result)
{
  const detail::refusal_list& own = detail::refusals[operation.id];
  for (size_t i = 0; i < own.count; ++i)
    if (own.rows[i].result == (result > 0 ? detail::any_positive : result))
      return own.rows[i].means;
  return usual_meaning(result);
}

}  // namespace api

#endif
