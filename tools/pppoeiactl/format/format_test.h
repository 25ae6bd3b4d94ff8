// "format test": sets the agent's format test data and expands test formats, showing the agent's answers.
#ifndef TOOLS_PPPOEIACTL_FORMAT_FORMAT_TEST_H
#define TOOLS_PPPOEIACTL_FORMAT_FORMAT_TEST_H

#include "tools/pppoeiactl/words/given_words.h"

inline constexpr char format_test_usage[] =
    "format test BRIDGE [--circuit-id FORMAT] [--remote-id FORMAT] [--port N] [--vlan N] [--cvid N] [--onu N] "
    "[--gem N] [--tcont-type N] [--mac MAC] [--mode test|available] [--debug on|off]";
inline constexpr char format_test_options[] =
    "--circuit-id= --remote-id= --port= --vlan= --cvid= --onu= --gem= --tcont-type= --mac= --mode= --debug=";

// What is given is set and stays set; then the formats given are expanded, both when neither is. Mode "test", which
// is the default, takes line numbers from the test data too, "available" from the port.
void format_test_run(const context& context, const given_words& given);

#endif
