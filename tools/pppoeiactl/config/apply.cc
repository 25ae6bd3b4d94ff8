#include "tools/pppoeiactl/config/commands.h"

#include "tools/pppoeiactl/agent/report.h"
#include "tools/pppoeiactl/config/card_file.h"
#include "tools/pppoeiactl/config/card_read.h"
#include "tools/pppoeiactl/config/confirmation.h"
#include "tools/pppoeiactl/config/memory.h"
#include "tools/pppoeiactl/config/plan.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace config {
namespace {

// Doing the commands of a plan
// -------------------------------------------------------------------------------------------------------------------

struct run_result {
  size_t done = 0;                 // commands that the agent granted
  std::string failure;             // empty, or the command that it refused and why
  exit_status status = exit_done;  // of the failure
  bool memory_kept = true;         // what has no getter was noted

  bool ok() const { return failure.empty(); }
};

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
      result_.failure += context_.refusal_text(context_, *one.operation, one.inputs, told.result);
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

// The commands in order, those of one object on their way together. Nothing behind the object of the first refusal is
// begun; of that object's own commands all that were on their way are done, as far as they are granted.
run_result plan_run(const context& context, const plan& plan, const memory& memory)
{
  return runner(context, plan, memory).run();
}

// A file's card
// -------------------------------------------------------------------------------------------------------------------

struct apply_request {
  std::string file;
  plan_options plan;
  bool trial = true;
  bool dry_run = false;
  std::optional<unsigned> confirm_seconds;
};

apply_request request_of(const given_words& given)
{
  constexpr uint64_t longest = 86400;
  apply_request request;
  request.file = given.arguments[0];
  request.plan.keep = given.has("--keep");
  request.plan.renew = given.has("--renew");
  request.trial = !given.has("--no-trial");
  request.dry_run = given.has("--dry-run");
  if (const auto seconds = given.value("--confirm"))
    request.confirm_seconds = static_cast<unsigned>(number_word_parse(*seconds, longest, "--confirm"));
  return request;
}

// A file that makes no card at all is none to be applied: it would only take away.
card wanted_card(const std::string& name)
{
  card_file file = card_file_read(name);
  demand_usable(file, name);
  if (!file.wanted.initialised)
    throw command_error(exit_usage, "'" + name + "': makes no card without 'init' ('fini' ends the agent's)");
  return std::move(file.wanted);
}

read_options reading(const apply_request& request, const card& wanted)
{
  read_options read{.trial = request.trial, .names = {}};
  for (const auto& [name, bridge] : wanted.bridges)
    read.names.insert(name);
  return read;
}

words texts(const plan& plan)
{
  words list;
  for (const command& one : plan.commands)
    list.push_back(one.text());
  return list;
}

nlohmann::ordered_json json_texts(const words& list)
{
  nlohmann::ordered_json array = nlohmann::ordered_json::array();
  for (const std::string& text : list)
    array.push_back(printable(text));
  return array;
}

void print(const context& context, const plan& plan, bool changed)
{
  if (context.json) {
    nlohmann::ordered_json object{{"version", json_version}};
    object["changed"] = changed && !plan.commands.empty();
    object["commands"] = json_texts(texts(plan));
    object["assumed"] = json_texts(plan.assumed);
    std::printf("%s\n", object.dump().c_str());
    return;
  }
  for (const std::string& what : plan.assumed)
    std::printf("# not known, taken to be as wanted: %s\n", what.c_str());
  if (!changed)
    for (const command& one : plan.commands)
      std::printf("%s\n", one.text().c_str());
  if (plan.commands.empty())
    std::printf("# nothing to change\n");
  else if (changed)
    std::printf("# %zu commands done\n", plan.commands.size());
}

// Back to what was, whatever was reached.
std::string undo(const context& context, const memory& memory, const card& before, const read_options& read)
{
  try {
    const plan back = plan_make(card_read(context, read), before, {});
    const run_result result = plan_run(context, back, memory);
    if (result.ok())
      return "undone by " + std::to_string(back.commands.size()) + ", the card is as before";
    return "undone in part only, by " + std::to_string(result.done) + " of " + std::to_string(back.commands.size()) +
           ": " + result.failure;
  } catch (const command_error& error) {
    return std::string("not undone: ") + error.what();
  }
}

void card_change(const context& context, const plan& plan, const memory& memory, const card& before,
                 const read_options& read)
{
  const run_result result = plan_run(context, plan, memory);
  if (!result.memory_kept)
    std::fprintf(stderr, "pppoeiactl: %s cannot be written: kinds of ports will not be known later\n",
                 memory.path().c_str());
  if (result.ok())
    return;
  throw command_error(result.status, result.failure + "; done before: " + std::to_string(result.done) + " commands, " +
                                         undo(context, memory, before, read));
}

}  // namespace

void diff_run(const context& context, const given_words& given)
{
  const apply_request request = request_of(given);
  const card wanted = wanted_card(request.file);
  const plan plan = plan_make(card_read(context, reading(request, wanted)), wanted, request.plan);
  print(context, plan, false);
  if (!plan.commands.empty())
    throw command_error(exit_findings, "diff " + request.file + ": " + std::to_string(plan.commands.size()) +
                                           " commands would change the agent");
}

void apply_run(const context& context, const given_words& given)
{
  const apply_request request = request_of(given);
  const card wanted = wanted_card(request.file);
  memory memory(context.agent.socket());
  if (!request.dry_run && !memory.lock())
    throw command_error(exit_refused,
                        "apply: another is under way, or waits for its confirmation ('confirm' gives it)");
  const read_options read = reading(request, wanted);
  const card before = card_read(context, read);
  const plan plan = plan_make(before, wanted, request.plan);
  if (request.dry_run || plan.commands.empty())
    return print(context, plan, false);
  std::optional<confirmation> pending;
  if (request.confirm_seconds)
    pending.emplace(context, memory, *request.confirm_seconds,
                    [&](const ::context& own) { return undo(own, memory, before, read); });
  try {
    card_change(context, plan, memory, before, read);
  } catch (const command_error&) {
    if (pending)
      pending->drop();
    throw;
  }
  if (pending)
    pending->begin();
  print(context, plan, true);
  if (pending && !context.json)
    std::printf("# goes back in %u s unless \"pppoeiactl confirm\" follows\n", *request.confirm_seconds);
}

void confirm_run(const context& context, const given_words&)
{
  confirmation_give(context.agent.socket());
}

}  // namespace config
