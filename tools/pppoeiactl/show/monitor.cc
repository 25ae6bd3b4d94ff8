#include "tools/pppoeiactl/show/commands.h"

#include "tools/pppoeiactl/show/status_client.h"
#include "tools/pppoeiactl/words/line.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

using nlohmann::json;

// Capture files
// -------------------------------------------------------------------------------------------------------------------

// Numbers are in this machine's order: the section's head says which that is.
template <typename Number>
void number_add(std::string& to, Number number)
{
  to.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void padded_add(std::string& to, std::string_view bytes)
{
  to += bytes;
  to.append((4 - bytes.size() % 4) % 4, '\0');
}

void option_add(std::string& to, uint16_t code, std::string_view value)
{
  number_add(to, code);
  number_add(to, static_cast<uint16_t>(value.size()));
  padded_add(to, value);
}

constexpr uint32_t section_header = 0x0a0d0d0a;
constexpr uint32_t interface_description = 1;
constexpr uint32_t enhanced_packet = 6;
constexpr uint16_t option_end = 0;
constexpr uint16_t option_comment = 1;
constexpr uint16_t interface_resolution = 9;
constexpr uint16_t packet_flags = 2;

// Frames as a pcapng file, as Wireshark opens it: Ethernet, nanoseconds, a comment with each frame.
class pcapng_file {
public:
  // "-" is standard output. Begins the file. Throws command_error, as write() does.
  explicit pcapng_file(const std::string& name);
  ~pcapng_file();
  pcapng_file(const pcapng_file&) = delete;
  pcapng_file& operator=(const pcapng_file&) = delete;

  enum class direction : uint32_t { inbound = 1, outbound = 2 };
  // `frame` is what there is of a frame of `length` bytes. It is in the file when this returns.
  void write(uint64_t time_ns, std::string_view frame, uint32_t length, direction way, std::string_view comment);

private:
  void put(uint32_t type, const std::string& body);

  std::string name_;
  std::FILE* file_;
};

pcapng_file::pcapng_file(const std::string& name)
    : name_(name), file_(name == "-" ? stdout : std::fopen(name.c_str(), "wbe"))
{
  if (!file_)
    throw command_error(exit_usage, "cannot write " + name_ + ": " + std::strerror(errno));
  std::string section;
  number_add(section, uint32_t{0x1a2b3c4d});
  number_add(section, uint16_t{1});  // version 1.0
  number_add(section, uint16_t{0});
  number_add(section, int64_t{-1});  // of unknown length
  put(section_header, section);
  std::string interface;
  number_add(interface, uint16_t{1});  // Ethernet
  number_add(interface, uint16_t{0});
  number_add(interface, uint32_t{0});  // no limit to a frame's bytes
  option_add(interface, interface_resolution, std::string_view("\x09", 1));
  option_add(interface, option_end, {});
  put(interface_description, interface);
}

pcapng_file::~pcapng_file()
{
  if (file_ && file_ != stdout)
    std::fclose(file_);
}

void pcapng_file::write(uint64_t time_ns, std::string_view frame, uint32_t length, direction way,
                        std::string_view comment)
{
  std::string body;
  number_add(body, uint32_t{0});  // of the first interface
  number_add(body, static_cast<uint32_t>(time_ns >> 32));
  number_add(body, static_cast<uint32_t>(time_ns));
  number_add(body, static_cast<uint32_t>(frame.size()));
  number_add(body, length);
  padded_add(body, frame);
  option_add(body, option_comment, comment);
  std::string flags;
  number_add(flags, static_cast<uint32_t>(way));
  option_add(body, packet_flags, flags);
  option_add(body, option_end, {});
  put(enhanced_packet, body);
}

void pcapng_file::put(uint32_t type, const std::string& body)
{
  std::string block;
  const auto length = static_cast<uint32_t>(body.size() + 12);
  number_add(block, type);
  number_add(block, length);
  block += body;
  number_add(block, length);
  if (std::fwrite(block.data(), 1, block.size(), file_) != block.size() || std::fflush(file_) != 0)
    throw command_error(exit_usage, "cannot write " + name_ + ": " + std::strerror(errno));
}

// Frames
// -------------------------------------------------------------------------------------------------------------------

std::string bytes_of(const json& frame, const char* key)
{
  const std::string digits = frame.value(key, "");
  std::string bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

std::string text_of(const json& frame, const char* key)
{
  const std::string text = printable(frame.value(key, ""));
  return text.empty() ? "-" : text;
}

// "dropped: vendor tag on an untrusted port"
std::string what_was_done(const json& frame)
{
  const std::string of = text_of(frame, "class");
  return (of == "accepted" ? "" : of + ": ") + text_of(frame, "meaning");
}

std::string place_of(const json& frame)
{
  return text_of(frame, "bridge") + " port " + std::to_string(frame.value("port", 0)) + " vlan " +
         std::to_string(frame.value("vlan", 0));
}

void line_print(const json& frame)
{
  const uint32_t before = frame.value("length_before", 0u), after = frame.value("length_after", 0u);
  std::string sizes = std::to_string(before) + " bytes";
  if (after != 0 && after != before)
    sizes += ", now " + std::to_string(after);
  std::printf("%s %s %s %s %s (%s)\n", text_of(frame, "time").c_str(), place_of(frame).c_str(),
              text_of(frame, "code").c_str(), text_of(frame, "client").c_str(), what_was_done(frame).c_str(),
              sizes.c_str());
}

void frame_write(pcapng_file& file, const json& frame)
{
  const std::string comment = place_of(frame) + ": " + what_was_done(frame);
  const uint64_t time = frame.value("time_ns", uint64_t{0});
  file.write(time, bytes_of(frame, "before"), frame.value("length_before", 0u), pcapng_file::direction::inbound,
             "came, " + comment);
  if (frame.value("length_after", 0u) != 0)
    file.write(time, bytes_of(frame, "after"), frame.value("length_after", 0u), pcapng_file::direction::outbound,
               "left, " + comment);
}

status_page page_of(const given_words& given)
{
  status_page page("/monitor");
  page.with_place(given.arguments);
  if (const auto code = given.value("--code"))
    page.with("code", *code);
  if (const auto client = given.value("--client"))
    page.with("mac", *client);
  if (given.has("--dropped"))
    page.with("dropped", "1");
  return page;
}

}  // namespace

void monitor_run(const context& context, const given_words& given)
{
  const auto file_name = given.value("--pcap");
  const std::unique_ptr<pcapng_file> file = file_name ? std::make_unique<pcapng_file>(*file_name) : nullptr;
  // 0 is as many as there are.
  uint64_t left = given.has("--count") ? number_word_parse(*given.value("--count"), UINT32_MAX, "--count") : UINT64_MAX;
  status_follow(page_of(given), [&](const std::string& line) {
    const json frame = json::parse(line, nullptr, false);
    if (frame.is_discarded())
      throw command_error(exit_refused, "the answer is not from an agent");
    if (frame.contains("lost")) {
      std::fprintf(stderr, "%llu frames lost\n", static_cast<unsigned long long>(frame["lost"].get<uint64_t>()));
      return true;
    }
    if (file)
      frame_write(*file, frame);
    else if (context.json)
      std::printf("%s\n", line.c_str());
    else
      line_print(frame);
    std::fflush(stdout);
    return --left != 0;
  });
}
