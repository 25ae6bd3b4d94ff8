// The fixture of tests that run the built programs on a node of their own.
#ifndef TESTS_SYSTEM_NODE_TEST_H
#define TESTS_SYSTEM_NODE_TEST_H

#include "tests/system/private_node.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>

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

#endif
