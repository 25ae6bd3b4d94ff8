#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace {

constexpr std::string_view blanks = " \t\r\n";

// Takes one word off the front of a line.
class word_reader {
public:
  explicit word_reader(std::string_view line) : rest_(line) {}

  bool next(std::string& word)
  {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(blanks), rest_.size()));
    if (rest_.empty() || rest_.front() == '#')
      return false;
    word.clear();
    while (!rest_.empty() && blanks.find(rest_.front()) == std::string_view::npos)
      take_piece(word);
    return true;
  }

private:
  void take_piece(std::string& word)
  {
    const char c = take();
    if (c == '\'' || c == '"')
      take_quoted(word, c);
    else if (c == '\\')
      take_escaped(word);
    else
      word += c;
  }

  void take_quoted(std::string& word, char quote)
  {
    while (true) {
      if (rest_.empty())
        throw command_error(exit_usage, "a quote is not closed");
      const char c = take();
      if (c == quote)
        return;
      if (c == '\\' && quote == '"')
        take_escaped(word);
      else
        word += c;
    }
  }

  void take_escaped(std::string& word)
  {
    if (rest_.empty())
      throw command_error(exit_usage, "a backslash ends the line");
    const char c = take();
    unsigned value = 0;
    if (c == 'x' && rest_.size() >= 2 &&
        std::from_chars(rest_.data(), rest_.data() + 2, value, 16).ptr == rest_.data() + 2) {
      word += static_cast<char>(value);
      rest_.remove_prefix(2);
      return;
    }
    word += c;
  }

  char take()
  {
    const char c = rest_.front();
    rest_.remove_prefix(1);
    return c;
  }

  std::string_view rest_;
};

constexpr bool is_printable(unsigned char c)
{
  return c >= 0x20 && c < 0x7f;
}

// Steps from one word to another, of which a change of two neighbours is one.
size_t distance(const std::string& from, const std::string& to)
{
  std::vector<size_t> before_last;
  std::vector<size_t> last(to.size() + 1);
  for (size_t i = 0; i < last.size(); ++i)
    last[i] = i;
  for (size_t i = 1; i <= from.size(); ++i) {
    std::vector<size_t> now{i};
    for (size_t j = 1; j <= to.size(); ++j) {
      now.push_back(std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (from[i - 1] != to[j - 1])}));
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
        now[j] = std::min(now[j], before_last[j - 2] + 1);
    }
    before_last = std::move(last);
    last = std::move(now);
  }
  return last.back();
}

}  // namespace

words line_split(std::string_view line)
{
  words split;
  word_reader reader(line);
  for (std::string word; reader.next(word);)
    split.push_back(word);
  return split;
}

std::string word_quote(const std::string& word)
{
  std::string quoted = "\"";
  for (const char byte : word) {
    const auto c = static_cast<unsigned char>(byte);
    if (c < 0x20 || c >= 0x7f) {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      quoted += escaped;
    } else {
      if (c == '"' || c == '\\')
        quoted += '\\';
      quoted += byte;
    }
  }
  return quoted + "\"";
}

std::string word_write(const std::string& word)
{
  constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._/:,=+-";
  return !word.empty() && word.find_first_not_of(plain) == std::string::npos ? word : word_quote(word);
}

std::string printable(const std::string& text)
{
  std::string out;
  for (const char byte : text) {
    if (is_printable(static_cast<unsigned char>(byte))) {
      out += byte;
      continue;
    }
    char escaped[5];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    out += escaped;
  }
  return out;
}

std::string joined(const words& list, const char* between)
{
  std::string text;
  for (const std::string& word : list)
    text += (text.empty() ? "" : between) + word;
  return text;
}

std::string ranges_text(const std::vector<uint32_t>& ids)
{
  std::string text;
  for (size_t i = 0; i < ids.size();) {
    size_t last = i;
    while (last + 1 < ids.size() && ids[last + 1] == ids[last] + 1)
      ++last;
    text += (text.empty() ? "" : ", ") + std::to_string(ids[i]);
    if (last > i)
      text += (last > i + 1 ? " to " : ", ") + std::to_string(ids[last]);
    i = last + 1;
  }
  return text.empty() ? "none" : text;
}

std::optional<std::string> suggestion(const std::string& misspelt, const std::vector<std::string>& known)
{
  const std::string* nearest = nullptr;
  size_t least = std::max<size_t>(misspelt.size() / 3, 1) + 1;
  for (const std::string& word : known)
    if (const size_t steps = distance(misspelt, word); steps < least) {
      nearest = &word;
      least = steps;
    }
  return nearest ? std::optional(*nearest) : std::nullopt;
}
