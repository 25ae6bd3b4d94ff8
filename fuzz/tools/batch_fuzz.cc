// A file of commands, as a user wrote it: each line's words read as they are written back, and the card that it makes
// can be made by the commands that a plan has for it.
#include "tools/pppoeiactl/config/card_file.h"
#include "tools/pppoeiactl/config/plan.h"
#include "tools/pppoeiactl/words/line.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>

namespace {

void check(bool holds)
{
  if (!holds)
    std::abort();
}

void line_check(const std::string& line)
{
  try {
    const words read = line_split(line);
    std::string written;
    for (const std::string& word : read)
      written += word_write(word) + " ";
    check(line_split(written) == read);
  } catch (const command_error&) {
    // An open quote.
  }
}

std::string batch_of(const config::card& wanted)
{
  std::string batch;
  for (const config::command& one : config::plan_make({}, wanted, {}).commands)
    batch += one.text() + "\n";
  return batch;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    line_check(line);
  lines = std::istringstream(text);
  const config::card_file file = config::card_file_parse(lines);
  for (const config::finding& found : file.findings)
    check(!found.text.empty());
  if (!file.usable() || !file.wanted.initialised)
    return 0;
  std::istringstream again(batch_of(file.wanted));
  const config::card_file same = config::card_file_parse(again);
  check(same.usable());
  check(batch_of(same.wanted) == batch_of(file.wanted));
  return 0;
}
