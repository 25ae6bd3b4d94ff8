#include "pppoeia/operations/dispatcher.h"

#include "pppoeia/api/table.h"
#include "pppoeia/pppoeia.h"

#include <atomic>
#include <type_traits>
#include <utility>

namespace {

// As far as a text travels back, zeros follow it, and not what the caller had sent there.
template <typename Argument>
void text_end(const ippcArg& argument)
{
  if constexpr (Argument::describe.what == api::kind::out_text) {
    char* text = static_cast<char*>(argument.data);
    const size_t length = strnlen(text, argument.length);
    std::memset(text + length, 0, argument.length - length);
  }
}

// Reads the arguments as their kinds say, and calls the operation. Overloads are told apart by the cast of a row.
template <auto Operation, typename... Arguments, size_t... Place>
int call_with(ippcArg* const* args, std::index_sequence<Place...>)
{
  const int result = Operation(Arguments::decode(args[Place]->data)...);
  if (result == 0)
    (text_end<Arguments>(*args[Place]), ...);
  return result;
}

template <auto Operation, typename... Arguments>
int call(ippcArg* const* args)
{
  return call_with<Operation, Arguments...>(args, std::index_sequence_for<Arguments...>{});
}

using caller = int (*)(ippcArg* const*);

namespace rows {
using namespace api;
using namespace api::args;

// The row's operation is the one with C linkage; where a C++ overload shares its name, the parameters tell which.
template <typename Argument>
struct parameter {
  using type = decltype(Argument::decode(nullptr));
};
template <label Name, kind Kind, typename Record>
struct parameter<record<Name, Kind, Record>> {
  using type = const Record*;
};
template <typename... Arguments>
using signature = int (*)(typename parameter<Arguments>::type...);

#define PPPOEIA_ROW(id, operation_, command, summary, refusals, ...)                                                   \
  call<static_cast<signature<__VA_ARGS__>>(&operation_) __VA_OPT__(, ) __VA_ARGS__>,
constexpr caller callers[] = {PPPOEIA_OPERATIONS(PPPOEIA_ROW)};
#undef PPPOEIA_ROW

}  // namespace rows

static_assert(std::size(rows::callers) == api::operations.size());

// How many requests are in an operation, and whether the process still takes any.
std::atomic<int> in_progress{0};
std::atomic<bool> ending{false};

class request_scope {
public:
  request_scope() { ++in_progress; }
  ~request_scope()
  {
    if (--in_progress == 0)
      in_progress.notify_all();
  }
  request_scope(const request_scope&) = delete;
  request_scope& operator=(const request_scope&) = delete;
};

}  // namespace

int32_t pppoeia_ippc_dispatcher(ippcFuncData* request)
{
  if (!ippcFuncDataIsValid(request))
    return -2;
  if (request->functionId >= api::operations.size())
    return -1;
  if (request->argCount != api::operations[request->functionId].argument_count)
    return -1;
  const request_scope scope;
  if (ending)
    return -1;
  const int32_t result = rows::callers[request->functionId](request->args);
  return ippcFuncDataAddRetVal(request, &result, sizeof result) == 0 ? 0 : -1;
}

void pppoeia_requests_end()
{
  ending = true;
  for (int now; (now = in_progress) != 0;)
    in_progress.wait(now);
}
