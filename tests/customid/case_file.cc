#include "tests/customid/case_file.h"

#include <sstream>
#include <stdexcept>

namespace {

std::string trimmed(const std::string& text)
{
  const size_t begin = text.find_first_not_of(' ');
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

// Blanks around a word go unless it is quoted.
std::string unquoted(const std::string& word)
{
  const std::string text = trimmed(word);
  if (text.size() < 2 || text.front() != '"' || text.back() != '"')
    return text;
  std::string out;
  for (size_t i = 1; i + 1 < text.size(); ++i) {
    if (text.compare(i, 2, "\\x") == 0) {
      out += static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16));
      i += 3;
    } else {
      out += text[i];
    }
  }
  return out;
}

void settings_read(const std::string& line, format_case& settings)
{
  std::istringstream words(line);
  for (std::string name, value; words >> name >> value;) {
    if (name == "data")
      settings.data = value == "test" ? idGenTest : value == "available" ? idGenAvailable : idGenLive;
    else if (name == "port")
      settings.port = static_cast<unsigned>(std::stoul(value));
    else if (name == "vlan")
      settings.vlan = static_cast<unsigned>(std::stoul(value));
    else if (name == "cvid")
      settings.cvid = static_cast<unsigned>(std::stoul(value));
    else
      throw std::runtime_error("no such setting: " + name);
  }
}

format_case case_of(const std::string& line, size_t number, const format_case& settings)
{
  constexpr char arrow[] = " => ";
  const std::string padded = line + " ";
  const size_t first = padded.find(arrow);
  if (first == std::string::npos)
    throw std::runtime_error("line " + std::to_string(number) + " is no case: " + line);
  const size_t second = padded.find(arrow, first + 3);
  format_case read = settings;
  read.line = number;
  read.format = unquoted(padded.substr(0, first));
  read.text = unquoted(padded.substr(first + 4, second == std::string::npos ? second : second - first - 4));
  read.bytes = second == std::string::npos ? "" : trimmed(padded.substr(second + 4));
  return read;
}

}  // namespace

std::vector<format_case> cases_read(const std::string& text, size_t first_line)
{
  std::vector<format_case> cases;
  format_case settings;
  std::istringstream lines(text);
  size_t number = first_line;
  for (std::string line; std::getline(lines, line); ++number) {
    if (line.empty() || line[0] == '#')
      continue;
    if (line.starts_with("@ "))
      settings_read(line.substr(2), settings);
    else if (line.starts_with("! "))
      cases.at(cases.size() - 1).log.push_back(line.substr(2));
    else
      cases.push_back(case_of(line, number, settings));
  }
  return cases;
}

std::vector<format_case> cases_read_markdown(const std::string& text)
{
  std::vector<format_case> cases;
  std::istringstream lines(text);
  std::string block;
  size_t begin = 0;
  size_t number = 1;
  for (std::string line; std::getline(lines, line); ++number) {
    if (begin == 0 && line == "```formats") {
      begin = number + 1;
    } else if (begin != 0 && line == "```") {
      const std::vector<format_case> more = cases_read(block, begin);
      cases.insert(cases.end(), more.begin(), more.end());
      block.clear();
      begin = 0;
    } else if (begin != 0) {
      block += line + "\n";
    }
  }
  return cases;
}
