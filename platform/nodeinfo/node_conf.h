// The node's configuration file: key=value lines, # for comments. /etc/pppoeia/node.conf, or the file that the
// environment variable PPPOEIA_NODE_CONF names.
#ifndef PLATFORM_NODEINFO_NODE_CONF_H
#define PLATFORM_NODEINFO_NODE_CONF_H

#include <optional>
#include <string>

namespace node_conf {

// The value of a key (the last one counts), without surrounding blanks; nothing when file or key are missing. Reads
// the file at each call. Any thread.
std::optional<std::string> value(const std::string& key);

}  // namespace node_conf

#endif
