#include "tests/tools/running_agent.h"

#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using file = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

file scratch(const std::string& content = {})
{
  file made(std::tmpfile(), std::fclose);
  std::fwrite(content.data(), 1, content.size(), made.get());
  std::fflush(made.get());
  lseek(fileno(made.get()), 0, SEEK_SET);
  return made;
}

std::string content_of(const file& from)
{
  std::string text;
  char block[4096];
  lseek(fileno(from.get()), 0, SEEK_SET);
  for (ssize_t count; (count = read(fileno(from.get()), block, sizeof block)) > 0;)
    text.append(block, static_cast<size_t>(count));
  return text;
}

int start(const std::vector<std::string>& command, int in, int out, int err)
{
  const int pid = fork();
  if (pid != 0)
    return pid;
  dup2(in, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  std::vector<char*> arguments;
  for (const std::string& word : command)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  _exit(127);
}

}  // namespace

outcome run(const std::vector<std::string>& command, const std::string& input)
{
  const file in = scratch(input);
  const file out = scratch();
  const file err = scratch();
  const int pid = start(command, fileno(in.get()), fileno(out.get()), fileno(err.get()));
  int status = 0;
  waitpid(pid, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), content_of(out), content_of(err)};
}

outcome ctl(const std::string& socket, std::vector<std::string> arguments, const std::string& input)
{
  arguments.insert(arguments.begin(), {PPPOEIACTL, "--socket", socket, "-t", "20"});
  return run(arguments, input);
}

std::string fresh_socket()
{
  static int number = 0;
  return testing::TempDir() + "ctl" + std::to_string(getpid()) + "." + std::to_string(++number);
}

void expect_as_written(const std::string& told, const std::string& file)
{
  const std::string path = TEST_SOURCE_DIR "/tests/tools/" + file;
  if (std::getenv("TOOLS_WRITE"))
    std::ofstream(path) << told;
  EXPECT_EQ(told, file_text(path));
}

running_agent::running_agent() : socket_(fresh_socket())
{
  int in[2];
  int out[2];
  EXPECT_EQ(pipe2(in, O_CLOEXEC) | pipe2(out, O_CLOEXEC), 0);
  pid_ = start({FAKE_AGENT, socket_}, in[0], out[1], STDERR_FILENO);
  close(in[0]);
  close(out[1]);
  alive_ = in[1];
  char ready;
  EXPECT_EQ(read(out[0], &ready, 1), 1) << "the agent does not start";
  close(out[0]);
}

running_agent::~running_agent()
{
  close(alive_);
  waitpid(pid_, nullptr, 0);
  unlink(socket_.c_str());
  unlink((socket_ + ".known").c_str());
}

std::string running_agent::told(std::vector<std::string> arguments) const
{
  const outcome result = ctl(std::move(arguments));
  EXPECT_EQ(result.status, 0) << result.err;
  return result.out;
}
