#include "tools/pppoeiactl/agent/report.h"

#include "tools/pppoeiactl/words/line.h"

#include "pppoeia/api/records.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

struct counter_name {
  const char* name;
  uint32_t pppoeia_stats::*counter;
};

constexpr counter_name counters[] = {
    {"padi", &pppoeia_stats::padi},
    {"padr", &pppoeia_stats::padr},
    {"pado", &pppoeia_stats::pado},
    {"pads", &pppoeia_stats::pads},
    {"padt", &pppoeia_stats::padt},
    {"dropped", &pppoeia_stats::dropped},
    {"unknown", &pppoeia_stats::unknown_code},
    {"malformed", &pppoeia_stats::malformed},
    {"unchanged", &pppoeia_stats::unchanged},
};

// Arguments whose name alone does not say which setting they are; the command does: "port circuit-id-mode get".
std::string setting_name(const api::operation& operation, std::string_view argument)
{
  constexpr std::string_view short_names[] = {"format", "insert", "mode", "cvlan", "level"};
  if (operation.command == "node debug-state get")
    return "debug-state";
  if (std::ranges::find(short_names, argument) == std::end(short_names))
    return std::string(argument);
  const std::string command(operation.command);
  const size_t begin = command.find(' ') + 1;
  const std::string middle = command.substr(begin, command.rfind(' ') - begin);
  if (argument == "level")
    return "log-level";
  return argument == "format" && !middle.ends_with("-format") ? middle + "-format" : middle;
}

template <typename Record>
Record record_of(const agent_client::buffer& bytes)
{
  Record record{};
  std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof record));
  return record;
}

}  // namespace

void json_put_text(nlohmann::ordered_json& object, const std::string& key, const std::string& text)
{
  std::string utf8;
  std::string hex;
  for (const char byte : text) {
    const auto c = static_cast<unsigned char>(byte);
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", c);
    hex += digits;
    if (c >= 0x80) {
      utf8 += static_cast<char>(0xc0 | c >> 6);
      utf8 += static_cast<char>(0x80 | (c & 0x3f));
    } else {
      utf8 += byte;
    }
  }
  object[key] = utf8;
  object[key + "_hex"] = hex;
}

void report::add_text(const std::string& key, const std::string& text)
{
  lines_.emplace_back(key, "'" + printable(text) + "'");
  json_put_text(json_, key, text);
}

void report::add_number(const std::string& key, int64_t number, const std::string& word)
{
  lines_.emplace_back(key, word);
  json_[key] = number;
  json_[key + "_name"] = word;
}

void report::add_number(const std::string& key, int64_t number)
{
  lines_.emplace_back(key, std::to_string(number));
  json_[key] = number;
}

void report::add_word(const std::string& key, const std::string& word)
{
  lines_.emplace_back(key, word);
  json_[key] = word;
}

void report::add_flag(const std::string& key, bool flag)
{
  lines_.emplace_back(key, flag ? "yes" : "no");
  json_[key] = flag;
}

void report::add_list(const std::string& key, nlohmann::ordered_json list, const std::string& line)
{
  lines_.emplace_back(key, line);
  json_[key] = std::move(list);
}

void report::add_entry(const pppoeia_port_vlan_entry& entry)
{
  const api::argument mode{api::kind::out_i32, "mode", 4, api::values::cid_mode};
  add_number("vlan", entry.vlan_id);
  add_number("circuit-id-mode", entry.cid_mode, agent_client::number_word(mode, entry.cid_mode));
  add_text("circuit-id-format", std::string(entry.cid_format, strnlen(entry.cid_format, sizeof entry.cid_format)));
  add_text("remote-id-format", std::string(entry.rid_format, strnlen(entry.rid_format, sizeof entry.rid_format)));
}

void report::add(const api::argument& argument, const std::string& key, const agent_client::buffer& bytes)
{
  switch (argument.what) {
  case api::kind::out_text:
    return add_text(key, agent_client::text_of(bytes));
  case api::kind::out_u32:
  case api::kind::out_i32: {
    const int64_t number = agent_client::number_of(argument, bytes);
    return argument.words == api::values::none ? add_number(key, number)
                                               : add_number(key, number, agent_client::number_word(argument, number));
  }
  case api::kind::out_stats: {
    const auto stats = record_of<pppoeia_stats>(bytes);
    for (const counter_name& row : counters) {
      add_number(row.name, stats.*row.counter);
      counters_[row.name] = stats.*row.counter;
    }
    return;
  }
  case api::kind::out_entry:
    return add_entry(record_of<pppoeia_port_vlan_entry>(bytes));
  default:
    return;
  }
}

void report::add(const api::operation& operation, const agent_client::answer& answer)
{
  const auto arguments = operation.arguments();
  for (size_t i = 0; i < arguments.size(); ++i)
    if (api::is_output(arguments[i].what))
      add(arguments[i], setting_name(operation, arguments[i].name), answer.buffers[i]);
}

void report::add_absent(const api::operation& operation)
{
  for (const api::argument& argument : operation.arguments())
    if (api::is_output(argument.what))
      json_[setting_name(operation, argument.name)] = nullptr;
}

void report::print(const context& context) const
{
  if (context.json) {
    nlohmann::ordered_json whole{{"version", json_version}};
    whole.update(json_);
    std::printf("%s\n", whole.dump().c_str());
    return;
  }
  size_t width = 0;
  for (const auto& [key, value] : lines_)
    width = std::max(width, key.size());
  const size_t place = context.watch ? context.watch->next_place() : 0;
  for (const auto& [key, value] : lines_) {
    const auto counter = counters_.find(key);
    const bool moving = context.watch && counter != counters_.end();
    std::printf("%-*s %s%s\n", static_cast<int>(width), key.c_str(), value.c_str(),
                moving ? context.watch->rate(std::to_string(place) + "/" + key, counter->second).c_str() : "");
  }
}

void watch::round(clock::time_point now)
{
  seconds_ = at_ == clock::time_point() ? 0 : std::chrono::duration<double>(now - at_).count();
  at_ = now;
  place_ = 0;
}

std::string watch::rate(const std::string& key, uint64_t value)
{
  const auto [at, fresh] = last_.emplace(key, value);
  const uint64_t before = at->second;
  at->second = value;
  if (fresh || value <= before || seconds_ <= 0)  // less: it was reset
    return {};
  char text[32];
  std::snprintf(text, sizeof text, " +%.3g/s", static_cast<double>(value - before) / seconds_);
  return text;
}
