// Reads what the agent shows of itself at its status socket.
#ifndef TOOLS_PPPOEIACTL_SHOW_STATUS_CLIENT_H
#define TOOLS_PPPOEIACTL_SHOW_STATUS_CLIENT_H

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

// A page with what is asked of it, for a request's first line.
class status_page {
public:
  explicit status_page(std::string path) : target_(std::move(path)) {}
  status_page& with(const std::string& name, const std::string& value);
  // A command's arguments: a bridge, and a port of it.
  status_page& with_place(const std::vector<std::string>& arguments);
  const std::string& target() const { return target_; }

private:
  std::string target_;
};

// The socket, as PPPOEIA_STATUS_SOCKET names it for agent and tool.
std::string status_socket();

// A whole page of JSON. Throws command_error.
nlohmann::json status_get(const status_page& page);

// Each line of a page as it comes, until `take` says no. Throws command_error, also when the agent ends it.
void status_follow(const status_page& page, const std::function<bool(const std::string& line)>& take);

#endif
