#include "platform/nodeinfo/nodeinfo.h"

#include "platform/nodeinfo/node_conf.h"

#include <charconv>
#include <sstream>

int isActive(int capability)
{
  std::istringstream list(node_conf::value("active_capabilities").value_or(""));
  for (std::string word; std::getline(list, word, ',');) {
    const char* begin = word.data() + std::min(word.find_first_not_of(' '), word.size());
    int number = 0;
    const auto read = std::from_chars(begin, word.data() + word.size(), number);
    if (read.ec == std::errc{} && number == capability)
      return 1;
  }
  return 0;
}
