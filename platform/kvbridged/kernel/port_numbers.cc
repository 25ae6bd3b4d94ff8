#include "platform/kvbridged/kernel/port_numbers.h"

#include <charconv>
#include <iterator>

namespace kvbridged {
namespace {

struct claim {
  uint16_t number = 0;  // 0: none
  bool given = false;
};

uint16_t number_at_end(const std::string& name)
{
  const size_t before = name.find_last_not_of("0123456789");
  const size_t begin = before == std::string::npos ? 0 : before + 1;
  uint16_t number = 0;
  const auto [end, error] = std::from_chars(name.data() + begin, name.data() + name.size(), number);
  return error == std::errc{} ? number : uint16_t{0};
}

claim claim_of(const port_number_map& given, const std::string& interface)
{
  const auto at = given.find(interface);
  return at != given.end() ? claim{at->second, true} : claim{number_at_end(interface), false};
}

}  // namespace

port_number_map port_numbers(const port_number_map& given, const std::vector<std::string>& interfaces)
{
  struct claims {
    int given = 0;
    int all = 0;
  };
  std::map<uint16_t, claims> made;
  for (const std::string& interface : interfaces) {
    const claim one = claim_of(given, interface);
    ++made[one.number].all;
    made[one.number].given += one.given ? 1 : 0;
  }
  port_number_map numbers;
  for (const std::string& interface : interfaces) {
    const claim one = claim_of(given, interface);
    const claims& rivals = made[one.number];
    const int stronger_or_equal = one.given || rivals.given > 0 ? rivals.given : rivals.all;
    if (one.number != 0 && stronger_or_equal == 1 && (one.given || rivals.given == 0))
      numbers[interface] = one.number;
  }
  return numbers;
}

}  // namespace kvbridged
