// The table of operations as data, for everything that is not the agent itself: the client side, the command line,
// the documentation and the tests that call every row. Needs no operation to link.
#ifndef PPPOEIA_API_TABLE_H
#define PPPOEIA_API_TABLE_H

#include "pppoeia/api/arguments.h"
#include "pppoeia/api/operations.h"

#include <array>
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
#define PPPOEIA_ROW(id, name_, command, summary, ...) make_operation<__VA_ARGS__>(id, #name_, command, summary),
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

}  // namespace api

#endif
