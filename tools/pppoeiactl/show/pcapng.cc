#include "tools/pppoeiactl/show/pcapng.h"

#include "tools/pppoeiactl/context.h"

#include <cerrno>
#include <cstring>

namespace {

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

}  // namespace

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
