#include "platform/nodeinfo/node_conf.h"

#include <cstdlib>
#include <fstream>
#include <string_view>

namespace node_conf {
namespace {

std::string_view trimmed(std::string_view text)
{
  constexpr std::string_view blanks = " \t\r";
  const size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string_view::npos)
    return {};
  return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

}  // namespace

std::optional<std::string> value(const std::string& key)
{
  const char* named = std::getenv("PPPOEIA_NODE_CONF");
  std::ifstream file(named ? named : "/etc/pppoeia/node.conf");
  std::optional<std::string> found;
  for (std::string line; std::getline(file, line);) {
    const std::string_view text = std::string_view(line).substr(0, line.find('#'));
    const size_t equals = text.find('=');
    if (equals != std::string_view::npos && trimmed(text.substr(0, equals)) == key)
      found = trimmed(text.substr(equals + 1));
  }
  return found;
}

}  // namespace node_conf
