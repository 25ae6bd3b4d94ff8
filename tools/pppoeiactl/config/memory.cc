#include "tools/pppoeiactl/config/memory.h"

#include "tools/pppoeiactl/agent/context.h"
#include "tools/pppoeiactl/words/line.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace config {
namespace {

// A file that closes itself.
struct open_file {
  int fd = -1;
  ~open_file()
  {
    if (fd >= 0)
      close(fd);
  }
};

// The run of the agent: another one makes its socket anew.
std::string run_line(const std::string& socket, struct stat& found)
{
  if (stat(socket.c_str(), &found) != 0)
    return {};
  return "agent " + std::to_string(found.st_ino) + " " + std::to_string(found.st_mtim.tv_sec) + "." +
         std::to_string(found.st_mtim.tv_nsec) + "\n";
}

// Who may configure the agent may note what was configured; what others could have put there is not believed.
bool is_ours(int fd, const struct stat& socket)
{
  struct stat found {};
  return fstat(fd, &found) == 0 && S_ISREG(found.st_mode) && (found.st_mode & S_IWOTH) == 0 &&
         (found.st_uid == 0 || found.st_uid == geteuid() || found.st_uid == socket.st_uid);
}

int memory_open(const std::string& path, const struct stat& socket, int flags)
{
  const int fd = open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600);
  if (fd < 0 || is_ours(fd, socket))
    return fd;
  close(fd);
  return -1;
}

bool write_whole(int fd, const std::string& text)
{
  return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// A file of another run starts anew; a new one is for whom the socket is for.
bool run_begin(int fd, const std::string& run, const struct stat& socket)
{
  std::string head(run.size(), '\0');
  if (pread(fd, head.data(), head.size(), 0) == static_cast<ssize_t>(head.size()) && head == run)
    return true;
  if (fchown(fd, static_cast<uid_t>(-1), socket.st_gid) == 0)
    (void)fchmod(fd, 0660);
  return ftruncate(fd, 0) == 0 && write_whole(fd, run);
}

std::string object(const std::string& bridge, uint32_t id)
{
  return word_write(bridge) + " " + std::to_string(id);
}

std::string values_text(const port& port, size_t first)
{
  std::string text;
  for (size_t i = first; i <= port_reserved; ++i)
    text += " " + word_write(port.values[i].value_or(""));
  return text + "\n";
}

// Reads the lines again.
class memory_reader {
public:
  void line(const words& line)
  {
    if (line.empty())
      return;
    const std::string& event = line[0];
    if (event == "all-removed")
      bridges.clear();
    else if (line.size() > 2 && event == "bridge")
      bridges[line[1]] = {.slots = line[2], .max_pdu = {}, .ports = {}};
    else if (line.size() > 2 && event == "max-pdu")
      bridges[line[1]].max_pdu = line[2];
    else if (line.size() > 1 && event == "bridge-removed")
      bridges.erase(line[1]);
    else if (line.size() > 2)
      port_line(event, bridges[line[1]].ports, static_cast<uint32_t>(std::stoul(line[2])), line);
  }

  std::map<std::string, remembered_bridge> bridges;

private:
  static void port_line(const std::string& event, std::map<uint32_t, remembered_port>& ports, uint32_t id,
                        const words& line)
  {
    if (event == "port-removed")
      ports.erase(id);
    else if (event == "port-in-doubt")
      ports[id] = {.known = {}, .doubtful = true};
    else if (event == "port")
      values_take(ports[id] = {}, 0, line);
    else if (event == "place")
      values_take(ports.try_emplace(id, nothing_known()).first->second, port_name, line);
    else if (event == "place-in-doubt")
      ports.try_emplace(id, nothing_known()).first->second.place_in_doubt = true;
  }

  static remembered_port nothing_known()
  {
    remembered_port port;
    port.known.values.fill(std::nullopt);
    return port;
  }

  static void values_take(remembered_port& into, size_t first, const words& line)
  {
    const size_t most = event_words + (port_reserved + 1 - first);
    if (line.size() != most - (first == 0 ? 0 : place_skipped))
      return;
    size_t at = event_words;
    for (size_t i = first; i <= port_reserved; ++i)
      if (first == 0 || port_settings()[i].how == change::by_name)
        into.known.values[i] = line[at++];
    into.place_in_doubt = false;
  }

  static constexpr size_t event_words = 3;
  static constexpr size_t place_skipped = 2;  // type and kind, which a new name leaves as they are
};

}  // namespace

std::map<std::string, remembered_bridge> memory::read() const
{
  struct stat socket {};
  const std::string run = run_line(socket_, socket);
  const open_file file{run.empty() ? -1 : memory_open(path(), socket, O_RDONLY)};
  if (file.fd < 0)
    return {};
  std::string text;
  char block[65536];
  for (ssize_t count; (count = ::read(file.fd, block, sizeof block)) > 0;)
    text.append(block, static_cast<size_t>(count));
  if (!text.starts_with(run))
    return {};
  memory_reader reader;
  std::istringstream lines(text.substr(run.size()));
  try {
    for (std::string line; std::getline(lines, line);)
      reader.line(line_split(line));
  } catch (const std::exception&) {
    return {};  // nobody's lines: nothing is known
  }
  return reader.bridges;
}

bool memory::append(const std::string& lines) const
{
  if (lines.empty())
    return true;
  struct stat socket {};
  const std::string run = run_line(socket_, socket);
  const open_file file{run.empty() ? -1 : memory_open(path(), socket, O_RDWR | O_CREAT | O_APPEND)};
  return file.fd >= 0 && run_begin(file.fd, run, socket) && write_whole(file.fd, lines);
}

bool memory::lock()
{
  struct stat socket {};
  if (run_line(socket_, socket).empty())
    return true;
  locked_ = memory_open(path(), socket, O_RDWR | O_CREAT | O_APPEND);
  return locked_ < 0 || flock(locked_, LOCK_EX | LOCK_NB) == 0;
}

void memory::unlock()
{
  if (locked_ >= 0)
    close(locked_);
  locked_ = -1;
}

memory::~memory()
{
  unlock();
}

std::string bridge_added_line(const std::string& bridge, const std::string& slots)
{
  return "bridge " + word_write(bridge) + " " + slots + "\n";
}

std::string bridge_max_pdu_line(const std::string& bridge, const std::string& most)
{
  return "max-pdu " + word_write(bridge) + " " + most + "\n";
}

std::string bridge_removed_line(const std::string& bridge)
{
  return "bridge-removed " + word_write(bridge) + "\n";
}

std::string all_removed_line()
{
  return "all-removed\n";
}

std::string port_added_line(const std::string& bridge, uint32_t id, const port& port)
{
  return "port " + object(bridge, id) + values_text(port, 0);
}

std::string port_in_doubt_line(const std::string& bridge, uint32_t id)
{
  return "port-in-doubt " + object(bridge, id) + "\n";
}

std::string port_removed_line(const std::string& bridge, uint32_t id)
{
  return "port-removed " + object(bridge, id) + "\n";
}

std::string place_in_doubt_line(const std::string& bridge, uint32_t id)
{
  return "place-in-doubt " + object(bridge, id) + "\n";
}

std::string place_line(const std::string& bridge, uint32_t id, const port& port)
{
  std::string text = "place " + object(bridge, id);
  for (size_t i = port_name; i <= port_reserved; ++i)
    if (port_settings()[i].how == change::by_name)
      text += " " + word_write(port.values[i].value_or(""));
  return text + "\n";
}

memory_note::memory_note(const context& context, const api::operation& operation, const words& inputs)
    : context_(context)
{
  words notes;
  const memory kept(context.agent.socket());
  const auto id = [&] {
    return static_cast<uint32_t>(*agent_client::number_parse({api::kind::u32, "", 4, {}}, inputs[1]));
  };
  const auto absent = [&] { return context.ask(row("pppoeia_port_state_get"), {inputs[0], inputs[1]}).result == -19; };
  const auto bridge_absent = [&] { return context.ask(row("pppoeia_bridge_state_get"), {inputs[0]}).result != 0; };
  if (operation.name == "pppoeia_port_add" && absent()) {
    kept.append(port_added_line(inputs[0], id(), port_born(inputs, notes)));
    refused_ = port_removed_line(inputs[0], id());
  } else if (operation.name == "pppoeia_port_name_update") {
    port named;
    port_renamed(named, inputs, notes);
    kept.append(place_in_doubt_line(inputs[0], id()));
    after_ = place_line(inputs[0], id(), named);
    refused_ = port_removed_line(inputs[0], id());
  } else if (operation.name == "pppoeia_port_del") {
    after_ = port_removed_line(inputs[0], id());
  } else if (operation.name == "pppoeia_bridge_add" && bridge_absent()) {
    kept.append(bridge_added_line(inputs[0], inputs[1]));
    refused_ = bridge_removed_line(inputs[0]);
    bridge_added_ = inputs[0];
  } else if (operation.name == "pppoeia_bridge_del") {
    after_ = bridge_removed_line(inputs[0]);
  } else if (operation.name == "pppoeia_init" || operation.name == "pppoeia_fini") {
    after_ = all_removed_line();
  }
}

void memory_note::answered(bool granted)
{
  const memory kept(context_.agent.socket());
  kept.append(granted ? after_ : refused_);
  if (!granted || bridge_added_.empty())
    return;
  const agent_client::answer most = context_.ask(row("pppoeia_bridge_max_pdu_get"), {bridge_added_});
  if (most.result == 0)
    kept.append(bridge_max_pdu_line(bridge_added_, told_value(bridge_settings()[bridge_max_pdu], most, 1)));
}

}  // namespace config
