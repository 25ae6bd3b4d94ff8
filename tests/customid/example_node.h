// The access node of formats.cases and of docs/formats.md, which describes it to the reader.
#ifndef TESTS_CUSTOMID_EXAMPLE_NODE_H
#define TESTS_CUSTOMID_EXAMPLE_NODE_H

#include "tests/support/records_fixture.h"

// Bridge "br0" with its ports and VLANs, the node's addresses, and test data.
class example_node {
public:
  example_node();

  pppoeia_bridge& bridge() { return *bridge_; }

private:
  test_bridge bridge_{32};
};

#endif
