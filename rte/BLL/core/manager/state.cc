#include "rte/BLL/core/manager/state.h"

#include "rte/BLL/core/manager/log_line.h"
#include <array>

namespace {

struct rule_t {
  procedure_t procedure;
  unsigned from;            // the states in which it may run, a bit each
  lifeState_t::value_t to;  // the state that it leads to
  const char* refusal;
};

template <typename... States>
constexpr unsigned in(States... states)
{
  return ((1u << states) | ...);
}

constexpr std::array<rule_t, 4> rules = {{
    {procedure_t::applyConfiguration, in(lifeState_t::notConfigured), lifeState_t::configured,
     "<<< Error applying configuration: BLL is not initialized.\n"},
    {procedure_t::start, in(lifeState_t::configured, lifeState_t::stopped), lifeState_t::running,
     "<<< Error: BLL is not configured or is already running.\n"},
    {procedure_t::applyDefaultSettings, in(lifeState_t::running), lifeState_t::running,
     "<<< Error: BLL is not running.\n"},
    {procedure_t::stop, in(lifeState_t::running), lifeState_t::stopped,
     "<<< Error stopping BLL: BLL not in the started state.\n"},
}};

constexpr const rule_t& ruleOf(procedure_t procedure)
{
  return rules[static_cast<size_t>(procedure)];
}

static_assert(
    [] {
      for (size_t i = 0; i < rules.size(); ++i)
        if (rules[i].procedure != static_cast<procedure_t>(i))
          return false;
      return true;
    }(),
    "a procedure's number is its rule's place");

}  // namespace

bool lifeState_t::allows(procedure_t procedure) const
{
  const rule_t& rule = ruleOf(procedure);
  if (rule.from & in(state_.load()))
    return true;
  logAt(LogImpl::warning) << rule.refusal;
  return false;
}

void lifeState_t::completed(procedure_t procedure)
{
  state_ = ruleOf(procedure).to;
}
