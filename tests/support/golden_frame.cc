#include "tests/support/golden_frame.h"

#include <charconv>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace {

// A whole text as a number; -1 for any other.
long number(std::string_view text, int base)
{
  long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  return error == std::errc{} && end == text.data() + text.size() ? value : -1;
}

// "61" or "61*12". False for what is neither.
bool bytes_add(std::vector<unsigned char>& frame, const std::string& word)
{
  const size_t star = word.find('*');
  const long byte = number(word.substr(0, star), 16);
  const long times = star == std::string::npos ? 1 : number(word.substr(star + 1), 10);
  if (byte < 0 || byte > 0xff || times < 1 || times > 0xffff)
    return false;
  frame.insert(frame.end(), static_cast<size_t>(times), static_cast<unsigned char>(byte));
  return true;
}

}  // namespace

std::vector<unsigned char> golden_frame(const std::string& name)
{
  const std::string path = std::string(GOLDEN_FRAMES) + "/" + name + ".frame";
  std::ifstream file(path);
  if (!file)
    throw std::runtime_error(path + ": cannot be read");
  std::vector<unsigned char> frame;
  size_t at = 0;
  for (std::string line; std::getline(file, line);) {
    ++at;
    std::istringstream words(line.substr(0, line.find('#')));
    for (std::string word; words >> word;)
      if (!bytes_add(frame, word))
        throw std::runtime_error(path + ":" + std::to_string(at) + ": '" + word + "' is no byte");
  }
  return frame;
}

std::string frame_text(const std::vector<unsigned char>& frame)
{
  std::string text;
  for (const unsigned char byte : frame) {
    constexpr char digits[] = "0123456789abcdef";
    text += {digits[byte >> 4], digits[byte & 0xf], ' '};
  }
  return text;
}
