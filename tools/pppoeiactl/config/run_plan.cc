#include "tools/pppoeiactl/config/run_plan.h"

#include "tools/pppoeiactl/refusal.h"

namespace config {
namespace {

constexpr size_t together_max = 64;

bool adds_bridge(const command& one)
{
  return one.operation->name == "pppoeia_bridge_add";
}

// Whether something must be asked or noted between this command and the next.
bool ends_group(const command& one)
{
  return adds_bridge(one) || one.operation->name == "pppoeia_bridge_del";
}

size_t group_end(const std::vector<command>& commands, size_t begin)
{
  size_t end = begin + 1;
  while (end < commands.size() && end - begin < together_max && !ends_group(commands[end - 1]) &&
         commands[end].object == commands[begin].object)
    ++end;
  return end;
}

class runner {
public:
  runner(const context& context, const plan& plan, const memory& memory)
      : context_(context), commands_(plan.commands), memory_(memory)
  {}

  run_result run()
  {
    for (size_t begin = 0; begin < commands_.size() && result_.ok();) {
      const size_t end = group_end(commands_, begin);
      group(begin, end);
      begin = end;
    }
    return std::move(result_);
  }

private:
  void note(const std::string& lines) { result_.memory_kept = memory_.append(lines) && result_.memory_kept; }

  void group(size_t begin, size_t end)
  {
    std::string before;
    std::vector<agent_client::question> questions;
    for (size_t i = begin; i < end; ++i) {
      before += commands_[i].before;
      questions.push_back({commands_[i].operation, commands_[i].inputs, {}});
    }
    note(before);
    context_.agent.call_all(questions);
    std::string after;
    for (size_t i = begin; i < end; ++i)
      answered(commands_[i], questions[i - begin].told, after);
    note(after);
    if (result_.ok() && adds_bridge(commands_[end - 1]))
      note_max_pdu(commands_[end - 1].inputs[0]);
  }

  void answered(const command& one, const agent_client::answer& told, std::string& after)
  {
    if (told.ok()) {
      ++result_.done;
      after += one.after;
    } else if (result_.ok()) {
      fail(one, told);
    }
  }

  void fail(const command& one, const agent_client::answer& told)
  {
    result_.failure = one.text() + ": ";
    result_.status = exit_refused;
    try {
      context_.demand_arrival(told);
      result_.failure += refusal_text(context_, *one.operation, one.inputs, told.result);
    } catch (const command_error& error) {
      result_.failure += error.what();
      result_.status = error.status();
    }
  }

  void note_max_pdu(const std::string& bridge)
  {
    const setting& row = bridge_settings()[bridge_max_pdu];
    const agent_client::answer most = context_.ask(*api::find_operation(row.getter), {bridge});
    if (most.result == 0)
      note(bridge_max_pdu_line(bridge, told_value(row, most, 1)));
  }

  const context& context_;
  const std::vector<command>& commands_;
  const memory& memory_;
  run_result result_;
};

}  // namespace

run_result plan_run(const context& context, const plan& plan, const memory& memory)
{
  return runner(context, plan, memory).run();
}

}  // namespace config
