#include "tools/pppoeiactl/show/monitor.h"

#include "tools/pppoeiactl/show/pcapng.h"
#include "tools/pppoeiactl/show/status_client.h"

#include <cstdio>
#include <memory>

namespace {

using nlohmann::json;

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
