// What people type and what they are told, to the byte: tests/tools/transcripts, each played on an agent of its own.
//
//   ## ...       a remark
//   > NAME       a file of the lines that follow, up to an empty one
//   $ WORDS...   pppoeiactl with these words
//   ! COMMAND    a shell's, which has $SOCKET, $SOURCE for this tree and $CTL for pppoeiactl with that socket
//
// Behind a command stand its output, what it says on standard error, and "-> STATUS" where that is not 0. The socket's
// path is written SOCKET.
#include "tests/support/files.h"
#include "tests/tools/running_agent.h"
#include "tools/pppoeiactl/words/line.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

void replace_all(std::string& text, const std::string& from, const std::string& to)
{
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
}

outcome answered(const running_agent& agent, const std::string& line)
{
  return line[0] == '$' ? agent.ctl(line_split(line.substr(2))) : run({"/bin/sh", "-c", line.substr(2)});
}

std::string played(const std::string& transcript)
{
  const running_agent agent;
  setenv("SOCKET", agent.socket().c_str(), 1);
  setenv("CTL", ("pppoeiactl -t 20 --socket " + agent.socket()).c_str(), 1);
  std::string told;
  std::istringstream lines(transcript);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("## "))
      told += line + "\n";
    if (line.starts_with("> ")) {
      std::ofstream written(line.substr(2));
      for (told += line + "\n"; std::getline(lines, line) && !line.empty(); told += line + "\n")
        written << line << "\n";
      told += "\n";
    }
    if (!line.starts_with("$ ") && !line.starts_with("! "))
      continue;
    const outcome result = answered(agent, line);
    told += line + "\n" + result.out + result.err;
    if (result.status != 0)
      told += "-> " + std::to_string(result.status) + "\n";
  }
  replace_all(told, agent.socket(), "SOCKET");
  return told;
}

class Transcripts : public testing::TestWithParam<const char*> {};

TEST_P(Transcripts, AreAnsweredAsWritten)
{
  const std::string name = std::string("transcripts/") + GetParam() + ".txt";
  const auto former = std::filesystem::current_path();
  const own_folder home;
  std::filesystem::current_path(home.path);
  setenv("PATH", (std::filesystem::path(PPPOEIACTL).parent_path().string() + ":/usr/bin:/bin").c_str(), 1);
  setenv("SOURCE", TEST_SOURCE_DIR, 1);
  const std::string told = played(file_text(TEST_SOURCE_DIR "/tests/tools/" + name));
  std::filesystem::current_path(former);
  expect_as_written(told, name);
}

INSTANTIATE_TEST_SUITE_P(All, Transcripts,
                         testing::Values("apply", "cards", "check", "formats", "lines", "mistakes", "notes", "reports",
                                         "status", "words"),
                         [](const auto& one) { return std::string(one.param); });

}  // namespace
