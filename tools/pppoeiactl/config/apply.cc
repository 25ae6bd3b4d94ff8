#include "tools/pppoeiactl/config/apply.h"

#include "tools/pppoeiactl/config/card_file.h"
#include "tools/pppoeiactl/config/card_read.h"
#include "tools/pppoeiactl/config/confirmation.h"
#include "tools/pppoeiactl/config/run_plan.h"
#include "tools/pppoeiactl/report.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace config {
namespace {

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
    pending.emplace(context.agent.socket(), *request.confirm_seconds,
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
