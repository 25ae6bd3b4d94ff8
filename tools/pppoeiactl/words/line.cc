#include "tools/pppoeiactl/words/line.h"

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
