// The agent on a kernel in memory, served on a socket: for tests and measurements of the tools, without root.
// Usage: fake_agent SOCKET. Kernel bridges br0 to br15, access, gate, hidden and 5 exist. Ends when its standard input
// does.
#include "platform/ippc/server.h"
#include "pppoeia/operations/dispatcher.h"
#include "tests/support/fake_kernel.h"

#include <csignal>
#include <cstdio>
#include <unistd.h>

int main(int argc, char** argv)
{
  if (argc != 2)
    return 2;
  std::signal(SIGPIPE, SIG_IGN);  // nobody reads its traces
  static fake_kernel fake;        // the workers' until the process ends
  for (int number = 0; number < 16; ++number)
    fake.bridges.insert("br" + std::to_string(number));
  fake.bridges.insert({"access", "gate", "hidden", "5"});
  ippc::server server(argv[1], pppoeia_ippc_dispatcher);
  if (server.start() != 0) {
    std::perror(argv[1]);
    return 1;
  }
  std::puts("ready");
  std::fflush(stdout);
  char byte;
  while (read(STDIN_FILENO, &byte, 1) > 0) {
  }
  _exit(0);  // as a card does that is switched off
}
