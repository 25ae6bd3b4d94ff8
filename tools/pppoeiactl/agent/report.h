// Outputs of operations as lines for people or as JSON, and how fast they change.
#ifndef TOOLS_PPPOEIACTL_AGENT_REPORT_H
#define TOOLS_PPPOEIACTL_AGENT_REPORT_H

#include "tools/pppoeiactl/agent/context.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Of the JSON that this program prints: goes up when a key gets another meaning or goes away.
inline constexpr int json_version = 1;

// A text as JSON: valid UTF-8 whatever its bytes are (bytes above 127 and control characters as \u00xx), and the bytes
// in hexadecimal beside it as "<key>_hex".
void json_put_text(nlohmann::ordered_json& object, const std::string& key, const std::string& text);

// Names and values in order; texts keep their bytes.
class report {
public:
  // All outputs of an answer. A setting has one name wherever it stands: "circuit-id-mode", not "mode".
  void add(const api::operation& operation, const agent_client::answer& answer);
  // The operation has nothing to tell here: null in JSON, no lines.
  void add_absent(const api::operation& operation);
  void add_text(const std::string& key, const std::string& text);
  void add_number(const std::string& key, int64_t number);
  // A number that has a word: in JSON the word stands beside it as "<key>_name".
  void add_number(const std::string& key, int64_t number, const std::string& word);
  // Words of this program, not of the agent: no quotes, no bytes beside them.
  void add_word(const std::string& key, const std::string& word);
  void add_flag(const std::string& key, bool flag);
  // A list, with the line that says it to people.
  void add_list(const std::string& key, nlohmann::ordered_json list, const std::string& line);
  void add_entry(const pppoeia_port_vlan_entry& entry);

  bool empty() const { return lines_.empty(); }
  const nlohmann::ordered_json& json() const { return json_; }
  nlohmann::ordered_json& json() { return json_; }
  const std::vector<std::pair<std::string, std::string>>& lines() const { return lines_; }

  // "key value" lines with aligned values, or one JSON object that begins with its version.
  void print(const context& context) const;

private:
  void add(const api::argument& argument, const std::string& key, const agent_client::buffer& bytes);

  std::vector<std::pair<std::string, std::string>> lines_;
  std::map<std::string, uint64_t> counters_;  // among the lines
  nlohmann::ordered_json json_ = nlohmann::ordered_json::object();
};

// Rounds of a command that is repeated: how fast its numbers go.
class watch {
public:
  using clock = std::chrono::steady_clock;

  // Begins a round: the time that has passed since the last one counts.
  void round(clock::time_point now);

  // Counts what is printed in a round: the place of a number whose owner has no name.
  size_t next_place() { return ++place_; }

  // " +3/s", what a number has changed a second since the last round; empty in the first, and when it has not.
  std::string rate(const std::string& key, uint64_t value);

private:
  clock::time_point at_{};
  size_t place_ = 0;
  double seconds_ = 0;  // since the round before
  std::map<std::string, uint64_t> last_;
};

#endif
