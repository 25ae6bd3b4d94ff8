// Outputs of operations as lines for people or as JSON.
#ifndef TOOLS_PPPOEIACTL_REPORT_H
#define TOOLS_PPPOEIACTL_REPORT_H

#include "tools/pppoeiactl/context.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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

#endif
