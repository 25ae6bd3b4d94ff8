// Which port number an interface has in a kernel bridge: the one given for its name, else the number that its name ends
// in (lan3: 3). So it depends on names alone, neither on the order in which interfaces come nor on who came before.
//
// A number that two have a claim to belongs to neither, since one line must never pass for another; but one that was
// given wins over one that a name ends in.
#ifndef PLATFORM_KVBRIDGED_KERNEL_PORT_NUMBERS_H
#define PLATFORM_KVBRIDGED_KERNEL_PORT_NUMBERS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kvbridged {

using port_number_map = std::map<std::string, uint16_t>;  // by interface

// The numbers of those interfaces that have one.
port_number_map port_numbers(const port_number_map& given, const std::vector<std::string>& interfaces);

}  // namespace kvbridged

#endif
