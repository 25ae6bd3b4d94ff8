// The fixture of tests that run the built programs on a node of their own.
#ifndef TESTS_SYSTEM_NODE_TEST_H
#define TESTS_SYSTEM_NODE_TEST_H

#include "tests/system/private_node.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class node_test : public testing::Test {
protected:
  // The first test enters the node. Skips where there can be none.
  void SetUp() override;
  void TearDown() override { node.hold_log(false); }

  // Exit status and output of a command of the shell, for which the built programs come first.
  static std::pair<int, std::string> run(const std::string& command);
  // A port mapper that answers, for as long as it is kept.
  static std::unique_ptr<background> port_mapper();

  static inline private_node& node = *new private_node;  // its reader outlives main()
  static const std::string& work;                        // a folder of the test's own that all can enter
};

// Those that need a kvbridged too.
class device_node_test : public node_test {
protected:
  // Skips where there are no FUSE and TAP devices.
  void SetUp() override;
};

// Those of the agent on kvbridged: sub - line and uplink - peer are its cables, port 1 and port 9 of br0.
class agent_node_test : public device_node_test {
protected:
  // `more` are kvbridged's further arguments.
  void SetUp(std::vector<std::string> more);
  void SetUp() override { SetUp({}); }
  void TearDown() override;

  void agent_start();
  // Also on an agent that is initialised already.
  static void bridge_make();

  std::optional<background> modules;
  std::optional<background> agent;
};

#endif
