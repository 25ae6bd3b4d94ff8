#include "tools/pppoeiactl/commands.h"

#include "tools/pppoeiactl/words/line.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <editline/readline.h>
#include <memory>

namespace {

const with_context* current;  // for the library's callbacks, which have no argument for it

// The library asks for one word after the other, and frees each.
char* next_candidate(const char*, int state)
{
  static words candidates;
  static size_t next;
  if (state == 0) {
    next = 0;
    candidates.clear();
    try {
      words line = line_split(std::string(rl_line_buffer, static_cast<size_t>(rl_point)));
      if (rl_point == 0 || std::strchr(" \t", rl_line_buffer[rl_point - 1]))
        line.emplace_back();
      (*current)([&](const context& context) { candidates = completions(context, line); });
    } catch (const command_error&) {
      // An open quote: nothing to offer.
    }
  }
  return next < candidates.size() ? strdup(candidates[next++].c_str()) : nullptr;
}

char** complete(const char* text, int, int)
{
  rl_attempted_completion_over = 1;  // no names of files where there are no words
  return rl_completion_matches(text, next_candidate);
}

void line_run(const with_context& with, const std::string& line)
{
  try {
    const words command = line_split(line);
    with([&](const context& context) { command_run(context, command); });
  } catch (const command_error& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s\n", error.what());
  }
}

}  // namespace

void interactive_run(const with_context& with)
{
  using text = std::unique_ptr<char, decltype(&std::free)>;
  const char* home = std::getenv("HOME");
  const std::string history = home ? std::string(home) + "/.pppoeiactl_history" : "";
  current = &with;
  rl_attempted_completion_function = complete;
  using_history();
  stifle_history(1000);
  if (!history.empty())
    read_history(history.c_str());
  while (true) {
    const text typed(readline("pppoeiactl> "), &std::free);
    const std::string line = typed ? typed.get() : "exit";
    if (line == "exit" || line == "quit")
      break;
    if (line.find_first_not_of(" \t") == std::string::npos)
      continue;
    add_history(line.c_str());
    line_run(with, line);
  }
  if (!history.empty())
    write_history(history.c_str());
}
