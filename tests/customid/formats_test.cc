// Runs formats.cases and the examples of the operator's guide on the example node.
#include "pppoeia/customid/vocabulary.h"
#include "pppoeia/log.h"
#include "tests/customid/case_file.h"
#include "tests/customid/example_node.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

#include <gtest/gtest.h>
#include <set>

namespace {

struct result {
  std::string text;
  std::string bytes;

  bool operator==(const result&) const = default;
};

std::ostream& operator<<(std::ostream& out, const result& r)
{
  return out << '\'' << r.text << "' => " << r.bytes;
}

result generate(example_node& node, const format_case& c, int32_t level)
{
  pppoeia_log_level = level;
  result r;
  std::vector<unsigned char> bin;
  genCustomId(&node.bridge(), c.port, static_cast<uint16_t>(c.vlan), static_cast<uint16_t>(c.cvid), c.format, r.text,
              bin, c.data);
  pppoeia_log_level = log_info;
  for (const unsigned char byte : bin) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02x ", byte);
    r.bytes += digits;
  }
  if (!r.bytes.empty())
    r.bytes.pop_back();
  return r;
}

// The log lines that a case names: all but those that every identifier has.
std::vector<std::string> telling(const std::vector<std::string>& lines)
{
  std::vector<std::string> kept;
  for (const std::string& line : lines)
    if (line != "<br0> >> genCustomId" && line != "<br0> >> Generating binary string" &&
        !line.starts_with("<br0> >> Generated custom ID '"))
      kept.push_back(line.substr(0, line.find_last_not_of(" \n") + 1));
  return kept;
}

void run(const std::vector<format_case>& cases, const char* file, bool logs)
{
  example_node node;
  for (const format_case& c : cases) {
    SCOPED_TRACE(std::string(file) + ":" + std::to_string(c.line) + ": " + c.format);
    const result expected{c.text, c.bytes};
    syslog_take();
    EXPECT_EQ(generate(node, c, log_debug), expected);
    const std::vector<std::string> lines = syslog_take_texts();
    EXPECT_EQ(generate(node, c, log_info), expected) << "parsed beforehand";
    EXPECT_EQ(generate(node, c, log_info), expected) << "parsed before";
    if (logs) {
      EXPECT_EQ(telling(lines), c.log);
    }
  }
}

TEST(Formats, CaseFile)
{
  const std::vector<format_case> cases = cases_read(file_text(TEST_SOURCE_DIR "/tests/customid/formats.cases"));
  EXPECT_GT(cases.size(), 100u);
  run(cases, "formats.cases", true);
}

TEST(Formats, ExamplesOfTheGuide)
{
  const std::string guide = file_text(TEST_SOURCE_DIR "/docs/formats.md");
  const std::vector<format_case> cases = cases_read_markdown(guide);
  run(cases, "docs/formats.md", false);
  std::set<std::string> shown;
  for (const format_case& c : cases)
    shown.insert(c.format);
  for (const macro_row& row : macro_rows) {
    EXPECT_NE(guide.find("| `" + std::string(row.name) + "` | " + std::string(row.source)), std::string::npos)
        << row.name << " has no row in the guide with its source as the vocabulary tells it";
    if (row.type != HEX) {
      EXPECT_TRUE(shown.contains("$" + std::string(row.name))) << row.name << " has no result in the guide";
    }
  }
}

}  // namespace
